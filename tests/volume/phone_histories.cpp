// After anything that may happen to a phone (calibrated, damaged, its modules swapped, reset, started again), do its
// cameras take exactly the records that they must? Guards against a rule of acceptance that holds only on the way
// that its own test takes.
//
//   phone_histories [--count N] [--seed S]     a hundred histories a phone; a phone's seed is S and what follows it

#include <fmt/format.h>

#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <random>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "awb_calibration/verify.h"
#include "phone/calls/faults.h"
#include "run/tuning.h"
#include "tests/support/support.h"
#include "tests/volume/volume.h"

namespace {

using namespace support;
using Module = std::array<uint32_t, 4>;

constexpr size_t kArea = 0x20000, kSlot = 0x1000, kAreaSize = 4 * kSlot;
constexpr float kGoldenRg = 0.75F, kGoldenBg = 0.5F;
constexpr size_t kFlashGain = 3113;
constexpr const char* kCameraNames[] = {"main", "front", "sub"};

// A camera may have no fuse ID, or none in its first word; two have all but the last word in common.
constexpr Module kModules[] = {{0x10203040, 2, 3, 4}, {0x80706050, 6, 7, 8}, {0x80706050, 6, 7, 9},
                               {0, 6, 7, 8},          {0, 0, 0, 0},          {0xFFFFFFFF, 1, 0, 1}};

// ---- the format, a second time ------------------------------------------------------------------------------

struct Kind {
  const char* name;
  size_t size, slot, exported;
  std::array<const char*, 3> read, written;  ///< cache files, by camera
};

enum KindIndex { awb, a_light, flash, aec, gyro, dual_flash };
constexpr Kind kKinds[] = {{"AWB",
                            32,
                            0x000,
                            0,
                            {"awb_cal", "awb_cal_front_CAM", "awb_cal_sub_CAM"},
                            {"awb_cal", "awb_cal_front_CAM", "awb_cal_sub_CAM"}},
                           {"A-light",
                            32,
                            0xEC0,
                            3784,
                            {"awb_A_light_cal", "awb_A_light_cal_front_CAM", "awb_A_light_cal_sub_CAM"},
                            {"awb_A_light_cal", "awb_A_light_cal_front_CAM", "awb_A_light_cal_sub_CAM"}},
                           {"flash",
                            32,
                            0xE08,
                            3648,
                            {"flash_cal", "flash_cal_front", "flash_cal_sub_CAM"},
                            {"flash_cal", "flash_cal_front", "flash_cal"}},
                           {"AEC",
                            36,
                            0xE28,
                            3712,
                            {"aec_cal", "aec_cal_front_CAM", "aec_cal_sub_CAM"},
                            {"aec_cal", "aec_cal_front_CAM", "aec_cal_sub_CAM"}},
                           {"gyro",
                            48,
                            0xEA0,
                            3952,
                            {"gyro_cal_qor_CAM", "gyro_cal_front_qor_CAM", "gyro_cal_qor_CAM"},
                            {"gyro_cal_qor_CAM", "gyro_cal_front_qor_CAM", "gyro_cal_qor_CAM"}},
                           {"dual flash",
                            48,
                            0xE6C,
                            3848,
                            {"flash_dual_cal", "flash_dual_cal_front_CAM", "flash_dual_cal_sub_CAM"},
                            {"flash_dual_cal", "flash_dual_cal_front_CAM", "flash_dual_cal"}}};

// The factory tool writes the lens-shading records itself: as a cache file, or for the kernel to export.
constexpr const char* kLensFiles[] = {"lsc_cal", "lsc_cal_front_CAM", "lsc_cal_sub_CAM"};
constexpr const char* kLensExports[] = {"lens_shading_main.bin", "lens_shading_front.bin",
                                        "lens_shading_sub.bin"};
constexpr size_t kImageSize = 4000, kLensInImage = 64, kLensSize = 3584, kGainsInLens = 40, kGainsSize = 3536;

// The record of the pair, once per phone; no camera's own.
constexpr size_t kPairInArea = 0x3200, kPairSize = 1667, kPairPayload = 1643;

Bytes with_module(Words words, const Module& module) {
  words.insert(words.end(), module.begin(), module.end());
  return sealed32(words);
}

/// What a reader finds: the bytes, zeros where the source ended, and whether it had them all.
struct Found {
  Bytes bytes;
  bool is_whole;
  bool is_empty_file;
};

// ---- the model ----------------------------------------------------------------------------------------------

/// Who a record is good for; `module` may lose its first word to a whole record that has none.
bool is_intact(const Found& found) {
  const size_t sealed = found.bytes.size() - 4;
  return bitwise_crc(found.bytes.data(), sealed) == word_at(found.bytes, sealed);
}

bool is_marked(const Found& found, uint32_t first_version) {
  const uint32_t word = word_at(found.bytes, 0);
  return word % 1000 == 99 && word / 1000 <= 3 && word / 1000 >= first_version;
}

Module fuse_of(const Found& found, size_t offset) {
  Module fuse;
  for (size_t i = 0; i < 4; ++i) fuse[i] = word_at(found.bytes, offset + 4 * i);
  return fuse;
}

bool is_bound(const Module& fuse, const Module& module) {
  return fuse == module || fuse == Module{};
}

/// What a camera is to hand out or answer.
struct Expected {
  std::array<float, 4> pair = {1.0F, 1.0F, 1.0F, 1.0F};
  std::array<uint32_t, 3> exposure = {};
  bool has_gyro = false;
  bool takes_awb = false;
  std::optional<std::array<float, 2>> flash = {};  ///< nothing: as the AWB record leaves them
  std::array<float, 2> module_ratio = {};          ///< zeros: not handed out
  std::optional<std::array<float, 2>> dual_flash = {};
  std::optional<Bytes> mesh = {};  ///< the gains of every table
  bool has_pair = false;
};

class Model {
 public:
  Bytes area = Bytes(kAreaSize, 0);
  Bytes exported = Bytes(kAreaSize, 0);  ///< as the kernel saw it at boot
  std::map<std::string, Bytes> files;
  std::array<Module, 3> fitted{};
  std::array<Bytes, 3> lens, exported_lens;

