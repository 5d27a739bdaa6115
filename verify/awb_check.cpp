// The AWB check: a block of eight 64-bit fields where the writers store eight 32-bit words.

#include "awb_calibration/verify.h"
#include "verify/result_check.h"

namespace {

using calib::log_module;

constexpr auto kOpened = LINE_BY_CAMERA(
    LOGI, "Read from file OK: /data/misc/camera/awb_cal or /sys/android_camera_awb_cal/awb_cal",
    "Read from file OK: /data/misc/camera/awb_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front",
    "Read from file OK: /data/misc/camera/awb_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub");

constexpr calib::ResultCheck kAwb{
    .test = {.name = "Sensor_Check_AWB_Calibration_Result",
             .view = calib::kEightFields,
             .front_camera_may_bear_main_fuse_id = true,
             .lines = calib::kPlainLines,
             .log_word = LINE(LOGI, "[Calibration Record] %s: awb record = 0x%x\n")},
    .files = calib::kAwbFiles,
    .from_cache = kOpened,
    .no_cache = LINE_BY_CAMERA(LOGI, "Read /data/misc/camera/awb_cal not exist, read awb_cal\n",
                               "Read /data/misc/camera/awb_cal_front_CAM not exist, read awb_cal_front\n",
                               "Read /data/misc/camera/awb_cal_sub_CAM not exist, read awb_cal_sub\n"),
    .from_export = kOpened,
    .log_fields = calib::log_eight_fields};

}  // namespace

int32_t Sensor_Check_AWB_Calibration_Result() {
  return calib::run(kAwb);
}
