#include "inspect/redaction.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "inspect/claims.h"
#include "inspect/partition_search.h"
#include "phone/services/properties_file.h"

namespace awbcal {

namespace {

constexpr const char* kDeviceFolder = "mmcblk";
constexpr uint32_t kSign = 0x80000000;
/// Smaller words stand for too much else to be taken for a fuse word wherever they are.
constexpr uint32_t kSmallestTelling = 0x10000;

/// A replacement is a small number with the sign of the word that was there.
bool is_telling(uint64_t word) {
  return (word & UINT32_MAX & ~uint64_t{kSign}) >= kSmallestTelling;
}

/// As long as before and of the same look, without its meaning.
std::string without_meaning(std::string text) {
  for (char& c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) c = '0';
  }
  return text;
}

/// In a text, or in bytes.
template <class Text>
Text redact_values(Text text, const std::set<std::string>& values) {
  const auto is_same = [](auto byte, char c) { return static_cast<char>(byte) == c; };
  for (const std::string& value : values) {
    const std::string blank = without_meaning(value);
    for (auto at = text.begin();
         (at = std::search(at, text.end(), value.begin(), value.end(), is_same)) != text.end();)
      at = std::copy(blank.begin(), blank.end(), at);
  }
  return text;
}

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
  const bool is_known = has_good_crc(record);
  for (const FieldSpec& field : record.spec->fields) {
    if (field.kind == FieldKind::fuse_word) {
      const bool is_own = owner == nullptr || !is_shared(record, *owner, field);
      if (is_own && fits(field, record.bytes.size())) redact_field(work, record, field);
    } else if (is_known && field.kind != FieldKind::payload) {
      // What looks like a copy of a fuse word is another number there.
      touch(work, record.file, record.offset + field.offset, field.width);
    }
  }
}

bool is_text(const PhoneFile& file) {
  return file.layout == Layout::text || file.layout == Layout::properties;
}

void redact_lines(Redaction& work, PhoneFile& file) {
  if (!is_text(file)) return;
  Bytes& bytes = file.content.bytes;
  // The numbers of a table are places and sizes, of whatever look.
  if (is_table(file.path)) {
    bytes = redact_values(std::move(bytes), work.values);
    return;
  }
  const std::string text = redact_text(text_of(bytes), work.map, work.values);
  bytes.assign(text.begin(), text.end());
}

/// Copies of texts and words where no record is: old blocks, payloads, other files.
void sweep(Redaction& work, size_t index) {
  PhoneFile& file = work.phone.files[index];
  if (is_text(file)) return;
  Bytes& bytes = file.content.bytes;
  bytes = redact_values(std::move(bytes), work.values);
  const std::vector<bool>& touched = work.touched[index];
  const FieldSpec word{0, sizeof(uint32_t), FieldKind::number, ""};
  for (size_t at = 0; at + sizeof(uint32_t) <= bytes.size(); ++at) {
    const auto here = std::span(bytes).subspan(at, sizeof(uint32_t));
    // Most of a partition: nothing in a blank run is a word.
    if (is_blank(here)) at += fill_length(std::span(bytes).subspan(at)) - sizeof(uint32_t);
    const auto value = static_cast<uint32_t>(field_value(here, word));
    if (value < kSmallestTelling || value == UINT32_MAX || touched[at] || touched[at + 3]) continue;
    const auto replacement = work.map.known(value);
    if (!replacement) continue;
    set_field_value(here, word, *replacement);
    touch(work, index, at, sizeof(uint32_t));
  }
}

