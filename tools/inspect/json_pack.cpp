#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "inspect/errors.h"
#include "inspect/json_form.h"
#include "inspect/judge.h"

namespace awbcal {

namespace {

uint8_t hex_digit(char c) {
  if (c >= '0' && c <= '9') return static_cast<uint8_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<uint8_t>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<uint8_t>(c - 'A' + 10);
  throw InputError(fmt::format("no hexadecimal digit: '{}'", c));
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
    throw InputError(fmt::format("\"{}\" is no whole number up to {}: {}", key, most, value.dump()));
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

Bytes bytes_of_field(const FieldSpec& field, const Json& value, const std::string& by) {
  if (is_run_of_bytes(field)) {
    Bytes bytes = bytes_of_hex(value.get<std::string>());
    if (bytes.size() != field.width)
      throw InputError(fmt::format("{}: {} bytes where {} are", by, bytes.size(), field.width));
    return bytes;
  }
  const uint64_t most = field.width == 8 ? UINT64_MAX : (uint64_t{1} << (8 * field.width)) - 1;
  const bool is_negative =
      value.is_number_integer() && !value.is_number_unsigned() && value.get<int64_t>() < 0;
  const bool may_be_negative =
      field.kind == FieldKind::signed_word && is_negative && value.get<int64_t>() >= INT32_MIN;
  if (!value.is_number_integer() || (is_negative && !may_be_negative) ||
      (!is_negative && value.get<uint64_t>() > most)) {
    throw InputError(fmt::format("{}: not a number of {} bytes: {}", by, field.width, value.dump()));
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
    for (size_t i = 0; i < bytes.size(); ++i) {
      const size_t at = offset + i;
      if (given_[at] && bytes_[at] != bytes[i]) {
        throw InputError(
            fmt::format("{}: byte 0x{:x} has another value in {} than before it", path_, at, by));
      }
      bytes_[at] = bytes[i];
      given_[at] = true;
    }
  }

  void check_complete() const {
    const auto missing = std::find(given_.begin(), given_.end(), false);
    if (missing == given_.end()) return;
    throw InputError(fmt::format("{}: byte 0x{:x} is not given", path_, missing - given_.begin()));
  }

  const std::string& path() const { return path_; }
  Bytes& bytes() { return bytes_; }

 private:
  std::string path_;
  Bytes bytes_;
  std::vector<bool> given_;
};

struct PlacedRecord {
  const RecordSpec* spec;
  FileBuilder* file;
  size_t offset;

  std::span<uint8_t> bytes() const { return std::span(file->bytes()).subspan(offset, spec->size); }
};

class Packer {
 public:
  explicit Packer(const PackOptions& options) : options_(options) {}

  Packed pack(const Json& document) {
    const uint64_t version = number_at(document, "awbcal_json", UINT32_MAX);
    if (version != kJsonVersion)
      throw InputError(fmt::format("version {} where {} is known", version, kJsonVersion));
    if (document.at("command") != "show") throw InputError("not a document of \"awbcal show\"");
    for (const Json& file : document.at("files")) add_file(file);
    for (const Json& record : document.at("records")) add_record(record);
    for (FileBuilder& file : files_) file.check_complete();
    if (options_.seal || !options_.seal_kind.empty()) seal();
    Packed packed{.kind = kind_of(document.at("input").at("kind").get<std::string>()), .files = {}};
    for (FileBuilder& file : files_) packed.files.push_back({file.path(), std::move(file.bytes())});
    return packed;
  }

 private:
  static InputKind kind_of(const std::string& name) {
    for (const InputKind kind : {InputKind::phone, InputKind::partition, InputKind::export_image,
                                 InputKind::dual_camera_node, InputKind::record}) {
      if (name == input_kind_name(kind)) return kind;
    }
    throw InputError(fmt::format("no kind of input: \"{}\"", name));
  }

  void add_file(const Json& json) {
    const std::string path = safe_path(json.at("path").get<std::string>());
    if (json.contains("unreadable"))
      throw InputError(fmt::format("{}: was unreadable, its bytes are not known", path));
    FileBuilder builder(path, number_at(json, "size", kLargestFile));
    if (json.contains("text")) {
      const auto text = json.at("text").get<std::string>();
      builder.give(0, {reinterpret_cast<const uint8_t*>(text.data()), text.size()}, "\"text\"");
    } else {
      for (const Json& run : json.at("rest")) add_run(builder, run);
    }
    files_.push_back(std::move(builder));
  }

  static void add_run(FileBuilder& builder, const Json& run) {
    const uint64_t offset = number_at(run, "offset", kLargestFile);
    if (run.contains("fill")) {
      const Bytes fill(number_at(run, "size", kLargestFile),
                       static_cast<uint8_t>(number_at(run, "fill", 0xFF)));
      builder.give(offset, fill, "\"rest\"");
    } else {
      builder.give(offset, bytes_of_hex(run.at("bytes").get<std::string>()), "\"rest\"");
    }
  }

  FileBuilder& file_of(const std::string& path) {
    const auto found = std::find_if(files_.begin(), files_.end(),
                                    [&](const FileBuilder& file) { return file.path() == path; });
    if (found == files_.end()) throw InputError(fmt::format("no such file in \"files\": \"{}\"", path));
    return *found;
  }

  void add_record(const Json& json) {
    if (!json.contains("fields")) return;
    const auto id = json.at("kind").get<std::string>();
    const RecordSpec* spec = record_spec_of_id(id);
    if (spec == nullptr) throw InputError(fmt::format("no kind of record: \"{}\"", id));
    FileBuilder& file = file_of(json.at("file").get<std::string>());
    const size_t offset = number_at(json, "offset", kLargestFile);
    size_t known = 0;
    for (const FieldSpec& field : spec->fields) {
      const auto value = json.at("fields").find(field_id(field));
      if (value == json.at("fields").end()) continue;
      ++known;
      add_field(file, *spec, field, offset, *value);
    }
    if (known != json.at("fields").size())
      throw InputError(fmt::format("the {} has a field of no known name", spec->name));
    if (known == spec->fields.size()) placed_.push_back({spec, &file, offset});
  }

  static void add_field(FileBuilder& file, const RecordSpec& spec, const FieldSpec& field, size_t offset,
                        const Json& value) {
    const std::string by = fmt::format("{} of the {}", field.name, spec.name);
    try {
      file.give(offset + field.offset, bytes_of_field(field, value, by), by);
    } catch (const Json::exception&) {
      throw InputError(fmt::format("{}: not a value of its kind: {}", by, value.dump()));
    }
  }

  void seal() {
    for (const PlacedRecord& record : placed_) {
      const FieldSpec* crc = field_of_kind(*record.spec, FieldKind::crc);
      if (crc == nullptr || (!options_.seal_kind.empty() && options_.seal_kind != record.spec->id)) continue;
      const uint32_t sealed = crc_for(*crc, record.bytes());
      if (field_value(record.bytes(), *crc) == sealed) continue;
      if (options_.seal_kind.empty()) check_alone(record, *crc);
      set_field_value(record.bytes(), *crc, sealed);
    }
  }

  /// Sealing one of two records that share bytes spoils the other: that has to be asked for by name.
  void check_alone(const PlacedRecord& record, const FieldSpec& crc) const {
    const size_t begin = record.offset + crc.offset;
    for (const PlacedRecord& other : placed_) {
      if (other.spec == record.spec || other.file != record.file) continue;
      if (begin >= other.offset + other.spec->size || begin + crc.width <= other.offset) continue;
      throw InputError(fmt::format("the CRC of the {} lies in the {}: name the one to seal, --seal-only {}",
                                   record.spec->name, other.spec->name, record.spec->id));
    }
  }

  const PackOptions& options_;
  std::vector<FileBuilder> files_;
  std::vector<PlacedRecord> placed_;
};

}  // namespace

Packed pack_document(const Json& document, const PackOptions& options) {
  try {
    return Packer(options).pack(document);
  } catch (const Json::exception& error) {
    throw InputError(fmt::format("not a document of \"awbcal show\": {}", error.what()));
  }
}

}  // namespace awbcal
