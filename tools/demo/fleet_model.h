// A fleet of phones with a known truth: what `awbcal fleet` finds can be held to it.
#ifndef DEMO_FLEET_MODEL_H
#define DEMO_FLEET_MODEL_H

#include <cstdint>
#include <string>

#include "inspect/decode.h"

namespace awbcal {

struct FleetPlan {
  size_t units = 0;
  double spread = 3.0;  ///< standard deviation of the modules' ratios, in percent
  double bad = 5.0;     ///< percent of the units that something happens to
  double drift = 0.0;   ///< percent by which the ratios grow each day
  uint64_t seed = 1;
};

/// The units are spread evenly over so many days from kFirstDay on.
inline constexpr size_t kFleetDays = 30;
inline constexpr int64_t kFirstDay = 1767225600;  // 2026-01-01

enum class UnitFault {
  none,
  off,      ///< a main module beyond the limit
  damaged,  ///< one bit of the main camera's AWB record
  erased,
  cut,       ///< a dump that ends before its first record does
  copied,    ///< the module IDs of the unit before it
  stuck,     ///< its main camera's measurement is repeated for kStuckUnits units
  outdated,  ///< an older version of the main camera's AWB record
};
const char* unit_fault_name(UnitFault fault);
inline constexpr size_t kStuckUnits = 6;

/// A unit as an image of its record area, and the truth about it.
struct FleetUnit {
  std::string name;
  int64_t time;
  Bytes image;
  UnitFault fault;
  std::string result;    ///< what it comes to
  bool is_out_of_limit;  ///< a camera's AWB record was judged out of tolerance
};

/// Unit `number`, from 0. Each is made by itself: a fleet is no larger in memory than one unit.
FleetUnit make_unit(const FleetPlan& plan, size_t number);

/// The golden samples that the units were judged against, as `awbcal fleet --limits` reads them.
std::string fleet_limits_text();

}  // namespace awbcal

#endif
