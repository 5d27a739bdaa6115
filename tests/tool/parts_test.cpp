// Do the tool's layers read, judge and lay out what they are given, and leave nothing behind? Guards against a
// decoder that shows the wrong bytes and against a judgement that passes a damaged record.

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>

#include "inspect/claims.h"
#include "inspect/decode.h"
#include "run/bounded_process.h"
#include "run/guarded_folder.h"
#include "run/sensor_model.h"
#include "tests/support/support.h"
#include "text/printable.h"
#include "text/terminal.h"

namespace {

using awbcal::RecordKind;
using support::Bytes;
using support::kModule;
using support::sealed32;

constexpr calib::FuseWords kFitted = {kModule[0], kModule[1], kModule[2], kModule[3]};

/// A dual-camera record: its words are not aligned.
Bytes dual_camera_record() {
  Bytes bytes = support::le32({3099});
  const Bytes payload = support::pattern(1643);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  const auto [f1, f2, f3, f4] = kModule;
  std::ranges::copy(support::le32({f1, f2, f3, f4}), std::back_inserter(bytes));
  const uint32_t crc = support::bitwise_crc(bytes.data(), bytes.size());
  std::ranges::copy(support::le32({crc}), std::back_inserter(bytes));
  return bytes;
}

struct Sample {
  RecordKind kind;
  uint32_t sub_offset;  ///< in the record area, of the sub camera's record
  Bytes bytes;
  std::vector<std::string> values;  ///< between the valid word and the fuse ID
};

std::vector<Sample> samples() {
  const auto [f1, f2, f3, f4] = kModule;
  return {
      {RecordKind::awb, 0x2000, sealed32({3099, 798, 563, f1, f2, f3, f4}), {"798", "563"}},
      {RecordKind::a_light_awb, 0x2EC0, sealed32({3099, 1168, 357, f1, f2, f3, f4}), {"1168", "357"}},
      {RecordKind::flash, 0x2E08, sealed32({3099, 1772, ~0U, f1, f2, f3, f4}), {"1772", "-1"}},
      {RecordKind::aec,
       0x2E28,
       sealed32({3099, 256, 4000000000U, 50, f1, f2, f3, f4}),
       {"256", "4000000000", "50"}},
      {RecordKind::dual_flash,
       0x2E6C,
       sealed32({3099, 1, 2, 3, 4, 5, 6, f1, f2, f3, f4}),
       {"1", "2", "3", "4", "5", "6"}},
      {RecordKind::gyro, 0x2EA0, support::sealed64({3099, f1, f2, f3, f4}), {}},
      {RecordKind::dual_camera, 0x3200, dual_camera_record(), {"1643 bytes"}},
  };
}

size_t passed_rules(const Sample& sample, const Bytes& bytes, const calib::FuseWords& module) {
  const auto rules = awbcal::rules_of(awbcal::record_spec(sample.kind), bytes, module);
  return static_cast<size_t>(
      std::count_if(rules.begin(), rules.end(), [](const auto& rule) { return rule.passed; }));
}

TEST(Decode, ShowsEveryFieldOfEveryRecord) {
  for (const Sample& sample : samples()) {
    const awbcal::RecordSpec& spec = awbcal::record_spec(sample.kind);
    SCOPED_TRACE(spec.name);
    ASSERT_EQ(spec.size, sample.bytes.size());
    EXPECT_EQ(awbcal::area_offset(spec, 2), sample.sub_offset);
    std::vector<std::string> expected = {"3099"};
    expected.insert(expected.end(), sample.values.begin(), sample.values.end());
    for (const uint32_t word : kModule) expected.push_back(support::printf_text("0x%08x", word));
    const size_t crc_at = sample.kind == RecordKind::gyro ? 40 : sample.bytes.size() - 4;
    expected.push_back(support::printf_text("0x%08x", support::bitwise_crc(sample.bytes.data(), crc_at)));
    std::vector<std::string> shown;
    for (const awbcal::Field& field : awbcal::decode(spec, sample.bytes)) shown.push_back(field.value);
    EXPECT_EQ(shown, expected);
  }
}

TEST(Decode, KnowsBothPageSizes) {
  EXPECT_EQ(awbcal::area_base("4096"), 0x20000U);
  for (const char* other : {"2048", "", "4096 ", "04096"})
    EXPECT_EQ(awbcal::area_base(other), 0x10000U) << other;
}

TEST(Judge, PassesGoodRecordsAndSeesEveryDamagedByte) {
  for (const Sample& sample : samples()) {
    SCOPED_TRACE(awbcal::record_spec(sample.kind).name);
    EXPECT_EQ(passed_rules(sample, sample.bytes, kFitted), 3U);
    for (size_t i = 0; i < sample.bytes.size(); ++i) {
      Bytes damaged = sample.bytes;
      damaged[i] ^= 0x10;
      EXPECT_LT(passed_rules(sample, damaged, kFitted), 3U) << "byte " << i;
    }
    EXPECT_EQ(passed_rules(sample, sample.bytes, {kModule[0], kModule[1], kModule[2], 0}), 2U)
        << "another module";
  }
}

TEST(Wrap, KeepsEveryWordAndTheWidth) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(awbcal::wrap("one two three", 7), (Lines{"one two", "three"}));
  EXPECT_EQ(awbcal::wrap("one two three", 8), (Lines{"one two", "three"}));
  EXPECT_EQ(awbcal::wrap("abcdefgh i", 3), (Lines{"abc", "def", "gh", "i"}));
  EXPECT_EQ(awbcal::wrap("", 3), (Lines{""}));
  EXPECT_EQ(awbcal::wrap("abc", 3), (Lines{"abc"}));
}

