// The records' checksum by another hand.
#ifndef TESTS_SUPPORT_BITWISE_CRC_H
#define TESTS_SUPPORT_BITWISE_CRC_H

#include <cstddef>
#include <cstdint>

namespace support {

/// CRC-32 (0xEDB88320 reflected, no inversions), one bit at a time.
inline uint32_t bitwise_crc(const void* data, size_t size, uint32_t start = 0) {
  uint32_t crc = start;
  for (size_t i = 0; i < size; ++i) {
    crc ^= static_cast<const uint8_t*>(data)[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320U : crc >> 1;
  }
  return crc;
}

}  // namespace support

#endif
