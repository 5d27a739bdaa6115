// Whether a record is good, rule by rule, by the library's own judgement.
#ifndef TOOLS_JUDGE_H
#define TOOLS_JUDGE_H

#include <string>
#include <vector>

#include "records/judgement.h"
#include "tools/decode.h"

namespace awbcal {

struct RuleResult {
  const char* rule;
  bool passed;
  std::string why;
};

/// The rules of every reader: checksum, valid word of versions 0 to 3, fuse ID. `module` is the fitted one's.
std::vector<RuleResult> judge_record(const RecordSpec& spec, std::span<const uint8_t> record,
                                     const calib::FuseWords& module);

/// How an AWB record compares with the golden sample.
struct AwbVerdict {
  double delta;
  double limit;

  bool passed() const { return delta <= limit; }
  double percent_of_limit() const { return 100.0 * delta / limit; }
};

AwbVerdict awb_verdict(std::span<const uint8_t> record, float golden_rg, float golden_bg,
                       float tolerance_percent);

}  // namespace awbcal

#endif
