// The log-mask convention: every line is tested against its tag's mask before any argument is evaluated.
//
// A source file logs through the module that the name `log_module` finds: its own, or that of its subsystem.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

#include <cerrno>

#include "common/platform.h"

namespace calib {

/// A log tag with its mask. A negative mask byte is not initialised: the platform is asked before the line.
struct LogModule {
  const char* tag;
  signed char mask = -0x80;
};

enum LogBit : int { kLogDebug = 2, kLogInfo = 4, kLogError = 16 };

/// Asks the platform for the module's mask and keeps its low 8 bits. errno stays as it was: the line that is
/// about to be logged may print it.
[[gnu::cold]] void ask_log_mask(LogModule& module);

inline bool log_enabled(LogModule& module, LogBit bit) {
  if (module.mask < 0) [[unlikely]]
    ask_log_mask(module);
  return (module.mask & bit) != 0;
}

/// Keeps errno over the calls of its scope.
class KeepErrno {
 public:
  KeepErrno() = default;
  KeepErrno(const KeepErrno&) = delete;
  KeepErrno& operator=(const KeepErrno&) = delete;
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_ = errno;
};

}  // namespace calib

#define LOG_LINE(bit, priority, ...)                                        \
  (::calib::log_enabled(log_module, (bit))                                  \
       ? (void)__android_log_print((priority), log_module.tag, __VA_ARGS__) \
       : (void)0)

#define LOGD(...) LOG_LINE(::calib::kLogDebug, ANDROID_LOG_DEBUG, __VA_ARGS__)
#define LOGI(...) LOG_LINE(::calib::kLogInfo, ANDROID_LOG_INFO, __VA_ARGS__)
/// Keeps errno: what the line is about is what the caller finds there.
#define LOGE(...)                                                          \
  (__extension__({                                                         \
    if (::calib::log_enabled(log_module, ::calib::kLogError)) {            \
      const ::calib::KeepErrno keep_;                                      \
      __android_log_print(ANDROID_LOG_ERROR, log_module.tag, __VA_ARGS__); \
    }                                                                      \
  }))

/// Logs an error and is -1: `return FAIL("...")`.
#define FAIL(...) (LOGE(__VA_ARGS__), -1)

#endif
