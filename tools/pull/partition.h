// The calibration partition of a connected phone: the record area or all of a block device, raw NAND with the map of
// its bad blocks.
#ifndef PULL_PARTITION_H
#define PULL_PARTITION_H

#include <optional>
#include <string>

#include "inspect/partition_search.h"
#include "pull/adb.h"
#include "pull/target_folder.h"

namespace awbcal {

/// What the phone's own words for a failure mean.
struct Failure {
  bool is_absent = false;
  std::string reason = {};
};

/// Of the first line that a command said in its trouble: what stands behind its last colon.
Failure failure_of(const ShellAnswer& answer);

struct DeviceAnswer {
  std::optional<Failure> failure = {};  ///< none: the device is in the folder
  std::string detail = {};              ///< what of it
  bool is_area_only = false;
};

/// `device` as a path in the folder.
DeviceAnswer pull_block_device(Adb& adb, const TargetFolder& target, const std::string& device, bool whole);

/// With the chip's state beside it where the phone has nanddump; else, and that is noted, as the device delivers it.
DeviceAnswer pull_nand(Adb& adb, const TargetFolder& target, const MtdPartition& mtd, PullState& state);

}  // namespace awbcal

#endif
