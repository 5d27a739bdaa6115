// awbcal fleet: many units at once, and what they come to together.

#include <fmt/format.h>

#include <csignal>
#include <memory>
#include <thread>

#include "commands/commands.h"
#include "commands/options.h"
#include "fleet/history.h"
#include "fleet/judge_process.h"
#include "fleet/judging.h"
#include "fleet/rows.h"
#include "fleet/summary_tables.h"
#include "fleet/unit_source.h"
#include "page/fleet_page.h"
#include "text/printable.h"
#include "text/tables.h"
#include "text/utc.h"

namespace awbcal {

namespace {

struct FleetArguments {
  std::vector<std::string> paths;
  bool is_zero_ended = false;
  bool csv = false;
  bool ndjson = false;
  bool accept = false;
  bool strict = false;
  unsigned jobs = 0;
  std::string lot;
  LimitOptions limits;
  OutputTarget page;
  std::string db;
  std::string from;
  HistoryChoice choice;
};

/// Ctrl-C asks for what is done so far; a second one does not ask.
std::atomic<bool> is_stopped = false;

void stop_at_ctrl_c() {
  struct sigaction action = {};
  action.sa_handler = [](int) { is_stopped = true; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
}

// ---- text -------------------------------------------------------------------------------------------------

void print_names(Terminal& terminal, const std::string& what, const NamedUnits& units) {
  if (units.count == 0) return;
  terminal.paragraph(fmt::format("{}: {}", what, units.count));
  for (const std::string& name : units.names) terminal.paragraph(printable(name), 6);
  if (units.count > units.names.size())
    terminal.paragraph(fmt::format("and {} more", units.count - units.names.size()), 6);
}

void print_results(Terminal& terminal, const Summary& summary) {
  terminal.line(results_text(summary));
  if (summary.units == 0) return;
  terminal.line(yield_text(summary));
  print_names(terminal, "broken", summary.broken);
}

void print_margins(Terminal& terminal, const Summary& summary) {
  terminal.heading(kMarginsTitle);
  if (summary.margins.empty()) return terminal.paragraph(kNoMargins);
  margin_table(summary).print(terminal, 2);
  terminal.paragraph(kCapabilityNote);
  for (const auto& [place, margin] : summary.margins) {
    terminal.line();
    terminal.paragraph(fmt::format("{}: the worst", place_name(place)));
    for (const auto& [of_limit, name] : margin.worst)
      terminal.paragraph(fmt::format("{:7.1f} %  {}", of_limit, printable(name)), 4);
    for (const NamedList& list : judged_otherwise(margin)) print_names(terminal, list.what, list.units);
  }
}

void print_trend(Terminal& terminal, const Summary& summary) {
  terminal.heading(kTrendTitle);
  day_table(summary).print(terminal, 2);
  if (summary.ratios.empty()) return;
  terminal.line();
  drift_table(summary).print(terminal, 2);
  terminal.paragraph(kDriftNote);
}

void print_comparison(Terminal& terminal, const Summary& summary) {
  terminal.heading(kComparisonTitle);
  for (const NamedList& list : comparison(summary)) print_names(terminal, list.what, list.units);
  if (summary.not_compared() > 0) terminal.paragraph(not_compared_text(summary));
}

void print_summary(Terminal& terminal, const Summary& summary, bool was_stopped) {
  if (was_stopped) terminal.line("Interrupted: this is of the units judged until then.");
  print_results(terminal, summary);
  if (summary.units == 0) return;
  terminal.heading(kYieldTitle);
  yield_table(summary).print(terminal, 2);
  if (!summary.first_faults.empty()) {
    terminal.heading(kFaultTitle);
    fault_table(summary).print(terminal, 2);
  }
  print_margins(terminal, summary);
  print_trend(terminal, summary);
  print_comparison(terminal, summary);
}

// ---- the run ----------------------------------------------------------------------------------------------

UnitQuestion question_of(const FleetArguments& arguments) {
  UnitQuestion question{.lot = arguments.lot,
                        .with_digests = arguments.csv || arguments.ndjson || !arguments.db.empty()};
  question.verify.asks_library = arguments.accept;
  question.verify.is_strict = arguments.strict;
  question.verify.limits = limits_of(arguments.limits);
  return question;
}

/// The library runs in processes; they are begun before there is any thread.
std::vector<UnitJudge> judges_for(const UnitQuestion& question, unsigned jobs) {
  std::vector<UnitJudge> judges;
  for (unsigned i = 0; i < jobs; ++i) {
    if (question.verify.asks_library) {
      const auto process = std::make_shared<JudgeProcess>(question);
      judges.emplace_back([process](const std::string& path) { return process->judged(path); });
    } else {
      judges.emplace_back([&question](const std::string& path) { return judged_unit(path, question); });
    }
  }
  return judges;
}

/// What was judged goes out as it comes; rate and time left are for whoever watches.
class Progress {
 public:
  Progress(Terminal& terminal, std::optional<size_t> total) : terminal_(terminal), total_(total) {}

  void show(size_t units) {
    const auto now = Clock::now();
    if (now - shown_ < std::chrono::milliseconds(200)) return;
    shown_ = now;
    const double seconds = std::chrono::duration<double>(now - begun_).count();
    const double rate = static_cast<double>(units) / seconds;
    std::string text = fmt::format("{} units, {:.0f} a second", units, rate);
    if (total_ && *total_ >= units)
      text += fmt::format(", {:.0f} s left", static_cast<double>(*total_ - units) / rate);
    terminal_.progress(text);
  }

 private:
  using Clock = std::chrono::steady_clock;

  Terminal& terminal_;
  std::optional<size_t> total_;
  Clock::time_point begun_ = Clock::now();
  Clock::time_point shown_ = begun_;
};

/// Looked for a second time where somebody watches; a list on standard input comes once.
std::optional<size_t> number_of_units(const FleetArguments& arguments, const Terminal& terminal) {
  if (!terminal.is_interactive() || std::ranges::count(arguments.paths, "-") > 0) return std::nullopt;
  UnitSource source(arguments.paths, arguments.is_zero_ended, is_stopped);
  size_t units = 0;
  while (!is_stopped && source.next()) ++units;
  return units;
}

void write(const std::string& text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
    throw std::runtime_error("standard output: cannot be written");
}

int exit_code(const Summary& summary, bool was_stopped) {
  const auto has = [&summary](const char* result) { return summary.results.contains(result); };
  if (has(outcome_name(Outcome::fail))) return kFailed;
  if (was_stopped || has(kBroken) || has(outcome_name(Outcome::incomplete))) return kBadInput;
  return summary.judged() > 0 ? kDone : kNothing;
}

/// Where the units go, each as it comes.
/// "Fleet: line.db, lot A17, since 2026-11-01"
std::string title(const FleetArguments& arguments) {
  std::string text = "Fleet";
  if (!arguments.from.empty()) text += ": " + arguments.from;
  if (arguments.paths.size() == 1 && arguments.paths[0] != "-") text += ": " + arguments.paths[0];
  if (!arguments.lot.empty()) text += ", lot " + arguments.lot;
  if (!arguments.choice.since.empty()) text += ", since " + arguments.choice.since;
  if (!arguments.choice.until.empty()) text += ", until " + arguments.choice.until;
  return text;
}

class Outputs {
 public:
  explicit Outputs(const FleetArguments& arguments) : arguments_(arguments) {
    if (has_page()) check_output(arguments.page, arguments.paths);
    if (!arguments.db.empty()) history_.emplace(arguments.db, History::Access::write);
    if (arguments.csv) write(csv_title());
  }

  void take(const Unit& unit) {
    if (history_) history_->add(unit);
    if (arguments_.csv) write(csv_rows(unit));
    if (arguments_.ndjson) write(json_rows(unit));
    if (has_page()) points_.add(unit);
    summary_.add(unit);
  }

  int finish(Terminal& terminal) const {
    if (!arguments_.csv && !arguments_.ndjson) print_summary(terminal, summary_, is_stopped);
    if (has_page())
      write_output(arguments_.page, fleet_page(summary_, points_, {title(arguments_), is_stopped}),
                   arguments_.paths);
    return exit_code(summary_, is_stopped);
  }
  size_t units() const { return summary_.units; }

 private:
  bool has_page() const { return !arguments_.page.path.empty(); }

  const FleetArguments& arguments_;
  std::optional<History> history_;
  Summary summary_;
  FleetPoints points_;
};

int read_history(const FleetArguments& arguments, Terminal& terminal) {
  const UnitQuestion question = question_of(arguments);
  Outputs outputs(arguments);
  History(arguments.from, History::Access::read).for_each(arguments.choice, [&](Unit& unit) {
    if (!question.verify.limits.empty()) judge_again(unit, question.verify.limits);
    outputs.take(unit);
  });
  return outputs.finish(terminal);
}

int judge_fleet(const FleetArguments& arguments, Terminal& terminal) {
  const UnitQuestion question = question_of(arguments);
  const unsigned jobs =
      arguments.jobs > 0 ? arguments.jobs : std::max(1U, std::thread::hardware_concurrency());
  stop_at_ctrl_c();
  const std::vector<UnitJudge> judges = judges_for(question, jobs);
  Progress progress(terminal, number_of_units(arguments, terminal));
  UnitSource source(arguments.paths, arguments.is_zero_ended, is_stopped);
  Outputs outputs(arguments);
  const auto next = [&source] { return source.next(); };
  judge_units(next, judges, is_stopped, [&](Unit& unit) {
    outputs.take(unit);
    if (!arguments.csv && !arguments.ndjson) progress.show(outputs.units());
  });
  return outputs.finish(terminal);
}

/// A day as rows have it, so that they can be compared as texts.
CLI::Validator day() {
  return CLI::Validator(
      [](const std::string& text) {
        std::tm date{};
        const char* end = strptime(text.c_str(), "%Y-%m-%d", &date);
        const bool is_day = end != nullptr && *end == '\0' && text.size() == 10;
        return is_day ? std::string() : fmt::format("\"{}\" is not a day; expected one as 2026-11-21", text);
      },
      "");
}

}  // namespace

Command add_fleet(CLI::App& parent) {
  const auto arguments = std::make_shared<FleetArguments>();
  CLI::App* app = add_command(parent, "fleet", "Judge many phones, and sum them up");
  CLI::Option* paths = app->add_option(
      "PATH", arguments->paths, "Phones as other commands take them, or folders full; - is a list on stdin");
  app->add_flag("-0", arguments->is_zero_ended, "The list's paths end with zero bytes, not newlines");
  const CLI::Option* csv =
      app->add_flag("--csv", arguments->csv, "Print a line per unit and per record as CSV");
  app->add_flag("--ndjson", arguments->ndjson, "The same as a JSON object a line")
      ->excludes(app->get_option(csv->get_name()));
  add_limit_options(*app, arguments->limits);
  app->add_option("--lot", arguments->lot, "What these units belong to; with --from: only units of this lot")
      ->type_name("NAME");
  app->add_flag("--strict", arguments->strict, "Fail an overwritten record even if its cache file is good");
  app->add_flag("--accept", arguments->accept, "Run the library on each to see what refuses its records");
  app->add_option("--jobs", arguments->jobs, "Units at once; 0: one per core")
      ->check(whole_number(0, 256))
      ->type_name("NUMBER");
  add_page_options(*app, arguments->page);
  app->add_option("--db", arguments->db, "SQLite file to which the units are added")->type_name("FILE");
  CLI::Option* from = app->add_option("--from", arguments->from, "The units of such a file, not new ones");
  from->type_name("FILE");
  for (const char* other : {"--accept", "--db", "--jobs", "--strict"}) from->excludes(app->get_option(other));
  from->excludes(paths);
  const auto add_day = [&](const char* name, std::string& text, const char* description) {
    app->add_option(name, text, description)->check(day())->type_name("DAY")->needs(from);
  };
  add_day("--since", arguments->choice.since, "With --from: units of this day and later");
  add_day("--until", arguments->choice.until, "With --from: units of this day and before");
  return {app, [arguments](Terminal& terminal) {
            if (arguments->from.empty() && arguments->paths.empty())
              throw CLI::RequiredError("PATH or --from");
            arguments->choice.lot = arguments->lot;
            return arguments->from.empty() ? judge_fleet(*arguments, terminal)
                                           : read_history(*arguments, terminal);
          }};
}

}  // namespace awbcal
