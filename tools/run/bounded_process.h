// Work on a stranger's bytes in a process of its own, with bounds on memory and time: whatever it does, the tool goes
// on.
#ifndef RUN_BOUNDED_PROCESS_H
#define RUN_BOUNDED_PROCESS_H

#include <chrono>
#include <functional>
#include <string>

#include "inspect/decode.h"

namespace awbcal {

struct Bounds {
  size_t memory = size_t{1} << 30;  ///< bytes beyond what this process has; not under the sanitizers
  unsigned cpu_seconds = 30;
  std::chrono::milliseconds time{60000};
};

struct BoundedReply {
  enum class End { replied, crashed, out_of_memory, out_of_time };
  End end;
  Bytes bytes = {};         ///< what the work returned
  std::string signal = {};  ///< crashed: by which
};

/// Throws std::runtime_error when there is no process to be had. For programs with one thread: the process begins as a
/// copy of this one.
BoundedReply run_bounded(const std::function<Bytes()>& work, const Bounds& bounds = {});

}  // namespace awbcal

#endif
