// What the correction tests share: numbers made from integers, arithmetic that cannot be fused, log lines.
#ifndef TESTS_CORRECTION_SUPPORT_H
#define TESTS_CORRECTION_SUPPORT_H

#include <bit>
#include <cmath>
#include <cstring>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "tests/support.h"

namespace support {

using Floats = std::vector<float>;
using Log = std::vector<phone::LogLine>;

// A double holds the exact value of each of these well enough that rounding it to a float rounds only once:
// no compiler can make another result of it, fused or not.
inline float sum(float a, float b) {
  return static_cast<float>(static_cast<double>(a) + static_cast<double>(b));
}
inline float difference(float a, float b) {
  return static_cast<float>(static_cast<double>(a) - static_cast<double>(b));
}
inline float product(float a, float b) {
  return static_cast<float>(static_cast<double>(a) * static_cast<double>(b));
}
inline float quotient(float a, float b) {
  return static_cast<float>(static_cast<double>(a) / static_cast<double>(b));
}

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

inline void add_to_hash(uint64_t& hash, const Words& words) {
  for (const uint32_t word : words) hash = (hash ^ word) * 0x100000001B3U;
}

/// What awb_get_fuseid() logs.
inline Log fuse_lines(const uint32_t (&words)[4]) {
  Log log;
  for (int i = 0; i < 4; ++i)
    log.push_back(I(printf_text("[AWB Calibration] sfuse.fuse_id_word%d:0x%x\n", i + 1, words[i])));
  return log;
}

inline Log operator+(Log log, const Log& more) {
  log.insert(log.end(), more.begin(), more.end());
  return log;
}

inline std::string hex_list(const Words& words, size_t first, size_t count, const char* separator,
                            const char* format) {
  std::string text;
  for (size_t i = first; i < first + count; ++i) {
    if (i != first) text += separator;
    text += format[0] == '#' ? printf_text("0x%x", words[i]) : printf_text("%x", words[i]);
  }
  return text;
}

/// What is logged about a record whose lines carry the function's name and `tag`. `content` names its words.
inline Log record_lines(const std::string& name, const std::string& tag, const Words& words,
                        const std::string& content = "nandflash") {
  const std::string start = name + ", [" + tag + "] ";
  const Bytes sealed_part = le32({words.begin(), words.end() - 1});
  Log log{I(start + content + " data: " + hex_list(words, 0, 8, ", ", "#") + "\n")};
  if (bitwise_crc(sealed_part.data(), sealed_part.size()) != words.back()) {
    const std::string node = "/sys/android_camera_awb_cal/awb_cal";
    return log + Log{E(start + "read from " + node + ", not valid or check sum not OK!\n"),
                     E(start + "will do nothing!\n")};
  }
  return log +
         Log{I(start + printf_text("check sum=%x, OK\n", words.back())),
             I(start + hex_list(words, 1, 2, ", ", "") + ", (" + hex_list(words, 3, 4, " ", "") + ")\n"),
             I(start + printf_text("caBuff[0]:%d\n", static_cast<int>(words[0])))};
}

/// The words and their CRC, or, if `good` is false, one that is wrong by a bit.
inline Words with_crc(Words words, bool good = true) {
  const Bytes bytes = le32(words);
  words.push_back(bitwise_crc(bytes.data(), bytes.size()) ^ (good ? 0 : 0x400));
  return words;
}

/// Leaves out the loaders' lines, which have a test of their own.
inline Log without_loading(Log log) {
  std::erase_if(log, [](const phone::LogLine& line) {
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
