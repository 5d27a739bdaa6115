// Which AWB and flash records move the tuning's white points and gains, and to exactly which values?
// Guards against another module's ratios in the picture, and against results that differ between processors.

#include <algorithm>

#include "tests/correction_support.h"

namespace {

using support::Bytes;
using support::E;
using support::Floats;
using support::I;
using support::kModule;
using support::Log;
using support::operator+;
using support::printf_text;
using support::Words;

constexpr const char* kName = "QOR_AWB_Calibration_Reference_Points_Correction";
constexpr const char* kAwbFile = "/data/misc/camera/awb_cal";
constexpr const char* kFlashFile = "/data/misc/camera/flash_cal";
constexpr float kGoldenRg[3] = {0.7F, 0.8F, 0.9F};
constexpr float kGoldenBg[3] = {0.6F, -0.5F, 0.4F};
constexpr size_t kTuningFloats = 12464 / 4;

const Words kThisModule = {kModule[0], kModule[1], kModule[2], kModule[3]};
const Words kNoFirst = {0, kModule[1], kModule[2], kModule[3]};
const Words kNobody = {0, 0, 0, 0};

Words record(uint32_t valid_word, const Words& fuse, uint32_t rg = 1126, uint32_t bg = 0xFFFFF800) {
  Words words{valid_word, rg, bg};
  words.insert(words.end(), fuse.begin(), fuse.end());
  return words;
}

Words with(Words fuse, size_t place, uint32_t word) {
  fuse.at(place) = word;
  return fuse;
}

Floats made_tuning(uint32_t seed) {
  support::Integers integers(seed);
  Floats tuning(kTuningFloats);
  for (float& value : tuning) value = integers.gain();
  return tuning;
}

constexpr std::pair<int, int> kMoved[] = {{12, 42}, {3098, 3116}};

/// The bits of what the ratios move.
Words moved_bits(const Floats& tuning) {
  Floats values;
  for (const auto& [from, to] : kMoved)
    values.insert(values.end(), tuning.begin() + from, tuning.begin() + to);
  return support::bits_of(values);
}

/// Module over golden sample; the word is signed.
float ratio(uint32_t word, float golden) {
  return support::quotient(static_cast<float>(static_cast<int32_t>(word)), support::product(golden, 1024));
}

/// What the ratios make of a tuning, every operation rounded on its own.
Floats moved(Floats tuning, float rg, float bg) {
  for (size_t i = 12; i < 42; i += 2) {
    tuning[i] = support::product(tuning[i], rg);
    tuning[i + 1] = support::product(tuning[i + 1], bg);
  }
  float g_before = 0;
  for (const size_t at : {3101U, 3104U, 3098U, 3107U, 3110U, 3113U}) {
    const bool is_fourth = at == 3107;
    float r = is_fourth ? tuning[at + 1] : support::quotient(tuning[at], rg);
    float g = is_fourth ? g_before : tuning[at + 1];
    float b = support::quotient(tuning[at + 2], bg);
    if (r < 1 || b < 1) {
      const float least = r < b ? r : b;
      r = support::quotient(r, least), g = support::quotient(g, least), b = support::quotient(b, least);
    }
    tuning[at] = r, tuning[at + 1] = g_before = g, tuning[at + 2] = b;
  }
  return tuning;
}

class ReferencePoints : public support::PhoneTest {
 protected:
  ReferencePoints() : PhoneTest({.partition_size = 256 * 1024}) {
    fit_module("main");
    remove("/sys/android_camera_awb_cal/awb_cal");
    awb_calibration_set_GS(kGoldenRg, kGoldenBg);
  }
  void put_words(const char* path, const Words& words) { put(path, support::le32(words)); }
  void remove(const char* path) { std::filesystem::remove(host(path)); }
  static Floats correct(Floats tuning) {
    QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
    return tuning;
  }
};

enum class Flash { none, bad_crc, refused, used };

struct Row {
  const char* what;
  Words awb;
  int version;  // 0: refused; -1: bad CRC
  Words flash;  // empty: no file
  Flash expected;
};

const Row kRows[] = {
    {"version 0 is served as 1", record(99, kThisModule), 1, record(99, kThisModule), Flash::used},
    {"version 1", record(1099, kThisModule), 1, record(1099, kThisModule), Flash::used},
    {"version 2", record(2099, kThisModule), 2, record(2099, kThisModule), Flash::used},
    {"version 3", record(3099, kThisModule), 3, record(3099, kThisModule), Flash::used},
    {"version 4", record(4099, kThisModule), 0, record(4099, kThisModule), Flash::refused},
    {"word past 2^31", record(4294967099, kThisModule), 0, record(4294967099, kThisModule), Flash::refused},
    {"judged bad", record(3000, kThisModule), 0, record(3000, kThisModule), Flash::refused},
    {"empty slot", Words(7, 0), 0, Words(7, 0), Flash::refused},
    {"any module", record(3099, kNobody), 3, record(3099, kNobody), Flash::used},
    {"zero first word", record(3099, kNoFirst), 3, record(3099, kNoFirst), Flash::used},
    {"its zero holds for the flash record", record(3099, kNoFirst), 3, record(3099, kThisModule),
     Flash::refused},
    {"also when it is refused", record(3000, kNoFirst), 0, record(3099, kThisModule), Flash::refused},
    {"also when it is any module's", record(3099, kNobody), 3, record(3099, kThisModule), Flash::refused},
    {"the flash record's own zero", record(3099, kThisModule), 3, record(3099, kNoFirst), Flash::used},
    {"first word differs", record(3099, with(kThisModule, 0, 9)), 0, record(3099, kThisModule), Flash::used},
    {"second word differs", record(3099, with(kNoFirst, 1, 9)), 0, record(3099, with(kNoFirst, 1, 9)),
     Flash::refused},
    {"third word differs", record(3099, with(kThisModule, 2, 0)), 0, record(3099, with(kThisModule, 2, 0)),
     Flash::refused},
    {"fourth word differs", record(3099, with(kThisModule, 3, 9)), 0, record(3099, with(kThisModule, 3, 9)),
     Flash::refused},
    {"no flash record", record(3099, kThisModule), 3, {}, Flash::none},
    {"bad flash CRC", record(3099, kThisModule), 3, record(3099, kThisModule), Flash::bad_crc},
    {"bad AWB CRC leaves the flash out", record(3099, kThisModule), -1, record(3099, kThisModule),
     Flash::none},
};

/// The tuning after the row, and its log lines.
struct Effect {
  Floats tuning;
  Log log;
};

void expect_awb(const Row& row, const Words& words, Effect& effect) {
  effect.log = support::fuse_lines(kModule) +
               Log{I(printf_text("%s, [AWB Calibration] fuse_id : 0x%x, 0x%x, 0x%x, 0x%x\n", kName,
                                 kModule[0], kModule[1], kModule[2], kModule[3]))};
  Log lines = support::record_lines(kName, "AWB Calibration", words);
  for (size_t i = 1; i < lines.size(); ++i) lines[i].text.erase(0, std::strlen(kName) + 2);
  if (row.version >= 0) {
    lines[2].text = "[AWB Calibration] " + support::hex_list(words, 3, 4, " ", "") + "\n";
    lines.push_back(row.version > 0 ? I("[AWB Calibration] valid bit and fuseID pass, use new white points\n")
                                    : E("[AWB Calibration] valid bit!=99 or calibration light version not in "
                                        "the list. Use default setting.\n"));
  }
  effect.log = effect.log + lines;
  if (row.version <= 0) return;
  effect.tuning = moved(effect.tuning, ratio(1126, kGoldenRg[row.version - 1]),
                        ratio(0xFFFFF800, kGoldenBg[row.version - 1]));
  effect.log = effect.log + Log{I(printf_text("[AWB Calibration] use light version: v%d\n", row.version)),
                                I("[AWB Calibration] Parameter Setup Done !!!\n")};
}

void expect_flash(const Row& row, const Words& words, Effect& effect) {
  if (row.expected == Flash::none) return;
  effect.log = effect.log + support::record_lines(kName, "Flash Calibration", words);
  if (row.expected == Flash::bad_crc) return;
  const auto gains = [&effect] {
    return printf_text("led_flash_white_balance.r_gain, b_gain=(%f, %f)",
                       static_cast<double>(effect.tuning[3113]), static_cast<double>(effect.tuning[3115]));
  };
  const std::string start = std::string(kName) + ", [Flash Calibration] ";
  effect.log.push_back(I(start + "Origin " + gains()));
  if (row.expected == Flash::refused) {
    effect.log.push_back(E(start + "Not load Flashlight-Calibraton data"));
    return;
  }
  effect.tuning[3113] = 1.099609375F;  // 1126 / 1024
  effect.tuning[3115] = 4194302.0F;    // unsigned, unlike the AWB record's
  effect.log = effect.log + Log{I(start + "Load Flashlight-Calibraton data"), I(start + gains())};
}

TEST_F(ReferencePoints, EveryRecordIsUsedOrRefusedAsItsRowSays) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    const Words awb = support::with_crc(row.awb, row.version >= 0);
    put_words(kAwbFile, awb);
    const Words flash =
        row.flash.empty() ? Words(8) : support::with_crc(row.flash, row.expected != Flash::bad_crc);
    put_words(kFlashFile, flash);
    if (row.flash.empty()) remove(kFlashFile);
    Effect effect{.tuning = made_tuning(7), .log = {}};
    expect_awb(row, awb, effect);
    expect_flash(row, flash, effect);
    Floats tuning = made_tuning(7);
    const Log log = log_of([&] { tuning = correct(tuning); });
    EXPECT_EQ(support::without_loading(log), effect.log);
    EXPECT_EQ(support::bits_of(tuning), support::bits_of(effect.tuning));
  }
}

