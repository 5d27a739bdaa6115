// The virtual phone as a shared library: preloaded into any program, or linked by programs in C.
//
//   VIRTUAL_PHONE           the folder of the phone to attach when the program starts; without it nothing is
//                           replaced, unless the program calls virtual_phone_open()
//   VIRTUAL_PHONE_LOG       "stderr": log lines are printed there, as logcat's brief format
//   VIRTUAL_PHONE_REDIRECT  "0": paths stay the host's; log, log mask and properties are the phone's
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "phone/calls/faults.h"
#include "phone/services/log.h"
#include "phone/virtual_phone.h"
#include "phone/virtual_phone_c.h"

namespace {

using phone::VirtualPhone;

std::string_view setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// For as long as the process lives, also while its last destructors log.
void keep(VirtualPhone&& attached) {
  auto* const phone = new VirtualPhone(std::move(attached));
  phone::keep_journal(false);
  phone::keep_log_lines(false);
  if (setting("VIRTUAL_PHONE_LOG") == "stderr") phone->print_log_to(stderr);
  if (setting("VIRTUAL_PHONE_REDIRECT") == "0") phone->set_redirection(false);
}

void complain(const std::exception& error) {
  std::fprintf(stderr, "virtual phone: %s\n", error.what());
}

__attribute__((constructor)) void attach_from_environment() {
  const std::string_view dir = setting("VIRTUAL_PHONE");
  if (dir.empty()) return;
  try {
    keep(VirtualPhone::attach(dir));
  } catch (const std::exception& error) {
    complain(error);
    // Going on would let the program loose on the host's own devices.
    _exit(126);
  }
}

}  // namespace

int virtual_phone_open(const char* dir) {
  try {
    if (dir == nullptr) throw std::invalid_argument("no folder given");
    const std::filesystem::path folder = dir;
    const bool exists = std::filesystem::exists(folder / "properties");
    keep(exists ? VirtualPhone::attach(folder) : VirtualPhone::create(folder));
    return 0;
  } catch (const std::exception& error) {
    complain(error);
    return -1;
  }
}
