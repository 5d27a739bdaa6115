#include "inspect/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStandardStream = "-";

bool is_stream(const fs::path& path) {
  return path.empty() || path == kStandardStream;
}

FileContent read_all(int fd) {
  FileContent content;
  constexpr size_t kPart = 64 * 1024;
  while (true) {
    const size_t size = content.bytes.size();
    content.bytes.resize(size + kPart);
    const ssize_t count = read(fd, content.bytes.data() + size, kPart);
    content.bytes.resize(size + static_cast<size_t>(std::max<ssize_t>(count, 0)));
    if (count == 0) return content;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {{}, std::strerror(errno)};
    if (content.bytes.size() > kLargestFile) {
      return {{}, fmt::format("larger than {} MiB", kLargestFile / 1024 / 1024)};
    }
  }
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

}  // namespace

FileContent read_file(const fs::path& path) {
  const int fd = path == kStandardStream ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {{}, std::strerror(errno)};
  FileContent content = read_all(fd);
  close(fd);
  return content;
}

void check_output(const OutputTarget& target, const fs::path& input) {
  if (is_stream(target.path)) return;
  if (!is_stream(input) && lies_in(target.path, input)) {
    throw InputError(fmt::format("{}: is the input or lies in it", target.path));
  }
  if (!target.force && fs::symlink_status(target.path).type() != fs::file_type::not_found) {
    throw InputError(fmt::format("{}: is there already; --force replaces it", target.path));
  }
}

void write_output(const OutputTarget& target, std::string_view bytes, const fs::path& input) {
  if (is_stream(target.path)) return write_stream(bytes);
  check_output(target, input);
  const fs::path unfinished = target.path + ".unfinished";
  std::ofstream out(unfinished, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  std::error_code error;
  if (out) fs::rename(unfinished, target.path, error);
  if (!out || error) {
    const std::string cause = error ? error.message() : std::strerror(errno);
    fs::remove(unfinished, error);
    throw std::runtime_error(fmt::format("{}: cannot be written: {}", target.path, cause));
  }
}

}  // namespace awbcal
