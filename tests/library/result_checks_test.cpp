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

using phone::LogLine;
using support::Bytes;
using support::E;
using support::I;
using support::printf_text;

using Fuse = std::array<uint64_t, 4>;
using Names = std::array<const char*, 3>;  // per camera

constexpr Fuse kModules[] = {{0x11, 0x22, 0x33, 0x44}, {0x80000001, 2, 3, 4}, {0x61, 0x62, 0xFFFFFFFF, 0x64}};
const Fuse& kMain = kModules[0];
constexpr Names kCameras = {"main", "front", "sub"};

/// Where a check looks in a record, and how it speaks of it.
struct Kind {
  int32_t (*check)();
  std::string name;
  bool wide;
  size_t fuse, checksum, covered;
  std::string label, word_label;
  std::string prefix = "[Calibration Record] ";
  size_t width() const { return wide ? 8 : 4; }
  size_t size() const { return checksum + width(); }
};

#define CHECK(kind) Sensor_Check_##kind##_Calibration_Result, "Sensor_Check_" #kind "_Calibration_Result"
const Kind kGyro{CHECK(GYRO), true, 8, 40, 40, "gyro", "GYRO record"};
const Kind kLsc{CHECK(LSC), true, 8, 3576, 3556, "lsc", "lsc record"};
const Kind kAwb{CHECK(AWB), true, 24, 56, 28, "awb", "awb record"};
const Kind kAec{CHECK(AEC), false, 16, 32, 32, "", "awb record", "[AEC Calibration Record] "};
const Kind kDualFlash{CHECK(FLASH), true, 56, 88, 44, "awb", "awb record", "[Calibration Record][dual] "};
const Kind kFlash{CHECK(FLASH), true, 24, 56, 28, "awb", "awb record"};
const Kind kDual{CHECK(DUAL), false, 1647, 1663, 1663, "dual", "dual calibration record"};

/// One file from which a check reads. In names * stands for the camera's suffix.
struct Source {
  const Kind& kind;
  const char* path;
  Names suffixes;
  size_t offset, size;  // of the record in the file; of the file
  const char* cache;    // the cache file and its suffixes, as the lines name it
  Names cache_suffixes;
};

constexpr Names kNode = {"", "_front", "_sub"}, kNoSub = {"", "_front", ""};
constexpr Names kLong = {"", "_front_CAM", "_sub_CAM"}, kShort = {"", "_front", "_sub_CAM"};
constexpr const char* kNodePath = "/sys/android_camera_awb_cal/awb_cal*";
constexpr const char* kDualNodePath = "/sys/android_camera_awb_cal/awb_cal_3D";
constexpr const char* kInHouse = "/sys/android_camera_awb_cal/awb_cal_InHouse3D";
constexpr const char* kGyroCache = "/data/misc/camera/gyro_cal*_qor_CAM";
constexpr const char* kLscCache = "/data/misc/camera/lsc_cal*";
constexpr const char* kAwbCache = "/data/misc/camera/awb_cal*";
constexpr const char* kAecCache = "/data/misc/camera/aec_cal*";
constexpr const char* kDualFlashCache = "/data/misc/camera/flash_dual_cal*";
constexpr const char* kFlashCache = "/data/misc/camera/flash_cal*";

// In the order in which a check tries them.
const Source kSources[] = {
    {kGyro, kGyroCache, kNoSub, 0, 48, kGyroCache, kNoSub},
    {kGyro, kNodePath, kNoSub, 3952, 4000, kGyroCache, kNoSub},
    {kLsc, kLscCache, kLong, 64, 4000, kLscCache, kLong},
    {kLsc, kNodePath, kNode, 64, 4000, kLscCache, kLong},
    {kAwb, kAwbCache, kLong, 0, 64, kAwbCache, kLong},
    {kAwb, kNodePath, kNode, 0, 4000, kAwbCache, kLong},
    {kAec, kAecCache, kLong, 0, 36, kAecCache, kLong},
    {kAec, kNodePath, kNode, 3712, 4000, kAecCache, kLong},
    {kDualFlash, kDualFlashCache, kLong, 0, 96, kFlashCache, kShort},
    {kFlash, kFlashCache, kShort, 0, 64, kFlashCache, kShort},
    {kDualFlash, kNodePath, kNode, 3848, 4000, kFlashCache, kShort},
    {kFlash, kNodePath, kNode, 3648, 4000, kFlashCache, kShort},
    {kDual, kDualNodePath, kNode, 512, 4096, "", kNode},
};
const Source &kAwbFile = kSources[4], &kFlashFile = kSources[9], &kFlashNode = kSources[11];
const Source& kDualNode = kSources[12];

