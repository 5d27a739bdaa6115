#include "inspect/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "common/file.h"
#include "text/printable.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardStream = "-";

bool is_stream(const fs::path& path) {
  return path.empty() || path == kStandardStream;
}

FileContent read_all(int fd, const struct stat& status, size_t limit) {
  FileContent content;
  const bool has_size = S_ISREG(status.st_mode);
  // One byte more than there should be: that it is not filled shows the end.
  size_t part = has_size ? std::min(static_cast<size_t>(status.st_size), limit) + 1 : 64 * 1024;
  while (true) {
    const size_t size = content.bytes.size();
    content.bytes.resize(size + part);
    const ssize_t count = read(fd, content.bytes.data() + size, part);
    content.bytes.resize(size + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    const bool is_end = has_size && count > 0 && static_cast<size_t>(count) < part;
    if (count == 0 || is_end) return content;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {{}, std::strerror(errno)};
    if (content.bytes.size() > limit) return {{}, fmt::format("larger than {} MiB", limit / 1024 / 1024)};
    part = 64 * 1024;
  }
}

/// What may keep us waiting says so after a second, so that nobody takes the tool for hung.
void wait_for_content(int fd, const fs::path& path) {
  pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
  constexpr int kPatience = 1000;
  if (poll(&waiting, 1, isatty(fd) == 1 ? 0 : kPatience) != 0) return;
  std::fprintf(stderr, "awbcal: waiting for %s\n",
               path == kStandardStream ? "standard input" : printable(path.string()).c_str());
  poll(&waiting, 1, -1);
}

/// Without waiting for a pipe's other end.
int open_input(const fs::path& path) {
  if (path == kStandardStream) return dup(STDIN_FILENO);
  return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

/// Whether `path` is `whole` or lies in it, links followed.
bool lies_in(const fs::path& path, const fs::path& whole) {
  std::error_code ignored;
  const fs::path inner = fs::weakly_canonical(fs::absolute(path), ignored);
  const fs::path outer = fs::weakly_canonical(fs::absolute(whole), ignored);
  const auto mismatch = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
  return mismatch.first == outer.end() || (fs::exists(path, ignored) && fs::equivalent(path, whole, ignored));
}

void write_stream(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
    throw std::runtime_error(fmt::format("standard output: {}", std::strerror(errno)));
  }
}

[[noreturn]] void cannot_write(const fs::path& path) {
  throw std::runtime_error(fmt::format("{}: cannot be written: {}", path.string(), std::strerror(errno)));
}

mode_t allowed_mode(mode_t mode) {
  const mode_t mask = umask(0);
  umask(mask);
  return mode & ~mask;
}

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return true;
}

/// A name in the target's folder that nobody can foresee.
std::string unfinished_name(const fs::path& target) {
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
  return (folder / ".awbcal-XXXXXX").string();
}

/// The file's new content under an unfinished name.
std::string write_unfinished(const fs::path& target, std::string_view bytes) {
  std::string name = unfinished_name(target);
  const calib::Descriptor fd(mkostemp(name.data(), O_CLOEXEC));
  if (!fd.is_open()) cannot_write(target);
  constexpr mode_t kMode = 0666;
  if (!write_all(fd.get(), bytes) || fchmod(fd.get(), allowed_mode(kMode)) != 0) {
    const int error = errno;
    unlink(name.c_str());
    errno = error;
    cannot_write(target);
  }
  return name;
}

/// Into a folder that nobody else knows yet; `target` is what it is to become.
void write_in_folder(const fs::path& folder, const fs::path& target, const OutputFile& file) {
  const fs::path path = folder / file.path;
  std::error_code error;
  fs::create_directories(path.parent_path(), error);
  if (!error && !file.link_target.empty()) fs::create_symlink(file.link_target, path, error);
  errno = error.value();
  if (error) cannot_write(target / file.path);
  if (!file.link_target.empty()) return;
  const calib::Descriptor fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
  if (!fd.is_open() || !write_all(fd.get(), text_of(file.bytes))) cannot_write(target / file.path);
}

