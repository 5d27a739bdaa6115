#include "page/fleet_page.h"

#include <fmt/format.h>

#include <algorithm>

#include "fleet/summary_tables.h"

namespace awbcal {

namespace {

/// Units counted in squares of as many words' steps; about kSquares of them along the longer side.
ChartTable density_table(const RatioStatistics& ratios) {
  constexpr uint32_t kSquares = 48;
  uint32_t least_rg = UINT32_MAX;
  uint32_t least_bg = UINT32_MAX;
  uint32_t most_rg = 0;
  uint32_t most_bg = 0;
  for (const auto& [key, cell] : ratios.cells) {
    const auto [rg, bg] = words_of(key);
    least_rg = std::min(least_rg, rg);
    least_bg = std::min(least_bg, bg);
    most_rg = std::max(most_rg, rg);
    most_bg = std::max(most_bg, bg);
  }
  const uint32_t side = std::max(most_rg - least_rg, most_bg - least_bg) / kSquares + 1;
  std::map<std::pair<uint32_t, uint32_t>, size_t> squares;
  for (const auto& [key, cell] : ratios.cells) {
    const auto [rg, bg] = words_of(key);
    squares[{(rg - least_rg) / side, (bg - least_bg) / side}] += cell.count;
  }
  const auto centre = [side](uint32_t least, uint32_t square) {
    return fmt::format("{:.4f}", (least + (square + 0.5) * side - 0.5) / 1024.0);
  };
  Table table({">R/G", ">B/G", ">units"});
  for (const auto& [square, units] : squares)
    table.row({centre(least_rg, square.first), centre(least_bg, square.second), std::to_string(units)});
  return {"density", table, side / 1024.0};
}

void add_ratios(Page& page, const Summary& summary, const FleetPoints& points) {
  page.heading("R/G against B/G");
  for (const auto& [place, each] : points.places()) {
    const RatioStatistics& ratios = summary.ratios.at(place);
    Chart chart{
        .kind = ChartKind::ratios,
        .caption = fmt::format("{}, {} units", place_name(place), ratios.units),
        .tables = {golden_table(each.limits), point_table(each.is_too_many ? each.failing : each.all)}};
    if (each.is_too_many) {
      chart.caption += fmt::format(", in squares; of those that fail {} as points", each.failing.size());
      chart.tables.push_back(density_table(ratios));
    }
    page.chart(chart);
    if (ratios.not_kept > 0)
      page.paragraph(fmt::format("{} units came after too many different ratios, and are not in the squares",
                                 ratios.not_kept));
  }
}

/// Five percent a bar, up to twice the limit; the last has all beyond.
Table margin_bins(const MarginStatistics& margin) {
  constexpr int kTenthsABar = 50;
  constexpr int kTenthsOfLimit = 1000;
  constexpr size_t kBars = 40;
  std::vector<size_t> bars(kBars + 1);
  for (const auto& [tenth, units] : margin.tenths) {
    // Tenths are rounded up: what lies on a border belongs to the bar below it.
    const auto bar = static_cast<size_t>(std::max(0, tenth - 1) / kTenthsABar);
    bars[std::min(bar, kBars)] += units;
  }
  while (bars.size() > kTenthsOfLimit / kTenthsABar && bars.back() == 0) bars.pop_back();
  Table table({"percent of the limit", ">units"});
  for (size_t i = 0; i < bars.size(); ++i) {
    const size_t from = i * kTenthsABar / 10;
    const std::string label =
        i == kBars ? fmt::format("> {}", from) : fmt::format("{}-{}", from, from + kTenthsABar / 10);
    const bool is_beyond = from >= kTenthsOfLimit / 10;
    table.row({Cell(label, is_beyond ? Style::bad : Style::plain), std::to_string(bars[i])});
  }
  return table;
}

void add_list(Page& page, const NamedList& list) {
  if (list.units.count == 0) return;
  page.subheading(fmt::format("{}: {}", list.what, list.units.count));
  std::vector<std::string> names = list.units.names;
  if (list.units.count > names.size())
    names.push_back(fmt::format("and {} more", list.units.count - names.size()));
  page.list(names);
}

void add_margins(Page& page, const Summary& summary) {
  page.heading(kMarginsTitle);
  if (summary.margins.empty()) return page.paragraph(kNoMargins);
  page.table(margin_table(summary));
  page.paragraph(kCapabilityNote);
  for (const auto& [place, margin] : summary.margins) {
    page.chart({.kind = ChartKind::histogram,
                .caption = place_name(place),
                .tables = {{"bins", margin_bins(margin)}}});
    Table worst({">percent", "the worst"});
    for (const auto& [of_limit, name] : margin.worst) worst.row({fmt::format("{:.1f}", of_limit), name});
    page.table(worst);
    for (const NamedList& list : judged_otherwise(margin)) add_list(page, list);
  }
}

void add_trend(Page& page, const Summary& summary) {
  page.heading(kTrendTitle);
  page.chart(
      {.kind = ChartKind::days, .caption = "Yield of each day", .tables = {{"rows", day_table(summary)}}});
  if (summary.ratios.empty()) return;
  page.table(drift_table(summary));
  page.paragraph(kDriftNote);
}

void add_comparison(Page& page, const Summary& summary) {
  page.heading(kComparisonTitle);
  for (const NamedList& list : comparison(summary)) add_list(page, list);
  if (summary.not_compared() > 0) page.paragraph(not_compared_text(summary));
}

}  // namespace

void FleetPoints::add(const Unit& unit) {
  for (const Measurement& each : unit.measurements) {
    if (!each.words || !each.is_measured()) continue;
    Points& points = places_[place_of(each)];
    if (each.limit) add_limit(points.limits, *each.limit);
    const RatioPoint point{.name = unit.name,
                           .rg = each.words->first / 1024.0,
                           .bg = each.words->second / 1024.0,
                           .result = each.is_good ? "passes" : each.rule(),
                           .is_bad = !each.is_good};
    if (point.is_bad && points.failing.size() < kMostFailingPoints) points.failing.push_back(point);
    if (points.all.size() == kMostPoints) {
      points.is_too_many = true;
      points.all = {};
    }
    if (!points.is_too_many) points.all.push_back(point);
  }
}

std::string fleet_page(const Summary& summary, const FleetPoints& points, const FleetPageFacts& facts) {
  Page page(facts.title);
  if (facts.was_stopped) page.paragraph("Interrupted: this is of the units judged until then.");
  page.paragraph(results_text(summary));
  if (summary.units == 0) return page.html();
  page.result(yield_text(summary));
  add_list(page, {"broken", summary.broken});
  page.heading(kYieldTitle);
  page.table(yield_table(summary));
  if (!summary.first_faults.empty()) {
    page.heading(kFaultTitle);
    page.chart({.kind = ChartKind::pareto,
                .caption = "Units by the first fault that they have",
                .tables = {{"rows", fault_table(summary)}}});
  }
  if (!points.places().empty()) add_ratios(page, summary, points);
  add_margins(page, summary);
  add_trend(page, summary);
  add_comparison(page, summary);
  return page.html();
}

}  // namespace awbcal
