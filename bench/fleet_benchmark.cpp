// How fast is a fleet judged, and does it need more memory when it is larger? A unit may take three times what reading
// its record area takes, a core has to judge 2,000 a second, and a million units have to fit into 200 MB.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "demo/fleet_model.h"
#include "fleet/judging.h"
#include "fleet/summary.h"
#include "phone/temporary_folder.h"

namespace {

using awbcal::Unit;

constexpr size_t kFiles = 4000;
constexpr size_t kAreaSize = 0x4000;
const awbcal::FleetPlan kPlan{.units = kFiles};

std::vector<std::string> make_files(const std::filesystem::path& folder) {
  std::vector<std::string> paths;
  for (size_t i = 0; i < kFiles; ++i) {
    const awbcal::FleetUnit unit = make_unit(kPlan, i);
    paths.push_back(folder / unit.name);
    std::ofstream(paths.back(), std::ios::binary)
        .write(reinterpret_cast<const char*>(unit.image.data()),
               static_cast<std::streamsize>(unit.image.size()));
  }
  return paths;
}

/// Units by paths, each judged by `judge`, on all cores; what they come to.
size_t judge_all(size_t units, const std::function<std::string(size_t)>& path,
                 const awbcal::UnitJudge& judge) {
  awbcal::Summary summary;
  size_t at = 0;
  const std::atomic<bool> stops = false;
  const std::vector<awbcal::UnitJudge> judges(std::max(1U, std::thread::hardware_concurrency()), judge);
  const auto next = [&]() -> std::optional<std::string> {
    return at < units ? std::optional(path(at++)) : std::nullopt;
  };
  awbcal::judge_units(next, judges, stops, [&summary](Unit& unit) { summary.add(unit); });
  return summary.judged();
}

void count_units(benchmark::State& state, size_t units) {
  state.counters["units"] =
      benchmark::Counter(static_cast<double>(units), benchmark::Counter::kIsIterationInvariantRate);
}

/// The argument: threads. What a unit costs at least, one file after the other, and on all cores.
void read_record_areas(benchmark::State& state) {
  const phone::TemporaryFolder folder;
  const std::vector<std::string> paths = make_files(folder.path());
  for (auto _ : state) {
    std::vector<std::jthread> threads;
    std::atomic<size_t> at = 0;
    for (int64_t i = 0; i < state.range(0); ++i) {
      threads.emplace_back([&] {
        std::vector<char> bytes(kAreaSize);
        for (size_t mine = at++; mine < paths.size(); mine = at++) {
          const int fd = open(paths[mine].c_str(), O_RDONLY | O_CLOEXEC);
          benchmark::DoNotOptimize(pread(fd, bytes.data(), bytes.size(), 0));
          close(fd);
        }
      });
    }
  }
  count_units(state, kFiles);
}
BENCHMARK(read_record_areas)
    ->Arg(1)
    ->Arg(std::max(1U, std::thread::hardware_concurrency()))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void judge_files(benchmark::State& state) {
  const phone::TemporaryFolder folder;
  const std::vector<std::string> paths = make_files(folder.path());
  const awbcal::UnitQuestion question{.verify = {.asks_library = false}};
  const auto judge = [&question](const std::string& path) { return awbcal::judged_unit(path, question); };
  for (auto _ : state) {
    const size_t judged = judge_all(
        kFiles, [&paths](size_t i) { return paths[i]; }, judge);
    if (judged < kFiles * 9 / 10) state.SkipWithError("not judged");
  }
  count_units(state, kFiles);
}
BENCHMARK(judge_files)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The argument: units, made when they are judged. A larger number comes last, for the peak is the process's.
void judge_made_units(benchmark::State& state) {
  const auto units = static_cast<size_t>(state.range(0));
  const awbcal::FleetPlan plan{.units = units};
  const awbcal::UnitQuestion question{.verify = {.asks_library = false}};
  const auto judge = [&](const std::string& number) {
    awbcal::FleetUnit made = make_unit(plan, std::stoul(number));
    try {
      Unit unit = awbcal::judged_bytes(made.name, std::move(made.image), question);
      unit.time = made.time;
      return unit;
    } catch (const awbcal::InputError& error) {
      return awbcal::broken_unit(made.name, error.what());
    }
  };
  for (auto _ : state) {
    if (judge_all(
            units, [](size_t i) { return std::to_string(i); }, judge) < units * 9 / 10)
      state.SkipWithError("not judged");
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
  count_units(state, units);
}
BENCHMARK(judge_made_units)
    ->RangeMultiplier(10)
    ->Range(1000, 1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
