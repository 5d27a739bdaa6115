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
#include "fleet/summary.h"
#include "fleet/unit_source.h"
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
  std::optional<calib::GoldenRatios> golden;
  uint32_t threshold = Limit{}.threshold;
  std::string limits_file;
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

std::string percent(size_t part, size_t whole) {
  return whole == 0 ? "-"
                    : fmt::format("{:.1f} %", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

void print_names(Terminal& terminal, const std::string& what, const NamedUnits& units) {
  if (units.count == 0) return;
  terminal.paragraph(fmt::format("{}: {}", what, units.count));
  for (const std::string& name : units.names) terminal.paragraph(printable(name), 6);
  if (units.count > units.names.size())
    terminal.paragraph(fmt::format("and {} more", units.count - units.names.size()), 6);
}

void print_results(Terminal& terminal, const Summary& summary) {
  if (summary.units == 0) return terminal.line("no unit");
  std::vector<std::string> parts;
  for (const auto& [result, count] : summary.results) parts.push_back(fmt::format("{} {}", count, result));
  terminal.line(fmt::format("{}: {}", counted(summary.units, "unit"), fmt::join(parts, ", ")));
  const auto passed = summary.results.find(outcome_name(Outcome::pass));
  const size_t passes = passed == summary.results.end() ? 0 : passed->second;
  terminal.line(fmt::format("Yield: {} of the {} that could be judged", percent(passes, summary.judged()),
                            summary.judged()));
  print_names(terminal, "broken", summary.broken);
}

void print_yields(Terminal& terminal, const Summary& summary) {
  terminal.heading("Yield per camera and kind");
  Table table({"", ">units", ">good", ">yield"});
  for (const auto& [place, yield] : summary.yields) {
    table.row({place_name(place), std::to_string(yield.units), std::to_string(yield.good),
               percent(yield.good, yield.units)});
  }
  table.print(terminal, 2);
}

void print_faults(Terminal& terminal, const Summary& summary) {
  if (summary.first_faults.empty()) return;
  terminal.heading("What fails first");
  std::vector<std::pair<std::string, size_t>> faults(summary.first_faults.begin(),
                                                     summary.first_faults.end());
  std::ranges::stable_sort(faults, std::greater(), &std::pair<std::string, size_t>::second);
  size_t failed = 0;
  for (const auto& [fault, count] : faults) failed += count;
  size_t so_far = 0;
  Table table({">units", ">share", ">together", ""});
  for (const auto& [fault, count] : faults) {
    so_far += count;
    table.row({std::to_string(count), percent(count, failed), percent(so_far, failed), fault});
  }
  table.print(terminal, 2);
}

void print_margins(Terminal& terminal, const Summary& summary) {
  terminal.heading("Margins, in percent of the limit");
  if (summary.margins.empty())
    return terminal.paragraph("not known: --golden or --limits says what the records are judged against");
  Table table({"", ">units", ">median", ">95 %", ">99 %", ">worst", ">Ppk"});
  const auto tenths = [](double of_limit) { return fmt::format("{:.1f}", of_limit); };
  for (const auto& [place, margin] : summary.margins) {
    table.row({place_name(place), std::to_string(margin.units), tenths(margin.quantile(0.5)),
               tenths(margin.quantile(0.95)), tenths(margin.quantile(0.99)),
               tenths(margin.worst.front().first),
               margin.deviation() > 0 ? fmt::format("{:.2f}", margin.capability()) : "-"});
  }
  table.print(terminal, 2);
  terminal.paragraph("Ppk, the process capability against the limit: (100 - mean) / 3 standard deviations");
  for (const auto& [place, margin] : summary.margins) {
    terminal.line();
    terminal.paragraph(fmt::format("{}: the worst", place_name(place)));
    for (const auto& [of_limit, name] : margin.worst)
      terminal.paragraph(fmt::format("{:7.1f} %  {}", of_limit, printable(name)), 4);
    print_names(terminal, "passed in the factory, fail these limits", margin.would_have_failed);
    print_names(terminal, "failed in the factory, pass these limits", margin.passes_now);
  }
}

std::string day_text(int64_t day) {
  return utc_text(day * 24 * 60 * 60).substr(0, 10);
}

/// A slope is a drift when it is not likely to be noise.
std::string slope_text(const Line& line) {
  constexpr double kErrors = 4.0;
  const bool is_drift = std::abs(line.slope()) > kErrors * line.slope_error();
  return is_drift ? fmt::format("{:+.5f}", line.slope()) : "-";
}

void print_trend(Terminal& terminal, const Summary& summary) {
  terminal.heading("Over time");
  Table days({"day", ">units", ">yield"});
  for (const auto& [number, day] : summary.days)
    days.row({day_text(number), std::to_string(day.units), percent(day.passed, day.judged)});
  days.print(terminal, 2);
  if (summary.ratios.empty()) return;
  terminal.line();
  Table drift({"", ">R/G", ">a day", ">B/G", ">a day"});
  for (const auto& [place, ratios] : summary.ratios) {
    drift.row({place_name(place), fmt::format("{:.4f}", ratios.rg_over_days.mean()),
               slope_text(ratios.rg_over_days), fmt::format("{:.4f}", ratios.bg_over_days.mean()),
               slope_text(ratios.bg_over_days)});
  }
  drift.print(terminal, 2);
  terminal.paragraph("-: no drift that is more than noise");
}

void print_outliers(Terminal& terminal, const Place& place, const RatioStatistics& ratios) {
  NamedUnits units;
  for (const auto& [rg, bg, deviations, cell] : ratios.outliers()) {
    units.add(fmt::format("{}: R/G {:.4f}, B/G {:.4f}, {:.1f} standard deviations", cell.first, rg / 1024.0,
                          bg / 1024.0, deviations));
    units.count += cell.count - 1;  // those that share its ratios, and are not named
  }
  print_names(terminal, fmt::format("far from where the others are, {}", place_name(place)), units);
}

void print_repetitions(Terminal& terminal, const Summary& summary) {
  NamedUnits runs;
  for (const auto& [place, first, last, units] : summary.repetitions())
    runs.add(fmt::format("{}, {} units: {} to {}", place_name(place), units, first, last));
  print_names(terminal, "the same measurement in units in a row", runs);
}

void print_comparison(Terminal& terminal, const Summary& summary) {
  terminal.heading("What no single phone shows");
  print_names(terminal, "modules that are in another unit as well", summary.copied_modules);
  print_names(terminal, "lens-shading gains that another unit has as well", summary.copied_meshes);
  print_repetitions(terminal, summary);
  for (const auto& [place, units] : summary.older())
    print_names(terminal, fmt::format("an older version than most, {}", place_name(place)), units);
  for (const auto& [place, ratios] : summary.ratios) print_outliers(terminal, place, ratios);
  if (summary.not_compared() > 0)
    terminal.paragraph(
        fmt::format("{} module IDs and meshes too many to be compared", summary.not_compared()));
}

void print_summary(Terminal& terminal, const Summary& summary, bool was_stopped) {
  if (was_stopped) terminal.line("Interrupted: this is of the units judged until then.");
  print_results(terminal, summary);
  if (summary.units == 0) return;
  print_yields(terminal, summary);
  print_faults(terminal, summary);
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
  if (!arguments.limits_file.empty()) {
    const FileContent content = read_file(arguments.limits_file);
    if (content.trouble)
      throw InputError(fmt::format("{}: cannot be read: {}", arguments.limits_file, *content.trouble));
    question.verify.limits = parse_limits(arguments.limits_file, text_of(content.bytes));
  }
  if (arguments.golden) question.verify.limits.set({*arguments.golden, arguments.threshold});
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
class Outputs {
 public:
  explicit Outputs(const FleetArguments& arguments) : csv_(arguments.csv), ndjson_(arguments.ndjson) {
    if (!arguments.db.empty()) history_.emplace(arguments.db, History::Access::write);
    if (csv_) write(csv_title());
  }

  void take(const Unit& unit) {
    if (history_) history_->add(unit);
    if (csv_) write(csv_rows(unit));
    if (ndjson_) write(json_rows(unit));
    summary_.add(unit);
  }

  int finish(Terminal& terminal) const {
    if (!csv_ && !ndjson_) print_summary(terminal, summary_, is_stopped);
    return exit_code(summary_, is_stopped);
  }
  size_t units() const { return summary_.units; }

 private:
  bool csv_;
  bool ndjson_;
  std::optional<History> history_;
  Summary summary_;
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
  const CLI::Option* golden = add_golden_option(*app, arguments->golden);
  const CLI::Option* threshold = add_threshold_option(*app, arguments->threshold);
  app->add_option("--limits", arguments->limits_file,
                  "CSV of golden samples and thresholds per camera and light")
      ->type_name("FILE");
  app->add_option("--lot", arguments->lot, "What these units belong to; with --from: only units of this lot")
      ->type_name("NAME");
  app->add_flag("--strict", arguments->strict, "Fail an overwritten record even if its cache file is good");
  app->add_flag("--accept", arguments->accept, "Run the library on each to see what refuses its records");
  app->add_option("--jobs", arguments->jobs, "Units at once; 0: one per core")
      ->check(whole_number(0, 256))
      ->type_name("NUMBER");
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
  return {app, [arguments, golden, threshold](Terminal& terminal) {
            if (threshold->count() > 0 && golden->count() == 0)
              throw CLI::ValidationError("--threshold", "needs --golden: percent of what?");
            if (arguments->from.empty() && arguments->paths.empty())
              throw CLI::RequiredError("PATH or --from");
            arguments->choice.lot = arguments->lot;
            return arguments->from.empty() ? judge_fleet(*arguments, terminal)
                                           : read_history(*arguments, terminal);
          }};
}

}  // namespace awbcal
