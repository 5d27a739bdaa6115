// Loads a record of the selected camera: from its cache file, else from the kernel's export.

#include "records/loaders.h"

#include "awb_calibration/records.h"
#include "records/calibration_log.h"
#include "records/module_identity.h"

namespace {

using calib::Camera;
using calib::log_module;
using calib::RecordReading;

/// A record and what is said while it is loaded. Some lines name the main camera's export whichever was read,
/// and those of the dual-camera loader name cache files that do not exist.
struct Loader {
  const calib::RecordFiles& files;
  void (*opening)(Camera camera);
  void (*from_cache)(Camera camera, int32_t count);
  void (*no_cache)(Camera camera);
  void (*from_export)(Camera camera, int32_t count, int32_t length);
  void (*nowhere)(Camera camera);
};

// ---- lines that loaders share -----------------------------------------------------------------------------

constexpr auto kAwbOpening =
    LINE_BY_CAMERA(LOGI, "ReadFlash() for AWB of MAIN CAM\n", "ReadFlash() for AWB of Front CAM\n",
                   "ReadFlash() for AWB of Sub CAM\n");

constexpr auto kNoFlashCache = LINE_BY_CAMERA(LOGI, "ReadFlashForFlashCalibration() for Flash of MAIN CAM\n",
                                              "ReadFlashForFlashCalibration() for Flash of front CAM\n",
                                              "ReadFlashForFlashCalibration() for Flash of sub CAM\n");

constexpr auto kFlashFromExport = [](Camera, int32_t count, int32_t length) {
  LOGI("[Flash Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)", count, length);
};

constexpr auto kFlashNowhere =
    LINE_BY_CAMERA(LOGE, "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
                   "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
                   "[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub");

constexpr auto kDualCameraFromCache =
    LINE_BY_CAMERA(LOGI, "ReadFlash() /data/misc/camera/awb_dual_cal OK (%d)\n",
                   "ReadFlash() /data/misc/camera/awb_dual_cal_front_CAM OK (%d)\n",
                   "ReadFlash() /data/misc/camera/awb_dual_cal_sub_CAM OK (%d)\n");

constexpr auto kNoDualCameraCache = LINE_BY_CAMERA(LOGI, "ReadAWBCalibration() for DualCam of MAIN CAM\n",
                                                   "ReadAWBCalibration() for DualCam of front CAM\n",
                                                   "ReadAWBCalibration() for DualCam of sub CAM\n");

constexpr auto kDualCameraFromExport = [](Camera, int32_t count, int32_t length) {
  LOGI("[Dual AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)", count,
       length);
};

constexpr auto kDualCameraNowhere =
    LINE_BY_CAMERA(LOGE, "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
                   "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
                   "[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub");

// ---- the table --------------------------------------------------------------------------------------------

constexpr Loader kAwb{
    .files = calib::kAwbFiles,
    .opening = kAwbOpening,
    .from_cache =
        [](Camera camera, int32_t) {
          LOG_BY_CAMERA(LOGI, camera, "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal",
                        "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_front_CAM",
                        "[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_sub_CAM");
        },
    .no_cache =
        [](Camera) { LOGI("[AWB Calibration] fail to read /data/misc/camera/awb_cal, try another file\n"); },
    .from_export =
        [](Camera camera, int32_t, int32_t) {
          LOG_BY_CAMERA(LOGI, camera,
                        "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal",
                        "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_front",
                        "[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_sub");
        },
    .nowhere =
        LINE_BY_CAMERA(LOGI, "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal",
                       "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
                       "[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub")};

constexpr Loader kFlash{
    .files = calib::kFlashFiles,
    .opening = kAwbOpening,
    .from_cache = LINE_BY_CAMERA(LOGI, "ReadFlash() /data/misc/camera/flash_cal OK (%d)\n",
                                 "ReadFlash() /data/misc/camera/flash_cal_front OK (%d)\n",
                                 "ReadFlash() /data/misc/camera/flash_cal_sub_CAM OK (%d)\n"),
    .no_cache = kNoFlashCache,
    .from_export = kFlashFromExport,
    .nowhere = kFlashNowhere};

constexpr Loader kDualFlash{
    .files = calib::kDualFlashFiles,
    .opening = LINE_BY_CAMERA(LOGI, "ReadFlash() for Flash of MAIN CAM\n",
                              "ReadFlash() for Flash of Front CAM\n", "ReadFlash() for Flash of Sub CAM\n"),
    .from_cache = LINE_BY_CAMERA(LOGI, "ReadFlash() /data/misc/camera/flash_dual_cal OK (%d)\n",
                                 "ReadFlash() /data/misc/camera/flash_dual_cal_front_CAM OK (%d)\n",
                                 "ReadFlash() /data/misc/camera/flash_dual_cal_sub_CAM OK (%d)\n"),
    .no_cache = kNoFlashCache,
    .from_export = kFlashFromExport,
    .nowhere = kFlashNowhere};

/// Both lights' records: their lines do not tell which it is.
constexpr Loader for_dual_camera(const calib::RecordFiles& files) {
  return {.files = files,
          .opening = kAwbOpening,
          .from_cache = kDualCameraFromCache,
          .no_cache = kNoDualCameraCache,
          .from_export = kDualCameraFromExport,
          .nowhere = kDualCameraNowhere};
}
constexpr Loader kDualCameraD50 = for_dual_camera(calib::kAwbFiles);
constexpr Loader kDualCameraALight = for_dual_camera(calib::kALightAwbFiles);

constexpr const char* kAecName = "aec_read_calibration";

constexpr Loader kAec{
    .files = calib::kAecFiles,
    .opening =
        [](Camera camera) {
          LOG_BY_CAMERA(LOGI, camera, "%s: Read file for AEC of MAIN CAM\n",
                        "%s: Read file for AEC of Front CAM\n", "%s: Read file for AEC of Sub CAM\n",
                        kAecName);
        },
    .from_cache = LINE_BY_CAMERA(LOGI, "Read /data/misc/camera/aec_cal OK (%d)\n",
                                 "Read /data/misc/camera/aec_cal_front_CAM OK (%d)\n",
                                 "Read /data/misc/camera/aec_cal_sub_CAM OK (%d)\n"),
    .no_cache =
        [](Camera camera) {
          LOG_BY_CAMERA(LOGI, camera, "%s: Read flash for AEC of MAIN CAM\n",
                        "%s: Read flash for AEC of front CAM\n", "%s: Read flash for AEC of sub CAM\n",
                        kAecName);
        },
    .from_export =
        [](Camera, int32_t count, int32_t length) {
          LOGI("[AWB Calibration]%s: read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)",
               kAecName, count, length);
        },
    .nowhere =
        [](Camera camera) {
          LOG_BY_CAMERA(
              LOGE, camera, "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal",
              "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_front",
              "[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub",
              kAecName);
        }};

// ---- the frame --------------------------------------------------------------------------------------------

RecordReading load(const Loader& loader, void* buffer, uint32_t length) {
  const Camera camera = calib::selected_camera();
  loader.opening(camera);
  const RecordReading reading = calib::read_record(loader.files, camera, buffer, length);
  const calib::KeepErrno keep;
  const auto count = static_cast<int32_t>(reading.count);
  switch (reading.from) {
    case RecordReading::From::cache_file:
      loader.from_cache(camera, count);
      break;
    case RecordReading::From::kernel_export:
      loader.no_cache(camera);
      loader.from_export(camera, count, static_cast<int32_t>(length));
      break;
    case RecordReading::From::nowhere:
      loader.no_cache(camera);
      loader.nowhere(camera);
      break;
  }
  return reading;
}

/// What the exported loaders return: the bytes of a cache file, however few, but all that was asked for of an
/// export.
int32_t result_of(const RecordReading& reading, uint32_t length) {
  switch (reading.from) {
    case RecordReading::From::cache_file:
      return static_cast<int32_t>(reading.count);
    case RecordReading::From::kernel_export:
      return static_cast<int32_t>(length);
    case RecordReading::From::nowhere:
      break;
  }
  return -1;
}

}  // namespace

