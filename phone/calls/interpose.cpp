// The C library's calls on paths and descriptors. Every one of them passes through unless it is about the
// phone.
#include "phone/calls/interpose.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "phone/devices/block_device.h"

namespace phone {
namespace {

bool under(const std::string& path, std::string_view dir) {
  return path.starts_with(dir);
}

constexpr unsigned kMmcMajor = 179;
constexpr unsigned kMtdMajor = 90;

void show_node(const std::string& path, struct stat& status) {
  if (!S_ISREG(status.st_mode)) return;
  if (under(path, "/dev/block/")) show_as_device(status, S_IFBLK, kMmcMajor, 0);
  if (under(path, "/dev/mtd/")) show_as_device(status, S_IFCHR, kMtdMajor, 0);
}

void show_node_extended(const std::string& path, struct statx& extended) {
  struct stat status = {};
  status.st_mode = extended.stx_mode;
  status.st_size = static_cast<off_t>(extended.stx_size);
  show_node(path, status);
  extended.stx_mode = static_cast<decltype(extended.stx_mode)>(status.st_mode);
  extended.stx_size = static_cast<decltype(extended.stx_size)>(status.st_size);
  extended.stx_rdev_major = major(status.st_rdev);
  extended.stx_rdev_minor = minor(status.st_rdev);
}

int opened(int fd, const std::string* phone_path) {
  if (fd >= 0 && phone_path != nullptr) {
    const ErrnoKeeper keeper;
    track(fd, opened_node(fd, *phone_path));
  }
  return fd;
}

Links links_for(int open_flags) {
  const bool exclusive = (open_flags & O_CREAT) != 0 && (open_flags & O_EXCL) != 0;
  return exclusive || (open_flags & O_NOFOLLOW) != 0 ? Links::keep_last : Links::follow;
}

Links links_unless(int flags, int no_follow) {
  return (flags & no_follow) != 0 ? Links::keep_last : Links::follow;
}

}  // namespace

bool is_device_path(const std::string& path) {
  return under(path, "/dev/block/") || under(path, "/dev/mtd/");
}

const Node* opened_node(int fd, const std::string& phone_path) {
  struct stat status = {};
  const bool device = real::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  if (device && under(phone_path, "/dev/block/")) return node_for(phone_path, NodeKind::block_device);
  if (device && is_nand_path(phone_path)) return node_for(phone_path, NodeKind::nand);
  return node_for(phone_path, NodeKind::file);
}

int flags_for(const std::string& phone_path, int flags) {
  return is_device_path(phone_path) ? flags & ~(O_TRUNC | O_APPEND) : flags;
}

}  // namespace phone

using phone::fail;
using phone::Links;
using phone::links_unless;
using phone::Node;
using phone::node_of;
using phone::NodeKind;
using phone::on_descriptor;
using phone::on_path;

// ---- opening and closing ----------------------------------------------------------------------------------

INTERPOSE(int, openat, (int dir, const char* path, int flags, ...)) {
  va_list arguments;
  va_start(arguments, flags);
  const bool creates = (flags & (O_CREAT | O_TMPFILE)) != 0;
  const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return on_path("open", path, phone::links_for(flags), [&](const char* at, const std::string* phone_path) {
    const int how = phone_path != nullptr ? phone::flags_for(*phone_path, flags) : flags;
    return phone::opened(NEXT(openat)(dir, at, how, mode), phone_path);
  });
}
INTERPOSE_ALIAS(openat64, openat);

INTERPOSE(int, open, (const char* path, int flags, ...)) {
  va_list arguments;
  va_start(arguments, flags);
  const bool creates = (flags & (O_CREAT | O_TMPFILE)) != 0;
  const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return interposed_openat(AT_FDCWD, path, flags, mode);
}
INTERPOSE_ALIAS(open64, open);

INTERPOSE(int, __open_2, (const char* path, int flags)) {
  return interposed_open(path, flags);
}
INTERPOSE_ALIAS(__open64_2, __open_2);

INTERPOSE(int, __openat_2, (int dir, const char* path, int flags)) {
  return interposed_openat(dir, path, flags);
}
INTERPOSE_ALIAS(__openat64_2, __openat_2);

