// Reads a stored AEC record: the exposure control's reader and the AEC result check both need it.

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "records/calibration_log.h"
#include "records/kernel_export.h"
#include "records/module_identity.h"

namespace {

using calib::Camera;
using calib::log_module;

constexpr const char* kName = "aec_read_calibration";

constexpr calib::PerCamera kCacheFile{.main = "/data/misc/camera/aec_cal",
                                      .front = "/data/misc/camera/aec_cal_front_CAM",
                                      .sub = "/data/misc/camera/aec_cal_sub_CAM"};

int32_t read_from_export(Camera camera, uint8_t* buffer, uint32_t length) {
  LOG_BY_CAMERA(LOGI, camera, "%s: Read flash for AEC of MAIN CAM\n", "%s: Read flash for AEC of front CAM\n",
                "%s: Read flash for AEC of sub CAM\n", kName);
  uint8_t image[calib::kExportSize] = {};
  const ssize_t count = calib::read_file(calib::kExportNode.of(camera), image, sizeof image);
  if (count < 0) {
    LOG_BY_CAMERA(
        LOGE, camera, "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal",
        "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
        "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub", kName);
    return -1;
  }
  calib::copy_from_export(image, calib::kExportAec, buffer, length);
  LOGI("[AWB Calibration]%s: read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)", kName,
       static_cast<int>(count), static_cast<int32_t>(length));
  return static_cast<int32_t>(length);
}

}  // namespace

int32_t aec_read_calibration(uint8_t* buffer, uint32_t length) {
  if (buffer == nullptr) return -1;

  const Camera camera = calib::selected_camera();
  LOG_BY_CAMERA(LOGI, camera, "%s: Read file for AEC of MAIN CAM\n", "%s: Read file for AEC of Front CAM\n",
                "%s: Read file for AEC of Sub CAM\n", kName);
  const ssize_t count = calib::read_file(kCacheFile.of(camera), buffer, length);
  if (count < 0) return read_from_export(camera, buffer, length);

  LOG_BY_CAMERA(LOGI, camera, "Read /data/misc/camera/aec_cal OK (%d)\n",
                "Read /data/misc/camera/aec_cal_front_CAM OK (%d)\n",
                "Read /data/misc/camera/aec_cal_sub_CAM OK (%d)\n", static_cast<int>(count));
  return static_cast<int32_t>(count);
}
