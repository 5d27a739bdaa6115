#include "text/utc.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

namespace awbcal {

std::string utc_text(int64_t time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(time)));
}

}  // namespace awbcal
