// awbcal help: what a command takes, and what the exit codes mean.

#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "text/tables.h"

namespace awbcal {

namespace {

constexpr const char* kExitCodes = "exit-codes";

struct ExitCode {
  int code;
  const char* meaning;
};

constexpr ExitCode kTable[] = {
    {kDone, "Good: PASS, no difference, or what was asked for was printed or written."},
    {kFailed, "Judged not good: FAIL, or there are differences."},
    {kBadInput,
     "Could not be done, or cannot be known: bad arguments, a file that cannot be read or written; the "
     "message names it. An answer that such a file leaves incomplete ends with 2 as well, unless what "
     "could be read is not good."},
    {kNothing, "Nothing to judge: no record, only blank or truncated ones, or too few frames."},
};

void print_exit_codes(Terminal& terminal) {
  terminal.line("Exit codes of every command:");
  Table table({">", ""});
  for (const auto& [code, meaning] : kTable) table.row({std::to_string(code), meaning});
  table.print(terminal, 2);
}

int help(const CLI::App& parent, const std::string& topic, Terminal& terminal) {
  if (topic == kExitCodes) {
    print_exit_codes(terminal);
  } else {
    const CLI::App& app = topic.empty() ? parent : *parent.get_subcommand(topic);
    const std::string name = topic.empty() ? parent.get_name() : parent.get_name() + " " + topic;
    // Not help() of the parent, which would be that of the subcommand just parsed: this one.
    std::string text = parent.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal);
    text.erase(text.find_last_not_of('\n') + 1);
    terminal.line(text);
  }
  return kDone;
}

std::vector<std::string> topics(const CLI::App& parent) {
  std::vector<std::string> names = {kExitCodes};
  for (const CLI::App* command : parent.get_subcommands({})) names.push_back(command->get_name());
  return names;
}

}  // namespace

Command add_help(CLI::App& parent) {
  const auto topic = std::make_shared<std::string>();
  const std::vector<std::string> names = topics(parent);
  CLI::App* app = add_command(parent, "help", "Explain a command, or the exit codes");
  app->add_option("TOPIC", *topic, "A command, or exit-codes")->check(one_of(names))->type_name("");
  return {app, [topic, &parent](Terminal& terminal) { return help(parent, *topic, terminal); }};
}

}  // namespace awbcal
