#include "phone/virtual_phone.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "phone/calls/descriptors.h"
#include "phone/calls/faults.h"
#include "phone/calls/redirect.h"
#include "phone/devices/kernel_export.h"
#include "phone/devices/mtd_device.h"
#include "phone/devices/nand_state.h"
#include "phone/services/log.h"
#include "phone/services/properties.h"

namespace phone {
namespace fs = std::filesystem;
namespace {

constexpr const char* kEmmcImage = "dev/block/mmcblk0p6";

std::unique_ptr<Nand>& attached_nand() {
  static auto* const nand = new std::unique_ptr<Nand>;
  return *nand;
}

bool attached = false;

void write_text(const fs::path& file, std::string_view text) {
  fs::create_directories(file.parent_path());
  std::ofstream out(file);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

void create_emmc(const fs::path& dir, const Options& options) {
  char size[16];
  std::snprintf(size, sizeof size, "%08llx", static_cast<unsigned long long>(options.partition_size));
  write_text(dir / "proc/emmc",
             "dev:        size     erasesize name\n"
             "mmcblk0p4: 00040000 00000200 \"misc\"\n"
             "mmcblk0p5: 01000000 00000200 \"boot\"\n"
             "mmcblk0p6: " +
                 std::string(size) +
                 " 00000200 \"mfg\"\n"
                 "mmcblk0p7: 40000000 00000200 \"system\"\n");
  const fs::path by_name = dir / "dev/block/platform/msm_sdcc.1/by-name";
  fs::create_directories(by_name);
  constexpr std::array<std::pair<const char*, const char*>, 3> links = {
      {{"boot", "mmcblk0p5"}, {"mfg", "mmcblk0p6"}, {"system", "mmcblk0p7"}}};
  for (const auto& [name, device] : links) {
    fs::create_symlink(std::string("/dev/block/") + device, by_name / name);
  }
  write_text(dir / kEmmcImage, "");
  if (options.fill == 0) {
    fs::resize_file(dir / kEmmcImage, options.partition_size);
    return;
  }
  std::ofstream image(dir / kEmmcImage, std::ios::binary);
  const std::string row(4096, static_cast<char>(options.fill));
  for (uint64_t left = options.partition_size; left > 0; left -= std::min<uint64_t>(left, row.size())) {
    image.write(row.data(), static_cast<std::streamsize>(std::min<uint64_t>(left, row.size())));
  }
  if (!image.flush()) throw std::runtime_error("cannot write the image of the partition");
}

/// The blocks that the kernel's reader takes, in order: neither marked bad nor all zero.
std::vector<uint32_t> readable_blocks(const Nand& nand) {
  std::vector<uint32_t> blocks;
  for (uint32_t block = 0; block < nand.geometry().blocks; ++block) {
    const std::vector<uint8_t> bytes = nand.block_bytes(block);
    const bool zero = std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
    if (!zero && !nand.is_bad(block)) blocks.push_back(block);
  }
  return blocks;
}

void write_nand(Nand& nand, uint64_t offset, const uint8_t* data, size_t size) {
  const uint64_t erase_size = nand.geometry().erase_size;
  const std::vector<uint32_t> blocks = readable_blocks(nand);
  if (offset + size > blocks.size() * erase_size) throw std::out_of_range("the partition is shorter");
  while (size > 0) {
    const uint32_t block = blocks[offset / erase_size];
    const size_t at = offset % erase_size;
    const size_t part = std::min<size_t>(size, erase_size - at);
    std::vector<uint8_t> bytes = nand.block_bytes(block);
    std::copy_n(data, part, bytes.begin() + static_cast<ptrdiff_t>(at));
    nand.set_block_bytes(block, bytes);
    offset += part;
    data += part;
    size -= part;
  }
}

void write_image(const fs::path& file, uint64_t offset, const void* data, size_t size) {
  if (offset + size > fs::file_size(file)) throw std::out_of_range("the partition is shorter");
  std::fstream image(file, std::ios::in | std::ios::out | std::ios::binary);
  image.seekp(static_cast<std::streamoff>(offset));
  image.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (!image.flush()) throw std::runtime_error("cannot write " + file.string());
}

}  // namespace

VirtualPhone VirtualPhone::create(const fs::path& dir, const Options& options) {
  const fs::path folder = fs::absolute(dir);
  if (fs::exists(folder / "properties")) {
    throw std::runtime_error("there is already a phone in " + folder.string());
  }
  for (const char* name : {"data/misc/camera", "sys/android_camera_awb_cal", "dev/block", "factory"}) {
    fs::create_directories(folder / name);
  }
  write_text(folder / "faults", kFaultFileHelp);
  if (options.storage == Storage::emmc) {
    create_emmc(folder, options);
  } else {
    create_nand(folder, options.nand);
  }
  // Last, because this file is what makes the folder a phone.
  write_text(folder / "properties",
             "# The phone's properties: name=value\nro.pagesize=" + std::to_string(options.page_size) + "\n");
  VirtualPhone phone = attach(folder);
  phone.reboot();
  return phone;
}

VirtualPhone VirtualPhone::attach(const fs::path& dir) {
  const fs::path folder = fs::canonical(dir);
  if (attached) throw std::logic_error("another phone is attached");
  if (!fs::exists(folder / "properties")) throw std::runtime_error("there is no phone in " + folder.string());
  if (redirected_on_host(folder.string())) {
    throw std::runtime_error("a phone cannot be in a folder that phones redirect: " + folder.string());
  }
  const FaultFile faults = read_fault_file(folder / "faults");
  attached_nand() = open_nand(folder);
  if (!attached_nand() && !faults.nand.empty()) {
    throw std::runtime_error("NAND faults on a phone without NAND");
  }
  for (const NandFault& fault : faults.nand) attached_nand()->add_fault(fault);
  insert_nand(attached_nand().get());
  serve_properties_from(folder / "properties");
  open_log();
  keep_journal(true);
  redirect_to(folder.string());
  attached = true;
  VirtualPhone phone(folder);
  phone.clear_faults();
  for (const Fault& fault : faults.calls) phone.add_fault(fault);
  return phone;
}

VirtualPhone::VirtualPhone(fs::path dir) : dir_(std::move(dir)) {}

VirtualPhone::VirtualPhone(VirtualPhone&& other) noexcept : dir_(std::exchange(other.dir_, {})) {}

VirtualPhone::~VirtualPhone() {
  if (dir_.empty()) return;
  redirect_to("");
  clear_faults();
  close_log();
  stop_serving_properties();
  insert_nand(nullptr);
  attached_nand().reset();
  attached = false;
}

fs::path VirtualPhone::host_path(std::string_view phone_path) const {
  const auto path = normalised(phone_path);
  if (!path) throw std::invalid_argument("not an absolute path: " + std::string(phone_path));
  return dir_.string() + *path;
}

void VirtualPhone::set_redirection(bool on) {
  redirect_to(on ? dir_.string() : "");
}

std::vector<uint8_t> VirtualPhone::partition() const {
  if (attached_nand()) {
    std::vector<uint8_t> bytes;
    for (const uint32_t block : readable_blocks(*attached_nand())) {
      const std::vector<uint8_t> more = attached_nand()->block_bytes(block);
      bytes.insert(bytes.end(), more.begin(), more.end());
    }
    return bytes;
  }
  return read_file(dir_ / kEmmcImage);
}

void VirtualPhone::write_partition(uint64_t offset, const void* data, size_t size) {
  if (attached_nand()) {
    write_nand(*attached_nand(), offset, static_cast<const uint8_t*>(data), size);
  } else {
    write_image(dir_ / kEmmcImage, offset, data, size);
  }
}

void VirtualPhone::reboot() {
  power_on();
  const AreaPlace area = record_area(property("ro.pagesize"));
  if (!attached_nand()) return export_calibration(dir_, read_file(dir_ / kEmmcImage, area.offset, area.size));
  std::vector<uint8_t> bytes = partition();
  bytes.erase(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(std::min(area.offset, bytes.size())));
  export_calibration(dir_, std::move(bytes));
}

Nand& VirtualPhone::nand() {
  if (!attached_nand()) throw std::logic_error("this phone has no NAND chip");
  return *attached_nand();
}

}  // namespace phone