TEST_F(ReferencePoints, TheArithmeticByHand) {
  put_words(kAwbFile, support::with_crc(record(1099, kThisModule, 2048, 512)));
  const float golden[3] = {1, 0, 0};
  awb_calibration_set_GS(golden, golden);  // ratios 2 and 0.5
  Floats tuning(kTuningFloats, 1);
  const Floats triples = {1, 3, 1, 3, 1, 0.75F, 1, 1, 0.25F, 4, 5, 0.5F, 1.5F, 3, 0.375F, 2, 1, 0.5F};
  std::copy(triples.begin(), triples.end(), tuning.begin() + 3098);
  tuning = correct(tuning);
  EXPECT_EQ(Floats(tuning.begin() + 10, tuning.begin() + 16), (Floats{1, 1, 2, 0.5F, 2, 0.5F}));
  EXPECT_EQ(Floats(tuning.begin() + 38, tuning.begin() + 44), (Floats{2, 0.5F, 2, 0.5F, 1, 1}));
  EXPECT_EQ(Floats(tuning.begin() + 3098, tuning.begin() + 3116),
            (Floats{1, 6, 4,        // 0.5, 3, 2 over 0.5
                    1.5F, 1, 1.5F,  // nothing below 1
                    1, 2, 1,        // equal: over b
                    5, 6, 1,        // the slip: own g as r, the first triple's corrected g as g
                    1, 4, 1,        // both below 1 and equal
                    1, 1, 1}));
}

