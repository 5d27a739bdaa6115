#include "records/golden_sample.h"

#include <cstring>

#include "awb_calibration/records.h"

namespace calib {

constinit GoldenSample golden_sample{};

}  // namespace calib

void awb_calibration_set_GS(const float rg[3], const float bg[3]) {
  if (rg == nullptr || bg == nullptr) return;

  memcpy(calib::golden_sample.rg, rg, sizeof calib::golden_sample.rg);
  memcpy(calib::golden_sample.bg, bg, sizeof calib::golden_sample.bg);
}
