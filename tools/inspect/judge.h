// Names of before, until every verb says the new ones.
#ifndef INSPECT_JUDGE_H
#define INSPECT_JUDGE_H

#include "inspect/claims.h"

namespace awbcal {

inline std::vector<RuleResult> judge_record(const RecordSpec& spec, std::span<const uint8_t> record,
                                            const calib::FuseWords& module) {
  return rules_of(spec, record, module);
}

struct AwbVerdict {
  double delta;
  double limit;

  bool passed() const { return delta <= limit; }
  double percent_of_limit() const { return 100.0 * delta / limit; }
};

inline AwbVerdict awb_verdict(std::span<const uint8_t> record, float golden_rg, float golden_bg,
                              float tolerance_percent) {
  const calib::Margin margin = margin_of(record, {golden_rg, golden_bg}, tolerance_percent);
  return {margin.delta, margin.limit};
}

}  // namespace awbcal

#endif
