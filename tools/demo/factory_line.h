// The production line at work on one camera: the factory tool's properties and the camera stack's calls.
#ifndef DEMO_FACTORY_LINE_H
#define DEMO_FACTORY_LINE_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "inspect/cameras.h"
#include "inspect/decode.h"
#include "phone/virtual_phone.h"
#include "run/sensor_model.h"
#include "text/terminal.h"

namespace awbcal {

/// The fuse ID that the camera driver published for the fitted module.
calib::FuseWords module_of(const phone::VirtualPhone& phone, calib::Camera camera);

struct RunPlan {
  calib::Camera camera;
  Light light;
  ModuleDeviation module;
  double exposure_speed;  ///< the share of the way to the target that a frame takes
  bool calibrates_exposure;
  std::vector<Frame> recorded;  ///< instead of the sensor model's frames when not empty
};

/// The percentage of the larger golden ratio that a module may be off.
inline constexpr int kTolerancePercent = 20;

/// A frame at which something happened.
struct FrameEvent {
  int number;
  double luma;
  Exposure exposure;
  Frame frame;
  std::string what;
};

struct CameraFile {
  unsigned mode;
  std::string content;
  bool operator==(const CameraFile&) const = default;
};
using CameraFiles = std::map<std::string, CameraFile>;

/// The files under /data/misc/camera as they are now.
CameraFiles camera_files(const phone::VirtualPhone& phone);

struct RunResult {
  std::vector<std::pair<std::string, std::string>> properties;
  uint32_t luma_target = 0;
  uint32_t luma_tolerance = 0;
  std::vector<FrameEvent> events;
  int frames = 0;
  bool has_finished = false;
  CameraFiles while_waiting;  ///< after the first judgement that could not be stored
  std::string console;
  std::vector<std::string> error_lines;  ///< logged at error priority by the calibration itself
  CameraFiles before;
  CameraFiles after;
};

/// Opens the camera, runs the calibration until it ends or the factory tool gives up, and takes the trigger
/// back.
RunResult run_calibration(phone::VirtualPhone& phone, const RunPlan& plan, Noise& noise, Terminal& terminal,
                          ConsoleCapture& console);

}  // namespace awbcal

#endif
