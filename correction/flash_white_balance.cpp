#include "correction/flash_white_balance.h"

#include "common/property.h"
#include "correction/judge_and_log.h"
#include "correction/tuning_layout.h"
#include "records/calibration_log.h"

// ---- the table of two LEDs --------------------------------------------------------------------------------

namespace {

using calib::CctLedEntry;
using calib::DualFlashRecord;
using calib::kCctLedMaxEntries;
using calib::log_module;

/// R/G and B/G of a light.
struct ColourPoint {
  float x;
  float y;
};

struct CctLedTable {
  size_t count;
  CctLedEntry entry[kCctLedMaxEntries];
};

constexpr const char* kDualLed = "dual_led_correction";

uint8_t* bytes_of(float* tuning) {
  return reinterpret_cast<uint8_t*>(tuning);
}

bool read_table(float* tuning, CctLedTable& table) {
  const uint8_t* bytes = bytes_of(tuning);
  table.count = calib::record_at<uint16_t>(bytes + calib::kCctLedEntries);
  if (table.count < calib::kCctLedMinEntries || table.count > kCctLedMaxEntries) {
    LOGI("%s:[DualFlash Calibration]:entries_cct_led_lut < 3 or > MAX", kDualLed);
    return false;
  }
  memcpy(table.entry, bytes + calib::kCctLedTable, table.count * sizeof(CctLedEntry));
  return true;
}

/// Where each LED is strongest; false when an entry past the first has a setting of 0.
bool find_strongest(const CctLedTable& table, size_t& pos1, size_t& pos2) {
  const size_t last = table.count - 1;
  pos1 = 0;
  pos2 = last;
  uint16_t max1 = table.entry[0].led1;
  uint16_t max2 = table.entry[last].led2;
  for (size_t i = 1; i <= last; ++i) {
    if (table.entry[i].led1 == 0 || table.entry[i].led2 == 0) {
      LOGI("%s:[DualFlash Calibration]:led setting 0", kDualLed);
      return false;
    }
    if (table.entry[i].led1 > max1) {
      max1 = table.entry[i].led1;
      pos1 = i;
    }
    // LED 2 lags by one entry: one is tested and its neighbour below is taken. Kept.
    if (table.entry[table.count - i].led2 > max2) {
      max2 = table.entry[last - i].led2;
      pos2 = last - i;
    }
  }
  return true;
}

/// The entry at which both LEDs are strongest; 0 when there is none.
size_t find_both_strongest(const CctLedTable& table) {
  size_t pos1 = 0;
  size_t pos2 = 0;
  if (!find_strongest(table, pos1, pos2)) return 0;
  if (pos1 == pos2) {
    LOGI("%s:[DualFlash Calibration]:max_pos[%d]", kDualLed, static_cast<int32_t>(pos1));
  } else {
    LOGI("%s:[DualFlash Calibration]:LED1 max_pos[%d] LED2 max_pos[%d] not the same", kDualLed,
         static_cast<int32_t>(pos1), static_cast<int32_t>(pos2));
    pos1 = 0;
  }
  if (pos1 == 0) LOGI("%s:[DualFlash Calibration]:No max led setting in tuning", kDualLed);
  return pos1;
}

/// Neither two measured points nor two tuned ones that span a line may coincide.
bool is_reasonable(const CctLedTable& table, size_t max_pos, ColourPoint led1, ColourPoint led2,
                   ColourPoint both) {
  if (led1.x == both.x || led1.y == both.y || led2.x == both.x || led2.y == both.y) {
    LOGI("%s:[DualFlash Calibration]:Not reasonable data", kDualLed);
    return false;
  }
  const float x_max = table.entry[max_pos].x;
  if (table.entry[0].x == x_max || table.entry[table.count - 1].x == x_max) {
    LOGI("%s:[DualFlash Calibration]:Not reasonable tuning", kDualLed);
    return false;
  }
  return true;
}

/// Entries below `max_pos` go on the line from LED 2 alone to both LEDs, those above it on the line from both
/// to LED 1 alone; each keeps its relative distance from the ends. `points` gets the new colours.
void place_on_lines(const CctLedTable& table, size_t max_pos, ColourPoint led1, ColourPoint led2,
                    ColourPoint both, ColourPoint* points) {
  const size_t last = table.count - 1;
  const float x_first = table.entry[0].x;
  const float x_max = table.entry[max_pos].x;
  const float x_last = table.entry[last].x;
  points[max_pos] = both;
  points[last] = led1;
  const float slope2 = (led2.y - both.y) / (led2.x - both.x);
  for (size_t i = 0; i < max_pos; ++i) {
    const float share = (x_first - table.entry[i].x) / (x_first - x_max);
    points[i].x = led2.x - share * (led2.x - both.x);
    points[i].y = slope2 * points[i].x + (led2.y - slope2 * led2.x);
  }
  const float slope1 = (led1.y - both.y) / (led1.x - both.x);
  for (size_t i = last - 1; i > max_pos; --i) {
    const float share = (x_max - table.entry[i].x) / (x_max - x_last);
    points[i].x = both.x - share * (both.x - led1.x);
    points[i].y = slope1 * points[i].x + (led1.y - slope1 * led1.x);
  }
}

void store_points(float* tuning, const ColourPoint* points, size_t count) {
  uint8_t* colour = bytes_of(tuning) + calib::kCctLedTable + offsetof(CctLedEntry, x);
  for (size_t i = 0; i < count; ++i, colour += sizeof(CctLedEntry)) {
    memcpy(colour, &points[i], sizeof points[i]);
    LOGI("[DualFlash Calibration] new data[%d, %d, %f,%f]", 0, static_cast<int32_t>(i),
         static_cast<double>(points[i].x), static_cast<double>(points[i].y));
  }
}

/// Rebuilds the colours of the CCT/LED table from the three that were measured.
void dual_led_correction(float* awb_tuning, ColourPoint led1, ColourPoint led2, ColourPoint both) {
  CctLedTable table;
  if (!read_table(awb_tuning, table)) return;
  const size_t max_pos = find_both_strongest(table);
  if (max_pos == 0) return;
  LOGI("[DualFlash Calibration] [%f,%f,%f,%f,%f,%f]", static_cast<double>(led1.x),
       static_cast<double>(led1.y), static_cast<double>(led2.x), static_cast<double>(led2.y),
       static_cast<double>(both.x), static_cast<double>(both.y));
  if (!is_reasonable(table, max_pos, led1, led2, both)) return;
  ColourPoint points[kCctLedMaxEntries];
  place_on_lines(table, max_pos, led1, led2, both, points);
  store_points(awb_tuning, points, table.count);
}

/// The hook for phones that correct the tuning of a screen flash: here it only says what was measured.
void LCD_flash_correction(float* /*awb_tuning*/, ColourPoint yellow, ColourPoint white) {
  LOGI("%s, [LCDFlash Calibration] yellow(%lf, %lf) white(%lf, %lf)", "LCD_flash_correction",
       static_cast<double>(yellow.x), static_cast<double>(yellow.y), static_cast<double>(white.x),
       static_cast<double>(white.y));
}

}  // namespace