  void write(const Kind& kind, unsigned camid, const Bytes& record, bool has_cache = true) {
    std::copy(record.begin(), record.end(), area.begin() + static_cast<ptrdiff_t>(camid * kSlot + kind.slot));
    if (has_cache) files[kind.written[camid]] = record;
  }

  Expected camera(unsigned camera) const {
    Expected expected;
    const Module module = fitted[camera];
    expect_pair(camera, module, expected);
    expect_white_balance(camera, module, expected);
    const Found exposure = find(kKinds[aec], camera);
    if (is_good(exposure, 16, module, 0, true)) {
      expected.exposure = {word_at(exposure.bytes, 4), word_at(exposure.bytes, 8),
                           word_at(exposure.bytes, 12)};
    }
    expected.has_gyro = is_gyro_good(find(kKinds[gyro], camera), module);
    expect_module_points(camera, module, expected);
    expect_mesh(camera, module, expected);
    const auto pair = exported.begin() + kPairInArea;
    const Found record{Bytes(pair, pair + kPairSize), true, false};
    expected.has_pair = camera == 0 && is_intact(record) && word_at(record.bytes, kPairSize - 4) != 0 &&
                        word_at(record.bytes, 0) == 3099;
    return expected;
  }

 private:
  Found find(const Kind& kind, unsigned camera) const {
    const auto file = files.find(kind.read[camera]);
    if (file != files.end()) {
      Found found{file->second, file->second.size() >= kind.size, file->second.empty()};
      found.bytes.resize(kind.size);
      return found;
    }
    // The sub camera's gyro is the main camera's.
    const size_t slot = (&kind == &kKinds[gyro] && camera == 2 ? 0 : camera) * kSlot + kind.slot;
    const auto first = exported.begin() + static_cast<ptrdiff_t>(slot);
    return {Bytes(first, first + static_cast<ptrdiff_t>(kind.size)), true, false};
  }

  static bool is_good(const Found& found, size_t fuse_at, Module module, uint32_t first_version,
                      bool zero_matches) {
    const Module fuse = fuse_of(found, fuse_at);
    if (zero_matches && fuse[0] == 0) module[0] = 0;
    return is_intact(found) && is_marked(found, first_version) && is_bound(fuse, module);
  }

