// What became of every correction of a camera start, in a sentence: done, or not and by which test of its record.
#ifndef RUN_CORRECTION_STORY_H
#define RUN_CORRECTION_STORY_H

#include <string>
#include <vector>

#include "inspect/verdict.h"
#include "run/acceptance.h"

namespace awbcal {

/// A source of a record and what becomes of it: a loader takes the first that opens, whatever is in it.
struct SourceStory {
  const RecordSpec* spec;
  std::string place;
  State state;
  std::string fate;
};

/// The sources that the loaders of the camera's records try, in their order.
std::vector<SourceStory> tell_sources(const Phone& phone, calib::Camera camera, const Modules& modules);

/// A record goes through these before it is applied: is it there, is it whole, its checksum, its valid word, its
/// module.
inline constexpr int kRecordTests = 5;

/// The number of the test that the verdict stands for; 0: none.
int test_of(Verdict verdict);
/// "fifth of five tests"
std::string test_text(int test);
/// What is wrong with a record that was refused; `name` is what it is called.
std::string refusal_text(const std::string& name, const Finding& finding);

struct CorrectionStory {
  const RecordSpec* spec;
  const Reader* reader;
  Acceptance acceptance;
  bool is_known = true;        ///< false: a source of the record cannot be read
  const char* rule = nullptr;  ///< of the test that refused the record; null: none did
  int test = 0;                ///< its number, from 1; 0: none
  std::string sentence = {};
};

/// `run` is the camera's start on a copy of the phone.
std::vector<CorrectionStory> tell_corrections(const Phone& phone, calib::Camera camera,
                                              const Modules& modules, const CameraRun& run);

}  // namespace awbcal

#endif
