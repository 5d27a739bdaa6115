// `awbcal demo --units`: a folder of units to try `awbcal fleet` on, with the truth about them beside it.
#ifndef DEMO_DEMO_FLEET_H
#define DEMO_DEMO_FLEET_H

#include <filesystem>

#include "demo/fleet_model.h"
#include "text/terminal.h"

namespace awbcal {

/// Writes units/unit-NNNNNNN.img, limits.csv and truth.csv (unit,time,result,fault,out_of_limit) into `dir`, or when
/// that is empty into a new temporary folder, and prints what was made.
void make_demo_fleet(const FleetPlan& plan, const std::filesystem::path& dir, Terminal& terminal);

}  // namespace awbcal

#endif
