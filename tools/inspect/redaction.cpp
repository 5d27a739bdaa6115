#include "inspect/redaction.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "inspect/claims.h"

namespace awbcal {

namespace {

constexpr uint32_t kSign = 0x80000000;
/// Smaller words stand for too much else to be taken for a fuse word wherever they are.
constexpr uint32_t kSmallestTelling = 0x10000;

/// The phone under work: its new bytes, and which of them were replaced.
struct Redaction {
  Phone& phone;
  FuseMap map = {};
  std::vector<std::vector<bool>> touched = {};
  std::set<std::string> values = {};  ///< of properties that identify the device or its owner
};

std::span<uint8_t> bytes_at(Redaction& work, const FoundRecord& record) {
  return std::span(work.phone.files[record.file].content.bytes).subspan(record.offset, record.bytes.size());
}

void touch(Redaction& work, size_t file, uint64_t offset, size_t size) {
  const auto first = work.touched[file].begin() + static_cast<std::ptrdiff_t>(offset);
  std::fill(first, first + static_cast<std::ptrdiff_t>(size), true);
}

/// Bytes that another record has written over are its own, whatever they would mean here.
bool is_shared(const FoundRecord& record, const FoundRecord& owner, const FieldSpec& field) {
  const size_t shared = record.spec->offset.value() < owner.spec->offset.value()
                            ? owner.spec->offset.value() - record.spec->offset.value()
                            : 0;
  const size_t end = shared != 0
                         ? record.spec->size
                         : owner.spec->offset.value() + owner.spec->size - record.spec->offset.value();
  return field.offset < end && field.offset + field.width > shared;
}

void redact_field(Redaction& work, const FoundRecord& record, const FieldSpec& field) {
  const uint64_t value = field_value(record.bytes, field);
  const auto high = static_cast<uint32_t>(value >> 32);
  const uint32_t low = work.map.replacement(static_cast<uint32_t>(value));
  // An extended sign is no part of the word.
  const uint32_t new_high = high == UINT32_MAX ? high : work.map.replacement(high);
  set_field_value(bytes_at(work, record), field, uint64_t{new_high} << 32 | low);
  touch(work, record.file, record.offset + field.offset, field.width);
}

void redact_record(Redaction& work, const FoundRecord& record) {
  if (record.bytes.empty() || is_blank_record(work.phone, record)) return;
  const FoundRecord* owner = good_overlap(work.phone, record);
  for (const FieldSpec& field : record.spec->fields) {
    if (field.kind != FieldKind::fuse_word || !fits(field, record.bytes.size())) continue;
    if (owner == nullptr || !is_shared(record, *owner, field)) redact_field(work, record, field);
  }
}

bool is_text(const PhoneFile& file) {
  return file.layout == Layout::text || file.layout == Layout::properties;
}

void redact_lines(Redaction& work, PhoneFile& file) {
  if (!is_text(file)) return;
  const std::string text = redact_text(text_of(file.content.bytes), work.map, work.values);
  file.content.bytes.assign(text.begin(), text.end());
}

/// Copies of the words where no record is: old blocks, payloads, other files.
void sweep(Redaction& work, size_t index) {
  PhoneFile& file = work.phone.files[index];
  if (is_text(file)) return;
  Bytes& bytes = file.content.bytes;
  const std::vector<bool>& touched = work.touched[index];
  const FieldSpec word{0, sizeof(uint32_t), FieldKind::number, ""};
  for (size_t at = 0; at + sizeof(uint32_t) <= bytes.size(); ++at) {
    const auto here = std::span(bytes).subspan(at, sizeof(uint32_t));
    const auto value = static_cast<uint32_t>(field_value(here, word));
    if (value < kSmallestTelling || value == UINT32_MAX || touched[at] || touched[at + 3]) continue;
    const auto replacement = work.map.known(value);
    if (!replacement) continue;
    set_field_value(here, word, *replacement);
    touch(work, index, at, sizeof(uint32_t));
  }
}

void seal(Redaction& work, const FoundRecord& record) {
  const FieldSpec* crc = field_of_kind(*record.spec, FieldKind::crc);
  if (crc == nullptr || record.is_truncated() || is_blank(record.bytes)) return;
  if (!claims_of(*record.spec, record.bytes).has_good_crc()) return;
  const std::span<uint8_t> bytes = bytes_at(work, record);
  set_field_value(bytes, *crc, crc_for(*crc, bytes));
}

/// The kernel's export has the bytes that two records share twice.
void follow_owner(Redaction& work, const FoundRecord& record) {
  const FoundRecord* owner = good_overlap(work.phone, record);
  if (owner == nullptr) return;
  const std::span<uint8_t> mine = bytes_at(work, record);
  const std::span<uint8_t> theirs = bytes_at(work, *owner);
  for (size_t i = 0; i < mine.size(); ++i) {
    const size_t at = i + *record.spec->offset - *owner->spec->offset;
    if (at < theirs.size()) mine[i] = theirs[at];
  }
}

// ---- properties of the device and its owner ---------------------------------------------------------------

bool is_identifying(const std::string& name) {
  constexpr const char* kParts[] = {"serial",   "imei",       "meid",      "imsi",    "iccid",
                                    "msisdn",   "mac",        "bdaddr",    "btaddr",  "bluetooth",
                                    "hostname", "android_id", "device_id", "deviceid"};
  std::string lower;
  for (const char c : name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return std::any_of(std::begin(kParts), std::end(kParts),
                     [&](const char* part) { return lower.find(part) != std::string::npos; });
}

/// Whether a text has the form of a network address or of an IMEI.
bool looks_identifying(const std::string& value) {
  constexpr size_t kImei = 15;
  constexpr size_t kAddress = 17;
  const auto digits =
      std::count_if(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  const auto hex_digits =
      std::count_if(value.begin(), value.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
  const auto colons = std::count(value.begin(), value.end(), ':');
  return (value.size() == kImei && digits == static_cast<std::ptrdiff_t>(kImei)) ||
         (value.size() == kAddress && colons == 5 && hex_digits == 12);
}

/// "unknown", "0" and a switch's "true" identify nobody, and as parts of other texts they would be everywhere.
bool can_identify(const std::string& value) {
  constexpr size_t kShortest = 6;
  return value.size() >= kShortest &&
         std::any_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::map<std::string, std::string> identifying_properties(const Phone& phone) {
  std::map<std::string, std::string> found;
  if (!phone.properties) return found;
  for (const auto& [name, value] : *phone.properties) {
    if ((is_identifying(name) && can_identify(value)) || looks_identifying(value)) found.emplace(name, value);
  }
  return found;
}

/// As long as before and of the same look, without its meaning.
std::string without_meaning(std::string text) {
  for (char& c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) c = '0';
  }
  return text;
}

std::string redact_values(std::string line, const std::set<std::string>& values) {
  for (const std::string& value : values) {
    for (size_t at = 0; (at = line.find(value, at)) != std::string::npos; at += value.size())
      line.replace(at, value.size(), without_meaning(value));
  }
  return line;
}

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

std::string redact_text(std::string_view text, FuseMap& map, const std::set<std::string>& values) {
  std::string result;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string line(text.substr(0, end));
    const auto fuse_line = redact_fuse_line(line, map);
    result += fuse_line ? *fuse_line : redact_numbers(redact_values(line, values), map);
    if (end == std::string_view::npos) break;
    result += '\n';
    text.remove_prefix(end + 1);
  }
  return result;
}

void redact(Phone& phone) {
  Redaction work{.phone = phone};
  for (const auto& [name, value] : identifying_properties(phone)) work.values.insert(value);
  for (const PhoneFile& file : phone.files) work.touched.emplace_back(file.content.bytes.size());
  for (const FoundRecord& record : phone.records) redact_record(work, record);
  for (PhoneFile& file : phone.files) redact_lines(work, file);
  for (size_t file = 0; file < phone.files.size(); ++file) sweep(work, file);
  for (const FoundRecord& record : phone.records) seal(work, record);
  for (const FoundRecord& record : phone.records) follow_owner(work, record);
}

std::vector<Trace> traces_in(const Phone& phone) {
  std::vector<Trace> traces;
  for (const FoundRecord& record : phone.records) {
    if (record.bytes.empty() || is_blank_record(phone, record)) continue;
    const std::string& file = phone.files[record.file].path;
    if (field_of_kind(*record.spec, FieldKind::fuse_word) != nullptr)
      traces.push_back({file, fmt::format("fuse ID of the {}", record.spec->name), true});
    if (field_of_kind(*record.spec, FieldKind::payload) != nullptr)
      traces.push_back({file, fmt::format("payload of the {}", record.spec->name), false});
  }
  const std::map<std::string, std::string> properties = identifying_properties(phone);
  for (const PhoneFile& file : phone.files) {
    const std::string_view text = text_of(file.content.bytes);
    if (file.content.trouble) {
      traces.push_back({file.path, "unreadable: " + *file.content.trouble, false});
    } else if (file.layout == Layout::other && file.link_target.empty()) {
      traces.push_back({file.path, "not decoded: may hold anything", false});
    } else if (is_text(file)) {
      for (const auto& [name, value] : properties) {
        if (text.find(name) != std::string_view::npos) traces.push_back({file.path, name, true});
      }
      if (text.find("_fuse") != std::string_view::npos || text.find("Fuse_ID[") != std::string_view::npos)
        traces.push_back({file.path, "fuse IDs", true});
    }
  }
  return traces;
}

}  // namespace awbcal
