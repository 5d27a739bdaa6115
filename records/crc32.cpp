// CRC-32 (IEEE 802.3, reflected, without inversions): by table, or by the CPU's own instructions on 64-bit
// ARM. Four ways to the same number, each of which follows from the one before:
//
// 1. By bits: the definition. The register is a polynomial of 32 coefficients, 0 or 1; "reflected"
//    means that the lowest bit of the register is the highest power, so that the first bit of a message is
//    the lowest bit of its first byte. Taking in a byte adds it (exclusive or) to the low end, and each of its
//    eight bits is then shifted out; where a 1 leaves, the polynomial is subtracted, which is again an
//    exclusive or:
//
//      crc ^= byte
//      eight times: crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0)        0x04C11DB7 with its bits in reverse
//
//    The IEEE standard starts from all ones and inverts the result. The records do neither.
//
// 2. By bytes. What the eight shifts subtract depends on the low eight bits alone, and the high 24 only move
//    down. So the effect of a byte is looked up, in a table that the loop above fills once:
//
//      effect[b] = eight shifts of b                                   256 entries of 32 bits
//      crc = crc >> 8 ^ effect[(crc ^ byte) & 0xFF]
//
// 3. By eight bytes ("slicing"). All of this is linear: the register after a message is the exclusive or of
//    what each of its bytes would leave alone, had all others been 0. A byte that k zero bytes follow leaves
//    its effect after k further steps of 2. with a zero byte:
//
//      table 0 = effect,   table k [b] = table k-1 [b] >> 8 ^ effect[table k-1 [b] & 0xFF]
//
//    Of eight bytes the first is followed by seven, and so looked up in table 7, and the last in table 0. The
//    old register has the place of the first four: it is added to them before. A step then costs eight
//    look-ups that do not wait for each other, where 2. has eight that each wait for the one before.
//
// 4. By instruction. 64-bit ARM has step 1. for eight bytes in one instruction of a few cycles, CRC32X, with
//    this polynomial, reflected, and also without inversions; CRC32B takes a single byte. (Other CPUs have a
//    multiplication of such polynomials instead, with which a long message is folded: 16 bytes, times x^128
//    modulo the polynomial, are added to the next 16. A record's 28 to 3576 bytes would not repay that.)
//
// The instructions are optional in the first version of the architecture. The kernel says whether the CPU has
// them.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "awb_calibration/records.h"

#if defined(__aarch64__)
#include <sys/auxv.h>
#ifndef HWCAP_CRC32
#define HWCAP_CRC32 (1 << 7)  // Linux, arch/arm64/include/uapi/asm/hwcap.h
#endif
#endif

namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320;

// 64-bit ARM almost always has the instructions: there the first table, of 1 KB, is enough for the rest.
#if defined(__aarch64__)
constexpr size_t kSlices = 1;
#else
constexpr size_t kSlices = 8;
#endif

using Table = std::array<uint32_t, 256>;

constexpr std::array<Table, kSlices> make_tables() {
  std::array<Table, kSlices> tables{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? kReflectedPolynomial : 0);
    tables[0][byte] = crc;
  }
  for (size_t k = 1; k < kSlices; ++k) {
    for (size_t byte = 0; byte < 256; ++byte) {
      const uint32_t before = tables[k - 1][byte];
      tables[k][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}

constexpr std::array<Table, kSlices> kTables = make_tables();

uint32_t crc_by_bytes(const uint8_t* data, size_t length, uint32_t crc) {
  for (size_t i = 0; i < length; ++i) crc = (crc >> 8) ^ kTables[0][(crc ^ data[i]) & 0xFF];
  return crc;
}

#if defined(__aarch64__)

// The CRC32 instructions compute exactly this polynomial, without inversions. In assembly, because each
// compiler has names of its own for them and for the wish to use them in one function.
inline uint32_t crc_of_word(uint32_t crc, uint64_t word) {
  asm(".arch_extension crc\n\tcrc32x %w0, %w0, %1" : "+r"(crc) : "r"(word));
  return crc;
}

inline uint32_t crc_of_byte(uint32_t crc, uint32_t byte) {
  asm(".arch_extension crc\n\tcrc32b %w0, %w0, %w1" : "+r"(crc) : "r"(byte));
  return crc;
}

uint32_t crc_by_instruction(const uint8_t* data, size_t length, uint32_t crc) {
  for (; length >= 8; data += 8, length -= 8) {
    uint64_t word;
    memcpy(&word, data, sizeof word);
    crc = crc_of_word(crc, word);
  }
  for (; length > 0; ++data, --length) crc = crc_of_byte(crc, *data);
  return crc;
}

uint32_t crc_of_bytes(const uint8_t* data, size_t length, uint32_t crc) {
  const bool has_instruction = (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0;
  return has_instruction ? crc_by_instruction(data, length, crc) : crc_by_bytes(data, length, crc);
}

#else

uint32_t crc_of_bytes(const uint8_t* data, size_t length, uint32_t crc) {
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
  for (; length >= 8; data += 8, length -= 8) {
    uint32_t low;
    uint32_t high;
    memcpy(&low, data, sizeof low);
    memcpy(&high, data + sizeof low, sizeof high);
    low ^= crc;
    // The half that does not wait for the last result comes first.
    const uint32_t ahead = kTables[3][high & 0xFF] ^ kTables[2][high >> 8 & 0xFF] ^
                           kTables[1][high >> 16 & 0xFF] ^ kTables[0][high >> 24];
    crc = (kTables[7][low & 0xFF] ^ kTables[6][low >> 8 & 0xFF]) ^
          (kTables[5][low >> 16 & 0xFF] ^ kTables[4][low >> 24] ^ ahead);
  }
  return crc_by_bytes(data, length, crc);
}

#endif

}  // namespace

uint32_t Crc32CheckSumByte(const void* data, uint32_t length, uint32_t start) {
  if (data == nullptr) return start;
  return crc_of_bytes(static_cast<const uint8_t*>(data), length, start);
}
