// Record bytes as named fields. Says what stands there, not whether it is good (inspect/verdict.h).
#ifndef INSPECT_DECODE_H
#define INSPECT_DECODE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "inspect/record_kinds.h"

namespace awbcal {

using Bytes = std::vector<uint8_t>;

/// Where the record area begins, by the property "ro.pagesize".
uint32_t area_base(const std::string& page_size);

/// `spec` is of a record that lies on the partition.
uint32_t area_offset(const RecordSpec& spec, int camid);

/// The field as a number, little-endian; 0 for a run of bytes.
uint64_t field_value(std::span<const uint8_t> record, const FieldSpec& field);

/// Puts the low bytes of `value` into the field.
void set_field_value(std::span<uint8_t> record, const FieldSpec& field, uint64_t value);

struct Field {
  size_t offset;
  std::string name;
  std::string value;
  std::string meaning;
};

/// The fields that lie wholly in `record`, which may be cut short.
std::vector<Field> decode(const RecordSpec& spec, std::span<const uint8_t> record);

/// Whether a field lies wholly in the first `size` bytes.
constexpr bool fits(const FieldSpec& field, size_t size) {
  return field.offset + field.width <= size;
}

/// All bytes are 0x00, or all are 0xFF; an empty run is not blank.
bool is_blank(std::span<const uint8_t> bytes);

/// How many bytes at the beginning are the same; 0 of none.
size_t fill_length(std::span<const uint8_t> bytes);

/// "all ones" or "all zeros", of blank bytes.
const char* blank_text(std::span<const uint8_t> bytes);

std::string hex(std::span<const uint8_t> bytes);

}  // namespace awbcal

#endif