bool is_node(const Source& source) {
  return source.path == kNodePath;
}

std::string with_suffix(std::string text, const char* suffix) {
  const size_t star = text.find('*');
  return star == text.npos ? text : text.replace(star, 1, suffix);
}

std::string path_of(const Source& source, size_t camera) {
  return with_suffix(source.path, source.suffixes[camera]);
}

// ---- the model: what is to be said of a record, from the bytes of the file ----

/// What the file does not hold counts as zeros.
Bytes part(const Bytes& file, size_t offset, size_t size) {
  Bytes bytes(size);
  if (offset < file.size()) memcpy(bytes.data(), &file[offset], std::min(size, file.size() - offset));
  return bytes;
}

uint64_t field(const Bytes& record, size_t at, const Kind& kind) {
  return support::word_at(record, at) | (kind.wide ? uint64_t{support::word_at(record, at + 4)} << 32 : 0);
}

std::string hex(const Bytes& record, size_t at, size_t count, const Kind& kind) {
  std::string text = "(";
  for (size_t i = 0; i < count; ++i) {
    text +=
        printf_text("0x%llx ", static_cast<unsigned long long>(field(record, at + i * kind.width(), kind)));
  }
  text.back() = ')';
  return text;
}

struct Answer {
  int32_t result = -1;
  std::vector<LogLine> log = {};
};

struct Model {
  size_t camera;
  Fuse module = kModules[camera];
  std::vector<LogLine> log = {};

  /// What is said of the source; false when it does not open.
  bool opens(const Source& source, bool exists) {
    const std::string path = path_of(source, camera);
    const std::string cache = with_suffix(source.cache, source.cache_suffixes[camera]);
    const std::string node = with_suffix(kNodePath, (&source.kind == &kGyro ? kNoSub : kNode)[camera]);
    const bool gyro = &source.kind == &kGyro, flash = source.kind.name == kFlash.name;
    if (&source.kind == &kAec) return exists;
    if (is_node(source))
      log.push_back(I("Read " + cache + " not exist, read " + node.substr(node.rfind('/') + 1) + "\n"));
    if (&source == &kDualNode) log.push_back(I("Read awb_cal_3D\n"));
    if (!exists) {
      log.push_back(E("Read from file:" + path + " fail"));
      return false;
    }
    const std::string opened = &source == &kDualNode ? path : cache + " or " + node;
    const bool gyro_cache = gyro && !is_node(source);
    log.push_back(I(gyro_cache ? "Read from /data/misc/camera" : "Read from file OK: " + opened));
    if (gyro && !gyro_cache) log.push_back(I("Read from /sys/android_camera_awb_cal/"));
    if (flash) {
      log.push_back(I(printf_text("%s: file_source(%d), dual_flash(%d)", source.kind.name.c_str(),
                                  is_node(source), source.path == kDualFlashCache)));
    }
    return true;
  }

  void fields(const Kind& kind, const Bytes& record, const char* lead = "") {
    if (&kind == &kAec) {
      std::string line = kAec.name + ",[AEC Calibration Record] AEC nandflash data:";
      for (size_t i = 0; i < 9; ++i) line += printf_text(" 0x%x,", support::word_at(record, 4 * i));
      line.back() = '\n';
      return log.push_back(I(line));
    }
    std::string line = printf_text("%s: %s%s_verify(%lld)", kind.name.c_str(), lead, kind.label.c_str(),
                                   static_cast<long long>(field(record, 0, kind)));
    for (size_t at = 8; kind.wide && at < kind.fuse; at += 16)
      line += (at > 8 ? " " : "") + hex(record, at, 2, kind);
    log.push_back(I(line + " " + kind.label + "_fuseid" + hex(record, kind.fuse, 4, kind) + "\n"));
  }

