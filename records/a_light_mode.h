// Whether the AWB calibration run works in A light. Written by the run (factory/), read by the record area.
#ifndef RECORDS_A_LIGHT_MODE_H
#define RECORDS_A_LIGHT_MODE_H

#include <cstdint>

namespace calib {

extern constinit int32_t a_light_mode;  // value of "mfg.awb.calibration.Alight" when the camera was opened

inline bool is_a_light() {
  return a_light_mode == 1;
}

}  // namespace calib

#endif
