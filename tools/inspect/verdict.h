// One verdict per camera and kind of record, with the rule that decided it. No printing, no I/O.
#ifndef INSPECT_VERDICT_H
#define INSPECT_VERDICT_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inspect/input.h"
#include "inspect/judge.h"

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
};
const char* verdict_name(Verdict verdict);

/// The rule that a verdict stands for: a name that scripts may rely on.
const char* verdict_rule(Verdict verdict);

/// Which module is fitted, where that is known.
using Modules = std::map<calib::Camera, calib::FuseWords>;

/// The fuse IDs that the phone's properties name; of an input without properties, none.
Modules modules_of(const Input& input);

struct Finding {
  Verdict verdict = Verdict::absent;
  std::string expected = {};
  std::string found = {};
};

/// The verdict on the bytes of one record.
Finding judge_found(const Input& input, const FoundRecord& record, const Modules& modules);

/// The verdict on one camera and kind.
struct RecordVerdict {
  const RecordSpec* spec = nullptr;
  std::optional<calib::Camera> camera = {};
  Finding finding = {};
  const FoundRecord* record = nullptr;   ///< the one that the verdict is about; null when there is none
  std::string file = {};                 ///< where that stands, or the file that cannot be read
  std::vector<std::string> others = {};  ///< what the other sources hold

  bool is_missing() const { return finding.verdict == Verdict::absent || finding.verdict == Verdict::blank; }
};

/// Every kind that the input could hold, for every camera: of the sources that hold something, the first that
/// is not good, else the first that is.
std::vector<RecordVerdict> judge_input(const Input& input, const Modules& modules);

/// "blank" to readers: blank, or blank but for the bytes that a good overlapping record owns.
bool is_blank_record(const Input& input, const FoundRecord& record);

/// The good record that has overwritten the end or the beginning of this one; null: none.
const FoundRecord* good_overlap(const Input& input, const FoundRecord& record);

}  // namespace awbcal

#endif
