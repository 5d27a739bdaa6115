// What the correction tests share: numbers made from integers, arithmetic that cannot be fused, records, log
// lines.
#ifndef TESTS_SUPPORT_CORRECTION_SUPPORT_H
#define TESTS_SUPPORT_CORRECTION_SUPPORT_H

#include <bit>
#include <cmath>
#include <cstring>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "tests/support/support.h"

namespace support {

using Floats = std::vector<float>;

// ---- arithmetic -------------------------------------------------------------------------------------------

// A double holds the exact value of each of these well enough that rounding it to a float rounds only once:
// no compiler can make another result of it, fused or not.
// clang-format off
inline float sum(double a, double b) { return static_cast<float>(a + b); }
inline float difference(double a, double b) { return static_cast<float>(a - b); }
inline float product(double a, double b) { return static_cast<float>(a * b); }
inline float quotient(double a, double b) { return static_cast<float>(a / b); }
// clang-format on

/// Integers that are the same on every machine.
class Integers {
 public:
  explicit Integers(uint32_t seed) : state_(seed) {}
  uint32_t next() {
    state_ = state_ * 1664525U + 1013904223U;
    return state_ >> 8 | state_ << 24;
  }
  /// Mostly between 0.5 and 2, now and then anything: subnormal, infinite, not a number.
  float gain() {
    const uint32_t kind = next();
    return std::bit_cast<float>(kind % 16 == 0 ? next() : 0x3F000000U + (next() & 0xFFFFFFU));
  }
  Floats gains(size_t count) {
    Floats made(count);
    for (float& value : made) value = gain();
    return made;
  }

 private:
  uint32_t state_;
};

/// The bits, with one pattern for every NaN: sign and payload are the machine's own.
inline Words bits_of(const Floats& values) {
  Words words;
  for (const float value : values)
    words.push_back(std::isnan(value) ? 0x7FC00000U : std::bit_cast<uint32_t>(value));
  return words;
}

// ---- records ----------------------------------------------------------------------------------------------

inline constexpr uint32_t kMainModule[4] = {71, 0x80000002, 73, 74};
inline const Words kThis = {kModule[0], kModule[1], kModule[2], kModule[3]};  // the front and sub module
inline const Words kThisNoFirst = {0, kModule[1], kModule[2], kModule[3]};
inline const Words kMain = {71, 0x80000002, 73, 74};
inline const Words kMainNoFirst = {0, 0x80000002, 73, 74};
inline const Words kAny = {0, 0, 0, 0};
inline const Words kStranger = {1, 2, 3, 4};

enum class Crc { good, bad };

/// Valid word, values, fuse words and their CRC.
inline Words record(uint32_t valid_word, const Words& fuse, const Words& values, Crc crc = Crc::good) {
  Words words{valid_word};
  words.insert(words.end(), values.begin(), values.end());
  words.insert(words.end(), fuse.begin(), fuse.end());
  const Bytes bytes = le32(words);
  words.push_back(bitwise_crc(bytes.data(), bytes.size()) ^ (crc == Crc::bad ? 0x400 : 0));
  return words;
}

inline constexpr const char* kExports[] = {"/sys/android_camera_awb_cal/awb_cal",
                                           "/sys/android_camera_awb_cal/awb_cal_front",
                                           "/sys/android_camera_awb_cal/awb_cal_sub"};

/// A phone with three modules fitted and no record anywhere.
class CorrectionTest : public PhoneTest {
 protected:
  CorrectionTest() {
    fit_module("main", kMainModule);
    fit_module("front");
    fit_module("sub");
    for (const char* node : kExports) put_words(node, {});
  }
  /// No words: no file.
  void put_words(std::string_view path, const Words& words) {
    put(path, le32(words));
    if (words.empty()) std::filesystem::remove(host(path));
  }
};

// ---- log lines --------------------------------------------------------------------------------------------

/// Words as "0x1, 0x2" or, with another separator, as "1 2".
inline std::string hex_list(const Words& words, size_t first, size_t count, const char* separator = ", 0x") {
  std::string text = separator[0] == ',' ? "0x" : "";
  for (size_t i = first; i < first + count; ++i)
    text += (i == first ? "" : separator) + printf_text("%x", words[i]);
  return text;
}

/// What awb_get_fuseid() logs.
inline Log fuse_lines(const Words& words) {
  Log log;
  for (size_t i = 0; i < 4; ++i)
    log.push_back(I(printf_text("[AWB Calibration] sfuse.fuse_id_word%zu:0x%x\n", i + 1, words[i])));
  return log;
}

/// What is logged about a record whose lines carry the function's name and `tag`; `content` names its words.
inline Log record_lines(const std::string& name, const std::string& tag, const Words& words, Crc crc,
                        const std::string& content = "nandflash") {
  const std::string start = name + ", [" + tag + "] ";
  const Log log{I(start + content + " data: " + hex_list(words, 0, 8) + "\n")};
  const std::string node = "/sys/android_camera_awb_cal/awb_cal";
  if (crc == Crc::bad)
    return log + Log{E(start + "read from " + node + ", not valid or check sum not OK!\n"),
                     E(start + "will do nothing!\n")};
  return log +
         Log{I(start + printf_text("check sum=%x, OK\n", words.back())),
             I(start + printf_text("%x, %x, (", words[1], words[2]) + hex_list(words, 3, 4, " ") + ")\n"),
             I(start + printf_text("caBuff[0]:%d\n", static_cast<int>(words[0])))};
}

enum class Awb { absent, bad_crc, refused, used };

/// What both reference-point corrections log up to the record's verdict.
inline Log awb_lines(const std::string& name, const Words& words, const Words& module, Awb outcome) {
  const Log log =
      fuse_lines(module) + Log{I(name + ", [AWB Calibration] fuse_id : " + hex_list(module, 0, 4) + "\n")};
  if (outcome == Awb::absent) return log;
  Log lines = record_lines(name, "AWB Calibration", words, outcome == Awb::bad_crc ? Crc::bad : Crc::good);
  for (size_t i = 1; i < lines.size(); ++i) lines[i].text.erase(0, name.size() + 2);
  if (outcome == Awb::bad_crc) return log + lines;
  lines[2].text = "[AWB Calibration] " + hex_list(words, 3, 4, " ") + "\n";
  const std::string refused =
      "[AWB Calibration] valid bit!=99 or calibration light version not in the list. ";
  lines.push_back(outcome == Awb::used
                      ? I("[AWB Calibration] valid bit and fuseID pass, use new white points\n")
                      : E(refused + "Use default setting.\n"));
  return log + lines;
}

/// Leaves out the loaders' lines, which have a test of their own.
inline Log without_loading(Log log) {
  std::erase_if(log, [](const LogLine& line) {
    for (const char* start : {"ReadFlash", "ReadAWBCalibration()", "[AWB Calibration] read from file",
                              "[AWB Calibration] fail to read", "[Flash Calibration] read from file",
                              "[Flash Calibration] fail to read", "[Dual AWB Calibration]"})
      if (line.text.starts_with(start)) return true;
    return false;
  });
  return log;
}

}  // namespace support

#endif
