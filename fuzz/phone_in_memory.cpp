#include "fuzz/phone_in_memory.h"

#include <android/log.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

constinit Phone phone{};

namespace {

constexpr size_t kRoom = 4608;  // more than any reader asks for
constexpr size_t kPartitionSize = 0x24000;
constexpr int kFirstDescriptor = 5000;
constexpr int kForeignErrno = EXFULL;  // what the platform's services leave behind

#define CAMERA_FILES(name) name, name "_front_CAM", name "_sub_CAM"
#define CAMERA_FOLDER "/data/misc/camera/"
#define NODE "/sys/android_camera_awb_cal/"
#define BY_NAME(controller) "/dev/block/platform/msm_sdcc." controller "/by-name/"

constexpr const char* kPaths[] = {CAMERA_FILES(CAMERA_FOLDER "awb_cal"),
                                  CAMERA_FILES(CAMERA_FOLDER "awb_A_light_cal"),
                                  CAMERA_FILES(CAMERA_FOLDER "aec_cal"),
                                  CAMERA_FOLDER "flash_cal",
                                  CAMERA_FOLDER "flash_cal_front",
                                  CAMERA_FOLDER "flash_cal_sub_CAM",
                                  CAMERA_FILES(CAMERA_FOLDER "flash_dual_cal"),
                                  CAMERA_FOLDER "gyro_cal_qor_CAM",
                                  CAMERA_FOLDER "gyro_cal_front_qor_CAM",
                                  CAMERA_FILES(CAMERA_FOLDER "lsc_cal"),
                                  NODE "awb_cal",
                                  NODE "awb_cal_front",
                                  NODE "awb_cal_sub",
                                  NODE "awb_cal_3D",
                                  NODE "awb_cal_InHouse3D",
                                  "/proc/emmc",
                                  "/proc/mtd",
                                  BY_NAME("0") "mfg",  // links: their content is where they lead
                                  BY_NAME("3") "mfg",
                                  BY_NAME("10") "mfg",
                                  CAMERA_FOLDER "LSC_Calibration_Success.txt",
                                  CAMERA_FOLDER "awb_calibration_success.txt",
                                  CAMERA_FOLDER "flash_calibration_success.txt",
                                  CAMERA_FOLDER "lsc_calibration_done.txt",
                                  kPartition};
constexpr size_t kFiles = std::size(kPaths);

uint8_t file_bytes[kFiles - 1][kRoom];
uint8_t partition_bytes[kPartitionSize];
size_t changed_from = 0;
size_t changed_to = kPartitionSize;

#define FUSE_WORDS(camera)                                                                              \
  {"qor.camera.sensor." camera "_fuse1", {}, false}, {"qor.camera.sensor." camera "_fuse2", {}, false}, \
      {"qor.camera.sensor." camera "_fuse3", {}, false}, {                                              \
    "qor.camera.sensor." camera "_fuse4", {}, false                                                     \
  }

constinit Property property_list[] = {FUSE_WORDS("main"),
                                      FUSE_WORDS("front"),
                                      FUSE_WORDS("sub"),
                                      {"ro.pagesize", {}, false},
                                      {"persist.camera.disp.color", {}, false},
                                      {"mfg.calibration.status", {}, false},
                                      {"mfg.calibration.target_luma", {}, false},
                                      {"qor.camera.mfg.trigger_index", {}, false},
                                      {"qor.camera.mfg.aec_exp_index", {}, false}};

File file_list[kFiles];

bool fill_list() {
  for (size_t i = 0; i + 1 < kFiles; ++i) file_list[i] = {kPaths[i], file_bytes[i], kRoom, 0, false};
  file_list[kFiles - 1] = {kPartition, partition_bytes, kPartitionSize, kPartitionSize, true};
  return true;
}
const bool is_list_filled = fill_list();

File* find_file(std::string_view path) {
  for (File& file : file_list) {
    // Most begin alike.
    if (file.path.size() == path.size() && file.path.back() == path.back() && file.path == path) return &file;
  }
  return nullptr;
}

// ---- descriptors ------------------------------------------------------------------------------------------

enum class Kind : uint8_t { closed, file, block_device, chip };

struct Descriptor {
  Kind kind;
  File* file;
  int64_t position;
};
constinit Descriptor descriptors[8]{};
constinit unsigned ecc_failures = 0;

Descriptor* descriptor_of(int fd) {
  const auto number = static_cast<size_t>(fd - kFirstDescriptor);
  return fd >= kFirstDescriptor && number < std::size(descriptors) ? &descriptors[number] : nullptr;
}

int fails(int error) {
  errno = error;
  return -1;
}

/// Counts a call. Returns whether it fails, and cuts what it may move.
bool is_struck(size_t* transfer = nullptr) {
  ++phone.calls;
  for (const CallFault& fault : phone.faults) {
    if (fault.nth != phone.calls) continue;
    if (fault.error == 0 && transfer == nullptr) continue;
    ++phone.struck;
    errno = fault.error;
    if (fault.error != 0) return true;
    *transfer = std::min(*transfer, fault.transfer);
  }
  return false;
}

int open_as(Kind kind, File* file) {
  for (size_t i = 0; i < std::size(descriptors); ++i) {
    if (descriptors[i].kind != Kind::closed) continue;
    descriptors[i] = {kind, file, 0};
    return kFirstDescriptor + static_cast<int>(i);
  }
  return fails(EMFILE);
}

int open_path(const char* path) {
  if (is_struck()) return -1;
  if (strncmp(path, "/dev/mtd/", 9) == 0) {
    return phone.chip.erase_size > 0 ? open_as(Kind::chip, &files().back()) : fails(ENOENT);
  }
  if (strncmp(path, kPartition, strlen(kPartition)) == 0) {
    return phone.has_block_device ? open_as(Kind::block_device, &files().back()) : fails(ENXIO);
  }
  File* file = find_file(path);
  return file != nullptr && file->exists ? open_as(Kind::file, file) : fails(ENOENT);
}

ssize_t read_from(Descriptor& descriptor, void* buffer, size_t size) {
  if (descriptor.kind == Kind::closed) return fails(EBADF);
  if (is_struck(&size)) return -1;
  const File& file = *descriptor.file;
  const auto length = static_cast<int64_t>(file.size);
  if (descriptor.position >= length) return 0;
  const size_t moved = std::min(size, static_cast<size_t>(length - descriptor.position));
  if (descriptor.kind == Kind::chip) {
    phone.used_chip = true;
    const uint32_t bit = 1U << (descriptor.position / phone.chip.erase_size % 32);
    if ((phone.chip.unreadable & bit) != 0) return fails(EIO);
    if ((phone.chip.ecc_failing & bit) != 0) ++ecc_failures;
  }
  memcpy(buffer, file.bytes + descriptor.position, moved);
  descriptor.position += static_cast<int64_t>(moved);
  return static_cast<ssize_t>(moved);
}

off_t seek_in(Descriptor& descriptor, off_t offset, int whence) {
  if (descriptor.kind == Kind::closed) return fails(EBADF);
  if (is_struck()) return -1;
  const int64_t from = whence == SEEK_SET   ? 0
                       : whence == SEEK_CUR ? descriptor.position
                                            : static_cast<int64_t>(descriptor.file->size);
  if (from + offset < 0) return fails(EINVAL);
  return descriptor.position = from + offset;
}

int answer(const Descriptor& descriptor, unsigned long request, void* argument) {
  if (descriptor.kind != Kind::chip) return fails(ENOTTY);
  if (is_struck()) return -1;
  if (request == ECCGETSTATS) {
    if (!phone.chip.has_ecc_counters) return fails(EIO);
    const mtd_ecc_stats stats{.corrected = 0, .failed = ecc_failures, .badblocks = 0, .bbtblocks = 0};
    memcpy(argument, &stats, sizeof stats);
    return 0;
  }
  if (request != MEMGETBADBLOCK) {
    ++phone.written;
    return fails(EIO);
  }
  loff_t at = 0;
  memcpy(&at, argument, sizeof at);
  const uint32_t bit = 1U << (at / phone.chip.erase_size % 32);
  if ((phone.chip.not_askable & bit) != 0) return fails(EIO);
  return (phone.chip.bad & bit) != 0 ? 1 : 0;
}

int refuse_change() {
  ++phone.written;
  return fails(EROFS);
}

// ---- services ---------------------------------------------------------------------------------------------

char log_buffer[1U << 18];

const Property* find_property(const char* name) {
  for (const Property& property : property_list) {
    if (property.exists && strcmp(property.name, name) == 0) return &property;
  }
  return nullptr;
}

int give_value(const char* name, char* value) {
  const int saved = errno;
  const Property* property = is_struck() ? nullptr : find_property(name);
  errno = saved;
  strcpy(value, property != nullptr ? property->value : "");
  return static_cast<int>(strlen(value));
}

}  // namespace

