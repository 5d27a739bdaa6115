#include "phone/devices/kernel_export.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <stdexcept>

#include "records/record_layouts.h"

namespace phone {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint8_t, 4> kTagWord = {0x01, 0xCA, 0x3A, 0xFF};  // 0xFF3ACA01, little-endian
constexpr size_t kDualCameraSlot = 3;                                  // after the three cameras'

struct Camera {
  const char* node;
  const char* lens_shading;
};

constexpr Camera kCameras[] = {
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
constexpr Move kMoves[] = {
    {.from_slot = calib::kSlotAwb, .to_export = calib::kExportAwb, .size = sizeof(calib::AwbRecord)},
    {.from_slot = calib::kSlotFlash, .to_export = calib::kExportFlash, .size = sizeof(calib::FlashRecord)},
    {.from_slot = calib::kSlotAec, .to_export = calib::kExportAec, .size = sizeof(calib::AecRecord)},
    {.from_slot = calib::kSlotALightAwb,
     .to_export = calib::kExportALightAwb,
     .size = sizeof(calib::AwbRecord)},
    {.from_slot = calib::kSlotDualFlash,
     .to_export = calib::kExportDualFlash,
     .size = sizeof(calib::DualFlashRecord)},
    {.from_slot = calib::kSlotGyro, .to_export = calib::kExportGyro, .size = sizeof(calib::GyroRecord)},
};

void write_file(const std::filesystem::path& file, const Bytes& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

Bytes slot_of(const Bytes& area, size_t index) {
  const auto first = area.begin() + static_cast<ptrdiff_t>(index * calib::kSlotSize);
  return Bytes(first, first + static_cast<ptrdiff_t>(calib::kSlotSize));
}

Bytes camera_export(const Bytes& slot, const Bytes& lens_shading) {
  Bytes image(calib::kExportSize, 0);
  for (const Move& move : kMoves) {
    std::copy_n(slot.begin() + static_cast<ptrdiff_t>(move.from_slot), move.size,
                image.begin() + static_cast<ptrdiff_t>(move.to_export));
  }
  std::copy_n(lens_shading.begin(), std::min(lens_shading.size(), sizeof(calib::LensShadingRecord)),
              image.begin() + calib::kExportLensShading);
  std::copy(kTagWord.begin(), kTagWord.end(), image.begin() + calib::kExportTagWord);
  return image;
}

}  // namespace

Bytes read_file(const std::filesystem::path& file, uint64_t offset, uint64_t most) {
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) return {};
  const auto size = static_cast<uint64_t>(in.tellg());
  offset = std::min(offset, size);
  Bytes bytes(std::min(most, size - offset));
  in.seekg(static_cast<std::streamoff>(offset));
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

AreaPlace record_area(const std::string& page_size) {
  return {.offset = page_size == "4096" ? calib::kAreaBase4k : calib::kAreaBase2k,
          .size = (kDualCameraSlot + 1) * calib::kSlotSize};
}

void export_calibration(const std::filesystem::path& dir, Bytes area) {
  const std::filesystem::path nodes = dir / "sys/android_camera_awb_cal";
  const std::filesystem::path factory = dir / "factory";
  std::filesystem::create_directories(nodes);
  area.resize((kDualCameraSlot + 1) * calib::kSlotSize);
  for (size_t i = 0; i < std::size(kCameras); ++i) {
    const Bytes lens_shading = read_file(factory / kCameras[i].lens_shading);
    write_file(nodes / kCameras[i].node, camera_export(slot_of(area, i), lens_shading));
  }
  write_file(nodes / "awb_cal_3D", slot_of(area, kDualCameraSlot));
  std::filesystem::remove(nodes / "awb_cal_InHouse3D");
  if (std::filesystem::exists(factory / "inhouse_3d.bin")) {
    write_file(nodes / "awb_cal_InHouse3D", read_file(factory / "inhouse_3d.bin"));
  }
}

}  // namespace phone