TEST_F(ReferencePoints, GoldenValuesOfZeroAndNaNFollowTheArithmetic) {
  put_words(kAwbFile, support::with_crc(record(1099, kThisModule, 1126, 0)));
  for (const float golden : {0.0F, -0.0F, -0.8F, std::nanf("")}) {
    const float values[3] = {golden, 1, 1};
    awb_calibration_set_GS(values, values);
    EXPECT_EQ(support::bits_of(correct(made_tuning(3))),
              support::bits_of(moved(made_tuning(3), ratio(1126, golden), ratio(0, golden))));
  }
}

TEST_F(ReferencePoints, NoDamagedRecordMovesAnything) {
  const Bytes good = support::le32(support::with_crc(record(3099, kThisModule)));
  put(kFlashFile, good);
  const Words before = support::bits_of(made_tuning(5));
  phone().set_log_mask(0x80);  // silent, and asked again for every line
  for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
    put(kAwbFile, good);
    correct(made_tuning(5));
    Bytes damaged = good;
    damaged[bit / 8] = static_cast<uint8_t>(damaged[bit / 8] ^ 1 << bit % 8);
    put(kAwbFile, damaged);
    EXPECT_EQ(support::bits_of(correct(made_tuning(5))), before) << "bit " << bit;
  }
}

TEST_F(ReferencePoints, ATruncatedFileNeverBringsThePreviousRecordBack) {
  const Bytes good = support::le32(support::with_crc(record(3099, kThisModule)));
  for (size_t size = 0; size < good.size(); ++size) {
    put(kAwbFile, good);
    correct(made_tuning(5));
    put(kAwbFile, {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)});
    EXPECT_EQ(support::bits_of(correct(made_tuning(5))), support::bits_of(made_tuning(5))) << size;
  }
  remove(kAwbFile);
  EXPECT_EQ(support::bits_of(correct(made_tuning(5))), support::bits_of(made_tuning(5)));
  QOR_AWB_Calibration_Reference_Points_Correction(nullptr);
}

TEST_F(ReferencePoints, TenThousandTuningsAreTheSameOnEveryProcessor) {
  phone().set_log_mask(0x80);
  support::Integers integers(2024);
  Floats tuning(kTuningFloats);
  uint64_t hash = 0xCBF29CE484222325;
  Words words(2);
  for (int i = 0; i < 10000; ++i) {
    if (i % 50 == 0) {
      for (uint32_t& word : words) word = integers.next() >> integers.next() % 24;
      put_words(kAwbFile, support::with_crc(record(3099, kThisModule, words[0], words[1])));
    }
    const float rg[3] = {1, 1, integers.gain()};
    const float bg[3] = {1, 1, integers.gain()};
    awb_calibration_set_GS(rg, bg);
    for (const auto& [from, to] : kMoved)
      std::generate(tuning.begin() + from, tuning.begin() + to, [&integers] { return integers.gain(); });
    const Words expected = moved_bits(moved(tuning, ratio(words[0], rg[2]), ratio(words[1], bg[2])));
    const Words got = moved_bits(correct(tuning));
    ASSERT_EQ(got, expected) << i;
    support::add_to_hash(hash, got);
  }
  EXPECT_EQ(hash, 17008708218293014431U);
}

}  // namespace
