#include "storage/mtd_blocks.h"

#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/uninterrupted.h"
#include "storage/mtd_log.h"

namespace calib::mtd {

constinit LogModule log_module{"camera_calibration_mtd"};

namespace {

constexpr int kWriteAttempts = 2;

/// The size counts as a signed 32-bit number: a partition of 2 GiB or more has no room for any block. A block
/// size of 0 is no room either, or a walk would never end.
bool block_fits(const mtd_partition& partition, int64_t position) {
  return partition.erase_size > 0 && position + partition.erase_size <= static_cast<int32_t>(partition.size);
}

int32_t no_space() {
  errno = ENOSPC;
  return -1;
}

bool read_at(int fd, int64_t position, uint8_t* destination, uint32_t size) {
  return seek(fd, position, SEEK_SET) == position &&
         uninterrupted([&] { return read(fd, destination, size); }) == ssize_t{size};
}

bool write_at(int fd, int64_t position, const uint8_t* source, uint32_t size) {
  return seek(fd, position, SEEK_SET) == position &&
         uninterrupted([&] { return write(fd, source, size); }) == ssize_t{size};
}

int32_t get_ecc_stats(int fd, mtd_ecc_stats* stats) {
  if (uninterrupted([&] { return ioctl(fd, ECCGETSTATS, stats); }) == 0) return 0;
  return FAIL("mtd: ECCGETSTATS error (%s)\n", strerror(errno));
}

enum class ReadOutcome { usable, pass_over, give_up };

/// Judges the block at `position`. The baseline is the whole call's: after one uncorrectable error every
/// later block is refused as well, rather than trusting a chip that has just failed.
ReadOutcome read_and_judge(const mtd_partition& partition, int fd, int64_t position,
                           const mtd_ecc_stats& baseline, uint8_t* destination) {
  const auto at = static_cast<unsigned long long>(position);
  if (!read_at(fd, position, destination, partition.erase_size)) {
    REPORT("mtd: read error at 0x%08llx (%s)\n", at, strerror(errno));
    return ReadOutcome::pass_over;
  }
  mtd_ecc_stats stats{};
  if (get_ecc_stats(fd, &stats) != 0) return ReadOutcome::give_up;
  if (stats.failed != baseline.failed) {
    REPORT("mtd: ECC errors (%d soft, %d hard) at 0x%08llx\n",
           static_cast<int>(stats.corrected - baseline.corrected),
           static_cast<int>(stats.failed - baseline.failed), at);
    return ReadOutcome::pass_over;
  }
  const BadBlockAnswer bad = ask_bad_block(fd, position);
  if (bad.state() != BlockState::good) {
    REPORT("mtd: MEMGETBADBLOCK returned %d at 0x%08llx (errno=%d)\n", bad.answer, at, errno);
    return ReadOutcome::pass_over;
  }
  if (is_all_zero(destination, partition.erase_size)) {
    REPORT("mtd: read all-zero block at 0x%08llx; skipping\n", at);
    return ReadOutcome::pass_over;
  }
  return ReadOutcome::usable;
}

/// One erase, write and verify. A write that fails is verified all the same: what counts is what the block
/// holds.
int32_t attempt_write(int fd, int64_t position, const uint8_t* source, uint8_t* verify, uint32_t size) {
  const auto at = static_cast<unsigned long>(position);
  if (!erase_block(fd, position, size)) {
    return FAIL("mtd: erase failure at 0x%08lx (%s)\n", at, strerror(errno));
  }
  if (!write_at(fd, position, source, size)) {
    REPORT("mtd: write error at 0x%08lx (%s)\n", at, strerror(errno));
  }
  if (!read_at(fd, position, verify, size)) {
    return FAIL("mtd: re-read error at 0x%08lx (%s)\n", at, strerror(errno));
  }
  if (memcmp(source, verify, size) != 0) {
    return FAIL("mtd: verification error at 0x%08lx (%s)\n", at, strerror(errno));
  }
  return 0;
}

/// Both attempts on one block. A block that fails them is erased once more and left as it is: nothing marks
/// it bad, so a later read takes whatever it then holds.
int32_t write_with_retry(int fd, int64_t position, const uint8_t* source, uint8_t* verify, uint32_t size) {
  for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
    if (attempt_write(fd, position, source, verify, size) != 0) continue;
    if (attempt > 0) LOGE("mtd: wrote block after %d retries\n", attempt);
    return 0;
  }
  REPORT("mtd: skipping write block at 0x%08lx\n", static_cast<unsigned long>(position));
  erase_block(fd, position, size);
  return -1;
}

}  // namespace

int64_t seek(int fd, int64_t offset, int whence) {
  return uninterrupted([&] { return lseek64(fd, offset, whence); });
}

BadBlockAnswer ask_bad_block(int fd, int64_t position) {
  loff_t offset = position;
  return {uninterrupted([&] { return ioctl(fd, MEMGETBADBLOCK, &offset); })};
}

bool erase_block(int fd, int64_t start, uint32_t length) {
  erase_info_user erase{static_cast<uint32_t>(start), length};
  return uninterrupted([&] { return ioctl(fd, MEMERASE, &erase); }) == 0;
}

void* allocate_zeroed(uint32_t size) {
  void* memory = calloc(1, size > 0 ? size : 1);
  if (memory == nullptr) errno = ENOMEM;
  return memory;
}

HeapBlock::HeapBlock(uint32_t size) : bytes_(static_cast<uint8_t*>(allocate_zeroed(size))) {}

int32_t read_block(const mtd_partition& partition, int fd, uint8_t* destination) {
  mtd_ecc_stats baseline{};
  if (get_ecc_stats(fd, &baseline) != 0) return -1;
  int64_t position = seek(fd, 0, SEEK_CUR);
  if (position < 0) return -1;
  for (; block_fits(partition, position); position += partition.erase_size) {
    switch (read_and_judge(partition, fd, position, baseline, destination)) {
      case ReadOutcome::usable:
        return 0;
      case ReadOutcome::give_up:
        return -1;
      case ReadOutcome::pass_over:
        break;
    }
  }
  return no_space();
}

int32_t write_block(const mtd_partition& partition, int fd, const uint8_t* source, uint8_t* verify) {
  int64_t position = seek(fd, 0, SEEK_CUR);
  if (position < 0) return 1;
  for (; block_fits(partition, position); position += partition.erase_size) {
    if (ask_bad_block(fd, position).state() == BlockState::bad) {
      LOGE("mtd: not writing bad block at 0x%08lx\n", static_cast<unsigned long>(position));
      continue;
    }
    if (write_with_retry(fd, position, source, verify, partition.erase_size) == 0) return 0;
  }
  return no_space();
}

}  // namespace calib::mtd
