// Small files: reading one into a buffer, replacing one under /data/misc/camera.
#ifndef COMMON_FILE_H
#define COMMON_FILE_H

#include <sys/types.h>

#include <cstddef>

namespace calib {

/// Closes its descriptor at the end of the scope, keeping errno.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor();

  bool is_open() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_;
};

/// Opens a file for reading; -1 and errno if that fails.
int open_for_reading(const char* path);

/// Reads until `size` bytes are there, the file ends or a read fails. Returns the bytes read: a failed read
/// counts as the end of the file, as stdio's item count does.
size_t read_up_to(int fd, void* buffer, size_t size);

/// Opens `path`, reads up to `size` bytes and closes it. Returns the bytes read, or -1 if it does not open.
ssize_t read_file(const char* path, void* buffer, size_t size);

/// First half of replacing a file: removes it and creates it empty. Returns the descriptor, or -1.
[[nodiscard]] int create_replacement(const char* path);

/// Second half: writes `size` bytes, closes `fd` and gives `mode_path` the mode 0644 whatever the umask says.
/// What cannot be written is lost without a word: the partition, not this copy, is what counts.
void finish_replacement(int fd, const void* data, size_t size, const char* mode_path);

}  // namespace calib

#endif