INTERPOSE(int, creat, (const char* path, mode_t mode)) {
  return interposed_open(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
INTERPOSE_ALIAS(creat64, creat);

// As on Linux, the descriptor is gone also when close() reports an error.
INTERPOSE(int, close, (int fd)) {
  const Node* node = node_of(fd);
  if (node == nullptr) return NEXT(close)(fd);
  const int error = phone::decide([&] { return phone::effect_on_file_call("close", node->path).error; });
  phone::track(fd, nullptr);
  const int result = NEXT(close)(fd);
  return error != 0 ? fail<int>(error) : result;
}

INTERPOSE(DIR*, opendir, (const char* path)) {
  return on_path("opendir", path, Links::follow, [](const char* at, auto*) { return NEXT(opendir)(at); });
}

INTERPOSE(int, dup, (int fd)) {
  return on_descriptor("dup", fd, 0, [&](const Node* node, size_t) {
    const int copy = NEXT(dup)(fd);
    phone::track(copy, node);
    return copy;
  });
}

INTERPOSE(int, dup2, (int fd, int to)) {
  return on_descriptor("dup", fd, 0, [&](const Node* node, size_t) {
    const int copy = NEXT(dup2)(fd, to);
    phone::track(copy, node);
    return copy;
  });
}

INTERPOSE(int, dup3, (int fd, int to, int flags)) {
  return on_descriptor("dup", fd, 0, [&](const Node* node, size_t) {
    const int copy = NEXT(dup3)(fd, to, flags);
    phone::track(copy, node);
    return copy;
  });
}

INTERPOSE(int, fcntl, (int fd, int command, ...)) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return on_descriptor("fcntl", fd, 0, [&](const Node* node, size_t) {
    const int result = NEXT(fcntl)(fd, command, argument);
    if (command == F_DUPFD || command == F_DUPFD_CLOEXEC) phone::track(result, node);
    return result;
  });
}
INTERPOSE_ALIAS(fcntl64, fcntl);

// ---- transfers --------------------------------------------------------------------------------------------

INTERPOSE(ssize_t, read, (int fd, void* buffer, size_t size)) {
  return on_descriptor("read", fd, size, [&](const Node* node, size_t part) {
    if (node != nullptr && node->kind == NodeKind::nand) return phone::nand_read(fd, buffer, part, nullptr);
    return NEXT(read)(fd, buffer, part);
  });
}

INTERPOSE(ssize_t, __read_chk, (int fd, void* buffer, size_t size, size_t room)) {
  if (size > room) __chk_fail();
  return interposed_read(fd, buffer, size);
}

INTERPOSE(ssize_t, pread, (int fd, void* buffer, size_t size, off_t offset)) {
  return on_descriptor("pread", fd, size, [&](const Node* node, size_t part) {
    if (node != nullptr && node->kind == NodeKind::nand) return phone::nand_read(fd, buffer, part, &offset);
    return NEXT(pread)(fd, buffer, part, offset);
  });
}
INTERPOSE_ALIAS(pread64, pread);

INTERPOSE(ssize_t, __pread_chk, (int fd, void* buffer, size_t size, off_t offset, size_t room)) {
  if (size > room) __chk_fail();
  return interposed_pread(fd, buffer, size, offset);
}
INTERPOSE_ALIAS(__pread64_chk, __pread_chk);

INTERPOSE(ssize_t, write, (int fd, const void* buffer, size_t size)) {
  return on_descriptor("write", fd, size, [&](const Node* node, size_t part) {
    if (node == nullptr || node->kind == NodeKind::file) return NEXT(write)(fd, buffer, part);
    if (node->kind == NodeKind::nand) return phone::nand_write(fd, buffer, part, nullptr);
    return phone::block_device_write(fd, buffer, part, nullptr);
  });
}

INTERPOSE(ssize_t, pwrite, (int fd, const void* buffer, size_t size, off_t offset)) {
  return on_descriptor("pwrite", fd, size, [&](const Node* node, size_t part) {
    if (node == nullptr || node->kind == NodeKind::file) return NEXT(pwrite)(fd, buffer, part, offset);
    if (node->kind == NodeKind::nand) return phone::nand_write(fd, buffer, part, &offset);
    return phone::block_device_write(fd, buffer, part, &offset);
  });
}
INTERPOSE_ALIAS(pwrite64, pwrite);

namespace {

// Piece by piece, as a device takes them; the first short piece ends the transfer.
template <typename Transfer>
ssize_t each_piece(const iovec* pieces, int count, Transfer transfer) {
  ssize_t total = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t moved = transfer(pieces[i].iov_base, pieces[i].iov_len);
    if (moved < 0) return total > 0 ? total : moved;
    total += moved;
    if (static_cast<size_t>(moved) < pieces[i].iov_len) break;
  }
  return total;
}

}  // namespace

INTERPOSE(ssize_t, readv, (int fd, const iovec* pieces, int count)) {
  if (node_of(fd) == nullptr) return NEXT(readv)(fd, pieces, count);
  return each_piece(pieces, count, [&](void* at, size_t size) { return interposed_read(fd, at, size); });
}