  void expect_pair(unsigned camera, Module module, Expected& expected) const {
    for (const KindIndex light : {awb, a_light}) {
      const Found found = find(kKinds[light], camera);
      if (!found.is_whole) continue;
      const Module fuse = fuse_of(found, 12);
      if (light == awb && fuse[0] == 0) module[0] = 0;
      const bool is_main_cameras = camera == 1 && fuse == fitted[0];
      if (!is_intact(found) || !is_marked(found, 0) || !(is_bound(fuse, module) || is_main_cameras)) continue;
      expected.pair[light == awb ? 0 : 2] = static_cast<float>(word_at(found.bytes, 4) / 1024.0);
      expected.pair[light == awb ? 1 : 3] = static_cast<float>(word_at(found.bytes, 8) / 1024.0);
    }
  }

  void expect_white_balance(unsigned camera, Module module, Expected& expected) const {
    const Found record = find(kKinds[awb], camera);
    if (record.is_whole && fuse_of(record, 12)[0] == 0) module[0] = 0;
    if (!is_intact(record)) return;
    expected.takes_awb = is_marked(record, 0) && is_bound(fuse_of(record, 12), module);
    const Found gains = find(kKinds[flash], camera);
    if (gains.is_empty_file || !is_good(gains, 12, module, 0, gains.is_whole)) return;
    expected.flash = {static_cast<float>(word_at(gains.bytes, 4) / 1024.0),
                      static_cast<float>(word_at(gains.bytes, 8) / 1024.0)};
  }

  /// The tunings have golden values of every version. A screen flash is a front camera's without a first pair.
  void expect_module_points(unsigned camera, Module module, Expected& expected) const {
    const Found record = find(kKinds[awb], camera);
    if (!is_intact(record)) return;
    const Module fuse = fuse_of(record, 12);
    if (record.is_whole && fuse[0] == 0) module[0] = 0;
    const bool is_main_cameras = camera == 1 && fuse == fitted[0];
    if (is_marked(record, 1) && (is_bound(fuse, module) || is_main_cameras)) {
      expected.module_ratio = {static_cast<float>(word_at(record.bytes, 4)) / 1024.0F,
                               static_cast<float>(word_at(record.bytes, 8)) / 1024.0F};
    }
    const Found gains = find(kKinds[dual_flash], camera);
    if (camera == 2 || gains.is_empty_file || !is_good(gains, 28, module, 0, gains.is_whole)) return;
    const bool is_screen = camera == 1 && word_at(gains.bytes, 4) == 0 && word_at(gains.bytes, 8) == 0;
    expected.dual_flash = {static_cast<float>(word_at(gains.bytes, is_screen ? 12 : 20) / 1024.0),
                           static_cast<float>(word_at(gains.bytes, is_screen ? 16 : 24) / 1024.0)};
  }

  /// Whatever its checksum.
  void expect_mesh(unsigned camera, Module module, Expected& expected) const {
    const auto file = files.find(kLensFiles[camera]);
    Bytes image = file != files.end() ? file->second : Bytes(kLensInImage);
    if (file == files.end()) {
      image.insert(image.end(), exported_lens[camera].begin(), exported_lens[camera].end());
      image.resize(kImageSize);
    }
    if (image.size() < kLensInImage + kLensSize) return;
    const auto first = image.begin() + kLensInImage;
    const Bytes record(first, first + kLensSize);
    Module fuse;
    for (size_t i = 0; i < 4; ++i) {
      fuse[i] = word_at(record, 8 + 8 * i);
      if (word_at(record, 12 + 8 * i) != 0) return;
    }
    if (fuse[0] == 0) module[0] = 0;
    if (word_at(record, 0) != 3099 || word_at(record, 4) != 0 || !is_bound(fuse, module)) return;
    expected.mesh = Bytes(record.begin() + kGainsInLens, record.begin() + kGainsInLens + kGainsSize);
  }

