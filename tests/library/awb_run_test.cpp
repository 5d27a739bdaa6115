// Does a production-line AWB run store the record, the verdict and the files that its frames deserve?
// Guards against a good module failed, a bad one passed, and a run that ends without its verdict.

#include <algorithm>
#include <array>
#include <climits>

#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace {

using namespace support;

struct CameraNames {
  const char *name, *suffix;  // in the fuse words' properties and on the console; of its files
};
constexpr CameraNames kCameras[] = {{"main", ""}, {"front", "_front_CAM"}, {"sub", "_sub_CAM"}};

constexpr const char* kFuseLines =
    "Fuse_ID[1]=0x11223344\nFuse_ID[2]=0x55667788\nFuse_ID[3]=0x99aabbcc\nFuse_ID[4]=0xddeeff01\n";

const std::array kAtFirst = {QOR_AWB_Calibration_threshold, QOR_AWB_Calibration_light_source_version,
                             QOR_AWB_Calibration_counter, QOR_AWB_Calibration_enabled,
                             QOR_AWB_Calibration_aec_ready};

class AwbRun : public PhoneTest {
 protected:
  AwbRun() { fill_partition(); }

  /// The factory tool's part: properties, then the camera is opened and the trigger rises.
  void start(uint32_t camera, int a_light = 0, const char* threshold = "20") {
    fit_module(kCameras[camera].name);
    set("mfg.calibration.status", "3");
    set("mfg.awb.calibration.threshold", threshold);
    set("mfg.awb.calibration.camid", std::to_string(camera));
    set("mfg.awb.calibration.Alight", std::to_string(a_light));
    set("mfg.awb.calibration.rg_ratio", "0.7539");
    set("mfg.awb.calibration.bg_ratio", "0.5625");
    sensor_detect(static_cast<int32_t>(camera));
    check_and_init_awb_calibration();
    set("mfg.awb.calibration.trigger", "0");
    check_awb_calibration_trigger();
    set("mfg.awb.calibration.trigger", "1");
  }

  void set(const std::string& name, const std::string& value) { phone().set_property(name, value); }

  static void frames(int count, int32_t rg = 772, int32_t bg = 576) {
    for (int i = 0; i < count; ++i) QOR_AWB_Calibration_collect(rg * 100, bg * 100, 100);
  }

  Bytes stored_at(size_t offset, size_t size) {
    const Bytes all = phone().partition();
    return {&all[offset], &all[offset + size]};
  }

  std::string text_of(const std::string& name) {
    return read_text(host("/data/misc/camera/" + name)).value_or("(no file)");
  }
};

Bytes awb_record(uint32_t valid_word, uint32_t rg = 772, uint32_t bg = 576) {
  return sealed32({valid_word, rg, bg, kModule[0], kModule[1], kModule[2], kModule[3]});
}

TEST_F(AwbRun, GoodRunsLeaveRecordCacheAndSuccessFile) {
  for (const int a_light : {0, 1}) {
    for (uint32_t camera = 0; camera < 3; ++camera) {
      const CameraNames& names = kCameras[camera];
      start(camera, a_light);
      const std::string light = a_light == 1 ? "A_light_" : "";
      const uint64_t place = 0x20000U + camera * 0x1000U + (a_light == 1 ? 0xEC0U : 0U);
      umask(077);
      std::string console;
      expect_partition_write(place, awb_record(3099), [&] { console = console_of([] { frames(11); }); });
      EXPECT_EQ(console,
                std::string("Bypass aec calibration\nQOR_AWB_Calibration_write_to_flash: write flash for ") +
                    names.name + "-cam OK\n");
      const std::string success = "awb_" + light + "calibration_success" + names.suffix + ".txt";
      const std::string cache = "awb_" + light + "cal" + names.suffix;
      EXPECT_EQ(camera_files(), (Names{cache, success}));
      EXPECT_EQ(get("/data/misc/camera/" + cache), awb_record(3099));
      EXPECT_EQ(text_of(success), std::string(kFuseLines) +
                                      "Light source version: v3\nTolerance=20.000000 %\nThreshold=0.150780 \n"
                                      "R/G_ratio=0.753906\nB/G_ratio=0.562500\nDelta=0.000006\n");
      for (const std::string& name : {cache, success}) {
        EXPECT_EQ(mode_of(host("/data/misc/camera/" + name)), 0644) << name;
        std::filesystem::remove(host("/data/misc/camera/" + name));
      }
      EXPECT_EQ(awb_if_enabled(), 0U);
    }
  }
}

