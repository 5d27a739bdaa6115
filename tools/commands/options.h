// Options that several commands have, and what their values must be.
#ifndef COMMANDS_OPTIONS_H
#define COMMANDS_OPTIONS_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "inspect/open_phone.h"
#include "inspect/verdict.h"
#include "records/golden_sample.h"
#include "run/explanation.h"
#include "run/limits.h"
#include "text/terminal.h"

namespace awbcal {

// ---- what a value must be ---------------------------------------------------------------------------------

/// Decimal digits; the parser itself lets a negative number wrap and takes 010 for 8.
CLI::Validator whole_number(uint64_t least, uint64_t most);

CLI::Validator camera_names();

/// The ids of every kind of record.
std::vector<std::string> kind_ids();

CLI::Validator one_of(const std::vector<std::string>& names);

/// A name for each value; help shows the option's own type name, not the numbers behind it.
template <class Value>
CLI::Validator named_values(const std::vector<std::pair<std::string, Value>>& values) {
  return CLI::CheckedTransformer(values).description("");
}

// ---- options ----------------------------------------------------------------------------------------------

CLI::App* add_command(CLI::App& parent, const char* name, const char* description);

/// The input's path, --as, --base and --camera.
void add_input_options(CLI::App& app, InputOptions& options);

void add_base_option(CLI::App& app, std::optional<uint32_t>& base);
void add_json_option(CLI::App& app, bool& json);
void add_colour_option(CLI::App& app, Colour& colour);
CLI::Option* add_golden_option(CLI::App& app, calib::GoldenRatios& golden);
CLI::Option* add_golden_option(CLI::App& app, std::optional<calib::GoldenRatios>& golden);
CLI::Option* add_threshold_option(CLI::App& app, uint32_t& percent);

/// What records are judged against.
struct LimitOptions {
  std::optional<calib::GoldenRatios> golden = {};
  std::optional<uint32_t> threshold = {};
  std::string file = {};
};
/// --golden, --threshold and --limits.
void add_limit_options(CLI::App& app, LimitOptions& options);
/// None where no option says so. Throws InputError for a file that is none.
Limits limits_of(const LimitOptions& options);

/// --html and --force.
CLI::Option* add_page_options(CLI::App& app, OutputTarget& page);

/// --tuning and --mesh-tuning.
void add_tuning_options(CLI::App& app, ExplainQuestion& question);

/// "1,2,3,4" for all cameras, or "front=1,2,3,4"; decimal, or hexadecimal with 0x.
void add_fuse_option(CLI::App& app, Modules& modules);

}  // namespace awbcal

#endif
