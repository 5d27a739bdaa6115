// The gyro check: the 48-byte record. The sub camera is answered from the main camera's files.

#include "awb_calibration/verify.h"
#include "verify/result_check.h"

namespace {

using calib::GyroRecord;
using calib::log_module;

constexpr calib::ResultCheck kGyro{
    .test = {.name = "Sensor_Check_GYRO_Calibration_Result",
             .view = {.fields = calib::RecordView::Fields::bits64,
                      .fuse = offsetof(GyroRecord, fuse),
                      .checksum = offsetof(GyroRecord, crc),
                      .covered = calib::kSealedBytes<GyroRecord>},
             .zero_first_fuse_word_matches_any = false,
             .lines = calib::kPlainLines,
             .log_word = LINE(LOGI, "[Calibration Record] %s: GYRO record = 0x%x\n")},
    .files = calib::kGyroFiles,
    .from_cache = [](calib::Camera) { LOGI("Read from /data/misc/camera"); },
    .no_cache =
        LINE_BY_CAMERA(LOGI, "Read /data/misc/camera/gyro_cal_qor_CAM not exist, read awb_cal\n",
                       "Read /data/misc/camera/gyro_cal_front_qor_CAM not exist, read awb_cal_front\n",
                       "Read /data/misc/camera/gyro_cal_qor_CAM not exist, read awb_cal\n"),
    .from_export =
        [](calib::Camera camera) {
          LOG_BY_CAMERA(
              LOGI, camera,
              "Read from file OK: /data/misc/camera/gyro_cal_qor_CAM or /sys/android_camera_awb_cal/awb_cal",
              "Read from file OK: /data/misc/camera/gyro_cal_front_qor_CAM or /sys/android_camera_awb_cal/awb_cal_front",
              "Read from file OK: /data/misc/camera/gyro_cal_qor_CAM or /sys/android_camera_awb_cal/awb_cal");
          LOGI("Read from /sys/android_camera_awb_cal/");
        },
    .nowhere = LINE_BY_CAMERA(LOGE, "Read from file:/sys/android_camera_awb_cal/awb_cal fail",
                              "Read from file:/sys/android_camera_awb_cal/awb_cal_front fail",
                              "Read from file:/sys/android_camera_awb_cal/awb_cal fail"),
    .log_fields =
        [](const char* check, const calib::RecordClaims& claims, const uint8_t*) {
          LOGI("%s: gyro_verify(%ld) gyro_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
               static_cast<int64_t>(claims.valid_word), claims.fuse[0], claims.fuse[1], claims.fuse[2],
               claims.fuse[3]);
        }};

}  // namespace

int32_t Sensor_Check_GYRO_Calibration_Result() {
  return calib::run(kGyro);
}
