#include "run/camera_start.h"

#include <algorithm>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "awb_calibration/verify.h"
#include "inspect/cameras.h"

namespace awbcal {

namespace {

constexpr float kBrightRatio = 0.75F;
constexpr float kLowRatio = 0.5F;

/// Runs `what` and keeps what it logged.
template <class What>
LibraryCall run_call(phone::VirtualPhone& phone, const char* function, const What& what) {
  phone.take_log();
  LibraryCall call{.function = function};
  call.answer = what();
  call.log = phone.take_log();
  return call;
}

}  // namespace

const std::array<ResultCheck, 6> kResultChecks = {
    {{"AWB", "Sensor_Check_AWB_Calibration_Result", Sensor_Check_AWB_Calibration_Result},
     {"AEC", "Sensor_Check_AEC_Calibration_Result", Sensor_Check_AEC_Calibration_Result},
     {"lens shading", "Sensor_Check_LSC_Calibration_Result", Sensor_Check_LSC_Calibration_Result},
     {"flash", "Sensor_Check_FLASH_Calibration_Result", Sensor_Check_FLASH_Calibration_Result},
     {"gyro", "Sensor_Check_GYRO_Calibration_Result", Sensor_Check_GYRO_Calibration_Result},
     {"dual camera", "Sensor_Check_DUAL_Calibration_Result", Sensor_Check_DUAL_Calibration_Result}}};

CameraTuning::CameraTuning(const calib::GoldenRatios& golden)
    : moved(make_awb_tuning(golden)), own_golden(make_awb_tuning(golden)), mesh(make_mesh_tuning()) {}

const LibraryCall* find_call(const std::vector<LibraryCall>& calls, std::string_view function) {
  const auto found = std::find_if(calls.begin(), calls.end(),
                                  [function](const LibraryCall& call) { return call.function == function; });
  return found == calls.end() ? nullptr : &*found;
}

std::vector<LibraryCall> start_camera(phone::VirtualPhone& phone, calib::Camera camera,
                                      const calib::GoldenRatios& golden, CameraTuning& tuning) {
  const float rg[3] = {golden.rg, golden.rg, golden.rg};
  const float bg[3] = {golden.bg, golden.bg, golden.bg};
  std::vector<LibraryCall> calls;
  calls.push_back(run_call(phone, "sensor_detect", [camera] {
    sensor_detect(camid_of(camera));
    return true;
  }));
  awb_calibration_set_GS(rg, bg);
  calls.push_back(run_call(phone, "QOR_AWB_Calibration_Reference_Points_Correction", [&tuning] {
    QOR_AWB_Calibration_Reference_Points_Correction(tuning.moved.data());
    return true;
  }));
  calls.push_back(run_call(phone, "Correct_Reference_Points_qorModule", [&tuning] {
    Correct_Reference_Points_qorModule(tuning.own_golden.data(), tuning.module_ratio.data(),
                                       tuning.white_screen.data(), tuning.yellow_screen.data());
    return true;
  }));
  calls.push_back(run_call(phone, "Sensor_set_mesh", [&tuning] {
    return Sensor_set_mesh(tuning.mesh.data(), 0, kBrightRatio, kLowRatio) == 1;
  }));
  calls.push_back(run_call(phone, "Dual_Cam_Correction", [&tuning] {
    Dual_Cam_Correction(&tuning.pair[0], &tuning.pair[1], &tuning.pair[2], &tuning.pair[3]);
    return true;
  }));
  calls.push_back(run_call(phone, "QOR_Calibration_AEC_get_calibration_data", [&tuning] {
    QOR_Calibration_AEC_get_calibration_data(&tuning.exposure[0], &tuning.exposure[1], &tuning.exposure[2]);
    return true;
  }));
  return calls;
}

std::vector<LibraryCall> check_results(phone::VirtualPhone& phone, calib::Camera camera) {
  set_sensor_selection(static_cast<uint32_t>(camid_of(camera)));
  std::vector<LibraryCall> calls;
  for (const ResultCheck& check : kResultChecks) {
    calls.push_back(run_call(phone, check.function, [&check] { return check.answer() == 0; }));
  }
  return calls;
}

}  // namespace awbcal
