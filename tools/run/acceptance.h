// Which of the library's corrections and result checks take a record: asked of the library itself, in one camera
// start and one round of checks per camera on a copy of the whole phone.
#ifndef RUN_ACCEPTANCE_H
#define RUN_ACCEPTANCE_H

#include <map>
#include <vector>

#include "run/camera_start.h"
#include "run/readers.h"
#include "run/scratch_phone.h"

namespace awbcal {

/// not_reached: the function ended before it came to the record, which therefore remains unjudged.
enum class Acceptance { accepted, refused, not_reached };

struct Answer {
  const Reader* reader;
  Acceptance acceptance;
};

/// All that the library did on one camera.
using CameraRun = std::vector<LibraryCall>;

/// What the calls say of the camera's record of this kind, in the order of readers_of().
std::vector<Answer> answers_on(RecordKind kind, const CameraRun& run);

/// A start and a round of checks of every camera on a copy of the phone.
std::map<calib::Camera, CameraRun> run_cameras(const Phone& phone, const Modules& modules);

}  // namespace awbcal

#endif
