// Does an unmodified program meet the phone when libvirtual_phone.so is preloaded into it?
// Guards against a phone that works for test programs only, and against one that lets a program out onto the
// host.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "phone/virtual_phone.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
  int exit_code;
  std::string output;
  bool operator==(const Outcome&) const = default;
};

/// Runs the program with the phone; RUN_PRELOADED is how a program of the target is started with a preload.
Outcome run(const fs::path& phone_dir, const std::string& settings = "") {
  const std::string command =
      "VIRTUAL_PHONE=" + phone_dir.string() + " " + settings + " " RUN_PRELOADED " " PROGRAM " hello 2>&1";
  std::FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return {-1, ""};
  std::string output;
  for (int next = fgetc(pipe); next != EOF; next = fgetc(pipe)) output += static_cast<char>(next);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

class PreloadTest : public testing::Test {
 protected:
  PreloadTest() {
    char name[] = "/tmp/virtual_phone_preload_XXXXXX";
    root = mkdtemp(name);
    dir = root / "phone";
    phone::VirtualPhone::create(dir);
  }
  ~PreloadTest() override { fs::remove_all(root); }
  fs::path root;
  fs::path dir;
};

std::string read_file(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(PreloadTest, AnUnmodifiedProgramWorksInThePhone) {
  EXPECT_EQ(run(dir), (Outcome{0, "/dev/block/mmcblk0p6 hello\n"}));
  EXPECT_EQ(read_file(dir / "data/misc/camera/out"), "written");
  EXPECT_EQ(read_file(dir / "dev/block/mmcblk0p6").substr(0x100, 5), "hello");
}

TEST_F(PreloadTest, LogLinesArePrintedWhenAskedFor) {
  const Outcome logged = run(dir, "VIRTUAL_PHONE_LOG=stderr");
  EXPECT_EQ(logged.exit_code, 0);
  EXPECT_TRUE(logged.output.starts_with("I/program (")) << logged.output;
  EXPECT_NE(logged.output.find("): size 5\n"), std::string::npos) << logged.output;
}

TEST_F(PreloadTest, FaultsOfTheFileStrikeTheProgram) {
  std::ofstream(dir / "faults", std::ios::app) << "pwrite /dev/block/* 1 EIO\n";
  EXPECT_EQ(run(dir), (Outcome{4, ""}));
}

TEST_F(PreloadTest, WithoutAPhoneOrRedirectionThePartitionStaysAsItWas) {
  EXPECT_EQ(run(dir, "VIRTUAL_PHONE_REDIRECT=0").exit_code, 2);
  EXPECT_EQ(run(root / "nowhere").exit_code, 126);
  std::ofstream(dir / "faults") << "nonsense\n";
  EXPECT_EQ(run(dir).exit_code, 126);
  EXPECT_EQ(read_file(dir / "dev/block/mmcblk0p6").find("hello"), std::string::npos);
}

}  // namespace
