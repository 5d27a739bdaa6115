// The checksum against the byte table, and what a log line costs when it is masked. One run prints both
// sides.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "awb_calibration/records.h"
#include "phone/virtual_phone.h"

namespace {

/// The plain loop over one 256-entry table.
uint32_t crc_by_table(const uint8_t* data, size_t length, uint32_t crc) {
  static const auto table = [] {
    std::array<uint32_t, 256> entries{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
      uint32_t entry = byte;
      for (int bit = 0; bit < 8; ++bit) entry = (entry >> 1) ^ ((entry & 1) != 0 ? 0xEDB88320U : 0);
      entries[byte] = entry;
    }
    return entries;
  }();
  for (size_t i = 0; i < length; ++i) crc = (crc >> 8) ^ table[(crc ^ data[i]) & 0xFF];
  return crc;
}

double seconds_of(benchmark::State& state, uint32_t (*crc)(const uint8_t*, size_t, uint32_t)) {
  const std::vector<uint8_t> data(static_cast<size_t>(state.range(0)), 0x5A);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 2000; ++i) {
    const uint8_t* bytes = data.data();
    benchmark::DoNotOptimize(bytes);
    benchmark::DoNotOptimize(crc(bytes, data.size(), 0));
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Counter "times_byte_table": how many times faster the library's checksum is, at 28, 1663 and 3576 bytes
/// (AWB, dual-camera and lens-shading record).
void Crc32(benchmark::State& state) {
  double library = 0;
  double table = 0;
  for (auto _ : state) {
    library += seconds_of(state, [](const uint8_t* data, size_t length, uint32_t start) {
      return Crc32CheckSumByte(data, static_cast<uint32_t>(length), start);
    });
    table += seconds_of(state, crc_by_table);
  }
  state.counters["ns"] = library / 2000 * 1e9 / static_cast<double>(state.iterations());
  state.counters["times_byte_table"] = table / library;
}
BENCHMARK(Crc32)->Arg(28)->Arg(1663)->Arg(3576);

/// Counter "ns_per_line": a log line whose level the mask leaves out, measured on the 158 lines of a dump.
void MaskedLogLine(benchmark::State& state) {
  const auto folder = std::filesystem::temp_directory_path() / ("phone-bench-" + std::to_string(getpid()));
  {
    auto phone = phone::VirtualPhone::create(folder);
    phone.set_log_mask(0);
    const std::vector<uint8_t> slot(4096);
    for (auto _ : state) QOR_Show_LSC(slot.data());
  }
  std::filesystem::remove_all(folder);
  state.counters["ns_per_line"] =
      benchmark::Counter(158e-9 * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(MaskedLogLine);

}  // namespace