  static bool is_gyro_good(const Found& found, const Module& module) {
    Module fuse;
    bool is_narrow = true;
    for (size_t i = 0; i < 4; ++i) {
      fuse[i] = word_at(found.bytes, 8 + 8 * i);
      is_narrow = is_narrow && word_at(found.bytes, 12 + 8 * i) == 0;
    }
    return word_at(found.bytes, 0) == 3099 && word_at(found.bytes, 4) == 0 && is_narrow &&
           bitwise_crc(found.bytes.data(), 40) == word_at(found.bytes, 40) && word_at(found.bytes, 44) == 0 &&
           is_bound(fuse, module);
  }
};

// ---- the phone ----------------------------------------------------------------------------------------------

class PhoneUnderTest {
 public:
  explicit PhoneUnderTest(uint32_t seed)
      : random_(seed),
        phone_(phone::VirtualPhone::create(folder_.path() / "phone", {.partition_size = kArea + kAreaSize})) {
    phone_.set_log_mask(0);
    phone::keep_journal(false);
  }

  /// Empty, or what differed.
  std::string run();

 private:
  unsigned up_to(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit)(random_); }
  bool one_in(unsigned n) { return up_to(n - 1) == 0; }
  std::filesystem::path file(const std::string& name) { return phone_.host_path("/data/misc/camera") / name; }
  void begin();
  void calibrate();
  void write_flash();
  void write_gyro();
  void write_dual_flash();
  void write_pair();
  void bring_lens_shading();
  const Module& some_module(unsigned camid) { return one_in(6) ? kModules[up_to(5)] : model_.fitted[camid]; }
  void damage_partition();
  void damage_file();
  void reset_to_factory();
  void fit(unsigned camera);
  void swap_module() { fit(up_to(2)); }
  void reboot();
  std::string check_camera(unsigned camera);
  std::string check_start(const Expected& expected);
  std::string check_module_start(const Expected& expected);
  std::string check_phone();

  std::mt19937 random_;
  TemporaryFolder folder_;
  phone::VirtualPhone phone_;
  Model model_;
  std::string story_;
};

void PhoneUnderTest::begin() {
  model_ = Model();
  story_.clear();
  reset_to_factory();
  for (const char* name : kLensExports) std::filesystem::remove(phone_.dir() / "factory" / name);
  // What a fresh partition holds: a slot of ones has a bad checksum, one of zeros a good one.
  if (one_in(2)) model_.area.assign(kAreaSize, 0xFF);
  phone_.write_partition(kArea, model_.area.data(), kAreaSize);
  for (unsigned camera = 0; camera < 3; ++camera) fit(camera);
  reboot();
}

void PhoneUnderTest::reboot() {
  reset_library_state();
  phone_.reboot();
  model_.exported = model_.area;
  model_.exported_lens = model_.lens;
}

/// A run of eleven frames that are all alike. The line may name another camera than the one that runs.
void PhoneUnderTest::calibrate() {
  const unsigned selected = up_to(2), camid = one_in(8) ? up_to(2) : selected;
  const bool is_a_light = one_in(3), has_aec = one_in(2), is_good = !one_in(4);
  const uint32_t rg = 768 + up_to(40) + (is_good ? 0 : 300), bg = 512 + up_to(40);
  const Words settled = {up_to(4000), up_to(60000), up_to(255)};
  const std::map<std::string, std::string> properties = {
      {"mfg.calibration.status", "3"},
      {"mfg.awb.calibration.camid", std::to_string(camid)},
      {"mfg.awb.calibration.threshold", "20"},
      {"mfg.awb.calibration.Alight", is_a_light ? "1" : "0"},
      {"mfg.awb.calibration.rg_ratio", "0.75"},
      {"mfg.awb.calibration.bg_ratio", "0.5"},
      {"mfg.awb.calibration.ae.k.eb", has_aec ? "1" : "0"},
      {"mfg.awb.calibration.trigger", "0"}};
  phone_.set_properties(properties);
  sensor_detect(static_cast<int32_t>(selected));
  uint32_t target = 0, tolerance = 0;
  QOR_Calibration_AEC_get_params(&target, &tolerance);
  check_and_init_awb_calibration();
  QOR_AWB_Calibration_collect(1, 1, 1);
  phone_.set_property("mfg.awb.calibration.trigger", "1");
  QOR_Calibration_AEC_set_ready(settled[0], settled[1], settled[2]);
  for (int frame = 0; frame < 11; ++frame) {
    QOR_AWB_Calibration_collect(static_cast<int32_t>(rg * 4), static_cast<int32_t>(bg * 4), 4);
  }
  phone_.set_property("mfg.awb.calibration.trigger", "0");
  QOR_AWB_Calibration_collect(1, 1, 1);
  phone_.set_property("mfg.calibration.status", "0");

  const Module& module = model_.fitted[selected];
  if (has_aec && camid != 1) {
    model_.write(kKinds[aec], camid, with_module({3099, settled[0], settled[1], settled[2]}, module));
  }
  model_.write(kKinds[is_a_light ? a_light : awb], camid,
               with_module({is_good ? 3099U : 3000U, rg, bg}, module), is_good);
}

