#include "run/writer_phone.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "awb_calibration/records.h"
#include "inspect/files.h"
#include "phone/temporary_folder.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kEmmcDevice = "dev/block/mmcblk0p6";

void put(const fs::path& path, const Bytes& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be written", path.string()));
}

/// The chip's state and its place in the kernel's table, which the writer's phone needs as well.
constexpr const char* kNandFiles[] = {"nand", "proc/mtd"};

void copy_nand(const Phone& phone, const fs::path& to) {
  fs::remove_all(to / "dev/mtd");
  for (const PhoneFile& file : phone.files) {
    if (std::ranges::find(kNandFiles, file.path) != std::end(kNandFiles))
      put(to / file.path, file.content.bytes);
  }
}

}  // namespace

WriterPhone::WriterPhone(const Phone& phone)
    : file_(phone.partition()->path),
      is_nand_(phone.partition()->block_size != 0),
      base_(phone.area->base),
      folder_(phone::temporary_parent(), "phone") {
  const fs::path dir = folder_.path() / "phone";
  const Bytes& bytes = phone.partition()->content.bytes;
  phone::Options options{.partition_size = bytes.size(), .page_size = phone.area->page_size};
  if (is_nand_) options.storage = phone::Storage::nand;
  phone::VirtualPhone::create(dir, options);
  device_ = is_nand_ ? file_ : kEmmcDevice;
  if (is_nand_) copy_nand(phone, dir);
  put(dir / device_, bytes);
  phone_.emplace(phone::VirtualPhone::attach(dir));
}

void WriterPhone::write(uint32_t offset_in_area, const Bytes& bytes) {
  const auto size = static_cast<uint32_t>(bytes.size());
  Bytes expected = phone_->partition();
  if (base_ + offset_in_area + size > expected.size())
    throw std::runtime_error("the partition ends before the record");
  std::ranges::copy(bytes, expected.begin() + static_cast<std::ptrdiff_t>(base_ + offset_in_area));
  Bytes back(bytes.size());
  const bool is_written = WriteFlashOffset(bytes.data(), size, offset_in_area) == 0 &&
                          ReadEmmcOffset(back.data(), size, offset_in_area) == 0;
  phone_->take_log();
  if (!is_written || back != bytes) throw std::runtime_error("the library could not write the record");
  if (phone_->partition() != expected) throw std::runtime_error("the library wrote more than the record");
}

OutputFile WriterPhone::file() const {
  return {.path = file_, .bytes = read_file(phone_->dir() / device_).bytes};
}

}  // namespace awbcal