  uint32_t bound(const Kind& kind, const Bytes& record) {
    const std::string lead = kind.prefix + kind.name + ": ";
    Fuse fuse;
    for (size_t i = 0; i < 4; ++i) fuse[i] = field(record, kind.fuse + i * kind.width(), kind);
    if (&kind != &kGyro && fuse[0] == 0) module[0] = 0;
    const bool mains = &kind == &kAwb && camera == 1 && fuse == kMain;
    log.push_back(fuse == module   ? I(lead + "check fuseid success\n")
                  : fuse == Fuse{} ? I((&kind == &kDualFlash ? kFlash.prefix + kFlash.name + ": " : lead) +
                                       "check fuseid = 0x0000\n")
                  : mains
                      ? I(lead + "front camera fuseid is the same with main camera fuseid, check success\n")
                      : E(lead + "check fuseid fail\n"));
    return log.back().priority == I("").priority ? 1 : 0;
  }

  uint32_t test(const Kind& kind, const Bytes& record) {
    const std::string lead = kind.prefix + kind.name + ": ";
    const uint64_t checksum = field(record, kind.checksum, kind);
    const bool intact =
        checksum == support::bitwise_crc(record.data(), kind.covered) && (checksum != 0 || &kind != &kDual);
    const bool finished = field(record, 0, kind) == 3099;
    log.push_back(
        intact ? I(lead + "check sum pass\n")
        : &kind == &kAec
            ? E(kind.name +
                ",[AEC Calibration Record]  AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n")
            : E(kind.prefix + (&kind == &kDualFlash ? " " : "") + kind.name + ": check sum is not valid\n"));
    const uint32_t word = bound(kind, record) | (intact ? 2U : 0U) | (finished ? 0xCU : 0U);
    log.push_back(finished ? I(lead + "calibration success\n") : E(lead + "calibration fail\n"));
    log.push_back(I(printf_text("%s%s = 0x%x\n", lead.c_str(), kind.word_label.c_str(), word)));
    return word;
  }
};

bool test_flash(Model& model, const Source& source, const Bytes& file) {
  const bool dual_cache = source.path == kDualFlashCache;
  const Bytes none, dual = part(is_node(source) || dual_cache ? file : none, is_node(source) ? 3848 : 0, 96);
  const Bytes flash = part(dual_cache ? none : file, is_node(source) ? 3648 : 0, 64);
  model.fields(kDualFlash, dual, "dual flash ");
  model.fields(kFlash, flash);
  if (model.test(kDualFlash, dual) != 0xF) return model.test(kFlash, flash) == 0xF;
  model.log.push_back(I("[Calibration Record][dual flash] CALIBRATIONOK\n"));
  return true;
}

bool test_dual_camera(Model& model, const Bytes& record, const std::optional<Bytes>& in_house) {
  const std::string lead = kDual.prefix + kDual.name + ": ";
  model.fields(kDual, record);
  if (model.test(kDual, record) >= 0xE) {
    model.log.push_back(I(lead + "CALIBRATIONOK\n"));
    return true;
  }
  model.log.push_back(I(lead + "Check InHouse calibration\n"));
  model.log.push_back(I("Read awb_cal_InHouse3D\n"));
  model.log.push_back(in_house ? I(std::string("Read from file OK: ") + kInHouse)
                               : E(std::string("Read from file:") + kInHouse + " fail"));
  return in_house && support::word_at(part(*in_house, 0, 4), 0) != 0;
}

/// The answer when `file` is the first source that opens; null: none does.
Answer modelled(const Source& source, size_t camera, const Bytes* file,
                const std::optional<Bytes>& in_house = {}) {
  Model model{camera};
  const Kind& kind = source.kind;
  const Fuse& own = kModules[camera];
  if (&kind != &kAec) {
    model.log.push_back(
        I(printf_text("%s: get_sensor(%zu) get_fuseid(0x%llx 0x%llx 0x%llx 0x%llx)\n", kind.name.c_str(),
                      camera, own[0] + 0ULL, own[1] + 0ULL, own[2] + 0ULL, own[3] + 0ULL)));
  }
  if (&kind == &kDual && camera != 0) return {-1, model.log};
  if (!model.opens(source, file != nullptr)) return {-1, model.log};
  if (&kind == &kAec && file->empty() && !is_node(source)) return {-1, model.log};
  const Bytes record = part(*file, source.offset, kind.size());
  if (kind.name == kFlash.name) return {test_flash(model, source, *file) ? 0 : -1, model.log};
  if (&kind == &kDual) return {test_dual_camera(model, record, in_house) ? 0 : -1, model.log};
  model.fields(kind, record);
  return {model.test(kind, record) == 0xF ? 0 : -1, model.log};
}