void PhoneUnderTest::write_flash() {
  const unsigned camid = up_to(2);
  const Module& module = some_module(camid);
  const uint32_t r = up_to(4000), b = up_to(4000);
  const awb_fuse_id fuse{{module[0], module[1], module[2], module[3]}};
  QOR_FLASH_Calibration_write_to_flash(static_cast<uint8_t>(camid), fuse, static_cast<int32_t>(r),
                                       static_cast<int32_t>(b));
  model_.write(kKinds[flash], camid, with_module({3099, r, b}, module));
}

void PhoneUnderTest::write_gyro() {
  const unsigned camid = up_to(2);
  const Module& module = some_module(camid);
  gyro_write_calibration(static_cast<uint8_t>(camid), {{module[0], module[1], module[2], module[3]}});
  model_.write(kKinds[gyro], camid, sealed64({3099, module[0], module[1], module[2], module[3]}));
}

void PhoneUnderTest::write_dual_flash() {
  const unsigned camid = up_to(2);
  const Module& module = some_module(camid);
  std::array<uint32_t, 6> w;
  for (uint32_t& word : w) word = 1 + up_to(4000);
  if (one_in(4)) w[0] = w[1] = 0;
  const auto gain = [&](size_t i) { return static_cast<int32_t>(w[i]); };
  QOR_Dual_FLASH_Calibration_write_to_flash(static_cast<uint8_t>(camid),
                                            {{module[0], module[1], module[2], module[3]}}, gain(0), gain(1),
                                            gain(2), gain(3), gain(4), gain(5));
  model_.write(kKinds[dual_flash], camid, with_module({3099, w[0], w[1], w[2], w[3], w[4], w[5]}, module));
}

void PhoneUnderTest::write_pair() {
  const Module& module = some_module(0);
  Bytes payload = pattern(one_in(4) ? up_to(kPairPayload) : kPairPayload, up_to(1000));
  write_bytes(file("CalibrationData.dat"), payload);
  QOR_DUAL_CalibrationData_write_to_flash({{module[0], module[1], module[2], module[3]}});
  payload.resize(kPairPayload);
  Bytes record = le32({3099});
  record.insert(record.end(), payload.begin(), payload.end());
  const Bytes fuse = le32({module[0], module[1], module[2], module[3]});
  record.insert(record.end(), fuse.begin(), fuse.end());
  const Bytes crc = le32({bitwise_crc(record.data(), record.size())});
  record.insert(record.end(), crc.begin(), crc.end());
  std::copy(record.begin(), record.end(), model_.area.begin() + kPairInArea);
}

void PhoneUnderTest::bring_lens_shading() {
  const unsigned camera = up_to(2);
  const Module& module = some_module(camera);
  Bytes record = le64({one_in(8) ? 99U : 3099U, module[0], module[1], module[2], module[3]});
  const Bytes gains = pattern(kGainsSize, up_to(1000));
  record.insert(record.end(), gains.begin(), gains.end());
  const Bytes crc = le64({one_in(8) ? 1 : bitwise_crc(record.data(), record.size())});
  record.insert(record.end(), crc.begin(), crc.end());
  if (one_in(2)) {
    model_.lens[camera] = record;
    write_bytes(phone_.dir() / "factory" / kLensExports[camera], record);
    return;
  }
  record.insert(record.begin(), kLensInImage, 0);
  record.resize(kImageSize);
  model_.files[kLensFiles[camera]] = record;
  write_bytes(file(kLensFiles[camera]), record);
}

