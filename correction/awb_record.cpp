#include "correction/awb_record.h"

#include "correction/judge_and_log.h"
#include "records/calibration_log.h"

namespace calib {

constinit CorrectionState correction_state{};

std::optional<Judgement> load_awb_record(const char* name, AwbRecord& record, const FuseWords& module,
                                         const JudgementRule& rule) {
  LOGI("%s, [AWB Calibration] fuse_id : 0x%x, 0x%x, 0x%x, 0x%x\n", name, FUSE_WORDS_32(module));
  // A truncated file must not leave the end of the previous camera's record behind it.
  record = {};
  uint32_t tag_word = 0;
  if (ReadFlash(&record, &tag_word) <= 0) return std::nullopt;

  const Judgement judgement = judge_and_log(name, kAwbLines, record, module, rule);
  if (!judgement.crc_good) return std::nullopt;
  return judgement;
}

bool log_use(bool is_used) {
  if (is_used) {
    LOGI("[AWB Calibration] valid bit and fuseID pass, use new white points\n");
  } else {
    LOGE(
        "[AWB Calibration] valid bit!=99 or calibration light version not in the list. Use default setting.\n");
  }
  return is_used;
}

}  // namespace calib
