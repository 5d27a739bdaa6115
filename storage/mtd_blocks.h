// Erase blocks of a raw NAND partition: the careful read and the careful write of one block, and the
// questions and ioctls under them. The back end and the utility move every byte through these.
#ifndef STORAGE_MTD_BLOCKS_H
#define STORAGE_MTD_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/log.h"

namespace calib::mtd {

/// lseek64(), made again when a signal interrupts it, as every call on the device is: taken for a failure it would
/// move a read, and with it the write that merges what was read, on to another block.
int64_t seek(int fd, int64_t offset, int whence);

/// What the kernel says about a block. Reading passes over all but the good ones; writing uses a block that
/// could not be asked about: the erase and the verify decide then.
enum class BlockState { good, bad, could_not_ask };

struct BadBlockAnswer {
  int answer;  ///< of MEMGETBADBLOCK, as the kernel gave it

  BlockState state() const {
    if (answer == 0) return BlockState::good;
    return answer > 0 ? BlockState::bad : BlockState::could_not_ask;
  }
};

BadBlockAnswer ask_bad_block(int fd, int64_t position);

/// Erases `length` bytes at `start` (MEMERASE). Returns whether it succeeded.
bool erase_block(int fd, int64_t start, uint32_t length);

/// Whether every one of the `size` (at least 1) bytes is zero.
inline bool is_all_zero(const uint8_t* bytes, size_t size) {
  // A zero followed by itself, shifted by one byte: the C library's comparison is far faster than a byte
  // loop.
  return bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0;
}

/// Zeroed heap memory for the scope; null and ENOMEM when there is none.
class HeapBlock {
 public:
  explicit HeapBlock(uint32_t size);
  HeapBlock(const HeapBlock&) = delete;
  HeapBlock& operator=(const HeapBlock&) = delete;
  ~HeapBlock() {
    const KeepErrno keep;
    free(bytes_);
  }

  uint8_t* get() const { return bytes_; }
  bool is_null() const { return bytes_ == nullptr; }

 private:
  uint8_t* bytes_;
};

/// Zeroed heap memory for free(), also for a size of 0; null and ENOMEM when there is none.
void* allocate_zeroed(uint32_t size);

/// Reads the first usable block at or after the current position into `destination` (one erase block).
/// Unreadable, bad and all-zero blocks, and every block once an uncorrectable ECC error was counted in this
/// call, are passed over; `destination` may then hold their bytes. Leaves the position just past the block.
/// Returns 0 or -1: ENOSPC when no usable block is left.
int32_t read_block(const mtd_partition& partition, int fd, uint8_t* destination);

/// Erases, writes and verifies `source` (one erase block) in the first block at or after the current position
/// that is not bad and takes it in two attempts. `verify` is an erase block of room for reading it back.
/// Returns 0; -1 on failure (ENOSPC when no block is left); 1 when the current position cannot be learnt.
int32_t write_block(const mtd_partition& partition, int fd, const uint8_t* source, uint8_t* verify);

}  // namespace calib::mtd

#endif
