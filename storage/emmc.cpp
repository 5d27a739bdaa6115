// eMMC back end: finds the block device of a named partition and moves bytes of it.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/file.h"
#include "common/log.h"
#include "common/uninterrupted.h"
#include "storage/proc_emmc.h"

namespace {

constinit calib::LogModule log_module{"camera_calibration_emmc"};

int find_in_table(emmc_state* state, const char* name) {
  const calib::Descriptor file(calib::open_for_reading(calib::emmc::kTable));
  if (!file.is_open()) {
    state->path[0] = '\0';
    return FAIL("/proc/emmc: %s\n", strerror(errno));
  }
  calib::emmc::Table table(file.get());
  calib::emmc::TableEntry entry{};
  if (!table.find(name, &entry)) return -1;
  LOGD("found emmc partition [%s]=[%s]\n", entry.partition, entry.device);
  calib::emmc::set_device_path(state->path, entry.device);
  return 0;
}

int find_by_name(emmc_state* state, const char* name) {
  for (int i = 0; i <= calib::emmc::kLastController; ++i) {
    char folder[64];
    calib::emmc::set_by_name_folder(folder, i);
    if (calib::uninterrupted([&] { return access(folder, F_OK); }) != 0) continue;
    LOGD("emmc GPT partition exist, path[%s]\n", folder);

    char link[512];
    const int length = snprintf(link, sizeof link, "%s%s", folder, name);
    if (length >= static_cast<int>(sizeof link)) continue;
    char target[257] = {};
    const auto read_link = [&] { return readlink(link, target, sizeof target - 1); };
    if (calib::uninterrupted(read_link) <= 0) continue;
    LOGD("found emmc GPT partition [%s]=[%s]\n", name, target);
    snprintf(state->path, sizeof state->path, "%.255s", target);
    return 0;
  }
  LOGD("cannot find emmc GPT partition\n");
  return -1;
}

/// Whatever name was asked for.
void set_fixed_path(emmc_state* state, const char* name) {
  memset(state->path, 0, sizeof state->path);
  LOGE("emmc_open [TempTest] set (%s)\n", name);
  snprintf(state->path, sizeof state->path, "%s", calib::emmc::kFixedDevice);
  LOGE("emmc_open [TempTest] path [%s]\n", state->path);
}

void find_device(emmc_state* state, const char* name) {
  if (find_in_table(state, name) == 0) return;
  LOGE("emmc_open(): cannot find eMMC partition [%s]!\n", name);
  if (find_by_name(state, name) == 0) return;
  LOGE("emmc_open(): cannot find GPT eMMC partition [%s]!\n", name);
  set_fixed_path(state, name);
}

bool transfer_is_valid(const emmc_state* state, int64_t offset, int64_t length, const void* buffer) {
  return state != nullptr && offset >= 0 && length >= 1 && buffer != nullptr;
}

}  // namespace

int32_t emmc_open(emmc_state* state, const char* name) {
  if (state == nullptr || name == nullptr) return FAIL("emmc_open(): invalid argument!\n");

  find_device(state, name);
  const int fd = calib::uninterrupted([&] { return open(state->path, O_RDWR); });
  if (fd < 0) return FAIL("emmc_open(): %s: %s\n", state->path, strerror(errno));
  state->fd = fd;
  return 0;
}

int32_t emmc_read(emmc_state* state, int64_t offset, int64_t length, void* buffer) {
  if (!transfer_is_valid(state, offset, length, buffer)) return FAIL("emmc_read(): invalid argument!\n");

  if (lseek64(state->fd, offset, SEEK_SET) < 0) {
    return FAIL("emmc_read(): seek %s: %s\n", state->path, strerror(errno));
  }
  if (read(state->fd, buffer, static_cast<size_t>(length)) != length) {
    return FAIL("emmc_read(): read %s: %s\n", state->path, strerror(errno));
  }
  return 0;
}

int32_t emmc_write(emmc_state* state, int64_t offset, int64_t length, const void* buffer) {
  if (!transfer_is_valid(state, offset, length, buffer)) return FAIL("emmc_write(): invalid argument!\n");

  if (lseek64(state->fd, offset, SEEK_SET) < 0) {
    return FAIL("emmc_write(): seek %s: %s\n", state->path, strerror(errno));
  }
  if (write(state->fd, buffer, static_cast<size_t>(length)) != length) {
    return FAIL("emmc_write(): write %s: %s\n", state->path, strerror(errno));
  }
  return 0;
}

int32_t emmc_close(emmc_state* state) {
  if (state == nullptr) return FAIL("emmc_close(): invalid argument!\n");

  if (state->fd >= 0) close(state->fd);
  state->fd = -1;
  return 0;
}
