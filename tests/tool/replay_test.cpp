// Do replay and explain run the real library on what they are given and tell what it did? Guards against a
// verdict or a story that the library would not have given.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

class Replay : public ToolTest {
 protected:
  /// An RGGB image of one colour; cell by cell it may be dark or clipped.
  static std::vector<uint16_t> flat(size_t width, size_t height, uint16_t r, uint16_t g, uint16_t b) {
    std::vector<uint16_t> samples;
    for (size_t y = 0; y < height; ++y) {
      for (size_t x = 0; x < width; ++x)
        samples.push_back(y % 2 == 0 ? (x % 2 == 0 ? r : g) : (x % 2 == 0 ? g : b));
    }
    return samples;
  }
  static Bytes raw16(const std::vector<uint16_t>& samples) {
    Bytes bytes;
    for (const uint16_t sample : samples) {
      bytes.push_back(static_cast<uint8_t>(sample));
      bytes.push_back(static_cast<uint8_t>(sample >> 8));
    }
    return bytes;
  }
  static Bytes raw10(const std::vector<uint16_t>& samples) {
    Bytes bytes;
    for (size_t i = 0; i < samples.size(); i += 4) {
      uint8_t low = 0;
      for (size_t k = 0; k < 4; ++k) {
        bytes.push_back(static_cast<uint8_t>(samples[i + k] >> 2));
        low = static_cast<uint8_t>(low | (samples[i + k] & 3) << (2 * k));
      }
      bytes.push_back(low);
    }
    return bytes;
  }
  std::string eleven(const std::string& name) const {
    std::string names;
    for (int i = 0; i < 11; ++i) names += " " + path(name);
    return names;
  }
};

std::string csv(int frames, int rg) {
  std::string text = "rg_sum,bg_sum,count\n";
  for (int i = 0; i < frames; ++i) text += std::to_string(rg * 1000) + ",576000,1000\n";
  return text;
}

TEST_F(Replay, JudgesAStreamWithItsMargin) {
  const Outcome good =
      run("replay " + text_file("a.csv", csv(11, 800)) + " --golden 0.75,0.5625 --threshold 10");
  EXPECT_EQ(good.exit_code, 0);
  EXPECT_TRUE(good.says("   11     1000     0       0  0.7812  0.5625  0.0312      42 %  judges\n"))
      << good.output;
  EXPECT_TRUE(
      good.says("Record: valid word 3099, R/G 800 (0.7812), B/G 576 (0.5625)\n"
                "PASS: 0.0312 from the golden sample, 0.0750 allowed (42 % of it)\n"));
  const Outcome bad = run("replay " + path("a.csv") + " --golden 0.75,0.5625 --threshold 4 --light-source 2");
  EXPECT_EQ(bad.exit_code, 1);
  EXPECT_TRUE(bad.says("Record: valid word 2000")) << bad.output;
  EXPECT_TRUE(bad.says("FAIL: 0.0312 from the golden sample, 0.0300 allowed (104 % of it)"));
}

// A distance of exactly the limit passes.
TEST_F(Replay, PassesOnTheLimitItself) {
  text_file("a.csv", csv(11, 640));
  EXPECT_EQ(run("replay " + path("a.csv") + " --golden 0.5,0.5625 --threshold 23").exit_code, 0);
  EXPECT_EQ(run("replay " + path("a.csv") + " --golden 0.5,0.5625 --threshold 22").exit_code, 1);
}

TEST_F(Replay, GivesNoVerdictOnTenFrames) {
  const Outcome none = run("replay " + text_file("a.csv", csv(10, 800)) + " --golden 0.75,0.5625");
  EXPECT_EQ(none.exit_code, 1);
  EXPECT_TRUE(none.says("No verdict after 10 frames: ten are summed, the eleventh judges\n"));
}