// ---- records ----------------------------------------------------------------------------------------------

void set(Bytes& record, size_t at, uint64_t value, const Kind& kind) {
  for (size_t i = 0; i < kind.width(); ++i) record[at + i] = static_cast<uint8_t>(value >> 8 * i);
}

Bytes record_of(const Kind& kind, const Fuse& fuse, uint64_t valid_word = 3099) {
  Bytes record = support::pattern(kind.size());
  set(record, 0, valid_word, kind);
  for (size_t i = 0; i < 4; ++i) set(record, kind.fuse + i * kind.width(), fuse[i], kind);
  set(record, kind.checksum, support::bitwise_crc(record.data(), kind.covered), kind);
  return record;
}

/// Every way in which a record can be wrong, or right though it is not this module's; the last one is good.
std::vector<Bytes> cases(const Kind& kind, const Fuse& module) {
  const auto of = [&](Fuse fuse, uint64_t valid = 3099) { return record_of(kind, fuse, valid); };
  std::vector<Bytes> rows = {of(module, 3098), of(module, 3000),         of(module, 2099),        of({}),
                             of(kMain),        Bytes(kind.size(), 0x00), Bytes(kind.size(), 0xFF)};
  for (size_t i = 0; i < 4; ++i) {
    Fuse other = module;
    other[i] ^= 0x100;
    rows.push_back(of(other));
    other[0] = 0;
    rows.push_back(of(other));
  }
  if (kind.wide) {
    rows.push_back(of(module, 3099 | 1ULL << 32));  // as a record of 32-bit words looks here
    rows.push_back(of({module[0], module[1], module[2], module[3] | 1ULL << 63}));
  }
  for (const size_t at : {kind.checksum, kind.size() - 1}) (rows.emplace_back(of(module)))[at] ^= 0x80;
  rows.push_back(of(module));
  return rows;
}

class ResultChecks : public support::PhoneTest {
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

  bool agree(const Answer& asked, const Answer& model, const std::string& what) {
    EXPECT_EQ(asked.result, model.result) << what;
    EXPECT_EQ(asked.log, model.log) << what;
    return !HasFailure();
  }

  void hide(const Source& source, size_t camera = 0) {
    std::filesystem::remove(host(path_of(source, camera)));
  }
};

TEST_F(ResultChecks, EveryCheckTellsGoodFromBadOnEveryCameraAndSource) {
  for (const Source& source : kSources) {
    for (size_t camera = 0; camera < 3; ++camera) {
      for (const Bytes& record : cases(source.kind, kModules[camera])) {
        const Bytes file = file_of(source, record);
        ASSERT_TRUE(
            agree(ask(source, camera, record), modelled(source, camera, &file), path_of(source, camera)));
      }
      // A flash record from its own cache file is bad: see below.
      const bool good = &source != &kFlashFile && (&source != &kDualNode || camera == 0);
      EXPECT_EQ(ask(source, camera).result, good ? 0 : -1) << path_of(source, camera);
      hide(source, camera);
      if (!is_node(source) && &source != &kDualNode) continue;
      ASSERT_TRUE(agree(ask(source, camera), modelled(source, camera, nullptr), "no source"));
    }
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
        ASSERT_TRUE(agree(ask(first), modelled(first, 0, &file), path_of(first, 0)));
      }
      for (const Source* source : {&first, second}) hide(*source);
    }
  }
}

