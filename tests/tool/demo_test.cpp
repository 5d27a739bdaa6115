// Does `awbcal demo` tell the whole story of a calibration, the same for the same seed, to people and to
// scripts? Guards against a story that drifts from what the library did, and against output or exit codes
// that mislead.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

/// Runs it on a terminal of its own.
std::string run_on_terminal(const std::string& arguments, const std::string& variables) {
  return support::run_shell("script -qec '" + variables + " " AWBCAL " " + arguments +
                            "' /dev/null </dev/null")
      .output;
}

class AwbcalDemo : public ToolTest {
 protected:
  std::string in_phone() const { return "demo --dir " + path("phone"); }
  Bytes partition() const { return bytes("phone/dev/block/mmcblk0p6"); }

  /// The checked-in text, with the phone's folder in place of DIR.
  std::string golden(const std::string& name) const {
    std::string text = support::read_text(fs::path(SOURCE_DIR) / "tests/tool/data" / name).value_or("");
    if (const size_t at = text.find("DIR\n"); at != std::string::npos) text.replace(at, 3, path("phone"));
    return text;
  }
};

TEST_F(AwbcalDemo, TellsTheSameStoryForASeed) {
  const Outcome demo = run(in_phone() + " --seed 1", "2>" + path("errors"));
  EXPECT_EQ(demo.exit_code, 0);
  EXPECT_EQ(text("errors"), "");
  EXPECT_EQ(demo.output, golden("demo_seed1_emmc.txt"));
}

TEST_F(AwbcalDemo, TellsTheSameStoryOnNand) {
  const Outcome demo = run(in_phone() + " --seed 1 --storage nand");
  EXPECT_EQ(demo.exit_code, 0);
  // Another chip changes what is said of places, and of records that were never written.
  const std::string emmc = text_file("emmc.txt", golden("demo_seed1_emmc.txt"));
  EXPECT_EQ(support::run_shell("diff -n " + emmc + " " + text_file("nand.txt", demo.output)).output,
            golden("demo_seed1_nand.diff"));
}

TEST_F(AwbcalDemo, EndsWellWithAnySeedOnEightyColumnsAndWithoutEscapeCodes) {
  for (const char* seed : {"0", "2", "18446744073709551615"}) {
    const Outcome demo = run(in_phone() + " --seed " + seed);
    EXPECT_EQ(demo.exit_code, 0) << seed;
    EXPECT_LE(longest_line(demo.output), 80U) << seed;
    EXPECT_EQ(demo.output.find_first_of("\033\r"), std::string::npos) << seed;
  }
}

// The story against what is really in the folder.
TEST_F(AwbcalDemo, LeavesTheRecordsThatItShows) {
  ASSERT_EQ(run(in_phone()).exit_code, 0);
  EXPECT_THAT(run("verify " + path("phone")),
              Exits(1, HasSubstr("judged out of tolerance  front camera, AWB record"),
                    HasSubstr("\nFAIL: 16 good, 1 not\n")));
  EXPECT_THAT(
      run("show " + path("phone/dev/block/mmcblk0p6")).output,
      ::testing::AllOf(Tells("byte 0x20e08 byte field value meaning 0 valid word 3099 version 3, calibrated "
                             "4 R gain 1772 1.7305 8 B gain 1618 1.5801 "),
                       Tells("byte 0x20e6c byte field value meaning 0 valid word 3099 version 3, calibrated "
                             "4 LED 1 R gain 1506 1.4707 8 LED 1 B gain 1750 1.7090 12 LED 2 R gain 1101 "
                             "1.0752 16 LED 2 B gain 2498 2.4395 20 both R gain 1296 1.2656 24 both B gain "
                             "2028 1.9805 "),
                       HasSubstr("main camera, gyro record\n  file: mmcblk0p6, byte 0x20ea0\n")));
  const fs::path files = fs::path(path("phone")) / "data/misc/camera";
  EXPECT_FALSE(fs::exists(files / "awb_cal_front_CAM")) << "the front module is out of tolerance";
  EXPECT_TRUE(fs::exists(files / "awb_calibration_fail_front_CAM.txt"));
  EXPECT_TRUE(fs::exists(files / "awb_calibration_success_sub_CAM.txt"));
  EXPECT_FALSE(fs::exists(files / "awb_calibration_fail_sub_CAM.txt")) << "the retry came to a good end";
  EXPECT_EQ(support::mode_of(files / "awb_A_light_cal"), 0644);
  EXPECT_EQ(text("phone/data/misc/camera/dual_calibration_success.txt"), "");
}

TEST_F(AwbcalDemo, ShowsWhatACameraStartChanges) {
  const Outcome demo = run(in_phone());
  const double ratio = support::word_at(partition(), 0x20004) / 1024.0 / 0.7539;
  EXPECT_THAT(demo.output, HasSubstr(support::printf_text("0  0.4600  %.4f  %.4f", 0.46 * ratio, ratio)));
  EXPECT_TRUE(fs::exists(path("phone/data/misc/camera/lsc_cal_sub_CAM"))) << "the cache files were put back";
}

// ---- recorded streams -------------------------------------------------------------------------------------

TEST_F(AwbcalDemo, JudgesARecordedStream) {
  std::string stream = "rg_sum,bg_sum,count\n";
  for (int frame = 0; frame < 10; ++frame) stream += std::to_string(7999 + frame) + ",5705,10\n";
  EXPECT_THAT(run(in_phone() + " --frames " + text_file("a.csv", stream + "0,0,1\n")),
              Exits(0, HasSubstr("recorded stream")));
  EXPECT_EQ(support::word_at(partition(), 0x20004), 800U) << "six means of 800 and four of 801, rounded down";
  EXPECT_EQ(support::word_at(partition(), 0x20008), 571U) << "570.5 is rounded up";
}

