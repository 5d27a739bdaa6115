#include "inspect/decode.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "records/judgement.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace {

using enum FieldKind;

std::string value_text(const FieldSpec& field, uint64_t value) {
  switch (field.kind) {
    case fuse_word:
    case crc:
      return fmt::format("0x{:0{}x}", value, 2 * std::min(field.width, sizeof(uint32_t)));
    case signed_word:
      return fmt::format("{}", static_cast<int32_t>(value));
    case payload:
      return fmt::format("{} bytes", field.width);
    case gains:
      return fmt::format("{} gains", field.width / sizeof(float));
    default:
      return fmt::format("{}", value);
  }
}

std::string gains_text(std::span<const uint8_t> run) {
  float least = calib::record_at<float>(run.data());
  float most = least;
  for (size_t at = 0; at + sizeof(float) <= run.size(); at += sizeof(float)) {
    const auto gain = calib::record_at<float>(run.data() + at);
    if (!std::isfinite(gain)) return "holds values that are not numbers";
    least = std::min(least, gain);
    most = std::max(most, gain);
  }
  return fmt::format("{:.4g} to {:.4g}", least, most);
}

std::string meaning_text(const FieldSpec& field, uint64_t value) {
  switch (field.kind) {
    case valid_word:
      return fmt::format("version {}, {}", value / calib::kVersionUnit,
                         value % calib::kVersionUnit == calib::kValidMark ? "calibrated" : "not valid");
    case unity_word:
      return fmt::format("{:.4f}", static_cast<double>(value) / calib::kUnityWord);
    case signed_word:
      return fmt::format("{:.4f}", static_cast<int32_t>(value) / double{calib::kUnityWord});
    default:
      return "";
  }
}

}  // namespace

uint32_t area_base(const std::string& page_size) {
  return page_size == "4096" ? calib::kAreaBase4k : calib::kAreaBase2k;
}

uint32_t area_offset(const RecordSpec& spec, int camid) {
  return spec.offset.value() + (spec.is_per_camera ? static_cast<uint32_t>(camid) * calib::kSlotSize : 0);
}

uint64_t field_value(std::span<const uint8_t> record, const FieldSpec& field) {
  if (is_run_of_bytes(field)) return 0;
  const auto bytes = record.subspan(field.offset, field.width);
  if (bytes.size() == sizeof(uint32_t)) return calib::record_at<uint32_t>(bytes.data());
  uint64_t value = 0;
  for (size_t i = bytes.size(); i-- > 0;) value = value << 8 | bytes[i];
  return value;
}

void set_field_value(std::span<uint8_t> record, const FieldSpec& field, uint64_t value) {
  for (uint8_t& byte : record.subspan(field.offset, field.width)) {
    byte = static_cast<uint8_t>(value);
    value >>= 8;
  }
}

std::vector<Field> decode(const RecordSpec& spec, std::span<const uint8_t> record) {
  std::vector<Field> fields;
  for (const FieldSpec& field : spec.fields) {
    if (!fits(field, record.size())) continue;
    const uint64_t value = field_value(record, field);
    const std::string meaning = field.kind == gains ? gains_text(record.subspan(field.offset, field.width))
                                                    : meaning_text(field, value);
    fields.push_back({field.offset, field.name, value_text(field, value), meaning});
  }
  return fields;
}

bool is_blank(std::span<const uint8_t> bytes) {
  if (bytes.empty() || (bytes[0] != 0x00 && bytes[0] != 0xFF)) return false;
  return std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

size_t fill_length(std::span<const uint8_t> bytes) {
  constexpr size_t kAtOnce = 64;
  if (bytes.empty()) return 0;
  size_t same = 1;
  while (bytes.size() - same >= kAtOnce && std::memcmp(&bytes[same - 1], &bytes[same], kAtOnce) == 0)
    same += kAtOnce;
  while (same < bytes.size() && bytes[same] == bytes[0]) ++same;
  return same;
}

const char* blank_text(std::span<const uint8_t> bytes) {
  return bytes[0] == 0xFF ? "all ones" : "all zeros";
}

std::string hex(std::span<const uint8_t> bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0xF];
  }
  return text;
}

}  // namespace awbcal
