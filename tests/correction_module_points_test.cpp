// Does the newer entry hand out this module's ratios and correct its flash, by camera and record?
// Guards against foreign or unusable records in the flash colours, and against outputs written half.

#include "tests/correction_support.h"

namespace {

using support::E;
using support::Floats;
using support::I;
using support::kModule;
using support::Log;
using support::operator+;
using support::printf_text;
using support::Words;

constexpr const char* kAwbFile[] = {"/data/misc/camera/awb_cal", "/data/misc/camera/awb_cal_front_CAM",
                                    "/data/misc/camera/awb_cal_sub_CAM"};
constexpr const char* kFlashFile[] = {"/data/misc/camera/flash_dual_cal",
                                      "/data/misc/camera/flash_dual_cal_front_CAM"};
constexpr uint32_t kMainModule[4] = {71, 0x80000002, 73, 74};

const std::string kStart = "Correct_Reference_Points_qorModule, ";
const Words kThisModule = {kModule[0], kModule[1], kModule[2], kModule[3]};
const Words kMainCamera = {71, 0x80000002, 73, 74};
const Words kNoFirst = {0, kModule[1], kModule[2], kModule[3]};
const Words kMainNoFirst = {0, 0x80000002, 73, 74};
const Words kNobody = {0, 0, 0, 0};
const Words kStranger = {1, 2, 3, 4};

// Both LEDs 2 / 4, LED 1 alone 1 / 2, LED 2 alone 4 / 1, as colours.
const Words kTwoLeds = {1024, 512, 256, 1024, 512, 256};
const Words kScreen = {0, 0, 2048, 512, 256, 0x80000000};

Words awb(uint32_t valid_word, Words fuse, uint32_t rg = 788, uint32_t bg = 0x80000000) {
  fuse.insert(fuse.begin(), {valid_word, rg, bg});
  return support::with_crc(fuse);
}

Words flash(uint32_t valid_word, const Words& fuse, Words pairs = kTwoLeds, bool good = true) {
  pairs.insert(pairs.begin(), valid_word);
  pairs.insert(pairs.end(), fuse.begin(), fuse.end());
  return support::with_crc(pairs, good);
}

void put_half(Floats& tuning, size_t byte, uint32_t value) {
  const auto half = static_cast<uint16_t>(value);
  std::memcpy(reinterpret_cast<uint8_t*>(tuning.data()) + byte, &half, sizeof half);
}

struct Entry {
  uint32_t led1, led2;
  float x;
};

void put_table(Floats& tuning, const std::vector<Entry>& entries) {
  put_half(tuning, 6936, static_cast<uint32_t>(entries.size()));
  for (size_t i = 0; i < entries.size(); ++i) {
    put_half(tuning, 6940 + 28 * i + 2, entries[i].led1);
    put_half(tuning, 6940 + 28 * i + 4, entries[i].led2);
    tuning[1737 + 7 * i] = entries[i].x;
  }
}

// Both LEDs are strongest at entry 3.
const std::vector<Entry> kTable = {{10, 9, 8},  {20, 20, 7},    {30, 20, 6}, {100, 100, 4},
                                   {30, 30, 3}, {20, 10, 2.5F}, {10, 10, 2}};

struct Call {
  Floats tuning;
  Floats ratios = Floats(6, 77);  // module, flash first, flash second
  Log log = {};
};

Floats made_tuning() {
  support::Integers integers(11);
  Floats tuning(12464 / 4);
  for (float& value : tuning) value = integers.gain();
  const Floats golden = {0.5F, 0.25F, 0.75F};
  std::copy(golden.begin(), golden.end(), tuning.begin() + 2979);
  std::copy(golden.begin(), golden.end(), tuning.begin() + 3011);
  const Floats flash_gains = {2, 3, 4};
  std::copy(flash_gains.begin(), flash_gains.end(), tuning.begin() + 3113);
  put_table(tuning, kTable);
  return tuning;
}

class ModulePoints : public support::PhoneTest {
 protected:
  ModulePoints() : PhoneTest({.partition_size = 256 * 1024}) {
    fit_module("main", kMainModule);
    fit_module("front");
    fit_module("sub");
    for (const char* node : {"awb_cal", "awb_cal_front", "awb_cal_sub"})
      std::filesystem::remove(host("/sys/android_camera_awb_cal") / node);
  }
  void put_words(const char* path, const Words& words) { put(path, support::le32(words)); }
  Call call(Floats tuning = made_tuning()) {
    Call made{.tuning = std::move(tuning)};
    float* ratios = made.ratios.data();
    made.log = support::without_loading(log_of(
        [&] { Correct_Reference_Points_qorModule(made.tuning.data(), ratios, ratios + 2, ratios + 4); }));
    return made;
  }
};

// ---- the AWB step: on the sub camera the flash step is one line -------------------------------------------

enum class Awb { absent, bad_crc, refused, no_golden, used };

Log awb_log(Awb outcome, const Words& words, const uint32_t (&module)[4], float rg, float bg) {
  Log log = support::fuse_lines(module);
  log.push_back(I(printf_text("%s[AWB Calibration] fuse_id : 0x%x, 0x%x, 0x%x, 0x%x\n", kStart.c_str(),
                              module[0], module[1], module[2], module[3])));
  if (outcome == Awb::absent) return log;
  Log lines = support::record_lines("Correct_Reference_Points_qorModule", "AWB Calibration", words);
  for (size_t i = 1; i < lines.size(); ++i) lines[i].text.erase(0, kStart.size());
  if (outcome == Awb::bad_crc) return log + lines;
  lines[2].text = "[AWB Calibration] " + support::hex_list(words, 3, 4, " ", "") + "\n";
  log = log + lines;
  if (outcome == Awb::refused)
    return log + Log{E("[AWB Calibration] valid bit!=99 or calibration light version not in the list. Use "
                       "default setting.\n")};
  log = log + Log{I("[AWB Calibration] valid bit and fuseID pass, use new white points\n"),
                  I(printf_text("[AWB Calibration] GS ratio: %f,%f\n", static_cast<double>(rg),
                                static_cast<double>(bg)))};
  return log + (outcome == Awb::no_golden
                    ? Log{E("[AWB Calibration] invalid GS ratio\n")}
                    : Log{I(printf_text("[AWB Calibration] use light version: v%u\n", words[0] / 1000))});
}

struct AwbRow {
  const char* what;
  uint32_t camera;
  Words record;
  Awb expected;
};

const AwbRow kAwbRows[] = {
    {"version 0", 2, awb(99, kThisModule), Awb::refused},
    {"version 1", 2, awb(1099, kThisModule), Awb::used},
    {"version 3", 2, awb(3099, kThisModule), Awb::used},
    {"version 4", 2, awb(4099, kThisModule), Awb::refused},
    {"judged bad", 2, awb(3000, kThisModule), Awb::refused},
    {"any module", 2, awb(2099, kNobody), Awb::used},
    {"zero first word", 2, awb(2099, kNoFirst), Awb::used},
    {"another module", 2, awb(3099, kStranger), Awb::refused},
    {"the main camera's, on the sub camera", 2, awb(3099, kMainCamera), Awb::refused},
    {"the main camera's, on the front camera", 1, awb(3099, kMainCamera), Awb::used},
    {"its zero first word does not join the main camera's", 1, awb(3099, kMainNoFirst), Awb::refused},
    {"the main camera's, of version 0", 1, awb(99, kMainCamera), Awb::refused},
    {"the main camera's, of version 4", 1, awb(4099, kMainCamera), Awb::refused},
    {"another module on the front camera", 1, awb(3099, kStranger), Awb::refused},
    {"no golden value", 2, awb(2099, kThisModule), Awb::no_golden},
    {"damaged", 2, {3099, 788, 788, kModule[0], kModule[1], kModule[2], kModule[3], 1}, Awb::bad_crc},
    {"absent", 2, {}, Awb::absent},
};

TEST_F(ModulePoints, EveryAwbRecordIsUsedOrRefusedAsItsRowSays) {
  for (const AwbRow& row : kAwbRows) {
    SCOPED_TRACE(row.what);
    set_sensor_selection(row.camera);
    put_words(kAwbFile[row.camera], row.record);
    if (row.record.empty()) std::filesystem::remove(host(kAwbFile[row.camera]));
    Floats tuning = made_tuning();
    if (row.expected == Awb::no_golden) tuning[3011 + 1] = 0;
    const size_t version = row.record.empty() ? 1 : std::max(1U, row.record[0] / 1000) % 4;
    Log expected = awb_log(row.expected, row.record, kModule, tuning[2978 + version], tuning[3010 + version]);
    if (row.camera == 2 && (row.expected == Awb::used || row.expected == Awb::refused))
      expected.push_back(E(kStart + "[Flash Calibration] Not load Flashlight-Calibraton data"));
    const Call made = call(tuning);
    EXPECT_EQ(made.log, expected);
    EXPECT_EQ(support::bits_of(made.tuning), support::bits_of(tuning));
    const bool used = row.expected == Awb::used;
    EXPECT_EQ(made.ratios, (used ? Floats{0.76953125F, 2097152, 77, 77, 77, 77} : Floats(6, 77)));
  }
}

TEST_F(ModulePoints, TheTuningsGoldenSampleServesTheOlderEntryToo) {
  call();  // no record: the golden sample is taken all the same
  put_words(kAwbFile[0], awb(2099, kMainCamera, 512, 256));
  Floats tuning(12464 / 4, 1);
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
  EXPECT_EQ(Floats(tuning.begin() + 12, tuning.begin() + 14), (Floats{2, 1})) << "0.5 and 0.25 over 0.25";
}

TEST_F(ModulePoints, OnlyAGoldenValueOfZeroIsInvalid) {
  set_sensor_selection(2);
  put_words(kAwbFile[2], awb(1099, kThisModule));
  for (const auto& [golden, ratio] :
       {std::pair{0.0F, 77.0F}, {-0.0F, 77.0F}, {-1.0F, 0.76953125F}, {std::nanf(""), 0.76953125F}}) {
    for (const size_t place : {2979U, 3011U}) {
      Floats tuning = made_tuning();
      tuning[place] = golden;
      EXPECT_EQ(call(tuning).ratios[0], ratio) << golden;
    }
  }
}

// ---- the flash step: the AWB record is refused, so that it runs alone -------------------------------------

Log flash_log(uint32_t camera, const Words& words, const Words& module) {
  const std::string tag = camera == 0 ? "DualFlash Calibration" : "Flash Calibration";
  Log log = support::record_lines("Correct_Reference_Points_qorModule", tag, words);
  if (log.size() == 3) return log;  // its CRC is bad
  const std::string start = kStart + "[" + tag + "] ";
  return log + Log{I(start + "caFlashBuff " + support::hex_list(words, 7, 4, ", ", "#")),
                   I(start + "fuse_id_word " + support::hex_list(module, 0, 4, ", ", "#")),
                   I(start + "Origin led_flash_white_balance.r_gain, b_gain=(2.000000, 4.000000)")};
}

std::string gains_line(const char* tag, float r, float b) {
  return printf_text("%s[%s] led_flash_white_balance.r_gain, b_gain=(%f, %f)", kStart.c_str(), tag,
                     static_cast<double>(r), static_cast<double>(b));
}

struct FlashRow {
  const char* what;
  uint32_t camera;
  Words record;
  Words module;  // as the "fuse_id_word" line shows it
  Floats gains;  // of the flash, r and b; the tuning's own when refused
  Floats ratios;
  Log end;
};

Log two_leds_end() {
  Log log{I(kStart + "[DualFlash Calibration] Load Flashlight-Calibraton data"),
          I("dual_led_correction:[DualFlash Calibration]:max_pos[3]"),
          I("[DualFlash Calibration] [1.000000,2.000000,4.000000,1.000000,2.000000,4.000000]")};
  const float points[][2] = {{4, 1}, {3.5F, 1.75F}, {3, 2.5F}, {2, 4}, {1.5F, 3}, {1.25F, 2.5F}, {1, 2}};
  for (int i = 0; i < 7; ++i)
    log.push_back(I(printf_text("[DualFlash Calibration] new data[0, %d, %f,%f]", i,
                                static_cast<double>(points[i][0]), static_cast<double>(points[i][1]))));
  return log + Log{I(gains_line("DualFlash Calibration", 0.5F, 0.25F))};
}

Log screen_end(int colour, float r, float b) {
  const std::string start = kStart + "[LCDFlash Calibration] ";
  return {
      I(start + printf_text("Load Flashlight-Calibraton data(LCD color %d)", colour)),
      I("LCD_flash_correction, [LCDFlash Calibration] yellow(4.000000, 0.000000) white(0.500000, 2.000000)"),
      I(gains_line("LCDFlash Calibration", r, b))};
}

const Floats kKept = {2, 4};
const Floats kNone(4, 77);
const Floats kTuned = {1.5F, 0.75F, 1.5F, 0.75F};  // g / r and g / b, twice
const Log kMainRefused = {E(kStart + "[DualFlash Calibration] Not load Flashlight-Calibraton data")};
const Log kFrontRefused = {E(kStart + "[Flash Calibration] Not load Flashlight-Calibraton data")};

const FlashRow kFlashRows[] = {
    {"main, version 0", 0, flash(99, kMainCamera), kMainCamera, {0.5F, 0.25F}, kNone, two_leds_end()},
    {"main, any module", 0, flash(3099, kNobody), kMainNoFirst, {0.5F, 0.25F}, kNone, two_leds_end()},
    {"main, zero first word",
     0,
     flash(3099, kMainNoFirst),
     kMainNoFirst,
     {0.5F, 0.25F},
     kNone,
     two_leds_end()},
    {"main, version 4", 0, flash(4099, kMainCamera), kMainCamera, kKept, kNone, kMainRefused},
    {"main, judged bad", 0, flash(3000, kMainCamera), kMainCamera, kKept, kNone, kMainRefused},
    {"main, another module", 0, flash(3099, kStranger), kMainCamera, kKept, kNone, kMainRefused},
    {"main, damaged", 0, flash(3099, kMainCamera, kTwoLeds, false), {}, kKept, kNone, {}},
    {"front, two LEDs", 1, flash(3099, kThisModule), kThisModule, {0.5F, 0.25F}, kNone, two_leds_end()},
    {"front, screen",
     1,
     flash(3099, kThisModule, kScreen),
     kThisModule,
     {2, 0.5F},
     {0.5F, 2, 4, 0x1p-21F},
     screen_end(-1, 2, 0.5F)},
    {"front, version 4", 1, flash(4099, kThisModule, kScreen), kThisModule, kKept, kTuned, kFrontRefused},
    {"front, the main camera's", 1, flash(3099, kMainCamera), kThisModule, kKept, kTuned, kFrontRefused},
    {"front, damaged", 1, flash(3099, kThisModule, kScreen, false), {}, kKept, kNone, {}},
};

TEST_F(ModulePoints, EveryFlashRecordIsUsedOrRefusedAsItsRowSays) {
  for (const FlashRow& row : kFlashRows) {
    SCOPED_TRACE(row.what);
    set_sensor_selection(row.camera);
    const Words refused = awb(3000, row.camera == 0 ? kMainCamera : kThisModule);
    put_words(kAwbFile[row.camera], refused);
    put_words(kFlashFile[row.camera], row.record);
    const Call made = call();
    EXPECT_EQ(made.log, awb_log(Awb::refused, refused, row.camera == 0 ? kMainModule : kModule, 0, 0) +
                            flash_log(row.camera, row.record, row.module) + row.end);
    EXPECT_EQ((Floats{made.tuning[3113], made.tuning[3115]}), row.gains);
    EXPECT_EQ(Floats(made.ratios.begin() + 2, made.ratios.end()), row.ratios);
    if (row.gains == kKept) {
      EXPECT_EQ(support::bits_of(made.tuning), support::bits_of(made_tuning()));
    }
  }
}

TEST_F(ModulePoints, TheAwbRecordsZeroFirstWordReachesTheFlashRecord) {
  for (const uint32_t valid_word : {3099U, 3000U}) {
    put_words(kAwbFile[0], awb(valid_word, kMainNoFirst));
    put_words(kFlashFile[0], flash(3099, kMainCamera));
    const Call made = call();
    EXPECT_EQ(made.log.back(), kMainRefused[0]);
    EXPECT_EQ(made.tuning[3113], 2);
  }
}

TEST_F(ModulePoints, TheScreensColourIsAProperty) {
  set_sensor_selection(1);
  put_words(kAwbFile[1], awb(3099, kThisModule));
  put_words(kFlashFile[1], flash(3099, kThisModule, kScreen));
  for (const auto& [text, yellow] :
       {std::pair{"0", false}, {"-1", false}, {"3", true}, {"1", true}, {"x", false}}) {
    phone().set_property("persist.camera.disp.color", text);
    const Floats expected = yellow ? Floats{0.25F, 2097152} : Floats{2, 0.5F};
    const Call made = call();
    EXPECT_EQ((Floats{made.tuning[3113], made.tuning[3115]}), expected) << text;
  }
}

TEST_F(ModulePoints, NothingLoadedEndsTheCallSilently) {
  for (const uint32_t camera : {0U, 1U}) {
    set_sensor_selection(camera);
    const Words record = awb(3099, camera == 0 ? kMainCamera : kThisModule);
    put_words(kAwbFile[camera], record);
    for (const bool empty_file : {false, true}) {
      if (empty_file) put_words(kFlashFile[camera], {});
      const Call made = call();
      EXPECT_EQ(made.log, awb_log(Awb::used, record, camera == 0 ? kMainModule : kModule, 0.75F, 0.75F));
      EXPECT_EQ(support::bits_of(made.tuning), support::bits_of(made_tuning()));
    }
  }
}

TEST_F(ModulePoints, NullPointersTouchNothing) {
  put_words(kAwbFile[0], awb(3099, kMainCamera));
  for (int null = 0; null < 4; ++null) {
    Floats tuning = made_tuning();
    Floats ratios(6, 77);
    float* pointers[] = {tuning.data(), ratios.data(), ratios.data() + 2, ratios.data() + 4};
    pointers[null] = nullptr;
    Correct_Reference_Points_qorModule(pointers[0], pointers[1], pointers[2], pointers[3]);
    EXPECT_EQ(ratios, Floats(6, 77));
    EXPECT_EQ(support::bits_of(tuning), support::bits_of(made_tuning()));
  }
}

// ---- the table of two LEDs --------------------------------------------------------------------------------

class DualLed : public ModulePoints {
 protected:
  DualLed() { put_words(kAwbFile[0], awb(3000, kMainCamera)); }
  Call correct(const Words& pairs, const std::vector<Entry>& table, uint32_t count) {
    put_words(kFlashFile[0], flash(3099, kMainCamera, pairs));
    Floats tuning = made_tuning();
    put_table(tuning, table);
    put_half(tuning, 6936, count);
    return call(tuning);
  }
  /// The lines of the table's correction, without those around it.
  static Log table_lines(const Call& made) {
    Log log = made.log;
    std::erase_if(log, [](const phone::LogLine& line) {
      return !line.text.starts_with("dual_led_correction") && !line.text.starts_with("[DualFlash");
    });
    return log;
  }
};

TEST_F(DualLed, ColoursAreLaidOnTheMeasuredLines) {
  const Call made = correct(kTwoLeds, kTable, 7);
  Floats expected = made_tuning();
  const float points[][2] = {{4, 1}, {3.5F, 1.75F}, {3, 2.5F}, {2, 4}, {1.5F, 3}, {1.25F, 2.5F}, {1, 2}};
  for (size_t i = 0; i < 7; ++i) std::memcpy(&expected[1737 + 7 * i], points[i], sizeof points[i]);
  expected[3113] = 0.5F, expected[3115] = 0.25F;
  EXPECT_EQ(support::bits_of(made.tuning), support::bits_of(expected));
}

std::vector<Entry> changed(size_t place, Entry entry) {
  std::vector<Entry> table = kTable;
  table.at(place) = entry;
  return table;
}

TEST_F(DualLed, UnreasonableTablesAndRecordsAreRefusedAfterTheGains) {
  const std::vector<Entry> lag = {{100, 100, 5}, {300, 300, 4}, {200, 200, 3}, {150, 150, 2}, {100, 100, 1}};
  const std::string size = "entries_cct_led_lut < 3 or > MAX";
  const std::string zero = "led setting 0", none = "No max led setting in tuning";
  const std::string data = "Not reasonable data", tuning = "Not reasonable tuning", max = "max_pos[3]";
  struct Row {
    const char* what;
    Words pairs;
    std::vector<Entry> table;
    uint32_t count;
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {"no entries", kTwoLeds, kTable, 0, {size}},
      {"two entries", kTwoLeds, kTable, 2, {size}},
      {"17 entries", kTwoLeds, kTable, 17, {size}},
      {"65535 entries", kTwoLeds, kTable, 65535, {size}},
      {"LED 1 off", kTwoLeds, changed(6, {0, 10, 2}), 7, {zero}},
      {"LED 2 off", kTwoLeds, changed(1, {20, 0, 7}), 7, {zero}},
      {"LED 2 lags by an entry", kTwoLeds, lag, 5, {"LED1 max_pos[1] LED2 max_pos[0] not the same", none}},
      {"both strongest at entry 0", kTwoLeds, {{9, 9, 3}, {1, 9, 2}, {1, 1, 1}}, 3, {"max_pos[0]", none}},
      {"LED 1 and both equal in x", {512, 512, 256, 1024, 512, 256}, kTable, 7, {max, data}},
      {"LED 1 and both equal in y", {1024, 256, 256, 1024, 512, 256}, kTable, 7, {max, data}},
      {"LED 2 and both equal in x", {1024, 512, 512, 1024, 512, 256}, kTable, 7, {max, data}},
      {"LED 2 and both equal in y", {1024, 512, 256, 256, 512, 256}, kTable, 7, {max, data}},
      {"first and strongest entry equal", kTwoLeds, changed(0, {10, 9, 4}), 7, {max, tuning}},
      {"last and strongest entry equal", kTwoLeds, changed(6, {10, 10, 4}), 7, {max, tuning}},
      {"last is strongest", kTwoLeds, {{1, 1, 3}, {2, 1, 2}, {3, 3, 1}}, 3, {"max_pos[2]", tuning}},
  };
  for (const Row& row : rows) {
    const Call made = correct(row.pairs, row.table, row.count);
    Log lines = table_lines(made);
    std::erase_if(
        lines, [](const phone::LogLine& line) { return line.text.starts_with("[DualFlash Calibration] ["); });
    Log expected;
    for (const std::string& line : row.lines)
      expected.push_back(I("dual_led_correction:[DualFlash Calibration]:" + line));
    EXPECT_EQ(lines, expected) << row.what;
    EXPECT_EQ(made.log.back(), I(gains_line("DualFlash Calibration", 0.5F, 0.25F))) << row.what;
    for (size_t i = 0; i < row.table.size(); ++i)
      EXPECT_EQ(made.tuning[1737 + 7 * i], row.table[i].x) << row.what;
  }
}

/// The new colours of a table whose LEDs are both strongest at `peak`, every operation rounded on its own.
Floats laid_out(const std::vector<Entry>& table, size_t peak, const Floats& colours) {
  using support::difference, support::product, support::quotient, support::sum;
  const auto on_line = [&](float from_x, float from_y, float x) {
    const float slope = quotient(difference(from_y, colours[5]), difference(from_x, colours[4]));
    return sum(product(slope, x), difference(from_y, product(slope, from_x)));
  };
  const auto share = [&](size_t from, size_t i, size_t to) {
    return quotient(difference(table[from].x, table[i].x), difference(table[from].x, table[to].x));
  };
  const size_t last = table.size() - 1;
  Floats points;
  for (size_t i = 0; i <= last; ++i) {
    const bool below = i < peak;
    float x = below
                  ? difference(colours[2], product(share(0, i, peak), difference(colours[2], colours[4])))
                  : difference(colours[4], product(share(peak, i, last), difference(colours[4], colours[0])));
    float y = below ? on_line(colours[2], colours[3], x) : on_line(colours[0], colours[1], x);
    if (i == peak) x = colours[4], y = colours[5];
    if (i == last) x = colours[0], y = colours[1];
    points.insert(points.end(), {x, y});
  }
  return points;
}

TEST_F(DualLed, RandomTablesAreTheSameOnEveryProcessor) {
  phone().set_log_mask(0x80);
  support::Integers integers(77);
  uint64_t hash = 0xCBF29CE484222325;
  for (int i = 0; i < 600; ++i) {
    const size_t count = 4 + integers.next() % 13;
    const size_t peak = 1 + integers.next() % (count - 3);
    std::vector<Entry> table(count);
    for (Entry& entry : table) entry = {1 + integers.next() % 50, 7, integers.gain()};
    table[peak].led1 = 60, table[peak].led2 = 60, table[peak + 1].led2 = 9;
    Words pairs(6);
    Floats colours;
    for (uint32_t& word : pairs) {
      word = (integers.next() & 0x7FF) + 256 + static_cast<uint32_t>(&word - pairs.data());
      colours.push_back(static_cast<float>(1024.0 / word));
    }
    if (colours[0] == colours[4] || colours[1] == colours[5] || colours[2] == colours[4] ||
        colours[3] == colours[5])
      continue;
    if (table[0].x == table[peak].x || table.back().x == table[peak].x) continue;
    const Call made = correct(pairs, table, static_cast<uint32_t>(count));
    Floats points;
    for (size_t k = 0; k < count; ++k)
      points.insert(points.end(), {made.tuning[1737 + 7 * k], made.tuning[1738 + 7 * k]});
    ASSERT_EQ(support::bits_of(points), support::bits_of(laid_out(table, peak, colours))) << i;
    support::add_to_hash(hash, support::bits_of(points));
  }
  EXPECT_EQ(hash, 5934910169137540278U);
}

}  // namespace
