// Which camera is selected, and which module does the library believe is fitted?
// Guards against a record of one module or camera being applied to another.

#include "awb_calibration/records.h"
#include "tests/support/correction_support.h"

namespace {

using support::I;

class ModuleIdentity : public support::PhoneTest {};

TEST_F(ModuleIdentity, SelectionFollowsItsRulesAndLogsTheOldValue) {
  int32_t before = 0;
  for (const auto& [camid, selected] :
       {std::pair{1U, 1}, {2U, 2}, {0U, 0}, {2U, 2}, {3U, 0}, {5U, 0}, {0xFFFFFFFF, 0}}) {
    const auto log = log_of([&, id = camid] { set_sensor_selection(id); });
    EXPECT_EQ(log, (std::vector{I("set sensor selection :" + std::to_string(before) + "\n")}));
    EXPECT_EQ(get_sensor_selection(), selected) << camid;
    before = selected;
  }
}

TEST_F(ModuleIdentity, DetectionMapsEveryOtherCameraToSub) {
  for (const auto& [detected, mapped] : {std::pair{0, 0}, {1, 1}, {2, 2}, {3, 2}, {-1, 2}, {INT32_MIN, 2}}) {
    set_sensor_selection(0);
    const auto log = log_of([&, d = detected, m = mapped] { EXPECT_EQ(sensor_detect(d), m); });
    EXPECT_EQ(
        log, (std::vector{
                 I("[LSC/AWB Calibration] sensor_detect: detect cam id = " + std::to_string(detected) + "\n"),
                 I("set sensor selection :0\n")}));
    EXPECT_EQ(get_sensor_selection(), mapped);
  }
}

TEST_F(ModuleIdentity, FuseWordsAreConvertedIn64BitsAndCutTo32) {
  // clang-format off
  const std::pair<const char*, uint32_t> rows[] = {
      {"0", 0}, {"1", 1}, {"4294967295", 0xFFFFFFFF}, {"-1", 0xFFFFFFFF}, {"-2147483648", 0x80000000}, {" \t+77 rest", 77}, {"0x12", 0},
      {"abc", 0}, {"", 0}, {"4294967297", 1}, {"1311768467463790320", 0x9ABCDEF0},
      {"00000000000000000000000000000000000000000000000000000000000000000000000000000305", 305}};
  // clang-format on
  for (const auto& [text, word] : rows) {
    phone().set_property("qor.camera.sensor.main_fuse3", text);
    uint32_t words[5] = {9, 9, 9, 9, 0xC0FFEE};
    awb_get_fuseid(words);
    EXPECT_EQ(words[2], word) << '"' << text << '"';
    EXPECT_EQ(words[0] | words[1] | words[3], 0U) << "absent properties are 0";
    EXPECT_EQ(words[4], 0xC0FFEEU) << "four words, no more";
  }
}

TEST_F(ModuleIdentity, EachCameraHasItsOwnFuseIdAndItsLines) {
  const char* const names[] = {"main", "front", "sub"};
  for (uint32_t camera = 0; camera < 3; ++camera) {
    fit_module(names[camera], {camera * 16 + 1, camera * 16 + 2, camera * 16 + 3, camera * 16 + 4});
  }
  for (uint32_t camera = 0; camera < 3; ++camera) {
    set_sensor_selection(camera);
    uint32_t words[4] = {};
    const support::Words expected = {camera * 16 + 1, camera * 16 + 2, camera * 16 + 3, camera * 16 + 4};
    EXPECT_EQ(log_of([&] { awb_get_fuseid(words); }), support::fuse_lines(expected));
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), words));
  }
}

TEST_F(ModuleIdentity, SmallEntries) {
  EXPECT_EQ(log_of([] { awb_read_fuseid(-7); }), (std::vector{I("awb_read_fuseid: ctrlfd = -7\n")}));
  EXPECT_EQ(awb_get_camid(), 0);
  awb_set_camid(200);
  EXPECT_EQ(awb_get_camid(), 200);
  EXPECT_EQ(get_sensor_selection(), 0) << "the calibration camid and the selection are independent";
}

}  // namespace
