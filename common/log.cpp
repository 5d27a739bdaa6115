#include "common/log.h"

namespace calib {

void ask_log_mask(LogModule& module) {
  const KeepErrno keep;
  // A mask with bit 7 set leaves the byte negative: its low bits decide this line, and the next one asks
  // again.
  const unsigned mask =
      __qorlog_init_mask != nullptr ? __qorlog_init_mask(module.tag, ~0U, &module.mask) : 0x7FU;
  module.mask = static_cast<signed char>(mask & 0xFFU);
}

}  // namespace calib
