// The calibration export that the phone's kernel builds at boot.
#ifndef PHONE_DEVICES_KERNEL_EXPORT_H
#define PHONE_DEVICES_KERNEL_EXPORT_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace phone {

/// At most `most` of a file's bytes, from `offset` on, in one read; empty for one that does not open.
std::vector<uint8_t> read_file(const std::filesystem::path& file, uint64_t offset = 0,
                               uint64_t most = UINT64_MAX);

/// The part of the partition that the kernel reads.
struct AreaPlace {
  uint64_t offset;
  uint64_t size;
};
AreaPlace record_area(const std::string& page_size);

/// Writes the nodes under <dir>/sys/android_camera_awb_cal from the bytes at record_area(), zeros behind their end.
void export_calibration(const std::filesystem::path& dir, std::vector<uint8_t> area);

}  // namespace phone

#endif
