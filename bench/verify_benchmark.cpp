// How long `awbcal verify` of one partition image takes, against reading the same bytes: at most 3 ms beside them
// without running the library, and 10 ms with it.

#include <benchmark/benchmark.h>

#include <fstream>

#include "phone/temporary_folder.h"
#include "run/verification.h"

namespace {

/// An image with one good record, as long as a partition is.
std::string image_in(const std::filesystem::path& folder) {
  calib::AwbRecord record{.valid_word = 3099, .rg = 800, .bg = 600, .fuse = {1, 2, 3, 4}, .crc = 0};
  calib::seal(record);
  std::string image(1024UL * 1024, '\0');
  memcpy(image.data() + calib::kAreaBase4k, &record, sizeof record);
  std::ofstream(folder / "mfg.img", std::ios::binary) << image;
  return folder / "mfg.img";
}

void read_the_bytes(benchmark::State& state) {
  const phone::TemporaryFolder folder;
  const std::string image = image_in(folder.path());
  for (auto _ : state) benchmark::DoNotOptimize(awbcal::read_file(image).bytes.data());
}
BENCHMARK(read_the_bytes)->Unit(benchmark::kMillisecond);

/// The argument: whether the library is run to see who accepts the record.
void verify_an_image(benchmark::State& state) {
  const phone::TemporaryFolder folder;
  const std::string image = image_in(folder.path());
  for (auto _ : state) {
    const awbcal::Phone phone = awbcal::open_phone_of({.paths = {image}});
    const awbcal::Verification answer = awbcal::verify(phone, {.asks_library = state.range(0) != 0});
    if (answer.outcome() != awbcal::Outcome::pass) state.SkipWithError("not judged good");
  }
}
BENCHMARK(verify_an_image)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