INTERPOSE(ssize_t, writev, (int fd, const iovec* pieces, int count)) {
  if (node_of(fd) == nullptr) return NEXT(writev)(fd, pieces, count);
  return each_piece(pieces, count, [&](void* at, size_t size) { return interposed_write(fd, at, size); });
}

// The kernel would copy between the backing files, past every rule of the devices. Programs that use these
// calls fall back to read() and write().
INTERPOSE(ssize_t, copy_file_range, (int in, off_t* from, int out, off_t* to, size_t size, unsigned flags)) {
  if (node_of(in) != nullptr || node_of(out) != nullptr) return fail<ssize_t>(EINVAL);
  return NEXT(copy_file_range)(in, from, out, to, size, flags);
}

INTERPOSE(ssize_t, sendfile, (int out, int in, off_t* from, size_t size)) {
  if (node_of(in) != nullptr || node_of(out) != nullptr) return fail<ssize_t>(EINVAL);
  return NEXT(sendfile)(out, in, from, size);
}
INTERPOSE_ALIAS(sendfile64, sendfile);

INTERPOSE(off_t, lseek, (int fd, off_t offset, int whence)) {
  return on_descriptor("lseek", fd, 0, [&](const Node* node, size_t) {
    if (node == nullptr || node->kind == NodeKind::file) return NEXT(lseek)(fd, offset, whence);
    return phone::seek_within(fd, offset, whence, phone::device_size(fd));
  });
}
INTERPOSE_ALIAS(lseek64, lseek);

INTERPOSE(int, ftruncate, (int fd, off_t size)) {
  return on_descriptor("ftruncate", fd, 0, [&](const Node* node, size_t) {
    if (node != nullptr && node->kind != NodeKind::file) return fail<int>(EINVAL);
    return NEXT(ftruncate)(fd, size);
  });
}
INTERPOSE_ALIAS(ftruncate64, ftruncate);

INTERPOSE(int, fsync, (int fd)) {
  return on_descriptor("fsync", fd, 0, [&](const Node*, size_t) { return NEXT(fsync)(fd); });
}

INTERPOSE(int, fdatasync, (int fd)) {
  return on_descriptor("fdatasync", fd, 0, [&](const Node*, size_t) { return NEXT(fdatasync)(fd); });
}

INTERPOSE(int, ioctl, (int fd, unsigned long request, ...)) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  const auto real = [&](const Node* node, size_t) {
    if (node == nullptr || node->kind == NodeKind::file) return NEXT(ioctl)(fd, request, argument);
    if (node->kind == NodeKind::nand) return phone::nand_ioctl(fd, request, argument);
    return phone::block_device_ioctl(fd, request, argument);
  };
  return on_descriptor("ioctl", fd, 0, real, phone::nand_request_name(request));
}

INTERPOSE(int, fstat, (int fd, struct stat* status)) {
  return on_descriptor("fstat", fd, 0, [&](const Node* node, size_t) {
    const int result = NEXT(fstat)(fd, status);
    if (result == 0 && node != nullptr) phone::show_node(node->path, *status);
    return result;
  });
}
INTERPOSE_ALIAS(fstat64, fstat);

// ---- names ------------------------------------------------------------------------------------------------

INTERPOSE(int, fstatat, (int dir, const char* path, struct stat* status, int flags)) {
  const Links links = links_unless(flags, AT_SYMLINK_NOFOLLOW);
  return on_path("stat", path, links, [&](const char* at, const std::string* phone_path) {
    const int result = NEXT(fstatat)(dir, at, status, flags);
    if (result == 0 && phone_path != nullptr) phone::show_node(*phone_path, *status);
    return result;
  });
}
INTERPOSE_ALIAS(fstatat64, fstatat);

INTERPOSE(int, stat, (const char* path, struct stat* status)) {
  return interposed_fstatat(AT_FDCWD, path, status, 0);
}
INTERPOSE_ALIAS(stat64, stat);

INTERPOSE(int, lstat, (const char* path, struct stat* status)) {
  return interposed_fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}
INTERPOSE_ALIAS(lstat64, lstat);

INTERPOSE(int, statx, (int dir, const char* path, int flags, unsigned mask, struct statx* status)) {
  const Links links = links_unless(flags, AT_SYMLINK_NOFOLLOW);
  return on_path("stat", path, links, [&](const char* at, const std::string* phone_path) {
    const int result = NEXT(statx)(dir, at, flags, mask, status);
    if (result == 0 && phone_path != nullptr) phone::show_node_extended(*phone_path, *status);
    return result;
  });
}

// Programs that list a directory ask for these of every entry.
INTERPOSE(ssize_t, getxattr, (const char* path, const char* name, void* value, size_t size)) {
  return on_path("getxattr", path, Links::follow,
                 [&](const char* at, auto*) { return NEXT(getxattr)(at, name, value, size); });
}

