// Does the library keep its records on a real kernel's NAND and SD card as it does on the virtual phone?
// Guards against a virtual phone that is wrong in the same way as the library.
//
// Run by tests/kernel/init, one subject a run. The phone supplies log and properties only: every file, device
// and ioctl is the kernel's.

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "records/record_layouts.h"
#include "tests/support/support.h"

namespace {

using support::Bytes;
using support::pattern;

constexpr uint32_t kBlock = 128 * 1024;
constexpr const char* kNand = "/dev/mtd/mtd1";
constexpr const char* kCard = "/dev/mmcblk0p6";

int failures = 0;

/// One line per fact that the run shows.
__attribute__((format(printf, 2, 3))) void fact(bool holds, const char* format, ...) {
  std::printf(holds ? "  ok      " : "  FAILED  ");
  va_list arguments;
  va_start(arguments, format);
  std::vprintf(format, arguments);
  va_end(arguments);
  std::printf("\n");
  if (!holds) ++failures;
}

/// The bytes of a device as the kernel gives them, without the library.
Bytes raw(const char* device, uint64_t offset, size_t size) {
  Bytes bytes(size);
  const int fd = open(device, O_RDONLY);
  const ssize_t moved = pread(fd, bytes.data(), size, static_cast<off_t>(offset));
  close(fd);
  bytes.resize(moved > 0 ? static_cast<size_t>(moved) : 0);
  return bytes;
}

int ask_nand(unsigned long request, void* argument) {
  const int fd = open(kNand, O_RDONLY);
  const int answer = ioctl(fd, request, argument);
  close(fd);
  return answer;
}

int answer_of_bad_block(int64_t block) {
  loff_t at = block * kBlock;
  return ask_nand(MEMGETBADBLOCK, &at);
}

bool transfer(bool write, uint64_t offset, Bytes& bytes) {
  partition_handle handle{};
  if (partition_open(&handle, "mfg") != 0) return false;
  const auto at = static_cast<int64_t>(offset);
  const auto length = static_cast<int64_t>(bytes.size());
  const int32_t result = write ? partition_write(&handle, at, length, bytes.data())
                               : partition_read(&handle, at, length, bytes.data());
  const int error = errno;
  partition_close(&handle);
  errno = error;
  return result == 0;
}

bool write_bytes(uint64_t offset, Bytes bytes) {
  return transfer(true, offset, bytes);
}

bool reads_as(uint64_t offset, const Bytes& expected) {
  Bytes bytes(expected.size());
  return transfer(false, offset, bytes) && bytes == expected;
}

/// `shift`: where logical block 0 lies on the device.
void every_record_position(const char* device, uint64_t shift) {
  const size_t size = 3 * kBlock;
  Bytes expected = raw(device, shift, size);
  fact(expected.size() == size, "%s gives its first %zu usable bytes", device, size);
  int good = 0;
  const auto positions = support::record_positions();
  for (const size_t position : positions) {
    const Bytes record = pattern(48, static_cast<uint32_t>(position));
    std::copy(record.begin(), record.end(), expected.begin() + static_cast<long>(position));
    good += write_bytes(position, record) && reads_as(position, record) ? 1 : 0;
  }
  const int count = static_cast<int>(positions.size());
  fact(good == count, "%d of %d record positions written and read back", good, count);
  fact(raw(device, shift, size) == expected, "the kernel reads the same bytes, and no other byte changed");
}

/// The production line calibrates one camera.
void calibrate(phone::VirtualPhone& phone, uint32_t camera) {
  phone.set_property("mfg.awb.calibration.camid", std::to_string(camera));
  sensor_detect(static_cast<int32_t>(camera));
  check_and_init_awb_calibration();
  phone.set_property("mfg.awb.calibration.trigger", "0");
  check_awb_calibration_trigger();
  phone.set_property("mfg.awb.calibration.trigger", "1");
  for (int frame = 0; frame < 11; ++frame) QOR_AWB_Calibration_collect(77200, 57600, 100);
}

void factory_run(phone::VirtualPhone& phone, const char* device, uint64_t shift) {
  phone.set_property("mfg.calibration.status", "3");
  phone.set_property("mfg.awb.calibration.rg_ratio", "0.7539");
  phone.set_property("mfg.awb.calibration.bg_ratio", "0.5625");
  for (const char* camera : {"main", "front", "sub"}) support::fit_module(phone, camera, {11, 22, 33, 44});
  const Bytes expected = support::sealed32({3099, 772, 576, 11, 22, 33, 44});
  const char* caches[] = {"awb_cal", "awb_cal_front_CAM", "awb_cal_sub_CAM"};
  for (uint32_t camera = 0; camera < 3; ++camera) {
    calibrate(phone, camera);
    const auto cached = support::read_bytes("/data/misc/camera/" + std::string(caches[camera]));
    const uint64_t place = shift + calib::kAreaBase4k + camera * calib::kSlotSize;
    fact(raw(device, place, 32) == expected && cached == expected,
         "factory run of camera %u: its record is on the device and in %s", camera, caches[camera]);
  }
}

bool logged(const std::vector<phone::LogLine>& lines, const std::string& beginning) {
  return std::any_of(lines.begin(), lines.end(),
                     [&](const phone::LogLine& line) { return line.text.starts_with(beginning); });
}

// ---- the subjects -----------------------------------------------------------------------------------------

void card(phone::VirtualPhone& phone) {
  partition_handle handle{};
  const bool open = partition_open(&handle, "mfg") == 0 && handle.emmc != nullptr;
  fact(open, "\"mfg\" opens as an eMMC partition: %s", open ? handle.emmc->path : "no");
  partition_close(&handle);
  every_record_position(kCard, 0);
  const int fd = ::open(kCard, O_RDONLY);
  const off_t end = lseek(fd, 0, SEEK_END);
  close(fd);
  fact(end > 0 && !write_bytes(static_cast<uint64_t>(end) - 8, Bytes(16, 1)),
       "a write across the end of the partition fails");
  factory_run(phone, kCard, 0);
}

/// Block 0 of the partition is marked bad.
void nand(phone::VirtualPhone& phone) {
  partition_handle handle{};
  const bool open = partition_open(&handle, "mfg") == 0 && handle.emmc == nullptr;
  fact(open, "\"mfg\" opens as an MTD partition: %s", open ? handle.mtd->path : "no");
  fact(open && handle.mtd->erase_size == kBlock && handle.mtd->size == 16 * kBlock,
       "size and erase size come from /proc/mtd");
  partition_close(&handle);
  fact(answer_of_bad_block(0) == 1 && answer_of_bad_block(1) == 0, "the kernel calls block 0 bad");
  const Bytes data = pattern(kBlock, 7);
  fact(write_bytes(0, data) && reads_as(0, data), "logical block 0 written and read back");
  fact(raw(kNand, kBlock, kBlock) == data, "it lies in the second physical block");
  every_record_position(kNand, kBlock);
  fact(!write_bytes(15 * kBlock, data) && errno == ENOSPC,
       "15 logical blocks are left: the 16th has no space");
  factory_run(phone, kNand, kBlock);
}

/// Block 1 of the partition can be erased once; the next erase fails.
void weak(phone::VirtualPhone& phone) {
  const Bytes first = pattern(kBlock, 1), second = pattern(kBlock, 2);
  fact(write_bytes(0, first) && write_bytes(kBlock, first), "the weak block takes its first write");
  phone.take_log();
  fact(write_bytes(kBlock, second), "a write to it succeeds although its erase fails");
  const auto lines = phone.take_log();
  fact(logged(lines, "mtd: erase failure at 0x00020000 (Input/output error)") &&
           logged(lines, "mtd: skipping write block at 0x00020000"),
       "both lines are logged");
  fact(raw(kNand, 2 * kBlock, kBlock) == second, "the data is in the block behind it");
  fact(answer_of_bad_block(1) == 0, "the weak block is not marked bad");
  fact(reads_as(kBlock, raw(kNand, kBlock, kBlock)),
       "so a later read takes it, with what the erase left there");
  fact(reads_as(kBlock, Bytes(kBlock, 0xFF)), "which is erased flash");
  fact(reads_as(2 * kBlock, second), "and the data is read one logical block later");
}

/// The first page of block 1 loses its data at the third read.
void grave(phone::VirtualPhone& phone) {
  const Bytes data = pattern(kBlock, 3);
  fact(write_bytes(0, data) && write_bytes(kBlock, data),
       "two blocks written; the verify was the first read");
  fact(reads_as(kBlock, data), "the second read of the page is right");
  phone.take_log();
  fact(!reads_as(kBlock, data) && errno == ENOSPC, "after the third the call ends without space");
  const auto lines = phone.take_log();
  fact(logged(lines, "mtd: ECC errors (") &&
           std::count_if(
               lines.begin(), lines.end(),
               [](const auto& line) { return line.text.find("hard) at 0x") != std::string::npos; }) == 15,
       "the block and the 14 behind it are refused, for uncorrectable ECC errors");
  fact(reads_as(0, data), "the block before it still reads");
}

mtd_ecc_stats ecc_stats() {
  mtd_ecc_stats stats{};
  ask_nand(ECCGETSTATS, &stats);
  return stats;
}

/// One page read in 1024 has a flipped bit, which the ECC corrects.
void flips(phone::VirtualPhone& phone) {
  const Bytes data = pattern(4 * kBlock, 4);
  phone.take_log();
  bool good = write_bytes(0, data);
  int reads = 0;
  do {
    good = good && reads_as(0, data);
  } while (good && ++reads < 100 && ecc_stats().corrected == 0);
  const mtd_ecc_stats stats = ecc_stats();
  fact(good, "four blocks written, and read back right %d times", reads);
  fact(stats.corrected > 0 && stats.failed == 0, "the kernel corrected %u flipped bit(s)", stats.corrected);
  fact(!logged(phone.take_log(), "mtd:"), "nothing is logged about that");
}

}  // namespace

int main(int count, char** arguments) {
  const std::pair<const char*, void (*)(phone::VirtualPhone&)> subjects[] = {
      {"card", card}, {"nand", nand}, {"weak", weak}, {"grave", grave}, {"flips", flips}};
  for (const auto& [name, run] : subjects) {
    if (count != 2 || std::strcmp(name, arguments[1]) != 0) continue;
    auto phone = phone::VirtualPhone::create("/phone-" + std::to_string(getpid()));
    phone.set_redirection(false);
    run(phone);
    if (failures == 0) return 0;
    for (const auto& line : phone.take_log()) {
      std::printf("          %s: %s\n", line.tag.c_str(), line.text.c_str());
    }
    return 1;
  }
  std::fprintf(stderr, "kernel_test: which subject?\n");
  return 2;
}
