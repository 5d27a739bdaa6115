#include "run/readers.h"

#include <vector>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "awb_calibration/verify.h"
#include "correction/tuning_layout.h"

namespace awbcal {

namespace {

constexpr size_t kAwbTuningFloats = calib::kLedFlashWhiteBalance + 3;
constexpr size_t kSensorTuningBytes = calib::kFurtherMesh + sizeof(calib::MeshTable);

bool run_reference_points() {
  std::vector<float> tuning(kAwbTuningFloats, 1.0F);
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
  return true;
}

bool run_module_reference_points() {
  std::vector<float> tuning(kAwbTuningFloats, 1.0F);
  float ratios[3][2] = {};
  Correct_Reference_Points_qorModule(tuning.data(), ratios[0], ratios[1], ratios[2]);
  return true;
}

bool run_dual_camera_correction() {
  float ratios[4] = {};
  Dual_Cam_Correction(&ratios[0], &ratios[1], &ratios[2], &ratios[3]);
  return true;
}

bool run_aec() {
  uint32_t values[3] = {};
  QOR_Calibration_AEC_get_calibration_data(&values[0], &values[1], &values[2]);
  return true;
}

bool run_mesh() {
  std::vector<uint8_t> tuning(kSensorTuningBytes);
  return Sensor_set_mesh(tuning.data(), 0, 0.0F, 0.0F) == 1;
}

template <int32_t (*Check)()>
bool passes() {
  return Check() == 0;
}

// ---- by kind ----------------------------------------------------------------------------------------------

constexpr Reader kAwbReaders[] = {
    {"QOR_AWB_Calibration_Reference_Points_Correction", run_reference_points, "pass, use new white points"},
    {"Correct_Reference_Points_qorModule", run_module_reference_points, "pass, use new white points"},
    {"Dual_Cam_Correction", run_dual_camera_correction, "Load Calibraton data["},
    {"Sensor_Check_AWB_Calibration_Result", passes<Sensor_Check_AWB_Calibration_Result>, nullptr}};
constexpr Reader kALightReaders[] = {
    {"Dual_Cam_Correction", run_dual_camera_correction, "Load Calibraton data[", "A light data:"}};
constexpr Reader kFlashReaders[] = {
    {"QOR_AWB_Calibration_Reference_Points_Correction", run_reference_points,
     "] Load Flashlight-Calibraton data"},
    {"Sensor_Check_FLASH_Calibration_Result", passes<Sensor_Check_FLASH_Calibration_Result>, nullptr}};
constexpr Reader kAecReaders[] = {
    {"QOR_Calibration_AEC_get_calibration_data", run_aec, "Load AEC-Calibraton data"},
    {"Sensor_Check_AEC_Calibration_Result", passes<Sensor_Check_AEC_Calibration_Result>, nullptr}};
constexpr Reader kDualFlashReaders[] = {
    {"Correct_Reference_Points_qorModule", run_module_reference_points, "] Load Flashlight-Calibraton data"},
    {"Sensor_Check_FLASH_Calibration_Result", passes<Sensor_Check_FLASH_Calibration_Result>, nullptr}};
constexpr Reader kGyroReaders[] = {
    {"Sensor_Check_GYRO_Calibration_Result", passes<Sensor_Check_GYRO_Calibration_Result>, nullptr}};
constexpr Reader kLensShadingReaders[] = {
    {"Sensor_set_mesh", run_mesh, nullptr},
    {"Sensor_Check_LSC_Calibration_Result", passes<Sensor_Check_LSC_Calibration_Result>, nullptr}};
constexpr Reader kDualCameraReaders[] = {
    {"Sensor_Check_DUAL_Calibration_Result", passes<Sensor_Check_DUAL_Calibration_Result>, nullptr}};

}  // namespace

std::span<const Reader> readers_of(RecordKind kind) {
  switch (kind) {
    case RecordKind::awb:
      return kAwbReaders;
    case RecordKind::a_light_awb:
      return kALightReaders;
    case RecordKind::flash:
      return kFlashReaders;
    case RecordKind::aec:
      return kAecReaders;
    case RecordKind::dual_flash:
      return kDualFlashReaders;
    case RecordKind::gyro:
      return kGyroReaders;
    case RecordKind::lens_shading:
      return kLensShadingReaders;
    case RecordKind::dual_camera:
      return kDualCameraReaders;
    case RecordKind::dual_camera_first_form:
    case RecordKind::dual_camera_payload:
      break;
  }
  return {};
}

std::optional<RecordKind> companion_of(RecordKind kind) {
  return kind == RecordKind::a_light_awb ? std::optional(RecordKind::awb) : std::nullopt;
}

}  // namespace awbcal
