// The files of every kind of record, by camera: the cache file that is read, the cache file that is written,
// and the place in the kernel's export. The one table of them, for readers and writers alike.
//
// Most kinds have a file of their own per camera, "_front_CAM" and "_sub_CAM" added for the front and the sub
// camera. What differs is in the names of the phones' files, and stays:
//
//   flash        the front camera's file has no "_CAM"
//   flash, dual flash, gyro
//                the sub camera's writers replace the main camera's file. The sub camera's readers of flash and
//                dual flash open a file of its own all the same, which exists only where another tool made it;
//                its gyro reader opens the main camera's, and the main camera's export
#ifndef RECORDS_RECORD_FILES_H
#define RECORDS_RECORD_FILES_H

#include <cstddef>

#include "records/camera.h"
#include "records/kernel_export.h"
#include "records/record_layouts.h"

namespace calib {

struct RecordFiles {
  PerCamera read;
  PerCamera written;
  bool cache_is_image = false;  ///< the cache file holds a whole export's image, not the record alone
  PerCamera node = kExportNode;
  size_t export_offset;
};

/// Every camera's writers write what its readers read.
constexpr RecordFiles read_as_written(const PerCamera& files, size_t export_offset) {
  return {.read = files, .written = files, .export_offset = export_offset};
}

/// The sub camera's writers replace the main camera's file.
constexpr RecordFiles sub_written_as_main(const PerCamera& files, size_t export_offset) {
  const PerCamera written{.main = files.main, .front = files.front, .sub = files.main};
  return {.read = files, .written = written, .export_offset = export_offset};
}

inline constexpr RecordFiles kAwbFiles = read_as_written({.main = "/data/misc/camera/awb_cal",
                                                          .front = "/data/misc/camera/awb_cal_front_CAM",
                                                          .sub = "/data/misc/camera/awb_cal_sub_CAM"},
                                                         kExportAwb);

inline constexpr RecordFiles kALightAwbFiles =
    read_as_written({.main = "/data/misc/camera/awb_A_light_cal",
                     .front = "/data/misc/camera/awb_A_light_cal_front_CAM",
                     .sub = "/data/misc/camera/awb_A_light_cal_sub_CAM"},
                    kExportALightAwb);

inline constexpr RecordFiles kAecFiles = read_as_written({.main = "/data/misc/camera/aec_cal",
                                                          .front = "/data/misc/camera/aec_cal_front_CAM",
                                                          .sub = "/data/misc/camera/aec_cal_sub_CAM"},
                                                         kExportAec);

inline constexpr RecordFiles kFlashFiles = sub_written_as_main({.main = "/data/misc/camera/flash_cal",
                                                                .front = "/data/misc/camera/flash_cal_front",
                                                                .sub = "/data/misc/camera/flash_cal_sub_CAM"},
                                                               kExportFlash);

inline constexpr RecordFiles kDualFlashFiles =
    sub_written_as_main({.main = "/data/misc/camera/flash_dual_cal",
                         .front = "/data/misc/camera/flash_dual_cal_front_CAM",
                         .sub = "/data/misc/camera/flash_dual_cal_sub_CAM"},
                        kExportDualFlash);

inline constexpr RecordFiles kGyroFiles{.read = {.main = "/data/misc/camera/gyro_cal_qor_CAM",
                                                 .front = "/data/misc/camera/gyro_cal_front_qor_CAM",
                                                 .sub = "/data/misc/camera/gyro_cal_qor_CAM"},
                                        .written = {.main = "/data/misc/camera/gyro_cal_qor_CAM",
                                                    .front = "/data/misc/camera/gyro_cal_front_qor_CAM",
                                                    .sub = "/data/misc/camera/gyro_cal_qor_CAM"},
                                        .node = {.main = "/sys/android_camera_awb_cal/awb_cal",
                                                 .front = "/sys/android_camera_awb_cal/awb_cal_front",
                                                 .sub = "/sys/android_camera_awb_cal/awb_cal"},
                                        .export_offset = kExportGyro};

/// Written by the factory tool itself.
inline constexpr RecordFiles kLensShadingFiles{.read = {.main = "/data/misc/camera/lsc_cal",
                                                        .front = "/data/misc/camera/lsc_cal_front_CAM",
                                                        .sub = "/data/misc/camera/lsc_cal_sub_CAM"},
                                               .written = {.main = nullptr, .front = nullptr, .sub = nullptr},
                                               .cache_is_image = true,
                                               .export_offset = kExportLensShading};

}  // namespace calib

#endif
