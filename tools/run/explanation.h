// Why a camera's tuning was or was not corrected: a camera start on a copy of the phone, with what every loader
// found, what the library logged, and the tuning before and after.
#ifndef RUN_EXPLANATION_H
#define RUN_EXPLANATION_H

#include <string>
#include <vector>

#include "run/camera_start.h"
#include "run/correction_story.h"

namespace awbcal {

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

}  // namespace awbcal

#endif
