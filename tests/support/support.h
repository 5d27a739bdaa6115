// What the tests share: a phone per test, records built byte by byte, and whole-effect comparisons.
//
// Nothing here calls the code under test to build an input: the CRC has a bitwise twin, records are lists of
// words.
#ifndef TESTS_SUPPORT_SUPPORT_H
#define TESTS_SUPPORT_SUPPORT_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "phone/temporary_folder.h"
#include "phone/virtual_phone.h"
#include "tests/support/bitwise_crc.h"

namespace support {

using phone::Fault;
using phone::LogLine;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint32_t>;
using Names = std::vector<std::string>;
using Log = std::vector<LogLine>;

// ---- bytes ------------------------------------------------------------------------------------------------

/// The words as little-endian bytes.
Bytes le32(const Words& words);
Bytes le64(const std::vector<uint64_t>& words);

/// The words and, behind them, the CRC-32 of their bytes.
Bytes sealed32(const Words& words);
/// The same in 64-bit fields, the CRC zero-extended.
Bytes sealed64(const std::vector<uint64_t>& words);

/// `size` bytes of a pattern that differs by place and by `salt`, so that a stray copy shows.
Bytes pattern(size_t size, uint32_t salt = 1);

uint32_t word_at(const Bytes& bytes, size_t offset);

/// Where in a partition a record may lie: of every kind and camera, for both page sizes.
std::vector<size_t> record_positions();

// ---- files and console ------------------------------------------------------------------------------------

std::optional<Bytes> read_bytes(const std::filesystem::path& path);  ///< nothing when it does not exist
std::optional<std::string> read_text(const std::filesystem::path& path);
void write_bytes(const std::filesystem::path& path, const Bytes& bytes);  ///< its folders as well
void write_text(const std::filesystem::path& path, std::string_view text);
int mode_of(const std::filesystem::path& path);  ///< permission bits; -1 when it does not exist

using phone::TemporaryFolder;

struct Outcome {
  int exit_code;  ///< -1: it did not end by itself
  std::string output;
  bool operator==(const Outcome&) const = default;
};
inline void PrintTo(const Outcome& outcome, std::ostream* stream) {
  *stream << outcome.exit_code << ": " << outcome.output;
}
/// Runs a command line and takes its standard output.
Outcome run_shell(const std::string& command);

/// Everything that `call` printed on standard output.
std::string console_of(const std::function<void()>& call);

/// Adjacent literals make lists of log lines: I("text") and the like.
// clang-format off
inline LogLine D(std::string text, std::string tag = "camera_calibration") { return {std::move(tag), 3, std::move(text)}; }
inline LogLine I(std::string text, std::string tag = "camera_calibration") { return {std::move(tag), 4, std::move(text)}; }
inline LogLine E(std::string text, std::string tag = "camera_calibration") { return {std::move(tag), 6, std::move(text)}; }
// clang-format on
inline Log infos(const Names& texts) {
  Log log;
  for (const std::string& text : texts) log.push_back(I(text));
  return log;
}
/// The text with another for each of its places.
std::string replaced(std::string text, std::string_view place, std::string_view by);
std::string printf_text(const char* format, ...) __attribute__((format(printf, 1, 2)));

inline Log operator+(Log log, const Log& more) {
  log.insert(log.end(), more.begin(), more.end());
  return log;
}

// ---- a phone per test -------------------------------------------------------------------------------------

inline constexpr uint32_t kModule[4] = {0x11223344, 0x55667788, 0x99AABBCC, 0xDDEEFF01};

/// Sets the four fuse properties of `camera` ("main", "front" or "sub"), in decimal as the driver does.
void fit_module(phone::VirtualPhone& phone, const std::string& camera, const uint32_t (&words)[4] = kModule);

/// A camera's cache file by the main camera's.
inline std::string of_camera(const std::string& name, uint32_t camera) {
  const char* suffixes[] = {"", name.ends_with("/flash_cal") ? "_front" : "_front_CAM", "_sub_CAM"};
  return name + suffixes[camera];
}

class PhoneTest : public ::testing::Test {
 protected:
  explicit PhoneTest(const phone::Options& options = {.partition_size = 256 * 1024});
  ~PhoneTest() override;  ///< fails the test if a descriptor is still open on the phone; resets the umask

  phone::VirtualPhone& phone() { return *phone_; }

  void fit_module(const std::string& camera, const uint32_t (&words)[4] = kModule) {
    support::fit_module(*phone_, camera, words);
  }

  std::filesystem::path host(std::string_view phone_path) { return phone_->host_path(phone_path); }
  void put(std::string_view phone_path, const Bytes& bytes);  ///< a file of the phone, with its folders
  std::optional<Bytes> get(std::string_view phone_path);
  /// Every file under /data/misc/camera by name.
  Names camera_files();

  /// The log so far is dropped; what `call` logs is returned, or only the lines of a tag. `call` begins with
  /// errno 0, and `error` is errno at its end.
  Log log_of(const std::function<void()>& call, std::string_view tag = "");
  Log own_log(const std::function<void()>& call) { return log_of(call, "camera_calibration"); }
  int error = 0;

  /// The pattern all over the partition.
  Bytes fill_partition(size_t size = 256 * 1024);

  /// `call` changes the partition's bytes [offset, offset + expected.size()) to `expected` and no other.
  void expect_partition_write(uint64_t offset, const Bytes& expected, const std::function<void()>& call);

 private:
  TemporaryFolder folder_;
  const mode_t umask_;
  std::optional<phone::VirtualPhone> phone_;
};

/// One row of a table of calls: what a call returns and the errno that it leaves (0: as it was).
struct CallRow {
  const char* what;
  std::function<int64_t()> call;
  int64_t result;
  int error = 0;
};
/// Makes the calls in order, each with an errno that nothing sets.
void expect_calls(const std::vector<CallRow>& rows);

/// Runs `body` with the first of its calls failing, then with the second, and so on until it makes no more;
/// then all that again with every later call failing too. `call` is as in phone::Fault. What the body opens it
/// has to close. Returns how many calls there were to fail.
template <typename Body>
unsigned for_every_failing_call(phone::VirtualPhone& phone, Body&& body, const std::string& call = "*") {
  const size_t open = phone.open_descriptors();
  unsigned calls = 0;
  for (const bool for_good : {false, true}) {
    for (unsigned nth = 1, struck = 1; struck > 0 && nth < 10000; ++nth) {
      SCOPED_TRACE(printf_text("call %u%s fails", nth, for_good ? " and every later one" : ""));
      phone.clear_faults();
      phone.add_fault({.call = call, .nth = nth, .from_then_on = for_good});
      body();
      EXPECT_EQ(phone.open_descriptors(), open) << "a descriptor was left open";
      struck = phone.struck_faults();
      if (struck > 0) calls = std::max(calls, nth);
    }
    phone.clear_faults();
  }
  EXPECT_TRUE(calls > 0 || call != "*") << "no call was there to fail";
  return calls;
}

/// Back to the state after load: selection, camid, golden sample, A-light mode, run, AEC, trigger edge.
void reset_library_state();

}  // namespace support

using support::operator+;

namespace phone {
void PrintTo(const LogLine& line, std::ostream* stream);
}

#endif
