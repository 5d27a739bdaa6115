// Do reads and writes of a raw NAND partition do the documented thing whatever its blocks do, and lose
// nothing besides? Guards against a batch of phones that lose their calibration to one bad block or one power
// cut.

#include <cstdio>
#include <cstdlib>
#include <random>

#include "tests/support/nand_model.h"
#include "tests/support/nand_phone.h"

namespace {

using namespace support;

// Emulated and sanitized runs are ten times slower; they take every tenth case.
#if defined(__SANITIZE_ADDRESS__) || defined(__aarch64__)
constexpr unsigned kThinning = 10;
#else
constexpr unsigned kThinning = 1;
#endif

/// Schedules in a run: MTD_SCHEDULES in the environment, or as many as the ordinary run takes.
unsigned schedules(unsigned ordinary) {
  const char* text = std::getenv("MTD_SCHEDULES");
  return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : ordinary / kThinning;
}

/// A NAND chip and its model.
class Bench : public NandPhone {
 public:
  explicit Bench(const phone::NandGeometry& geometry) : NandPhone(geometry), geometry_(geometry) {
    phone().set_log_mask(0);
  }

  /// The chip as good as new with these contents, and its model beside it.
  void start(const std::vector<Bytes>& contents) {
    nand().clear_faults();
    std::vector<NandModel::Block> blocks;
    for (uint32_t i = 0; i < geometry_.blocks; ++i) {
      nand().set_block_bytes(i, contents[i]);
      blocks.push_back({contents[i], nand().is_bad(i)});
    }
    model_.emplace(blocks);
  }

  void add_fault(const NandFault& fault) {
    nand().add_fault(fault);
    model_->add_fault(fault);
  }

  bool chip_is_as_modelled(const std::string& what) {
    for (uint32_t i = 0; i < geometry_.blocks; ++i) {
      if (nand().block_bytes(i) == model_->chip()[i].bytes) continue;
      ADD_FAILURE() << what << ": block " << i << " differs from the model";
      return false;
    }
    return true;
  }

  bool write_as_modelled(size_t offset, const Bytes& data, const std::string& what) {
    const int32_t expected = model_->write(offset, data) ? 0 : -1;
    const int32_t result =
        mtd_write(state(), static_cast<int64_t>(offset), static_cast<int64_t>(data.size()), data.data());
    EXPECT_EQ(result, expected) << what;
    return chip_is_as_modelled(what) && result == expected;
  }

  bool read_as_modelled(size_t offset, size_t length, const std::string& what) {
    const auto expected = model_->read(offset, length);
    Bytes data(length + 1, 0xA5);
    const int32_t result =
        mtd_read(state(), static_cast<int64_t>(offset), static_cast<int64_t>(length), data.data());
    EXPECT_EQ(result, expected ? 0 : -1) << what;
    EXPECT_EQ(data.back(), 0xA5) << what << ": one byte too many";
    data.pop_back();
    EXPECT_TRUE(!expected || data == *expected) << what << ": other bytes than the model's";
    return result == (expected ? 0 : -1) && (!expected || data == *expected) && chip_is_as_modelled(what);
  }

 private:
  phone::NandGeometry geometry_;
  std::optional<NandModel> model_;
};

// ---- five kinds of bad block x every block x every record position x aligned and unaligned ----------------

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
    Bench bench(geometry);
    for (const size_t position : record_positions()) {
      const size_t aligned = position / block_size * block_size;
      // A record; whole blocks; from inside of one block into the next but one.
      for (const auto& [offset, length] : {std::pair{position, size_t{48}},
                                           {aligned, size_t{block_size}},
                                           {position - 5, size_t{block_size} + 9}}) {
        if (++row % kThinning != 0) continue;
        bench.start(patterned(geometry));
        if (kind)
          bench.add_fault({.op = kind->first, .effect = kind->second, .block = bad, .from_then_on = true});
        const std::string what = printf_text("bad block %u, %zu bytes at 0x%zx", bad, length, offset);
        ASSERT_TRUE(bench.write_as_modelled(offset, pattern(length, 99), what));
        ASSERT_TRUE(bench.read_as_modelled(offset, length, what));
        EXPECT_TRUE(bench.nand().violations().empty()) << what;
      }
    }
  }
}

const Kind kKinds[] = {{},
                       {{Op::erase, Effect::fail}},
                       {{Op::program, Effect::fail}},
                       {{Op::program, Effect::corrupt}},
                       {{Op::read, Effect::ecc_failed}}};
constexpr Chip kChips[] = {{16384, 12}, {131072, 4}};

INSTANTIATE_TEST_SUITE_P(Nand, EveryBadBlock,
                         testing::Combine(testing::ValuesIn(kKinds), testing::ValuesIn(kChips)));

// ---- random fault schedules -------------------------------------------------------------------------------

class Schedule {
 public:
  explicit Schedule(uint32_t seed) : random_(seed) {}

