// Moves the tuning's white points and gains by the ratio between this module and the golden sample.

#include "awb_calibration/correction.h"
#include "correction/awb_record.h"
#include "correction/judge_and_log.h"
#include "correction/tuning_layout.h"
#include "records/calibration_log.h"
#include "records/golden_sample.h"
#include "records/loaders.h"

namespace {

using calib::AwbRecord;
using calib::FlashRecord;
using calib::log_module;

constexpr const char* kName = "QOR_AWB_Calibration_Reference_Points_Correction";

constexpr calib::JudgementRule kRule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

/// Module over golden sample.
struct Ratios {
  float rg;
  float bg;
};

/// The words are signed here, unlike a flash record's. A golden value of 0 makes the ratio infinite.
Ratios ratios_of(const AwbRecord& record, uint32_t version) {
  const float golden_rg = calib::golden_sample.rg[version - 1];
  const float golden_bg = calib::golden_sample.bg[version - 1];
  return {.rg = static_cast<float>(static_cast<int32_t>(record.rg)) / (golden_rg * 1024.0F),
          .bg = static_cast<float>(static_cast<int32_t>(record.bg)) / (golden_bg * 1024.0F)};
}

float* triple(float* tuning, size_t number) {
  return tuning + calib::kGainTriples + 3 * (number - 1);
}

/// Stores the triple, scaled so that the smaller of r and b is 1.0 where one of them would be below.
calib::GainTriple store_normalised(float* to, calib::GainTriple gains) {
  if (gains.r < 1.0F || gains.b < 1.0F) {
    const float smaller = gains.r < gains.b ? gains.r : gains.b;
    gains = {.r = gains.r / smaller, .g = gains.g / smaller, .b = gains.b / smaller};
  }
  to[0] = gains.r;
  to[1] = gains.g;
  to[2] = gains.b;
  return gains;
}

calib::GainTriple correct_triple(float* at, const Ratios& ratios) {
  return store_normalised(at, {.r = at[0] / ratios.rg, .g = at[1], .b = at[2] / ratios.bg});
}

void correct_tuning(float* tuning, const Ratios& ratios) {
  float* points = tuning + calib::kReferencePoints;
  for (size_t i = 0; i < calib::kReferencePointCount; ++i) {
    points[2 * i] *= ratios.rg;
    points[2 * i + 1] *= ratios.bg;
  }
  correct_triple(triple(tuning, 2), ratios);
  correct_triple(triple(tuning, 3), ratios);
  const calib::GainTriple first = correct_triple(triple(tuning, 1), ratios);
  // Triple 4 takes its own g as r, and the corrected g of triple 1 as g. Kept: tunings are made with it.
  float* fourth = triple(tuning, 4);
  store_normalised(fourth, {.r = fourth[1], .g = first.g, .b = fourth[2] / ratios.bg});
  correct_triple(triple(tuning, 5), ratios);
  correct_triple(tuning + calib::kLedFlashWhiteBalance, ratios);
}

void correct_reference_points(float* tuning, AwbRecord& record) {
  // Version 0 is served as version 1, in the kept record too.
  if (calib::light_source_version(record.valid_word) == 0) record.valid_word = 1099;
  const uint32_t version = calib::light_source_version(record.valid_word);
  const Ratios ratios = ratios_of(record, version);
  LOGI("[AWB Calibration] use light version: v%d\n", static_cast<int32_t>(version));
  correct_tuning(tuning, ratios);
  LOGI("[AWB Calibration] Parameter Setup Done !!!\n");
}

/// `module` is as the AWB record left it: its zero first word holds for the flash record too.
void correct_flash_gains(float* tuning, const calib::FuseWords& module) {
  FlashRecord record{};
  const calib::RecordReading reading = calib::load_flash(&record, sizeof record);
  if (!reading.is_loaded()) return;

  const calib::Judgement judgement =
      calib::judge_and_log(kName, calib::kFlashLines, record, reading.is_whole, module, kRule);
  if (!judgement.crc_good) return;
  float& r_gain = tuning[calib::kLedFlashWhiteBalance];
  float& b_gain = tuning[calib::kLedFlashWhiteBalance + 2];
  LOGI("%s, [Flash Calibration] Origin led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(r_gain), static_cast<double>(b_gain));
  if (!calib::is_accepted(judgement)) {
    LOGE("%s, [Flash Calibration] Not load Flashlight-Calibraton data", kName);
    return;
  }
  LOGI("%s, [Flash Calibration] Load Flashlight-Calibraton data", kName);
  r_gain = static_cast<float>(static_cast<uint32_t>(record.x) / 1024.0);
  b_gain = static_cast<float>(static_cast<uint32_t>(record.y) / 1024.0);
  LOGI("%s, [Flash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(r_gain), static_cast<double>(b_gain));
}

}  // namespace

void QOR_AWB_Calibration_Reference_Points_Correction(float* awb_tuning) {
  if (awb_tuning == nullptr) return;

  AwbRecord& record = calib::correction_state.reference_points;
  const auto judgement = calib::load_awb_record(kName, record, calib::module_fuse_words(), kRule);
  if (!judgement) return;
  if (calib::log_use(calib::is_accepted(*judgement))) correct_reference_points(awb_tuning, record);
  correct_flash_gains(awb_tuning, judgement->module);
}
