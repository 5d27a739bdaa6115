#include "run/phone_copy.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "records/kernel_export.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kDualCameraNode = "/sys/android_camera_awb_cal/awb_cal_3D";

Bytes padded(const Bytes& bytes, size_t offset, size_t size) {
  Bytes image(size);
  std::copy_n(bytes.begin(), std::min(bytes.size(), size - offset),
              image.begin() + static_cast<std::ptrdiff_t>(offset));
  return image;
}

/// A single record goes where its reader looks: into its cache file, else into the kernel's export.
void put_record(const PhoneFile& file, ScratchPhone& copy) {
  const RecordSpec& spec = record_spec(file.kind.value());
  const calib::Camera camera = file.camera.value_or(calib::Camera::main);
  const Bytes& bytes = file.content.bytes;
  if (const std::string cache(spec.cache_file(camera)); !cache.empty()) {
    copy.put("/data/misc/camera/" + cache, bytes);
  } else if (spec.export_offset()) {
    copy.put(calib::kExportNode.of(camera), padded(bytes, *spec.export_offset(), calib::kExportSize));
  } else if (spec.offset) {
    copy.put(kDualCameraNode,
             padded(bytes, *spec.offset - calib::kAreaDualCameraFirstForm, calib::kSlotSize));
  }
}

phone::Options options_for(const Phone& phone, const Bytes& partition) {
  phone::Options options;
  options.partition_size = std::max<uint64_t>(options.partition_size, partition.size());
  if (phone.area) options.page_size = phone.area->page_size;
  return options;
}

/// The new phone's partition is a file without content that reads as zeros, and remains one where it may.
void copy_partition(const Bytes& partition, ScratchPhone& copy) {
  constexpr size_t kPart = 16 * 1024;
  for (size_t at = 0; at < partition.size(); at += kPart) {
    const auto part = std::span(partition).subspan(at, std::min(kPart, partition.size() - at));
    const bool is_zero = part[0] == 0 && std::memcmp(&part[0], &part[0] + 1, part.size() - 1) == 0;
    if (!is_zero) copy.phone().write_partition(at, part.data(), part.size());
  }
}

void copy_file(const PhoneFile& file, ScratchPhone& copy) {
  if (file.content.trouble) return;
  const Bytes& bytes = file.content.bytes;
  if (file.layout == Layout::dual_camera_node) {
    copy.put(kDualCameraNode, bytes);
  } else if (file.source == Source::cache) {
    copy.put("/data/misc/camera/" + fs::path(file.path).filename().string(), bytes);
  } else if (file.kind && file.source != Source::factory) {
    put_record(file, copy);
  } else if (file.layout == Layout::export_image) {
    copy.put(calib::kExportNode.of(file.camera.value_or(calib::Camera::main)), bytes);
  }
}

}  // namespace

Modules assumed_modules(const Phone& phone, const Modules& known) {
  Modules assumed;
  for (const FoundRecord& record : phone.records) {
    const calib::Camera camera = record.camera.value_or(calib::Camera::main);
    if (known.contains(camera) || record.is_truncated() || is_blank_record(phone, record)) continue;
    const Claims claims = claims_of(*record.spec, record.bytes);
    if (claims.has_fuse_id && claims.has_good_crc()) assumed.try_emplace(camera, claims.words.fuse);
  }
  return assumed;
}

PhoneCopy::PhoneCopy(const Phone& phone, const Modules& modules, bool reboots)
    : PhoneCopy(phone, modules, reboots, partition_bytes(phone)) {}

PhoneCopy::PhoneCopy(const Phone& phone, const Modules& modules, bool reboots, const Bytes& partition)
    : copy_(options_for(phone, partition)) {
  for (const auto& entry : fs::directory_iterator(copy_.phone().host_path("/sys/android_camera_awb_cal"))) {
    fs::remove(entry.path());
  }
  if (phone.properties) copy_.phone().set_properties(*phone.properties);
  for (const auto& [camera, module] : modules) copy_.fit(camera, module);
  copy_partition(partition, copy_);
  for (const PhoneFile& file : phone.files) copy_file(file, copy_);
  if (reboots || phone.kind == Layout::partition) copy_.phone().reboot();
}

}  // namespace awbcal
