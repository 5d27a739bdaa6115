// Whole partitions, or their first block, by name: a handle with a buffer over the streams.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "awb_calibration/storage.h"
#include "storage/mtd_blocks.h"
#include "storage/mtd_log.h"
#include "storage/mtd_partitions.h"

namespace {

using calib::mtd::log_module;

/// A record that the caller made, rather than the table, may have no name.
const char* name_of(const mtd_partition& partition) {
  return partition.name != nullptr ? partition.name : "";
}

int32_t cannot_open(const mtd_partition& partition) {
  return FAIL("Can't open %s\n(%s)\n", name_of(partition), strerror(errno));
}

/// What a call moves: the calls differ in this, and in one letter of a line.
enum class Extent { partition, block };

uint32_t bytes_of(Extent extent, const mtd_partition& partition) {
  return extent == Extent::partition ? partition.size : partition.erase_size;
}

void log_short_read(Extent extent, int64_t result) {
  if (extent == Extent::partition) {
    REPORT("mtd_read_data returns %d, errno = %s", static_cast<int>(result), strerror(errno));
  } else {
    REPORT("mtd_read_data returns %u, errno = %s", static_cast<unsigned>(result), strerror(errno));
  }
}

void log_short_write(Extent extent, int64_t result) {
  if (extent == Extent::partition) {
    REPORT("mtd_write_data returns %d, errno = %s", static_cast<int>(result), strerror(errno));
  } else {
    REPORT("mtd_write_data returns %u, errno = %s", static_cast<unsigned>(result), strerror(errno));
  }
}

/// Reads into a new buffer of the handle, which has room for either extent: the handle does not say which one
/// was read, and a later write may want the other. A read that ends early is logged, not refused; the rest of
/// the buffer is zeros or what a rejected block held.
int32_t read_extent(mtd_data_handle* handle, Extent extent) {
  const mtd_partition& partition = *handle->partition;
  const uint32_t amount = bytes_of(extent, partition);
  mtd_read_context* context = mtd_read_partition(&partition);
  if (context == nullptr) return cannot_open(partition);
  free(handle->data);
  handle->data = calib::mtd::allocate_zeroed(std::max(partition.size, partition.erase_size));
  if (handle->data == nullptr) {
    const calib::KeepErrno keep;
    mtd_read_close(context);
    return FAIL("cannot malloc %d bytes", static_cast<int>(amount));
  }
  const int64_t result = mtd_read_data(context, handle->data, amount);
  // Against the partition's size for a single block as well: that line then shows on every larger partition.
  if (result != partition.size) log_short_read(extent, result);
  mtd_read_close(context);
  return 0;
}

int32_t write_extent(const mtd_data_handle& handle, Extent extent) {
  const mtd_partition& partition = *handle.partition;
  const uint32_t amount = bytes_of(extent, partition);
  mtd_write_context* context = mtd_write_partition(&partition);
  if (context == nullptr) return cannot_open(partition);
  LOGD("trying to write length %d", static_cast<int>(amount));
  const int64_t result = mtd_write_data(context, handle.data, amount);
  if (result < int64_t{amount}) {
    log_short_write(extent, result);
    const calib::KeepErrno keep;
    mtd_write_close(context);
    return -1;
  }
  if (mtd_write_close(context) != 0) {
    return FAIL("Can't finish writing %s\n(%s)\n", name_of(partition), strerror(errno));
  }
  return 0;
}

bool can_read(const mtd_data_handle* handle) {
  return handle != nullptr && handle->partition != nullptr;
}

bool can_write(const mtd_data_handle* handle) {
  return can_read(handle) && handle->data != nullptr;
}

}  // namespace

int32_t mtd_data_open(mtd_data_handle* handle, const char* name) {
  if (handle == nullptr || name == nullptr) return -1;

  handle->data = nullptr;
  handle->partition = mtd_find_partition_by_name(name);
  if (handle->partition == nullptr) return FAIL("cannot find partition [%s]!", name);
  return 0;
}

int32_t mtd_data_close(mtd_data_handle* handle) {
  if (handle == nullptr || handle->data == nullptr) return 0;

  free(handle->data);
  handle->data = nullptr;
  calib::mtd::drop_partition_table();
  return 0;
}

int32_t mtd_data_read(mtd_data_handle* handle) {
  return can_read(handle) ? read_extent(handle, Extent::partition) : -1;
}

int32_t mtd_data_read_block(mtd_data_handle* handle) {
  return can_read(handle) ? read_extent(handle, Extent::block) : -1;
}

int32_t mtd_data_write(mtd_data_handle* handle) {
  return can_write(handle) ? write_extent(*handle, Extent::partition) : -1;
}

int32_t mtd_data_write_block(mtd_data_handle* handle) {
  // Nothing is no block.
  return can_write(handle) && handle->partition->erase_size > 0 ? write_extent(*handle, Extent::block) : -1;
}
