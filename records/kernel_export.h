// The kernel's 4000-byte export of one camera's calibration.
#ifndef RECORDS_KERNEL_EXPORT_H
#define RECORDS_KERNEL_EXPORT_H

#include <cstddef>
#include <cstdint>

#include "records/camera.h"
#include "records/record_layouts.h"

namespace calib {

/// The export's node per camera.
inline constexpr PerCamera kExportNode{.main = "/sys/android_camera_awb_cal/awb_cal",
                                       .front = "/sys/android_camera_awb_cal/awb_cal_front",
                                       .sub = "/sys/android_camera_awb_cal/awb_cal_sub"};

/// An export, or a cache file that is laid out like one. What the file does not hold is zeros.
class ExportImage {
 public:
  /// Reads the file at `path`; false when it does not open.
  bool read(const char* path);

  /// Bytes that the file delivered.
  size_t count() const { return count_; }
  bool holds(size_t offset, size_t length) const { return offset + length <= count_; }
  /// Copies `length` bytes from `offset`, zeros where that is past the image's end.
  void copy(size_t offset, void* buffer, size_t length) const;

 private:
  uint8_t bytes_[kExportSize] = {};
  size_t count_ = 0;
};

}  // namespace calib

#endif