std::span<File> files() {
  return file_list;
}

File& file_at(std::string_view path) {
  File* file = find_file(path);
  if (file == nullptr) std::abort();
  return *file;
}

std::span<Property> properties() {
  return property_list;
}

void new_phone() {
  for (File& file : file_list) file.exists = &file == &file_list[kFiles - 1];
  for (Property& property : property_list) property.exists = false;
  // No block is all zeros: those are passed over.
  for (size_t i = changed_from; i < changed_to; ++i) {
    partition_bytes[i] = static_cast<uint8_t>(1 + (i * 7 + (i >> 8)) % 255);
  }
  changed_from = kPartitionSize;
  changed_to = 0;
  phone = {};
}

void create(File& file, size_t size) {
  file.exists = true;
  // Tables are read byte by byte: two windows of theirs do.
  const size_t most = file.path.starts_with("/proc/") ? 1100 : file.room;
  file.size = &file == &files().back() ? file.room : std::min(size, most);
}

void partition_changed(size_t from, size_t to) {
  changed_from = std::min(changed_from, from);
  changed_to = std::max(changed_to, to);
}

std::vector<uint8_t> changes_of_partition(uint8_t blank) {
  std::vector<uint8_t> bytes(std::max<size_t>(0x14000, changed_to), blank);
  for (size_t i = changed_from; i < changed_to; ++i) bytes[i] = partition_bytes[i];
  return bytes;
}

