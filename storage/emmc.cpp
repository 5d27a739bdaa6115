// eMMC back end: finds the block device of a named partition and moves bytes of it.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "awb_calibration/storage.h"
#include "common/file.h"
#include "common/log.h"

namespace {

constinit calib::LogModule log_module{"camera_calibration_emmc"};

constexpr int kLastGptIndex = 10;

/// Hands out the text of a file as fgets() does with a 255-byte buffer: up to a line end or 254 characters.
class LinePieces {
 public:
  explicit LinePieces(int fd) : fd_(fd) {}

  /// The next piece, NUL-terminated, valid until the next call; null at the end of the file.
  char* next() {
    size_t length = 0;
    while (length < sizeof piece_ - 1) {
      if (at_ == filled_ && !refill()) break;
      piece_[length++] = text_[at_++];
      if (piece_[length - 1] == '\n') break;
    }
    piece_[length] = '\0';
    return length > 0 ? piece_ : nullptr;
  }

 private:
  bool refill() {
    at_ = 0;
    filled_ = calib::read_up_to(fd_, text_, sizeof text_);
    return filled_ > 0;
  }

  int fd_;
  size_t at_ = 0;
  size_t filled_ = 0;
  char text_[512] = {};
  char piece_[255] = {};
};

struct EmmcEntry {
  const char* device;
  const char* partition;
};

/// Takes `device: size erasesize "partition"` apart in place; null members for a line of another form. A name
/// without its closing quote runs to the end of the piece, line end included.
EmmcEntry parse_entry(char* line) {
  char* colon = strchr(line, ':');
  if (colon == nullptr) return {};
  *colon = '\0';
  char* name = strchr(colon + 1, '"');
  if (name == nullptr) return {};
  char* closing = strchr(++name, '"');
  if (closing == nullptr) return {};
  *closing = '\0';
  return {line, name};
}

int find_in_proc_emmc(emmc_state* state, const char* name) {
  const calib::Descriptor file(calib::open_for_reading("/proc/emmc"));
  if (!file.is_open()) {
    state->path[0] = '\0';
    return FAIL("/proc/emmc: %s\n", strerror(errno));
  }
  LinePieces pieces(file.get());
  while (char* line = pieces.next()) {
    const EmmcEntry entry = parse_entry(line);
    if (entry.partition == nullptr || strcmp(entry.partition, name) != 0) continue;
    LOGD("found emmc partition [%s]=[%s]\n", entry.partition, entry.device);
    snprintf(state->path, sizeof state->path, "/dev/block/%.244s", entry.device);
    return 0;
  }
  return -1;
}

int find_by_gpt_name(emmc_state* state, const char* name) {
  for (int i = 0; i <= kLastGptIndex; ++i) {
    char directory[64];
    snprintf(directory, sizeof directory, "/dev/block/platform/msm_sdcc.%d/by-name/", i);
    if (access(directory, F_OK) != 0) continue;
    LOGD("emmc GPT partition exist, path[%s]\n", directory);

    char link[512];
    const int length = snprintf(link, sizeof link, "%s%s", directory, name);
    if (length >= static_cast<int>(sizeof link)) continue;
    char target[257] = {};
    if (readlink(link, target, sizeof target - 1) <= 0) continue;
    LOGD("found emmc GPT partition [%s]=[%s]\n", name, target);
    snprintf(state->path, sizeof state->path, "%.255s", target);
    return 0;
  }
  LOGD("cannot find emmc GPT partition\n");
  return -1;
}

/// The calibration partition's place on phones that list it nowhere: partition 6, whatever name was asked
/// for.
void set_fixed_path(emmc_state* state, const char* name) {
  memset(state->path, 0, sizeof state->path);
  LOGE("emmc_open [TempTest] set (%s)\n", name);
  snprintf(state->path, sizeof state->path, "/dev/block/mmcblk0p%d", 6);
  LOGE("emmc_open [TempTest] path [%s]\n", state->path);
}

void find_device(emmc_state* state, const char* name) {
  if (find_in_proc_emmc(state, name) == 0) return;
  LOGE("emmc_open(): cannot find eMMC partition [%s]!\n", name);
  if (find_by_gpt_name(state, name) == 0) return;
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
  const int fd = open(state->path, O_RDWR);
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
