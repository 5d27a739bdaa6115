// Hands the module's measured ratios to a camera stack whose tuning carries its own golden sample.

#include "awb_calibration/correction.h"
#include "awb_calibration/records.h"
#include "correction/awb_record.h"
#include "correction/flash_white_balance.h"
#include "correction/judge_and_log.h"
#include "correction/tuning_layout.h"
#include "records/calibration_log.h"

namespace {

using calib::AwbRecord;
using calib::log_module;

constexpr const char* kName = "Correct_Reference_Points_qorModule";

// The tuning has golden values from version 1 on.
constexpr calib::JudgementRule kRule{
    .first_version = 1, .last_version = 3, .zero_first_fuse_word_matches_any = true};

/// Returns false when the tuning has no golden value: then the flash step is left out as well.
bool deliver_ratios(const AwbRecord& record, const float* tuning, float* module_ratio) {
  const uint32_t version = calib::light_source_version(record.valid_word);
  const float golden_rg = tuning[calib::kTuningGoldenRg + version - 1];
  const float golden_bg = tuning[calib::kTuningGoldenBg + version - 1];
  LOGI("[AWB Calibration] GS ratio: %f,%f\n", static_cast<double>(golden_rg), static_cast<double>(golden_bg));
  if (golden_rg == 0.0F || golden_bg == 0.0F) {
    LOGE("[AWB Calibration] invalid GS ratio\n");
    return false;
  }
  module_ratio[0] = static_cast<float>(record.rg) / 1024.0F;
  module_ratio[1] = static_cast<float>(record.bg) / 1024.0F;
  LOGI("[AWB Calibration] use light version: v%d\n", static_cast<int32_t>(version));
  return true;
}

}  // namespace

void Correct_Reference_Points_qorModule(float* awb_tuning, float* module_ratio, float* flash_ratio_first,
                                        float* flash_ratio_second) {
  if (awb_tuning == nullptr || module_ratio == nullptr || flash_ratio_first == nullptr ||
      flash_ratio_second == nullptr) {
    return;
  }
  const calib::FuseWords module = calib::module_fuse_words();
  awb_calibration_set_GS(awb_tuning + calib::kTuningGoldenRg, awb_tuning + calib::kTuningGoldenBg);
  AwbRecord& record = calib::correction_state.module_reference_points;
  const auto judgement = calib::load_awb_record(kName, record, module, kRule);
  if (!judgement) return;
  const bool is_used = calib::is_accepted(*judgement) || calib::is_accepted_with_main_camera(record, kRule);
  if (calib::log_use(is_used) && !deliver_ratios(record, awb_tuning, module_ratio)) return;
  calib::correct_flash_white_balance(awb_tuning, flash_ratio_first, flash_ratio_second, judgement->module);
}
