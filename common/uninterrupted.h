// System calls that a signal interrupts: made again, by all of the library but the transfers on eMMC.
#ifndef COMMON_UNINTERRUPTED_H
#define COMMON_UNINTERRUPTED_H

#include <cerrno>

namespace calib {

/// What `call()` returns once no signal interrupts it: an interrupted call has done nothing, and leaves no trace in
/// errno either. Not for close(), which is not to be made again: its descriptor is gone whatever it reports.
template <typename Call>
auto uninterrupted(Call&& call) {
  const int before = errno;
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
    errno = before;
  }
}

}  // namespace calib

#endif
