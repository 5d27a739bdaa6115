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

/// Reads until `size` bytes are there, the file ends or a read fails other than by a signal. Returns the bytes
/// read: a failed read counts as the end of the file, as stdio's item count does.
size_t read_up_to(int fd, void* buffer, size_t size);

/// Opens `path`, reads up to `size` bytes and closes it. Returns the bytes read, or -1 if it does not open.
ssize_t read_file(const char* path, void* buffer, size_t size);

/// As remove(3), whose result it gives.
int remove_file(const char* path);

/// First half of replacing a file: removes it and creates it empty. Returns the descriptor, or -1.
[[nodiscard]] int create_replacement(const char* path);

/// Second half for a file that tells by being there: writes `size` bytes, sets the mode 0644 whatever the umask
/// says, and closes `fd`. The bytes are on the medium first. What cannot be written is lost without a word.
void finish_marker(int fd, const void* data, size_t size);

/// Second half for the cache file `path` of a record: the same, but what cannot be written whole is removed again.
/// The record then comes from the kernel's export, which is good, where part of it would stand in the way.
/// `mode_path` is the file that gets the mode: `path` itself for all but the sub camera's flash writers.
void finish_cache(int fd, const void* data, size_t size, const char* path, const char* mode_path);
inline void finish_cache(int fd, const void* data, size_t size, const char* path) {
  finish_cache(fd, data, size, path, path);
}

}  // namespace calib

#endif
