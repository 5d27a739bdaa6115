// Partition front end: eMMC first, MTD when that fails.

#include <cstdlib>

#include "awb_calibration/storage.h"
#include "common/log.h"

namespace {

constinit calib::LogModule log_module{"camera_calibration_partition"};

/// A new back-end state that `open` filled for `name`, or null.
template <class State>
State* open_back_end(int32_t (*open)(State*, const char*), const char* name) {
  auto* state = static_cast<State*>(calloc(1, sizeof(State)));
  if (state != nullptr && open(state, name) < 0) {
    free(state);
    state = nullptr;
  }
  return state;
}

bool transfer_is_valid(const partition_handle* handle, int64_t offset, int64_t length, const void* buffer) {
  return handle != nullptr && offset >= 0 && length >= 1 && buffer != nullptr;
}

}  // namespace

int32_t partition_open(partition_handle* handle, const char* name) {
  if (handle == nullptr || name == nullptr) return FAIL("partition_open(): invalid argument!\n");

  handle->emmc = open_back_end(emmc_open, name);
  if (handle->emmc != nullptr) return 0;
  handle->mtd = open_back_end(mtd_open, name);
  if (handle->mtd != nullptr) return 0;
  return FAIL("partition_open(): cannot find partition [%s]!\n", name);
}

int32_t partition_read(partition_handle* handle, int64_t offset, int64_t length, void* buffer) {
  if (!transfer_is_valid(handle, offset, length, buffer)) {
    return FAIL("partition_read(): invalid argument!\n");
  }
  if (handle->emmc != nullptr) {
    LOGD("use emmc_read(), path = %s\n", handle->emmc->path);
    return emmc_read(handle->emmc, offset, length, buffer);
  }
  if (handle->mtd != nullptr) {
    LOGD("use mtd_read(), path = %s\n", handle->mtd->path);
    return mtd_read(handle->mtd, offset, length, buffer);
  }
  return -1;
}

int32_t partition_write(partition_handle* handle, int64_t offset, int64_t length, const void* buffer) {
  if (!transfer_is_valid(handle, offset, length, buffer)) {
    return FAIL("partition_write(): invalid argument!\n");
  }
  if (handle->emmc != nullptr) {
    LOGD("use emmc_write(), path = %s\n", handle->emmc->path);
    return emmc_write(handle->emmc, offset, length, buffer);
  }
  if (handle->mtd != nullptr) {
    LOGD("use mtd_write(), path = %s\n", handle->mtd->path);
    return mtd_write(handle->mtd, offset, length, buffer);
  }
  return -1;
}

int32_t partition_close(partition_handle* handle) {
  if (handle == nullptr) return FAIL("partition_close(): invalid argument!\n");

  int32_t result = -1;
  if (handle->emmc != nullptr) {
    LOGE("partition_close(): emmc_close\n");  // At error level, so that every close shows.
    result = emmc_close(handle->emmc);
    free(handle->emmc);
  } else if (handle->mtd != nullptr) {
    result = mtd_close(handle->mtd);
    free(handle->mtd);
  }
  // After an eMMC open `mtd` holds what the caller left there: it is dropped, never looked at.
  handle->emmc = nullptr;
  handle->mtd = nullptr;
  return result;
}
