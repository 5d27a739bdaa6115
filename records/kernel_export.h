// The kernel's 4000-byte export of one camera's calibration.
#ifndef RECORDS_KERNEL_EXPORT_H
#define RECORDS_KERNEL_EXPORT_H

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "records/camera.h"
#include "records/record_layouts.h"

namespace calib {

/// The export's node per camera.
inline constexpr PerCamera kExportNode{.main = "/sys/android_camera_awb_cal/awb_cal",
                                       .front = "/sys/android_camera_awb_cal/awb_cal_front",
                                       .sub = "/sys/android_camera_awb_cal/awb_cal_sub"};

/// Copies `length` bytes from `offset` of the image; what lies past its end is delivered as zeros.
inline void copy_from_export(const uint8_t (&image)[kExportSize], size_t offset, void* buffer,
                             size_t length) {
  const size_t available = std::min(length, kExportSize - offset);
  memcpy(buffer, image + offset, available);
  memset(static_cast<uint8_t*>(buffer) + available, 0, length - available);
}

}  // namespace calib

#endif
