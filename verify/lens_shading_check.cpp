// The lens-shading check: the record inside the image that cache file and export both are.

#include "awb_calibration/verify.h"
#include "verify/result_check.h"

namespace {

using calib::LensShadingRecord;
using calib::log_module;

constexpr auto kOpened = LINE_BY_CAMERA(
    LOGI, "Read from file OK: /data/misc/camera/lsc_cal or /sys/android_camera_awb_cal/awb_cal",
    "Read from file OK: /data/misc/camera/lsc_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front",
    "Read from file OK: /data/misc/camera/lsc_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub");

/// The last 20 bytes of the gain tables are not covered here, though the correction covers them.
constexpr calib::ResultCheck kLensShading{
    .test = {.name = "Sensor_Check_LSC_Calibration_Result",
             .view = {.fields = calib::RecordView::Fields::bits64,
                      .fuse = offsetof(LensShadingRecord, fuse),
                      .checksum = offsetof(LensShadingRecord, crc),
                      .covered = calib::kSealedBytes<LensShadingRecord> - 20},
             .lines = calib::kPlainLines,
             .log_word = LINE(LOGI, "[Calibration Record] %s: lsc record = 0x%x\n")},
    .files = calib::kLensShadingFiles,
    .from_cache = kOpened,
    .no_cache = LINE_BY_CAMERA(LOGI, "Read /data/misc/camera/lsc_cal not exist, read awb_cal\n",
                               "Read /data/misc/camera/lsc_cal_front_CAM not exist, read awb_cal_front\n",
                               "Read /data/misc/camera/lsc_cal_sub_CAM not exist, read awb_cal_sub\n"),
    .from_export = kOpened,
    .log_fields = [](const char* check, const calib::RecordClaims& claims, const uint8_t*) {
      LOGI("%s: lsc_verify(%ld) lsc_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
           static_cast<int64_t>(claims.valid_word), claims.fuse[0], claims.fuse[1], claims.fuse[2],
           claims.fuse[3]);
    }};

}  // namespace

int32_t Sensor_Check_LSC_Calibration_Result() {
  return calib::run(kLensShading);
}