TEST(SensorModel, TakesNoSampleFromTheDark) {
  constexpr awbcal::Light kLight{
      .name = "a light", .rg = 0.75, .bg = 0.5, .luma_per_millisecond = 4.0, .is_a_light = false};
  awbcal::Noise noise(7);
  awbcal::SensorModel sensor(kLight, {.rg = 1, .bg = 1}, noise);
  EXPECT_EQ(sensor.capture({.gain = 256, .exp_time = 500}).frame.count, 0);
}

// ---- a stranger's text ------------------------------------------------------------------------------------

TEST(Printable, LeavesLettersAndShowsTheCodesOfTheRest) {
  for (const char* letters : {"AWB 5%", "\u00e9", "\u00a0", "\u202f", "\u2070", "\U0001f4f7", "\U0010ffff"})
    EXPECT_EQ(awbcal::printable(letters), letters);
  const std::pair<const char*, const char*> rows[] = {{"a\x1b[2J", "a\\x1b[2J"},
                                                      {"\x7f", "\\x7f"},
                                                      {"\xc2\x80", "\\x80"},
                                                      {"\xc2\x9f", "\\x9f"},
                                                      {"\u061c", "\\u061c"},
                                                      {"\u200e\u200f", "\\u200e\\u200f"},
                                                      {"\u2028\u2029", "\\u2028\\u2029"},
                                                      {"\u202a\u202e", "\\u202a\\u202e"},
                                                      {"\u2066\u2069", "\\u2066\\u2069"},
                                                      {"\xc0\x80", "\\xc0\\x80"},
                                                      {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},
                                                      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
                                                      {"\xe2\x80", "\\xe2\\x80"},
                                                      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
                                                      {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"}};
  for (const auto& [text, shown] : rows) EXPECT_EQ(awbcal::printable(text), shown);
}

// ---- temporary files --------------------------------------------------------------------------------------

/// Whatever it does, this process goes on, and says which it was.
TEST(BoundedProcess, TellsHowItsWorkEnds) {
  using End = awbcal::BoundedReply::End;
  const auto spin = []() -> Bytes {
    while (true) asm volatile("");
  };
  struct Row {
    const char* what;
    std::function<Bytes()> work;
    End end;
    size_t size;
  };
  const std::vector<Row> rows = {
    {"a reply", [] { return Bytes(5 << 20, 7); }, End::replied, 5 << 20},
    {"none", [] { return Bytes(); }, End::replied, 0},
    {"a crash", [] { return raise(SIGSEGV), Bytes(1); }, End::crashed, 0},
    {"it leaves", []() -> Bytes { _exit(9); }, End::crashed, 0},
    {"another exception", []() -> Bytes { throw 1; }, End::crashed, 0},
    {"it sleeps", [] { return sleep(600), Bytes(1); }, End::out_of_time, 0},
    {"it never ends", spin, End::out_of_time, 0},
#if !defined(__SANITIZE_ADDRESS__)
    {"too much memory", [] { return Bytes(size_t{1} << 30, 1); }, End::out_of_memory, 0},
#endif
  };
  const awbcal::Bounds bounds{.memory = 64 << 20, .cpu_seconds = 1, .time = std::chrono::milliseconds(1500)};
  for (const Row& row : rows) {
    const awbcal::BoundedReply reply = awbcal::run_bounded(row.work, bounds);
    EXPECT_EQ(reply.end, row.end) << row.what;
    EXPECT_EQ(reply.bytes.size(), row.size) << row.what;
    EXPECT_EQ(reply.signal.empty(), row.end != End::crashed) << row.what;
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
}

TEST(GuardedFolder, LeavesNothingBehindHoweverAndWheneverTheProcessEnds) {
  // The second process becomes ours when the first is gone, and can be waited for.
  ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
  // A shell has it ignored by what it runs in the background.
  std::signal(SIGINT, SIG_DFL);
  for (int i = 0; i < 80; ++i) {
    const int signal = std::array{SIGINT, SIGTERM, SIGKILL, 0}[static_cast<size_t>(i % 4)];
    const support::TemporaryFolder outer;
    const pid_t child = fork();
    if (child == 0) {
      const awbcal::GuardedFolder folder(outer.path(), "phone");
      support::write_bytes(folder.path() / "data/record", {1, 2, 3});
      if (signal != 0) pause();
      _exit(0);
    }
    // From before the folder is there until after it was filled.
    usleep(static_cast<useconds_t>(i * 25));
    if (signal != 0) kill(child, signal);
    while (wait(nullptr) > 0) {
    }
    EXPECT_TRUE(std::filesystem::is_empty(outer.path())) << signal << " after " << i * 25;
  }
}

TEST(GuardedFolder, SaysWhyNoneCanBeMade) {
  try {
    const awbcal::GuardedFolder folder("/nowhere", "phone");
    FAIL() << folder.path();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "/nowhere/phone-XXXXXX: cannot be made: No such file or directory");
  }
}

}  // namespace
