// The golden sample's ratios. Written by the AWB calibration run and by the module reference-point
// correction, through awb_calibration_set_GS(); read by the run and by the reference-point correction.
#ifndef RECORDS_GOLDEN_SAMPLE_H
#define RECORDS_GOLDEN_SAMPLE_H

namespace calib {

/// R/G and B/G per light-source version (index version - 1); 0.0 until set.
struct GoldenSample {
  float rg[3];
  float bg[3];
};

extern constinit GoldenSample golden_sample;

}  // namespace calib

#endif