namespace calib {

RecordReading load_awb(void* buffer) {
  return load(kAwb, buffer, sizeof(AwbRecord));
}

RecordReading load_flash(void* buffer, uint32_t length) {
  return load(kFlash, buffer, length);
}

RecordReading load_dual_flash(void* buffer, uint32_t length) {
  return load(kDualFlash, buffer, length);
}

RecordReading load_for_dual_camera(void* buffer, uint32_t length, bool a_light) {
  return load(a_light ? kDualCameraALight : kDualCameraD50, buffer, length);
}

RecordReading load_aec(void* buffer, uint32_t length) {
  return load(kAec, buffer, length);
}

}  // namespace calib

int32_t ReadFlash(void* buffer, uint32_t* word) {
  if (buffer == nullptr || word == nullptr) return 0;
  const RecordReading reading = calib::load_awb(buffer);
  if (reading.from == RecordReading::From::nowhere) return 0;
  *word = reading.tag_word;
  return 1;
}

int32_t ReadFlashForFlashCalibration(void* buffer, uint32_t length) {
  return buffer == nullptr ? -1 : result_of(calib::load_flash(buffer, length), length);
}

int32_t ReadFlashForDualFlashCali(void* buffer, uint32_t length) {
  return buffer == nullptr ? -1 : result_of(calib::load_dual_flash(buffer, length), length);
}

int32_t ReadFlashForDualCam(void* buffer, uint32_t length, uint32_t a_light) {
  return buffer == nullptr ? -1
                           : result_of(calib::load_for_dual_camera(buffer, length, a_light != 0), length);
}

int32_t aec_read_calibration(uint8_t* buffer, uint32_t length) {
  return buffer == nullptr ? -1 : result_of(calib::load_aec(buffer, length), length);
}
