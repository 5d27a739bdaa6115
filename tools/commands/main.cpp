// awbcal: the command line of the calibration library, for hosts.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string_view>

#include "commands/commands.h"
#include "commands/options.h"
#include "commands/suggestion.h"
#include "text/printable.h"
#include "text/version.h"

namespace {

using namespace awbcal;

constexpr Command (*kCommands[])(CLI::App&) = {add_demo, add_show,   add_verify,  add_explain, add_diff,
                                               add_pack, add_redact, add_replay,  add_fleet,   add_report,
                                               add_pull, add_backup, add_restore, add_help};

/// The arguments as they were typed: they say how errors are wanted before anything was parsed, or when it cannot
/// be.
struct Arguments {
  int count;
  char** values;

  bool want_json() const {
    return std::any_of(values + 1, values + count,
                       [](const char* text) { return text == std::string_view("--json"); });
  }
};

std::string flattened(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

int report(const Arguments& arguments, const char* command, const std::string& message) {
  const std::string text = printable(flattened(message));
  if (arguments.want_json()) print_json(error_document(command, text, kBadInput));
  std::fprintf(stderr, "awbcal: %s\n", text.c_str());
  return kBadInput;
}

const char* name_of_parsed(const std::vector<Command>& commands) {
  const auto parsed =
      std::ranges::find_if(commands, [](const Command& command) { return command.app->parsed(); });
  return parsed == commands.end() ? nullptr : parsed->app->get_name().c_str();
}

int report_parse_error(const Arguments& arguments, const CLI::App& app, const CLI::ParseError& error,
                       const char* command) {
  const std::string unknown = unknown_command(app, arguments.count, arguments.values);
  if (!unknown.empty()) return report(arguments, nullptr, unknown);
  const std::string help = command == nullptr ? "awbcal --help" : fmt::format("awbcal help {}", command);
  return report(arguments, command, fmt::format("{}; see `{}`", error.what(), help));
}

int run_parsed(const std::vector<Command>& commands, Colour colour) {
  Terminal terminal(colour);
  int result = kBadInput;
  for (const Command& command : commands) {
    if (command.app->parsed()) result = command.run(terminal);
  }
  if (!terminal.finish()) throw std::runtime_error("standard output: cannot be written");
  return result;
}

int run(const Arguments& arguments) {
  CLI::App app("Camera calibration records: make them, read them, check them", "awbcal");
  app.require_subcommand(1);
  app.fallthrough();
  app.set_version_flag("--version", "awbcal " + version_text(), "Print the version and the commit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.option_defaults()->always_capture_default();
  Colour colour = Colour::by_itself;
  add_colour_option(app, colour);
  std::vector<Command> commands;
  for (const auto& add : kCommands) commands.push_back(add(app));
  try {
    app.parse(arguments.count, arguments.values);
    return run_parsed(commands, colour);
  } catch (const CLI::Success& success) {
    return app.exit(success) == 0 ? kDone : kBadInput;
  } catch (const CLI::ParseError& error) {
    return report_parse_error(arguments, app, error, name_of_parsed(commands));
  } catch (const std::exception& error) {
    return report(arguments, name_of_parsed(commands), error.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run({argc, argv});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "awbcal: %s\n", printable(error.what()).c_str());
    return kBadInput;
  }
}
