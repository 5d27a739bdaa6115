#include "inspect/claims.h"

#include <fmt/format.h>

namespace awbcal {

namespace {

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

Claims claims_of(const RecordSpec& spec, std::span<const uint8_t> record) {
  Claims claims;
  size_t fuse_words = 0;
  for (const FieldSpec& field : spec.fields) {
    const uint64_t value = field_value(record, field);
    if (field.kind == FieldKind::valid_word) {
      claims.has_valid_word = true;
      claims.words.valid_word = value;
    } else if (field.kind == FieldKind::fuse_word) {
      claims.has_fuse_id = true;
      claims.words.fuse.at(fuse_words++) = value;
    } else if (field.kind == FieldKind::crc) {
      claims.has_crc = true;
      claims.words.stored_crc = value;
      claims.words.computed_crc = crc_for(field, record);
    }
  }
  return claims;
}

uint32_t crc_for(const FieldSpec& field, std::span<const uint8_t> record) {
  const uint32_t crc = Crc32CheckSumByte(record.data(), static_cast<uint32_t>(field.offset), 0);
  // The first form keeps only the low byte.
  return field.width == 1 ? crc & 0xFF : crc;
}

std::vector<RuleResult> rules_of(const RecordSpec& spec, std::span<const uint8_t> record,
                                 const calib::FuseWords& module) {
  const Claims claims = claims_of(spec, record);
  const calib::Judgement judgement = calib::judge(claims.words, module, spec.rule);
  return {{"checksum", judgement.crc_good, fmt::format("computed 0x{:08x}", claims.words.computed_crc)},
          {"valid word", judgement.valid_word_good,
           judgement.valid_word_good ? "ends in 99" : "does not mark a finished calibration"},
          {"fuse ID", judgement.is_bound(), binding_text(judgement.binding)}};
}

calib::Margin margin_of(std::span<const uint8_t> awb_record, const calib::GoldenRatios& golden,
                        float percent) {
  const auto record = calib::record_at<calib::AwbRecord>(awb_record.data());
  return calib::margin_of(calib::ratios_of(record.rg, record.bg), golden, calib::tolerance_of(percent));
}

}  // namespace awbcal