void begin_pass() {
  phone.calls = phone.struck = phone.written = 0;
  phone.used_chip = false;
  phone.log_size = 0;
  ecc_failures = 0;
}

size_t open_descriptors() {
  return static_cast<size_t>(std::count_if(std::begin(descriptors), std::end(descriptors),
                                           [](const Descriptor& each) { return each.kind != Kind::closed; }));
}

std::string_view log_text() {
  return {log_buffer, phone.log_size};
}

}  // namespace fuzz

// ---- what the library calls -------------------------------------------------------------------------------

using fuzz::phone;

#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED int open(const char* path, int flags, ...) {
  if (phone.is_on) return (flags & O_CREAT) != 0 ? fuzz::refuse_change() : fuzz::open_path(path);
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = va_arg(arguments, unsigned);
  va_end(arguments);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

INTERPOSED int close(int fd) {
  fuzz::Descriptor* descriptor = fuzz::descriptor_of(fd);
  if (descriptor == nullptr) return static_cast<int>(syscall(SYS_close, fd));
  if (descriptor->kind == fuzz::Kind::closed) return fuzz::fails(EBADF);
  descriptor->kind = fuzz::Kind::closed;
  return fuzz::is_struck() ? -1 : 0;
}

INTERPOSED ssize_t read(int fd, void* buffer, size_t size) {
  fuzz::Descriptor* descriptor = fuzz::descriptor_of(fd);
  return descriptor != nullptr ? fuzz::read_from(*descriptor, buffer, size)
                               : syscall(SYS_read, fd, buffer, size);
}

