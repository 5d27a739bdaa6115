// Which colour ratios does a dual-camera pair get from its D50 and A-light records?
// Guards against balancing the pair with another module's ratios, or with half of a record.

#include "tests/support/correction_support.h"

namespace {

using namespace support;

const std::string kName = "Dual_Cam_Correction";
const std::string kD50File = "/data/misc/camera/awb_cal", kALightFile = "/data/misc/camera/awb_A_light_cal";

Words awb(uint32_t valid_word, const Words& fuse, Crc crc = Crc::good) {
  return record(valid_word, fuse, {1126, 0x80000001}, crc);
}

const Words kGood = awb(3099, kThis);
const Words kDamaged = awb(3099, kThis, Crc::bad);
const Words kNoFirst = awb(3099, kThisNoFirst);

struct Row {
  const char* what;
  uint32_t camera;
  Words d50, a_light;  // empty: no file
  bool d50_used, a_light_used;
};

const Row kRows[] = {
    {"both good", 2, kGood, kGood, true, true},
    {"versions 0 and 1", 2, awb(99, kThis), awb(1099, kThis), true, true},
    {"version 4, judged bad", 2, awb(4099, kThis), awb(3000, kThis), false, false},
    {"any module", 2, awb(3099, kAny), awb(3099, kAny), true, true},
    {"a zero first word holds for A light", 2, kNoFirst, kNoFirst, true, true},
    {"then the whole ID no longer fits", 2, kNoFirst, kGood, true, false},
    {"from a refused record", 2, awb(3000, kThisNoFirst), kNoFirst, false, true},
    {"from a damaged one", 2, awb(3099, kThisNoFirst, Crc::bad), kNoFirst, false, true},
    {"but not from one that is not there", 2, {}, kNoFirst, false, false},
    {"A light's own zero counts for nothing", 2, kGood, kNoFirst, true, false},
    {"damaged D50", 2, kDamaged, kGood, false, true},
    {"damaged A light", 0, awb(3099, kMain), kDamaged, true, false},
    {"absent A light", 0, awb(3099, kMain), {}, true, false},
    {"other modules", 0, awb(3099, kStranger), awb(3099, kThis), false, false},
    {"main camera's, on front", 1, awb(3099, kMain), awb(99, kMain), true, true},
    {"main camera's, of version 4", 1, awb(4099, kMain), awb(3099, kMain), false, true},
    {"its zero does not join it", 1, awb(3099, kMainNoFirst), awb(3099, kMain), false, true},
    {"main camera's, on sub", 2, awb(3099, kMain), awb(3099, kMain), false, false},
    {"a stranger, on front", 1, awb(3099, kStranger), kGood, false, true},
};

Log pass_log(const char* light, const Words& record, bool used) {
  if (record.empty()) return record_lines(kName, "Dual Calibration", Words(8), Crc::bad, light);
  const Words& words = record;
  const Bytes sealed = le32({words.begin(), words.end() - 1});
  const Crc crc = bitwise_crc(sealed.data(), sealed.size()) == words.back() ? Crc::good : Crc::bad;
  const Log log = record_lines(kName, "Dual Calibration", words, crc, light);
  if (crc == Crc::bad) return log;
  const std::string start = kName + ", [Dual Calibration] ";
  return log + (used ? Log{I(start + "Load Calibraton data[1.099609,2097152.000000]")}
                     : Log{E(start + "Not load Dual-Calibraton data")});
}

class DualCamera : public CorrectionTest {};

TEST_F(DualCamera, EachLightIsUsedOrLeftAtOneAsItsRowSays) {
  for (const Row& row : kRows) {
    set_sensor_selection(row.camera);
    put_words(of_camera(kD50File, row.camera), row.d50);
    put_words(of_camera(kALightFile, row.camera), row.a_light);
    Floats ratios(6, 77);
    const Log log = log_of([&] { Dual_Cam_Correction(&ratios[1], &ratios[2], &ratios[3], &ratios[4]); });
    EXPECT_EQ(without_loading(log), fuse_lines(row.camera == 0 ? kMain : kThis) +
                                        pass_log("D50", row.d50, row.d50_used) +
                                        pass_log("A light", row.a_light, row.a_light_used))
        << row.what;
    Floats expected = {77, 1, 1, 1, 1, 77};
    if (row.d50_used) expected[1] = 1.099609375F, expected[2] = 2097152;  // unsigned, rounded to a float
    if (row.a_light_used) expected[3] = 1.099609375F, expected[4] = 2097152;
    EXPECT_EQ(ratios, expected) << row.what;
  }
}

/// A good record whose last byte is 0, as what is missing of a cut one is taken to be.
Words ending_in_zero() {
  for (uint32_t bg = 0;; ++bg) {
    Words words = record(3099, kThis, {1126, bg});
    if (words.back() >> 24 == 0) return words;
  }
}

TEST_F(DualCamera, NoCutRecordIsUsedOrTouchesTheOtherLight) {
  set_sensor_selection(2);
  for (const bool is_d50 : {false, true}) {
    put_words(of_camera(is_d50 ? kALightFile : kD50File, 2), kGood);
    for (Bytes cut = le32(ending_in_zero()); !cut.empty();) {
      cut.pop_back();
      put(of_camera(is_d50 ? kD50File : kALightFile, 2), cut);
      Floats ratios(4, 77);
      Dual_Cam_Correction(&ratios[0], &ratios[1], &ratios[2], &ratios[3]);
      const Floats expected =
          is_d50 ? Floats{1, 1, 1.099609375F, 2097152} : Floats{1.099609375F, 2097152, 1, 1};
      EXPECT_EQ(ratios, expected) << cut.size();
    }
  }
}

}  // namespace
