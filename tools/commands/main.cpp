// awbcal: the command line of the calibration library, for hosts.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "commands/commands.h"
#include "text/printable.h"
#include "text/version.h"

namespace {

using namespace awbcal;

constexpr Command (*kCommands[])(CLI::App&) = {add_demo, add_show, add_verify, add_explain,
                                               add_diff, add_pack, add_redact, add_replay};

int run(int argc, char** argv) {
  CLI::App app("Camera calibration records: make them, read them, check them", "awbcal");
  app.require_subcommand(1);
  app.set_version_flag("--version", "awbcal " + version_text(), "Print the version and the commit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.option_defaults()->always_capture_default();
  std::vector<Command> commands;
  for (const auto& add : kCommands) commands.push_back(add(app));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kBadInput;
  }
  Terminal terminal;
  int result = kBadInput;
  for (const Command& command : commands) {
    if (command.app->parsed()) result = command.run(terminal);
  }
  return terminal.finish() ? result : kBadInput;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "awbcal: %s\n", printable(error.what()).c_str());
    return kBadInput;
  }
}