// ---- the flash step ---------------------------------------------------------------------------------------

namespace {

constexpr const char* kName = "Correct_Reference_Points_qorModule";

constexpr calib::JudgementRule kRule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

/// led_flash_white_balance in the tuning.
struct FlashGains {
  explicit FlashGains(float* tuning)
      : r(tuning[calib::kLedFlashWhiteBalance]),
        g(tuning[calib::kLedFlashWhiteBalance + 1]),
        b(tuning[calib::kLedFlashWhiteBalance + 2]) {}

  /// Sets r and b from a pair of words.
  void set(const int32_t (&pair)[2]) {
    r = static_cast<float>(static_cast<uint32_t>(pair[0]) / 1024.0);
    b = static_cast<float>(static_cast<uint32_t>(pair[1]) / 1024.0);
  }

  float& r;
  float& g;
  float& b;
};

/// The colour of the light that a pair of gain words corrects; infinite for a word of 0.
ColourPoint colour_of(const int32_t (&pair)[2]) {
  return {.x = static_cast<float>(1024.0 / static_cast<uint32_t>(pair[0])),
          .y = static_cast<float>(1024.0 / static_cast<uint32_t>(pair[1]))};
}

void store(ColourPoint point, float* ratio) {
  ratio[0] = point.x;
  ratio[1] = point.y;
}

void apply_dual_led(float* tuning, const DualFlashRecord& record) {
  LOGI("%s, [DualFlash Calibration] Load Flashlight-Calibraton data", kName);
  FlashGains gains(tuning);
  gains.set(record.x3);
  dual_led_correction(tuning, colour_of(record.x1), colour_of(record.x2), colour_of(record.x3));
  LOGI("%s, [DualFlash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(gains.r), static_cast<double>(gains.b));
}

void apply_screen(float* tuning, const DualFlashRecord& record, float* first, float* second) {
  const auto& white = record.x2;
  const auto& yellow = record.x3;
  const int32_t colour = calib::property_number("persist.camera.disp.color", "-1");
  LOGI("%s, [LCDFlash Calibration] Load Flashlight-Calibraton data(LCD color %d)", kName, colour);
  FlashGains gains(tuning);
  gains.set(colour != 0 && colour != -1 ? yellow : white);
  store(colour_of(white), first);
  store(colour_of(yellow), second);
  LCD_flash_correction(tuning, colour_of(yellow), colour_of(white));
  LOGI("%s, [LCDFlash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(gains.r), static_cast<double>(gains.b));
}

void correct_main(float* tuning, const calib::FuseWords& module) {
  DualFlashRecord record{};
  if (ReadFlashForDualFlashCali(&record, sizeof record) <= 0) return;

  const calib::Judgement judgement =
      calib::judge_and_log(kName, calib::kDualFlashLines, record, module, kRule);
  if (!judgement.crc_good) return;
  const FlashGains gains(tuning);
  LOGI("%s, [DualFlash Calibration] caFlashBuff 0x%x, 0x%x, 0x%x, 0x%x", kName, FUSE_WORDS_32(record.fuse));
  LOGI("%s, [DualFlash Calibration] fuse_id_word 0x%x, 0x%x, 0x%x, 0x%x", kName,
       FUSE_WORDS_32(judgement.module));
  LOGI("%s, [DualFlash Calibration] Origin led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(gains.r), static_cast<double>(gains.b));
  if (!calib::is_accepted(judgement)) {
    LOGE("%s, [DualFlash Calibration] Not load Flashlight-Calibraton data", kName);
    return;
  }
  apply_dual_led(tuning, record);
}

/// What the front camera's caller gets without a record: the tuning's own gains as ratios, for both lights.
void deliver_tuned_ratios(const FlashGains& gains, float* first, float* second) {
  const ColourPoint tuned{.x = gains.g / gains.r, .y = gains.g / gains.b};
  store(tuned, first);
  store(tuned, second);
  LOGE("%s, [Flash Calibration] Not load Flashlight-Calibraton data", kName);
}

void correct_front(float* tuning, float* first, float* second, const calib::FuseWords& module) {
  DualFlashRecord record{};
  if (ReadFlashForDualFlashCali(&record, sizeof record) <= 0) return;

  const calib::Judgement judgement = calib::judge_and_log(kName, calib::kFlashLines, record, module, kRule);
  if (!judgement.crc_good) return;
  const FlashGains gains(tuning);
  LOGI("%s, [Flash Calibration] caFlashBuff 0x%x, 0x%x, 0x%x, 0x%x", kName, FUSE_WORDS_32(record.fuse));
  LOGI("%s, [Flash Calibration] fuse_id_word 0x%x, 0x%x, 0x%x, 0x%x", kName, FUSE_WORDS_32(judgement.module));
  LOGI("%s, [Flash Calibration] Origin led_flash_white_balance.r_gain, b_gain=(%lf, %lf)", kName,
       static_cast<double>(gains.r), static_cast<double>(gains.b));
  if (!calib::is_accepted(judgement)) {
    deliver_tuned_ratios(gains, first, second);
  } else if (record.x1[0] == 0 && record.x1[1] == 0) {
    apply_screen(tuning, record, first, second);
  } else {
    apply_dual_led(tuning, record);
  }
}

}  // namespace

void calib::correct_flash_white_balance(float* awb_tuning, float* flash_ratio_first,
                                        float* flash_ratio_second, const FuseWords& module) {
  switch (selected_camera()) {
    case Camera::main:
      correct_main(awb_tuning, module);
      break;
    case Camera::front:
      correct_front(awb_tuning, flash_ratio_first, flash_ratio_second, module);
      break;
    case Camera::sub:
      LOGE("%s, [Flash Calibration] Not load Flashlight-Calibraton data", kName);
      break;
  }
}
