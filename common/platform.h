// The one door to the Android platform: nothing else in the library includes its headers.
#ifndef COMMON_PLATFORM_H
#define COMMON_PLATFORM_H

#include <android/log.h>
#include <cutils/properties.h>
#include <sys/system_properties.h>

static_assert(sizeof(void*) == 8, "64-bit phones only: positions and logged fields are 64 bits wide");

extern "C" {

// The platform's log-mask service: returns the mask for `tag` (bit value 2 debug, 4 info, 16 error). It comes
// from a closed library that not every phone has; there the weak import is null and everything is logged.
__attribute__((weak)) unsigned __qorlog_init_mask(const char* tag, unsigned mask, signed char* byte);
}

#endif
