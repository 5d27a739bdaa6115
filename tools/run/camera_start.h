// A camera start as the camera stack does it, and the result checks of the factory tool: every call of the library
// on the selected camera, with what it answered, logged and changed.
#ifndef RUN_CAMERA_START_H
#define RUN_CAMERA_START_H

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "phone/virtual_phone.h"
#include "records/camera.h"
#include "run/tuning.h"

namespace awbcal {

/// What a start hands out or changes; made with the values before it.
struct CameraTuning {
  explicit CameraTuning(const calib::GoldenRatios& golden);

  TuningBlock moved;       ///< corrected by QOR_AWB_Calibration_Reference_Points_Correction()
  TuningBlock own_golden;  ///< corrected by Correct_Reference_Points_qorModule()
  TuningBlock mesh;        ///< corrected by Sensor_set_mesh()
  std::array<float, 2> module_ratio = {1.0F, 1.0F};
  std::array<float, 2> white_screen = {1.0F, 1.0F};
  std::array<float, 2> yellow_screen = {1.0F, 1.0F};
  std::array<float, 4> pair = {1.0F, 1.0F, 1.0F, 1.0F};  ///< Dual_Cam_Correction(): normal and A light
  std::array<uint32_t, 3> exposure = {};  ///< QOR_Calibration_AEC_get_calibration_data(): gain, time, luma

  bool operator==(const CameraTuning&) const = default;
};

/// A call of the library and what it left in the log.
struct LibraryCall {
  const char* function;
  bool answer = true;  ///< false: it answered that it did nothing or found something bad
  std::vector<phone::LogLine> log = {};
};

const LibraryCall* find_call(const std::vector<LibraryCall>& calls, std::string_view function);

inline bool is_error(const phone::LogLine& line) {
  return line.priority >= 6;
}

/// Selects the camera, sets the golden sample and runs every correction on `tuning`.
std::vector<LibraryCall> start_camera(phone::VirtualPhone& phone, calib::Camera camera,
                                      const calib::GoldenRatios& golden, CameraTuning& tuning);

/// A result check of the library.
struct ResultCheck {
  const char* name;  ///< for people
  const char* function;
  int32_t (*answer)();
};
extern const std::array<ResultCheck, 6> kResultChecks;

/// Selects the camera and runs every result check.
std::vector<LibraryCall> check_results(phone::VirtualPhone& phone, calib::Camera camera);

}  // namespace awbcal

#endif
