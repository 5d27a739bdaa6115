// Does the MTD back end, and does the MTD utility, leave on a chip what the documented block handling leaves there,
// whatever goes wrong and in whatever order? Guards against a case that nobody thought of.
//
//   nand_schedules [--count N] [--seed S]     a hundred schedules a chip; a chip's seed is S and what follows it

#include "tests/support/nand_schedule.h"
#include "tests/volume/volume.h"

namespace {

using namespace support;

phone::NandGeometry geometry_of(Random& random) {
  phone::NandGeometry geometry;
  geometry.erase_size = random.one_in(1000) ? 131072
                        : random.one_in(20) ? 16384
                        : random.one_in(2)  ? 4096
                                            : 2048;
  geometry.blocks = 1 + random.up_to(8);
  for (uint32_t i = 0; i < geometry.blocks; ++i) {
    if (random.one_in(6)) geometry.factory_bad.push_back(i);
  }
  return geometry;
}

class RandomChip {
 public:
  explicit RandomChip(uint32_t seed) : random_(seed), chip_(random_, geometry_of(random_)) {}
  std::string run() { return chip_.run_schedule(); }

 private:
  Random random_;
  ChipUnderTest chip_;
};

}  // namespace

int main(int argc, char** argv) {
  return volume::run_rounds<RandomChip>(argc, argv, {"NAND schedules", "schedule", 1000000});
}
