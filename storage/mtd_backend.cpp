// MTD back end: byte ranges of a named raw NAND partition, counted over its usable blocks.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/uninterrupted.h"
#include "storage/mtd_blocks.h"
#include "storage/mtd_log.h"
#include "storage/proc_mtd.h"

namespace {

using calib::mtd::HeapBlock;
using calib::mtd::log_module;

bool transfer_is_valid(const mtd_partition* state, int64_t offset, int64_t length, const void* buffer) {
  return state != nullptr && offset >= 0 && length >= 1 && buffer != nullptr;
}

int32_t find_partition(mtd_partition* state, const char* name) {
  state->path[0] = '\0';
  char text[calib::mtd::kBackEndWindow] = {};
  if (calib::mtd::read_proc_mtd(text, sizeof text) < 0) return -1;
  calib::mtd::ProcMtdEntry entry{};
  if (!calib::mtd::find_entry(text, name, &entry)) return -1;
  state->index = entry.number;
  state->size = entry.size;
  state->erase_size = entry.erase_size;
  calib::mtd::set_device_path(state->path, entry.number);
  return 0;
}

/// Walks over the logical blocks before the one that holds `*offset`, and leaves in it the offset within
/// that.
int32_t walk_to(const mtd_partition& state, int64_t* offset, uint8_t* scratch) {
  for (; *offset >= state.erase_size; *offset -= state.erase_size) {
    if (calib::mtd::read_block(state, state.fd, scratch) != 0) return -1;
  }
  return 0;
}

/// How many of `length` bytes lie in the block that the transfer starts inside of; 0 when it starts at a
/// block's first byte.
int64_t head_bytes(const mtd_partition& state, int64_t offset, int64_t length) {
  return offset == 0 ? 0 : std::min(state.erase_size - offset, length);
}

int32_t read_range(const mtd_partition& state, int64_t offset, int64_t length, uint8_t* bytes,
                   uint8_t* scratch) {
  if (walk_to(state, &offset, scratch) != 0) return -1;
  int64_t done = head_bytes(state, offset, length);
  if (done > 0) {
    if (calib::mtd::read_block(state, state.fd, scratch) != 0) return -1;
    memcpy(bytes, scratch + offset, static_cast<size_t>(done));
  }
  for (; length - done >= state.erase_size; done += state.erase_size) {
    if (calib::mtd::read_block(state, state.fd, bytes + done) != 0) return -1;
  }
  if (done < length) {
    if (calib::mtd::read_block(state, state.fd, scratch) != 0) return -1;
    memcpy(bytes + done, scratch, static_cast<size_t>(length - done));
  }
  return 0;
}

int32_t write_seek_failed() {
  return FAIL("mtd_write(): lseek64(): %s\n", strerror(errno));
}

/// Where a write works: the block that is read, changed and written back, and room for the verify.
struct WriteBlocks {
  uint8_t* scratch;
  uint8_t* verify;
};

/// Changes `count` bytes at `offset` in the block that a careful read finds at the current position. The
/// write starts at that position again: where the read had to pass over a block that is not bad, the merged
/// block lands in front of the one that it came from.
int32_t merge_block(const mtd_partition& state, int64_t offset, int64_t count, const uint8_t* bytes,
                    const WriteBlocks& blocks) {
  const int64_t position = calib::mtd::seek(state.fd, 0, SEEK_CUR);
  if (position < 0) return write_seek_failed();
  if (calib::mtd::read_block(state, state.fd, blocks.scratch) != 0) return -1;
  if (calib::mtd::seek(state.fd, position, SEEK_SET) != position) return write_seek_failed();
  memcpy(blocks.scratch + offset, bytes, static_cast<size_t>(count));
  return calib::mtd::write_block(state, state.fd, blocks.scratch, blocks.verify) == 0 ? 0 : -1;
}

int32_t write_range(const mtd_partition& state, int64_t offset, int64_t length, const uint8_t* bytes,
                    const WriteBlocks& blocks) {
  if (walk_to(state, &offset, blocks.scratch) != 0) return -1;
  int64_t done = head_bytes(state, offset, length);
  if (done > 0 && merge_block(state, offset, done, bytes, blocks) != 0) return -1;
  for (; length - done >= state.erase_size; done += state.erase_size) {
    if (calib::mtd::write_block(state, state.fd, bytes + done, blocks.verify) != 0) return -1;
  }
  return done < length ? merge_block(state, 0, length - done, bytes + done, blocks) : 0;
}

}  // namespace

int32_t mtd_open(mtd_partition* state, const char* name) {
  if (state == nullptr || name == nullptr) return FAIL("mtd_open(): invalid argument!\n");

  if (find_partition(state, name) != 0) return FAIL("mtd_open(): cannot find MTD partition [%s]!\n", name);
  state->fd = calib::uninterrupted([&] { return open(state->path, O_RDWR); });
  if (state->fd < 0) return FAIL("mtd_open(): %s: %s\n", state->path, strerror(errno));
  return 0;
}

int32_t mtd_read(mtd_partition* state, int64_t offset, int64_t length, void* buffer) {
  if (!transfer_is_valid(state, offset, length, buffer)) return FAIL("mtd_read(): invalid argument!\n");
  if (state->erase_size == 0) return -1;

  if (calib::mtd::seek(state->fd, 0, SEEK_SET) != 0)
    return FAIL("mtd_read(): lseek64(): %s\n", strerror(errno));
  const HeapBlock scratch(state->erase_size);
  if (scratch.is_null()) return FAIL("mtd_read(): malloc failed!\n");
  return read_range(*state, offset, length, static_cast<uint8_t*>(buffer), scratch.get());
}

int32_t mtd_write(mtd_partition* state, int64_t offset, int64_t length, const void* buffer) {
  if (!transfer_is_valid(state, offset, length, buffer)) return FAIL("mtd_write(): invalid argument!\n");
  if (state->erase_size == 0) return -1;

  if (calib::mtd::seek(state->fd, 0, SEEK_SET) != 0) return write_seek_failed();
  // Both before anything is erased: a block that could not be verified must not lose what it holds.
  const HeapBlock scratch(state->erase_size);
  const HeapBlock verify(state->erase_size);
  if (scratch.is_null() || verify.is_null()) return FAIL("mtd_write(): malloc failed!\n");
  return write_range(*state, offset, length, static_cast<const uint8_t*>(buffer),
                     {scratch.get(), verify.get()});
}

int32_t mtd_close(mtd_partition* state) {
  if (state == nullptr) return FAIL("mtd_close(): invalid argument!\n");

  if (state->fd >= 0) close(state->fd);
  state->fd = -1;
  return 0;
}