TEST_F(AwbRun, FirstFrameLeavesTheTimeoutVerdict) {
  start(0);
  put("/data/misc/camera/awb_calibration_success.txt", {'o', 'l', 'd'});
  const auto log = own_log([] { frames(1); });
  EXPECT_EQ(camera_files(), (Names{"awb_calibration_fail.txt"}));
  EXPECT_EQ(text_of("awb_calibration_fail.txt"),
            std::string("Calibration fail: Time out!!\n") + kFuseLines +
                "Light source version: v3\nTolerance=20.000000 %\nThreshold=0.200000 \n");
  // clang-format off
  EXPECT_EQ(log, infos({
      "calibration_trigger 1", "QOR_AWB_Calibration_collect (77200,57600) (100)\n", "QOR_AWB_Calibration_write_to_flash (772,576)\n",
      "QOR_AWB_Calibration_write_to_flash: threshold = 20 , light source version = 3\n", "QOR_AWB_Calibration_write_to_flash:   0   0\n",
      "[AWB Calibration] sfuse.fuse_id_word1:0x11223344\n", "[AWB Calibration] sfuse.fuse_id_word2:0x55667788\n",
      "[AWB Calibration] sfuse.fuse_id_word3:0x99aabbcc\n", "[AWB Calibration] sfuse.fuse_id_word4:0xddeeff01\n",
      "[AWB Calibration] :QOR_AWB_Calibration_counter:0\n",
      "QOR_AWB_Calibration_write_to_flash:counter=  0 rg=772.000000 bg=576.000000\n"}));
  // clang-format on
}

TEST_F(AwbRun, TheEleventhFrameLogsTheWholeStory) {
  start(0);
  frames(10);
  auto log = own_log([] { frames(1); });
  std::erase_if(log, [](const LogLine& line) {
    return line.text.find("NandFlash") != line.text.npos || line.text.find("CheckFlash") != line.text.npos;
  });
  const Bytes record = awb_record(3099);
  const auto decimal = [&](size_t word) { return static_cast<int32_t>(word_at(record, 4 * word)); };
  Names buffer;
  for (uint32_t i = 0; i < 8; ++i)
    buffer.push_back(printf_text("[AWB Calibration] caBuff[%u]:0x%x\n", i, word_at(record, 4 * i)));
  // clang-format off
  EXPECT_EQ(log, infos({
      "QOR_AWB_Calibration_collect (77200,57600) (100)\n", "QOR_AWB_Calibration_write_to_flash (772,576)\n",
      "QOR_AWB_Calibration_write_to_flash: threshold = 20 , light source version = 3\n", "QOR_AWB_Calibration_write_to_flash:  10   0\n",
      "[AWB Calibration] :QOR_AWB_Calibration_counter:10\n", "QOR_AWB_Calibration_write_to_flash: Bypass aec calibration\n",
      "QOR_AWB_Calibration_write_to_flash: WriteFlash_for_bayer_Cam()\n", "WriteFlash_for_bayer_Cam(32), cam_id = 0\n",
      "WriteFlash() : 4K page\n", "WriteFlash_for_bayer_Cam: eMMC boot: pagesize[4096], offset = 0x20000\n",
      "[LSC Calibration]WriteFlash open\n", "WriteFlash(): partition_open success (32)\n", "[LSC Calibration]WriteFlash memcpy\n",
      "partition_write() done\n",
      printf_text("QOR_AWB_Calibration_write_to_flash, caBuff: 0x3099, 0x772, 0x576, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d",
                  decimal(3), decimal(4), decimal(5), decimal(6), decimal(7)),
      "QOR_AWB_Calibration_write_to_flash: write flash for main-cam OK\n", "[AWB Calibration] write all c1b , ok=0"}) +
      infos(buffer) + infos({
      "Fuse_ID[1]=0x11223344\n", "Fuse_ID[2]=0x55667788\n", "Fuse_ID[3]=0x99aabbcc\n", "Fuse_ID[4]=0xddeeff01\n",
      "Light source version: v3\n", "Tolerance=20.000000 %\n", "Threshold=0.150780 \n", "R/G_ratio=0.753906\n",
      "B/G_ratio=0.562500\n", "Delta=0.000006\n", "[AWB Calibration] write cabuff to /data/misc/camera/awb_cal",
      "[AWB Calibration] ok, calibration finish!!"}));
  // clang-format on
}

