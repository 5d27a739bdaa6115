#include "fleet/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "inspect/phrases.h"

namespace awbcal {

namespace {

constexpr int kWholePhone = 3;
constexpr int64_t kSecondsADay = 24 * 60 * 60;

/// Shorter runs of equal measurements can be chance.
constexpr size_t kShortestRun = 5;
constexpr size_t kMostRuns = 1000;

/// A fleet of different modules has some thousands of different ratios; noise would have as many as it has units.
constexpr size_t kMostCells = size_t{1} << 17;
constexpr size_t kFewestForOutliers = 30;
constexpr double kOutlier = 5.0;

/// Centre and spread of points in a plane.
struct Ellipse {
  double n = 0, x = 0, y = 0, xx = 0, yy = 0, xy = 0;

  void add(double px, double py, double times) {
    n += times;
    x += times * px;
    y += times * py;
    xx += times * px * px;
    yy += times * py * py;
    xy += times * px * py;
  }
  /// In standard deviations along the direction from the centre.
  double distance(double px, double py) const {
    const double mean_x = x / n;
    const double mean_y = y / n;
    // The words' own step is a spread that no measurement is without.
    constexpr double kStep = 1.0 / 12.0;
    const double var_x = xx / n - mean_x * mean_x + kStep;
    const double var_y = yy / n - mean_y * mean_y + kStep;
    const double cov = xy / n - mean_x * mean_y;
    const double dx = px - mean_x;
    const double dy = py - mean_y;
    const double determinant = var_x * var_y - cov * cov;
    return std::sqrt(std::max(0.0, (var_y * dx * dx - 2 * cov * dx * dy + var_x * dy * dy) / determinant));
  }
};

/// Of the points within the last round's spread: outliers would widen it until they are none.
Ellipse ellipse_of(const RatioStatistics& ratios) {
  constexpr int kRounds = 6;
  constexpr double kWithin = 4.0;
  Ellipse ellipse;
  for (int round = 0; round < kRounds; ++round) {
    Ellipse next;
    for (const auto& [key, cell] : ratios.cells) {
      const auto [rg, bg] = words_of(key);
      if (round == 0 || ellipse.distance(rg, bg) <= kWithin)
        next.add(rg, bg, static_cast<double>(cell.count));
    }
    ellipse = next;
  }
  return ellipse;
}

uint64_t key_of(const calib::FuseWords& module) {
  uint64_t key = 0x9E3779B97F4A7C15;
  for (const auto word : module) key = (key ^ static_cast<uint32_t>(word)) * 0xFF51AFD7ED558CCD + (key >> 29);
  return key;
}

}  // namespace

void NamedUnits::add(const std::string& name) {
  ++count;
  if (names.size() < kNamed) names.push_back(name);
}

// ---- margins ----------------------------------------------------------------------------------------------

void MarginStatistics::add(const std::string& name, double percent) {
  if (std::isnan(percent)) percent = 0;  // at the golden sample, which is all that is allowed
  ++units;
  sum += percent;
  sum_of_squares += percent * percent;
  constexpr double kMostTenths = 1e6;
  ++tenths[static_cast<int>(std::ceil(std::min(percent * 10.0, kMostTenths)))];
  const auto place =
      std::ranges::find_if(worst, [percent](const auto& each) { return each.first < percent; });
  worst.insert(place, {percent, name});
  if (worst.size() > kNamed) worst.pop_back();
}

double MarginStatistics::deviation() const {
  const auto n = static_cast<double>(units);
  return units < 2 ? 0 : std::sqrt(std::max(0.0, (sum_of_squares - sum * sum / n) / (n - 1)));
}

double MarginStatistics::quantile(double share) const {
  const double wanted = share * static_cast<double>(units);
  size_t counted = 0;
  for (const auto& [tenth, count] : tenths) {
    counted += count;
    if (static_cast<double>(counted) >= wanted) return tenth / 10.0;
  }
  return 0;
}

// ---- ratios -----------------------------------------------------------------------------------------------

void Line::add(double time, double value) {
  n += 1;
  t += time;
  v += value;
  tt += time * time;
  tv += time * value;
  vv += value * value;
}

double Line::slope() const {
  const double spread = tt - t * t / n;
  return spread > 0 ? (tv - t * v / n) / spread : 0;
}

double Line::slope_error() const {
  const double spread = tt - t * t / n;
  if (n < 3 || !(spread > 0)) return std::numeric_limits<double>::infinity();
  const double rest = vv - v * v / n - slope() * slope() * spread;
  return std::sqrt(std::max(0.0, rest) / (n - 2) / spread);
}

void RatioStatistics::add(const std::string& name, double day, const std::pair<uint32_t, uint32_t>& words) {
  ++units;
  rg_over_days.add(day, words.first / 1024.0);
  bg_over_days.add(day, words.second / 1024.0);
  const uint64_t key = uint64_t{words.first} << 32 | words.second;
  if (cells.size() >= kMostCells && !cells.contains(key)) {
    ++not_kept;
    return;
  }
  Cell& cell = cells[key];
  if (cell.count++ == 0) cell.first = name;
}

std::vector<RatioStatistics::Outlier> RatioStatistics::outliers() const {
  if (units < kFewestForOutliers) return {};
  const Ellipse ellipse = ellipse_of(*this);
  std::vector<Outlier> found;
  for (const auto& [key, cell] : cells) {
    const auto [rg, bg] = words_of(key);
    const double deviations = ellipse.distance(rg, bg);
    if (deviations > kOutlier) found.push_back({rg, bg, deviations, cell});
  }
  std::ranges::sort(found, [](const Outlier& a, const Outlier& b) {
    return std::tie(b.deviations, a.rg, a.bg) < std::tie(a.deviations, b.rg, b.bg);
  });
  return found;
}

// ---- all --------------------------------------------------------------------------------------------------

Place place_of(const Measurement& measurement) {
  return {measurement.camera ? camid_of(*measurement.camera) : kWholePhone, measurement.spec->kind};
}

std::string place_name(const Place& place) {
  const bool has_camera = place.camera != kWholePhone;
  return record_title(record_spec(place.kind),
                      has_camera ? std::optional(static_cast<calib::Camera>(place.camera)) : std::nullopt);
}

size_t Summary::judged() const {
  const auto count = [this](Outcome outcome) {
    const auto found = results.find(outcome_name(outcome));
    return found == results.end() ? 0 : found->second;
  };
  return count(Outcome::pass) + count(Outcome::fail);
}

void Summary::add(const Unit& unit) {
  ++units;
  ++results[unit.result];
  const bool has_passed = unit.result == outcome_name(Outcome::pass);
  const bool has_failed = unit.result == outcome_name(Outcome::fail);
  if (unit.result == kBroken) broken.add(unit.error);
  Day& day = days[unit.time / kSecondsADay];
  ++day.units;
  day.judged += has_passed || has_failed ? 1 : 0;
  day.passed += has_passed ? 1 : 0;
  const auto fault = std::ranges::find_if(unit.measurements, &Measurement::is_fault);
  if (has_failed && fault != unit.measurements.end())
    ++first_faults[fmt::format("{}: {}", place_name(place_of(*fault)), fault->rule())];
  seen_.begin_unit(unit.name);
  std::set<std::string> others;
  for (const Measurement& measurement : unit.measurements) {
    add_measurement(unit, measurement);
    if (!measurement.module) continue;
    if (const auto other = seen_.add(key_of(*measurement.module)); other && others.insert(*other).second)
      copied_modules.add(fmt::format("{}: {} is in {}", unit.name, fuse_text(*measurement.module), *other));
  }
}

void Summary::add_measurement(const Unit& unit, const Measurement& measurement) {
  const Place place = place_of(measurement);
  Yield& yield = yields[place];
  ++yield.units;
  yield.good += measurement.is_good ? 1 : 0;
  if (measurement.words && measurement.is_measured()) {
    const double day = static_cast<double>(unit.time) / static_cast<double>(kSecondsADay);
    ratios[place].add(unit.name, day, *measurement.words);
  }
  if (measurement.margin && measurement.is_measured()) {
    MarginStatistics& margin = margins[place];
    margin.add(unit.name, percent_of_limit(*measurement.margin));
    const bool was_kept = measurement.verdict == Verdict::good;
    const bool is_kept = measurement.margin->is_kept();
    if (was_kept && !is_kept) margin.would_have_failed.add(unit.name);
    if (!was_kept && is_kept) margin.passes_now.add(unit.name);
    margin.now_and_then += was_kept && is_kept ? 1 : 0;
  }
  if (measurement.version) versions_[place][*measurement.version].add(unit.name);
  if (measurement.content != 0) compare(unit, measurement);
}

void Summary::compare(const Unit& unit, const Measurement& measurement) {
  const Place place = place_of(measurement);
  if (measurement.spec->kind == RecordKind::lens_shading) {
    if (const auto other = seen_.add(measurement.content))
      copied_meshes.add(fmt::format("{}: that of {}", unit.name, *other));
  }
  Run& run = runs_[place];
  if (run.content != measurement.content) {
    note_run(place, run);
    run = {.content = measurement.content, .first = unit.name};
  }
  run.last = unit.name;
  ++run.units;
}

void Summary::note_run(const Place& place, const Run& run) {
  if (run.units >= kShortestRun && repetitions_.size() < kMostRuns)
    repetitions_.push_back({place, run.first, run.last, run.units});
}

std::vector<Repetition> Summary::repetitions() const {
  std::vector<Repetition> all = repetitions_;
  for (const auto& [place, run] : runs_) {
    if (run.units >= kShortestRun) all.push_back({place, run.first, run.last, run.units});
  }
  return all;
}

std::map<Place, NamedUnits> Summary::older() const {
  std::map<Place, NamedUnits> found;
  for (const auto& [place, versions] : versions_) {
    const auto most =
        std::ranges::max_element(versions, {}, [](const auto& each) { return each.second.count; });
    for (auto version = versions.begin(); version != most; ++version) {
      NamedUnits& named = found[place];
      named.count += version->second.count;
      named.names.insert(named.names.end(), version->second.names.begin(), version->second.names.end());
    }
  }
  for (auto& [place, named] : found) named.names.resize(std::min(named.names.size(), kNamed));
  return found;
}

}  // namespace awbcal
