#include "log/log_file.h"

#include <archive.h>
#include <archive_entry.h>
#include <fmt/format.h>

#include <filesystem>
#include <memory>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

/// What all texts of a log may unpack to: they pass through, so this bounds time and not memory.
constexpr uint64_t kMostText = uint64_t{1} << 30;
constexpr size_t kMostFilesNamed = 20;
constexpr size_t kBlock = size_t{64} * 1024;

using Archive = std::unique_ptr<archive, decltype(&archive_read_free)>;

/// A text by itself is an archive of one file. Unlike a partition's bytes, a log is never taken for an empty tar.
Archive make_archive() {
  Archive result(archive_read_new(), archive_read_free);
  archive_read_support_filter_gzip(result.get());
  archive_read_support_filter_bzip2(result.get());
  archive_read_support_filter_xz(result.get());
  archive_read_support_filter_zstd(result.get());
  archive_read_support_format_zip(result.get());
  archive_read_support_format_tar(result.get());
  archive_read_support_format_raw(result.get());
  archive_read_support_format_empty(result.get());
  return result;
}

/// Of a bug report's copies of the phone's files nobody wants a second time what its main text has.
bool is_text_of_log(const std::string& name) {
  const std::string extension = fs::path(name).extension().string();
  return (extension == ".txt" || extension == ".log") && !name.starts_with("FS/");
}

class LogFiles {
 public:
  LogFiles(Archive& source, LogReader& reader, LogInput& input)
      : source_(source.get()), reader_(reader), input_(input) {}

  void read() {
    archive_entry* entry = nullptr;
    int result = ARCHIVE_OK;
    while ((result = archive_read_next_header(source_, &entry)) == ARCHIVE_OK || result == ARCHIVE_WARN) {
      if (!read_entry(entry)) return;
    }
    if (result != ARCHIVE_EOF) end_early("damaged archive");
  }

 private:
  /// False: nothing more can be read.
  bool read_entry(archive_entry* entry) {
    const bool is_alone = archive_format(source_) == ARCHIVE_FORMAT_RAW;
    const char* path = archive_entry_pathname(entry);
    const std::string name = path == nullptr ? "" : path;
    if (!is_alone && (archive_entry_filetype(entry) != AE_IFREG || !is_text_of_log(name))) return true;
    if (archive_entry_is_encrypted(entry) != 0) return end_early("encrypted: unpack it first");
    if (!is_alone && input_.files.size() < kMostFilesNamed) input_.files.push_back(name);
    reader_.begin_file(name);
    const bool is_whole = read_content();
    reader_.finish_file();
    return is_whole;
  }

  bool read_content() {
    const void* part = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int result = ARCHIVE_OK;
    while ((result = archive_read_data_block(source_, &part, &size, &offset)) == ARCHIVE_OK) {
      total_ += size;
      if (total_ > kMostText) return end_early(fmt::format("more than {} MiB of text", kMostText >> 20));
      reader_.feed({static_cast<const char*>(part), size});
    }
    return result == ARCHIVE_EOF || end_early("damaged, or it cannot be read");
  }

  bool end_early(const std::string& why) {
    input_.unknown.push_back(fmt::format("{}: {}: read up to line {}", input_.name, why, reader_.lines()));
    return false;
  }

  archive* source_;
  LogReader& reader_;
  LogInput& input_;
  uint64_t total_ = 0;
};

}  // namespace

LogInput read_log(const std::string& path, LogReader& reader) {
  LogInput input{.name = path};
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (path != "-" && status.type() == fs::file_type::not_found)
    throw InputError(fmt::format("{}: no such file", path));
  if (path != "-" && fs::is_directory(status)) throw InputError(fmt::format("{}: a folder, not a log", path));
  Archive source = make_archive();
  if (archive_read_open_filename(source.get(), path == "-" ? nullptr : path.c_str(), kBlock) != ARCHIVE_OK)
    throw InputError(fmt::format("{}: cannot be read", path));
  LogFiles(source, reader, input).read();
  return input;
}

LogInput read_log_bytes(const std::string& name, std::span<const uint8_t> bytes, LogReader& reader) {
  LogInput input{.name = name};
  Archive source = make_archive();
  archive_read_open_memory(source.get(), bytes.data(), bytes.size());
  LogFiles(source, reader, input).read();
  return input;
}

}  // namespace awbcal
