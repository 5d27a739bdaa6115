// Which records does each result check call good, and what does it say of every other one?
// Guards against a check that accepts a damaged, unfinished or foreign record, or that stops logging the
// reason.

#include <array>
#include <cstring>
#include <fstream>

#include "awb_calibration/records.h"
#include "awb_calibration/verify.h"
#include "tests/support/support.h"

namespace {

using namespace support;
using Fuse = std::array<uint64_t, 4>;
using Names = std::array<const char*, 3>;  // per camera

constexpr Fuse kModules[] = {{0x11, 0x22, 0x33, 0x44}, {0x80000001, 2, 3, 4}, {0x61, 0x62, 0xFFFFFFFF, 0x64}};
const Fuse& kMain = kModules[0];
constexpr Names kCameras = {"main", "front", "sub"};
const char* const kModuleLines[] = {"get_sensor(0) get_fuseid(0x11 0x22 0x33 0x44)\n",
                                    "get_sensor(1) get_fuseid(0x80000001 0x2 0x3 0x4)\n",
                                    "get_sensor(2) get_fuseid(0x61 0x62 0xffffffff 0x64)\n"};

// ---- what is said -----------------------------------------------------------------------------------------

/// How the lines of the three tests begin, and those that begin in another way. % stands for the name of the check.
struct TestLines {
  std::string start, checksum_bad, any;
};
// clang-format off
const TestLines kPlain = {"[Calibration Record] %: ", "[Calibration Record] %: check sum is not valid\n",
                          "[Calibration Record] %: check fuseid = 0x0000\n"};
const TestLines kDualLines = {"[Calibration Record][dual] %: ", "[Calibration Record][dual]  %: check sum is not valid\n",
                              "[Calibration Record] %: check fuseid = 0x0000\n"};
const TestLines kAecLines = {
    "[AEC Calibration Record] %: ",
    "%,[AEC Calibration Record]  AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n",
    "[AEC Calibration Record] %: check fuseid = 0x0000\n"};
// clang-format on
constexpr const char* kMainsLine =
    "[Calibration Record] %: front camera fuseid is the same with main camera fuseid, check success\n";

/// Where a check looks in a record, and how it speaks of it: of the fields of a good record of kMain whose
/// other bytes are 0x5A, and of the record word.
struct Kind {
  int32_t (*check)();
  std::string name;
  bool wide;
  size_t fuse, checksum, covered;
  const TestLines& lines;
  const char *fields, *word;
  size_t width() const { return wide ? 8 : 4; }
  size_t size() const { return checksum + width(); }
};

#define CHECK(kind) Sensor_Check_##kind##_Calibration_Result, "Sensor_Check_" #kind "_Calibration_Result"
// clang-format off
const Kind kGyro{CHECK(GYRO), true, 8, 40, 40, kPlain,
    "%: gyro_verify(3099) gyro_fuseid(0x11 0x22 0x33 0x44)\n", "[Calibration Record] %: GYRO record = 0x#\n"};
const Kind kLsc{CHECK(LSC), true, 8, 3576, 3556, kPlain,
    "%: lsc_verify(3099) lsc_fuseid(0x11 0x22 0x33 0x44)\n", "[Calibration Record] %: lsc record = 0x#\n"};
const Kind kAwb{CHECK(AWB), true, 24, 56, 28, kPlain,
    "%: awb_verify(3099)(0x5a5a5a5a5a5a5a5a 0x5a5a5a5a5a5a5a5a) awb_fuseid(0x11 0x22 0x33 0x44)\n",
    "[Calibration Record] %: awb record = 0x#\n"};
const Kind kAec{CHECK(AEC), false, 16, 32, 32, kAecLines,
    "%,[AEC Calibration Record] AEC nandflash data: 0xc1b, 0x5a5a5a5a, 0x5a5a5a5a, 0x5a5a5a5a, 0x11, 0x22, 0x33, 0x44, 0x5cfdf74b\n",
    "[AEC Calibration Record] %: awb record = 0x#\n"};
const Kind kDualFlash{CHECK(FLASH), true, 56, 88, 44, kDualLines,
    "%: dual flash awb_verify(3099)(0x5a5a5a5a5a5a5a5a 0x5a5a5a5a5a5a5a5a) (0x5a5a5a5a5a5a5a5a 0x5a5a5a5a5a5a5a5a) (0x5a5a5a5a5a5a5a5a 0x5a5a5a5a5a5a5a5a) awb_fuseid(0x11 0x22 0x33 0x44)\n",
    "[Calibration Record][dual] %: awb record = 0x#\n"};
const Kind kFlash{CHECK(FLASH), true, 24, 56, 28, kPlain, kAwb.fields, kAwb.word};
const Kind kDual{CHECK(DUAL), false, 1647, 1663, 1663, kPlain,
    "%: dual_verify(3099) dual_fuseid(0x11 0x22 0x33 0x44)\n",
    "[Calibration Record] %: dual calibration record = 0x#\n"};
// clang-format on

/// One file from which a check reads, and what it says of it when it opens and, of the last one, when it does
/// not: I or E, the priority, stands before a line; * and @ stand for the camera in the cache file's and in the
/// node's name. The lines of the AEC reader are its own.
struct Source {
  const Kind& kind;
  const char* path;
  size_t offset, size;       // of the record in the file; of the file
  Names cache, named, node;  // the camera in `path`, and in the cache file's and the node's name in the lines
  const char* opened[3] = {};
  const char* absent[2] = {};
};

constexpr Names kNode = {"", "_front", "_sub"}, kNoSub = {"", "_front", ""};
constexpr Names kLong = {"", "_front_CAM", "_sub_CAM"}, kShort = {"", "_front", "_sub_CAM"};
constexpr const char* kNodePath = "/sys/android_camera_awb_cal/awb_cal@";
constexpr const char* kDualNodePath = "/sys/android_camera_awb_cal/awb_cal_3D";
constexpr const char* kInHouse = "/sys/android_camera_awb_cal/awb_cal_InHouse3D";

#define CACHE "/data/misc/camera/"
#define NODE "/sys/android_camera_awb_cal/"
constexpr const char* kNoGyro = "IRead " CACHE "gyro_cal*_qor_CAM not exist, read awb_cal@\n";
constexpr const char* kNoLsc = "IRead " CACHE "lsc_cal* not exist, read awb_cal@\n";
constexpr const char* kNoAwb = "IRead " CACHE "awb_cal* not exist, read awb_cal@\n";
constexpr const char* kNoFlash = "IRead " CACHE "flash_cal* not exist, read awb_cal@\n";
constexpr const char* kGyroOk = "IRead from file OK: " CACHE "gyro_cal*_qor_CAM or " NODE "awb_cal@";
constexpr const char* kLscOk = "IRead from file OK: " CACHE "lsc_cal* or " NODE "awb_cal@";
constexpr const char* kAwbOk = "IRead from file OK: " CACHE "awb_cal* or " NODE "awb_cal@";
constexpr const char* kFlashOk = "IRead from file OK: " CACHE "flash_cal* or " NODE "awb_cal@";
constexpr const char* kFlash01 = "ISensor_Check_FLASH_Calibration_Result: file_source(0), dual_flash(1)";
constexpr const char* kFlash00 = "ISensor_Check_FLASH_Calibration_Result: file_source(0), dual_flash(0)";
constexpr const char* kFlash10 = "ISensor_Check_FLASH_Calibration_Result: file_source(1), dual_flash(0)";
constexpr const char* kNoNode = "ERead from file:" NODE "awb_cal@ fail";
constexpr const char* kDual1 = "IRead awb_cal_3D\n";
constexpr const char* kDualOk = "IRead from file OK: " NODE "awb_cal_3D";
constexpr const char* kNoDual = "ERead from file:" NODE "awb_cal_3D fail";

// In the order in which a check tries them.
// clang-format off
const Source kSources[] = {
    {kGyro, CACHE "gyro_cal*_qor_CAM", 0, 48, kNoSub, kNoSub, kNoSub, {"IRead from /data/misc/camera"}},
    {kGyro, kNodePath, 3952, 4000, kNoSub, kNoSub, kNoSub,
     {kNoGyro, kGyroOk, "IRead from /sys/android_camera_awb_cal/"}, {kNoGyro, kNoNode}},
    {kLsc, CACHE "lsc_cal*", 64, 4000, kLong, kLong, kNode, {kLscOk}},
    {kLsc, kNodePath, 64, 4000, kLong, kLong, kNode, {kNoLsc, kLscOk}, {kNoLsc, kNoNode}},
    {kAwb, CACHE "awb_cal*", 0, 64, kLong, kLong, kNode, {kAwbOk}},
    {kAwb, kNodePath, 0, 4000, kLong, kLong, kNode, {kNoAwb, kAwbOk}, {kNoAwb, kNoNode}},
    {kAec, CACHE "aec_cal*", 0, 36, kLong, kLong, kNode},
    {kAec, kNodePath, 3712, 4000, kLong, kLong, kNode},
    {kDualFlash, CACHE "flash_dual_cal*", 0, 96, kLong, kShort, kNode, {kFlashOk, kFlash01}},
    {kFlash, CACHE "flash_cal*", 0, 64, kShort, kShort, kNode, {kFlashOk, kFlash00}},
    {kDualFlash, kNodePath, 3848, 4000, kShort, kShort, kNode, {kNoFlash, kFlashOk, kFlash10}, {kNoFlash, kNoNode}},
    {kFlash, kNodePath, 3648, 4000, kShort, kShort, kNode, {kNoFlash, kFlashOk, kFlash10}, {kNoFlash, kNoNode}},
    {kDual, kDualNodePath, 512, 4096, kNode, kNode, kNode, {kDual1, kDualOk}, {kDual1, kNoDual}}};
// clang-format on
const Source &kAwbFile = kSources[4], &kFlashFile = kSources[9], &kFlashNode = kSources[11];
const Source& kDualNode = kSources[12];

bool is_node(const Source& source) {
  return source.path == kNodePath;
}

std::string path_of(const Source& source, size_t camera) {
  return replaced(replaced(source.path, "*", source.cache[camera]), "@", source.node[camera]);
}

// ---- records, and what is to come of them -----------------------------------------------------------------

enum class Bound { own, any, mains, other };
struct Outcome {
  bool intact = true;
  Bound bound = Bound::own;
  bool finished = true;
  uint32_t word() const { return (bound == Bound::other ? 0 : 1) | (intact ? 2 : 0) | (finished ? 0xC : 0); }
};
constexpr Outcome kZeros{true, Bound::any, false}, kOnes{false, Bound::other, false};

void set(Bytes& record, size_t at, uint64_t value, const Kind& kind) {
  for (size_t i = 0; i < kind.width(); ++i) record[at + i] = static_cast<uint8_t>(value >> 8 * i);
}

Bytes record_of(const Kind& kind, const Fuse& fuse, uint64_t valid_word = 3099) {
  Bytes record(kind.size(), 0x5A);
  set(record, 0, valid_word, kind);
  for (size_t i = 0; i < 4; ++i) set(record, kind.fuse + i * kind.width(), fuse[i], kind);
  set(record, kind.checksum, bitwise_crc(record.data(), kind.covered), kind);
  return record;
}

/// Every way in which a record can be wrong, or right though it is not this module's; the last one is good.
std::vector<std::pair<Bytes, Outcome>> cases(const Kind& kind, size_t camera) {
  const Fuse& module = kModules[camera];
  const auto of = [&](const Fuse& fuse, uint64_t valid = 3099) { return record_of(kind, fuse, valid); };
  const Outcome unfinished{true, Bound::own, false}, foreign{true, Bound::other, true};
  const Outcome mains{true,
                      camera == 0                     ? Bound::own
                      : camera == 1 && &kind == &kAwb ? Bound::mains
                                                      : Bound::other,
                      true};
  // A checksum of 0 is the dual-camera record's alone to be bad.
  const Outcome zeros{&kind != &kDual, Bound::any, false};
  std::vector<std::pair<Bytes, Outcome>> rows = {{of(module, 3098), unfinished},
                                                 {of(module, 3000), unfinished},
                                                 {of(module, 2099), unfinished},
                                                 {of({}), {true, Bound::any}},
                                                 {of(kMain), mains},
                                                 {Bytes(kind.size(), 0x00), zeros},
                                                 {Bytes(kind.size(), 0xFF), kOnes}};
  for (size_t i = 0; i < 4; ++i) {
    Fuse other = module;
    other[i] ^= 0x100;
    rows.emplace_back(of(other), foreign);
    other[0] = 0;  // which only the gyro check counts
    rows.emplace_back(of(other), i == 0 && &kind != &kGyro ? Outcome{} : foreign);
  }
  if (kind.wide) {
    rows.emplace_back(of(module, 3099 | 1ULL << 32), unfinished);  // as a record of 32-bit words looks here
    rows.emplace_back(of(module, ((1ULL << 32) + 3) * 1000 + 99), unfinished);
    rows.emplace_back(of({module[0], module[1], module[2], module[3] | 1ULL << 63}), foreign);
  }
  for (const size_t at : {kind.checksum, kind.size() - 1}) {
    rows.emplace_back(of(module), Outcome{false});
    rows.back().first[at] ^= 0x80;
  }
  rows.emplace_back(of(module), Outcome{});
  return rows;
}

struct Answer {
  int32_t result = -1;
  Log log = {};
  bool operator==(const Answer&) const = default;
};

void add_tests(Answer& answer, const Kind& kind, const Outcome& outcome) {
  const TestLines& lines = kind.lines;
  const auto say = [&](bool good, const std::string& text) {
    const std::string line = replaced(text, "%", kind.name);
    answer.log.push_back(good ? I(line) : E(line));
  };
  say(outcome.intact, outcome.intact ? lines.start + "check sum pass\n" : lines.checksum_bad);
  say(outcome.bound != Bound::other, outcome.bound == Bound::own     ? lines.start + "check fuseid success\n"
                                     : outcome.bound == Bound::any   ? lines.any
                                     : outcome.bound == Bound::mains ? kMainsLine
                                                                     : lines.start + "check fuseid fail\n");
  say(outcome.finished, lines.start + (outcome.finished ? "calibration success\n" : "calibration fail\n"));
  say(true, replaced(kind.word, "#", printf_text("%x", outcome.word())));
}

/// What the check answers, but for the line of the record's fields; no outcome: there is no source.
Answer expected(const Source& source, size_t camera, const std::optional<Outcome>& outcome) {
  const Kind& kind = source.kind;
  Answer answer;
  const auto say = [&](const char* line) {
    if (line == nullptr) return;
    const std::string text =
        replaced(replaced(line + 1, "*", source.named[camera]), "@", source.node[camera]);
    answer.log.push_back(line[0] == 'E' ? E(text) : I(text));
  };
  if (&kind != &kAec) answer.log = {I(kind.name + ": " + kModuleLines[camera])};
  if (&kind == &kDual && camera != 0) return answer;
  if (!outcome) {
    for (const char* line : source.absent) say(line);
    return answer;
  }
  for (const char* line : source.opened) say(line);
  // The flash check tries two records in turn; what the source does not show is zeros, or the file's ones.
  const Outcome missing = is_node(source) ? kOnes : kZeros;
  if (&kind == &kFlash) add_tests(answer, kDualFlash, missing);
  add_tests(answer, kind, *outcome);
  const bool good = outcome->word() == 0xF || (&kind == &kDual && outcome->word() == 0xE);
  if (good) answer.result = 0;
  if (&kind == &kDualFlash && good) say("I[Calibration Record][dual flash] CALIBRATIONOK\n");
  if (&kind == &kDualFlash && !good) add_tests(answer, kFlash, missing);
  if (&kind != &kDual) return answer;
  if (good) {
    say("I[Calibration Record] Sensor_Check_DUAL_Calibration_Result: CALIBRATIONOK\n");
  } else {
    say("I[Calibration Record] Sensor_Check_DUAL_Calibration_Result: Check InHouse calibration\n");
    say("IRead awb_cal_InHouse3D\n");
    say("ERead from file:/sys/android_camera_awb_cal/awb_cal_InHouse3D fail");
  }
  return answer;
}

bool is_field_line(const LogLine& line) {
  return line.text.find("_verify(") != line.text.npos || line.text.find("nandflash") != line.text.npos;
}

class ResultChecks : public PhoneTest {
 protected:
  ResultChecks() : PhoneTest({.partition_size = 4096}) {
    for (size_t i = 0; i < 12; ++i) {
      phone().set_property(printf_text("qor.camera.sensor.%s_fuse%zu", kCameras[i / 4], i % 4 + 1),
                           std::to_string(kModules[i / 4][i % 4]));
    }
    for (const Source& source : kSources) {
      for (size_t camera = 0; camera < 3; ++camera) std::filesystem::remove(host(path_of(source, camera)));
    }
  }

