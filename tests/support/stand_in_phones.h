// Phones behind a stand-in for adb, for the tests that have one on a cable.
#ifndef TESTS_SUPPORT_STAND_IN_PHONES_H
#define TESTS_SUPPORT_STAND_IN_PHONES_H

#include <cstdlib>
#include <fstream>

#include "tests/support/tool_support.h"

namespace tool {

/// The check with the programs of a phone's build says which, and for how long.
inline std::string setting(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : otherwise;
}

class StandInPhones : public ToolTest {
 protected:
  static constexpr const char* kSerial = "0123456789ABCDEF";

  StandInPhones() {
    text_file("adb/devices", std::string(kSerial) + "\tdevice\n");
    text_file("adb/asked", "");
  }

  std::string phone_dir(const std::string& serial = kSerial) const { return path("adb/" + serial); }

  /// What is not root's gets EACCES; with `su`, that argument makes a shell root's.
  void refuse(const std::string& what, const std::string& su = "") const {
    fs::copy(phone_dir(), phone_dir() + ".root",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    std::ofstream(phone_dir() + "/faults", std::ios::app) << "* " << what << " 1+ EACCES\n";
    if (!su.empty()) text_file("adb/su", su);
  }

  /// A command line of this host, on which there are adb and awbcal.
  Outcome in_shell(const std::string& command) const {
    return support::run_shell(
        "export PATH=" SOURCE_DIR "/tests/support/stand_in:$(dirname " AWBCAL "):$PATH ADB_STAND_IN=" +
        path("adb") + " ADB_PRELOAD=" PRELOAD " ADB_PATH=" + nanddump + ":" + programs + "; " + command);
  }

  std::string programs = setting("PULL_TEST_PROGRAMS", "/usr/bin:/bin");
  std::string nanddump = setting("PULL_TEST_NANDDUMP", NANDDUMP_DIR);
};

}  // namespace tool

#endif
