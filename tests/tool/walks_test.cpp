// Do the walks that the documents print work as printed? Guards against a document that a person follows in vain.

#include <fstream>

#include "tests/support/stand_in_phones.h"

namespace {

using namespace tool;

class Walk : public StandInPhones {
 protected:
  /// A phone that the production line made, connected.
  void connect_demo(const std::string& serial = kSerial) const {
    ASSERT_THAT(run("demo --seed 1 --dir " + phone_dir(serial)), Exits(0));
  }

  /// Every command of the walk does what is shown below it, in the order of the document; "..." is what was left out.
  void follow(const std::string& document, const std::string& walk) const {
    std::istringstream lines(support::read_text(fs::path(SOURCE_DIR) / "docs" / document).value_or(""));
    std::string line;
    while (std::getline(lines, line) && line != "<!-- walk: " + walk + " -->") {
    }
    std::getline(lines, line);
    ASSERT_EQ(line, "```") << document << ": " << walk;
    std::string printed;
    size_t commands = 0;
    while (std::getline(lines, line) && line != "```") {
      if (line.starts_with("$ ")) {
        printed = in_shell("cd " + path("") + " && " + line.substr(2) + " 2>&1").output;
        ++commands;
      } else if (line != "...") {
        EXPECT_THAT("\n" + printed, HasSubstr("\n" + line + "\n")) << document << ": " << walk;
      }
    }
    EXPECT_GT(commands, 1U);
  }
};

TEST_F(Walk, FromAPhoneOnACableToAnExplanation) {
  connect_demo();
  refuse("/dev/block/*");
  follow("real-phone.md", "phone on a cable");
}

TEST_F(Walk, FromAPhoneByHand) {
  connect_demo();
  refuse("/dev/block/*", "0");
  follow("real-phone.md", "by hand");
}

TEST_F(Walk, FromABugReportToAnExplanation) {
  ASSERT_THAT(run("demo --seed 1 --dir " + path("phone")), Exits(0));
  fs::create_directory_symlink(fs::path(SOURCE_DIR) / "examples", path("examples"));
  follow("logs.md", "bug report");
}

TEST_F(Walk, FromAnOldBoardToANewOneWithOneModuleExchanged) {
  connect_demo("OLD");
  connect_demo("NEW");
  text_file("adb/devices", "OLD\tdevice\nNEW\tdevice\n");
  text_file("adb/su", "0");
  const fs::path board = phone_dir("NEW");
  Bytes partition = support::pattern(1024 * 1024);
  std::fill_n(partition.begin() + 0x20000, 0x4000, 0);
  support::write_bytes(board / "dev/block/mmcblk0p6", partition);
  for (const char* folder : {"data/misc/camera", "sys/android_camera_awb_cal"}) {
    for (const auto& entry : fs::directory_iterator(board / folder)) fs::remove(entry.path());
  }
  std::string properties = *support::read_text(board / "properties");
  support::write_text(board / "properties", support::replaced(properties, "front_fuse1=", "front_fuse1=1"));
  for (const char* serial : {"OLD", "NEW"})
    fs::create_directory_symlink(phone_dir(serial), phone_dir(serial) + ".root");
  follow("service.md", "old board to new board");
}

}  // namespace
