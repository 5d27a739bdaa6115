// What a camera start costs beside the bare reading of the same files, and softening a mesh beside copying
// it. One run prints both sides.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "awb_calibration/correction.h"
#include "awb_calibration/records.h"
#include "phone/temporary_folder.h"
#include "phone/virtual_phone.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// ---- a camera start ---------------------------------------------------------------------------------------

struct File {
  const char* path;
  size_t size;  // what the library reads of it
};

const File kAwb = {"/data/misc/camera/awb_cal", 32};
const File kALight = {"/data/misc/camera/awb_A_light_cal", 32};
const File kFlash = {"/data/misc/camera/flash_cal", 32};
const File kDualFlash = {"/data/misc/camera/flash_dual_cal", 48};
const File kMesh = {"/data/misc/camera/lsc_cal", 4000};

/// A good record for any module: valid word, values, four fuse words and a CRC, or the same in 64 bits with
/// gains between. The CRC is part of what is measured.
void make_file(const fs::path& root, const File& file) {
  const bool is_mesh = file.size == 4000;
  std::vector<uint32_t> words(file.size / 4, 2048);
  const size_t first = is_mesh ? 16 : 0;
  const size_t crc = is_mesh ? 910 : words.size() - 1;
  const size_t fuse = is_mesh ? 18 : crc - 4;
  std::fill_n(words.begin() + static_cast<ptrdiff_t>(fuse), is_mesh ? 8 : 4, 0);
  words[first] = 3099;
  if (is_mesh) words[first + 1] = words[crc + 1] = 0;
  words[crc] = Crc32CheckSumByte(&words[first], static_cast<uint32_t>(4 * (crc - first)), 0);
  const fs::path path = root / fs::path(file.path).relative_path();
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(file.size));
}

/// Ends the program if a record was not used: then the figures would be those of refusals.
void start_camera(float* awb_tuning, void* sensor_tuning, bool newer_entry) {
  float out[10] = {};
  if (newer_entry)
    Correct_Reference_Points_qorModule(awb_tuning, out, out + 2, out + 4);
  else
    QOR_AWB_Calibration_Reference_Points_Correction(awb_tuning);
  if (awb_tuning[3113] != 2 || Sensor_set_mesh(sensor_tuning, 0, 0.25F, 0.5F) != 1) std::abort();
  Dual_Cam_Correction(out + 6, out + 7, out + 8, out + 9);
  if (out[6] != 2 || out[8] != 2) std::abort();
}

/// The system calls alone, past every wrapper.
void read_bare(const File& file) {
  char bytes[4000];
  const long fd = syscall(SYS_openat, AT_FDCWD, file.path, O_RDONLY | O_CLOEXEC);
  if (syscall(SYS_read, fd, bytes, file.size) != static_cast<long>(file.size)) std::abort();
  syscall(SYS_close, fd);
  benchmark::DoNotOptimize(bytes);
}

struct Seconds {
  double library = 0;
  double bare = 0;
};

template <class Work>
double seconds_of(const Work& work) {
  const auto start = Clock::now();
  for (int i = 0; i < 500; ++i) work();
  return std::chrono::duration<double>(Clock::now() - start).count() / 500;
}

/// Silences the log as a released phone does, which has no virtual phone in the way of its files.
void silence_log(const fs::path& root) {
  auto phone = phone::VirtualPhone::create(root / "phone", {.partition_size = 256 * 1024});
  phone.set_log_mask(0);
  uint32_t words[4];
  awb_get_fuseid(words);
}

/// In a process of its own, whose root is `root`: the files are where a phone has them, and nothing is
/// redirected.
Seconds measure(const fs::path& root, bool newer_entry) {
  silence_log(root);
  if (chroot(root.c_str()) != 0 && (unshare(CLONE_NEWUSER) != 0 || chroot(root.c_str()) != 0)) return {};
  std::vector<float> awb_tuning(12464 / 4, 1);
  std::vector<float> sensor_tuning(48592 / 4, 1);
  const std::vector<File> files = newer_entry ? std::vector{kAwb, kDualFlash, kMesh, kAwb, kALight}
                                              : std::vector{kAwb, kFlash, kMesh, kAwb, kALight};
  const auto start = [&] { start_camera(awb_tuning.data(), sensor_tuning.data(), newer_entry); };
  const auto read_all = [&files] {
    for (const File& file : files) read_bare(file);
  };
  seconds_of(start);
  seconds_of(read_all);
  Seconds seconds{.library = seconds_of(start), .bare = seconds_of(read_all)};
  seconds.library = (seconds.library + seconds_of(start)) / 2;
  return seconds;
}

Seconds measure_in_child(bool newer_entry) {
  const phone::TemporaryFolder folder;
  const fs::path& root = folder.path();
  for (const File& file : {kAwb, kALight, kFlash, kDualFlash, kMesh}) make_file(root, file);
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  const pid_t child = fork();
  if (child == 0) {
    const Seconds seconds = measure(root, newer_entry);
    _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  close(ends[1]);
  Seconds seconds;
  if (read(ends[0], &seconds, sizeof seconds) != sizeof seconds) seconds = {};
  close(ends[0]);
  waitpid(child, nullptr, 0);
  return seconds;
}

/// Counter "times_bare_reading": a camera start over the bare open, read and close of the same files.
/// Argument 0 is the older entry, 1 the newer.
void CameraStart(benchmark::State& state) {
  Seconds sum;
  for (auto _ : state) {
    const Seconds seconds = measure_in_child(state.range(0) != 0);
    if (seconds.bare == 0) {
      state.SkipWithError("no private root: neither root nor user namespaces");
      return;
    }
    sum.library += seconds.library;
    sum.bare += seconds.bare;
  }
  state.counters["us"] = sum.library * 1e6 / static_cast<double>(state.iterations());
  state.counters["times_bare_reading"] = sum.library / sum.bare;
}
BENCHMARK(CameraStart)->Arg(0)->Arg(1)->Iterations(1)->Repetitions(20)->ReportAggregatesOnly();

// ---- a mesh -----------------------------------------------------------------------------------------------

/// Counter "times_copy": softening a table over copying it. Argument 1: in place.
void MeshInterpolation(benchmark::State& state) {
  std::vector<float> from(885, 1.5F);
  std::vector<float> to(885, 1.5F);
  const void* src = state.range(0) != 0 ? to.data() : from.data();
  double softening = 0;
  double copying = 0;
  for (auto _ : state) {
    softening += seconds_of([&] {
      Sensor_mesh_interpolation(to.data(), src, 0.999F);
      benchmark::ClobberMemory();
    });
    copying += seconds_of([&] {
      float* there = to.data();
      benchmark::DoNotOptimize(there);
      std::memcpy(there, from.data(), 3540);
      benchmark::ClobberMemory();
    });
  }
  state.counters["ns"] = softening * 1e9 / static_cast<double>(state.iterations());
  state.counters["times_copy"] = softening / copying;
}
BENCHMARK(MeshInterpolation)->Arg(0)->Arg(1)->Repetitions(20)->ReportAggregatesOnly();

}  // namespace