TEST_F(AwbRun, JudgementHoldsAtItsEdges) {
  struct Row {
    float golden_rg, golden_bg;
    uint32_t threshold;
    int32_t rg, bg;
    bool good;
  };
  // A quarter of 1.0 is exact in every step: on the limit passes, one step of 1/1024 beyond it does not.
  // clang-format off
  const Row rows[] = {{1.0F, 1.0F, 25, 768, 1024, true}, {1.0F, 1.0F, 25, 767, 1024, false}, {1.0F, 1.0F, 25, 1280, 1024, true},
                      {1.0F, 1.0F, 25, 1281, 1024, false}, {1.0F, 0.5F, 25, 1024, 256, true}, {1.0F, 0.5F, 25, 1024, 255, false},
                      {0.5F, 1.0F, 25, 768, 1024, true}, {0.5F, 1.0F, 25, 769, 1024, false}, {1.0F, 1.0F, 0, 1024, 1024, true},
                      {1.0F, 1.0F, 0, 1024, 1025, false}, {0.0F, 0.0F, 100, 1, 0, false}, {0.0F, 0.0F, 100, 0, 0, true},
                      {0.75F, 0.5625F, 5, 800, 604, false}, {0.75F, 0.5625F, 5, 780, 598, true}, {-1.0F, -2.0F, 20, -1024, -1024, false},
                      // The last bit of the quotient, of the difference and of the square root decides.
                      {0.3125F, 0.0F, 5, 304, 0, true}, {3.84800005F, 1.57820964F, 69, 1435, 560, true}, {3.954F, 1.70371366F, 64, 1817, 428, false},
                      {1.875F, 0.867299259F, 47, 1647, 28, true}, {2.72900009F, 1.45892143F, 51, 2561, 88, true}};
  // clang-format on
  for (const Row& row : rows) {
    start(0);
    const float rg[3] = {9, 9, row.golden_rg};
    const float bg[3] = {9, 9, row.golden_bg};
    awb_calibration_set_GS(rg, bg);
    QOR_AWB_Calibration_threshold = row.threshold;
    frames(11, row.rg, row.bg);
    EXPECT_EQ(word_at(stored_at(0x20000, 4), 0), row.good ? 3099U : 3000U)
        << row.golden_rg << '/' << row.golden_bg << " at " << row.rg << '/' << row.bg;
    EXPECT_EQ(get("/data/misc/camera/awb_cal").has_value(), row.good);
    EXPECT_EQ(awb_if_enabled(), 0U) << "the run ends either way";
    std::filesystem::remove(host("/data/misc/camera/awb_cal"));
  }
}

TEST_F(AwbRun, ABadModuleIsStoredWithoutItsMarkAndReported) {
  start(1);
  frames(10, 400, 576);
  const auto log = own_log([] { frames(1, 400, 576); });
  EXPECT_EQ(stored_at(0x21000, 32), awb_record(3000, 400));
  EXPECT_EQ(camera_files(), (Names{"awb_calibration_fail_front_CAM.txt"}));
  EXPECT_EQ(text_of("awb_calibration_fail_front_CAM.txt"),
            std::string(kFuseLines) +
                "Light source version: v3\nTolerance=20.000000 %\nThreshold=0.150780 \n"
                "R/G_ratio=0.390625\nB/G_ratio=0.562500\nDelta=0.363275\n");
  const LogLine verdict =
      E("QOR_AWB_Calibration_write_to_flash error:not valid : delta(0.363275)>threshold(0.150780)\n");
  EXPECT_EQ(std::count(log.begin(), log.end(), verdict), 1);
  EXPECT_EQ(log.back(), I("[AWB Calibration] open file(data/awb_cal) error"));
}