/// The old folder goes only after the new one stands in its place.
void put_in_place(const std::string& unfinished, const fs::path& target) {
  std::string old = unfinished + ".old";
  const bool is_there = fs::exists(fs::symlink_status(target));
  if (is_there && rename(target.c_str(), old.c_str()) != 0) cannot_write(target);
  if (rename(unfinished.c_str(), target.c_str()) != 0) cannot_write(target);
  if (is_there) fs::remove_all(old);
}

}  // namespace

FileContent read_file(const fs::path& path, size_t limit) {
  const calib::Descriptor fd(open_input(path));
  struct stat status = {};
  if (!fd.is_open() || fstat(fd.get(), &status) != 0) return {{}, std::strerror(errno)};
  if (!S_ISREG(status.st_mode)) {
    if (path != kStandardStream) fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    wait_for_content(fd.get(), path);
  }
  return read_all(fd.get(), status, limit);
}

Bytes bytes_of_file(const fs::path& path, size_t limit) {
  FileContent content = read_file(path, limit);
  if (content.trouble)
    throw InputError(fmt::format("{}: cannot be read: {}", path.string(), *content.trouble));
  return std::move(content.bytes);
}

FileContent read_regular_file(const fs::path& path) {
  const calib::Descriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  if (!fd.is_open()) return {{}, std::strerror(errno)};
  struct stat status = {};
  if (fstat(fd.get(), &status) != 0) return {{}, std::strerror(errno)};
  if (!S_ISREG(status.st_mode)) return {{}, "not a regular file"};
  return read_all(fd.get(), status, kLargestFile);
}

void check_output(const OutputTarget& target, const std::vector<std::string>& inputs) {
  if (is_stream(target.path)) return;
  for (const std::string& input : inputs) {
    if (!is_stream(input) && lies_in(target.path, input))
      throw InputError(fmt::format("{}: is the input, or lies in it", target.path));
  }
  const fs::file_status status = fs::symlink_status(target.path);
  if (status.type() == fs::file_type::not_found) return;
  if (!target.force) throw InputError(fmt::format("{}: exists; --force replaces it", target.path));
  if (!fs::is_regular_file(status) && !is_made_here(target.path)) {
    throw InputError(
        fmt::format("{}: neither a regular file nor a folder made by awbcal: not replaced", target.path));
  }
}

void write_output(const OutputTarget& target, std::string_view bytes,
                  const std::vector<std::string>& inputs) {
  if (is_stream(target.path)) return write_stream(bytes);
  check_output(target, inputs);
  if (fs::is_directory(fs::symlink_status(target.path)))
    throw InputError(fmt::format("{}: a folder is not replaced by a file", target.path));
  const std::string unfinished = write_unfinished(target.path, bytes);
  if (rename(unfinished.c_str(), target.path.c_str()) == 0) return;
  const int error = errno;
  unlink(unfinished.c_str());
  errno = error;
  cannot_write(target.path);
}

void write_folder(const OutputTarget& target, const std::vector<OutputFile>& files,
                  const std::vector<std::string>& inputs) {
  if (is_stream(target.path)) throw InputError("a phone needs --output FOLDER");
  check_output(target, inputs);
  const fs::file_status status = fs::symlink_status(target.path);
  if (fs::exists(status) && !fs::is_directory(status))
    throw InputError(fmt::format("{}: a file is not replaced by a folder", target.path));
  fs::path path(target.path);
  if (!path.has_filename()) path = path.parent_path();
  std::string unfinished = unfinished_name(path);
  if (mkdtemp(unfinished.data()) == nullptr) cannot_write(path);
  try {
    constexpr mode_t kMode = 0777;
    chmod(unfinished.c_str(), allowed_mode(kMode));
    for (const OutputFile& file : files) write_in_folder(unfinished, path, file);
    mark_as_made_here(unfinished);
    put_in_place(unfinished, path);
  } catch (...) {
    std::error_code ignored;
    fs::remove_all(unfinished, ignored);
    throw;
  }
}

void mark_as_made_here(const fs::path& folder) {
  const std::string mark = (folder / kMadeHereMark).string();
  const calib::Descriptor fd(open(mark.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!fd.is_open()) cannot_write(mark);
}

bool is_made_here(const fs::path& folder) {
  return fs::is_directory(fs::symlink_status(folder)) &&
         fs::is_regular_file(fs::symlink_status(folder / kMadeHereMark));
}

}  // namespace awbcal
