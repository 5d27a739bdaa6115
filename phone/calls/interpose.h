// How an interposed call is made: which of the phone's files it is about, what the faults say, and how it
// fails.
#ifndef PHONE_CALLS_INTERPOSE_H
#define PHONE_CALLS_INTERPOSE_H

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <type_traits>

#include "phone/calls/descriptors.h"
#include "phone/calls/faults.h"
#include "phone/calls/real.h"
#include "phone/calls/redirect.h"
#include "phone/devices/mtd_device.h"

// Defines the C library's function `name`. It gets a name of its own in C++, because the C library declares
// its functions with attributes (noexcept, nonnull, fortified variants) that differ between its versions.
#define INTERPOSE(result, name, parameters)                                                         \
  extern "C" __attribute__((visibility("default"))) result interposed_##name parameters asm(#name); \
  result interposed_##name parameters

// A second symbol for the same function.
#define INTERPOSE_ALIAS(alias_name, name)   \
  extern "C"                                \
      __attribute__((visibility("default"), \
                     alias(#name))) decltype(interposed_##name) interposed_##alias_name asm(#alias_name)

// The definition that the one of this name hides.
#define NEXT(name)                                                                         \
  ([] {                                                                                    \
    static const auto next = ::phone::next_definition<decltype(interposed_##name)>(#name); \
    return next;                                                                           \
  }())

extern "C" [[noreturn]] void __chk_fail();

namespace phone {

template <typename Result>
Result failure() {
  if constexpr (std::is_pointer_v<Result>) {
    return nullptr;
  } else {
    return static_cast<Result>(-1);
  }
}

template <typename Result>
Result fail(int error) {
  errno = error;
  return failure<Result>();
}

/// What comes before the real call: a failure to report (an errno value), or none.
template <typename Decide>
int decide(Decide&& decision) {
  const ErrnoKeeper keeper;
  try {
    return decision();
  } catch (const std::exception&) {
    return ENOMEM;
  }
}

/// Calls `real(path, phone_path)` with the host's path, or with `path` itself and null if it is not the
/// phone's.
template <typename Real>
auto on_path(const char* call, const char* path, Links links, Real&& real)
    -> decltype(real(path, static_cast<const std::string*>(nullptr))) {
  using Result = decltype(real(path, static_cast<const std::string*>(nullptr)));
  std::optional<Target> target;
  const int error = decide([&] {
    target = redirect(path, links);
    if (!target) return 0;
    const CallEffect effect = effect_on_file_call(call, target->phone);
    return effect.error != 0 ? effect.error : target->error;
  });
  if (error != 0) return fail<Result>(error);
  return real(target ? target->host.c_str() : path, target ? &target->phone : nullptr);
}

/// As a call that transfers up to `size` bytes; `real(node, size)` has a null node for what is not the
/// phone's. The journal shows `journal_name` if there is one.
template <typename Real>
auto on_descriptor(const char* call, int fd, size_t size, Real&& real, const char* journal_name = nullptr)
    -> decltype(real(node_of(fd), size)) {
  const Node* node = node_of(fd);
  if (node == nullptr) return real(node, size);
  const int error = decide([&] {
    const CallEffect effect = effect_on_file_call(call, node->path, journal_name);
    if (effect.transfer >= 0) size = std::min(size, static_cast<size_t>(effect.transfer));
    return effect.error;
  });
  return error != 0 ? fail<decltype(real(node, size))>(error) : real(node, size);
}

/// The node to track for the real descriptor `fd`, just opened on `phone_path`.
const Node* opened_node(int fd, const std::string& phone_path);

bool is_device_path(const std::string& phone_path);

/// How a device is opened: its size and its write position are its own.
int flags_for(const std::string& phone_path, int flags);

}  // namespace phone

#endif
