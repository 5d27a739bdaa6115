// Which colour ratios does a dual-camera pair get from its D50 and A-light records?
// Guards against balancing the pair with another module's ratios, or with half of a record.

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

constexpr uint32_t kMainModule[4] = {71, 72, 73, 74};
const std::string kName = "Dual_Cam_Correction";
constexpr const char* kD50File[] = {"/data/misc/camera/awb_cal", "/data/misc/camera/awb_cal_front_CAM",
                                    "/data/misc/camera/awb_cal_sub_CAM"};
constexpr const char* kALightFile[] = {"/data/misc/camera/awb_A_light_cal",
                                       "/data/misc/camera/awb_A_light_cal_front_CAM",
                                       "/data/misc/camera/awb_A_light_cal_sub_CAM"};

Words record(uint32_t valid_word, uint32_t first_word, uint32_t second_word = kModule[1], bool good = true) {
  return support::with_crc({valid_word, 1126, 0x80000001, first_word, second_word, kModule[2], kModule[3]},
                           good);
}

Words of_main_camera(uint32_t valid_word, uint32_t first_word = 71) {
  return support::with_crc({valid_word, 1126, 0x80000001, first_word, 72, 73, 74});
}

const Words kGood = record(3099, kModule[0]);
const Words kDamaged = record(3099, kModule[0], kModule[1], false);
const Words kAnyModule = support::with_crc({3099, 1126, 0x80000001, 0, 0, 0, 0});
const Words kNoFirst = record(3099, 0);
const Words kAbsent = {};

struct Row {
  const char* what;
  uint32_t camera;
  Words d50;
  Words a_light;
  bool d50_used;
  bool a_light_used;
};

const Row kRows[] = {
    {"both good", 2, kGood, kGood, true, true},
    {"versions 0 and 1", 2, record(99, kModule[0]), record(1099, kModule[0]), true, true},
    {"version 4 and judged bad", 2, record(4099, kModule[0]), record(3000, kModule[0]), false, false},
    {"any module", 2, kAnyModule, kAnyModule, true, true},
    {"a zero first word holds for A light", 2, kNoFirst, kNoFirst, true, true},
    {"and then the whole ID no longer fits", 2, kNoFirst, kGood, true, false},
    {"also from a refused record", 2, record(3000, 0), kNoFirst, false, true},
    {"also from a damaged one", 2, record(3099, 0, kModule[1], false), kNoFirst, false, true},
    {"also from none", 2, kAbsent, kNoFirst, false, true},
    {"A light's own zero counts for nothing", 2, kGood, kNoFirst, true, false},
    {"damaged D50", 2, kDamaged, kGood, false, true},
    {"damaged A light", 0, kGood, kDamaged, true, false},
    {"absent A light", 0, kGood, kAbsent, true, false},
    {"other modules", 0, record(3099, 1), record(3099, kModule[0], 1), false, false},
    {"the main camera's, on the front camera", 1, of_main_camera(3099), of_main_camera(99), true, true},
    {"the main camera's, of version 4", 1, of_main_camera(4099), of_main_camera(3099), false, true},
    {"a zero first word does not join the main camera's", 1, of_main_camera(3099, 0), of_main_camera(3099),
     false, true},
    {"the main camera's, on the sub camera", 2, of_main_camera(3099), of_main_camera(3099), false, false},
    {"another module, on the front camera", 1, record(3099, 1), kGood, false, true},
};

class DualCamera : public support::PhoneTest {
 protected:
  DualCamera() : PhoneTest({.partition_size = 256 * 1024}) {
    fit_module("front");
    fit_module("sub");
    for (const char* node : {"awb_cal", "awb_cal_front", "awb_cal_sub"})
      std::filesystem::remove(host("/sys/android_camera_awb_cal") / node);
  }
  void put_or_remove(const char* path, const Words& words) {
    put(path, support::le32(words));
    if (words.empty()) std::filesystem::remove(host(path));
  }
  void set_up(const Row& row) {
    set_sensor_selection(row.camera);
    if (row.camera == 0)
      fit_module("main");
    else
      fit_module("main", kMainModule);
    put_or_remove(kD50File[row.camera], row.d50);
    put_or_remove(kALightFile[row.camera], row.a_light);
  }
};

Log pass_log(const char* light, const Words& record, bool used) {
  const Words words = record.empty() ? Words(8) : record;
  Log log = support::record_lines(kName, "Dual Calibration", words, light);
  if (log.size() == 3) return log;  // its CRC is bad
  return log + (used ? Log{I(kName + ", [Dual Calibration] Load Calibraton data[1.099609,2097152.000000]")}
                     : Log{E(kName + ", [Dual Calibration] Not load Dual-Calibraton data")});
}

TEST_F(DualCamera, EachLightIsUsedOrLeftAtOneAsItsRowSays) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    set_up(row);
    Floats ratios(6, 77);
    const Log log = log_of([&] { Dual_Cam_Correction(&ratios[1], &ratios[2], &ratios[3], &ratios[4]); });
    EXPECT_EQ(support::without_loading(log), support::fuse_lines(kModule) +
                                                 pass_log("D50", row.d50, row.d50_used) +
                                                 pass_log("A light", row.a_light, row.a_light_used));
    Floats expected(6, 1);
    if (row.d50_used) expected[1] = 1.099609375F, expected[2] = 2097152;  // unsigned, rounded to a float
    if (row.a_light_used) expected[3] = 1.099609375F, expected[4] = 2097152;
    expected.front() = expected.back() = 77;
    EXPECT_EQ(ratios, expected);
  }
}

TEST_F(DualCamera, NoTruncatedRecordIsUsedAndNullPointersTouchNothing) {
  const support::Bytes good = support::le32(kGood);
  set_sensor_selection(2);
  for (size_t size = 0; size < good.size(); ++size) {
    put(kD50File[2], good);
    put(kALightFile[2], {good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)});
    Floats ratios(4, 77);
    Dual_Cam_Correction(&ratios[0], &ratios[1], &ratios[2], &ratios[3]);
    EXPECT_EQ(ratios, (Floats{1.099609375F, 2097152, 1, 1})) << size;
  }
  for (size_t null = 0; null < 4; ++null) {
    Floats ratios(4, 77);
    float* pointers[] = {&ratios[0], &ratios[1], &ratios[2], &ratios[3]};
    pointers[null] = nullptr;
    Dual_Cam_Correction(pointers[0], pointers[1], pointers[2], pointers[3]);
    EXPECT_EQ(ratios, Floats(4, 77));
  }
}

}  // namespace
