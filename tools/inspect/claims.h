// What a record's bytes say of themselves, whatever its kind, and the rules that its readers hold it to.
#ifndef INSPECT_CLAIMS_H
#define INSPECT_CLAIMS_H

#include <string>
#include <vector>

#include "factory/run_arithmetic.h"
#include "inspect/decode.h"
#include "records/judgement.h"

namespace awbcal {

/// What a record says of itself; not every kind has every claim.
struct Claims {
  calib::RecordClaims words{};
  bool has_crc = false;
  bool has_valid_word = false;
  bool has_fuse_id = false;

  bool has_good_crc() const { return has_crc && words.stored_crc == words.computed_crc; }
};

/// `record` holds at least the record's size.
Claims claims_of(const RecordSpec& spec, std::span<const uint8_t> record);

/// What belongs into the checksum field of `record`.
uint32_t crc_for(const FieldSpec& field, std::span<const uint8_t> record);

struct RuleResult {
  const char* rule;
  bool passed;
  std::string why;
};

/// The rules of the kind's readers, by judge(): checksum, valid word, fuse ID. `module` is the fitted one's.
std::vector<RuleResult> rules_of(const RecordSpec& spec, std::span<const uint8_t> record,
                                 const calib::FuseWords& module);

/// An AWB record's distance from the golden sample, as the run that made it judged it.
calib::Margin margin_of(std::span<const uint8_t> awb_record, const calib::GoldenRatios& golden,
                        float percent);

}  // namespace awbcal

#endif
