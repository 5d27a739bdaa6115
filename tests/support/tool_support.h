// What the tests of the tool share: running it, and inputs built byte by byte.
#ifndef TESTS_SUPPORT_TOOL_SUPPORT_H
#define TESTS_SUPPORT_TOOL_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "tests/support/support.h"

namespace tool {

namespace fs = std::filesystem;
using support::Bytes;
using support::kModule;
using support::Outcome;
using support::sealed32;
using support::sealed64;
using ::testing::HasSubstr;
using ::testing::Not;

/// Every run of blanks and newlines as one blank: what a text says, wherever it was wrapped.
inline std::string unwrapped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const bool blank = c == ' ' || c == '\n';
    if (!blank || !result.ends_with(' ')) result += blank ? ' ' : c;
  }
  return result;
}

/// Has the text, however the two are broken into lines.
inline auto Tells(const std::string& text) {
  return testing::ResultOf(unwrapped, HasSubstr(unwrapped(text)));
}

/// Ended with this exit code, and with an output that is, or has, each of these.
template <class... Matchers>
auto Exits(int exit_code, const Matchers&... output) {
  return testing::AllOf(testing::Field("exit_code", &Outcome::exit_code, exit_code),
                        testing::Field("output", &Outcome::output, output)...);
}

/// Runs the built tool through the shell; `how` is where its output goes.
inline Outcome run(const std::string& arguments, const std::string& how = "2>&1") {
  return support::run_shell(AWBCAL " " + arguments + " " + how);
}

inline size_t longest_line(const std::string& text) {
  size_t longest = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

inline void put(Bytes& image, size_t offset, const Bytes& record) {
  ASSERT_LE(offset + record.size(), image.size());
  std::copy(record.begin(), record.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
}

/// An AWB record, or with the values of one, a flash record.
// clang-format off
inline Bytes awb(uint32_t valid_word = 3099, uint32_t rg = 800, uint32_t bg = 600, const uint32_t (&fuse)[4] = kModule) {
  return sealed32({valid_word, rg, bg, fuse[0], fuse[1], fuse[2], fuse[3]});
}
inline Bytes aec(const uint32_t (&fuse)[4] = kModule) { return sealed32({3099, 256, 12000, 50, fuse[0], fuse[1], fuse[2], fuse[3]}); }
inline Bytes gyro(const uint32_t (&fuse)[4] = kModule) { return sealed64({3099, fuse[0], fuse[1], fuse[2], fuse[3]}); }
inline Bytes dual_flash(const uint32_t (&fuse)[4] = kModule) {
  return sealed32({3099, 1700, 1500, 1600, 1550, 1650, 1525, fuse[0], fuse[1], fuse[2], fuse[3]});
}
// clang-format on
inline Bytes damaged(Bytes bytes, size_t at) {
  bytes.at(at) ^= 1;
  return bytes;
}

inline const std::string kFuse = " --fuse 0x11223344,0x55667788,0x99aabbcc,0xddeeff01";

/// A folder of one test's own.
class ToolTest : public ::testing::Test {
 protected:
  std::string path(const std::string& name) const { return (folder_.path() / name).string(); }
  std::string file(const std::string& name, const Bytes& bytes) const {
    support::write_bytes(folder_.path() / name, bytes);
    return path(name);
  }
  std::string text_file(const std::string& name, const std::string& text) const {
    return file(name, Bytes(text.begin(), text.end()));
  }
  Bytes bytes(const std::string& name) const {
    return support::read_bytes(folder_.path() / name).value_or(Bytes{});
  }
  std::string text(const std::string& name) const {
    return support::read_text(folder_.path() / name).value_or("(absent)");
  }

  /// What a camera's files and properties look like after `adb pull` and `getprop`.
  std::string phone(const std::string& name = "phone") const {
    file(name + "/data/misc/camera/awb_cal", awb());
    file(name + "/data/misc/camera/aec_cal", aec());
    std::string properties = "[ro.pagesize]: [4096]\n";
    for (size_t i = 0; i < 4; ++i) {
      properties += "[qor.camera.sensor.main_fuse" + std::to_string(i + 1) + "]: [" +
                    std::to_string(kModule[i]) + "]\n";
    }
    text_file(name + "/getprop.txt", properties);
    return path(name);
  }

 private:
  support::TemporaryFolder folder_;
};

}  // namespace tool

#endif
