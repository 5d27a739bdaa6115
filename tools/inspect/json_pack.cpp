#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>

#include "inspect/claims.h"
#include "inspect/errors.h"
#include "inspect/file_tree.h"
#include "inspect/json_form.h"

namespace awbcal {

namespace {

constexpr const char* kNoDump = "not a document of \"awbcal show\"";
constexpr int kDeepestDocument = 64;

/// A value for a message, however long it is.
std::string short_text(const Json& value) {
  constexpr size_t kLongest = 40;
  if (value.is_structured()) return value.is_array() ? "[...]" : "{...}";
  const std::string text = value.dump(-1, ' ', true, Json::error_handler_t::replace);
  return text.size() > kLongest ? text.substr(0, kLongest) + "..." : text;
}

uint8_t hex_digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  throw InputError(fmt::format("not a hexadecimal digit: '{}'", c));
}

Bytes bytes_of_hex(const std::string& text) {
  if (text.size() % 2 != 0) throw InputError("an odd number of hexadecimal digits");
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(hex_digit(text[i]) << 4 | hex_digit(text[i + 1])));
  }
  return bytes;
}

uint64_t number_at(const Json& json, const char* key, uint64_t most) {
  const Json& value = json.at(key);
  const bool is_whole =
      value.is_number_unsigned() || (value.is_number_integer() && value.get<int64_t>() >= 0);
  if (!is_whole || value.get<uint64_t>() > most) {
    throw InputError(fmt::format("\"{}\" must be a whole number up to {}: {}", key, most, short_text(value)));
  }
  return value.get<uint64_t>();
}

/// A path that stays in the folder that it is put into.
std::string safe_path(const std::string& text) {
  const std::filesystem::path path(text);
  const bool leaves = std::any_of(path.begin(), path.end(), [](const auto& part) { return part == ".."; });
  if (path.empty() || path.is_absolute() || leaves)
    throw InputError(fmt::format("not a path in a folder: \"{}\"", text));
  return text;
}

void check_count(const Json& array, size_t count, const char* of, const std::string& by) {
  if (!array.is_array() || array.size() != count)
    throw InputError(fmt::format("{}: expected {} {}: {}", by, count, of, short_text(array)));
}

Bytes bytes_of_gain(const Json& value, const std::string& by) {
  float gain = INFINITY;
  if (value.is_string() && value.get_ref<const std::string&>().size() == 2 * sizeof gain)
    return bytes_of_hex(value.get<std::string>());
  if (value.is_number()) gain = static_cast<float>(value.get<double>());
  if (!std::isfinite(gain)) throw InputError(fmt::format("{}: not a gain: {}", by, short_text(value)));
  Bytes bytes(sizeof gain);
  std::memcpy(bytes.data(), &gain, sizeof gain);
  return bytes;
}

Bytes bytes_of_gains(const Json& rows, const std::string& by) {
  check_count(rows, kMeshRows, "rows of gains", by);
  Bytes bytes;
  for (const Json& row : rows) {
    check_count(row, kMeshColumns, "gains in a row", by);
    for (const Json& value : row) {
      const Bytes gain = bytes_of_gain(value, by);
      bytes.insert(bytes.end(), gain.begin(), gain.end());
    }
  }
  return bytes;
}

Bytes bytes_of_field(const FieldSpec& field, const Json& value, const std::string& by) {
  if (is_run_of_bytes(field)) {
    Bytes bytes =
        field.kind == FieldKind::gains ? bytes_of_gains(value, by) : bytes_of_hex(value.get<std::string>());
    if (bytes.size() != field.width)
      throw InputError(fmt::format("{}: expected {} bytes, found {}", by, field.width, bytes.size()));
    return bytes;
  }
  const uint64_t most = field.width == 8 ? UINT64_MAX : (uint64_t{1} << (8 * field.width)) - 1;
  const bool is_negative =
      value.is_number_integer() && !value.is_number_unsigned() && value.get<int64_t>() < 0;
  const bool may_be_negative =
      field.kind == FieldKind::signed_word && is_negative && value.get<int64_t>() >= INT32_MIN;
  if (!value.is_number_integer() || (is_negative && !may_be_negative) ||
      (!is_negative && value.get<uint64_t>() > most)) {
    throw InputError(fmt::format("{}: does not fit into {} bytes: {}", by, field.width, short_text(value)));
  }
  Bytes bytes(field.width);
  const FieldSpec alone{0, field.width, field.kind, field.name};
  set_field_value(bytes, alone,
                  is_negative ? static_cast<uint64_t>(value.get<int64_t>()) : value.get<uint64_t>());
  return bytes;
}

