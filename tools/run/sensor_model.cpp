#include "run/sensor_model.h"

#include <algorithm>
#include <cmath>

namespace awbcal {

namespace {

constexpr int kZonesAcross = 32;
constexpr int kZonesDown = 24;
constexpr double kDarkestSample = 8.0;
constexpr double kBrightestSample = 230.0;
constexpr double kLightFlicker = 0.002;  // of a frame's ratios
constexpr double kLumaNoise = 0.004;     // of a frame's luma
constexpr double kShotNoise = 0.35;      // of a zone's ratio, at luma 1

constexpr double kLongestExposure = 33333;  // microseconds: a frame at 30 frames a second
constexpr double kHighestGain = 4096;       // 16.0

/// 1.2 in the centre of the frame, 0.6 in its corners.
double vignetting(int x, int y) {
  const double across = (2.0 * x + 1.0) / kZonesAcross - 1.0;
  const double down = (2.0 * y + 1.0) / kZonesDown - 1.0;
  return 1.2 - 0.3 * (across * across + down * down);
}

/// As much exposure time as a frame allows, the rest by gain.
Exposure exposure_of(double microseconds) {
  const double time = std::clamp(microseconds, 100.0, kLongestExposure);
  const double gain = std::clamp(256.0 * microseconds / time, 256.0, kHighestGain);
  return {static_cast<uint32_t>(gain + 0.5), static_cast<uint32_t>(time + 0.5)};
}

}  // namespace

double Noise::operator()() {
  uint64_t sum = 0;
  for (int draw = 0; draw < 3; ++draw) {
    for (uint64_t bits = engine_(), lane = 0; lane < 4; ++lane, bits >>= 16) sum += bits & 0xFFFF;
  }
  return static_cast<double>(sum) / 65536.0 - 6.0;
}

ExposureControl::ExposureControl(uint32_t target, uint32_t tolerance, double speed)
    : target_(target), tolerance_(tolerance), speed_(speed), exposure_(exposure_of(48000)) {}

void ExposureControl::observe(double luma) {
  const double off = std::abs(luma - target_);
  settled_ = off <= tolerance_;
  if (off <= tolerance_ / 2) return;  // so that noise does not take a settled exposure out of its tolerance
  const double correction = 1.0 + speed_ * (target_ / std::max(luma, 1.0) - 1.0);
  exposure_ = exposure_of(exposure_.milliseconds() * 1000.0 * correction);
}

SensorModel::Measurement SensorModel::capture(const Exposure& exposure) {
  const double luma = light_.luma_per_millisecond * exposure.milliseconds() * (1.0 + kLumaNoise * noise_());
  const double rg = 1024.0 * light_.rg * module_.rg * (1.0 + kLightFlicker * noise_());
  const double bg = 1024.0 * light_.bg * module_.bg * (1.0 + kLightFlicker * noise_());
  Frame frame{};
  for (int zone = 0; zone < kZonesAcross * kZonesDown; ++zone) {
    const double zone_luma = luma * vignetting(zone % kZonesAcross, zone / kZonesAcross);
    if (zone_luma < kDarkestSample || zone_luma > kBrightestSample) continue;
    const double deviation = kShotNoise / std::sqrt(zone_luma);
    frame.rg_sum += static_cast<int32_t>(rg * (1.0 + deviation * noise_()) + 0.5);
    frame.bg_sum += static_cast<int32_t>(bg * (1.0 + deviation * noise_()) + 0.5);
    frame.count += 1;
  }
  return {frame, std::min(luma, 255.0)};
}

}  // namespace awbcal
