/* The part of Android's <cutils/properties.h> that the library uses, declared as the platform declares it. */
#ifndef PHONE_CUTILS_PROPERTIES_H
#define PHONE_CUTILS_PROPERTIES_H

#include <sys/system_properties.h>

#define PROPERTY_KEY_MAX PROP_NAME_MAX
#define PROPERTY_VALUE_MAX PROP_VALUE_MAX

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `key`, else `default_value` (may be null: then nothing), into `value`, which has room
   for PROPERTY_VALUE_MAX bytes. Returns the length without the terminator. */
int property_get(const char* key, char* value, const char* default_value);

/* Returns 0, or a negative number if the property could not be set. */
int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif

#endif
