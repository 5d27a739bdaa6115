// Which AWB and flash records move the tuning's white points and gains, and to exactly which values?
// Guards against another module's ratios in the picture, and against results that differ between processors.

#include <algorithm>

#include "tests/support/correction_support.h"

namespace {

using namespace support;

const std::string kName = "QOR_AWB_Calibration_Reference_Points_Correction";
constexpr const char* kAwbFile = "/data/misc/camera/awb_cal";
constexpr const char* kFlashFile = "/data/misc/camera/flash_cal";
constexpr float kGoldenRg[3] = {0.7F, 0.8F, 0.9F};
constexpr float kGoldenBg[3] = {0.6F, -0.5F, 0.4F};
constexpr size_t kTuningFloats = 12464 / 4;
const Words kValues = {1126, 0xFFFFF800};
const Words kFlashValues = {0xFFFFF400, 0x44F};

Floats made_tuning() {
  Floats tuning = Integers(7).gains(kTuningFloats);
  for (const size_t at : {13U, 20U, 3101U, 3106U}) tuning[at] = std::nanf("");
  return tuning;
}

/// Module over golden sample; the word is signed.
float ratio(uint32_t word, float golden) {
  return quotient(static_cast<float>(static_cast<int32_t>(word)), product(golden, 1024));
}

/// What the ratios make of a tuning, every operation rounded on its own.
Floats moved(Floats tuning, float rg, float bg) {
  for (size_t i = 12; i < 42; ++i) tuning[i] = product(tuning[i], i % 2 == 0 ? rg : bg);
  float g_before = 0;
  for (const size_t at : {3101U, 3104U, 3098U, 3107U, 3110U, 3113U}) {
    const bool is_fourth = at == 3107;
    float r = is_fourth ? tuning[at + 1] : quotient(tuning[at], rg);
    float g = is_fourth ? g_before : tuning[at + 1];
    float b = quotient(tuning[at + 2], bg);
    if (r < 1 || b < 1) {
      const float least = r < b ? r : b;
      r = quotient(r, least), g = quotient(g, least), b = quotient(b, least);
    }
    tuning[at] = r, tuning[at + 1] = g_before = g, tuning[at + 2] = b;
  }
  return tuning;
}

class ReferencePoints : public CorrectionTest {
 protected:
  ReferencePoints() { awb_calibration_set_GS(kGoldenRg, kGoldenBg); }
  static Floats correct(Floats tuning) {
    QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
    return tuning;
  }
  static void expect_untouched(const std::string& what) {
    EXPECT_EQ(bits_of(correct(made_tuning())), bits_of(made_tuning())) << what;
  }
};

enum class Flash { none, bad_crc, refused, used };

struct Row {
  const char* what;
  uint32_t awb_valid_word;
  Words awb_fuse;
  Awb awb;
  uint32_t flash_valid_word;
  Words flash_fuse;
  Flash flash;
};

const Row kRows[] = {
    {"version 0", 99, kMain, Awb::used, 99, kMain, Flash::used},
    {"version 1", 1099, kMain, Awb::used, 1099, kMain, Flash::used},
    {"version 3", 3099, kMain, Awb::used, 3099, kMain, Flash::used},
    {"version 4", 4099, kMain, Awb::refused, 4099, kMain, Flash::refused},
    {"past 2^31", 4294967099, kMain, Awb::refused, 4294967099, kMain, Flash::refused},
    {"judged bad", 3000, kMain, Awb::refused, 3000, kMain, Flash::refused},
    {"any module", 2099, kAny, Awb::used, 2099, kAny, Flash::used},
    {"zero first word", 3099, kMainNoFirst, Awb::used, 3099, kMainNoFirst, Flash::used},
    {"it holds for the flash", 3099, kMainNoFirst, Awb::used, 3099, kMain, Flash::refused},
    {"also when refused", 3000, kMainNoFirst, Awb::refused, 3099, kMain, Flash::refused},
    {"also of any module", 3099, kAny, Awb::used, 3099, kMain, Flash::refused},
    {"the flash's own", 3099, kMain, Awb::used, 3099, kMainNoFirst, Flash::used},
    {"word 1", 3099, {9, 0x80000002, 73, 74}, Awb::refused, 3099, kMain, Flash::used},
    {"word 2", 3099, {0, 2, 73, 74}, Awb::refused, 3099, {71, 2, 73, 74}, Flash::refused},
    {"word 3", 3099, {71, 0x80000002, 0, 74}, Awb::refused, 3099, {71, 0x80000002, 7, 74}, Flash::refused},
    {"word 4", 3099, {71, 0x80000002, 73, 7}, Awb::refused, 3099, {71, 0x80000002, 73, 0}, Flash::refused},
    {"three zeros", 3099, {0, 0, 0, 74}, Awb::refused, 3099, {0, 0, 0, 74}, Flash::refused},
    {"no flash record", 3099, kMain, Awb::used, 0, {}, Flash::none},
    {"bad flash CRC", 3099, kMain, Awb::used, 3099, kMain, Flash::bad_crc},
    {"bad AWB CRC", 3099, kMain, Awb::bad_crc, 3099, kMain, Flash::none},
};

/// The tuning after the row, and its log lines.
struct Effect {
  Floats tuning;
  Log log;
};

void expect_awb(const Row& row, const Words& words, Effect& effect) {
  effect.log = awb_lines(kName, words, kMain, row.awb);
  if (row.awb != Awb::used) return;
  const uint32_t version = std::max(1U, words[0] / 1000);  // 0 is served as 1
  effect.tuning =
      moved(effect.tuning, ratio(words[1], kGoldenRg[version - 1]), ratio(words[2], kGoldenBg[version - 1]));
  effect.log = effect.log + Log{I(printf_text("[AWB Calibration] use light version: v%u\n", version)),
                                I("[AWB Calibration] Parameter Setup Done !!!\n")};
}

void expect_flash(const Row& row, const Words& words, Effect& effect) {
  if (row.flash == Flash::none) return;
  const Crc crc = row.flash == Flash::bad_crc ? Crc::bad : Crc::good;
  effect.log = effect.log + record_lines(kName, "Flash Calibration", words, crc);
  if (crc == Crc::bad) return;
  const std::string start = kName + ", [Flash Calibration] ";
  const auto gains = [&effect] {
    return printf_text("led_flash_white_balance.r_gain, b_gain=(%f, %f)",
                       static_cast<double>(effect.tuning[3113]), static_cast<double>(effect.tuning[3115]));
  };
  effect.log.push_back(I(start + "Origin " + gains()));
  if (row.flash == Flash::refused) {
    effect.log.push_back(E(start + "Not load Flashlight-Calibraton data"));
    return;
  }
  effect.tuning[3113] = 4194301.0F;     // unsigned, unlike the AWB record's
  effect.tuning[3115] = 1.0771484375F;  // 1103 / 1024
  effect.log = effect.log + Log{I(start + "Load Flashlight-Calibraton data"), I(start + gains())};
}

TEST_F(ReferencePoints, EveryRecordIsUsedOrRefusedAsItsRowSays) {
  for (const Row& row : kRows) {
    const Words awb =
        record(row.awb_valid_word, row.awb_fuse, kValues, row.awb == Awb::bad_crc ? Crc::bad : Crc::good);
    const Words flash = record(row.flash_valid_word, row.flash_fuse, kFlashValues,
                               row.flash == Flash::bad_crc ? Crc::bad : Crc::good);
    put_words(kAwbFile, awb);
    put_words(kFlashFile, row.flash_fuse.empty() ? Words{} : flash);
    Effect effect{.tuning = made_tuning(), .log = {}};
    expect_awb(row, awb, effect);
    expect_flash(row, flash, effect);
    Floats tuning = made_tuning();
    const Log log = log_of([&] { tuning = correct(tuning); });
    EXPECT_EQ(without_loading(log), effect.log) << row.what;
    EXPECT_EQ(bits_of(tuning), bits_of(effect.tuning)) << row.what;
  }
  put_words(kAwbFile, record(3099, kMain, kValues));
  put_words(kFlashFile, {});
  put("/sys/android_camera_awb_cal/awb_cal", {});
  EXPECT_EQ(log_of([&] { correct(made_tuning()); }).back(),
            E(kName + ", [Flash Calibration] Not load Flashlight-Calibraton data"))
      << "an empty export is one of zeros";
}

TEST_F(ReferencePoints, TheArithmeticByHand) {
  put_words(kAwbFile, record(1099, kMain, {2048, 512}));
  const float golden[3] = {1, 0, 0};
  awb_calibration_set_GS(golden, golden);  // ratios 2 and 0.5
  const Floats triples = {1, 3, 1, 3, 1, 0.75F, 1, 1, 0.25F, 4, 5, 0.5F, 1.5F, 3, 0.375F, 2, 1, 0.5F};
  Floats tuning(kTuningFloats, 1);
  std::copy(triples.begin(), triples.end(), tuning.begin() + 3098);
  tuning = correct(tuning);
  EXPECT_EQ(Floats(tuning.begin() + 10, tuning.begin() + 16), (Floats{1, 1, 2, 0.5F, 2, 0.5F}));
  EXPECT_EQ(Floats(tuning.begin() + 38, tuning.begin() + 44), (Floats{2, 0.5F, 2, 0.5F, 1, 1}));
  // The fourth triple's slip: its own g as r, and the corrected g of the first as g.
  EXPECT_EQ(Floats(tuning.begin() + 3098, tuning.end()),
            (Floats{1, 6, 4, 1.5F, 1, 1.5F, 1, 2, 1, 5, 6, 1, 1, 4, 1, 1, 1, 1}));
}

TEST_F(ReferencePoints, NeitherADamagedNorACutRecordMovesAnythingNorBringsTheLastOneBack) {
  phone().set_log_mask(0x80);  // silent, and asked again for every line
  const Bytes good = le32(record(3099, kMain, kValues));
  put(kFlashFile, good);
  for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
    Bytes damaged = good;
    damaged[bit / 8] = static_cast<uint8_t>(damaged[bit / 8] ^ 1 << bit % 8);
    put(kAwbFile, damaged);
    expect_untouched("bit " + std::to_string(bit));
  }
  put_words(kFlashFile, {});
  for (size_t size = 0; size < good.size(); ++size) {
    put(kAwbFile, good);
    correct(made_tuning());
    put(kAwbFile, Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
    expect_untouched("cut to " + std::to_string(size));
  }
  put_words(kAwbFile, {});
  expect_untouched("no record");
}

/// The bits of what the ratios move.
Words moved_bits(const Floats& tuning) {
  Floats values(tuning.begin() + 12, tuning.begin() + 42);
  values.insert(values.end(), tuning.begin() + 3098, tuning.end());
  return bits_of(values);
}

TEST_F(ReferencePoints, TenThousandTuningsAreTheSameOnEveryProcessor) {
  phone().set_log_mask(0x80);
  Integers integers(2024);
  Floats tuning(kTuningFloats);
  Words words(2);
  const float odd_golden[] = {0.0F, -0.0F, -0.8F, std::nanf("")};
  for (size_t i = 0; i < 10000; ++i) {
    if (i % 50 == 0) {
      for (uint32_t& word : words) word = integers.next() >> integers.next() % 24;
      if (i % 100 == 0) words[1] = 0;
      put_words(kAwbFile, record(3099, kMain, words));
    }
    const bool is_odd = i % 50 < 4;
    const float rg[3] = {1, 1, is_odd ? odd_golden[i % 50] : integers.gain()};
    const float bg[3] = {1, 1, is_odd ? odd_golden[i % 50] : integers.gain()};
    awb_calibration_set_GS(rg, bg);
    std::generate(tuning.begin() + 12, tuning.begin() + 42, [&] { return integers.gain(); });
    std::generate(tuning.begin() + 3098, tuning.end(), [&] { return integers.gain(); });
    const Words expected = moved_bits(moved(tuning, ratio(words[0], rg[2]), ratio(words[1], bg[2])));
    ASSERT_EQ(moved_bits(correct(tuning)), expected) << i;
  }
}

}  // namespace
