// The calibration state that the factory tool and the camera stack share through system properties.

#include <cstdio>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "common/platform.h"
#include "common/property.h"
#include "records/calibration_log.h"

namespace {

using calib::log_module;

constexpr const char* kStatus = "mfg.calibration.status";
constexpr const char* kTargetLuma = "mfg.calibration.target_luma";
constexpr const char* kTriggerIndex = "qor.camera.mfg.trigger_index";
constexpr const char* kExposureIndex = "qor.camera.mfg.aec_exp_index";

struct NumberText {
  explicit NumberText(uint32_t number) { snprintf(text, sizeof text, "%d", static_cast<int32_t>(number)); }
  char text[PROPERTY_VALUE_MAX];
};

int32_t set_number(const char* property, uint32_t number) {
  return property_set(property, NumberText(number).text);
}

uint32_t status_if_exists(int32_t status, const char* marker) {
  const calib::Descriptor file(calib::open_for_reading(marker));
  return file.is_open() ? static_cast<uint32_t>(status) : 0;
}

}  // namespace

int32_t Sensor_set_Calibration_status(uint32_t status) {
  return set_number(kStatus, status);
}

uint32_t Sensor_get_Calibration_status() {
  const int32_t status = calib::property_number(kStatus, "0");
  switch (status) {
    case 1:
    case 3:
    case 5:
    case 7:
    case 8:
      return static_cast<uint32_t>(status);
    case 2:
      return status_if_exists(status, "/data/misc/camera/LSC_Calibration_Success.txt");
    case 4:
      return status_if_exists(status, "/data/misc/camera/awb_calibration_success.txt");
    case 6:
      return status_if_exists(status, "/data/misc/camera/flash_calibration_success.txt");
    default:
      return 0;
  }
}

int32_t Sensor_set_target_luma(uint8_t luma) {
  return set_number(kTargetLuma, luma);
}

uint32_t Sensor_get_target_luma() {
  return static_cast<uint32_t>(calib::property_number(kTargetLuma, "90"));
}

int32_t Sensor_set_trigger_index(uint16_t index) {
  const NumberText number(index);
  LOGD("[Flash_Calibration] %s: trigger_index = %d, aec_trigger_index = %s", "Sensor_set_trigger_index",
       index, number.text);
  return property_set(kTriggerIndex, number.text);
}

uint32_t Sensor_get_trigger_index() {
  char text[PROPERTY_VALUE_MAX] = {};
  const int32_t index = calib::property_number(kTriggerIndex, "0", text);
  LOGD("[Flash_Calibration] %s: aec_trigger_index = %s, trigger_index = %d", "Sensor_get_trigger_index", text,
       index);
  return static_cast<uint32_t>(index);
}

int32_t Stats_set_exp_index(uint32_t index) {
  LOGD("[Flash_Calibration] %s: exp_index = %d", "Stats_set_exp_index", static_cast<int32_t>(index));
  return set_number(kExposureIndex, index);
}

uint32_t Stats_get_exp_index() {
  const int32_t index = calib::property_number(kExposureIndex, "0");
  LOGD("[Flash_Calibration] %s: exp_index = %d", "Stats_get_exp_index", index);
  return static_cast<uint32_t>(index);
}
