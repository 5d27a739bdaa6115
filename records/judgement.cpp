#include "records/judgement.h"

namespace calib {

namespace {

bool is_valid(uint64_t valid_word, const JudgementRule& rule) {
  const uint64_t version = valid_word / kVersionUnit;
  return valid_word % kVersionUnit == kValidMark && version >= rule.first_version &&
         version <= rule.last_version;
}

}  // namespace

Judgement judge(const RecordClaims& record, const FuseWords& module, const JudgementRule& rule) {
  Judgement judgement{.crc_good = record.stored_crc == record.computed_crc,
                      .valid_word_good = is_valid(record.valid_word, rule),
                      .binding = Binding::other_module,
                      .module = module};
  if (rule.zero_first_fuse_word_matches_any && record.fuse[0] == 0) judgement.module[0] = 0;
  if (record.fuse == judgement.module) {
    judgement.binding = Binding::this_module;
  } else if (record.fuse == FuseWords{}) {
    judgement.binding = Binding::any_module;
  }
  return judgement;
}

}  // namespace calib