/// A file under construction: each byte is given once, or more often with one value.
class FileBuilder {
 public:
  FileBuilder(std::string path, size_t size) : path_(std::move(path)), bytes_(size), given_(size) {}

  void give(uint64_t offset, std::span<const uint8_t> bytes, const std::string& by) {
    if (offset > bytes_.size() || bytes.size() > bytes_.size() - offset) {
      throw InputError(fmt::format("{}: {} lies outside the file's {} bytes", path_, by, bytes_.size()));
    }
    check_agrees(offset, bytes, by);
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(offset));
    std::fill_n(given_.begin() + static_cast<std::ptrdiff_t>(offset), bytes.size(), uint8_t{1});
  }

  void check_complete() const {
    const void* missing = given_.empty() ? nullptr : std::memchr(given_.data(), 0, given_.size());
    if (missing == nullptr) return;
    throw InputError(fmt::format("{}: byte 0x{:x} is missing", path_,
                                 static_cast<const uint8_t*>(missing) - given_.data()));
  }

  const std::string& path() const { return path_; }
  Bytes& bytes() { return bytes_; }

 private:
  void check_agrees(uint64_t offset, std::span<const uint8_t> bytes, const std::string& by) const {
    if (bytes.empty() || std::memchr(given_.data() + offset, 1, bytes.size()) == nullptr) return;
    for (size_t at = offset; at < offset + bytes.size(); ++at) {
      if (given_[at] != 0 && bytes_[at] != bytes[at - offset])
        throw InputError(fmt::format("{}: byte 0x{:x}: {} contradicts an earlier value", path_, at, by));
    }
  }

  std::string path_;
  Bytes bytes_;
  Bytes given_;  ///< 1: the byte is known; searched by memchr(), for a partition has many
};

struct PlacedRecord {
  const RecordSpec* spec;
  size_t file;  ///< index
  size_t offset;
};

/// What a document becomes, file by file.
struct Packing {
  const PackOptions& options;
  std::vector<FileBuilder> files = {};
  std::vector<PlacedRecord> placed = {};
};

Layout layout_at(const Json& json) {
  const auto name = json.get<std::string>();
  const std::optional<Layout> layout = layout_of_name(name);
  if (!layout || *layout > Layout::record) throw InputError(fmt::format("no kind of input: \"{}\"", name));
  return *layout;
}

/// Every byte is given once by "rest": runs of more than the file would only keep us busy.
void add_run(FileBuilder& builder, const Json& run, uint64_t& given) {
  const uint64_t offset = number_at(run, "offset", kLargestFile);
  const Bytes bytes =
      run.contains("fill")
          ? Bytes(number_at(run, "size",
                            builder.bytes().size() - std::min<uint64_t>(given, builder.bytes().size())),
                  static_cast<uint8_t>(number_at(run, "fill", 0xFF)))
          : bytes_of_hex(run.at("bytes").get<std::string>());
  given += bytes.size();
  builder.give(offset, bytes, "\"rest\"");
}

void add_file(Packing& packing, const Json& json) {
  const std::string path = safe_path(json.at("path").get<std::string>());
  if (json.contains("unreadable"))
    throw InputError(fmt::format("{}: was unreadable, so its bytes are not known", path));
  const uint64_t size = number_at(json, "size", kLargestFile);
  if (std::ranges::any_of(packing.files, [&](const FileBuilder& file) { return file.path() == path; }))
    throw InputError(fmt::format("\"{}\" is given twice", path));
  FileBuilder builder(path, size);
  if (json.contains("text")) {
    const auto text = json.at("text").get<std::string>();
    builder.give(0, {reinterpret_cast<const uint8_t*>(text.data()), text.size()}, "\"text\"");
  } else {
    uint64_t given = 0;
    for (const Json& run : json.at("rest")) add_run(builder, run, given);
  }
  packing.files.push_back(std::move(builder));
}

/// Before any memory is taken for them.
void check_total(const Json& files) {
  uint64_t total = 0;
  for (const Json& file : files) {
    total += file.contains("unreadable") ? 0 : number_at(file, "size", kLargestFile);
    if (total > kLargestTotal || files.size() > kMostFiles)
      throw InputError(fmt::format("more than {} files or {} MiB", kMostFiles, kLargestTotal / 1024 / 1024));
  }
}

size_t file_of(const Packing& packing, const std::string& path) {
  const auto found = std::find_if(packing.files.begin(), packing.files.end(),
                                  [&](const FileBuilder& file) { return file.path() == path; });
  if (found == packing.files.end()) throw InputError(fmt::format("no such file in \"files\": \"{}\"", path));
  return static_cast<size_t>(found - packing.files.begin());
}