  unsigned up_to(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit)(random_); }
  bool one_in(unsigned n) { return up_to(n - 1) == 0; }

  phone::NandGeometry geometry(uint32_t block_size) {
    phone::NandGeometry geometry{.erase_size = block_size, .blocks = 8};
    for (uint32_t i = 0; i < 8; ++i) {
      if (one_in(6)) geometry.factory_bad.push_back(i);
    }
    return geometry;
  }

  std::vector<Bytes> contents(uint32_t block_size) {
    std::vector<Bytes> contents;
    for (int i = 0; i < 8; ++i) {
      const unsigned kind = up_to(9);
      contents.push_back(kind < 2 ? Bytes(block_size, kind == 0 ? 0x00 : 0xFF)
                                  : pattern(block_size, up_to(1000)));
    }
    return contents;
  }

  NandFault fault() {
    static constexpr std::pair<Op, Effect> kinds[] = {
        {Op::erase, Effect::fail},         {Op::program, Effect::fail},      {Op::program, Effect::corrupt},
        {Op::read, Effect::fail},          {Op::read, Effect::corrupt},      {Op::read, Effect::ecc_failed},
        {Op::read, Effect::ecc_corrected}, {Op::ask_bad, Effect::fail},      {Op::ecc_stats, Effect::fail},
        {Op::erase, Effect::power_cut},    {Op::program, Effect::power_cut},
    };
    const auto [op, effect] = kinds[up_to(std::size(kinds) - 1)];
    const bool any_block = op == Op::ecc_stats || one_in(4);
    return {.op = op,
            .effect = effect,
            .block = any_block ? -1 : static_cast<int64_t>(up_to(7)),
            .nth = 1 + up_to(any_block ? 11 : 3),
            .from_then_on = one_in(2)};
  }

  size_t extent(uint32_t block_size, unsigned blocks) {
    return one_in(3) ? up_to(blocks) * block_size : up_to(blocks * block_size);
  }

 private:
  std::mt19937 random_;
};

bool run_schedule(Bench& bench, Schedule& schedule, uint32_t block_size, const std::string& what) {
  bench.start(schedule.contents(block_size));
  for (unsigned left = schedule.up_to(4); left > 0; --left) bench.add_fault(schedule.fault());
  for (unsigned left = 1 + schedule.up_to(2); left > 0; --left) {
    const size_t offset = schedule.extent(block_size, 7);
    const size_t length = 1 + schedule.extent(block_size, 3) % (3 * block_size);
    if (schedule.one_in(3)) {
      if (!bench.read_as_modelled(offset, length, what)) return false;
    } else {
      const bool zeros = schedule.one_in(8);
      const Bytes data = zeros ? Bytes(length, 0) : pattern(length, schedule.up_to(1000));
      if (!bench.write_as_modelled(offset, data, what)) return false;
    }
  }
  return true;
}

void run_schedules(uint32_t block_size, unsigned count) {
  const char* given = std::getenv("MTD_SEED");
  const auto first = given != nullptr ? static_cast<uint32_t>(std::strtoul(given, nullptr, 10))
                                      : static_cast<uint32_t>(std::random_device()());
  std::printf("%u schedules on blocks of %u bytes, seed %u\n", count, block_size, first);
  // Fifty schedules share one phone, so that most of the time goes into the transfers.
  for (uint32_t done = 0; done < count; done += 50) {
    Schedule schedule(first + done);
    Bench bench(schedule.geometry(block_size));
    for (uint32_t i = 0; i < std::min(50U, count - done); ++i) {
      const std::string what = printf_text("MTD_SEED=%u, schedule %u", first + done, i);
      ASSERT_TRUE(run_schedule(bench, schedule, block_size, what)) << what;
    }
  }
}

TEST(RandomFaults, OnSmallBlocksAndThoseOfPhonesEverythingIsAsModelled) {
  run_schedules(4096, schedules(10000));
  run_schedules(131072, schedules(300));
}

// ---- power cuts -------------------------------------------------------------------------------------------

TEST(PowerCut, LeavesEveryByteOutsideTheTouchedBlocks) {
  const phone::NandGeometry geometry{.erase_size = 4096, .blocks = 8, .factory_bad = {1}};
  const std::vector<Bytes> before = patterned(geometry);
  const Bytes data = pattern(2 * 4096 + 100, 55);
  Bench bench(geometry);
  for (const size_t offset : {size_t{0}, size_t{4096}, size_t{4000}, size_t{8200}}) {
    const uint32_t touched[] = {0, 2, 3, 4, 5, 6, 7};  // physical, by logical block
    const size_t first = touched[offset / 4096];
    const size_t last = touched[(offset + data.size() - 1) / 4096];
    const size_t blocks = (offset + data.size() - 1) / 4096 - offset / 4096 + 1;
    for (const Op op : {Op::erase, Op::program}) {
      for (unsigned nth = 1; nth <= blocks; ++nth) {
        bench.start(before);
        bench.add_fault({.op = op, .effect = Effect::power_cut, .nth = nth});
        const std::string what = printf_text("at 0x%zx, cut %u", offset, nth);
        ASSERT_TRUE(bench.write_as_modelled(offset, data, what));
        for (uint32_t block = 0; block < geometry.blocks; ++block) {
          if (block >= first && block <= last && block != 1) continue;
          EXPECT_EQ(bench.nand().block_bytes(block), before[block]) << what << ", block " << block;
        }
      }
    }
  }
}

}  // namespace
