// The story that `awbcal demo` tells: a production line calibrates a phone, through the real library.
#ifndef DEMO_DEMO_H
#define DEMO_DEMO_H

#include <cstdint>
#include <filesystem>

#include "phone/virtual_phone.h"
#include "text/terminal.h"

namespace awbcal {

struct DemoOptions {
  std::filesystem::path dir;     ///< empty: a new temporary folder
  std::filesystem::path frames;  ///< a recorded stream for the main camera's first run; empty: none
  uint64_t seed = 1;
  phone::Storage storage = phone::Storage::emmc;
};

/// True when every run came to its end.
bool run_demo(const DemoOptions& options, Terminal& terminal);

}  // namespace awbcal

#endif
