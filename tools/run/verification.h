// The answer of `awbcal verify`: every verdict with what the library makes of the record, how far it is from the
// golden sample, and whether it has to be there.
#ifndef RUN_VERIFICATION_H
#define RUN_VERIFICATION_H

#include <optional>
#include <vector>

#include "factory/run_arithmetic.h"
#include "inspect/verdict.h"
#include "run/acceptance.h"

namespace awbcal {

struct RequiredKind {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;  ///< none: every camera that is fitted
};

struct VerifyQuestion {
  Modules modules = {};
  std::vector<RequiredKind> required = {};
  std::optional<calib::GoldenRatios> golden = {};
  uint32_t threshold = 20;  ///< percent of the larger golden ratio
};

/// One verdict with all that is said about it.
struct VerifiedRecord {
  RecordVerdict verdict;
  std::vector<Answer> answers = {};
  std::optional<calib::Margin> margin = {};
  bool is_required = false;

  bool fails() const { return verdict.is_missing() ? is_required : verdict.finding.verdict != Verdict::good; }
};

struct Verification {
  std::vector<VerifiedRecord> records;

  bool passed() const;
};

/// The verdicts refer to records of the input, which has to stay.
Verification verify(const Phone& phone, const VerifyQuestion& question);

/// "42 %": the distance in parts of the limit.
double percent_of_limit(const calib::Margin& margin);

}  // namespace awbcal

#endif
