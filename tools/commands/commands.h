// The sub-commands. Each puts its options into the parser and hands back what to run when it was chosen.
#ifndef COMMANDS_COMMANDS_H
#define COMMANDS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>

#include "factory/run_arithmetic.h"
#include "inspect/json_form.h"
#include "inspect/open_phone.h"
#include "run/verification.h"
#include "text/terminal.h"

namespace awbcal {

// What a script can tell apart: one table for all commands (exit_codes.cpp).
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;    ///< judged not good, or different
inline constexpr int kBadInput = 2;  ///< could not be done, or cannot be known
inline constexpr int kNothing = 3;   ///< nothing to judge

struct Command {
  CLI::App* app;
  std::function<int(Terminal&)> run;
};

Command add_demo(CLI::App& parent);
Command add_show(CLI::App& parent);
Command add_verify(CLI::App& parent);
Command add_explain(CLI::App& parent);
Command add_diff(CLI::App& parent);
Command add_pack(CLI::App& parent);
Command add_redact(CLI::App& parent);
Command add_replay(CLI::App& parent);
Command add_fleet(CLI::App& parent);
Command add_report(CLI::App& parent);
Command add_pull(CLI::App& parent);
Command add_backup(CLI::App& parent);
Command add_restore(CLI::App& parent);
Command add_help(CLI::App& parent);

// ---- what several of them have ----------------------------------------------------------------------------

/// Prints the document on standard output, past the terminal.
void print_json(const Json& document);

/// The first lines about an input: what it is, and which record area was taken.
void show_input(Terminal& terminal, const Phone& phone);

/// Which modules are fitted, and where that is only assumed.
void show_modules(Terminal& terminal, const Modules& modules, const Modules& assumed);
Json modules_json(const Modules& modules);
/// A number, or its name where JSON has none for it.
Json number_json(double value);

int exit_code_of(Outcome outcome);

Json margin_json(const calib::Margin& margin);

}  // namespace awbcal

#endif
