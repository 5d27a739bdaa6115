// A second opinion on records that the tool calls good.
#ifndef TESTS_SUPPORT_SEALED_H
#define TESTS_SUPPORT_SEALED_H

#include <algorithm>

#include "inspect/phone.h"
#include "tests/support/bitwise_crc.h"

namespace tool {

/// By another hand: whether the record has its CRC, or has none.
inline bool is_sealed(const awbcal::FoundRecord& record) {
  return std::ranges::all_of(record.spec->fields, [&record](const awbcal::FieldSpec& field) {
    if (field.kind != awbcal::FieldKind::crc) return true;
    const uint32_t crc = support::bitwise_crc(record.bytes.data(), field.offset);
    return awbcal::field_value(record.bytes, field) == (field.width == 1 ? crc & 0xFF : crc);
  });
}

}  // namespace tool

#endif
