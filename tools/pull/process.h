// Another program, started with a list of arguments and never through a shell of this host.
#ifndef PULL_PROCESS_H
#define PULL_PROCESS_H

#include <string>
#include <vector>

#include "inspect/decode.h"

namespace awbcal {

struct Ended {
  Bytes output;
  std::string errors;  ///< its standard error
  int exit_code = -1;  ///< -1: a signal ended it
};

/// Runs a program of the PATH to its end, with nothing to read. Throws InputError when it cannot be started, or
/// when it says more than `most` bytes.
Ended run_program(const std::vector<std::string>& arguments, size_t most);

}  // namespace awbcal

#endif
