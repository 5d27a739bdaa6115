#include "fleet/summary_tables.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>

#include "inspect/phrases.h"
#include "text/utc.h"

namespace awbcal {

namespace {

std::string percent(size_t part, size_t whole) {
  return whole == 0 ? "-"
                    : fmt::format("{:.1f} %", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
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

NamedList outliers_of(const Place& place, const RatioStatistics& ratios) {
  NamedUnits units;
  for (const auto& [rg, bg, deviations, cell] : ratios.outliers()) {
    units.add(fmt::format("{}: R/G {:.4f}, B/G {:.4f}, {:.1f} standard deviations", cell.first, rg / 1024.0,
                          bg / 1024.0, deviations));
    units.count += cell.count - 1;  // those that share its ratios, and are not named
  }
  return {fmt::format("far from where the others are, {}", place_name(place)), units};
}

NamedUnits repetition_texts(const Summary& summary) {
  NamedUnits runs;
  for (const auto& [place, first, last, units] : summary.repetitions())
    runs.add(fmt::format("{}, {} units: {} to {}", place_name(place), units, first, last));
  return runs;
}

}  // namespace

std::string results_text(const Summary& summary) {
  if (summary.units == 0) return "no unit";
  std::vector<std::string> parts;
  for (const auto& [result, count] : summary.results) parts.push_back(fmt::format("{} {}", count, result));
  return fmt::format("{}: {}", counted(summary.units, "unit"), fmt::join(parts, ", "));
}

std::string yield_text(const Summary& summary) {
  const auto passed = summary.results.find(outcome_name(Outcome::pass));
  const size_t passes = passed == summary.results.end() ? 0 : passed->second;
  return fmt::format("Yield: {} of the {} that could be judged", percent(passes, summary.judged()),
                     summary.judged());
}

Table yield_table(const Summary& summary) {
  Table table({"", ">units", ">good", ">yield"});
  for (const auto& [place, yield] : summary.yields) {
    table.row({place_name(place), std::to_string(yield.units), std::to_string(yield.good),
               percent(yield.good, yield.units)});
  }
  return table;
}

Table fault_table(const Summary& summary) {
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
  return table;
}

Table margin_table(const Summary& summary) {
  Table table({"", ">units", ">median", ">95 %", ">99 %", ">worst", ">Ppk"});
  const auto tenths = [](double of_limit) { return fmt::format("{:.1f}", of_limit); };
  for (const auto& [place, margin] : summary.margins) {
    table.row({place_name(place), std::to_string(margin.units), tenths(margin.quantile(0.5)),
               tenths(margin.quantile(0.95)), tenths(margin.quantile(0.99)),
               tenths(margin.worst.front().first),
               margin.deviation() > 0 ? fmt::format("{:.2f}", margin.capability()) : "-"});
  }
  return table;
}

Table day_table(const Summary& summary) {
  Table days({"day", ">units", ">yield"});
  for (const auto& [number, day] : summary.days)
    days.row({day_text(number), std::to_string(day.units), percent(day.passed, day.judged)});
  return days;
}

Table drift_table(const Summary& summary) {
  Table drift({"", ">R/G", ">a day", ">B/G", ">a day"});
  for (const auto& [place, ratios] : summary.ratios) {
    drift.row({place_name(place), fmt::format("{:.4f}", ratios.rg_over_days.mean()),
               slope_text(ratios.rg_over_days), fmt::format("{:.4f}", ratios.bg_over_days.mean()),
               slope_text(ratios.bg_over_days)});
  }
  return drift;
}

std::vector<NamedList> judged_otherwise(const MarginStatistics& margin) {
  return {{"passed in the factory, fail these limits", margin.would_have_failed},
          {"failed in the factory, pass these limits", margin.passes_now}};
}

std::vector<NamedList> comparison(const Summary& summary) {
  std::vector<NamedList> lists = {{"modules that are in another unit as well", summary.copied_modules},
                                  {"lens-shading gains that another unit has as well", summary.copied_meshes},
                                  {"the same measurement in units in a row", repetition_texts(summary)}};
  for (const auto& [place, units] : summary.older())
    lists.push_back({fmt::format("an older version than most, {}", place_name(place)), units});
  for (const auto& [place, ratios] : summary.ratios) lists.push_back(outliers_of(place, ratios));
  return lists;
}

std::string not_compared_text(const Summary& summary) {
  return fmt::format("{} module IDs and meshes too many to be compared", summary.not_compared());
}

}  // namespace awbcal
