// Do reads and writes of a raw NAND partition do the documented thing whatever its blocks do, and lose
// nothing besides? Guards against a batch of phones that lose their calibration to one bad block or one power
// cut.

#include <cstdlib>
#include <random>

#include "tests/support/nand_schedule.h"

namespace {

using namespace support;

// Emulated and sanitized runs are ten times slower; they take every tenth case.
#if defined(__SANITIZE_ADDRESS__) || defined(__aarch64__)
constexpr unsigned kThinning = 10;
#else
constexpr unsigned kThinning = 1;
#endif

// ---- seven kinds of bad block x every block x every record position x aligned and unaligned ----------------

/// What of the block always goes wrong; nothing: it is marked bad.
using Kind = std::optional<std::pair<Op, Effect>>;

struct Chip {
  uint32_t block_size;
  uint32_t blocks;
};

class EveryBadBlock : public testing::TestWithParam<std::tuple<Kind, Chip>> {};

TEST_P(EveryBadBlock, WritesAndReadsEveryRecordPositionAsModelled) {
  const auto [kind, chip] = GetParam();
  const auto [block_size, blocks] = chip;
  unsigned row = 0;
  for (uint32_t bad = 0; bad < blocks; ++bad) {
    phone::NandGeometry geometry{.erase_size = block_size, .blocks = blocks};
    if (!kind) geometry.factory_bad = {bad};
    const std::vector<Bytes> before = patterned(geometry);
    ModelledChip modelled(geometry);
    for (const size_t position : record_positions()) {
      const size_t aligned = position / block_size * block_size;
      // A record; whole blocks; from inside of one block into the next but one.
      for (const auto& [offset, length] : {std::pair{position, size_t{48}},
                                           {aligned, size_t{block_size}},
                                           {position - 5, size_t{block_size} + 9}}) {
        if (++row % kThinning != 0) continue;
        SCOPED_TRACE(printf_text("bad block %u, %zu bytes at 0x%zx", bad, length, offset));
        modelled.start(before);
        if (kind)
          modelled.add_fault({.op = kind->first, .effect = kind->second, .block = bad, .from_then_on = true});
        EXPECT_TRUE(modelled.write(offset, pattern(length, 99)) && modelled.chip_is_as_modelled());
        // What is passed over moves the others by one.
        for (uint32_t block = 0; block < blocks; ++block) {
          const bool may_change =
              block >= offset / block_size && block <= (offset + length - 1) / block_size + 1;
          EXPECT_TRUE(may_change || modelled.nand().block_bytes(block) == before[block]) << block;
        }
        EXPECT_TRUE(modelled.read(offset, length) && modelled.chip_is_as_modelled());
        EXPECT_TRUE(modelled.nand().violations().empty());
        if (HasFailure()) return;
      }
    }
  }
}

// The last two end with the power, in a block that is half done.
const Kind kKinds[] = {{},
                       {{Op::erase, Effect::fail}},
                       {{Op::program, Effect::fail}},
                       {{Op::program, Effect::corrupt}},
                       {{Op::read, Effect::ecc_failed}},
                       {{Op::erase, Effect::power_cut}},
                       {{Op::program, Effect::power_cut}}};
constexpr Chip kChips[] = {{16384, 12}, {131072, 4}};

INSTANTIATE_TEST_SUITE_P(Nand, EveryBadBlock,
                         testing::Combine(testing::ValuesIn(kKinds), testing::ValuesIn(kChips)));

// ---- random fault schedules -------------------------------------------------------------------------------

class Random final : public Choices {
 public:
  explicit Random(uint32_t seed) : random_(seed) {}
  unsigned up_to(unsigned limit) override {
    return std::uniform_int_distribution<unsigned>(0, limit)(random_);
  }

 private:
  std::mt19937 random_;
};

TEST(RandomFaults, OnSmallBlocksAndThoseOfPhonesEverythingIsAsModelled) {
  const char* given = std::getenv("MTD_SEED");
  const auto first = static_cast<uint32_t>(given != nullptr ? std::atoi(given) : std::random_device()());
  for (const auto& [block_size, count] : {std::pair{4096U, 10000 / kThinning}, {131072U, 300 / kThinning}}) {
    // Fifty schedules share one phone, so that most of the time goes into the transfers.
    for (uint32_t done = 0; done < count; done += 50) {
      Random random(first + done);
      phone::NandGeometry geometry{.erase_size = block_size, .blocks = 8};
      for (uint32_t i = 0; i < 8; ++i)
        if (random.one_in(6)) geometry.factory_bad.push_back(i);
      ChipUnderTest chip(random, geometry);
      for (uint32_t i = 0; i < std::min(50U, count - done) && !chip.went_bad(); ++i)
        ASSERT_EQ(chip.run_schedule(), "") << "MTD_SEED=" << first + done << ", schedule " << i;
    }
  }
}

}  // namespace
