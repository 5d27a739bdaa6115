#include "common/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "common/log.h"

namespace calib {

Descriptor::~Descriptor() {
  const KeepErrno keep;
  if (fd_ >= 0) close(fd_);
}

int open_for_reading(const char* path) {
  return open(path, O_RDONLY | O_CLOEXEC);
}

size_t read_up_to(int fd, void* buffer, size_t size) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  size_t done = 0;
  while (done < size) {
    const ssize_t moved = read(fd, bytes + done, size - done);
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) break;
    done += static_cast<size_t>(moved);
  }
  return done;
}

ssize_t read_file(const char* path, void* buffer, size_t size) {
  const Descriptor file(open_for_reading(path));
  return file.is_open() ? static_cast<ssize_t>(read_up_to(file.get(), buffer, size)) : -1;
}

int create_replacement(const char* path) {
  remove(path);
  // Not through a link that another process may have put there since.
  return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
}

namespace {

constexpr mode_t kMode = 0644;

/// Returns whether all bytes were written.
bool write_whole(int fd, const void* data, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (size_t done = 0; done < size;) {
    const ssize_t moved = write(fd, bytes + done, size - done);
    if (moved < 0 && errno == EINTR) continue;
    if (moved <= 0) return false;
    done += static_cast<size_t>(moved);
  }
  return true;
}

}  // namespace

void finish_marker(int fd, const void* data, size_t size) {
  write_whole(fd, data, size);
  fsync(fd);
  fchmod(fd, kMode);
  close(fd);
}

void finish_cache(int fd, const void* data, size_t size, const char* path, const char* mode_path) {
  const bool is_whole = write_whole(fd, data, size);
  fsync(fd);
  if (path == mode_path) fchmod(fd, kMode);
  close(fd);
  if (path != mode_path) chmod(mode_path, kMode);
  if (!is_whole) remove(path);
}

}  // namespace calib
