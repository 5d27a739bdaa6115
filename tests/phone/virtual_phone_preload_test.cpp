// Does an unmodified program meet the phone when libvirtual_phone.so is preloaded into it?
// Guards against a phone that works for test programs only, and against one that lets a program out onto the
// host.
#include <fstream>

#include "tests/support/support.h"

namespace {

using namespace support;
namespace fs = std::filesystem;

/// Runs the program with the phone; RUN_PRELOADED is how a program of the target is started with a preload.
Outcome run(const fs::path& phone_dir, const std::string& settings = "") {
  return run_shell("VIRTUAL_PHONE=" + phone_dir.string() + " " + settings +
                   " " RUN_PRELOADED " " PROGRAM " hello 2>&1");
}

class PreloadTest : public testing::Test {
 protected:
  PreloadTest() { phone::VirtualPhone::create(dir); }
  const phone::TemporaryFolder folder;
  const fs::path& root = folder.path();
  const fs::path dir = root / "phone";
};

TEST_F(PreloadTest, AnUnmodifiedProgramWorksInThePhone) {
  EXPECT_EQ(run(dir), (Outcome{0, "/dev/block/mmcblk0p6 hello\n"}));
  EXPECT_EQ(*read_text(dir / "data/misc/camera/out"), "written");
  EXPECT_EQ(read_text(dir / "dev/block/mmcblk0p6")->substr(0x100, 5), "hello");
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
  EXPECT_EQ(read_text(dir / "dev/block/mmcblk0p6")->find("hello"), std::string::npos);
}

}  // namespace
