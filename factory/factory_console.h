// Console lines for the factory tool, and the texts of its marker files.
#ifndef FACTORY_FACTORY_CONSOLE_H
#define FACTORY_FACTORY_CONSOLE_H

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "records/calibration_log.h"

/// Prints a line on standard output and logs the same at the given level.
#define PRINT_AND(LOG, ...) (printf(__VA_ARGS__), LOG(__VA_ARGS__))
#define PRINT_AND_LOGI(...) PRINT_AND(LOGI, __VA_ARGS__)
#define PRINT_AND_LOGE(...) PRINT_AND(LOGE, __VA_ARGS__)

namespace calib {

/// The text of a marker file, collected line by line. What does not fit is cut.
class MarkerText {
 public:
  [[gnu::format(printf, 2, 3)]] void add(const char* format, ...) {
    const size_t room = sizeof text_ - length_;
    va_list arguments;
    va_start(arguments, format);
    const int wanted = vsnprintf(text_ + length_, room, format, arguments);
    va_end(arguments);
    if (wanted > 0) length_ += std::min(static_cast<size_t>(wanted), room - 1);
  }

  const char* data() const { return text_; }
  size_t size() const { return length_; }

 private:
  char text_[1024] = {};
  size_t length_ = 0;
};

}  // namespace calib

#endif
