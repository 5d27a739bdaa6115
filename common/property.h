// System properties as numbers.
#ifndef COMMON_PROPERTY_H
#define COMMON_PROPERTY_H

#include <cstdint>

#include "common/platform.h"

namespace calib {

/// The property's leading decimal number in 32 bits, as atoi() gives it; 0 when there is none. `otherwise` is
/// the text that stands for an absent property.
int32_t property_number(const char* name, const char* otherwise);

/// The same, with the text that it was read from.
int32_t property_number(const char* name, const char* otherwise, char (&text)[PROPERTY_VALUE_MAX]);

/// The property's leading floating-point number; 0 when there is none or the property is absent.
double property_real(const char* name);

}  // namespace calib

#endif