/// A bit of a record.
void PhoneUnderTest::damage_partition() {
  const unsigned which = up_to(static_cast<unsigned>(std::size(kKinds)));
  const bool is_pair = which == std::size(kKinds);
  const size_t size = is_pair ? kPairSize : kKinds[which].size;
  const size_t at = (is_pair ? kPairInArea : up_to(2) * kSlot + kKinds[which].slot) +
                    up_to(static_cast<unsigned>(size) - 1);
  model_.area[at] = static_cast<uint8_t>(model_.area[at] ^ 1U << up_to(7));
  phone_.write_partition(kArea + at, &model_.area[at], 1);
}

/// A bit of a cache file, or its end.
void PhoneUnderTest::damage_file() {
  if (model_.files.empty()) return;
  auto chosen = std::next(model_.files.begin(), up_to(static_cast<unsigned>(model_.files.size()) - 1));
  Bytes& bytes = chosen->second;
  if (one_in(4)) {
    std::filesystem::remove(file(chosen->first));
    model_.files.erase(chosen);
    return;
  }
  if (one_in(2))
    bytes.resize(up_to(static_cast<unsigned>(bytes.size())));
  else if (!bytes.empty())
    bytes[up_to(static_cast<unsigned>(bytes.size()) - 1)] ^= static_cast<uint8_t>(1U << up_to(7));
  write_bytes(file(chosen->first), bytes);
}

void PhoneUnderTest::reset_to_factory() {
  for (const auto& entry : std::filesystem::directory_iterator(phone_.host_path("/data/misc/camera"))) {
    std::filesystem::remove(entry.path());
  }
  model_.files.clear();
}

void PhoneUnderTest::fit(unsigned camera) {
  const Module& module = kModules[up_to(5)];
  model_.fitted[camera] = module;
  std::map<std::string, std::string> properties;
  for (size_t i = 0; i < 4; ++i) {
    properties[fmt::format("qor.camera.sensor.{}_fuse{}", kCameraNames[camera], i + 1)] =
        std::to_string(static_cast<int32_t>(module[i]));
  }
  phone_.set_properties(properties);
}

std::string PhoneUnderTest::check_camera(unsigned camera) {
  const Expected expected = model_.camera(camera);
  sensor_detect(static_cast<int32_t>(camera));
  const float rg[3] = {kGoldenRg, kGoldenRg, kGoldenRg}, bg[3] = {kGoldenBg, kGoldenBg, kGoldenBg};
  awb_calibration_set_GS(rg, bg);
  std::array<float, 4> pair = {};
  Dual_Cam_Correction(&pair[0], &pair[1], &pair[2], &pair[3]);
  if (pair != expected.pair) return "ratios of the pair";
  std::array<uint32_t, 3> exposure = {1, 1, 1};
  QOR_Calibration_AEC_get_calibration_data(&exposure[0], &exposure[1], &exposure[2]);
  if (exposure != expected.exposure) return "exposure";
  if ((Sensor_Check_GYRO_Calibration_Result() == 0) != expected.has_gyro) return "gyro";
  if ((Sensor_Check_DUAL_Calibration_Result() == 0) != expected.has_pair) return "dual camera";
  const std::string wrong = check_start(expected);
  return wrong.empty() ? check_module_start(expected) : wrong;
}

/// A start with a tuning that has no golden sample of its own.
std::string PhoneUnderTest::check_start(const Expected& expected) {
  awbcal::TuningBlock tuning = awbcal::make_awb_tuning({kGoldenRg, kGoldenBg});
  const awbcal::TuningBlock before = tuning;
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.data());
  constexpr size_t kFirstPoint = 12;
  const bool is_moved =
      tuning[kFirstPoint] != before[kFirstPoint] || tuning[kFirstPoint + 1] != before[kFirstPoint + 1];

  if (is_moved && !expected.takes_awb) return "white points moved";
  if (expected.takes_awb && !is_moved && expected.pair[0] != kGoldenRg) return "white points not moved";
  if (expected.flash) {
    if (tuning[kFlashGain] != (*expected.flash)[0] || tuning[kFlashGain + 2] != (*expected.flash)[1])
      return "flash gains";
  } else if (!expected.takes_awb && tuning[kFlashGain] != before[kFlashGain]) {
    return "flash gains changed";
  }
  return "";
}

