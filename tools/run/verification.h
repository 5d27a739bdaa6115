// The answer of `awbcal verify`: every verdict with what the library makes of the record, how far it is from the
// golden sample, and whether it has to be there.
#ifndef RUN_VERIFICATION_H
#define RUN_VERIFICATION_H

#include <optional>
#include <set>
#include <vector>

#include "factory/run_arithmetic.h"
#include "inspect/verdict.h"
#include "run/acceptance.h"
#include "run/limits.h"

namespace awbcal {

struct KindChoice {
  const RecordSpec* spec;
  std::optional<calib::Camera>
      camera;  ///< none: of any camera; a required one: of every camera that is fitted
};

struct VerifyQuestion {
  Modules modules = {};
  std::vector<KindChoice> required = {};
  std::vector<KindChoice> only = {};  ///< none: all
  std::vector<KindChoice> ignored = {};
  Limits limits = {};        ///< none: no record is judged by its distance from a golden sample
  bool is_strict = false;    ///< also hold against a record what lies over it by design
  bool asks_library = true;  ///< who accepts the records
};

/// One verdict with all that is said about it.
struct VerifiedRecord {
  RecordVerdict verdict;
  std::vector<Answer> answers = {};
  const Limit* limit = nullptr;  ///< of the question, which has to stay
  std::optional<calib::Margin> margin = {};
  bool is_required = false;

  bool is(Verdict which) const { return verdict.finding.verdict == which; }
  bool is_out_of_limit() const { return margin && !margin->is_kept(); }
  bool is_good() const { return is(Verdict::good) && !is_out_of_limit(); }
  /// Something is known to be wrong: more than that nothing whole is there, or that it cannot be read.
  bool is_bad() const;
};

/// What it all comes to. PASS needs something good, nothing wrong and nothing left unread.
enum class Outcome { pass, fail, incomplete, nothing_to_judge };
const char* outcome_name(Outcome outcome);

struct Verification {
  std::vector<VerifiedRecord> records;
  Modules assumed = {};  ///< of a camera whose module is not known: what its own record says
  bool is_complete = true;
  size_t left_out = 0;  ///< records that were there and not asked for

  Outcome outcome() const;
};

/// The verdicts refer to records of the input, which has to stay.
Verification verify(const Phone& phone, const VerifyQuestion& question);

/// The cameras that the properties name, or that have a record; the main one when there is none.
std::set<calib::Camera> fitted_cameras(const std::vector<VerifiedRecord>& records, const Modules& modules);

/// Whether a record of this verdict has a distance from a golden sample: what damaged bytes are far from says nothing.
bool can_be_measured(Verdict verdict);

/// A whole AWB or A-light record that has.
bool is_measured(const VerifiedRecord& verified);

/// "42 %": the distance in parts of the limit.
double percent_of_limit(const calib::Margin& margin);

}  // namespace awbcal

#endif
