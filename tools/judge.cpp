#include "tools/judge.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace awbcal {

namespace {

constexpr calib::JudgementRule kRule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

calib::RecordClaims claims_of(const RecordSpec& spec, std::span<const uint8_t> record) {
  calib::RecordClaims claims{};
  size_t fuse_words = 0;
  for (const FieldSpec& field : spec.fields) {
    const uint64_t value = field_value(record, field);
    if (field.kind == FieldKind::valid_word) claims.valid_word = value;
    if (field.kind == FieldKind::fuse_word) claims.fuse.at(fuse_words++) = value;
    if (field.kind == FieldKind::crc) {
      claims.stored_crc = value;
      claims.computed_crc = Crc32CheckSumByte(record.data(), static_cast<uint32_t>(field.offset), 0);
    }
  }
  return claims;
}

const char* binding_text(calib::Binding binding) {
  switch (binding) {
    case calib::Binding::this_module:
      return "the fitted module's";
    case calib::Binding::any_module:
      return "all zero: good for any module";
    case calib::Binding::other_module:
      break;
  }
  return "another module's";
}

}  // namespace

std::vector<RuleResult> judge_record(const RecordSpec& spec, std::span<const uint8_t> record,
                                     const calib::FuseWords& module) {
  const calib::RecordClaims claims = claims_of(spec, record);
  const calib::Judgement judgement = calib::judge(claims, module, kRule);
  return {{"checksum", judgement.crc_good, fmt::format("computed 0x{:08x}", claims.computed_crc)},
          {"valid word", judgement.valid_word_good,
           judgement.valid_word_good ? "ends in 99" : "does not mark a finished calibration"},
          {"fuse ID", judgement.is_bound(), binding_text(judgement.binding)}};
}

AwbVerdict awb_verdict(std::span<const uint8_t> record, float golden_rg, float golden_bg,
                       float tolerance_percent) {
  const auto awb = calib::record_at<calib::AwbRecord>(record.data());
  const double off_rg = golden_rg - awb.rg / 1024.0;
  const double off_bg = golden_bg - awb.bg / 1024.0;
  // In single precision where the run itself works so: a distance on the limit must fall to the same side.
  const float limit = tolerance_percent / 100.0F * std::max(golden_rg, golden_bg);
  return {static_cast<float>(std::sqrt(off_rg * off_rg + off_bg * off_bg)), limit};
}

}  // namespace awbcal
