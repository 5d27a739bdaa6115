#include "inspect/redaction.h"

#include <fmt/format.h>

#include <cctype>
#include <cstdlib>

#include "inspect/judge.h"
#include "inspect/verdict.h"

namespace awbcal {

namespace {

constexpr uint32_t kSign = 0x80000000;
/// Smaller words stand for too much else to be taken for a fuse word wherever they are.
constexpr uint32_t kSmallestTelling = 0x10000;

class Redactor {
 public:
  explicit Redactor(Input& input) : input_(input) {
    for (const InputFile& file : input.files) touched_.emplace_back(file.content.bytes.size());
  }

  void run() {
    for (const FoundRecord& record : input_.records) redact_record(record);
    for (InputFile& file : input_.files) redact_lines(file);
    for (size_t file = 0; file < input_.files.size(); ++file) sweep(file);
    for (const FoundRecord& record : input_.records) seal(record);
    for (const FoundRecord& record : input_.records) follow_owner(record);
  }

 private:
  std::span<uint8_t> bytes_at(const FoundRecord& record) {
    return std::span(input_.files[record.file].content.bytes).subspan(record.offset, record.bytes.size());
  }

  void redact_lines(InputFile& file) {
    if (file.layout != Layout::text && file.layout != Layout::properties) return;
    const std::string text = redact_text(text_of(file.content.bytes), map_);
    file.content.bytes.assign(text.begin(), text.end());
  }

  void redact_record(const FoundRecord& record) {
    if (record.bytes.empty() || is_blank_record(input_, record)) return;
    const FoundRecord* owner = good_overlap(input_, record);
    for (const FieldSpec& field : record.spec->fields) {
      if (field.kind != FieldKind::fuse_word || !fits(field, record.bytes.size())) continue;
      if (owner == nullptr || !is_shared(record, *owner, field)) redact_field(record, field);
    }
  }

  /// Bytes that another record has written over are its own, whatever they would mean here.
  static bool is_shared(const FoundRecord& record, const FoundRecord& owner, const FieldSpec& field) {
    const size_t shared = record.spec->offset.value() < owner.spec->offset.value()
                              ? owner.spec->offset.value() - record.spec->offset.value()
                              : 0;
    const size_t end = shared != 0
                           ? record.spec->size
                           : owner.spec->offset.value() + owner.spec->size - record.spec->offset.value();
    return field.offset < end && field.offset + field.width > shared;
  }

  void redact_field(const FoundRecord& record, const FieldSpec& field) {
    const uint64_t value = field_value(record.bytes, field);
    const auto high = static_cast<uint32_t>(value >> 32);
    const uint32_t low = map_.replacement(static_cast<uint32_t>(value));
    // An extended sign is no part of the word.
    const uint32_t new_high = high == UINT32_MAX ? high : map_.replacement(high);
    set_field_value(bytes_at(record), field, uint64_t{new_high} << 32 | low);
    touch(record.file, record.offset + field.offset, field.width);
  }

  void touch(size_t file, uint64_t offset, size_t size) {
    const auto first = touched_[file].begin() + static_cast<std::ptrdiff_t>(offset);
    std::fill(first, first + static_cast<std::ptrdiff_t>(size), true);
  }

  /// Copies of the words where no record is: old blocks, payloads, other files.
  void sweep(size_t index) {
    InputFile& file = input_.files[index];
    if (file.layout == Layout::text || file.layout == Layout::properties) return;
    Bytes& bytes = file.content.bytes;
    const FieldSpec word{0, sizeof(uint32_t), FieldKind::number, ""};
    for (size_t at = 0; at + sizeof(uint32_t) <= bytes.size(); ++at) {
      const auto here = std::span(bytes).subspan(at, sizeof(uint32_t));
      const auto value = static_cast<uint32_t>(field_value(here, word));
      if (value < kSmallestTelling || value == UINT32_MAX || touched_[index][at] || touched_[index][at + 3])
        continue;
      const auto replacement = map_.known(value);
      if (!replacement) continue;
      set_field_value(here, word, *replacement);
      touch(index, at, sizeof(uint32_t));
    }
  }

  void seal(const FoundRecord& record) {
    const FieldSpec* crc = field_of_kind(*record.spec, FieldKind::crc);
    if (crc == nullptr || record.is_truncated() || is_blank(record.bytes)) return;
    if (!claims_of(*record.spec, record.bytes).has_good_crc()) return;
    const std::span<uint8_t> bytes = bytes_at(record);
    set_field_value(bytes, *crc, crc_for(*crc, bytes));
  }

