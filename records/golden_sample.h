// The golden sample's ratios. Written by the AWB calibration run and by the module reference-point
// correction, through awb_calibration_set_GS(); read by the run and by the reference-point correction.
#ifndef RECORDS_GOLDEN_SAMPLE_H
#define RECORDS_GOLDEN_SAMPLE_H

#include <cstdint>

namespace calib {

/// The ratios of one light-source version.
struct GoldenRatios {
  float rg;
  float bg;
};

/// R/G and B/G per light-source version (index version - 1); 0.0 until set.
struct GoldenSample {
  float rg[3];
  float bg[3];

  GoldenRatios of_version(uint32_t version) const { return {rg[version - 1], bg[version - 1]}; }
};

extern constinit GoldenSample golden_sample;

}  // namespace calib

#endif
