// awbcal explain --log: what a log tells, printed.
#ifndef COMMANDS_EXPLAIN_LOG_H
#define COMMANDS_EXPLAIN_LOG_H

#include <optional>
#include <string>

#include "commands/options.h"
#include "text/terminal.h"

namespace awbcal {

struct LogQuestion {
  std::string file;
  std::optional<calib::Camera> camera = {};  ///< none: all
  InputOptions phone = {};                   ///< to compare the log with; without a path, none
  bool json = false;
};

/// Returns the exit code.
int run_explain_log(const LogQuestion& question, Terminal& terminal);

}  // namespace awbcal

#endif
