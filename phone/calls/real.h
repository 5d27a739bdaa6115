// The C library's own functions, below the interposed ones.
#ifndef PHONE_CALLS_REAL_H
#define PHONE_CALLS_REAL_H

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace phone {

template <typename Function>
Function* next_definition(const char* name) {
  void* found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) abort();
  return reinterpret_cast<Function*>(found);
}

namespace real {

inline ssize_t readlink(const char* path, char* buffer, size_t size) {
  static const auto next = next_definition<ssize_t(const char*, char*, size_t)>("readlink");
  return next(path, buffer, size);
}

inline int open(const char* path, int flags, mode_t mode) {
  static const auto next = next_definition<int(const char*, int, ...)>("open");
  return next(path, flags, mode);
}

inline off_t lseek(int fd, off_t offset, int whence) {
  static const auto next = next_definition<off_t(int, off_t, int)>("lseek");
  return next(fd, offset, whence);
}

inline int fstat(int fd, struct stat* status) {
  static const auto next = next_definition<int(int, struct stat*)>("fstat");
  return next(fd, status);
}

inline int fcntl(int fd, int command, void* argument = nullptr) {
  static const auto next = next_definition<int(int, int, ...)>("fcntl");
  return next(fd, command, argument);
}

inline ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
  static const auto next = next_definition<ssize_t(int, const void*, size_t, off_t)>("pwrite");
  return next(fd, buffer, size, offset);
}

}  // namespace real

/// A caller sees errno change only where the real call changes it, so bookkeeping puts it back.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int saved_;
};

}  // namespace phone

#endif
