// Does explain start a camera with the real library, and say why its tuning was or was not corrected? Guards
// against a story that the library would not have told.

#include "run/tuning.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;

using Explain = ToolTest;

TEST_F(Explain, TellsWhichSourceALoaderTookAndWhyTheOthersLost) {
  phone();
  Bytes node(4000);
  put(node, 0, damaged(awb(), 3));
  put(node, 3848, dual_flash());
  file("phone/sys/android_camera_awb_cal/awb_cal", node);
  const Outcome story = run("explain main " + path("phone"));
  EXPECT_EQ(story.exit_code, 0);
  EXPECT_THAT(story.output,
              HasSubstr("  awb           cache file  taken; good\n"
                        "                export      not read: the cache file opens first; bad CRC\n"));
  EXPECT_THAT(story.output,
              HasSubstr("  dual_flash    cache file  absent\n                export      taken; good\n"));
  EXPECT_THAT(story.output, HasSubstr("golden sample 0.7539, 0.5625 assumed: give --golden\n"));
  EXPECT_EQ(story.output.rfind("White balance corrected: the AWB record was used, which is good\n", 0), 0U);
  EXPECT_THAT(story.output, ::testing::Not(HasSubstr("    | ")));
  EXPECT_LE(longest_line(story.output), 80U);
  const Outcome log = run("explain -v main " + path("phone"));
  EXPECT_THAT(log.output,
              HasSubstr("    | [AWB Calibration] read from file OK: /data/misc/camera/awb_cal\n"));
  EXPECT_THAT(log.output,
              HasSubstr("    | [AWB Calibration] valid bit and fuseID pass, use new white points\n"));
  EXPECT_GT(longest_line(log.output), 80U) << "a line that was broken cannot be searched for";
}

// Real phones have properties that no property service of old would hold.
TEST_F(Explain, StartsACameraWhateverThePropertiesAre) {
  phone();
  text_file("phone/build.prop",
            "ro.long=" + std::string(300, 'x') + "\n=nameless\nodd name=\x01\n[half]: [\n");
  EXPECT_THAT(run("explain main " + path("phone")), Exits(0, HasSubstr("White balance corrected")));
}

TEST_F(Explain, SaysForEveryCorrectionWhyItWasNotDone) {
  phone();
  const std::string cache = "phone/data/misc/camera/awb_cal";
  Bytes node(4000);
  put(node, 0, awb());
  file("phone/sys/android_camera_awb_cal/awb_cal", node);
  constexpr uint32_t kOther[4] = {1, 2, 3, 4};
  const std::pair<Bytes, const char*> rows[] = {
      {awb(3099, 800, 600, kOther),
       "White balance NOT corrected: the AWB record belongs to another module: fuse ID 00000001 00000002 00000003 "
       "00000004; fitted is fuse ID 11223344 55667788 99aabbcc ddeeff01 (fifth of five tests); without "
       "data/misc/camera/awb_cal the camera would load the export's, which is good"},
      {awb(4099), "(fourth of five tests)"},
      {awb(99), "White balance corrected: the AWB record was used, which is good"},
      {awb(99),
       "Module ratios NOT handed out: the AWB record is unknown version: expected valid word 1099, 2099, 3099, "
       "found valid word 99 (fourth of five tests)"},
      {awb(99, 800, 600, kOther), "found valid word 99 (fourth of five tests)"},
      {awb(4099), "taken; unknown version (record.version: expected valid word 99,"},
      {awb(4099), "(error) [AWB Calibration] valid bit!=99 or calibration light version not"},
      {awb(4099), "Reference points: unchanged"},
      {damaged(awb(), 5), "(third of five tests)"},
      {Bytes(9, 1),
       "is truncated: expected 32 bytes, found 9 bytes (second of five tests); without data/misc"},
      {Bytes(32), "(first of five tests); without data/misc"}};
  for (const auto& [bytes, sentence] : rows) {
    file(cache, bytes);
    EXPECT_THAT(run("explain -v main " + path("phone")), Exits(0, Tells(sentence))) << sentence;
  }
  // A checksum that only warns is not what refuses another module's record.
  const Bytes mesh = damaged(awbcal::make_lens_shading_record({1, 2, 3, 4}, 1.5), 100);
  file("phone/factory/lens_shading_main.bin", mesh);
  EXPECT_THAT(run("explain --reboot main " + path("phone")),
              Exits(0, Tells("lens_shading cache file absent export taken;")));
  Bytes lens_shading(4000);
  put(lens_shading, 64, mesh);
  file("phone/data/misc/camera/lsc_cal", lens_shading);
  EXPECT_THAT(
      run("explain main " + path("phone")),
      Exits(0, Tells("Lens shading NOT corrected: the lens-shading record belongs to another module: fuse ID "
                     "00000001 00000002 00000003 00000004; fitted is fuse ID 11223344 55667788 99aabbcc "
                     "ddeeff01 (fifth of five tests)")));
  // What is behind the file that is taken need not be known.
  file(cache, awb());
  const std::string hidden = path("phone/sys/android_camera_awb_cal/awb_cal");
  fs::remove(hidden);
  fs::create_directories(hidden);
  EXPECT_THAT(run("explain main " + path("phone")), Exits(2, Tells("White balance corrected")));
  fs::remove(path(cache));
  fs::create_directories(path(cache));
  EXPECT_THAT(run("explain main " + path("phone")),
              Exits(2, Tells("White balance: not known, because its AWB record cannot be read")));
}

TEST_F(Explain, TakesTheModuleThatItIsTold) {
  EXPECT_THAT(run("explain main " + phone() + " --fuse 1,2,3,4"),
              Exits(0, Tells("fitted is fuse ID 00000001 ")));
}

// The integrator's own block: every point doubled by a module of twice the golden ratios, nothing written
// back.
TEST_F(Explain, CorrectsTheIntegratorsOwnTuning) {
  phone();
  file("phone/data/misc/camera/awb_cal", awb(3099, 1024, 1024));
  Bytes block;
  for (int i = 0; i < 3116; ++i) {
    for (const uint8_t byte : support::le32({0x3F400000})) block.push_back(byte);  // 0.75
  }
  file("tuning.bin", block);
  const std::string arguments = path("phone") + " --golden 0.5,0.5 --tuning " + path("tuning.bin");
  EXPECT_THAT(run("explain main " + arguments).output,
              HasSubstr("0  0.7500  1.5000  2.0000  0.7500  1.5000  2.0000\n"));
  EXPECT_EQ(bytes("tuning.bin"), block);
  block.pop_back();
  file("tuning.bin", block);
  EXPECT_THAT(run("explain main " + arguments),
              Exits(2, HasSubstr("a tuning block must have at least 12464 bytes, found 12463")));
}

}  // namespace
