// A second opinion on records that the tool calls good.
#ifndef TESTS_SUPPORT_SEALED_H
#define TESTS_SUPPORT_SEALED_H

#include "inspect/phone.h"
#include "tests/support/bitwise_crc.h"

namespace tool {

/// By another hand: whether the record, as it lies in its file, has its CRC, or has none.
inline bool is_sealed(const awbcal::Phone& phone, const awbcal::FoundRecord& record) {
  if (record.spec->kind == awbcal::RecordKind::dual_camera_payload) return true;
  const uint8_t* bytes = phone.files[record.file].content.bytes.data() + record.offset;
  const size_t size = record.spec->size;
  if (record.spec->kind == awbcal::RecordKind::dual_camera_first_form)
    return (support::bitwise_crc(bytes, size - 1) & 0xFF) == bytes[size - 1];
  // Over bytes and their own CRC, and zeros behind it, the CRC is 0.
  return support::bitwise_crc(bytes, size) == 0;
}

}  // namespace tool

#endif
