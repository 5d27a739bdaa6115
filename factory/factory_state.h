// All memory of the factory steps, besides the variables that factory.h exports.
#ifndef FACTORY_FACTORY_STATE_H
#define FACTORY_FACTORY_STATE_H

#include <cstdint>

#include "records/record_layouts.h"

namespace calib {

/// The value of "mfg.calibration.status" under which AWB and AEC are calibrated.
inline constexpr int32_t kCalibrationMode = 3;

struct SettledExposure {
  uint32_t gain;
  uint32_t exp_time;
  uint32_t luma_value;
};

struct FactoryState {
  int32_t calibration_status;  // "mfg.calibration.status" when the camera was opened
  int32_t previous_trigger;    // "mfg.awb.calibration.trigger" at the last frame
  float rg_sum;                // of the run's frames, times 1024
  float bg_sum;
  AwbRecord awb_record;     // under construction; the log calls it caBuff
  SettledExposure settled;  // 0 while not ready
};

extern constinit FactoryState factory_state;

}  // namespace calib

#endif