INTERPOSE(ssize_t, lgetxattr, (const char* path, const char* name, void* value, size_t size)) {
  return on_path("getxattr", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(lgetxattr)(at, name, value, size); });
}

INTERPOSE(int, access, (const char* path, int mode)) {
  return on_path("access", path, Links::follow,
                 [&](const char* at, auto*) { return NEXT(access)(at, mode); });
}

INTERPOSE(int, faccessat, (int dir, const char* path, int mode, int flags)) {
  return on_path("access", path, links_unless(flags, AT_SYMLINK_NOFOLLOW),
                 [&](const char* at, auto*) { return NEXT(faccessat)(dir, at, mode, flags); });
}

INTERPOSE(ssize_t, readlinkat, (int dir, const char* path, char* buffer, size_t size)) {
  return on_path("readlink", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(readlinkat)(dir, at, buffer, size); });
}

INTERPOSE(ssize_t, readlink, (const char* path, char* buffer, size_t size)) {
  return interposed_readlinkat(AT_FDCWD, path, buffer, size);
}

INTERPOSE(ssize_t, __readlink_chk, (const char* path, char* buffer, size_t size, size_t room)) {
  if (size > room) __chk_fail();
  return interposed_readlink(path, buffer, size);
}

INTERPOSE(ssize_t, __readlinkat_chk, (int dir, const char* path, char* buffer, size_t size, size_t room)) {
  if (size > room) __chk_fail();
  return interposed_readlinkat(dir, path, buffer, size);
}

INTERPOSE(int, remove, (const char* path)) {
  return on_path("remove", path, Links::keep_last, [](const char* at, auto*) { return NEXT(remove)(at); });
}

INTERPOSE(int, unlink, (const char* path)) {
  return on_path("unlink", path, Links::keep_last, [](const char* at, auto*) { return NEXT(unlink)(at); });
}

INTERPOSE(int, unlinkat, (int dir, const char* path, int flags)) {
  return on_path("unlink", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(unlinkat)(dir, at, flags); });
}

INTERPOSE(int, rmdir, (const char* path)) {
  return on_path("rmdir", path, Links::keep_last, [](const char* at, auto*) { return NEXT(rmdir)(at); });
}

INTERPOSE(int, renameat2, (int from_dir, const char* from, int to_dir, const char* to, unsigned flags)) {
  return on_path("rename", from, Links::keep_last, [&](const char* from_at, auto*) {
    return on_path("rename", to, Links::keep_last, [&](const char* to_at, auto*) {
      return NEXT(renameat2)(from_dir, from_at, to_dir, to_at, flags);
    });
  });
}

INTERPOSE(int, renameat, (int from_dir, const char* from, int to_dir, const char* to)) {
  return interposed_renameat2(from_dir, from, to_dir, to, 0);
}

INTERPOSE(int, rename, (const char* from, const char* to)) {
  return interposed_renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}

INTERPOSE(int, symlink, (const char* target, const char* path)) {
  return on_path("symlink", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(symlink)(target, at); });
}

INTERPOSE(int, chmod, (const char* path, mode_t mode)) {
  return on_path("chmod", path, Links::follow, [&](const char* at, auto*) { return NEXT(chmod)(at, mode); });
}

INTERPOSE(int, fchmodat, (int dir, const char* path, mode_t mode, int flags)) {
  return on_path("chmod", path, links_unless(flags, AT_SYMLINK_NOFOLLOW),
                 [&](const char* at, auto*) { return NEXT(fchmodat)(dir, at, mode, flags); });
}

INTERPOSE(int, fchmod, (int fd, mode_t mode)) {
  return on_descriptor("fchmod", fd, 0, [&](const Node*, size_t) { return NEXT(fchmod)(fd, mode); });
}

INTERPOSE(int, mkdir, (const char* path, mode_t mode)) {
  return on_path("mkdir", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(mkdir)(at, mode); });
}

INTERPOSE(int, mkdirat, (int dir, const char* path, mode_t mode)) {
  return on_path("mkdir", path, Links::keep_last,
                 [&](const char* at, auto*) { return NEXT(mkdirat)(dir, at, mode); });
}

INTERPOSE(int, truncate, (const char* path, off_t size)) {
  return on_path("truncate", path, Links::follow, [&](const char* at, const std::string* phone_path) {
    if (phone_path != nullptr && phone::is_device_path(*phone_path)) return fail<int>(EINVAL);
    return NEXT(truncate)(at, size);
  });
}
INTERPOSE_ALIAS(truncate64, truncate);
