// Hands out one camera's colour ratios in two lights, to balance the two cameras of a pair.

#include "awb_calibration/correction.h"
#include "correction/judge_and_log.h"
#include "records/calibration_log.h"

namespace {

using calib::AwbRecord;
using calib::log_module;

constexpr const char* kName = "Dual_Cam_Correction";

constexpr calib::JudgementRule kD50Rule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

// The A-light record's own first word changes nothing: it only profits from what the D50 record changed.
constexpr calib::JudgementRule kALightRule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = false};

/// One light: both ratios, or 1.0 twice. Returns the module's words as the rule left them.
calib::FuseWords load_ratios(const calib::RecordLines& lines, const calib::JudgementRule& rule,
                             const calib::FuseWords& module, uint32_t a_light, float* rg, float* bg) {
  *rg = *bg = 1.0F;
  // A record that cannot be read stays all zeros: its CRC is good, its valid word is not.
  AwbRecord record{};
  ReadFlashForDualCam(&record, sizeof record, a_light);
  const calib::Judgement judgement = calib::judge_and_log(kName, lines, record, module, rule);
  if (!judgement.crc_good) return judgement.module;
  if (!calib::is_accepted(judgement) && !calib::is_accepted_with_main_camera(record, rule)) {
    LOGE("%s, [Dual Calibration] Not load Dual-Calibraton data", kName);
    return judgement.module;
  }
  *rg = static_cast<float>(record.rg / 1024.0);
  *bg = static_cast<float>(record.bg / 1024.0);
  LOGI("%s, [Dual Calibration] Load Calibraton data[%f,%f]", kName, static_cast<double>(*rg),
       static_cast<double>(*bg));
  return judgement.module;
}

}  // namespace

void Dual_Cam_Correction(float* d50_rg, float* d50_bg, float* a_rg, float* a_bg) {
  if (d50_rg == nullptr || d50_bg == nullptr || a_rg == nullptr || a_bg == nullptr) return;

  const calib::FuseWords module =
      load_ratios(calib::kD50Lines, kD50Rule, calib::module_fuse_words(), 0, d50_rg, d50_bg);
  load_ratios(calib::kALightLines, kALightRule, module, 1, a_rg, a_bg);
}
