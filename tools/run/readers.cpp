#include "run/readers.h"

namespace awbcal {

namespace {

constexpr const char* kAwbFieldsTooWide =
    "reads 64-bit fields and can accept no record of a calibration run, whose fields have 32 bits";
constexpr const char* kFlashFieldsTooWide =
    "reads 64-bit fields and can accept no record of the flash writers, whose fields have 32 bits";
constexpr const char* kCoversTooLittle =
    "covers 3556 bytes, the image's own checksum 3576: an image that a camera start takes without an error "
    "never passes";

constexpr const char* kALightBegins = "A light data:";

constexpr Reader kAwbReaders[] = {
    {.function = "QOR_AWB_Calibration_Reference_Points_Correction",
     .line_when_used = "pass, use new white points",
     .effect = "White balance"},
    {.function = "Correct_Reference_Points_qorModule",
     .line_when_used = "pass, use new white points",
     .effect = "Module ratios",
     .done = "handed out",
     .first_version = 1},
    {.function = "Dual_Cam_Correction",
     .line_when_used = "Load Calibraton data[",
     .line_after = kALightBegins,
     .effect = "Normal-light pair ratios",
     .done = "handed out"},
    {.function = "Sensor_Check_AWB_Calibration_Result", .never_passes = kAwbFieldsTooWide}};
constexpr Reader kALightReaders[] = {{.function = "Dual_Cam_Correction",
                                      .line_when_used = "Load Calibraton data[",
                                      .first_line = kALightBegins,
                                      .effect = "A-light pair ratios",
                                      .done = "handed out"}};
constexpr Reader kFlashReaders[] = {
    {.function = "QOR_AWB_Calibration_Reference_Points_Correction",
     .line_when_used = "] Load Flashlight-Calibraton data",
     .first_line = "[Flash Calibration]",
     .effect = "Flash gains"},
    {.function = "Sensor_Check_FLASH_Calibration_Result", .never_passes = kFlashFieldsTooWide}};
constexpr Reader kAecReaders[] = {{.function = "QOR_Calibration_AEC_get_calibration_data",
                                   .line_when_used = "Load AEC-Calibraton data",
                                   .effect = "Exposure",
                                   .done = "handed out"},
                                  {.function = "Sensor_Check_AEC_Calibration_Result"}};
constexpr Reader kDualFlashReaders[] = {
    {.function = "Correct_Reference_Points_qorModule",
     .line_when_used = "] Load Flashlight-Calibraton data",
     .first_line = "Flash Calibration]",
     .effect = "Dual-flash gains"},
    {.function = "Sensor_Check_FLASH_Calibration_Result", .never_passes = kFlashFieldsTooWide}};
constexpr Reader kGyroReaders[] = {{.function = "Sensor_Check_GYRO_Calibration_Result"}};
constexpr Reader kLensShadingReaders[] = {
    {.function = "Sensor_set_mesh", .effect = "Lens shading", .checksum_only_warns = true},
    {.function = "Sensor_Check_LSC_Calibration_Result", .never_passes = kCoversTooLittle}};
constexpr Reader kDualCameraReaders[] = {{.function = "Sensor_Check_DUAL_Calibration_Result"}};

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

const char* never_passes(std::string_view function) {
  for (const RecordSpec& spec : record_specs()) {
    for (const Reader& reader : readers_of(spec.kind)) {
      if (reader.function == function) return reader.never_passes;
    }
  }
  return nullptr;
}

}  // namespace awbcal
