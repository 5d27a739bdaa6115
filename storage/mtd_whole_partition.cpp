// Whole MTD partitions through a plain descriptor, for callers that want neither verify nor bad-block
// handling on the bytes themselves.

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/uninterrupted.h"
#include "storage/mtd_blocks.h"
#include "storage/mtd_log.h"
#include "storage/proc_mtd.h"

uint32_t erase_size = 0x20000;

namespace {

using calib::mtd::log_module;

constexpr uint32_t kSmallestPiece = 4096;  // a piece below this is not halved again

ssize_t read_piece(int fd, void* buffer, size_t count) {
  return calib::uninterrupted([&] { return read(fd, buffer, count); });
}

ssize_t write_piece(int fd, void* buffer, size_t count) {
  return calib::uninterrupted([&] { return write(fd, buffer, count); });
}

/// A transfer that moved less than it was asked for says nothing about memory, whatever errno still holds.
bool ran_out_of_memory(ssize_t moved) {
  return moved < 0 && errno == ENOMEM;
}

enum class Pass { whole, out_of_memory, failed };

/// One pass over the buffer in pieces, up to the first that fails.
Pass move_pieces(mtd_transfer transfer, int fd, uint8_t* buffer, uint32_t piece, int loops) {
  for (int i = 0; i < loops; ++i) {
    const ssize_t moved = transfer(fd, buffer + int64_t{piece} * i, piece);
    if (moved != ssize_t{piece}) {
      REPORT("this try also fails: %s(%d)!\n", strerror(errno), errno);
      return ran_out_of_memory(moved) ? Pass::out_of_memory : Pass::failed;
    }
    const int64_t total = int64_t{piece} * (i + 1);
    LOGD("> loop %d, data size 0x%x, total 0x%x bytes\n", i, piece, static_cast<unsigned>(total));
  }
  return Pass::whole;
}

/// Erases the block at `position` unless it is bad or cannot be asked about. Returns whether no erase failed.
bool erase_if_good(int fd, uint32_t position) {
  const auto shown = static_cast<int>(position);
  if (calib::mtd::ask_bad_block(fd, position).state() != calib::mtd::BlockState::good) {
    LOGD("offset %d is bad block, skip...", shown);
    return true;
  }
  LOGD("trying to erase offset %d", shown);
  if (calib::mtd::erase_block(fd, position, erase_size)) return true;
  const calib::KeepErrno keep;
  LOGD("erasing offset %d failed, errno = %d", shown, errno);
  return false;
}

int32_t get_partition_size(int fd, uint32_t* size) {
  mtd_info_user info{};
  if (mtd_get_partition_info(fd, &info) != 0) {
    const calib::KeepErrno keep;
    LOGD("cannot get partition info!");
    return -1;
  }
  LOGD("partition size = %u", info.size);
  *size = info.size;
  return 0;
}

}  // namespace

int32_t mtd_open_partition_device(const mtd_partition* partition) {
  if (partition == nullptr || partition->index == -1) return -1;

  char path[256];
  calib::mtd::set_device_path(path, partition->index);
  const int fd = calib::uninterrupted([&] { return open(path, O_RDWR); });
  return fd < 0 ? FAIL("cannot open device [%s]!\n", path) : fd;
}

int32_t mtd_get_partition_info(int32_t fd, mtd_info_user* info) {
  return fd < 0 || info == nullptr ? -1 : calib::uninterrupted([&] { return ioctl(fd, MEMGETINFO, info); });
}

int32_t mtd_get_partition_region_info(int32_t fd, region_info_user* info) {
  return fd < 0 || info == nullptr ? -1
                                   : calib::uninterrupted([&] { return ioctl(fd, MEMGETREGIONINFO, info); });
}

int32_t mtd_set_partition_erase_info(int32_t fd, uint32_t start, uint32_t end) {
  if (fd < 0) return -1;
  if (erase_size == 0 || end % erase_size != 0) {
    return FAIL("length %d is not a multiple of erase size %d", static_cast<int>(end),
                static_cast<int>(erase_size));
  }
  int failure = 0;
  // 64 bits wide: the position after the last block may be 4 GiB.
  for (uint64_t position = start; position < end; position += erase_size) {
    if (!erase_if_good(fd, static_cast<uint32_t>(position))) failure = errno;
  }
  if (failure == 0) return 0;
  errno = failure;
  return -1;
}

int32_t alloc_mtd_repeat_and_do(mtd_transfer transfer, int32_t fd, void* buffer, uint32_t total) {
  if (transfer == nullptr || buffer == nullptr) return -1;

  uint32_t piece = total;
  int loops = 1;
  while (piece >= kSmallestPiece) {
    piece >>= 1;
    loops *= 2;
    LOGD("try again: data size 0x%x, loops %d\n", piece, loops);
    // The descriptor is not rewound: a pass that fails part-way has moved its position on for good.
    const Pass pass = move_pieces(transfer, fd, static_cast<uint8_t*>(buffer), piece, loops);
    if (pass == Pass::failed) return -1;
    if (pass == Pass::whole && int64_t{piece} * loops == total) return 0;
  }
  return -1;
}

int32_t mtd_read_partition_data(int32_t fd, uint32_t* size, void** out) {
  if (size == nullptr || calib::mtd::seek(fd, 0, SEEK_SET) != 0) return -1;
  if (*size == 0) {
    if (get_partition_size(fd, size) != 0) return -1;
    if (out == nullptr) return 0;
  }
  if (out == nullptr) return -1;

  *out = calib::mtd::allocate_zeroed(*size);
  if (*out == nullptr) return -1;
  const ssize_t moved = read_piece(fd, *out, *size);
  if (moved == ssize_t{*size}) return 0;
  REPORT("cannot read %u bytes from partition! errno = %d", *size, errno);
  if (ran_out_of_memory(moved) && alloc_mtd_repeat_and_do(read_piece, fd, *out, *size) == 0) return 0;
  const calib::KeepErrno keep;
  free(*out);
  *out = nullptr;
  return -1;
}

int32_t mtd_write_partition_data(int32_t fd, uint32_t length, const void* buffer) {
  if (length == 0 || buffer == nullptr) return -1;
  if (mtd_set_partition_erase_info(fd, 0, length) < 0) return -1;
  if (calib::mtd::seek(fd, 0, SEEK_SET) != 0) return -1;
  const ssize_t moved = write_piece(fd, const_cast<void*>(buffer), length);
  if (moved == ssize_t{length}) return 0;
  REPORT("cannot write %u bytes to partition! errno = %d", length, errno);
  if (!ran_out_of_memory(moved)) return -1;
  return alloc_mtd_repeat_and_do(write_piece, fd, const_cast<void*>(buffer), length);
}