void add_field(FileBuilder& file, const RecordSpec& spec, const FieldSpec& field, size_t offset,
               const Json& value) {
  const std::string by = fmt::format("{} of the {}", field.name, spec.name);
  try {
    file.give(offset + field.offset, bytes_of_field(field, value, by), by);
  } catch (const Json::exception&) {
    throw InputError(fmt::format("{}: not a value of its kind: {}", by, short_text(value)));
  }
}

void add_record(Packing& packing, const Json& json) {
  if (!json.contains("fields")) return;
  const auto id = json.at("kind").get<std::string>();
  const RecordSpec* spec = record_spec_of_id(id);
  if (spec == nullptr) throw InputError(fmt::format("no kind of record: \"{}\"", id));
  const size_t file = file_of(packing, json.at("file").get<std::string>());
  const size_t offset = number_at(json, "offset", kLargestFile);
  size_t known = 0;
  for (const FieldSpec& field : spec->fields) {
    const auto value = json.at("fields").find(field_id(field));
    if (value == json.at("fields").end()) continue;
    ++known;
    add_field(packing.files[file], *spec, field, offset, *value);
  }
  if (known != json.at("fields").size())
    throw InputError(fmt::format("the {} has an unknown field", spec->name));
  if (known == spec->fields.size()) packing.placed.push_back({spec, file, offset});
}

std::span<uint8_t> bytes_of(Packing& packing, const PlacedRecord& record) {
  return std::span(packing.files[record.file].bytes()).subspan(record.offset, record.spec->size);
}

/// Sealing one of two records that share bytes spoils the other: that has to be asked for by name.
void check_alone(const Packing& packing, const PlacedRecord& record, const FieldSpec& crc) {
  const size_t begin = record.offset + crc.offset;
  for (const PlacedRecord& other : packing.placed) {
    if (other.spec == record.spec || other.file != record.file) continue;
    if (begin >= other.offset + other.spec->size || begin + crc.width <= other.offset) continue;
    throw InputError(fmt::format("the CRC of the {} lies in the {}: name the one to seal, --seal-only {}",
                                 record.spec->name, other.spec->name, record.spec->id));
  }
}

void seal(Packing& packing) {
  const std::string& only = packing.options.seal_kind;
  for (const PlacedRecord& record : packing.placed) {
    const FieldSpec* crc = field_of_kind(*record.spec, FieldKind::crc);
    if (crc == nullptr || (!only.empty() && only != record.spec->id)) continue;
    const std::span<uint8_t> bytes = bytes_of(packing, record);
    const uint32_t sealed = crc_for(*crc, bytes);
    if (field_value(bytes, *crc) == sealed) continue;
    if (only.empty()) check_alone(packing, record, *crc);
    set_field_value(bytes, *crc, sealed);
  }
}

Packed packed(const Json& document, const PackOptions& options) {
  const uint64_t version = number_at(document, "awbcal_json", UINT32_MAX);
  if (version != kJsonVersion)
    throw InputError(fmt::format("version {} of the document: only {} is known", version, kJsonVersion));
  if (document.at("command") != "show") throw InputError(kNoDump);
  check_total(document.at("files"));
  Packing packing{.options = options};
  for (const Json& file : document.at("files")) add_file(packing, file);
  for (const Json& record : document.at("records")) add_record(packing, record);
  for (const FileBuilder& file : packing.files) file.check_complete();
  if (options.seal || !options.seal_kind.empty()) seal(packing);
  Packed result{.kind = layout_at(document.at("input").at("kind")), .files = {}};
  for (FileBuilder& file : packing.files) result.files.push_back({file.path(), std::move(file.bytes()), {}});
  return result;
}

}  // namespace

Json parse_document(std::string_view text) {
  const auto limit = [](int depth, Json::parse_event_t, const Json&) {
    if (depth > kDeepestDocument)
      throw InputError(fmt::format("nested deeper than {} levels", kDeepestDocument));
    return true;
  };
  try {
    return Json::parse(text, limit);
  } catch (const Json::parse_error& error) {
    throw InputError(fmt::format("not JSON: error at byte {}", error.byte));
  } catch (const Json::exception&) {
    throw InputError("not JSON: a number out of range");
  }
}

Packed pack_document(const Json& document, const PackOptions& options) {
  try {
    return packed(document, options);
  } catch (const Json::exception&) {
    throw InputError(fmt::format("{}: a value is missing or of another type", kNoDump));
  }
}

}  // namespace awbcal