INTERPOSED ssize_t write(int fd, const void* buffer, size_t size) {
  return fuzz::descriptor_of(fd) != nullptr ? fuzz::refuse_change() : syscall(SYS_write, fd, buffer, size);
}

INTERPOSED off_t lseek(int fd, off_t offset, int whence) noexcept {
  fuzz::Descriptor* descriptor = fuzz::descriptor_of(fd);
  return descriptor != nullptr ? fuzz::seek_in(*descriptor, offset, whence)
                               : syscall(SYS_lseek, fd, offset, whence);
}

INTERPOSED off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  return lseek(fd, offset, whence);
}

INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const fuzz::Descriptor* descriptor = fuzz::descriptor_of(fd);
  return descriptor != nullptr ? fuzz::answer(*descriptor, request, argument)
                               : static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

// A folder of links is there when a link in it is.
INTERPOSED int access(const char* path, int mode) noexcept {
  if (!phone.is_on) return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
  if (fuzz::is_struck()) return -1;
  const std::string_view folder(path);
  if (!folder.starts_with(fuzz::kPartition)) return fuzz::fails(ENOENT);
  for (const fuzz::File& file : fuzz::file_list) {
    if (file.exists && file.path.starts_with(folder)) return 0;
  }
  return fuzz::fails(ENOENT);
}

INTERPOSED ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
  if (!phone.is_on) return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
  if (fuzz::is_struck()) return -1;
  const fuzz::File* file = fuzz::find_file(path);
  if (file == nullptr || !file->exists) return fuzz::fails(ENOENT);
  const size_t moved = std::min(size, file->size);
  memcpy(buffer, file->bytes, moved);
  return static_cast<ssize_t>(moved);
}

INTERPOSED int remove(const char* path) noexcept {
  return phone.is_on ? fuzz::refuse_change() : static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

INTERPOSED int chmod(const char* path, mode_t mode) noexcept {
  return phone.is_on ? fuzz::refuse_change() : static_cast<int>(syscall(SYS_fchmodat, AT_FDCWD, path, mode));
}

INTERPOSED int fchmod(int fd, mode_t mode) noexcept {
  return fuzz::descriptor_of(fd) != nullptr ? fuzz::refuse_change()
                                            : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}

INTERPOSED int fsync(int fd) {
  return fuzz::descriptor_of(fd) != nullptr ? 0 : static_cast<int>(syscall(SYS_fsync, fd));
}

// ---- the platform -----------------------------------------------------------------------------------------

INTERPOSED int __system_property_get(const char* name, char* value) {
  return fuzz::give_value(name, value);
}

INTERPOSED int property_get(const char* key, char* value, const char* default_value) {
  const int size = fuzz::give_value(key, value);
  if (size > 0 || default_value == nullptr) return size;
  strcpy(value, default_value);
  return static_cast<int>(strlen(value));
}

INTERPOSED int property_set(const char*, const char*) {
  return fuzz::refuse_change();
}

INTERPOSED int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  const size_t left = sizeof fuzz::log_buffer - phone.log_size;
  va_list arguments;
  va_start(arguments, fmt);
  char* to = fuzz::log_buffer + phone.log_size;
  const int size = vsnprintf(to, std::min<size_t>(left, 1024), fmt, arguments);
  va_end(arguments);
  if (size > 0 && left > 2048) phone.log_size += static_cast<size_t>(std::min(size, 1023));
  // The level and the tag are part of a line, by one byte: no two tags end in the same letter.
  if (left > 2048) fuzz::log_buffer[phone.log_size++] = static_cast<char>(prio ^ tag[strlen(tag) - 1]);
  errno = fuzz::kForeignErrno;
  return 1;
}

// Bit 7 has the library ask again before its next line, so that a mask holds for a run.
INTERPOSED unsigned __qorlog_init_mask(const char* tag, unsigned mask, signed char* byte);
unsigned __qorlog_init_mask(const char*, unsigned mask, signed char*) {
  errno = fuzz::kForeignErrno;
  return (phone.log_mask | 0x80U) & mask;
}
