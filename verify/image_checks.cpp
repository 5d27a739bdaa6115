// The gyro, lens-shading and AWB checks: one record out of the camera's cache file or the kernel's export.

#include "awb_calibration/verify.h"
#include "common/file.h"
#include "records/kernel_export.h"
#include "records/module_identity.h"
#include "verify/result_check.h"

namespace {

using calib::Camera;
using calib::log_module;
using calib::PerCamera;
using calib::RecordClaims;

/// Where a check reads, what it says about that, and what it tests. Both sources go into a buffer laid out as
/// the export's image.
struct ImageCheck {
  calib::RecordCheck test;
  size_t record_offset;  ///< in the image
  PerCamera cache;
  size_t cache_offset = 0;  ///< where the cache file's first byte belongs in the image
  size_t cache_size;
  PerCamera node = calib::kExportNode;
  size_t node_size;
  PerCamera cache_missing;
  PerCamera opened;
  bool says_which_opened = false;
  PerCamera node_fails = calib::kExportFails;
  void (*log_fields)(const char* check, const RecordClaims& claims, const uint8_t* record);
};

void log_gyro_fields(const char* check, const RecordClaims& claims, const uint8_t*) {
  LOGI("%s: gyro_verify(%ld) gyro_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
       static_cast<long>(claims.valid_word), static_cast<unsigned long>(claims.fuse[0]),
       static_cast<unsigned long>(claims.fuse[1]), static_cast<unsigned long>(claims.fuse[2]),
       static_cast<unsigned long>(claims.fuse[3]));
}

void log_lens_shading_fields(const char* check, const RecordClaims& claims, const uint8_t*) {
  LOGI("%s: lsc_verify(%ld) lsc_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
       static_cast<long>(claims.valid_word), static_cast<unsigned long>(claims.fuse[0]),
       static_cast<unsigned long>(claims.fuse[1]), static_cast<unsigned long>(claims.fuse[2]),
       static_cast<unsigned long>(claims.fuse[3]));
}

/// The sub camera has no gyro files: it is answered from the main camera's.
constexpr ImageCheck kGyro{
    .test = {.name = "Sensor_Check_GYRO_Calibration_Result",
             .view = {.fields = calib::RecordView::Fields::bits64,
                      .fuse = offsetof(calib::GyroRecord, fuse),
                      .checksum = offsetof(calib::GyroRecord, crc),
                      .covered = calib::kSealedBytes<calib::GyroRecord>},
             .zero_first_fuse_word_matches_any = false,
             .lines = calib::kPlainLines,
             .log_word = RECORD_WORD_LINE("[Calibration Record] %s: GYRO record = 0x%x\n")},
    .record_offset = calib::kExportGyro,
    .cache = {.main = "/data/misc/camera/gyro_cal_qor_CAM",
              .front = "/data/misc/camera/gyro_cal_front_qor_CAM",
              .sub = "/data/misc/camera/gyro_cal_qor_CAM"},
    .cache_offset = calib::kExportGyro,
    .cache_size = sizeof(calib::GyroRecord),
    .node = {.main = "/sys/android_camera_awb_cal/awb_cal",
             .front = "/sys/android_camera_awb_cal/awb_cal_front",
             .sub = "/sys/android_camera_awb_cal/awb_cal"},
    .node_size = calib::kExportSize,
    .cache_missing = {.main = "Read /data/misc/camera/gyro_cal_qor_CAM not exist, read awb_cal\n",
                      .front =
                          "Read /data/misc/camera/gyro_cal_front_qor_CAM not exist, read awb_cal_front\n",
                      .sub = "Read /data/misc/camera/gyro_cal_qor_CAM not exist, read awb_cal\n"},
    .opened =
        {.main =
             "Read from file OK: /data/misc/camera/gyro_cal_qor_CAM or /sys/android_camera_awb_cal/awb_cal",
         .front =
             "Read from file OK: /data/misc/camera/gyro_cal_front_qor_CAM or /sys/android_camera_awb_cal/awb_cal_front",
         .sub =
             "Read from file OK: /data/misc/camera/gyro_cal_qor_CAM or /sys/android_camera_awb_cal/awb_cal"},
    .says_which_opened = true,
    .node_fails = {.main = "Read from file:/sys/android_camera_awb_cal/awb_cal fail",
                   .front = "Read from file:/sys/android_camera_awb_cal/awb_cal_front fail",
                   .sub = "Read from file:/sys/android_camera_awb_cal/awb_cal fail"},
    .log_fields = log_gyro_fields};

/// The last 20 bytes of the gain tables are not covered here, though the correction covers them.
constexpr ImageCheck kLensShading{
    .test = {.name = "Sensor_Check_LSC_Calibration_Result",
             .view = {.fields = calib::RecordView::Fields::bits64,
                      .fuse = offsetof(calib::LensShadingRecord, fuse),
                      .checksum = offsetof(calib::LensShadingRecord, crc),
                      .covered = calib::kSealedBytes<calib::LensShadingRecord> - 20},
             .lines = calib::kPlainLines,
             .log_word = RECORD_WORD_LINE("[Calibration Record] %s: lsc record = 0x%x\n")},
    .record_offset = calib::kExportLensShading,
    .cache = {.main = "/data/misc/camera/lsc_cal",
              .front = "/data/misc/camera/lsc_cal_front_CAM",
              .sub = "/data/misc/camera/lsc_cal_sub_CAM"},
    .cache_size = calib::kExportSize,
    .node_size = calib::kExportSize,
    .cache_missing = {.main = "Read /data/misc/camera/lsc_cal not exist, read awb_cal\n",
                      .front = "Read /data/misc/camera/lsc_cal_front_CAM not exist, read awb_cal_front\n",
                      .sub = "Read /data/misc/camera/lsc_cal_sub_CAM not exist, read awb_cal_sub\n"},
    .opened =
        {.main = "Read from file OK: /data/misc/camera/lsc_cal or /sys/android_camera_awb_cal/awb_cal",
         .front =
             "Read from file OK: /data/misc/camera/lsc_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front",
         .sub =
             "Read from file OK: /data/misc/camera/lsc_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"},
    .log_fields = log_lens_shading_fields};

constexpr ImageCheck kAwb{
    .test = {.name = "Sensor_Check_AWB_Calibration_Result",
             .view = calib::kEightFields,
             .front_camera_may_bear_main_fuse_id = true,
             .lines = calib::kPlainLines,
             .log_word = RECORD_WORD_LINE("[Calibration Record] %s: awb record = 0x%x\n")},
    .record_offset = calib::kExportAwb,
    .cache = {.main = "/data/misc/camera/awb_cal",
              .front = "/data/misc/camera/awb_cal_front_CAM",
              .sub = "/data/misc/camera/awb_cal_sub_CAM"},
    .cache_size = calib::kEightFieldsSize,
    .node_size = calib::kEightFieldsSize,
    .cache_missing = {.main = "Read /data/misc/camera/awb_cal not exist, read awb_cal\n",
                      .front = "Read /data/misc/camera/awb_cal_front_CAM not exist, read awb_cal_front\n",
                      .sub = "Read /data/misc/camera/awb_cal_sub_CAM not exist, read awb_cal_sub\n"},
    .opened =
        {.main = "Read from file OK: /data/misc/camera/awb_cal or /sys/android_camera_awb_cal/awb_cal",
         .front =
             "Read from file OK: /data/misc/camera/awb_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front",
         .sub =
             "Read from file OK: /data/misc/camera/awb_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"},
    .log_fields = calib::log_eight_fields};

using Image = uint8_t[calib::kExportSize];

bool read_cache(const ImageCheck& check, Camera camera, Image& image) {
  const char* path = check.cache.of(camera);
  if (calib::read_file(path, image + check.cache_offset, check.cache_size) < 0) return false;
  LOGI("%s", check.says_which_opened ? "Read from /data/misc/camera" : check.opened.of(camera));
  return true;
}

bool read_node(const ImageCheck& check, Camera camera, Image& image) {
  LOGI("%s", check.cache_missing.of(camera));
  if (calib::read_file(check.node.of(camera), image, check.node_size) < 0) {
    LOGE("%s", check.node_fails.of(camera));
    return false;
  }
  LOGI("%s", check.opened.of(camera));
  if (check.says_which_opened) LOGI("Read from /sys/android_camera_awb_cal/");
  return true;
}

int32_t check_image(const ImageCheck& check) {
  calib::FuseWords module = calib::identify_module(check.test.name);
  const Camera camera = calib::selected_camera();
  Image image = {};
  if (!read_cache(check, camera, image) && !read_node(check, camera, image)) return -1;
  const uint8_t* record = image + check.record_offset;
  const RecordClaims claims = calib::claims_at(record, check.test.view);
  check.log_fields(check.test.name, claims, record);
  return calib::test_record(check.test, claims, module) == calib::kGoodRecord ? 0 : -1;
}

}  // namespace

int32_t Sensor_Check_GYRO_Calibration_Result() {
  return check_image(kGyro);
}

int32_t Sensor_Check_LSC_Calibration_Result() {
  return check_image(kLensShading);
}

int32_t Sensor_Check_AWB_Calibration_Result() {
  return check_image(kAwb);
}
