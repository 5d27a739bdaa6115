// Loads a record of the selected camera: from its cache file, else from the kernel's export.

#include "common/file.h"
#include "records/calibration_log.h"
#include "records/judgement.h"
#include "records/kernel_export.h"
#include "records/module_identity.h"

namespace {

using calib::Camera;
using calib::log_module;
using calib::PerCamera;

constexpr uint32_t kCacheTagWord = 0xFF3ACA01;

// ---- sources ----------------------------------------------------------------------------------------------

struct Source {
  PerCamera cache_file;
  size_t export_offset;
};

constexpr Source kAwb{.cache_file = {.main = "/data/misc/camera/awb_cal",
                                     .front = "/data/misc/camera/awb_cal_front_CAM",
                                     .sub = "/data/misc/camera/awb_cal_sub_CAM"},
                      .export_offset = calib::kExportAwb};

constexpr Source kALightAwb{.cache_file = {.main = "/data/misc/camera/awb_A_light_cal",
                                           .front = "/data/misc/camera/awb_A_light_cal_front_CAM",
                                           .sub = "/data/misc/camera/awb_A_light_cal_sub_CAM"},
                            .export_offset = calib::kExportALightAwb};

// The front camera's name has no "_CAM": that is how its writer names it. The sub camera's writers use the
// main camera's names, so its own two files exist only where another tool made them.
constexpr Source kFlash{.cache_file = {.main = "/data/misc/camera/flash_cal",
                                       .front = "/data/misc/camera/flash_cal_front",
                                       .sub = "/data/misc/camera/flash_cal_sub_CAM"},
                        .export_offset = calib::kExportFlash};

constexpr Source kDualFlash{.cache_file = {.main = "/data/misc/camera/flash_dual_cal",
                                           .front = "/data/misc/camera/flash_dual_cal_front_CAM",
                                           .sub = "/data/misc/camera/flash_dual_cal_sub_CAM"},
                            .export_offset = calib::kExportDualFlash};

// ---- lines ------------------------------------------------------------------------------------------------

constexpr PerCamera kAwbOpening{.main = "ReadFlash() for AWB of MAIN CAM\n",
                                .front = "ReadFlash() for AWB of Front CAM\n",
                                .sub = "ReadFlash() for AWB of Sub CAM\n"};

constexpr PerCamera kAwbFromCache{
    .main = "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal",
    .front = "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_front_CAM",
    .sub = "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_sub_CAM"};

constexpr PerCamera kAwbFromExport{
    .main = "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal",
    .front = "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_front",
    .sub = "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_sub"};

constexpr PerCamera kAwbNowhere{
    .main = "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
    .front = "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
    .sub = "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"};

constexpr PerCamera kFlashFallback{.main = "ReadFlashForFlashCalibration() for Flash of MAIN CAM\n",
                                   .front = "ReadFlashForFlashCalibration() for Flash of front CAM\n",
                                   .sub = "ReadFlashForFlashCalibration() for Flash of sub CAM\n"};

constexpr PerCamera kFlashNowhere{
    .main = "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
    .front = "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
    .sub = "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"};

void log_flash_from_cache(Camera camera, int32_t count) {
  LOG_BY_CAMERA(LOGI, camera, "ReadFlash() /data/misc/camera/flash_cal OK (%d)\n",
                "ReadFlash() /data/misc/camera/flash_cal_front OK (%d)\n",
                "ReadFlash() /data/misc/camera/flash_cal_sub_CAM OK (%d)\n", count);
}

void log_dual_flash_from_cache(Camera camera, int32_t count) {
  LOG_BY_CAMERA(LOGI, camera, "ReadFlash() /data/misc/camera/flash_dual_cal OK (%d)\n",
                "ReadFlash() /data/misc/camera/flash_dual_cal_front_CAM OK (%d)\n",
                "ReadFlash() /data/misc/camera/flash_dual_cal_sub_CAM OK (%d)\n", count);
}

void log_dual_camera_from_cache(Camera camera, int32_t count) {
  LOG_BY_CAMERA(LOGI, camera, "ReadFlash() /data/misc/camera/awb_dual_cal OK (%d)\n",
                "ReadFlash() /data/misc/camera/awb_dual_cal_front_CAM OK (%d)\n",
                "ReadFlash() /data/misc/camera/awb_dual_cal_sub_CAM OK (%d)\n", count);
}

void log_flash_from_export(int32_t count, int32_t length) {
  LOGI("[Flash Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)", count, length);
}

void log_dual_camera_from_export(int32_t count, int32_t length) {
  LOGI("[Dual AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)", count,
       length);
}

/// What a loader says. The lines about the export name the main camera's node whichever was read, and those
/// of the dual-camera loader name cache files that do not exist.
struct Lines {
  PerCamera opening;
  void (*from_cache)(Camera camera, int32_t count);
  PerCamera fallback;
  void (*from_export)(int32_t count, int32_t length);
  PerCamera nowhere;
};

constexpr Lines kFlashLines{.opening = kAwbOpening,
                            .from_cache = log_flash_from_cache,
                            .fallback = kFlashFallback,
                            .from_export = log_flash_from_export,
                            .nowhere = kFlashNowhere};

constexpr Lines kDualFlashLines{.opening = {.main = "ReadFlash() for Flash of MAIN CAM\n",
                                            .front = "ReadFlash() for Flash of Front CAM\n",
                                            .sub = "ReadFlash() for Flash of Sub CAM\n"},
                                .from_cache = log_dual_flash_from_cache,
                                .fallback = kFlashFallback,
                                .from_export = log_flash_from_export,
                                .nowhere = kFlashNowhere};

constexpr Lines kDualCameraLines{
    .opening = kAwbOpening,
    .from_cache = log_dual_camera_from_cache,
    .fallback = {.main = "ReadAWBCalibration() for DualCam of MAIN CAM\n",
                 .front = "ReadAWBCalibration() for DualCam of front CAM\n",
                 .sub = "ReadAWBCalibration() for DualCam of sub CAM\n"},
    .from_export = log_dual_camera_from_export,
    .nowhere = {
        .main = "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
        .front = "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
        .sub = "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"}};

// ---- the frame of all loaders but the AWB record's --------------------------------------------------------

int32_t load_from_export(const Source& source, const Lines& lines, Camera camera, void* buffer,
                         uint32_t length) {
  LOGI("%s", lines.fallback.of(camera));
  uint8_t image[calib::kExportSize] = {};
  const ssize_t count = calib::read_file(calib::kExportNode.of(camera), image, sizeof image);
  if (count < 0) return FAIL("%s", lines.nowhere.of(camera));

  calib::copy_from_export(image, source.export_offset, buffer, length);
  lines.from_export(static_cast<int32_t>(count), static_cast<int32_t>(length));
  return static_cast<int32_t>(length);
}

int32_t load(const Source& source, const Lines& lines, void* buffer, uint32_t length) {
  if (buffer == nullptr) return -1;

  const Camera camera = calib::selected_camera();
  LOGI("%s", lines.opening.of(camera));
  const ssize_t count = calib::read_file(source.cache_file.of(camera), buffer, length);
  if (count < 0) return load_from_export(source, lines, camera, buffer, length);

  lines.from_cache(camera, static_cast<int32_t>(count));
  return static_cast<int32_t>(count);
}

// ---- the AWB record ---------------------------------------------------------------------------------------

int32_t load_awb_from_export(Camera camera, void* buffer, uint32_t* word) {
  LOGI("[AWB Calibration] fail to read /data/misc/camera/awb_cal, try another file\n");
  uint8_t image[calib::kExportSize] = {};
  if (calib::read_file(calib::kExportNode.of(camera), image, sizeof image) < 0) {
    LOGI("%s", kAwbNowhere.of(camera));
    return 0;
  }
  LOGI("%s", kAwbFromExport.of(camera));
  calib::copy_from_export(image, kAwb.export_offset, buffer, sizeof(calib::AwbRecord));
  *word = calib::record_at<uint32_t>(image + calib::kExportTagWord);
  return 1;
}

}  // namespace

int32_t ReadFlash(void* buffer, uint32_t* word) {
  if (buffer == nullptr || word == nullptr) return 0;

  const Camera camera = calib::selected_camera();
  LOGI("%s", kAwbOpening.of(camera));
  if (calib::read_file(kAwb.cache_file.of(camera), buffer, sizeof(calib::AwbRecord)) < 0) {
    return load_awb_from_export(camera, buffer, word);
  }
  LOGI("%s", kAwbFromCache.of(camera));
  *word = kCacheTagWord;
  return 1;
}

int32_t ReadFlashForFlashCalibration(void* buffer, uint32_t length) {
  return load(kFlash, kFlashLines, buffer, length);
}

int32_t ReadFlashForDualFlashCali(void* buffer, uint32_t length) {
  return load(kDualFlash, kDualFlashLines, buffer, length);
}

int32_t ReadFlashForDualCam(void* buffer, uint32_t length, uint32_t a_light) {
  return load(a_light == 0 ? kAwb : kALightAwb, kDualCameraLines, buffer, length);
}