TEST_F(AwbcalDemo, SaysThatAShortStreamGivesNoVerdict) {
  const std::string csv =
      text_file("short.csv", "rg_sum,bg_sum,count\n\n# two frames\n770000,570000,1000\r\n 1 , 2 , 0 \n");
  EXPECT_THAT(run(in_phone() + " --frames " + csv),
              Exits(1, HasSubstr("No verdict after 2 frames"), HasSubstr("Calibration fail: Time out!!")));
  EXPECT_EQ(support::word_at(partition(), 0x20000), 0U);
}

TEST_F(AwbcalDemo, NamesTheLineOfABadStream) {
  const std::pair<const char*, const char*> rows[] = {
      {"1,2\n", ":1: expected 3 fields (rg_sum,bg_sum,count), found 2"},
      {"1,2,3,4\n", ":1: expected 3 fields (rg_sum,bg_sum,count), found 4"},
      {"1,2,3\n\n1,x,3\n", ":3: bg_sum is not a whole number: \"x\""},
      {"1,2,3\n1.5,2,3\n", ":2: rg_sum is not a whole number: \"1.5\""},
      {"1,,3\n", ":1: bg_sum is not a whole number: \"\""},
      {"2147483648,2,3\n", ":1: rg_sum does not fit into 32 bits: 2147483648"},
      {"1,2,-1\n", ":1: count is negative: -1"},
      {"1,2,3\nrg_sum,bg_sum,count\n", ":2: rg_sum is not a whole number: \"rg_sum\""},
      {"# only a comment\n", ": contains no frame"},
      {"", ": contains no frame"},
  };
  for (const auto& [content, message] : rows) {
    const std::string csv = text_file("bad.csv", content);
    EXPECT_THAT(run(in_phone() + " --frames " + csv), Exits(2, "awbcal: " + csv + message + "\n")) << content;
    EXPECT_FALSE(fs::exists(path("phone"))) << "a phone was made for nothing";
  }
}

// ---- arguments and folders --------------------------------------------------------------------------------

TEST_F(AwbcalDemo, RefusesBadArguments) {
  for (const char* arguments :
       {"", "demo --seed -1", "demo --seed 1x", "demo --seed 18446744073709551616", "demo --storage floppy",
        "demo --bogus", "tell", "demo --frames /no/such/file", "demo --frames /", "demo --dir /dev/null"}) {
    const Outcome refused = run(arguments);
    EXPECT_EQ(refused.exit_code, 2) << arguments;
    EXPECT_NE(refused.output, "") << arguments;
    EXPECT_THAT(refused.output, Not(HasSubstr("=="))) << arguments << " began the story";
  }
}

TEST_F(AwbcalDemo, KeepsAwayFromFoldersThatItDidNotMake) {
  text_file("letter.txt", "dear all");
  EXPECT_THAT(run("demo --dir " + path("")), Exits(2, HasSubstr("not empty")));
  EXPECT_EQ(text("letter.txt"), "dear all");
  EXPECT_EQ(std::distance(fs::directory_iterator(path("")), {}), 1);
  // Not even in the folder of an earlier demo.
  ASSERT_EQ(run(in_phone()).exit_code, 0);
  text_file("phone/data/misc/camera/mine", "keep");
  EXPECT_THAT(run(in_phone()).output, HasSubstr("holds data/misc/camera/mine, which no demo made"));
  EXPECT_EQ(text("phone/data/misc/camera/mine"), "keep");
  EXPECT_TRUE(fs::exists(path("phone/logcat.txt")));
}

TEST_F(AwbcalDemo, ReplacesAnEarlierDemo) {
  const std::string first = run(in_phone()).output;
  ASSERT_EQ(run(in_phone() + " --storage nand").exit_code, 0);
  EXPECT_EQ(run(in_phone()).output, first);
}

TEST_F(AwbcalDemo, NamesTheTemporaryFolderThatItMakes) {
  const Outcome demo = run("demo", "| tail -n 1");
  std::string folder = demo.output.substr(demo.output.find_first_not_of(' '));
  folder.pop_back();
  EXPECT_TRUE(fs::exists(fs::path(folder) / "properties")) << folder;
  fs::remove_all(folder);
}

// ---- a terminal -------------------------------------------------------------------------------------------

TEST_F(AwbcalDemo, ShowsColourAndProgressOnATerminal) {
  if (support::run_shell("script -qec true /dev/null </dev/null 2>&1").exit_code != 0)
    GTEST_SKIP() << "no terminal can be had here";
  const std::string coloured = run_on_terminal(in_phone(), "NO_COLOR= TERM=xterm");
  EXPECT_THAT(coloured, HasSubstr("\033[32mPASS\033[0m"));
  EXPECT_THAT(coloured, HasSubstr("\r\033[K  main camera  frame  1"));

  const std::pair<const char*, bool> rows[] = {
      {"NO_COLOR=1 TERM=xterm", false}, {"NO_COLOR= TERM=xterm", true}, {"NO_COLOR= TERM=dumb", false}};
  for (const auto& [variables, is_coloured] : rows) {
    const std::string shown = run_on_terminal("verify " + path("phone"), variables);
    EXPECT_EQ(shown.find("\033[32mgood") != shown.npos, is_coloured) << variables;
  }
  EXPECT_THAT(run("verify --color=always " + path("phone")).output, HasSubstr("\033[32mgood\033[0m"));
  EXPECT_THAT(run_on_terminal("--color never verify " + path("phone"), "TERM=xterm"),
              Not(HasSubstr("\033[")));
}

}  // namespace
