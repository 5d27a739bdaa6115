// One verdict per camera and kind of record, with the rule that decided it. No printing, no I/O.
#ifndef INSPECT_VERDICT_H
#define INSPECT_VERDICT_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/claims.h"
#include "inspect/open_phone.h"

namespace awbcal {

enum class Verdict {
  good,
  absent,
  blank,
  bad_crc,
  wrong_module,
  out_of_tolerance,
  unknown_version,
  truncated,
  unreadable,
  overwritten,  ///< by the good record that shares its bytes
  hidden,       ///< good, but behind a blank or truncated cache file that every reader opens first
};
const char* verdict_name(Verdict verdict);

/// The rule that a verdict stands for: a name that scripts may rely on.
const char* verdict_rule(Verdict verdict);

/// "11223344 55667788 99aabbcc ddeeff01"
std::string fuse_text(const calib::FuseWords& words);

struct Finding {
  Verdict verdict = Verdict::absent;
  std::string expected = {};
  std::string found = {};
};

/// Every rule of its readers that the record breaks, in the order in which they ask; none: it is good. A reader that
/// takes no record of an early light-source version says from which on it does.
std::vector<Finding> faults_of(const Phone& phone, const FoundRecord& record, const Modules& modules,
                               uint32_t first_version = 0);

/// The verdict on the bytes of one record.
Finding verdict_on(const Phone& phone, const FoundRecord& record, const Modules& modules);

/// The verdict on one camera and kind.
struct RecordVerdict {
  const RecordSpec* spec = nullptr;
  std::optional<calib::Camera> camera = {};
  Finding finding = {};
  const FoundRecord* record = nullptr;   ///< the one that the verdict is about; null when there is none
  std::string file = {};                 ///< without a record: the file that cannot be read
  std::vector<std::string> others = {};  ///< what the other sources hold, and what that means; a line each

  bool is_missing() const { return finding.verdict == Verdict::absent || finding.verdict == Verdict::blank; }
};

/// Every kind that the phone could hold, for every camera: of the sources that hold something, the first that is
/// not good, else the first that is. Gyro and A-light records share bytes on purpose, and the one that was written
/// last wins: where the other's cache file is good that is told and not held against it, unless `is_strict`.
std::vector<RecordVerdict> verdicts_of(const Phone& phone, const Modules& modules, bool is_strict = false);

}  // namespace awbcal

#endif