TEST_F(AwbRun, EachLightSourceVersionHasItsGoldenSample) {
  const float rg[3] = {0.25F, 0.5F, 0.75F};
  for (const auto& [stored, version] :
       {std::pair{0U, 3U}, {1U, 1U}, {2U, 2U}, {3U, 3U}, {4U, 3U}, {99U, 3U}}) {
    start(2);
    awb_calibration_set_GS(rg, rg);
    awb_calibration_set_parm(1, stored);
    const auto level = static_cast<int32_t>(version * 256);
    frames(11, level, level);
    EXPECT_EQ(stored_at(0x22000, 32), awb_record(version * 1000 + 99, version * 256, version * 256));
    EXPECT_EQ(QOR_AWB_Calibration_light_source_version, std::min(stored, 3U));
  }
}

TEST_F(AwbRun, MeansAreRoundedAndWrapAsOnThePhone) {
  const int32_t rows[][3] = {{10, 4, 3},
                             {9, 4, 2},
                             {0, 4, 0},
                             {7, 1, 7},
                             {5, 0, 0},
                             {-10, 4, -2},
                             {10, -4, -2},
                             {INT_MAX, 2, INT_MIN / 2},
                             {INT_MAX, INT_MAX, 0},
                             {INT_MIN, -1, -INT_MAX},
                             {INT_MIN + 1, -1, INT_MIN},
                             {INT_MIN, 1, INT_MIN}};
  start(0);
  for (const auto& [sum, count, mean] : rows) {
    awb_enable_calibration();
    const auto log = own_log([&, s = sum, n = count] { QOR_AWB_Calibration_collect(s, s, n); });
    const LogLine wanted = I(printf_text("QOR_AWB_Calibration_write_to_flash (%d,%d)\n", mean, mean));
    EXPECT_EQ(std::count(log.begin(), log.end(), wanted), 1) << sum << " / " << count;
  }
}

TEST_F(AwbRun, AveragesAreTruncatedAndSaturate) {
  const uint32_t rows[][3] = {{100, 109, 100},
                              {100, 110, 101},
                              {8412187, 8412187, 8412186},
                              {0xFFFFFFFF, 0, 0},
                              {0x80000000, 0x80000000, 0},
                              {0x7FFFFFFF, 0x7FFFFFFF, 0x80000000}};
  for (const auto& [frame, last_frame, word] : rows) {
    start(0);
    check_awb_calibration_trigger();
    for (int i = 0; i < 9; ++i) QOR_AWB_Calibration_write_to_flash(frame, 1024);
    QOR_AWB_Calibration_write_to_flash(last_frame, 1024);
    QOR_AWB_Calibration_write_to_flash(0, 0);
    EXPECT_EQ(word_at(stored_at(0x20004, 4), 0), word) << frame;
  }
}

TEST_F(AwbRun, OnlyARisingEdgeStartsARun) {
  start(0);
  set("mfg.awb.calibration.trigger", "0");
  for (const auto& [trigger, counter] :
       {std::pair{"0", 0U}, {"2", 0U}, {"1", 0U}, {"0", 0U}, {"1", 1U}, {"1", 2U}, {"0", 3U}, {"1", 1U}}) {
    set("mfg.awb.calibration.trigger", trigger);
    frames(1);
    EXPECT_EQ(QOR_AWB_Calibration_counter, counter) << trigger;
  }
  frames(20);
  EXPECT_EQ(awb_if_enabled(), 0U) << "a trigger left at 1 does not start again";
}

// The front camera has no AEC: in its run those properties are not read either.
TEST_F(AwbRun, OutsideCalibrationModeNothingHappensAndTheTriggerIsNotRead) {
  for (const auto& [camera, status] : {std::pair{0U, "2"}, {1U, "3"}}) {
    start(camera);
    set("mfg.calibration.status", status);
    EXPECT_EQ(own_log([] { EXPECT_EQ(check_and_init_awb_calibration(), 0); }).empty(), camera == 0);
    for (const char* property : {"mfg.awb.calibration.trigger", "mfg.awb.calibration.ae.k.eb"})
      phone().add_fault({.call = "property_get", .path = property, .from_then_on = true});
    if (camera == 0) {
      uint32_t unused;
      QOR_Calibration_AEC_get_params(&unused, &unused);
      QOR_Calibration_AEC_set_ready(1, 2, 3);
      EXPECT_TRUE(own_log([] { frames(12); }).empty());
      EXPECT_TRUE(camera_files().empty());
    }
    for (int i = 0; i < 11; ++i) QOR_AWB_Calibration_write_to_flash(772, 576);
    EXPECT_EQ(phone().struck_faults(), 0U) << status;
    phone().clear_faults();
  }
}