  /// The source's file with the record at its place; ones elsewhere.
  static Bytes file_of(const Source& source, const Bytes& record) {
    Bytes file(source.size, 0xFF);
    memcpy(&file[source.offset], record.data(), record.size());
    return file;
  }

  /// Overwrites in place where that will do: sweeps over new files would wait for the disk.
  void show(const std::string& path, const Bytes& bytes) {
    std::error_code absent;
    const auto size = std::filesystem::file_size(host(path), absent);
    if (absent || size < bytes.size()) return put(path, bytes);
    std::fstream file(host(path), std::ios::in | std::ios::out | std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (size != bytes.size()) std::filesystem::resize_file(host(path), bytes.size());
  }

  Answer ask(const Source& source, size_t camera = 0) {
    set_sensor_selection(static_cast<uint32_t>(camera));
    Answer answer;
    answer.log = log_of([&] { answer.result = source.kind.check(); });
    // The lines of awb_get_fuseid() and of the AEC reader are theirs.
    std::erase_if(answer.log, [](const LogLine& line) {
      return line.text.find("sfuse.") != line.text.npos || line.text.find("aec_") != line.text.npos;
    });
    return answer;
  }

  Answer ask(const Source& source, size_t camera, const Bytes& record) {
    show(path_of(source, camera), file_of(source, record));
    return ask(source, camera);
  }

  static void expect_answer(Answer asked, const Answer& answer, const std::string& what) {
    std::erase_if(asked.log, is_field_line);
    EXPECT_EQ(asked.result, answer.result) << what;
    EXPECT_EQ(asked.log, answer.log) << what;
  }

  void hide(const Source& source, size_t camera = 0) {
    std::filesystem::remove(host(path_of(source, camera)));
  }
};

TEST_F(ResultChecks, EveryCheckTellsGoodFromBadOnEveryCameraAndSource) {
  for (const Source& source : kSources) {
    for (size_t camera = 0; camera < 3; ++camera) {
      const std::string path = path_of(source, camera);
      for (auto [record, outcome] : cases(source.kind, camera)) {
        // Beside a flash cache file the dual-flash record is zeros, and its zero first word holds for both.
        const bool first_is_zero = word_at(record, kFlash.fuse) == 0;
        if (&source == &kFlashFile && outcome.bound == Bound::own && !first_is_zero)
          outcome.bound = Bound::other;
        expect_answer(ask(source, camera, record), expected(source, camera, outcome), path);
        if (HasFailure()) return;
      }
      hide(source, camera);
      if (source.absent[0] != nullptr)
        expect_answer(ask(source, camera), expected(source, camera, std::nullopt), "no source");
      const bool is_asked = source.absent[0] != nullptr && (&source != &kDualNode || camera == 0);
      EXPECT_TRUE(!is_asked || error == ENOENT) << path;
    }
  }
}

TEST_F(ResultChecks, TheFieldsAreShown) {
  for (const Source& source : kSources) {
    const Answer answer = ask(source, 0, record_of(source.kind, kMain));
    const std::string line = replaced(source.kind.fields, "%", source.kind.name);
    EXPECT_EQ(std::count(answer.log.begin(), answer.log.end(), I(line)), 1) << line;
    EXPECT_EQ(std::count_if(answer.log.begin(), answer.log.end(), is_field_line),
              source.kind.check == kFlash.check ? 2 : 1);
    hide(source);
  }
}

TEST_F(ResultChecks, OnlyAnAbsentCacheFileLeadsToTheNextSource) {
  for (const Source& first : kSources) {
    for (const Source* second = &first + 1;
         second != std::end(kSources) && second->kind.check == first.kind.check; ++second) {
      if (path_of(first, 0) == path_of(*second, 0)) continue;
      show(path_of(*second, 0), file_of(*second, record_of(second->kind, kMain)));
      for (const Bytes& file : {file_of(first, record_of(first.kind, kModules[2])), Bytes{}}) {
        show(path_of(first, 0), file);
        EXPECT_EQ(ask(first).result, -1) << path_of(first, 0);
      }
      EXPECT_EQ(ask(first, 0, record_of(first.kind, kMain)).result, &first == &kFlashFile ? -1 : 0);
      hide(first);
      EXPECT_EQ(ask(*second).result, second == &kFlashFile ? -1 : 0) << path_of(*second, 0);
      hide(*second);
    }
  }
}

TEST_F(ResultChecks, EveryBitOfEveryRecordCounts) {
  for (const Source& source : kSources) {
    if (is_node(source) || &source == &kFlashFile) continue;
    const Kind& kind = source.kind;
    Bytes record = record_of(kind, kMain);
    for (size_t bit = 0; bit < record.size() * 8; ++bit) {
      const size_t at = bit / 8;
      record[at] ^= static_cast<uint8_t>(1U << bit % 8);
      const Outcome outcome{at >= kind.covered && at < kind.checksum,
                            at >= kind.fuse && at < kind.fuse + 4 * kind.width() ? Bound::other : Bound::own,
                            at >= kind.width()};
      const std::string word = replaced(kind.word, "#", printf_text("%x", outcome.word()));
      const Answer answer = ask(source, 0, record);
      ASSERT_EQ(answer.result, outcome.word() == 0xF ? 0 : -1) << kind.name << " bit " << bit;
      ASSERT_EQ(std::count(answer.log.begin(), answer.log.end(), I(replaced(word, "%", kind.name))), 1);
      record[at] ^= static_cast<uint8_t>(1U << bit % 8);
    }
    hide(source);
  }
}

TEST_F(ResultChecks, EveryLengthOfEveryFileIsReadAsIfZerosFollowed) {
  for (const Source& source : kSources) {
    const Bytes whole = file_of(source, record_of(source.kind, kMain));
    std::vector<Answer> filled(whole.size());
    Bytes file = whole;
    for (size_t size = whole.size(); size-- > 0;) {
      file[size] = 0;
      show(path_of(source, 0), file);
      filled[size] = ask(source);
    }
    // An empty AEC record ends its check without a line.
    if (&source.kind == &kAec && !is_node(source)) filled[0] = {};
    for (size_t size = whole.size(); size-- > 0;) {
      show(path_of(source, 0), Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
      ASSERT_EQ(ask(source), filled[size]) << path_of(source, 0) << " length " << size;
    }
    phone().add_fault({.call = "read", .path = path_of(source, 0), .from_then_on = true, .error = ENODEV});
    EXPECT_EQ(ask(source, 0, record_of(source.kind, kMain)), filled[0]) << "vanished after the open";
    phone().clear_faults();
    hide(source);
  }
}

TEST_F(ResultChecks, TheMainCamerasFuseIdIsTakenAsSignedNumbers) {
  // clang-format off
  const std::tuple<const char*, uint64_t, int32_t> rows[] = {
      {"68", 0x44, 0}, {"-1", ~0ULL, 0},  {"-1", 0xFFFFFFFF, -1}, {"2147483647", 0x7FFFFFFF, 0}, {"2147483648", 0x80000000, -1},
      {"x", 0, 0},     {"0x44", 0x44, -1}};
  // clang-format on
  for (const auto& [property, stored, result] : rows) {
    phone().set_property("qor.camera.sensor.main_fuse4", property);
    const Bytes record = record_of(kAwb, {kMain[0], kMain[1], kMain[2], stored});
    EXPECT_EQ(ask(kAwbFile, 1, record).result, result) << property;
  }
}

TEST_F(ResultChecks, AZeroFirstWordInTheDualFlashRecordHoldsForTheFlashRecordToo) {
  const Fuse first_empty = {0, kMain[1], kMain[2], kMain[3]};
  const auto result_of = [&](const Fuse& dual_fuse, const Fuse& flash_fuse) {
    Bytes image = file_of(kFlashNode, record_of(kFlash, flash_fuse));
    const Bytes dual = record_of(kDualFlash, dual_fuse, 3098);
    memcpy(&image[3848], dual.data(), dual.size());
    show(path_of(kFlashNode, 0), image);
    return ask(kFlashNode).result;
  };
  EXPECT_EQ(result_of(kMain, kMain), 0);
  EXPECT_EQ(result_of(first_empty, kMain), -1);
  EXPECT_EQ(result_of(first_empty, first_empty), 0);
}

TEST_F(ResultChecks, DualCameraFallsBackOnTheInHouseNode) {
  const Bytes unfinished = record_of(kDual, kMain, 3098);
  for (const auto& [in_house, result] :
       {std::pair{Bytes{}, -1}, {Bytes{0, 0, 0, 0, 1}, -1}, {Bytes{1}, 0}, {Bytes{0, 0, 0, 1}, 0}}) {
    put(kInHouse, in_house);
    for (size_t camera = 0; camera < 3; ++camera) {
      Answer answer = expected(kDualNode, camera, Outcome{true, Bound::own, false});
      if (camera == 0) {
        answer.log.back() = I(std::string("Read from file OK: ") + kInHouse);
        answer.result = result;
      }
      expect_answer(ask(kDualNode, camera, unfinished), answer, "in-house");
    }
  }
  show(path_of(kDualNode, 0), record_of(kDual, kMain));
  phone().add_fault({.call = "lseek", .path = kDualNodePath});
  EXPECT_EQ(ask(kDualNode).result, 0) << "without a seek, what comes first is read";
  hide(kDualNode);
  expect_answer(ask(kDualNode), expected(kDualNode, 0, std::nullopt),
                "without the record's node it is not asked");
}

TEST_F(ResultChecks, DualCameraSaysThatThereIsNoMemory) {
  phone().add_fault({.call = "malloc"});
  Answer answer;
  const std::string console = console_of([&] { answer = ask(kDualNode, 0, record_of(kDual, kMain)); });
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(console, kDual.name + ": Can't allocate calibration buffer\n");
  EXPECT_EQ(answer.log.back(), E(kDual.name + ", Can't allocate calibration buffer"));
}

TEST_F(ResultChecks, NoFailingCallMakesABadRecordGood) {
  for (const Source& source : kSources) {
    for_every_failing_call(phone(), [&] {
      EXPECT_EQ(ask(source, 0, record_of(source.kind, kModules[2], 3098)).result, -1) << path_of(source, 0);
    });
    hide(source);
  }
}

}  // namespace
