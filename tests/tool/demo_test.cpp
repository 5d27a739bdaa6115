// Does `awbcal demo` tell the whole story of a calibration, the same for the same seed, to people and to
// scripts? Guards against a story that drifts from what the library did, and against output or exit codes
// that mislead.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/support/support.h"

namespace {

namespace fs = std::filesystem;
using support::Bytes;

struct Outcome {
  int exit_code;
  std::string output;  ///< of both streams
};

std::string everything_from(int fd) {
  std::string text;
  char part[4096];
  for (ssize_t count; (count = read(fd, part, sizeof part)) > 0;)
    text.append(part, static_cast<size_t>(count));
  return text;
}

/// Runs the built tool through the shell; `how` is where its output goes.
Outcome run(const std::string& arguments, const std::string& how = "2>&1") {
  std::FILE* pipe = popen((AWBCAL " " + arguments + " " + how).c_str(), "r");
  std::string output = everything_from(fileno(pipe));
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::move(output)};
}

/// Runs it on a terminal of its own.
Outcome run_on_terminal(const std::string& arguments, const std::string& variables) {
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    const std::string command = variables + " " AWBCAL " " + arguments;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  std::string output = everything_from(terminal);
  close(terminal);
  int status = 0;
  waitpid(child, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::move(output)};
}

std::string text_of(const fs::path& file) {
  return support::read_text(file).value_or("(no " + file.string() + ")");
}

