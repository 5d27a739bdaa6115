#include "common/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "common/log.h"
#include "common/uninterrupted.h"

namespace calib {

Descriptor::~Descriptor() {
  const KeepErrno keep;
  if (fd_ >= 0) close(fd_);
}

int open_for_reading(const char* path) {
  return uninterrupted([&] { return open(path, O_RDONLY | O_CLOEXEC); });
}

size_t read_up_to(int fd, void* buffer, size_t size) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  size_t done = 0;
  while (done < size) {
    const ssize_t moved = uninterrupted([&] { return read(fd, bytes + done, size - done); });
    if (moved <= 0) break;
    done += static_cast<size_t>(moved);
  }
  return done;
}

ssize_t read_file(const char* path, void* buffer, size_t size) {
  const Descriptor file(open_for_reading(path));
  return file.is_open() ? static_cast<ssize_t>(read_up_to(file.get(), buffer, size)) : -1;
}

int remove_file(const char* path) {
  return uninterrupted([&] { return remove(path); });
}

int create_replacement(const char* path) {
  remove_file(path);
  // Not through a link that another process may have put there since.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  return uninterrupted([&] { return open(path, kFlags, 0666); });
}

namespace {

constexpr mode_t kMode = 0644;

/// Returns whether all bytes were written.
bool write_whole(int fd, const void* data, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (size_t done = 0; done < size;) {
    const ssize_t moved = uninterrupted([&] { return write(fd, bytes + done, size - done); });
    if (moved <= 0) return false;
    done += static_cast<size_t>(moved);
  }
  return true;
}

void put_on_medium(int fd) {
  uninterrupted([&] { return fsync(fd); });
}

void set_mode(int fd) {
  uninterrupted([&] { return fchmod(fd, kMode); });
}

}  // namespace

void finish_marker(int fd, const void* data, size_t size) {
  write_whole(fd, data, size);
  put_on_medium(fd);
  set_mode(fd);
  close(fd);
}

void finish_cache(int fd, const void* data, size_t size, const char* path, const char* mode_path) {
  const bool is_whole = write_whole(fd, data, size);
  put_on_medium(fd);
  if (path == mode_path) set_mode(fd);
  close(fd);
  if (path != mode_path) uninterrupted([&] { return chmod(mode_path, kMode); });
  if (!is_whole) remove_file(path);
}

}  // namespace calib
