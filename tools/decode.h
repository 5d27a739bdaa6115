// Record bytes as named fields. Says what stands there, not whether it is good (tools/judge.h).
#ifndef TOOLS_DECODE_H
#define TOOLS_DECODE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace awbcal {

using Bytes = std::vector<uint8_t>;

enum class RecordKind { awb, a_light_awb, flash, aec, dual_flash, gyro, dual_camera };

enum class FieldKind { valid_word, unity_word, signed_word, number, fuse_word, payload, crc };

struct FieldSpec {
  size_t offset;
  size_t width;  ///< bytes; for a payload its length
  FieldKind kind;
  const char* name;
};

/// Where a record lies and what its bytes are.
struct RecordSpec {
  RecordKind kind;
  const char* name;
  uint32_t offset;  ///< in the slot of its camera; in the record area for the one of the whole phone
  bool is_per_camera;
  size_t size;
  std::span<const FieldSpec> fields;
};

const RecordSpec& record_spec(RecordKind kind);

/// Where the record area begins, by the property "ro.pagesize".
uint32_t area_base(const std::string& page_size);

uint32_t area_offset(const RecordSpec& spec, int camid);

/// The field as a number, little-endian; 0 for a payload.
uint64_t field_value(std::span<const uint8_t> record, const FieldSpec& field);

struct Field {
  size_t offset;
  std::string name;
  std::string value;
  std::string meaning;
};

/// `record` holds at least the record's size.
std::vector<Field> decode(const RecordSpec& spec, std::span<const uint8_t> record);

}  // namespace awbcal

#endif