size_t longest_line(const std::string& text) {
  size_t longest = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

class AwbcalDemo : public ::testing::Test {
 protected:
  AwbcalDemo() {
    std::string name = (fs::temp_directory_path() / "demo-XXXXXX").string();
    dir_ = mkdtemp(name.data());
  }
  ~AwbcalDemo() override { fs::remove_all(dir_); }

  std::string phone() const { return (dir_ / "phone").string(); }
  std::string file(const std::string& name, const std::string& content) const {
    std::ofstream(dir_ / name) << content;
    return (dir_ / name).string();
  }
  std::string in_phone() const { return "demo --dir " + phone(); }
  Bytes partition() const {
    return support::read_bytes(dir_ / "phone/dev/block/mmcblk0p6").value_or(Bytes{});
  }

  /// `output` is the checked-in text. With UPDATE_GOLDEN set the text is rewritten instead, which is no pass.
  void expect_golden(std::string output, const std::string& name) const {
    for (size_t at; (at = output.find(phone())) != std::string::npos;)
      output.replace(at, phone().size(), "DIR");
    const fs::path golden = fs::path(SOURCE_DIR) / "tests/tool/data" / name;
    if (std::getenv("UPDATE_GOLDEN") != nullptr) {
      std::ofstream(golden) << output;
      FAIL() << golden << " was rewritten";
    }
    EXPECT_EQ(output, text_of(golden));
  }

  fs::path dir_;
};

TEST_F(AwbcalDemo, TellsTheSameStoryForASeed) {
  const Outcome demo = run(in_phone() + " --seed 1", "2>" + phone() + ".errors");
  EXPECT_EQ(demo.exit_code, 0);
  EXPECT_EQ(text_of(phone() + ".errors"), "");
  expect_golden(demo.output, "demo_seed1_emmc.txt");
}

TEST_F(AwbcalDemo, TellsTheSameStoryOnNand) {
  const Outcome demo = run(in_phone() + " --seed 1 --storage nand");
  EXPECT_EQ(demo.exit_code, 0);
  expect_golden(demo.output, "demo_seed1_nand.txt");
}

TEST_F(AwbcalDemo, EndsWellWithAnySeedOnEightyColumnsAndWithoutEscapeCodes) {
  for (const char* seed : {"0", "2", "18446744073709551615"}) {
    const Outcome demo = run(in_phone() + " --seed " + seed);
    EXPECT_EQ(demo.exit_code, 0) << seed;
    EXPECT_LE(longest_line(demo.output), 80U) << seed;
    EXPECT_EQ(demo.output.find('\033'), std::string::npos) << seed;
    EXPECT_EQ(demo.output.find('\r'), std::string::npos) << seed;
  }
}

// The story against what is really in the folder: records built here from the words that it names.
TEST_F(AwbcalDemo, LeavesTheRecordsThatItShows) {
  ASSERT_EQ(run(in_phone()).exit_code, 0);
  const fs::path files = dir_ / "phone/data/misc/camera";
  const Bytes main_record = support::read_bytes(files / "awb_cal").value_or(Bytes{});
  ASSERT_EQ(main_record.size(), 32U);
  EXPECT_EQ(support::word_at(main_record, 28), support::bitwise_crc(main_record.data(), 28));
  const Bytes mfg = partition();
  EXPECT_TRUE(std::equal(main_record.begin(), main_record.end(), mfg.begin() + 0x20000));
  EXPECT_EQ(support::word_at(mfg, 0x21000), 3000U) << "the front module is out of tolerance";
  EXPECT_FALSE(fs::exists(files / "awb_cal_front_CAM"));
  EXPECT_TRUE(fs::exists(files / "awb_calibration_fail_front_CAM.txt"));
  EXPECT_TRUE(fs::exists(files / "awb_calibration_success_sub_CAM.txt"));
  EXPECT_FALSE(fs::exists(files / "awb_calibration_fail_sub_CAM.txt")) << "the retry came to a good end";
  EXPECT_EQ(support::mode_of(files / "awb_A_light_cal"), 0644);
}

/// The fuse ID that the demo gave to a camera's module, from the phone's properties.
support::Words fuse_words(const fs::path& phone, const std::string& camera) {
  support::Words words;
  std::istringstream properties(text_of(phone / "properties"));
  for (std::string line; std::getline(properties, line);) {
    const std::string name = "qor.camera.sensor." + camera + "_fuse" + std::to_string(words.size() + 1) + "=";
    if (line.starts_with(name)) words.push_back(static_cast<uint32_t>(std::stoul(line.substr(name.size()))));
  }
  return words;
}

TEST_F(AwbcalDemo, LeavesTheOtherWritersRecords) {
  ASSERT_EQ(run(in_phone()).exit_code, 0);
  const support::Words fuse = fuse_words(phone(), "main");
  ASSERT_EQ(fuse.size(), 4U);
  const std::pair<size_t, Bytes> records[] = {
      {0x20E08, support::sealed32({3099, 1772, 1618, fuse[0], fuse[1], fuse[2], fuse[3]})},
      {0x20E6C,
       support::sealed32({3099, 1506, 1750, 1101, 2498, 1296, 2028, fuse[0], fuse[1], fuse[2], fuse[3]})},
      {0x20EA0, support::sealed64({3099, fuse[0], fuse[1], fuse[2], fuse[3]})}};
  const Bytes mfg = partition();
  for (const auto& [offset, record] : records) {
    const auto at = mfg.begin() + static_cast<std::ptrdiff_t>(offset);
    EXPECT_EQ(Bytes(at, at + static_cast<std::ptrdiff_t>(record.size())), record) << std::hex << offset;
  }
  EXPECT_EQ(text_of(dir_ / "phone/data/misc/camera/dual_calibration_success.txt"), "");
}

TEST_F(AwbcalDemo, ShowsWhatACameraStartChanges) {
  const Outcome demo = run(in_phone());
  const double ratio = support::word_at(partition(), 0x20004) / 1024.0 / 0.7539;
  EXPECT_NE(demo.output.find(support::printf_text("0  0.4600  %.4f  %.4f", 0.46 * ratio, ratio)),
            std::string::npos);
  size_t same = 0;
  for (size_t at = 0; (at = demo.output.find("every byte as from the cache files", at)) != std::string::npos;
       ++at) {
    ++same;
  }
  EXPECT_EQ(same, 3U) << "a start from the export gives the same tuning";
  EXPECT_TRUE(fs::exists(dir_ / "phone/data/misc/camera/lsc_cal_sub_CAM")) << "the cache files were put back";
}

// ---- recorded streams -------------------------------------------------------------------------------------

/// The record's word for a column of the stream: the mean of ten rounded means.
uint32_t expected_word(const fs::path& csv, size_t column) {
  std::ifstream stream(csv);
  int64_t sum = 0;
  int frames = 0;
  for (std::string line; frames < 10 && std::getline(stream, line);) {
    long long fields[3];
    if (std::sscanf(line.c_str(), "%lld,%lld,%lld", &fields[0], &fields[1], &fields[2]) != 3) continue;
    sum += (fields[column] + fields[2] / 2) / fields[2];
    ++frames;
  }
  return static_cast<uint32_t>(sum / 10);
}

TEST_F(AwbcalDemo, JudgesARecordedStream) {
  const fs::path csv = fs::path(SOURCE_DIR) / "examples/frames_d65_main.csv";
  const Outcome demo = run(in_phone() + " --frames " + csv.string());
  EXPECT_EQ(demo.exit_code, 0);
  EXPECT_NE(demo.output.find("recorded stream"), std::string::npos);
  EXPECT_EQ(support::word_at(partition(), 0x20004), expected_word(csv, 0));
  EXPECT_EQ(support::word_at(partition(), 0x20008), expected_word(csv, 1));
}

TEST_F(AwbcalDemo, SaysThatAShortStreamGivesNoVerdict) {
  const std::string csv =
      file("short.csv", "rg_sum,bg_sum,count\n\n# two frames\n770000,570000,1000\r\n 1 , 2 , 0 \n");
  const Outcome demo = run(in_phone() + " --frames " + csv);
  EXPECT_EQ(demo.exit_code, 1);
  EXPECT_NE(demo.output.find("No verdict after 2 frames"), std::string::npos);
  EXPECT_NE(demo.output.find("Calibration fail: Time out!!"), std::string::npos);
  EXPECT_EQ(support::word_at(partition(), 0x20000), 0U);
}

TEST_F(AwbcalDemo, NamesTheLineOfABadStream) {
  const std::pair<const char*, const char*> rows[] = {
      {"1,2\n", ":1: 2 fields where rg_sum,bg_sum,count are 3"},
      {"1,2,3,4\n", ":1: 4 fields where rg_sum,bg_sum,count are 3"},
      {"1,2,3\n\n1,x,3\n", ":3: bg_sum is not a whole number: \"x\""},
      {"1,2,3\n1.5,2,3\n", ":2: rg_sum is not a whole number: \"1.5\""},
      {"1,,3\n", ":1: bg_sum is not a whole number: \"\""},
      {"2147483648,2,3\n", ":1: rg_sum does not fit into 32 bits: 2147483648"},
      {"1,2,-1\n", ":1: count is negative: -1"},
      {"1,2,3\nrg_sum,bg_sum,count\n", ":2: rg_sum is not a whole number: \"rg_sum\""},
      {"# only a comment\n", ": holds no frame"},
      {"", ": holds no frame"},
  };
  for (const auto& [content, message] : rows) {
    const std::string csv = file("bad.csv", content);
    const Outcome demo = run(in_phone() + " --frames " + csv);
    EXPECT_EQ(demo.exit_code, 2) << content;
    EXPECT_EQ(demo.output, "awbcal: " + csv + message + "\n");
    EXPECT_FALSE(fs::exists(phone())) << "a phone was made for nothing";
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
    EXPECT_EQ(refused.output.find("=="), std::string::npos) << arguments << " began the story";
  }
}

TEST_F(AwbcalDemo, KeepsAwayFromFoldersThatItDidNotMake) {
  const std::string mine = file("letter.txt", "dear all");
  const Outcome refused = run("demo --dir " + dir_.string());
  EXPECT_EQ(refused.exit_code, 2);
  EXPECT_NE(refused.output.find("not empty"), std::string::npos);
  EXPECT_EQ(text_of(mine), "dear all");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), {}), 1);
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

TEST_F(AwbcalDemo, FailsWhenItCannotPrint) {
  EXPECT_EQ(run(in_phone(), ">/dev/full 2>&1").exit_code, 2);
}

// ---- a terminal -------------------------------------------------------------------------------------------

TEST_F(AwbcalDemo, ShowsColourAndProgressOnATerminal) {
  const Outcome coloured = run_on_terminal(in_phone(), "TERM=xterm");
  EXPECT_EQ(coloured.exit_code, 0);
  EXPECT_NE(coloured.output.find("\033[32mPASS\033[0m"), std::string::npos);
  EXPECT_NE(coloured.output.find("\r\033[K  main camera  frame  1"), std::string::npos);

  const Outcome plain = run_on_terminal(in_phone(), "NO_COLOR=1 TERM=xterm");
  EXPECT_EQ(plain.output.find("\033[32m"), std::string::npos);
}

}  // namespace
