// Any faults of a NAND chip and of the calls on it, any transfers of the MTD back end and utility: what is read and what
// the chip then holds is what a model of the documented block handling says.

#include <cstdio>
#include <memory>

#include "fuzz/custom_mutator.h"
#include "tests/support/nand_schedule.h"

namespace {

/// The bytes of an input; the last of each choice behind its end.
class Bytes final : public support::Choices {
 public:
  void begin(const uint8_t* data, size_t size) {
    at_ = data;
    end_ = data + size;
  }
  bool is_at_end() const { return at_ == end_; }
  unsigned up_to(unsigned limit) override {
    if (is_at_end()) return limit;
    unsigned value = *at_++;
    if (limit > 0xFF && !is_at_end()) value |= static_cast<unsigned>(*at_++) << 8;
    return value % (limit + 1);
  }

 private:
  const uint8_t* at_ = nullptr;
  const uint8_t* end_ = nullptr;
};

constexpr uint32_t kEraseSizes[] = {256, 512, 2048, 4096};

phone::NandGeometry geometry_of(uint8_t number) {
  phone::NandGeometry geometry;
  geometry.erase_size = kEraseSizes[number % std::size(kEraseSizes)];
  geometry.blocks = 1 + number / 4 % 8;
  if (number >= 128) geometry.factory_bad.push_back(geometry.blocks / 2);
  if (number >= 192) geometry.factory_bad.push_back(geometry.blocks - 1);
  if (number >= 224) geometry.factory_bad.push_back(0);
  return geometry;
}

/// Making a chip takes as long as many schedules: one is kept for the inputs that want the same, until what it has
/// suffered is a long list.
struct Chip {
  static constexpr unsigned kMostRuns = 500;
  uint8_t number = 0;
  unsigned runs = 0;
  Bytes choices;
  std::unique_ptr<support::ChipUnderTest> chip;

  support::ChipUnderTest& of(uint8_t wanted) {
    if (chip == nullptr || wanted != number || chip->went_bad() || ++runs > kMostRuns) {
      runs = 0;
      chip.reset();
      chip = std::make_unique<support::ChipUnderTest>(choices, geometry_of(wanted));
      number = wanted;
    }
    return *chip;
  }
};

Chip kept;

}  // namespace

void fuzz::make_fast(uint8_t* data, size_t) {
  data[0] = kept.number;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  support::ChipUnderTest& chip = kept.of(data[0]);
  kept.choices.begin(data + 1, size - 1);
  const std::string wrong = chip.run_schedule();
  if (wrong.empty()) return 0;
  fprintf(stderr, "%s\n", wrong.c_str());
  abort();
}
