// What raw NAND costs: the all-zero test against a byte loop, reads and writes against plain ones of the same
// blocks, system calls per block, and peak heap. One run prints both sides.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "awb_calibration/storage.h"
#include "phone/virtual_phone.h"
#include "storage/mtd_blocks.h"

// The library's memory is counted where it asks for it: both names resolve to this program.
extern "C" {
void* __libc_calloc(size_t count, size_t size);
void __libc_free(void* memory);
}

namespace {

size_t heap_now = 0;
size_t heap_peak = 0;

}  // namespace

#ifndef __SANITIZE_ADDRESS__  // which has names of its own for them
extern "C" void* calloc(size_t count, size_t size) {
  heap_now += count * size;
  heap_peak = std::max(heap_peak, heap_now);
  return __libc_calloc(count, size);
}

extern "C" void free(void* memory) {
  // More than was asked for, by the allocator's rounding: what is counted can only fall short afterwards.
  heap_now -= std::min(heap_now, malloc_usable_size(memory));
  __libc_free(memory);
}
#endif

namespace {

constexpr uint32_t kBlock = 128 * 1024;
constexpr int64_t kOffset = 3 * kBlock;  // of the record that is read and written
constexpr int64_t kLength = 48;

/// The shortest time of 200 calls: the other runs shared the machine.
struct Best {
  template <class Call>
  void time(Call&& call) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i) call();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    seconds = std::min(seconds, taken.count());
  }
  double seconds = 1e9;
};

bool zero_by_bytes(const uint8_t* bytes, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

/// Counter "times_byte_loop": how many times faster the all-zero test is than a byte loop on a zero block.
void BM_AllZeroTest(benchmark::State& state) {
  const std::vector<uint8_t> zeros(kBlock, 0);
  const auto with = [&](bool (*test)(const uint8_t*, size_t)) {
    return [&zeros, test] {
      const uint8_t* bytes = zeros.data();
      benchmark::DoNotOptimize(bytes);
      benchmark::DoNotOptimize(test(bytes, kBlock));
    };
  };
  Best byte_loop, library;
  for (auto _ : state) {
    byte_loop.time(with(zero_by_bytes));
    library.time(with(calib::mtd::is_all_zero));
  }
  state.counters["times_byte_loop"] = byte_loop.seconds / library.seconds;
}

/// A phone with a chip of 16 blocks, its partition open by the library and plainly.
struct Chip {
  Chip() : dir(std::filesystem::temp_directory_path() / ("nand-bench-" + std::to_string(getpid()))) {
    std::filesystem::remove_all(dir);
    phone.emplace(phone::VirtualPhone::create(dir, {.storage = phone::Storage::nand}));
    phone->set_log_mask(0);
    mtd_open(&partition, "mfg");
    fd = open(partition.path, O_RDWR);
  }
  ~Chip() {
    close(fd);
    mtd_close(&partition);
    phone.reset();
    std::filesystem::remove_all(dir);
  }

  std::filesystem::path dir;
  std::optional<phone::VirtualPhone> phone;
  mtd_partition partition{};
  int fd = -1;
};

/// What one `transfer` asks of the kernel and of the heap.
void count_calls(benchmark::State& state, Chip& chip, const std::function<void()>& transfer) {
  chip.phone->take_calls();
  heap_peak = heap_now = 0;
  transfer();
  state.counters["peak_heap_in_blocks"] = static_cast<double>(heap_peak) / kBlock;
  const auto calls = chip.phone->take_calls();
  const std::pair<const char*, const char*> counters[] = {{"reads", "read"},
                                                          {"seeks", "lseek"},
                                                          {"ECCGETSTATS", "ioctl ECCGETSTATS"},
                                                          {"MEMGETBADBLOCK", "ioctl MEMGETBADBLOCK"}};
  for (const auto& counter : counters) {
    state.counters[counter.first] = static_cast<double>(std::count_if(
        calls.begin(), calls.end(), [&](const phone::Call& call) { return call.name == counter.second; }));
  }
}

/// A record in the fourth block. "over_plain_read": the time over a plain seek and read of the same four
/// blocks.
void BM_ReadRecord(benchmark::State& state) {
  Chip chip;
  uint8_t record[kLength];
  std::vector<uint8_t> block(kBlock);
  const auto read_record = [&] { mtd_read(&chip.partition, kOffset, kLength, record); };
  const auto read_plainly = [&] {
    lseek(chip.fd, 0, SEEK_SET);
    for (int i = 0; i < 4; ++i) benchmark::DoNotOptimize(read(chip.fd, block.data(), kBlock));
  };
  Best library, plain;
  for (auto _ : state) {
    library.time(read_record);
    plain.time(read_plainly);
  }
  state.counters["over_plain_read"] = library.seconds / plain.seconds;
  count_calls(state, chip, read_record);
}

/// The same record written: four careful reads, one erase, one write and one read to verify.
void BM_WriteRecord(benchmark::State& state) {
  Chip chip;
  const uint8_t record[kLength] = {1};
  const auto write_record = [&] { mtd_write(&chip.partition, kOffset, kLength, record); };
  for (auto _ : state) write_record();
  count_calls(state, chip, write_record);
}

BENCHMARK(BM_AllZeroTest)->Iterations(20);
BENCHMARK(BM_ReadRecord)->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteRecord)->Iterations(20)->Unit(benchmark::kMillisecond);

}  // namespace
