// Why a camera's tuning was or was not corrected: a camera start on a copy of the phone, with what every loader
// found, what the library logged, and the tuning before and after.
#ifndef RUN_EXPLANATION_H
#define RUN_EXPLANATION_H

#include <string>
#include <vector>

#include "run/camera_start.h"
#include "run/correction_story.h"
#include "text/tables.h"

namespace awbcal {

/// Typical of a camera: for those who do not know theirs.
inline constexpr calib::GoldenRatios kAssumedGolden{0.7539F, 0.5625F};

/// "golden sample 0.7539, 0.5625 assumed: give --golden"
std::string assumed_golden_text();

struct ExplainQuestion {
  calib::Camera camera = calib::Camera::main;
  Modules modules = {};
  calib::GoldenRatios golden = {};
  std::string tuning_file = {};       ///< an AWB tuning block to correct; empty: a typical one
  std::string mesh_tuning_file = {};  ///< a sensor's tuning block with the meshes; empty: a typical one
  bool reboot = false;                ///< the kernel reads the partition anew first
};

struct Explanation {
  std::vector<CorrectionStory> corrections;
  std::vector<SourceStory> sources;
  Modules assumed;  ///< of a camera whose module is not known: what its own record says
  std::vector<LibraryCall> calls;
  CameraTuning before;
  CameraTuning after;
};

/// Throws InputError for a tuning file that is no tuning block.
Explanation explain(const Phone& phone, const ExplainQuestion& question);

/// Where the camera's records come from: kind, place, and what becomes of it.
Table source_table(const Explanation& explanation);

}  // namespace awbcal

#endif
