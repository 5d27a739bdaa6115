// Streams over a whole MTD partition: reads and writes of any length, moved block by block.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/uninterrupted.h"
#include "storage/mtd_blocks.h"
#include "storage/mtd_log.h"
#include "storage/proc_mtd.h"

// Both keep a copy of the partition record: a scan may change a table entry under an open stream, and the
// buffer has the size of the block that it was opened with.

struct mtd_read_context {
  mtd_partition partition;
  uint8_t* buffer;    // one erase block
  uint32_t consumed;  // bytes of the buffer already handed out; the erase size: it is empty
  int fd;
};

struct mtd_write_context {
  mtd_partition partition;
  uint8_t* buffer;  // one erase block
  uint32_t stored;  // bytes waiting in the buffer
  int fd;
};

namespace {

using calib::mtd::log_module;

/// Releases a context of either kind, keeping errno unless close() fails. Returns what that said.
template <class Context>
int release(Context* context) {
  const int closed = context->fd >= 0 ? close(context->fd) : 0;
  const calib::KeepErrno keep;
  free(context->buffer);
  free(context);
  return closed;
}

/// A context of either kind with its block buffer and its device open; null, with nothing left over, when one
/// of them cannot be had.
template <class Context>
Context* open_context(const mtd_partition* partition, int flags) {
  if (partition == nullptr) return nullptr;
  auto* context = static_cast<Context*>(calib::mtd::allocate_zeroed(sizeof(Context)));
  if (context == nullptr) return nullptr;
  context->partition = *partition;
  context->fd = -1;
  context->buffer = static_cast<uint8_t*>(calib::mtd::allocate_zeroed(partition->erase_size));
  if (context->buffer != nullptr) {
    char path[256];
    calib::mtd::set_device_path(path, partition->index);
    context->fd = calib::uninterrupted([&] { return open(path, flags); });
    if (context->fd >= 0) return context;
  }
  release(context);
  return nullptr;
}

int32_t write_stream_block(const mtd_write_context& context, const uint8_t* source, uint8_t* verify) {
  return calib::mtd::write_block(context.partition, context.fd, source, verify) == 0 ? 0 : -1;
}

/// Writes what waits in the buffer, with zeros behind it up to the end of the block.
int32_t flush(mtd_write_context* context) {
  if (context->stored == 0) return 0;
  const uint32_t block_size = context->partition.erase_size;
  const calib::mtd::HeapBlock verify(block_size);
  if (verify.is_null()) return -1;
  memset(context->buffer + context->stored, 0, block_size - context->stored);
  if (write_stream_block(*context, context->buffer, verify.get()) != 0) return -1;
  context->stored = 0;
  return 0;
}

/// Takes bytes into the buffer where they cannot be written as a whole block. Returns how many.
int64_t store(mtd_write_context* context, const uint8_t* source, int64_t length) {
  const uint32_t block_size = context->partition.erase_size;
  if (context->stored == 0 && length >= block_size) return 0;
  const int64_t count = std::min<int64_t>(length, block_size - context->stored);
  memcpy(context->buffer + context->stored, source, static_cast<size_t>(count));
  context->stored += static_cast<uint32_t>(count);
  return count;
}

int32_t write_all(mtd_write_context* context, const uint8_t* source, int64_t length, uint8_t* verify) {
  const uint32_t block_size = context->partition.erase_size;
  for (int64_t done = 0; done < length;) {
    done += store(context, source + done, length - done);
    if (context->stored == block_size) {
      if (write_stream_block(*context, context->buffer, verify) != 0) return -1;
      context->stored = 0;
    }
    for (; context->stored == 0 && length - done >= block_size; done += block_size) {
      if (write_stream_block(*context, source + done, verify) != 0) return -1;
    }
  }
  return 0;
}

/// The erase blocks from `position` to the end of the partition.
int64_t blocks_from(const mtd_partition& partition, int64_t position) {
  if (partition.erase_size == 0 || position > partition.size) return 0;
  return (partition.size - position) / partition.erase_size;
}

void erase_unless_bad(int fd, int64_t position, uint32_t length) {
  const auto at = static_cast<unsigned long>(position);
  if (calib::mtd::ask_bad_block(fd, position).state() == calib::mtd::BlockState::bad) {
    LOGE("mtd: not erasing bad block at 0x%08lx\n", at);
  } else if (!calib::mtd::erase_block(fd, position, length)) {
    REPORT("mtd: erase failure at 0x%08lx\n", at);
  }
}

}  // namespace

mtd_read_context* mtd_read_partition(const mtd_partition* partition) {
  auto* context = open_context<mtd_read_context>(partition, O_RDONLY);
  if (context != nullptr) context->consumed = partition->erase_size;
  return context;
}

int64_t mtd_read_data(mtd_read_context* context, void* data, int64_t length) {
  if (context == nullptr || data == nullptr || length < 0) return -1;

  const mtd_partition& partition = context->partition;
  auto* bytes = static_cast<uint8_t*>(data);
  for (int64_t done = 0; done < length;) {
    const int64_t count = std::min<int64_t>(length - done, partition.erase_size - context->consumed);
    memcpy(bytes + done, context->buffer + context->consumed, static_cast<size_t>(count));
    context->consumed += static_cast<uint32_t>(count);
    done += count;
    for (; context->consumed == partition.erase_size && length - done >= partition.erase_size;
         done += partition.erase_size) {
      if (calib::mtd::read_block(partition, context->fd, bytes + done) != 0) return -1;
    }
    if (done == length || context->consumed < partition.erase_size) continue;
    if (calib::mtd::read_block(partition, context->fd, context->buffer) != 0) return -1;
    context->consumed = 0;
  }
  return length;
}

void mtd_read_close(mtd_read_context* context) {
  if (context != nullptr) release(context);
}

mtd_write_context* mtd_write_partition(const mtd_partition* partition) {
  return open_context<mtd_write_context>(partition, O_RDWR);
}

int64_t mtd_write_data(mtd_write_context* context, const void* data, int64_t length) {
  if (context == nullptr || data == nullptr || length < 0) return -1;

  const calib::mtd::HeapBlock verify(context->partition.erase_size);
  if (verify.is_null()) return -1;
  return write_all(context, static_cast<const uint8_t*>(data), length, verify.get()) == 0 ? length : -1;
}

int64_t mtd_erase_blocks(mtd_write_context* context, int32_t blocks) {
  if (context == nullptr || flush(context) != 0) return -1;

  int64_t position = calib::mtd::seek(context->fd, 0, SEEK_CUR);
  if (position < 0) return -1;
  const mtd_partition& partition = context->partition;
  const int64_t available = blocks_from(partition, position);
  if (blocks > available) {
    errno = ENOSPC;
    return -1;
  }
  for (int64_t left = blocks < 0 ? available : blocks; left > 0; --left) {
    erase_unless_bad(context->fd, position, partition.erase_size);
    position += partition.erase_size;
  }
  return position;
}

int32_t mtd_write_close(mtd_write_context* context) {
  if (context == nullptr) return -1;

  if (mtd_erase_blocks(context, 0) >= 0) return release(context) == 0 ? 0 : -1;
  const calib::KeepErrno keep;
  release(context);
  return -1;
}
