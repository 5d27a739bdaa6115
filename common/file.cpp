#include "common/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
  return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

void finish_replacement(int fd, const void* data, size_t size, const char* mode_path) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (size_t done = 0; done < size;) {
    const ssize_t moved = write(fd, bytes + done, size - done);
    if (moved <= 0) break;
    done += static_cast<size_t>(moved);
  }
  close(fd);
  chmod(mode_path, 0644);
}

}  // namespace calib
