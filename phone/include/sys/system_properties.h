/* The part of bionic's <sys/system_properties.h> that the library uses, declared as the platform declares it.
 */
#ifndef PHONE_SYS_SYSTEM_PROPERTIES_H
#define PHONE_SYS_SYSTEM_PROPERTIES_H

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `name` into `value`, which has room for PROP_VALUE_MAX bytes. Returns its length; for a
   property that does not exist, 0 and an empty string. */
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif

#endif
