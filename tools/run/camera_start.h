// A camera start as the camera stack does it: every correction of the selected camera, and what they changed.
#ifndef RUN_CAMERA_START_H
#define RUN_CAMERA_START_H

#include <array>
#include <string>
#include <vector>

#include "phone/virtual_phone.h"
#include "records/camera.h"
#include "run/tuning.h"
#include "text/terminal.h"

namespace awbcal {

/// What a start hands out or changes; made with the values before it.
struct CameraTuning {
  explicit CameraTuning(const Light& golden);

  TuningBlock moved;       ///< corrected by QOR_AWB_Calibration_Reference_Points_Correction()
  TuningBlock own_golden;  ///< corrected by Correct_Reference_Points_qorModule()
  TuningBlock mesh;        ///< corrected by Sensor_set_mesh()
  std::array<float, 2> module_ratio = {1.0F, 1.0F};
  std::array<float, 2> white_screen = {1.0F, 1.0F};
  std::array<float, 2> yellow_screen = {1.0F, 1.0F};
  std::array<float, 4> pair = {1.0F, 1.0F, 1.0F, 1.0F};  ///< Dual_Cam_Correction(): normal and A light

  bool operator==(const CameraTuning&) const = default;
};

struct CameraStart {
  CameraTuning tuning;
  std::vector<std::string> refusals;  ///< what the library logged as errors
};

CameraStart start_camera(phone::VirtualPhone& phone, calib::Camera camera, const Light& golden);

/// Every field that differs, before and after; a table without a difference in one line.
void show_start(Terminal& terminal, const CameraTuning& before, const CameraStart& start);

}  // namespace awbcal

#endif
