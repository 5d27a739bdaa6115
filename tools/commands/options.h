// Values of options that several sub-commands have.
#ifndef COMMANDS_OPTIONS_H
#define COMMANDS_OPTIONS_H

#include <optional>
#include <string>

#include "inspect/errors.h"
#include "inspect/verdict.h"

namespace awbcal {

struct Golden {
  float rg;
  float bg;
};

/// "0.7539,0.5625"; nothing for an empty text. Throws InputError.
std::optional<Golden> parse_golden(const std::string& text);

/// "1,2,3,4" for all cameras, or "front=1,2,3,4"; decimal, or hexadecimal with 0x. Throws InputError.
void parse_fuse(const std::string& text, Modules& modules);

}  // namespace awbcal

#endif
