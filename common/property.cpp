#include "common/property.h"

#include <cstdlib>

namespace calib {

int32_t property_number(const char* name, const char* otherwise) {
  char text[PROPERTY_VALUE_MAX] = {};
  return property_number(name, otherwise, text);
}

int32_t property_number(const char* name, const char* otherwise, char (&text)[PROPERTY_VALUE_MAX]) {
  property_get(name, text, otherwise);
  return static_cast<int32_t>(strtol(text, nullptr, 10));
}

double property_real(const char* name) {
  char text[PROPERTY_VALUE_MAX] = {};
  property_get(name, text, "0");
  return strtod(text, nullptr);
}

}  // namespace calib
