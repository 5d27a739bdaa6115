// The reference lights of the demos, as the golden sample sees them.
#ifndef DEMO_REFERENCE_LIGHTS_H
#define DEMO_REFERENCE_LIGHTS_H

#include "run/sensor_model.h"

namespace awbcal {

inline constexpr Light kNormalLight{
    .name = "normal light", .rg = 0.7539, .bg = 0.5625, .luma_per_millisecond = 4.0, .is_a_light = false};
inline constexpr Light kALight{
    .name = "A light", .rg = 1.1045, .bg = 0.3574, .luma_per_millisecond = 1.5, .is_a_light = true};

}  // namespace awbcal

#endif