TEST_F(Replay, RefusesWhatItCannotUse) {
  const std::string name = text_file("a.csv", csv(11, 800));
  file("short.raw", Bytes(10));
  const std::string raw = path("short.raw") + " --golden 1,1 --format raw16 --size ";
  for (const std::string& arguments :
       {name, name + " --golden 0,1", name + " --golden 1,1 --threshold -1",
        name + " --golden 1,1 --threshold 1.5", name + " --golden 1,1 --light-source 4",
        path("no") + " --golden 1,1", raw + "64x48", raw + "0x0", raw + "x", raw + "65x48",
        name + " --golden 1,1 --format dng"}) {
    const Outcome refused = run("replay " + arguments);
    EXPECT_EQ(refused.exit_code, 2) << arguments << refused.output;
    EXPECT_NE(refused.output, "") << arguments;
  }
}

// 64 above black: R/G is 360 / 480 and B/G 270 / 480 for either packing and any order of the colours.
TEST_F(Replay, ReducesPackedImagesOverTheGrid) {
  const auto samples = flat(64, 48, 424, 544, 334);
  file("16.raw", raw16(samples));
  file("10.raw", raw10(samples));
  for (const auto& [format, name] : {std::pair{"raw16", "16.raw"}, std::pair{"raw10", "10.raw"}}) {
    const Outcome replayed =
        run("replay" + eleven(name) + " --golden 0.75,0.5625 --size 64x48 --format " + format);
    EXPECT_EQ(replayed.exit_code, 0) << replayed.output;
    EXPECT_TRUE(replayed.says("    1      768     0       0  0.7500  0.5625  0.0000       0 %  summed"))
        << format;
  }
  const Outcome swapped =
      run("replay " + path("16.raw") + " --golden 0.75,0.5625 --size 64x48 --format raw16 --bayer bggr");
  EXPECT_TRUE(swapped.says("768     0       0  0.5625  0.7500")) << swapped.output;
}

TEST_F(Replay, LeavesOutAndCountsDarkAndSaturatedCells) {
  auto samples = flat(64, 48, 424, 544, 334);
  samples[0] = 1023;  // one clipped sample spoils its cell of 2 x 2
  for (size_t y = 0; y < 2; ++y) {
    for (size_t x = 2; x < 6; ++x) samples[y * 64 + x] = 65;  // two dark cells
  }
  file("16.raw", raw16(samples));
  const Outcome replayed =
      run("replay " + path("16.raw") + " --golden 0.75,0.5625 --size 64x48 --format raw16");
  EXPECT_TRUE(replayed.says("    1      765     2       1  0.7500  0.5625")) << replayed.output;
}

/// A little-endian DNG of one uncompressed strip, tag by tag.
Bytes dng(const std::vector<uint16_t>& samples, uint32_t width, uint32_t height) {
  struct Tag {
    uint16_t id, type;
    uint32_t count, value;
  };
  constexpr uint16_t kByte = 1, kText = 2, kShort = 3, kLong = 4;
  const std::vector<Tag> tags = {
      {254, kLong, 1, 0},          {256, kLong, 1, width},        {257, kLong, 1, height},
      {258, kShort, 1, 16},        {259, kShort, 1, 1},           {262, kShort, 1, 32803},
      {271, kText, 2, 'M'},        {272, kText, 2, 'C'},          {273, kLong, 1, 512},
      {277, kShort, 1, 1},         {278, kLong, 1, height},       {279, kLong, 1, 2 * width * height},
      {33421, kShort, 2, 0x20002}, {33422, kByte, 4, 0x02010100}, {50706, kByte, 4, 0x00000401},
      {50708, kText, 2, 'C'},      {50714, kShort, 1, 64},        {50717, kShort, 1, 1023}};
  Bytes bytes = {'I', 'I', 42, 0, 8, 0, 0, 0, static_cast<uint8_t>(tags.size()), 0};
  for (const Tag& tag : tags) {
    for (const uint32_t part : {uint32_t{tag.id} | uint32_t{tag.type} << 16, tag.count, tag.value}) {
      for (const uint8_t byte : support::le32({part})) bytes.push_back(byte);
    }
  }
  bytes.resize(512);
  for (const uint16_t sample : samples) {
    bytes.push_back(static_cast<uint8_t>(sample));
    bytes.push_back(static_cast<uint8_t>(sample >> 8));
  }
  return bytes;
}

