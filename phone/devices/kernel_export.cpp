#include "phone/devices/kernel_export.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

namespace phone {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t slot_size = 4096;    // of a camera, in the partition's record area
constexpr size_t export_size = 4000;  // of a camera's node
constexpr size_t lens_shading_at = 64;
constexpr size_t lens_shading_size = 3584;
constexpr size_t tag_word_at = 0xF68;
constexpr std::array<uint8_t, 4> tag_word = {0x01, 0xCA, 0x3A, 0xFF};  // 0xFF3ACA01, little-endian
constexpr size_t dual_camera_page = 3;                                 // the slot after the three cameras'

struct Camera {
  const char* node;
  const char* lens_shading;
};

constexpr Camera cameras[] = {
    {.node = "awb_cal", .lens_shading = "lens_shading_main.bin"},
    {.node = "awb_cal_front", .lens_shading = "lens_shading_front.bin"},
    {.node = "awb_cal_sub", .lens_shading = "lens_shading_sub.bin"},
};

struct Move {
  size_t from_slot;
  size_t to_export;
  size_t size;
};

// The kernel orders a camera's records by its own table, not as they lie in the slot.
constexpr Move moves[] = {
    {.from_slot = 0x000, .to_export = 0x000, .size = 32},  // AWB
    {.from_slot = 0xE08, .to_export = 0xE40, .size = 32},  // flash
    {.from_slot = 0xE28, .to_export = 0xE80, .size = 36},  // AEC
    {.from_slot = 0xEC0, .to_export = 0xEC8, .size = 32},  // AWB under A-light
    {.from_slot = 0xE6C, .to_export = 0xF08, .size = 48},  // dual flash
    {.from_slot = 0xEA0, .to_export = 0xF70, .size = 48},  // gyro
};

void write_file(const std::filesystem::path& file, const Bytes& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

/// `size` bytes from `offset`; zeros where the partition has ended.
Bytes page_of(const Bytes& partition, size_t offset, size_t size) {
  Bytes page(size, 0);
  if (offset < partition.size())
    std::copy_n(partition.begin() + static_cast<ptrdiff_t>(offset), std::min(size, partition.size() - offset),
                page.begin());
  return page;
}

Bytes camera_export(const Bytes& slot, const Bytes& lens_shading) {
  Bytes image(export_size, 0);
  for (const Move& move : moves)
    std::copy_n(slot.begin() + static_cast<ptrdiff_t>(move.from_slot), move.size,
                image.begin() + static_cast<ptrdiff_t>(move.to_export));
  std::copy_n(lens_shading.begin(), std::min(lens_shading.size(), lens_shading_size),
              image.begin() + lens_shading_at);
  std::copy(tag_word.begin(), tag_word.end(), image.begin() + tag_word_at);
  return image;
}

}  // namespace

Bytes read_file(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) return {};
  Bytes bytes(static_cast<size_t>(in.tellg()));
  in.seekg(0);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

void export_calibration(const std::filesystem::path& dir, const Bytes& partition,
                        const std::string& page_size) {
  const std::filesystem::path nodes = dir / "sys/android_camera_awb_cal";
  const std::filesystem::path factory = dir / "factory";
  std::filesystem::create_directories(nodes);
  const size_t base = page_size == "4096" ? 0x20000 : 0x10000;
  size_t slot_at = base;
  for (const Camera& camera : cameras) {
    const Bytes slot = page_of(partition, slot_at, slot_size);
    write_file(nodes / camera.node, camera_export(slot, read_file(factory / camera.lens_shading)));
    slot_at += slot_size;
  }
  write_file(nodes / "awb_cal_3D", page_of(partition, base + dual_camera_page * slot_size, slot_size));
  std::filesystem::remove(nodes / "awb_cal_InHouse3D");
  if (std::filesystem::exists(factory / "inhouse_3d.bin"))
    write_file(nodes / "awb_cal_InHouse3D", read_file(factory / "inhouse_3d.bin"));
}

}  // namespace phone
