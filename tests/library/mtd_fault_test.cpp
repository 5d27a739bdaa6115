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

// The last two end with the power, in a block that is half done.
const Kind kKinds[] = {{},
                       {{Op::erase, Effect::fail}},
                       {{Op::program, Effect::fail}},
                       {{Op::program, Effect::corrupt}},
                       {{Op::read, Effect::ecc_failed}},
                       {{Op::erase, Effect::power_cut}},
                       {{Op::program, Effect::power_cut}}};

/// A record; whole blocks; from inside of one block into the next but one.
std::vector<std::pair<size_t, size_t>> transfers_at(size_t position, size_t block_size) {
  return {{position, 48}, {position / block_size * block_size, block_size}, {position - 5, block_size + 9}};
}

void expect_as_modelled(const phone::NandGeometry& geometry, const Kind& kind, uint32_t bad) {
  const std::vector<Bytes> before = patterned(geometry);
  ModelledChip chip(geometry);
  unsigned row = bad;
  for (const size_t position : record_positions()) {
    for (const auto& [offset, length] : transfers_at(position, geometry.erase_size)) {
      if (++row % kThinning != 0) continue;
      SCOPED_TRACE(printf_text("bad block %u, %zu bytes at 0x%zx", bad, length, offset));
      chip.start(before);
      if (kind)
        chip.add_fault({.op = kind->first, .effect = kind->second, .block = bad, .from_then_on = true});
      EXPECT_TRUE(chip.write(offset, pattern(length, 99)) && chip.chip_is_as_modelled());
      const size_t first = offset / geometry.erase_size, last = (offset + length - 1) / geometry.erase_size;
      for (size_t block = 0; block < before.size(); ++block) {
        const bool may_change = block >= first && block <= last + 1;  // what is passed over moves the others
        EXPECT_TRUE(may_change || chip.nand().block_bytes(static_cast<uint32_t>(block)) == before[block])
            << block;
      }
      EXPECT_TRUE(chip.read(offset, length) && chip.chip_is_as_modelled());
      EXPECT_TRUE(chip.nand().violations().empty());
      if (testing::Test::HasFailure()) return;
    }
  }
}

TEST(EveryBadBlock, WritesAndReadsEveryRecordPositionAsModelled) {
  for (const auto& [block_size, blocks] : {std::pair{16384U, 12U}, {131072U, 4U}}) {
    for (const Kind& kind : kKinds) {
      for (uint32_t bad = 0; bad < blocks; ++bad) {
        phone::NandGeometry geometry{.erase_size = block_size, .blocks = blocks};
        if (!kind) geometry.factory_bad = {bad};
        expect_as_modelled(geometry, kind, bad);
        if (HasFailure()) return;
      }
    }
  }
}

// ---- random fault schedules -------------------------------------------------------------------------------

TEST(RandomFaults, OnSmallBlocksAndThoseOfPhonesEverythingIsAsModelled) {
  const char* given = std::getenv("MTD_SEED");
  const auto first =
      static_cast<uint32_t>(given != nullptr ? std::strtoul(given, nullptr, 10) : std::random_device()());
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