/// A start with a tuning that carries its golden sample, and the meshes.
std::string PhoneUnderTest::check_module_start(const Expected& expected) {
  awbcal::TuningBlock tuning = awbcal::make_awb_tuning({kGoldenRg, kGoldenBg});
  const awbcal::TuningBlock before = tuning;
  std::array<float, 2> ratio = {}, first = {}, second = {};
  Correct_Reference_Points_qorModule(tuning.data(), ratio.data(), first.data(), second.data());
  if (ratio != expected.module_ratio) return "module ratios";
  const std::array<float, 2> gains = {tuning[kFlashGain], tuning[kFlashGain + 2]};
  if (gains != expected.dual_flash.value_or(std::array{before[kFlashGain], before[kFlashGain + 2]})) {
    return "dual-flash gains";
  }
  std::vector<float> meshes(12148, 1.25F);
  if ((Sensor_set_mesh(meshes.data(), 0, 0, 0) == 1) != expected.mesh.has_value())
    return "mesh taken or refused";
  constexpr size_t kFirstMesh = 2576;
  const auto* stored = reinterpret_cast<const uint8_t*>(meshes.data()) + kFirstMesh;
  if (expected.mesh && std::memcmp(stored, expected.mesh->data(), kGainsSize) != 0) return "mesh";
  return expected.mesh || meshes == std::vector<float>(meshes.size(), 1.25F) ? "" : "mesh changed";
}

std::string PhoneUnderTest::check_phone() {
  for (unsigned camera = 0; camera < 3; ++camera) {
    const std::string wrong = check_camera(camera);
    if (!wrong.empty()) return fmt::format("{} camera: {}", kCameraNames[camera], wrong);
  }
  const Bytes partition = phone_.partition();
  if (!std::equal(model_.area.begin(), model_.area.end(), partition.begin() + kArea)) return "the partition";
  std::vector<const char*> names(std::begin(kLensFiles), std::end(kLensFiles));
  for (const Kind& kind : kKinds) names.insert(names.end(), kind.read.begin(), kind.read.end());
  for (const char* name : names) {
    const auto wanted = model_.files.find(name);
    const auto bytes = read_bytes(file(name));
    if (bytes.has_value() != (wanted != model_.files.end())) return name;
    if (bytes && *bytes != wanted->second) return name;
  }
  return "";
}

std::string PhoneUnderTest::run() {
  using Event = void (PhoneUnderTest::*)();
  static constexpr std::pair<const char*, Event> kEvents[] = {
      {"calibrate", &PhoneUnderTest::calibrate},
      {"calibrate", &PhoneUnderTest::calibrate},
      {"flash", &PhoneUnderTest::write_flash},
      {"gyro", &PhoneUnderTest::write_gyro},
      {"dual flash", &PhoneUnderTest::write_dual_flash},
      {"dual camera", &PhoneUnderTest::write_pair},
      {"lens shading", &PhoneUnderTest::bring_lens_shading},
      {"damage", &PhoneUnderTest::damage_partition},
      {"damage a file", &PhoneUnderTest::damage_file},
      {"swap", &PhoneUnderTest::swap_module},
      {"reboot", &PhoneUnderTest::reboot},
      {"factory reset", &PhoneUnderTest::reset_to_factory}};
  begin();
  for (unsigned left = 3 + up_to(7); left > 0; --left) {
    const auto [name, event] = kEvents[up_to(std::size(kEvents) - 1)];
    (this->*event)();
    story_ += fmt::format("{}{}", story_.empty() ? "" : ", ", name);
    if (left > 1 && !one_in(3)) continue;
    const std::string wrong = check_phone();
    if (!wrong.empty()) return story_ + ": " + wrong;
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  return volume::run_rounds<PhoneUnderTest>(argc, argv, {"phone histories", "history", 100000});
}