void seal(Redaction& work, const FoundRecord& record) {
  if (!has_good_crc(record)) return;
  const FieldSpec* crc = field_of_kind(*record.spec, FieldKind::crc);
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

/// Whether a text has the form of a network address, or of the number of a device or of a card.
bool looks_identifying(const std::string& value) {
  constexpr size_t kImei = 15;
  constexpr size_t kCardNumber = 20;
  constexpr size_t kAddress = 17;
  const auto digits =
      std::count_if(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  const auto hex_digits =
      std::count_if(value.begin(), value.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
  const auto separators =
      std::count(value.begin(), value.end(), ':') + std::count(value.begin(), value.end(), '-');
  const bool is_number = digits == static_cast<std::ptrdiff_t>(value.size());
  return (is_number && value.size() >= kImei && value.size() <= kCardNumber) ||
         (value.size() == kAddress && separators == 5 && hex_digits == 12);
}

/// "unknown", "0" and a switch's "true" identify nobody, and as parts of other texts they would be everywhere.
bool can_identify(const std::string& value) {
  constexpr size_t kShortest = 6;
  return value.size() >= kShortest && value != without_meaning(value) &&
         std::any_of(value.begin(), value.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::map<std::string, std::string> identifying_properties(const PhoneFile& file) {
  std::map<std::string, std::string> found;
  if (file.layout != Layout::properties) return found;
  for (const auto& [name, value] : phone::parse_properties(text_of(file.content.bytes))) {
    if (can_identify(value) && (is_identifying(name) || looks_identifying(value))) found.emplace(name, value);
  }
  return found;
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

/// Where a line has a fuse word, and which.
struct FuseLine {
  size_t begin;
  uint32_t word;
  std::string style;  ///< begins as the number does
  const char* end;
};

/// "...fuse1=123", "[...fuse1]: [123]" or "Fuse_ID[1]=0x7b": the value, however the library reads it.
std::optional<FuseLine> fuse_line_of(const std::string& line) {
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
  return FuseLine{begin, word, style, is_printed ? "]" : ""};
}

std::string redact_line(const std::string& line, FuseMap& map, const std::set<std::string>& values) {
  const std::optional<FuseLine> fuse = fuse_line_of(line);
  if (!fuse) return redact_numbers(redact_values(line, values), map);
  return line.substr(0, fuse->begin) + in_style_of(fuse->style, map.replacement(fuse->word)) + fuse->end;
}

template <class Take>
void for_each_line(std::string_view text, Take&& take) {
  while (!text.empty()) {
    const size_t end = text.find('\n');
    take(std::string(text.substr(0, end)), end != std::string_view::npos);
    text.remove_prefix(std::min(end, text.size() - 1) + 1);
  }
}

// ---- traces -----------------------------------------------------------------------------------------------

bool bears_fuse_id(const FoundRecord& record) {
  return std::any_of(record.spec->fields.begin(), record.spec->fields.end(), [&](const FieldSpec& field) {
    return field.kind == FieldKind::fuse_word && fits(field, record.bytes.size()) &&
           is_telling(field_value(record.bytes, field));
  });
}

/// Whether there is more in a partition than its records, which only copies of their words are replaced in.
bool holds_other_bytes(const Phone& phone, const PhoneFile& file) {
  if (file.layout != Layout::partition) return false;
  std::vector<bool> known(file.content.bytes.size());
  for (const FoundRecord& record : phone.records) {
    if (&phone.files[record.file] == &file && !record.bytes.empty())
      std::fill_n(known.begin() + static_cast<std::ptrdiff_t>(record.offset), record.bytes.size(), true);
  }
  for (size_t at = 0; at < known.size(); ++at) {
    const uint8_t byte = file.content.bytes[at];
    if (!known[at] && byte != 0x00 && byte != 0xFF) return true;
  }
  return false;
}

void add_record_traces(const Phone& phone, const FoundRecord& record, std::vector<Trace>& traces) {
  if (record.bytes.empty() || is_blank_record(phone, record)) return;
  const std::string& file = phone.files[record.file].path;
  if (bears_fuse_id(record))
    traces.push_back({file, fmt::format("fuse ID of the {}", record.spec->name), Fate::replaced});
  if (field_of_kind(*record.spec, FieldKind::payload) != nullptr)
    traces.push_back({file, fmt::format("undecoded bytes of the {}", record.spec->name), Fate::left});
}

bool is_shared_link(const PhoneFile& file) {
  return file.layout == Layout::other && file.path.starts_with("dev/") && !file.link_target.empty() &&
         file.link_target.find(kDeviceFolder) != std::string::npos;
}

void add_file_traces(const Phone& phone, const PhoneFile& file, std::vector<Trace>& traces) {
  if (is_shared_link(file)) return;
  if (file.content.trouble)
    return traces.push_back({file.path, "unreadable: " + *file.content.trouble, Fate::left_out});
  if (file.layout == Layout::other)
    return traces.push_back({file.path, "not decoded: may hold anything", Fate::left_out});
  for (const auto& [name, value] : identifying_properties(file))
    traces.push_back({file.path, name, Fate::replaced});
  if (holds_other_bytes(phone, file)) traces.push_back({file.path, "bytes outside the records", Fate::left});
  bool has_fuse_id = false;
  if (is_text(file)) {
    for_each_line(text_of(file.content.bytes), [&](const std::string& line, bool) {
      const auto fuse = fuse_line_of(line);
      has_fuse_id = has_fuse_id || (fuse && is_telling(fuse->word));
    });
  }
  if (has_fuse_id) traces.push_back({file.path, "fuse IDs", Fate::replaced});
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

const char* fate_name(Fate fate) {
  constexpr std::array kNames = {"replaced", "left", "left out"};
  return kNames.at(static_cast<size_t>(fate));
}

std::string redact_text(std::string_view text, FuseMap& map, const std::set<std::string>& values) {
  std::string result;
  for_each_line(text, [&](const std::string& line, bool is_ended) {
    result += redact_line(line, map, values) + (is_ended ? "\n" : "");
  });
  return result;
}

void redact(Phone& phone) {
  Redaction work{.phone = phone};
  for (const PhoneFile& file : phone.files) {
    for (const auto& [name, value] : identifying_properties(file)) work.values.insert(value);
    work.touched.emplace_back(file.content.bytes.size());
  }
  for (const FoundRecord& record : phone.records) redact_record(work, record);
  for (PhoneFile& file : phone.files) redact_lines(work, file);
  for (size_t file = 0; file < phone.files.size(); ++file) sweep(work, file);
  for (const FoundRecord& record : phone.records) seal(work, record);
  for (const FoundRecord& record : phone.records) follow_owner(work, record);
  // Where both records of a shared place are good, the one's checksum is under the other's.
  for (const FoundRecord& record : phone.records) seal(work, record);
}

std::vector<Trace> traces_in(const Phone& phone) {
  std::vector<Trace> traces;
  for (const FoundRecord& record : phone.records) add_record_traces(phone, record, traces);
  for (const PhoneFile& file : phone.files) add_file_traces(phone, file, traces);
  return traces;
}

std::vector<OutputFile> files_to_share(const Phone& phone) {
  std::vector<OutputFile> files;
  for (const PhoneFile& file : phone.files) {
    if (is_shared_link(file)) {
      files.push_back({file.path, {}, file.link_target});
    } else if (file.layout != Layout::other && !file.content.trouble) {
      files.push_back({file.path, file.content.bytes, {}});
    }
  }
  return files;
}

}  // namespace awbcal
