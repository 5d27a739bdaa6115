// Many units at once, handed over in the order in which they were named.
#ifndef FLEET_JUDGING_H
#define FLEET_JUDGING_H

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fleet/unit.h"

namespace awbcal {

/// Judges what is at a path; used by one thread.
using UnitJudge = std::function<Unit(const std::string& path)>;

/// The path of the next unit, asked for by one thread at a time; nothing after the last.
using NextUnit = std::function<std::optional<std::string>()>;

/// A thread for each judge. `take` is called by this thread alone, for every unit that was begun; when `stops` becomes
/// true no more are begun. Memory is needed for what is on its way only, however many units there are.
void judge_units(const NextUnit& next, const std::vector<UnitJudge>& judges, const std::atomic<bool>& stops,
                 const std::function<void(Unit& unit)>& take);

}  // namespace awbcal

#endif
