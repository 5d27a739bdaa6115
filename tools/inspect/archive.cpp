#include "inspect/archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fmt/format.h>

#include <memory>

#include "inspect/errors.h"

namespace awbcal {

namespace {

struct Magic {
  size_t offset;
  std::string_view bytes;
  bool is_container;  ///< holds files by name
};

constexpr Magic kMagics[] = {{0, "\x1F\x8B", false},
                             {0,
                              "\xFD"
                              "7zXZ",
                              false},
                             {0, "\x28\xB5\x2F\xFD", false},
                             {0, "BZh", false},
                             {0, "PK\x03\x04", true},
                             {0, "PK\x05\x06", true},
                             {257, "ustar", true}};

const Magic* magic_of(std::span<const uint8_t> bytes) {
  for (const Magic& magic : kMagics) {
    if (bytes.size() < magic.offset + magic.bytes.size()) continue;
    if (std::equal(magic.bytes.begin(), magic.bytes.end(),
                   bytes.begin() + static_cast<std::ptrdiff_t>(magic.offset),
                   [](char a, uint8_t b) { return static_cast<uint8_t>(a) == b; }))
      return &magic;
  }
  return nullptr;
}

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;

/// What a filter yields is either one file, whatever it is, or an archive: a tar reader that was asked too would
/// take a file that begins with zeros for an empty archive.
Reader open_archive(std::span<const uint8_t> bytes, bool is_one_file) {
  Reader reader(archive_read_new(), archive_read_free);
  archive_read_support_filter_gzip(reader.get());
  archive_read_support_filter_bzip2(reader.get());
  archive_read_support_filter_xz(reader.get());
  archive_read_support_filter_zstd(reader.get());
  if (is_one_file) {
    archive_read_support_format_raw(reader.get());
  } else {
    archive_read_support_format_tar(reader.get());
    archive_read_support_format_zip_streamable(reader.get());
    archive_read_support_format_zip_seekable(reader.get());
  }
  archive_read_open_memory(reader.get(), bytes.data(), bytes.size());
  return reader;
}

/// The first entry. Throws InputError when there is none.
archive_entry* first_entry(archive* reader, const std::string& name) {
  archive_entry* first = nullptr;
  const int result = archive_read_next_header(reader, &first);
  if (result == ARCHIVE_EOF) throw InputError(fmt::format("{}: empty archive", name));
  if (result != ARCHIVE_OK && result != ARCHIVE_WARN)
    throw InputError(fmt::format("{}: damaged or empty archive", name));
  return first;
}

/// Whether files by name are packed, under whatever filters.
bool is_container(std::span<const uint8_t> bytes) {
  const Magic* magic = magic_of(bytes);
  if (magic == nullptr || magic->is_container) return magic != nullptr;
  const Reader reader = open_archive(bytes, true);
  archive_entry* found = nullptr;
  const void* part = nullptr;
  size_t size = 0;
  la_int64_t offset = 0;
  if (archive_read_next_header(reader.get(), &found) != ARCHIVE_OK ||
      archive_read_data_block(reader.get(), &part, &size, &offset) != ARCHIVE_OK)
    return false;
  const Magic* inner = magic_of({static_cast<const uint8_t*>(part), size});
  return inner != nullptr && inner->is_container;
}

/// Takes the entry's bytes; `total` is what all entries had so far.
Bytes read_entry(archive* reader, const std::string& name, uint64_t& total) {
  Bytes content;
  const void* part = nullptr;
  size_t size = 0;
  la_int64_t offset = 0;
  int result = ARCHIVE_OK;
  while ((result = archive_read_data_block(reader, &part, &size, &offset)) == ARCHIVE_OK) {
    const uint64_t end = static_cast<uint64_t>(offset) + size;
    if (end > kLargestFile || total + end > kLargestTotal) {
      throw InputError(fmt::format("{}: unpacks to more than {} MiB a file or {} MiB in all", name,
                                   kLargestFile / 1024 / 1024, kLargestTotal / 1024 / 1024));
    }
    if (end > content.size()) content.resize(end);
    const auto* first = static_cast<const uint8_t*>(part);
    std::copy(first, first + size, content.begin() + static_cast<std::ptrdiff_t>(offset));
  }
  if (result != ARCHIVE_EOF) throw InputError(fmt::format("{}: damaged archive", name));
  total += content.size();
  return content;
}

/// Relative, without what would lead out of the tree.
std::string safe_name(const char* name) {
  std::filesystem::path path;
  for (const std::filesystem::path& part : std::filesystem::path(name == nullptr ? "" : name)) {
    if (!part.empty() && part != "/" && part != "." && part != "..") path /= part;
  }
  return path.string();
}

FileTree::Entry entry_of(archive* reader, archive_entry* found, const std::string& name, uint64_t& total) {
  const char* link = archive_entry_symlink(found);
  if (link == nullptr) link = archive_entry_hardlink(found);
  if (link != nullptr) return {.type = FileTree::Type::link, .target = link};
  const auto type = archive_entry_filetype(found);
  if (type == AE_IFDIR) return {.type = FileTree::Type::folder};
  if (archive_entry_is_encrypted(found) != 0)
    throw InputError(fmt::format("{}: encrypted: unpack it first", name));
  if (type != AE_IFREG && type != 0) return {.type = FileTree::Type::other};
  return {.content = FileContent{read_entry(reader, name, total), std::nullopt}};
}

FileTree tree_of(archive* reader, archive_entry* first, const std::string& name) {
  FileTree tree(name);
  uint64_t total = 0;
  int result = ARCHIVE_OK;
  for (archive_entry* found = first; result == ARCHIVE_OK || result == ARCHIVE_WARN;
       result = archive_read_next_header(reader, &found)) {
    const std::string path = safe_name(archive_entry_pathname(found));
    if (path.empty()) continue;
    FileTree::Entry entry = entry_of(reader, found, name, total);
    // The name of a hard link's target is the archive's.
    if (archive_entry_hardlink(found) != nullptr) entry.target = "/" + safe_name(entry.target.c_str());
    tree.add(path, std::move(entry));
  }
  if (result != ARCHIVE_EOF) throw InputError(fmt::format("{}: damaged archive", name));
  return tree;
}

}  // namespace

bool is_packed(std::span<const uint8_t> bytes) {
  return magic_of(bytes) != nullptr;
}

std::variant<Bytes, FileTree> unpacked(const std::string& name, std::span<const uint8_t> bytes) {
  const bool is_one_file = !is_container(bytes);
  const Reader reader = open_archive(bytes, is_one_file);
  archive_entry* first = first_entry(reader.get(), name);
  if (!is_one_file) return tree_of(reader.get(), first, name);
  uint64_t total = 0;
  return read_entry(reader.get(), name, total);
}

Bytes packed(const std::vector<OutputFile>& files) {
  constexpr size_t kTarBlock = 512;
  constexpr size_t kTarRecord = 20 * kTarBlock;
  size_t most = 2 * kTarRecord;
  for (const OutputFile& file : files) most += file.bytes.size() + 2 * kTarBlock;
  Bytes bytes(most);
  size_t used = 0;
  const std::unique_ptr<archive, decltype(&archive_write_free)> writer(archive_write_new(),
                                                                       archive_write_free);
  archive_write_set_format_ustar(writer.get());
  archive_write_open_memory(writer.get(), bytes.data(), bytes.size(), &used);
  const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                            archive_entry_free);
  for (const OutputFile& file : files) {
    archive_entry_clear(entry.get());
    archive_entry_set_pathname(entry.get(), file.path.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(file.bytes.size()));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_write_header(writer.get(), entry.get());
    archive_write_data(writer.get(), file.bytes.data(), file.bytes.size());
  }
  if (archive_write_close(writer.get()) != ARCHIVE_OK)
    throw std::runtime_error(fmt::format("cannot be packed: {}", archive_error_string(writer.get())));
  bytes.resize(used);
  return bytes;
}

}  // namespace awbcal
