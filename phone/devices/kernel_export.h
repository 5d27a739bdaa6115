// The calibration export that the phone's kernel builds at boot.
#ifndef PHONE_DEVICES_KERNEL_EXPORT_H
#define PHONE_DEVICES_KERNEL_EXPORT_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace phone {

/// A file's bytes in one read; empty for one that does not open.
std::vector<uint8_t> read_file(const std::filesystem::path& file);

/// Writes the nodes under <dir>/sys/android_camera_awb_cal from the partition's bytes.
void export_calibration(const std::filesystem::path& dir, const std::vector<uint8_t>& partition,
                        const std::string& page_size);

}  // namespace phone

#endif