TEST_F(ResultChecks, EveryBitOfEveryRecordCounts) {
  for (const Source& source : kSources) {
    if (is_node(source)) continue;
    Bytes record = record_of(source.kind, kMain);
    Answer expected;
    for (size_t bit = 0; bit < record.size() * 8; ++bit) {
      record[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
      // Deep in a table all bits of a byte are alike, and the model's slow CRC is worth saving.
      const bool is_table = bit / 8 >= 64 && bit / 8 + 64 < record.size();
      const Bytes file = file_of(source, record);
      if (!is_table || bit % 8 == 0) expected = modelled(source, 0, &file);
      ASSERT_TRUE(agree(ask(source, 0, record), expected, "bit " + std::to_string(bit)));
      record[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
    }
    hide(source);
  }
}

TEST_F(ResultChecks, EveryLengthOfEveryFileIsReadAsIfZerosFollowed) {
  for (const Source& source : kSources) {
    for (Bytes file = file_of(source, record_of(source.kind, kMain));; file.pop_back()) {
      show(path_of(source, 0), file);
      ASSERT_TRUE(agree(ask(source), modelled(source, 0, &file), "length " + std::to_string(file.size())));
      if (file.empty()) break;
    }
    hide(source);
  }
}

TEST_F(ResultChecks, ASourceThatVanishesAfterTheOpenIsReadAsEmpty) {
  for (const Source& source : kSources) {
    const Bytes empty;
    phone().add_fault({.call = "read", .path = path_of(source, 0), .from_then_on = true, .error = ENODEV});
    agree(ask(source, 0, record_of(source.kind, kMain)), modelled(source, 0, &empty), path_of(source, 0));
    phone().clear_faults();
    hide(source);
  }
}

TEST_F(ResultChecks, TheMainCamerasFuseIdIsTakenAsSignedNumbers) {
  const std::tuple<const char*, uint64_t, int32_t> rows[] = {{"68", 0x44, 0},
                                                             {"-1", ~0ULL, 0},
                                                             {"-1", 0xFFFFFFFF, -1},
                                                             {"2147483647", 0x7FFFFFFF, 0},
                                                             {"2147483648", 0x80000000, -1},
                                                             {"x", 0, 0},
                                                             {"0x44", 0x44, -1}};
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
  // With the flash cache file alone the dual-flash record is all zeros, its first word too.
  EXPECT_EQ(ask(kFlashFile, 0, record_of(kFlash, kMain)).result, -1);
  EXPECT_EQ(ask(kFlashFile, 0, record_of(kFlash, first_empty)).result, 0);
}

TEST_F(ResultChecks, DualCameraFallsBackOnTheInHouseNode) {
  const Bytes unfinished = record_of(kDual, kMain, 3098), file = file_of(kDualNode, unfinished);
  for (const Bytes& in_house : {Bytes{}, Bytes{0, 0, 0, 0, 1}, Bytes{1}, Bytes{0, 0, 0, 1}}) {
    put(kInHouse, in_house);
    for (size_t camera = 0; camera < 3; ++camera) {
      agree(ask(kDualNode, camera, unfinished), modelled(kDualNode, camera, &file, in_house), "in-house");
    }
  }
  hide(kDualNode);
  agree(ask(kDualNode), modelled(kDualNode, 0, nullptr), "without the record's node the other is not asked");
}

TEST_F(ResultChecks, DualCameraSaysThatThereIsNoMemory) {
  phone().add_fault({.call = "malloc"});
  Answer answer;
  const std::string console =
      support::console_of([&] { answer = ask(kDualNode, 0, record_of(kDual, kMain)); });
  EXPECT_EQ(answer.result, -1);
  EXPECT_EQ(console, kDual.name + ": Can't allocate calibration buffer\n");
  EXPECT_EQ(answer.log.back(), E(kDual.name + ", Can't allocate calibration buffer"));
}

TEST_F(ResultChecks, NoFailingCallMakesABadRecordGood) {
  for (const Source& source : kSources) {
    for (const bool from_then_on : {false, true}) {
      for (unsigned nth = 1, struck = 1; struck > 0; ++nth) {
        phone().add_fault({.nth = nth, .from_then_on = from_then_on});
        EXPECT_EQ(ask(source, 0, record_of(source.kind, kModules[2], 3098)).result, -1) << path_of(source, 0);
        EXPECT_EQ(phone().open_descriptors(), 0U) << path_of(source, 0) << " call " << nth;
        struck = phone().struck_faults();
        phone().clear_faults();
      }
    }
    hide(source);
  }
}

}  // namespace
