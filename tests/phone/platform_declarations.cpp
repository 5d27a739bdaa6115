// Do the platform's headers, ours and Android's own alike, declare what the library calls as it calls it?
// Guards against a library that is built on a host with declarations that no phone has.
#include <type_traits>

#include "common/platform.h"

template <auto function, class Type>
inline constexpr bool kIs = std::is_same_v<std::remove_pointer_t<decltype(function)>, Type>;

static_assert(kIs<&__android_log_print, int(int, const char*, const char*, ...)>);
static_assert(kIs<&property_get, int(const char*, char*, const char*)>);
static_assert(kIs<&property_set, int(const char*, const char*)>);
static_assert(kIs<&__system_property_get, int(const char*, char*)>);
static_assert(ANDROID_LOG_DEBUG == 3 && ANDROID_LOG_INFO == 4 && ANDROID_LOG_ERROR == 6);
static_assert(PROPERTY_KEY_MAX == 32 && PROPERTY_VALUE_MAX == 92 && PROP_VALUE_MAX == 92);
