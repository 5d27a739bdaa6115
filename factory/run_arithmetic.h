// The arithmetic of the AWB calibration run: what its frames count for, and how far from the golden sample they
// are. Without state and without I/O: the run decides by it, and awbcal shows a record's margin by it.
//
// As 64-bit ARM does it, on every host: 32-bit sums wrap, conversions saturate.
#ifndef FACTORY_RUN_ARITHMETIC_H
#define FACTORY_RUN_ARITHMETIC_H

#include <cmath>
#include <cstdint>

#include "records/golden_sample.h"

namespace calib {

inline constexpr uint32_t kFramesToSum = 10;

/// A frame's mean, times 1024: a half is rounded up (positive sums), a quotient is cut toward zero, and the
/// one that does not fit is its dividend. 0 for a frame without samples.
inline int32_t frame_mean(int32_t sum, int32_t count) {
  if (count == 0) return 0;
  const auto dividend = static_cast<int32_t>(static_cast<uint32_t>(sum) + static_cast<uint32_t>(count >> 1));
  return static_cast<int32_t>(static_cast<int64_t>(dividend) / count);
}

/// The record's word for the sum of a run's frame means: a tenth, cut toward zero; 0 for a NaN.
inline uint32_t run_mean(float sum) {
  const float mean = sum / static_cast<float>(kFramesToSum);
  if (!(mean > 0.0F)) return 0;
  return mean >= 4294967296.0F ? UINT32_MAX : static_cast<uint32_t>(mean);
}

/// The ratios that a record's two words stand for.
inline GoldenRatios ratios_of(uint32_t rg, uint32_t bg) {
  return {static_cast<float>(rg / 1024.0), static_cast<float>(bg / 1024.0)};
}

/// The tolerance in percent as a fraction.
inline float tolerance_of(float percent) {
  return percent / 100.0F;
}

/// A run's distance from the golden sample against its limit.
struct Margin {
  float delta;
  float limit;

  /// The run fails only beyond its limit; with a golden sample that is not a number every run passes.
  bool is_kept() const { return !(delta > limit); }
};

/// `tolerance` is a fraction; it counts in the larger golden ratio.
inline Margin margin_of(const GoldenRatios& measured, const GoldenRatios& golden, float tolerance) {
  const double off_rg = static_cast<double>(golden.rg) - static_cast<double>(measured.rg);
  const double off_bg = static_cast<double>(golden.bg) - static_cast<double>(measured.bg);
  return {.delta = static_cast<float>(sqrt(off_rg * off_rg + off_bg * off_bg)),
          .limit = tolerance * (golden.rg > golden.bg ? golden.rg : golden.bg)};
}

}  // namespace calib

#endif
