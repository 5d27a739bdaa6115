// A command that was mistyped.
#ifndef COMMANDS_SUGGESTION_H
#define COMMANDS_SUGGESTION_H

#include <CLI/CLI.hpp>
#include <string>

namespace awbcal {

/// What is wrong with the first word of the command line, with the command that may have been meant; empty: it is a
/// command.
std::string unknown_command(const CLI::App& app, int count, char** arguments);

}  // namespace awbcal

#endif
