// Any bytes as frames (a CSV, raw images of any size and packing, a DNG) and as a table of limits: read, reduced to
// sums that a run can take, or refused.

#include <cstdlib>

#include "fuzz/custom_mutator.h"
#include "inspect/errors.h"
#include "inspect/files.h"
#include "run/dng.h"
#include "run/frame_files.h"
#include "run/limits.h"

namespace {

constexpr size_t kChoices = 6;
constexpr int kImage = 2;  ///< of sixteen kinds; what LibRaw sets up for one takes as long as ten others
constexpr unsigned kMostMegabytes = 64;

awbcal::FrameFileOptions options_of(const uint8_t* choice) {
  static constexpr const char* kPackings[] = {"", "csv", "raw10", "raw16"};
  static constexpr const char* kPatterns[] = {"rggb", "bggr", "grbg", "gbrg", "rgbg"};
  static constexpr double kLevels[] = {1023, 64, 0, 65535, 63};
  awbcal::FrameFileOptions options;
  options.format = {.packing = kPackings[choice[0] % std::size(kPackings)],
                    .width = choice[1],
                    .height = choice[2],
                    .stride = choice[3],
                    .pattern = kPatterns[choice[4] % std::size(kPatterns)],
                    .black = kLevels[choice[4] / 8 % std::size(kLevels)],
                    .white = kLevels[choice[4] / 40 % std::size(kLevels)]};
  options.grid.columns = choice[5] % 16;
  options.grid.rows = choice[5] / 16;
  options.grid.dark = choice[0] < 128 ? 0.02 : 0.0;
  return options;
}

/// The samples that count are not more than there are cells.
void check_sums(const awbcal::GridSums& sums, const awbcal::Grid& grid) {
  const auto cells = static_cast<int64_t>(grid.columns * grid.rows);
  if (sums.frame.count < 0 || int64_t{sums.frame.count} + sums.dark_cells + sums.saturated_cells != cells)
    std::abort();
}

void read_frames(const uint8_t* choice, const awbcal::Bytes& bytes) {
  const awbcal::FrameFileOptions options = options_of(choice);
  std::vector<awbcal::FrameOfFile> frames;
  // Not by its content: a DNG would have a process of its own.
  const char* name = choice[0] % 4 == 0 ? "x.csv" : "x";
  awbcal::add_frames(name, bytes, options, frames);
  if (options.format.packing == "raw10" || options.format.packing == "raw16")
    check_sums(frames.at(0).sums, options.grid);
}

void read_image(const uint8_t* choice, const awbcal::Bytes& bytes) {
  const awbcal::FrameFileOptions options = options_of(choice);
  check_sums(awbcal::reduce(awbcal::decode_dng(bytes, "x", kMostMegabytes), options.grid, "x"), options.grid);
}

/// A message is an answer.
template <class Work>
void survive(Work work) {
  try {
    work();
  } catch (const awbcal::InputError&) {
  }
}

int kind_of(const uint8_t* data) {
  return data[0] / 4 % 16;
}

}  // namespace

void fuzz::make_fast(uint8_t* data, size_t) {
  if (kind_of(data) == kImage) data[0] ^= 4;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < kChoices) return 0;
  const awbcal::Bytes bytes(data + kChoices, data + size);
  const int kind = kind_of(data);
  if (kind == kImage) {
    survive([&] { read_image(data, bytes); });
  } else if (kind % 4 == 3) {
    survive([&] { awbcal::parse_limits("x", awbcal::text_of(bytes)); });
  } else {
    survive([&] { read_frames(data, bytes); });
  }
  return 0;
}