  /// The kernel's export has the bytes that two records share twice.
  void follow_owner(const FoundRecord& record) {
    const FoundRecord* owner = good_overlap(input_, record);
    if (owner == nullptr) return;
    const std::span<uint8_t> mine = bytes_at(record);
    const std::span<uint8_t> theirs = bytes_at(*owner);
    for (size_t i = 0; i < mine.size(); ++i) {
      const size_t at = i + *record.spec->offset - *owner->spec->offset;
      if (at < theirs.size()) mine[i] = theirs[at];
    }
  }

  Input& input_;
  FuseMap map_;
  std::vector<std::vector<bool>> touched_;
};

// ---- text -------------------------------------------------------------------------------------------------

/// A number as it was written: decimal, or hexadecimal with 0x.
std::string in_style_of(const std::string& text, uint32_t word) {
  if (text.starts_with("0x")) return fmt::format("0x{:x}", word);
  return text.starts_with('-') ? fmt::format("{}", static_cast<int32_t>(word)) : fmt::format("{}", word);
}

std::optional<uint32_t> word_of(const std::string& text) {
  const bool is_hex = text.starts_with("0x");
  char* end = nullptr;
  const auto value = std::strtoll(text.c_str(), &end, is_hex ? 16 : 10);
  if (end == text.c_str() || *end != '\0') return std::nullopt;
  return static_cast<uint32_t>(value);
}

/// Numbers anywhere in a line that are words met elsewhere.
std::string redact_numbers(const std::string& line, FuseMap& map) {
  std::string result;
  for (size_t at = 0; at < line.size();) {
    size_t end = at;
    while (end < line.size() &&
           (std::isalnum(static_cast<unsigned char>(line[end])) != 0 || line[end] == '-'))
      ++end;
    const std::string token = line.substr(at, end - at);
    const auto word = word_of(token);
    const auto replacement = word && *word >= kSmallestTelling ? map.known(*word) : std::nullopt;
    result += replacement ? in_style_of(token, *replacement) : token;
    if (end < line.size()) result += line[end++];
    at = end;
  }
  return result;
}

/// "...fuse1=123", "[...fuse1]: [123]" or "Fuse_ID[1]=0x7b": the value, however the library reads it.
std::optional<std::string> redact_fuse_line(const std::string& line, FuseMap& map) {
  if (line.starts_with('#')) return std::nullopt;
  const bool is_report = line.starts_with("Fuse_ID[");
  const bool is_printed = line.starts_with('[');
  const size_t name_end = is_printed ? line.find("]: [") : line.find('=');
  if (name_end == std::string::npos) return std::nullopt;
  if (!is_report && line.substr(0, name_end).find("_fuse") == std::string::npos) return std::nullopt;
  const size_t begin = name_end + (is_printed ? 4 : 1);
  const std::string value = line.substr(begin);
  // Properties are decimal to the library: "0x12" is 0 there, and what follows a number is no part of it.
  const uint32_t word = static_cast<uint32_t>(std::strtoll(value.c_str(), nullptr, is_report ? 16 : 10));
  const std::string style = is_report ? "0x" : value.starts_with('-') ? "-" : "";
  return line.substr(0, begin) + in_style_of(style, map.replacement(word)) + (is_printed ? "]" : "");
}

}  // namespace

uint32_t FuseMap::replacement(uint32_t word) {
  if (word == 0) return 0;
  // The sign is kept: some readers take the words as signed.
  const auto next = static_cast<uint32_t>(words_.size() + 1);
  return words_.try_emplace(word, (word & kSign) | next).first->second;
}

std::optional<uint32_t> FuseMap::known(uint32_t word) const {
  const auto found = words_.find(word);
  return found == words_.end() ? std::nullopt : std::optional(found->second);
}

std::string redact_text(std::string_view text, FuseMap& map) {
  std::string result;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string line(text.substr(0, end));
    const auto fuse_line = redact_fuse_line(line, map);
    result += fuse_line ? *fuse_line : redact_numbers(line, map);
    if (end == std::string_view::npos) break;
    result += '\n';
    text.remove_prefix(end + 1);
  }
  return result;
}

void redact(Input& input) {
  Redactor(input).run();
}

}  // namespace awbcal
