// Attaches the phone of $VIRTUAL_PHONE to the program that this library is preloaded into.
//
//   VIRTUAL_PHONE           the phone's folder; without it nothing is replaced
//   VIRTUAL_PHONE_LOG       "stderr": log lines are printed there, as logcat's brief format
//   VIRTUAL_PHONE_REDIRECT  "0": paths stay the host's; log, log mask and properties are the phone's
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "phone/faults.h"
#include "phone/log.h"
#include "phone/virtual_phone.h"

namespace {

std::string_view setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

__attribute__((constructor)) void attach_from_environment() {
  const std::string_view dir = setting("VIRTUAL_PHONE");
  if (dir.empty()) return;
  try {
    // For as long as the process lives, also while its last destructors log.
    auto* const phone = new phone::VirtualPhone(phone::VirtualPhone::attach(dir));
    phone::keep_journal(false);
    phone::keep_log_lines(false);
    if (setting("VIRTUAL_PHONE_LOG") == "stderr") phone->print_log_to(stderr);
    if (setting("VIRTUAL_PHONE_REDIRECT") == "0") phone->set_redirection(false);
  } catch (const std::exception& error) {
    // Going on would let the program loose on the host's own devices.
    std::fprintf(stderr, "virtual phone: %s\n", error.what());
    _exit(126);
  }
}

}  // namespace