TEST_F(AwbRun, OpeningTheCameraReadsTheProperties) {
  EXPECT_EQ(kAtFirst, (std::array<uint32_t, 5>{1024})) << "before anything was called";
  start(0);
  set("mfg.awb.calibration.threshold", "12abc");
  set("mfg.awb.calibration.camid", "2");
  EXPECT_EQ(own_log([] { check_and_init_awb_calibration(); }),
            infos({"Cal_Status 3 threshold 12",
                   "[AWB Calibration] awb_calibration_set_parm: threshold(12) light-ver(3)\n", "camid 2"}));
  EXPECT_EQ(QOR_AWB_Calibration_threshold, 12U);
  EXPECT_EQ(awb_get_camid(), 2);
  phone().unset_property("mfg.awb.calibration.threshold");
  phone().unset_property("mfg.awb.calibration.camid");
  check_and_init_awb_calibration();
  EXPECT_EQ(QOR_AWB_Calibration_threshold, 20U);
  EXPECT_EQ(awb_get_camid(), 0);
}

TEST_F(AwbRun, GoldenRatiosAreTakenWhenRedIsGiven) {
  struct Row {
    const char *rg, *bg;
    bool taken;
  };
  const float before[3] = {0.25F, 0.25F, 0.25F};
  for (const Row& row : {Row{"0.5", "0.75", true},
                         {"0", "0.75", false},
                         {"-1", "0.75", false},
                         {"nan", "0.75", false},
                         {"", "0.75", false},
                         {"0.5", "", true}}) {
    start(0);
    set("mfg.awb.calibration.rg_ratio", row.rg);
    set("mfg.awb.calibration.bg_ratio", row.bg);
    awb_calibration_set_GS(before, before);
    check_and_init_awb_calibration();
    const int32_t rg = row.taken ? 512 : 256;
    const int32_t bg = !row.taken ? 256 : *row.bg == '\0' ? 0 : 768;
    for (const uint32_t version : {1U, 2U, 3U}) {
      awb_calibration_set_parm(0, version);
      awb_enable_calibration();
      frames(11, rg, bg);
      EXPECT_EQ(word_at(stored_at(0x20000, 4), 0), version * 1000 + 99) << row.rg << '/' << row.bg;
    }
  }
}

// ---- AEC inside the run -----------------------------------------------------------------------------------

Bytes aec_record(uint32_t gain, uint32_t exp_time, uint32_t luma) {
  return sealed32({3099, gain, exp_time, luma, kModule[0], kModule[1], kModule[2], kModule[3]});
}

TEST_F(AwbRun, AecIsWrittenBesideAwbOnceItHasSettled) {
  for (const uint32_t camera : {0U, 2U}) {
    start(camera);
    set("mfg.awb.calibration.ae.k.eb", "1");
    const std::string fail = std::string("awb_calibration_fail") + kCameras[camera].suffix + ".txt";
    const Bytes before = phone().partition();
    const std::string unsettled = console_of([] { frames(12); });
    EXPECT_EQ(unsettled.substr(0, unsettled.size() / 2),
              std::string("AEC is not settled !!\nQOR_AWB_Calibration_write_to_flash: write AEC flash for ") +
                  kCameras[camera].name + "-cam fail\n")
        << "printed by each of the two judging frames";
    EXPECT_EQ(text_of(fail), "Can't write AEC calibration to flash. Maybe AEC not settled or Flash is bad\n");
    EXPECT_EQ(phone().partition(), before);
    EXPECT_EQ(QOR_AWB_Calibration_counter, 10U);

    EXPECT_EQ(QOR_Calibration_AEC_set_ready(1, 2, 3), 1U);
    EXPECT_EQ(QOR_Calibration_AEC_set_ready(160, 33000, 51), 1U) << "the latest values count";
    EXPECT_EQ(console_of([] { frames(1); }),
              std::string("AEC settled, gain = 160, exp_time = 33000, luma_value = 51\n"
                          "aec_write_calibration: writeflash() OK\n"
                          "QOR_AWB_Calibration_write_to_flash: write flash for ") +
                  kCameras[camera].name + "-cam OK\n");
    EXPECT_EQ(stored_at(0x20E28 + camera * 0x1000, 36), aec_record(160, 33000, 51));
    EXPECT_EQ(get(std::string("/data/misc/camera/aec_cal") + kCameras[camera].suffix),
              aec_record(160, 33000, 51));
    EXPECT_EQ(stored_at(0x20000 + camera * 0x1000, 32), awb_record(3099));
    EXPECT_EQ(text_of(fail), "(no file)");
    EXPECT_EQ(aec_is_ready(), 0U);
  }
}

