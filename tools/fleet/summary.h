// What many units come to. Takes one after the other, and its memory does not grow with their number but for
// SeenOnce, which has a bound.
#ifndef FLEET_SUMMARY_H
#define FLEET_SUMMARY_H

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "fleet/seen_once.h"
#include "fleet/unit.h"

namespace awbcal {

/// So many units are named where a list of them could be long; all are counted.
inline constexpr size_t kNamed = 10;

/// Units of which something is said: how many, and the names of the first.
struct NamedUnits {
  size_t count = 0;
  std::vector<std::string> names = {};

  void add(const std::string& name);
};

/// A camera and kind of record; camera 3 is the whole phone, or not known.
struct Place {
  int camera = 0;
  RecordKind kind = RecordKind::awb;

  auto operator<=>(const Place&) const = default;
};

struct Yield {
  size_t units = 0;  ///< that have such a record
  size_t good = 0;
};

/// The records of one place that were judged against a golden sample, by how much of their limit they use.
struct MarginStatistics {
  size_t units = 0;
  double sum = 0;
  double sum_of_squares = 0;
  std::map<int, size_t> tenths = {};  ///< how many by tenths of a percent of the limit, rounded up
  std::vector<std::pair<double, std::string>> worst = {};  ///< kNamed of them, the worst first
  size_t now_and_then = 0;            ///< in tolerance in the factory, and within the limit now
  NamedUnits would_have_failed = {};  ///< in tolerance in the factory, beyond the limit now
  NamedUnits passes_now = {};         ///< out of tolerance in the factory, within the limit now

  void add(const std::string& name, double percent);
  double mean() const { return sum / static_cast<double>(units); }
  double deviation() const;
  /// The share of the limit that `share` of the units do not exceed, to a tenth of a percent.
  double quantile(double share) const;
  /// How many times the process's own spread, three standard deviations, fits between its mean and the limit.
  double capability() const { return (100.0 - mean()) / (3.0 * deviation()); }
};

/// A straight line through values over time.
struct Line {
  double n = 0, t = 0, v = 0, tt = 0, tv = 0, vv = 0;

  void add(double time, double value);
  double mean() const { return v / n; }
  double slope() const;
  double slope_error() const;  ///< standard error; infinite where there is no line
};

/// Of a key of RatioStatistics::cells: R/G and B/G, times 1024.
inline std::pair<uint32_t, uint32_t> words_of(uint64_t key) {
  return {static_cast<uint32_t>(key >> 32), static_cast<uint32_t>(key)};
}

/// The R/G and B/G of one place, as many times as they were measured.
struct RatioStatistics {
  struct Cell {
    size_t count = 0;
    std::string first = {};  ///< the unit that had them first
  };
  struct Outlier {
    uint32_t rg;
    uint32_t bg;
    double deviations;  ///< from the fleet's centre, in standard deviations along that direction
    Cell cell;
  };

  size_t units = 0;
  std::unordered_map<uint64_t, Cell> cells = {};  ///< by R/G in the high half, B/G in the low one
  size_t not_kept = 0;                            ///< measured after there were too many different ones
  Line rg_over_days = {};
  Line bg_over_days = {};

  void add(const std::string& name, double day, const std::pair<uint32_t, uint32_t>& words);
  /// The units that are not where the others are, the farthest first. None of a fleet too small to say.
  std::vector<Outlier> outliers() const;
};

struct Day {
  size_t units = 0;
  size_t judged = 0;
  size_t passed = 0;
};

/// The same measurement in unit after unit: what a stuck station writes.
struct Repetition {
  Place place;
  std::string first;
  std::string last;
  size_t units;
};

class Summary {
 public:
  void add(const Unit& unit);

  size_t units = 0;
  std::map<std::string, size_t> results = {};  ///< by Unit::result
  std::map<Place, Yield> yields = {};
  std::map<std::string, size_t> first_faults = {};  ///< what is wrong first in a unit that fails
  NamedUnits broken = {};
  std::map<Place, MarginStatistics> margins = {};
  std::map<Place, RatioStatistics> ratios = {};
  std::map<int64_t, Day> days = {};  ///< by days since 1970

  size_t judged() const;  ///< units that pass or fail

  // ---- what no single phone shows --------------------------------------------------------------------------
  NamedUnits copied_modules = {};  ///< "unit: fuse ID of another"
  NamedUnits copied_meshes = {};   ///< the gains of thousands of bytes are never equal by themselves
  std::vector<Repetition> repetitions() const;
  /// Units whose record has a lower version than most have there.
  std::map<Place, NamedUnits> older() const;
  size_t not_compared() const { return seen_.not_compared(); }

 private:
  struct Run {
    uint64_t content = 0;
    std::string first = {};
    std::string last = {};
    size_t units = 0;
  };

  void add_measurement(const Unit& unit, const Measurement& measurement);
  void compare(const Unit& unit, const Measurement& measurement);
  void note_run(const Place& place, const Run& run);

  SeenOnce seen_;
  std::map<Place, Run> runs_ = {};
  std::vector<Repetition> repetitions_ = {};
  std::map<Place, std::map<uint32_t, NamedUnits>> versions_ = {};
};

Place place_of(const Measurement& measurement);
/// "front camera, AWB record"
std::string place_name(const Place& place);

}  // namespace awbcal

#endif
