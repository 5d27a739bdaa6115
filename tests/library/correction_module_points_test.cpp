// Does the newer entry hand out this module's ratios and correct its flash, by camera and record?
// Guards against foreign or unusable records in the flash colours, and against outputs written half.

#include "tests/support/correction_support.h"

namespace {

using namespace support;

const std::string kAwbFile = "/data/misc/camera/awb_cal", kFlashFile = "/data/misc/camera/flash_dual_cal";

const std::string kName = "Correct_Reference_Points_qorModule";

// Both LEDs 2 / 4, LED 1 alone 1 / 2, LED 2 alone 4 / 1, as colours.
const Words kTwoLeds = {1024, 512, 256, 1024, 512, 256};
const Words kScreen = {0, 0, 2048, 512, 256, 0x80000000};

Words awb(uint32_t valid_word, const Words& fuse, Crc crc = Crc::good) {
  return record(valid_word, fuse, {788, 0x80000000}, crc);
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

// What they are laid out to.
constexpr float kLaidOut[][2] = {{4, 1}, {3.5F, 1.75F}, {3, 2.5F}, {2, 4}, {1.5F, 3}, {1.25F, 2.5F}, {1, 2}};

struct Call {
  Floats tuning;
  Floats ratios = Floats(6, 77);  // module, flash first, flash second
  Log log = {};
};

Floats made_tuning() {
  Floats tuning = Integers(11).gains(12464 / 4);
  for (const size_t golden : {2979U, 3011U})
    tuning[golden] = 0.5F, tuning[golden + 1] = 0.25F, tuning[golden + 2] = 0.75F;
  tuning[3113] = 2, tuning[3114] = 3, tuning[3115] = 4;
  put_table(tuning, kTable);
  return tuning;
}

class ModulePoints : public CorrectionTest {
 protected:
  Call call(Floats tuning = made_tuning()) {
    Call made{.tuning = std::move(tuning)};
    float* to = made.ratios.data();
    made.log = without_loading(
        log_of([&] { Correct_Reference_Points_qorModule(made.tuning.data(), to, to + 2, to + 4); }));
    return made;
  }
};

// ---- the AWB step: on the sub camera the flash step is one line -------------------------------------------

struct AwbRow {
  const char* what;
  uint32_t camera;
  Words record;  // empty: no file
  Awb expected;
};

const AwbRow kAwbRows[] = {
    {"version 0", 2, awb(99, kThis), Awb::refused},
    {"version 1", 2, awb(1099, kThis), Awb::used},
    {"version 3", 2, awb(3099, kThis), Awb::used},
    {"version 4", 2, awb(4099, kThis), Awb::refused},
    {"judged bad", 2, awb(3000, kThis), Awb::refused},
    {"any module", 2, awb(2099, kAny), Awb::used},
    {"zero first word", 2, awb(2099, kThisNoFirst), Awb::used},
    {"another module", 2, awb(3099, kStranger), Awb::refused},
    {"main camera's, on sub", 2, awb(3099, kMain), Awb::refused},
    {"main camera's, on front", 1, awb(3099, kMain), Awb::used},
    {"its zero does not join it", 1, awb(3099, kMainNoFirst), Awb::refused},
    {"main camera's, version 0", 1, awb(99, kMain), Awb::refused},
    {"main camera's, version 4", 1, awb(4099, kMain), Awb::refused},
    {"another module, on front", 1, awb(3099, kStranger), Awb::refused},
    {"damaged", 2, awb(3099, kThis, Crc::bad), Awb::bad_crc},
    {"absent", 2, {}, Awb::absent},
};

TEST_F(ModulePoints, EveryAwbRecordIsUsedOrRefusedAsItsRowSays) {
  const char* golden[] = {"", "0.500000,0.500000", "0.250000,0.250000", "0.750000,0.750000"};
  for (const AwbRow& row : kAwbRows) {
    set_sensor_selection(row.camera);
    put_words(of_camera(kAwbFile, row.camera), row.record);
    Log expected = awb_lines(kName, row.record, kThis, row.expected);
    const bool used = row.expected == Awb::used;
    const uint32_t version = used ? row.record[0] / 1000 : 0;
    if (used) expected.push_back(I(std::string("[AWB Calibration] GS ratio: ") + golden[version] + "\n"));
    if (used) expected.push_back(I(printf_text("[AWB Calibration] use light version: v%u\n", version)));
    if (row.camera == 2 && (used || row.expected == Awb::refused))
      expected.push_back(E(kName + ", [Flash Calibration] Not load Flashlight-Calibraton data"));
    const Call made = call();
    EXPECT_EQ(made.log, expected) << row.what;
    EXPECT_EQ(bits_of(made.tuning), bits_of(made_tuning())) << row.what;
    EXPECT_EQ(made.ratios, (used ? Floats{0.76953125F, 2097152, 77, 77, 77, 77} : Floats(6, 77))) << row.what;
  }
}

TEST_F(ModulePoints, TheTuningsGoldenSampleServesTheOlderEntryToo) {
  call();  // no record: the golden sample is taken all the same
  put_words(kAwbFile, record(2099, kMain, {512, 256}));
  Floats tuning(12464 / 4, 1);
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
  EXPECT_EQ(Floats(tuning.begin() + 12, tuning.begin() + 14), (Floats{2, 1})) << "0.5 and 0.25 over 0.25";
}

TEST_F(ModulePoints, AGoldenValueOfZeroEndsTheCall) {
  put_words(kAwbFile, record(1099, kMain, {0x80000000, 788}));
  put_words(kFlashFile, record(3099, kMain, kTwoLeds));
  for (const float golden : {0.0F, -0.0F, -1.0F, std::nanf("")}) {
    for (const size_t place : {2979U, 3011U}) {
      Floats tuning = made_tuning();
      tuning[place] = golden;
      const Call made = call(tuning);
      EXPECT_EQ(made.ratios[0], golden == 0 ? 77 : 2097152) << golden;
      EXPECT_EQ(made.tuning[3113], golden == 0 ? 2 : 0.5F) << "the flash step is left out as well";
      EXPECT_EQ(made.log.back() == E("[AWB Calibration] invalid GS ratio\n"), golden == 0);
    }
  }
}

// ---- the flash step: the AWB record is refused, so that it runs alone -------------------------------------

std::string gains_line(const char* tag, float r, float b) {
  return printf_text("%s, [%s] led_flash_white_balance.r_gain, b_gain=(%f, %f)", kName.c_str(), tag,
                     static_cast<double>(r), static_cast<double>(b));
}

Log two_leds_lines() {
  Log log{I(kName + ", [DualFlash Calibration] Load Flashlight-Calibraton data"),
          I("dual_led_correction:[DualFlash Calibration]:max_pos[3]"),
          I("[DualFlash Calibration] [1.000000,2.000000,4.000000,1.000000,2.000000,4.000000]")};
  for (size_t i = 0; i < 7; ++i)
    log.push_back(I(printf_text("[DualFlash Calibration] new data[0, %zu, %f,%f]", i,
                                static_cast<double>(kLaidOut[i][0]), static_cast<double>(kLaidOut[i][1]))));
  return log + Log{I(gains_line("DualFlash Calibration", 0.5F, 0.25F))};
}

Log screen_lines(int colour, float r, float b) {
  const std::string start = kName + ", [LCDFlash Calibration] ";
  return {
      I(start + printf_text("Load Flashlight-Calibraton data(LCD color %d)", colour)),
      I("LCD_flash_correction, [LCDFlash Calibration] yellow(4.000000, 0.000000) white(0.500000, 2.000000)"),
      I(gains_line("LCDFlash Calibration", r, b))};
}

enum class Flash { bad_crc, refused, two_leds, screen };

struct FlashRow {
  const char* what;
  uint32_t camera;
  uint32_t valid_word;
  Words fuse;
  Flash expected;
};

const FlashRow kFlashRows[] = {{"version 0", 0, 99, kMain, Flash::two_leds},
                               {"any module", 0, 3099, kAny, Flash::two_leds},
                               {"zero word", 0, 3099, kMainNoFirst, Flash::two_leds},
                               {"version 4", 0, 4099, kMain, Flash::refused},
                               {"judged bad", 0, 3000, kMain, Flash::refused},
                               {"stranger", 0, 3099, kStranger, Flash::refused},
                               {"damaged", 0, 3099, kMain, Flash::bad_crc},
                               {"two LEDs", 1, 3099, kThis, Flash::two_leds},
                               {"screen", 1, 3099, kThis, Flash::screen},
                               {"version 4", 1, 4099, kThis, Flash::refused},
                               {"main's", 1, 3099, kMain, Flash::refused},
                               {"damaged", 1, 3099, kThis, Flash::bad_crc}};

/// The lines of the flash step.
Log flash_log(const FlashRow& row, const Words& words) {
  const std::string tag = row.camera == 0 ? "DualFlash Calibration" : "Flash Calibration";
  const Log log = record_lines(kName, tag, words, row.expected == Flash::bad_crc ? Crc::bad : Crc::good);
  if (row.expected == Flash::bad_crc) return log;
  Words module = row.camera == 0 ? kMain : kThis;
  if (words[7] == 0) module[0] = 0;
  const std::string start = kName + ", [" + tag + "] ";
  return log +
         Log{I(start + "caFlashBuff " + hex_list(words, 7, 4)),
             I(start + "fuse_id_word " + hex_list(module, 0, 4)),
             I(start + "Origin led_flash_white_balance.r_gain, b_gain=(2.000000, 4.000000)")} +
         (row.expected == Flash::two_leds ? two_leds_lines()
          : row.expected == Flash::screen ? screen_lines(-1, 2, 0.5F)
                                          : Log{E(start + "Not load Flashlight-Calibraton data")});
}

/// What the call leaves of the tuning and hands out.
Call flash_effect(const FlashRow& row) {
  Call effect{.tuning = made_tuning()};
  if (row.expected == Flash::two_leds) {
    for (size_t i = 0; i < 7; ++i) std::memcpy(&effect.tuning[1737 + 7 * i], kLaidOut[i], sizeof kLaidOut[i]);
    effect.tuning[3113] = 0.5F, effect.tuning[3115] = 0.25F;
  } else if (row.expected == Flash::screen) {
    effect.tuning[3113] = 2, effect.tuning[3115] = 0.5F;
    effect.ratios = {77, 77, 0.5F, 2, 4, 0x1p-21F};
  } else if (row.expected == Flash::refused && row.camera == 1) {
    effect.ratios = {77, 77, 1.5F, 0.75F, 1.5F, 0.75F};  // g / r and g / b, twice
  }
  return effect;
}

TEST_F(ModulePoints, EveryFlashRecordIsUsedOrRefusedAsItsRowSays) {
  for (const FlashRow& row : kFlashRows) {
    set_sensor_selection(row.camera);
    const Words& module = row.camera == 0 ? kMain : kThis;
    const bool is_screen = row.camera == 1 && row.expected != Flash::two_leds;
    const Words words = record(row.valid_word, row.fuse, is_screen ? kScreen : kTwoLeds,
                               row.expected == Flash::bad_crc ? Crc::bad : Crc::good);
    put_words(of_camera(kAwbFile, row.camera), awb(3000, module));
    put_words(of_camera(kFlashFile, row.camera), words);
    const Call made = call();
    EXPECT_EQ(made.log, awb_lines(kName, awb(3000, module), module, Awb::refused) + flash_log(row, words))
        << row.what;
    EXPECT_EQ(bits_of(made.tuning), bits_of(flash_effect(row).tuning)) << row.what;
    EXPECT_EQ(made.ratios, flash_effect(row).ratios) << row.what;
  }
}

TEST_F(ModulePoints, TheAwbRecordsZeroFirstWordReachesTheFlashRecord) {
  put_words(kFlashFile, record(3099, kMain, kTwoLeds));
  for (const uint32_t valid_word : {3099U, 3000U}) {
    put_words(kAwbFile, awb(valid_word, kMainNoFirst));
    EXPECT_EQ(call().log.back(), E(kName + ", [DualFlash Calibration] Not load Flashlight-Calibraton data"));
  }
}

TEST_F(ModulePoints, TheScreensColourIsAProperty) {
  set_sensor_selection(1);
  put_words(of_camera(kAwbFile, 1), awb(3099, kThis));
  put_words(of_camera(kFlashFile, 1), record(3099, kThis, kScreen));
  for (const auto& [text, yellow] :
       {std::pair{"0", false}, {"-1", false}, {"3", true}, {"-2", true}, {"x", false}}) {
    phone().set_property("persist.camera.disp.color", text);
    const Call made = call();
    EXPECT_EQ((Floats{made.tuning[3113], made.tuning[3115]}),
              (yellow ? Floats{0.25F, 2097152} : Floats{2, 0.5F}))
        << text;
  }
  for (const Words& first_pair : {Words{0, 512}, Words{1024, 0}}) {
    Words two_leds = kScreen;
    std::copy(first_pair.begin(), first_pair.end(), two_leds.begin());
    put_words(of_camera(kFlashFile, 1), record(3099, kThis, two_leds));
    EXPECT_EQ(call().ratios[2], 77) << "no screen, if but one word of the pair is 0";
  }
}

TEST_F(ModulePoints, NothingLoadedEndsTheCallSilently) {
  for (const uint32_t camera : {0U, 1U}) {
    set_sensor_selection(camera);
    put_words(of_camera(kAwbFile, camera), awb(3099, camera == 0 ? kMain : kThis));
    for (const bool is_empty_file : {false, true}) {
      if (is_empty_file) put(of_camera(kFlashFile, camera), {});
      const Call made = call();
      EXPECT_EQ(made.log.back(), I("[AWB Calibration] use light version: v3\n"));
      EXPECT_EQ(bits_of(made.tuning), bits_of(made_tuning()));
    }
  }
}

// ---- the table of two LEDs --------------------------------------------------------------------------------

class DualLed : public ModulePoints {
 protected:
  DualLed() { put_words(kAwbFile, awb(3000, kMain)); }
  Call correct(const Words& pairs, const std::vector<Entry>& table, uint32_t count) {
    put_words(kFlashFile, record(3099, kMain, pairs));
    Floats tuning = made_tuning();
    put_table(tuning, table);
    put_half(tuning, 6936, count);
    return call(tuning);
  }
  /// The lines that say why the table is refused.
  static std::vector<std::string> reasons(const Call& made) {
    const std::string start = "dual_led_correction:[DualFlash Calibration]:";
    std::vector<std::string> lines;
    for (const LogLine& line : made.log)
      if (line.text.starts_with(start) && line.priority == 4) lines.push_back(line.text.substr(start.size()));
    return lines;
  }
};

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
    std::vector<std::string> reasons;
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
    EXPECT_EQ(reasons(made), row.reasons) << row.what;
    EXPECT_EQ(made.log.back(), I(gains_line("DualFlash Calibration", 0.5F, 0.25F))) << row.what;
    for (size_t i = 0; i < row.table.size(); ++i)
      EXPECT_EQ(made.tuning[1737 + 7 * i], row.table[i].x) << row.what;
  }
  for (const size_t place : {0U, 3U, 6U}) {
    const Entry nan{kTable[place].led1, kTable[place].led2, std::nanf("")};
    const Call made = correct(kTwoLeds, changed(place, nan), 7);
    EXPECT_EQ(reasons(made), std::vector{max}) << "a NaN is equal to nothing";
    EXPECT_EQ(made.tuning[1737 + 7 * 6], 1) << "laid out";
  }
}

/// The new colours of a table whose LEDs are both strongest at `peak`, every operation rounded on its own.
Floats laid_out(const std::vector<Entry>& table, size_t peak, const Floats& colours) {
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
  Integers integers(77);
  for (int i = 0; i < 600; ++i) {
    const size_t count = 4 + integers.next() % 13;
    const size_t peak = 1 + integers.next() % (count - 3);
    std::vector<Entry> table(count);
    for (Entry& entry : table) entry = {1 + integers.next() % 50, 7, integers.gain()};
    table[peak].led1 = 60, table[peak].led2 = 60, table[peak + 1].led2 = 9;
    if (i % 2 == 0) table[peak + 1].led1 = 60;  // the first of them is the strongest
    Words pairs(6);
    Floats colours;
    for (uint32_t& word : pairs) {
      word = (integers.next() & 0x7FF) + 256 + static_cast<uint32_t>(&word - pairs.data());
      if (i % 8 == 0) word |= 0x80000000;  // words have no sign
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
    ASSERT_EQ(bits_of(points), bits_of(laid_out(table, peak, colours))) << i;
  }
}

}  // namespace