TEST_F(AwbRun, TheAecRecordIsOfTheLatestStateAndOfTheModuleFittedNow) {
  start(0);
  set("mfg.awb.calibration.ae.k.eb", "1");
  frames(10);
  QOR_Calibration_AEC_set_ready(160, 33000, 51);
  fit_module("main", {5, 6, 7, 8});
  aec_set_status_ready();  // drops the values
  frames(1);
  EXPECT_EQ(stored_at(0x20E28, 36), sealed32({3099, 0, 0, 0, 5, 6, 7, 8}));
}

TEST_F(AwbRun, AecIsBypassedUnlessEveryConditionHolds) {
  struct Row {
    uint32_t camera;
    const char *enable, *trigger;
    bool bypassed;
  };
  for (const Row& row : {Row{0, "0", "1", true}, Row{0, "1", "2", true}, Row{1, "1", "1", true},
                         Row{0, "1", "1", false}, Row{2, "1", "1", false}, Row{17, "1", "1", true}}) {
    start(row.camera % 16);
    awb_set_camid(static_cast<uint8_t>(row.camera));
    set("mfg.awb.calibration.ae.k.eb", row.enable);
    frames(10);
    set("mfg.awb.calibration.trigger", row.trigger);
    const std::string console = console_of([] { frames(1); });
    EXPECT_EQ(console.starts_with("Bypass aec calibration\n"), row.bypassed)
        << row.camera << row.enable << row.trigger;
    EXPECT_EQ(console.find("main-cam") != console.npos, row.camera % 17 == 0) << "3 and more count as main";
  }
}

// ---- what goes wrong --------------------------------------------------------------------------------------

TEST_F(AwbRun, AFailedPartitionWriteIsReportedAndTriedAgain) {
  start(2);
  frames(10);
  phone().add_fault({.call = "write", .path = "/dev/block/mmcblk0p6", .nth = 1});
  EXPECT_EQ(console_of([] { frames(1); }),
            "Bypass aec calibration\nQOR_AWB_Calibration_write_to_flash: write flash for sub-cam fail\n");
  EXPECT_EQ(text_of("awb_calibration_fail_sub_CAM.txt"),
            "Can't write flash. Maybe Not MFG ROM or Flash is bad\n");
  EXPECT_EQ(awb_if_enabled(), 1U);
  frames(1);
  EXPECT_EQ(stored_at(0x22000, 32), awb_record(3099));
  EXPECT_EQ(camera_files(), (Names{"awb_cal_sub_CAM", "awb_calibration_success_sub_CAM.txt"}));
}

TEST_F(AwbRun, AnUnwritableFolderNeverStopsTheRun) {
  start(0);
  phone().add_fault({.call = "open", .path = "/data/misc/camera/*", .from_then_on = true, .error = EACCES});
  const auto log = own_log([] { frames(11); });
  EXPECT_EQ(std::count(log.begin(), log.end(),
                       I("[AWB Calibration] can't open /data/misc/camera/awb_calibration_fail.txt")),
            1);
  EXPECT_EQ(log.back(), I("[AWB Calibration] open file(data/awb_cal) error"));
  EXPECT_EQ(word_at(stored_at(0x20000, 4), 0), 3099U);
  EXPECT_EQ(awb_if_enabled(), 0U);
}

TEST_F(AwbRun, FuseWordsAreThoseOfTheFirstFrame) {
  start(0);
  frames(1);
  fit_module("main", {9, 9, 9, 9});
  frames(10);
  EXPECT_EQ(stored_at(0x20000, 32), awb_record(3099)) << "the module's words were taken on the first frame";

  start(0);
  fit_module("main", {7, 7, 7, 7});
  phone().add_fault({.call = "open", .path = "/data/misc/camera/awb_calibration_fail.txt"});
  frames(11);
  EXPECT_EQ(stored_at(0x20000, 32), awb_record(3099)) << "without a fail file the record keeps what it held";
}

}  // namespace
