// Does the MTD back end, and does the MTD utility, leave on a chip what the documented block handling leaves there,
// whatever goes wrong and in whatever order? Guards against a case that nobody thought of.
//
//   nand_schedules [--count N] [--seed S]     a hundred schedules a chip; a chip's seed is S and what follows it

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdlib>
#include <random>

#include "tests/support/nand_schedule.h"

namespace {

using namespace support;

constexpr unsigned kSchedulesOfAChip = 100;

class Random final : public Choices {
 public:
  explicit Random(uint32_t seed) : random_(seed) {}
  unsigned up_to(unsigned limit) override {
    return std::uniform_int_distribution<unsigned>(0, limit)(random_);
  }

 private:
  std::mt19937 random_;
};

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

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Random schedules of faults on NAND chips, against a model."};
  unsigned count = 1000000;
  uint32_t seed = std::random_device()();
  app.add_option("--count", count, "schedules");
  app.add_option("--seed", seed, "of the first chip");
  CLI11_PARSE(app, argc, argv);
  fmt::print("{} NAND schedules from seed {}\n", count, seed);
  std::fflush(stdout);
  const auto start = std::chrono::steady_clock::now();
  for (unsigned done = 0; done < count; ++seed) {
    Random random(seed);
    ChipUnderTest chip(random, geometry_of(random));
    for (unsigned i = 0; i < kSchedulesOfAChip && done < count; ++i, ++done) {
      const std::string wrong = chip.run_schedule();
      if (wrong.empty()) continue;
      fmt::print("schedule {} of --seed {} --count {}: {}\n", i + 1, seed, i + 1, wrong);
      return 1;
    }
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  fmt::print("all as modelled: {:.0f} a second\n", count / seconds.count());
  return 0;
}
