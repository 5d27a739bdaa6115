#include "phone/devices/block_device.h"

#include <linux/fs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "phone/calls/real.h"

namespace phone {
namespace {

constexpr int kSectorSize = 512;

template <typename Value>
int answer(void* argument, Value value) {
  std::memcpy(argument, &value, sizeof value);
  return 0;
}

}  // namespace

off_t device_size(int fd) {
  struct stat status = {};
  return real::fstat(fd, &status) == 0 ? status.st_size : 0;
}

ssize_t block_device_write(int fd, const void* buffer, size_t size, const off_t* offset) {
  const off_t at = offset != nullptr ? *offset : real::lseek(fd, 0, SEEK_CUR);
  const off_t room = std::max<off_t>(device_size(fd) - at, 0);
  const size_t fits = std::min(size, static_cast<size_t>(room));
  // Also with nothing to write: a descriptor that is not open for writing is refused first.
  const ssize_t written = real::pwrite(fd, buffer, fits, at);
  if (written == 0 && size > 0) {
    errno = ENOSPC;
    return -1;
  }
  if (written > 0 && offset == nullptr) real::lseek(fd, at + written, SEEK_SET);
  return written;
}

off_t seek_within(int fd, off_t offset, int whence, off_t size) {
  off_t from = 0;
  if (whence == SEEK_CUR) from = real::lseek(fd, 0, SEEK_CUR);
  if (whence == SEEK_END) from = size;
  off_t to = 0;
  const bool known = whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END;
  if (!known || __builtin_add_overflow(from, offset, &to) || to < 0 || to > size) {
    errno = EINVAL;
    return -1;
  }
  return real::lseek(fd, to, SEEK_SET);
}

int block_device_ioctl(int fd, unsigned long request, void* argument) {
  const auto size = static_cast<uint64_t>(device_size(fd));
  switch (request) {
    case BLKGETSIZE64:
      return answer(argument, size);
    case BLKGETSIZE:
      return answer(argument, static_cast<unsigned long>(size / kSectorSize));
    case BLKSSZGET:
      return answer(argument, kSectorSize);
    case BLKFLSBUF:
      return 0;
    default:
      errno = ENOTTY;
      return -1;
  }
}

void show_as_device(struct stat& status, mode_t type, unsigned major, unsigned minor) {
  status.st_mode = (status.st_mode & ~static_cast<mode_t>(S_IFMT)) | type;
  status.st_rdev = makedev(major, minor);
  status.st_size = 0;
}

}  // namespace phone
