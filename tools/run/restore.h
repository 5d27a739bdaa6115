// The records of a backup put back on a phone: decided record by record, written by the library on a copy of the phone,
// read back, and only then brought into the phone's own files, one after the other.
#ifndef RUN_RESTORE_H
#define RUN_RESTORE_H

#include <string>
#include <vector>

#include "inspect/backup.h"
#include "inspect/open_phone.h"

namespace awbcal {

enum class RestoreFate { restored, already_there, refused };

/// What becomes of a record, and why.
struct RestoreStep {
  const BackupRecord* record;
  RestoreFate fate = RestoreFate::refused;
  std::string text = {};  ///< where it goes to; or why it is refused
  bool to_partition = false;
  bool to_cache = false;
};

struct RestorePlan {
  std::vector<RestoreStep> steps;
  std::vector<uint32_t> changed_blocks = {};  ///< of a NAND chip
  uint32_t block_size = 0;
  std::vector<OutputFile> files =
      {};  ///< the phone's that change, in the order in which they are to be written
};

struct RestoreQuestion {
  std::string target;                 ///< a phone's folder, or an image of the partition
  std::optional<uint32_t> base = {};  ///< of the record area, where the target does not say
  Modules modules = {};               ///< that are fitted, where the target does not say
  bool force = false;                 ///< also in the place of another good record
};

/// Changes nothing. The plan refers to records of the backup. Throws InputError for a target that cannot be written
/// with certainty, and std::runtime_error when the library does not write as it should.
RestorePlan plan_restore(const Backup& backup, const RestoreQuestion& question);

/// Each file is replaced in one step: an interrupted restore is completed by another one.
void apply(const RestorePlan& plan, const std::string& target);

}  // namespace awbcal

#endif
