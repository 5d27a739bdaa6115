// A small model of a camera before a reference light: what its preview frames measure, and the loop that sets
// its exposure.
//
// Only +, -, *, / and sqrt on doubles, and a generator that the language standard fixes, so that a seed gives
// the same frames on every host.
#ifndef RUN_SENSOR_MODEL_H
#define RUN_SENSOR_MODEL_H

#include <cstdint>
#include <random>

#include "records/golden_sample.h"
#include "run/frames.h"

namespace awbcal {

/// A reference light as the golden sample sees it.
struct Light {
  const char* name;
  double rg;
  double bg;
  double luma_per_millisecond;  ///< at a gain of 1.0
  bool is_a_light;

  calib::GoldenRatios golden() const { return {static_cast<float>(rg), static_cast<float>(bg)}; }
};

/// How far a module is from the golden sample: factors on R/G and B/G.
struct ModuleDeviation {
  double rg;
  double bg;
};

/// About normal, mean 0, deviation 1: the sum of twelve uniform numbers, less 6.
class Noise {
 public:
  explicit Noise(uint64_t seed) : engine_(seed) {}
  double operator()();
  uint32_t word() { return static_cast<uint32_t>(engine_() >> 32); }

 private:
  std::mt19937_64 engine_;
};

/// In the exposure control's units.
struct Exposure {
  uint32_t gain;      ///< 256 is 1.0
  uint32_t exp_time;  ///< microseconds

  double milliseconds() const { return exp_time / 1000.0 * gain / 256.0; }
};

/// The loop that drives the frame's luma (0 to 255) to its target.
class ExposureControl {
 public:
  /// Each frame takes the share `speed` of the way to the target.
  ExposureControl(uint32_t target, uint32_t tolerance, double speed);

  Exposure exposure() const { return exposure_; }
  void observe(double luma);
  bool has_settled() const { return settled_; }

 private:
  double target_;
  double tolerance_;
  double speed_;
  Exposure exposure_;
  bool settled_ = false;
};

class SensorModel {
 public:
  SensorModel(const Light& light, const ModuleDeviation& module, Noise& noise)
      : light_(light), module_(module), noise_(noise) {}

  struct Measurement {
    Frame frame;
    double luma;
  };

  /// A grid of zones, darker toward the corners; a zone that is too dark or clipped is no sample.
  Measurement capture(const Exposure& exposure);

 private:
  Light light_;
  ModuleDeviation module_;
  Noise& noise_;
};

}  // namespace awbcal

#endif
