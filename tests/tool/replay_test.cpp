// Does replay run the real library on recorded frames and tell what it did? Guards against a verdict that the
// factory would not have given.

#include "tests/support/tool_support.h"

namespace {

using namespace tool;

Bytes raw16(const std::vector<uint16_t>& samples) {
  Bytes bytes;
  for (const uint16_t sample : samples) {
    bytes.push_back(static_cast<uint8_t>(sample));
    bytes.push_back(static_cast<uint8_t>(sample >> 8));
  }
  return bytes;
}

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

std::string csv(int frames, const std::string& line) {
  std::string text = "rg_sum,bg_sum,count\n";
  for (int i = 0; i < frames; ++i) text += line + "\n";
  return text;
}
std::string csv(int frames, int rg) {
  return csv(frames, std::to_string(rg * 1000) + ",576000,1000");
}

TEST_F(Replay, JudgesAStreamWithItsMargin) {
  EXPECT_THAT(
      run("replay " + text_file("a.csv", csv(11, 800)) + " --golden 0.75,0.5625 --threshold 10"),
      Exits(0,
            HasSubstr("   11     1000     0       0  0.7812  0.5625  0.0312      42 %  judges  a.csv:12\n"),
            HasSubstr("Record: valid word 3099, R/G 800 (0.7812), B/G 576 (0.5625)\n"
                      "PASS: 0.0312 from the golden sample, 0.0750 allowed (42 % of it)\n")));
  EXPECT_THAT(run("replay " + path("a.csv") + " --golden 0.75,0.5625 --threshold 4 --light-source 2"),
              Exits(1, HasSubstr("Record: valid word 2000"),
                    HasSubstr("FAIL: 0.0312 from the golden sample, 0.0300 allowed (104 % of it)")));
}

// 3/8 and 4/8 off, so that the distance is 5/8; a quarter of the larger golden ratio is allowed. A distance of
// exactly the limit passes.
TEST_F(Replay, MeasuresTheDistanceFromTheGoldenSample) {
  const std::string name = text_file("a.csv", csv(11, "640,512,1"));
  EXPECT_THAT(run("replay " + name + " --golden 1,1 --threshold 25"),
              Exits(1, HasSubstr("FAIL: 0.6250 from the golden sample, 0.2500 allowed (250 % of it)")));
  EXPECT_EQ(run("replay " + name + " --golden 1,1 --threshold 63").exit_code, 0);
  EXPECT_EQ(
      run("replay " + text_file("on.csv", csv(11, "768,1024,1")) + " --golden 1,1 --threshold 25").exit_code,
      0);
}

// 32-bit sums wrap in the library, and the tool shows the frame that the library saw.
TEST_F(Replay, ShowsTheWrappedMeanThatTheLibraryLogs) {
  text_file("a.csv", csv(11, "2147483647,576,2"));
  EXPECT_THAT(run("replay " + path("a.csv") + " --golden 0.75,0.5625 --json").output,
              HasSubstr("\"rg\": -1073741824"));
  run("demo --dir " + path("phone") + " --frames " + path("a.csv"));
  EXPECT_THAT(text("phone/logcat.txt"), HasSubstr("rg=-1073741824.000000 bg=288.000000"));
}

TEST_F(Replay, GivesNoVerdictOnTenFrames) {
  EXPECT_THAT(run("replay " + text_file("a.csv", csv(10, 800)) + " --golden 0.75,0.5625"),
              Exits(3, HasSubstr("NOTHING TO JUDGE: 10 frames; ten are summed, the eleventh judges\n")));
}

// On the phone a frame without samples counts, and pulls the mean down: nobody would see why.
TEST_F(Replay, NamesAFrameThatCountsAsNothing) {
  text_file("a.csv", csv(5, 800) + "0,0,0\n" + csv(5, 800).substr(20));
  EXPECT_THAT(run("replay " + path("a.csv") + " --golden 0.75,0.5625").output,
              ::testing::AllOf(
                  Tells("warning: frame 6 (" + path("a.csv") + ":7) has no usable sample and counts as 0"),
                  HasSubstr("R/G 720 (0.7031)")));
  EXPECT_THAT(run("replay " + path("a.csv") + " --golden 0.75,0.5625 --json").output,
              HasSubstr("\"is_without_samples\": true"));
}

// 64 above black: R/G is 360 / 480 and B/G 270 / 480 for either packing and any order of the colours.
TEST_F(Replay, ReducesPackedImagesOverTheGridWhoseFormatTheirNameOrContentTells) {
  const auto samples = flat(64, 48, 424, 544, 334);
  const std::string golden = " --golden 0.75,0.5625", size = " --size 64x48";
  file("x.raw", raw16(samples));
  file("y", raw10(samples));
  text_file("z", "\xEF\xBB\xBF" + csv(11, 800));
  for (const std::string& input :
       {eleven("x.raw"), eleven("y"), eleven("x.raw") + " --format raw16", eleven("y") + " --format raw10"}) {
    EXPECT_THAT(
        run("replay" + input + golden + size),
        Exits(0, HasSubstr("    1      768     0       0  0.7500  0.5625  0.0000       0 %  summed")));
  }
  EXPECT_THAT(run("replay " + path("x.raw") + golden + size + " --bayer bggr").output,
              HasSubstr("768     0       0  0.5625  0.7500"));
  // From the second sample of its rows on the same sensor begins with green.
  const Bytes wide = raw16(flat(66, 48, 424, 544, 339));
  file("x.raw", Bytes(wide.begin() + 2, wide.end() - 2));
  EXPECT_THAT(
      run("replay " + path("x.raw") + golden + size + " --format raw16 --stride 132 --bayer grbg").output,
      HasSubstr("768     0       0  0.7500  0.5732"));
  EXPECT_EQ(run("replay - <" + path("z") + golden).exit_code, 0);
  EXPECT_THAT(run("replay " + path("y") + golden).output,
              HasSubstr("neither name nor content says what it is"));
}

TEST_F(Replay, RefusesWhatItCannotUse) {
  const std::string name = text_file("a.csv", csv(11, 800));
  file("short.raw", Bytes(10));
  file("long.raw", Bytes(64 * 48 * 2 + 1));
  file("red.raw", raw16(flat(800, 600, 60000, 1400, 1400)));
  const std::string raw = path("short.raw") + " --golden 1,1 --format raw16 --size ";
  for (const std::string& arguments :
       {name, name + " --golden 0,1", name + " --golden 1,1 --threshold -1",
        name + " --golden 1,1 --threshold 1.5", name + " --golden 1,1 --threshold nan",
        name + " --golden 1,1 --light-source 4", path("no") + " --golden 1,1", raw + "64x48",
        path("long.raw") + " --golden 1,1 --format raw16 --size 64x48",
        path("red.raw") +
            " --golden 1,1 --format raw16 --size 800x600 --black 0 --white 65535 --grid 400x300",
        raw + "0x0", raw + "x", raw + "65x48", name + " --golden 1,1 --format dng"}) {
    const Outcome refused = run("replay " + arguments);
    EXPECT_EQ(refused.exit_code, 2) << arguments << refused.output;
    EXPECT_NE(refused.output, "") << arguments;
  }
}

TEST_F(Replay, LeavesOutAndCountsDarkAndSaturatedCells) {
  auto samples = flat(64, 48, 424, 544, 334);
  samples[0] = 919;  // one sample at the limit, 95 % from black to white, spoils its cell of 2 x 2
  for (size_t y = 0; y < 2; ++y) {
    for (size_t x = 2; x < 6; ++x) samples[y * 64 + x] = 65;  // two dark cells
  }
  file("16.raw", raw16(samples));
  EXPECT_THAT(
      run("replay " + path("16.raw") + " --golden 0.75,0.5625 --size 64x48 --format raw16 --white 964")
          .output,
      HasSubstr("    1      765     2       1  0.7500  0.5625"));
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
  std::ranges::copy(raw16(samples), std::back_inserter(bytes));
  return bytes;
}

TEST_F(Replay, ReadsDng) {
  Bytes bytes = dng(flat(128, 96, 424, 544, 334), 128, 96);
  file("a.dng", bytes);
  EXPECT_THAT(run("replay" + eleven("a.dng") + " --golden 0.75,0.5625 --format dng"),
              Exits(0, HasSubstr("    1      768     0       0  0.7500  0.5625")));
  bytes.resize(300);
  EXPECT_EQ(run("replay " + file("cut.dng", bytes) + " --golden 0.75,0.5625 --format dng").exit_code, 2);
}

}  // namespace
