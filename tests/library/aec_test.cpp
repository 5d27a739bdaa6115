// Does the exposure control get its target, and later exactly the values that were stored for this module?
// Guards against exposure values of another module, of a damaged record or of no record at all.

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

class Aec : public PhoneTest {
 protected:
  void set(const std::string& name, const std::string& value) { phone().set_property(name, value); }

  struct Values {
    uint32_t gain = 77, exp_time = 77, luma_value = 77;
    bool operator==(const Values&) const = default;
  };
  static Values stored_values() {
    Values values;
    QOR_Calibration_AEC_get_calibration_data(&values.gain, &values.exp_time, &values.luma_value);
    return values;
  }
};

constexpr const char* kCacheFile = "/data/misc/camera/aec_cal";

Words good_words() {
  return {3099, 160, 33000, 51, kModule[0], kModule[1], kModule[2], kModule[3]};
}

TEST_F(Aec, ParametersComeFromThePropertiesInCalibrationModeOnly) {
  uint32_t target = 1, tolerance = 2;
  aec_set_status_ready();
  for (const char* status : {"0", "2", "33", "x"}) {
    set("mfg.calibration.status", status);
    EXPECT_EQ(QOR_Calibration_AEC_get_params(&target, &tolerance), -1) << status;
  }
  EXPECT_EQ(target * 10 + tolerance, 12U) << "untouched";
  EXPECT_EQ(aec_is_ready(), 0U) << "reset all the same";

  set("mfg.calibration.status", "3");
  set("mfg.awb.calibration.camid", "2");
  const auto log = log_of([&] { EXPECT_EQ(QOR_Calibration_AEC_get_params(&target, &tolerance), 0); });
  EXPECT_EQ(
      log, (std::vector{I("Cal_Status 3, luma_target = 50, tolerance = 4"),
                        I("[AWB Calibration] QOR_Calibration_AEC_get_params: luma_target(50) tolerance(4)\n"),
                        I("camid 2")}));
  EXPECT_EQ(target, 50U);
  EXPECT_EQ(tolerance, 4U);
  EXPECT_EQ(awb_get_camid(), 2);
  set("mfg.awb.calibration.luma_target", "64");
  set("mfg.awb.calibration.tolerance", "-1");
  QOR_Calibration_AEC_get_params(&target, &tolerance);
  EXPECT_EQ(target, 64U);
  EXPECT_EQ(tolerance, 0xFFFFFFFFU);
}

TEST_F(Aec, ReadyNeedsStatusTriggerAndEnable) {
  struct Row {
    const char *status, *trigger, *enable;
    uint32_t ready;
  };
  for (const Row& row : {Row{"3", "1", "1", 1}, Row{"3", "0", "1", 0}, Row{"3", "1", "0", 0},
                         Row{"3", "2", "1", 0}, Row{"2", "1", "1", 0}, Row{"", "1", "1", 0}}) {
    uint32_t unused;
    set("mfg.calibration.status", row.status);
    set("mfg.awb.calibration.trigger", row.trigger);
    set("mfg.awb.calibration.ae.k.eb", row.enable);
    QOR_Calibration_AEC_get_params(&unused, &unused);
    EXPECT_EQ(QOR_Calibration_AEC_set_ready(1, 2, 3), row.ready) << row.status << row.trigger << row.enable;
    EXPECT_EQ(QOR_AWB_Calibration_aec_ready, row.ready);
  }
}

TEST_F(Aec, OnlyThisModulesGoodRecordIsHandedOut) {
  fit_module("main");
  const Values good{160, 33000, 51};
  const Values none{0, 0, 0};
  const auto changed = [](std::initializer_list<std::pair<size_t, uint32_t>> changes) {
    Words words = good_words();
    for (const auto& [index, value] : changes) words[index] = value;
    return sealed32(words);
  };
  Bytes damaged = changed({});
  damaged[4] ^= 1;  // the gain
  struct Row {
    const char* what;
    Bytes record;
    Values values;
  };
  // clang-format off
  const Row rows[] = {
      {"damaged", damaged, none},
      {"good", changed({}), good}, {"version 0", changed({{0, 99}}), good}, {"version 4", changed({{0, 4099}}), none},
      {"judged bad", changed({{0, 3000}}), none}, {"huge valid word", changed({{0, 4294967099}}), none},
      {"unbound", changed({{4, 0}, {5, 0}, {6, 0}, {7, 0}}), good}, {"first fuse word zero", changed({{4, 0}}), good},
      {"first word zero, another differs", changed({{4, 0}, {7, 1}}), none}, {"second fuse word zero", changed({{5, 0}}), none},
      {"other module", changed({{7, 1}}), none}, {"all zero", Bytes(36), none}, {"all ones", Bytes(36, 0xFF), none},
      {"empty", {}, none}, {"cut", Bytes(35, 0x11), none}};
  // clang-format on
  for (const Row& row : rows) {
    put(kCacheFile, row.record);
    EXPECT_EQ(stored_values(), row.values) << row.what;
  }
  std::filesystem::remove(host(kCacheFile));
  const auto log = log_of([&] { EXPECT_EQ(stored_values(), none) << "no file"; });
  EXPECT_EQ(log.back(), E("QOR_Calibration_AEC_get_calibration_data, Not load AEC-Calibraton data"));
}

TEST_F(Aec, JudgingLogsWhatItSaw) {
  fit_module("main");
  const std::string name = "QOR_Calibration_AEC_get_calibration_data";
  const std::string fuse = "0x11223344, 0x55667788, 0x99aabbcc, 0xddeeff01";
  Bytes record = sealed32(good_words());
  const auto tail_of = [&](const Bytes& bytes) {
    put(kCacheFile, bytes);
    const auto log = log_of([] { stored_values(); });
    return Log(log.begin() + 6, log.end());  // after the fuse words and the reader's lines
  };
  const std::string crc = printf_text("%x", word_at(record, 32));
  const LogLine data =
      I(name + ", AEC nandflash data: 0xc1b, 0xa0, 0x80e8, 0x33, " + fuse + ", 0x" + crc + "\n");
  EXPECT_EQ(tail_of(record),
            (std::vector{data, I(name + ", AEC check sum=" + crc + ", OK\n"),
                         I(name + ", AEC a0, 80e8, 33, (11223344 55667788 99aabbcc ddeeff01)\n"),
                         I(name + ", AEC caAecBuff[0]:3099\n"), I(name + ", Load AEC-Calibraton data"),
                         I(name + ", (gain, exp_time, luma_value,) = (0xa0, 0x80e8, 0x33)")}));
  fit_module("main", {1, 2, 3, 4});
  EXPECT_EQ(tail_of(record).back(), E(name + ", Not load AEC-Calibraton data"));
  record[32] ^= 1;
  const auto refused = tail_of(record);
  EXPECT_EQ(
      Log(refused.begin() + 1, refused.end()),
      (std::vector{
          E(name + ", AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
          E(name + ", AEC will do nothing!\n")}));
}

}  // namespace
