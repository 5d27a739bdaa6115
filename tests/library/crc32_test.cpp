// Does the fast checksum give what the documented byte loop gives, for every length, alignment and start
// value? Guards against a wrong tail or table in the sliced or instruction-based loop, which would refuse
// good records.

#include <dlfcn.h>

#include "awb_calibration/records.h"
#include "tests/support/support.h"

namespace {

using namespace support;

/// The CPU without checksum instructions is one that only 64-bit ARM may have.
#if defined(__aarch64__)
constexpr bool kCpus[] = {true, false};
#else
constexpr bool kCpus[] = {true};
#endif
bool cpu_has_instructions = true;
unsigned questions = 0;

}  // namespace

/// What the kernel says of the CPU, in the C library's place: bit 7 of the hardware's capabilities (type 16).
extern "C" unsigned long getauxval(unsigned long type) {
  static const auto next = reinterpret_cast<unsigned long (*)(unsigned long)>(dlsym(RTLD_NEXT, "getauxval"));
  ++questions;
  return next(type) & (type == 16 && !cpu_has_instructions ? ~(1UL << 7) : ~0UL);
}

namespace {

TEST(Crc32, KnownValues) {
  EXPECT_EQ(Crc32CheckSumByte("123456789", 9, 0), 0x2DFD2D88U);
  EXPECT_EQ(~Crc32CheckSumByte("123456789", 9, 0xFFFFFFFFU), 0xCBF43926U) << "the standard's check value";
  EXPECT_EQ(Crc32CheckSumByte("\0\0\0\0", 4, 0), 0U);
  EXPECT_EQ(Crc32CheckSumByte("x", 0, 0x12345678), 0x12345678U);
  EXPECT_EQ(Crc32CheckSumByte(nullptr, 0, 7), 7U);
}

TEST(Crc32, AgreesWithTheBitwiseTwin) {
  const Bytes data = pattern(4096 + 16);
  std::vector<uint32_t> lengths = {465, 1643, 1663, 3556, 3576, 4000};
  for (uint32_t length = 0; length <= 80; ++length) lengths.push_back(length);
  for (const bool has_instructions : kCpus) {
    cpu_has_instructions = has_instructions;
    for (const uint32_t length : lengths) {
      for (size_t alignment = 0; alignment < 9; ++alignment) {
        for (const uint32_t start : {0U, 1U, 0x80000000U, 0xFFFFFFFFU, 0xDEADBEEFU}) {
          ASSERT_EQ(Crc32CheckSumByte(&data[alignment], length, start),
                    bitwise_crc(&data[alignment], length, start))
              << "length " << length << " alignment " << alignment << " start " << start;
        }
      }
    }
  }
  cpu_has_instructions = true;
  EXPECT_TRUE(questions > 0 || std::size(kCpus) == 1) << "the library asks the kernel";
}

}  // namespace