TEST_F(Replay, ReadsDng) {
  file("a.dng", dng(flat(128, 96, 424, 544, 334), 128, 96));
  const Outcome replayed = run("replay" + eleven("a.dng") + " --golden 0.75,0.5625 --format dng");
  EXPECT_EQ(replayed.exit_code, 0) << replayed.output;
  EXPECT_TRUE(replayed.says("    1      768     0       0  0.7500  0.5625")) << replayed.output;
  Bytes cut = dng(flat(128, 96, 424, 544, 334), 128, 96);
  cut.resize(300);
  EXPECT_EQ(run("replay " + file("cut.dng", cut) + " --golden 0.75,0.5625 --format dng").exit_code, 2);
}

// ---- explain ----------------------------------------------------------------------------------------------

TEST_F(Replay, TellsWhichSourceALoaderTookAndWhyTheOthersLost) {
  phone();
  Bytes node(4000);
  put(node, 0, damaged(awb(), 3));
  put(node, 3848, dual_flash());
  file("phone/sys/android_camera_awb_cal/awb_cal", node);
  const Outcome story = run("explain main " + path("phone"));
  EXPECT_EQ(story.exit_code, 0);
  EXPECT_TRUE(
      story.says("  awb           cache file  taken; good\n"
                 "                export      not asked, for the cache file opens first; bad CRC\n"))
      << story.output;
  EXPECT_TRUE(story.says("  dual_flash    cache file  absent\n                export      taken; good\n"));
  EXPECT_TRUE(story.says("    | [AWB Calibration] read from file OK: /data/misc/camera/awb_cal\n"));
  EXPECT_TRUE(story.says("use new white points"));
  EXPECT_LE(longest_line(story.output), 80U);
}

// Real phones have properties that no property service of old would hold.
TEST_F(Replay, StartsACameraWhateverThePropertiesAre) {
  phone();
  text_file("phone/build.prop",
            "ro.long=" + std::string(300, 'x') + "\n=nameless\nodd name=\x01\n[half]: [\n");
  const Outcome story = run("explain main " + path("phone"));
  EXPECT_EQ(story.exit_code, 0) << story.output;
  EXPECT_TRUE(story.says("use new white points"));
}

TEST_F(Replay, NamesTheTestThatRefusedARecord) {
  phone();
  file("phone/data/misc/camera/awb_cal", awb(4099));
  const Outcome story = run("explain main " + path("phone"));
  EXPECT_TRUE(story.tells("taken; unknown version (record.version: expected valid word 99,")) << story.output;
  EXPECT_TRUE(story.tells("(error) [AWB Calibration] valid bit!=99 or calibration light version not"))
      << story.output;
  EXPECT_TRUE(story.says("Reference points: unchanged"));
}

// The integrator's own block: every point doubled by a module of twice the golden ratios, nothing written
// back.
TEST_F(Replay, CorrectsTheIntegratorsOwnTuning) {
  phone();
  file("phone/data/misc/camera/awb_cal", awb(3099, 1024, 1024));
  Bytes block;
  for (int i = 0; i < 3116; ++i) {
    for (const uint8_t byte : support::le32({0x3F400000})) block.push_back(byte);  // 0.75
  }
  file("tuning.bin", block);
  const std::string arguments = path("phone") + " --golden 0.5,0.5 --tuning " + path("tuning.bin");
  const Outcome story = run("explain main " + arguments);
  EXPECT_TRUE(story.says("0  0.7500  1.5000  2.0000  0.7500  1.5000  2.0000\n")) << story.output;
  EXPECT_EQ(bytes("tuning.bin"), block);
  block.pop_back();
  file("tuning.bin", block);
  const Outcome refused = run("explain main " + arguments);
  EXPECT_EQ(refused.exit_code, 2);
  EXPECT_TRUE(refused.says("12463 bytes where a tuning block has 12464 or more")) << refused.output;
}

}  // namespace
