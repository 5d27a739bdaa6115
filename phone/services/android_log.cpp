// The platform's log. An object of its own: a program may link another log instead.
#include <android/log.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "phone/services/log.h"

extern "C" __attribute__((visibility("default"))) int __android_log_print(int prio, const char* tag,
                                                                          const char* fmt, ...) {
  char text[1024];  // as long as a line of the platform's log can be
  va_list arguments;
  va_start(arguments, fmt);
  const int size = std::vsnprintf(text, sizeof text, fmt, arguments);
  va_end(arguments);
  const bool recorded = size >= 0 && phone::record_log_line(prio, tag, text);
  errno = phone::kForeignErrno;
  return recorded ? 1 : -1;
}
