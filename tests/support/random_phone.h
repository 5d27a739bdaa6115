// A phone of a seed, for tests of the tool that hold two answers against each other.
#ifndef TESTS_SUPPORT_RANDOM_PHONE_H
#define TESTS_SUPPORT_RANDOM_PHONE_H

#include <random>

#include "inspect/phone.h"
#include "run/sensor_model.h"
#include "tests/support/tool_support.h"

namespace tool {

using awbcal::RecordKind;
using calib::Camera;

inline constexpr calib::FuseWords kFitted = {kModule[0], kModule[1], kModule[2], kModule[3]};
inline constexpr calib::FuseWords kOther = {11, 12, 13, 14};

/// A phone whose records are there or missing, good, damaged, of another module or another kind, in every source.
class RandomPhone {
 public:
  RandomPhone(const fs::path& dir, unsigned seed) : dir_(dir), random_(seed) {
    std::string properties = "ro.pagesize=4096\n";
    for (const Camera camera : awbcal::kCameras) {
      for (size_t i = 0; i < kFitted.size(); ++i) {
        properties += "qor.camera.sensor." + std::string(awbcal::camera_name(camera)) + "_fuse" +
                      std::to_string(i + 1) + "=" + std::to_string(kFitted[i]) + "\n";
      }
    }
    support::write_bytes(dir_ / "properties", Bytes(properties.begin(), properties.end()));
    for (const Camera camera : awbcal::kCameras) add_camera(camera);
    support::write_bytes(dir_ / "mfg.img", partition_);
  }

 private:
  bool chance(unsigned percent) { return random_() % 100 < percent; }

  void add_camera(Camera camera) {
    Bytes node(calib::kExportSize);
    Bytes slot(calib::kSlotSize);
    for (const awbcal::RecordSpec& spec : awbcal::record_specs()) {
      if (!spec.is_per_camera || !spec.export_offset()) continue;
      if (chance(60)) put(node, *spec.export_offset(), record(spec.kind, spec.size));
      if (spec.offset && chance(60)) put(slot, *spec.offset, record(spec.kind, spec.size));
      if (chance(50)) add_cache(spec, camera);
    }
    if (chance(80)) support::write_bytes(dir_ / std::string(calib::kExportNode.of(camera)).substr(1), node);
    put(partition_, 0x20000 + calib::kSlotSize * static_cast<size_t>(camera), slot);
  }

  void add_cache(const awbcal::RecordSpec& spec, Camera camera) {
    Bytes bytes = record(spec.kind, spec.size);
    if (spec.cache_is_export()) {
      Bytes image(calib::kExportSize);
      put(image, *spec.export_offset(), bytes);
      bytes = image;
    }
    if (chance(10)) bytes.resize(random_() % bytes.size());
    support::write_bytes(dir_ / "data/misc/camera" / std::string(spec.cache_file(camera)), bytes);
  }

  /// Of `size` bytes, though it may be of another kind.
  Bytes record(RecordKind kind, size_t size) {
    const calib::FuseWords fuse = chance(15) ? kOther : chance(15) ? calib::FuseWords{} : kFitted;
    Bytes bytes = good_record(chance(5) ? RecordKind::aec : kind, fuse);
    bytes.resize(size);
    if (chance(12)) bytes[random_() % bytes.size()] ^= static_cast<uint8_t>(1U << random_() % 8);
    if (chance(5)) bytes.assign(size, chance(50) ? 0x00 : 0xFF);
    return bytes;
  }

  Bytes good_record(RecordKind kind, const calib::FuseWords& fuse) {
    const uint32_t words[4] = {static_cast<uint32_t>(fuse[0]), static_cast<uint32_t>(fuse[1]),
                               static_cast<uint32_t>(fuse[2]), static_cast<uint32_t>(fuse[3])};
    constexpr uint32_t kValidWords[] = {3099, 3099, 3099, 2099, 1099, 99, 3000, 4099};
    const uint32_t valid = kValidWords[random_() % std::size(kValidWords)];
    if (kind == RecordKind::lens_shading) return awbcal::make_lens_shading_record(fuse, 1.5);
    if (kind == RecordKind::gyro) return gyro(words);
    if (kind == RecordKind::aec) return aec(words);
    if (kind == RecordKind::dual_flash) return dual_flash(words);
    const auto ratio = [this] { return static_cast<uint32_t>(300 + random_() % 600); };
    return awb(valid, ratio(), ratio(), words);
  }

  fs::path dir_;
  std::mt19937 random_;
  Bytes partition_ = Bytes(0x30000);
};

}  // namespace tool

#endif
