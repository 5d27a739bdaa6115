/* Linked in the place of the phone's libcutils.so, which the NDK lacks; never installed, never run. */
#include <cutils/properties.h>
#include <stdlib.h>

int property_get(const char* key, char* value, const char* default_value) {
  (void)key, (void)value, (void)default_value;
  abort();
}

int property_set(const char* key, const char* value) {
  (void)key, (void)value;
  abort();
}
