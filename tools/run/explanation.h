// Why a camera's tuning was or was not corrected: a camera start on a copy of the phone, with what every loader
// found, what the library logged, and the tuning before and after.
#ifndef RUN_EXPLANATION_H
#define RUN_EXPLANATION_H

#include <string>
#include <vector>

#include "inspect/verdict.h"
#include "run/camera_start.h"

namespace awbcal {

struct ExplainQuestion {
  calib::Camera camera = calib::Camera::main;
  Modules modules = {};
  calib::GoldenRatios golden = {};
  std::string tuning_file = {};       ///< an AWB tuning block to correct; empty: a typical one
  std::string mesh_tuning_file = {};  ///< a sensor's tuning block with the meshes; empty: a typical one
  bool reboot = false;                ///< the kernel reads the partition anew first
};

/// A source of a record and what becomes of it: a loader takes the first that opens, whatever is in it.
struct SourceStory {
  const RecordSpec* spec;
  std::string place;
  std::string fate;
};

struct Explanation {
  std::vector<SourceStory> sources;
  std::vector<LibraryCall> calls;
  CameraTuning before;
  CameraTuning after;
};

/// Throws InputError for a tuning file that is no tuning block.
Explanation explain(const Phone& phone, const ExplainQuestion& question);

}  // namespace awbcal

#endif
