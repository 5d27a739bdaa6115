// What happens when any one call of a storage, record or factory function fails, once or for good, and when a
// signal interrupts any one call of the library? Guards against crashes, leaked descriptors, undocumented results, a
// success told of bytes that are not there, and a signal that makes a camera take another record.

#include <mtd/mtd-user.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "awb_calibration/correction.h"
#include "awb_calibration/factory.h"
#include "awb_calibration/verify.h"
#include "common/log.h"
#include "records/record_layouts.h"
#include "tests/support/nand_phone.h"

namespace {

using namespace support;

const std::string kFolder = "/data/misc/camera/";
constexpr const char* kPayload = "/data/misc/camera/CalibrationData.dat";
constexpr awb_fuse_id kFuse = {{1, 2, 3, 4}};

/// A range of the partition that holds its old bytes or those of a run without faults, and after a result of 0
/// the latter.
using Range = std::pair<long, long>;

struct Subject {
  const char* name;
  std::function<int64_t()> call;
  std::vector<Range> written = {};
  std::vector<int64_t> results = {0, -1};
};

/// What the subjects read into or correct: floats of 1.25 before each call.
alignas(8) uint8_t output[48592];
uint8_t* const record = output;
float* const tuning = reinterpret_cast<float*>(output);

int64_t open_and_transfer() {
  partition_handle handle{};
  const Bytes bytes = pattern(32, 7);
  int64_t result = partition_open(&handle, "mfg");
  if (result == 0) result = partition_read(&handle, 8, 48, record);
  if (result == 0) result = partition_write(&handle, 0x21000, 32, bytes.data());
  const calib::KeepErrno keep;
  partition_close(&handle);
  return result;
}

int64_t open_emmc() {
  emmc_state state{};
  const int64_t result = emmc_open(&state, "mfg");
  if (result == 0) emmc_close(&state);
  return result;
}

int64_t run_to_its_end() {
  check_and_init_awb_calibration();
  awb_enable_calibration();
  aec_set_status_ready();
  for (int i = 0; i < 13; ++i) QOR_AWB_Calibration_collect(77200, 57600, 100);
  return awb_if_enabled();
}

int64_t stored_exposure() {
  uint32_t gain, time, luma;
  QOR_Calibration_AEC_get_calibration_data(&gain, &time, &luma);
  return gain;
}

int64_t marker() {
  uint8_t bytes[64] = {};
  if (QOR_Get_LSC(bytes, sizeof bytes) < 0) return -1;
  QOR_Set_LSC(bytes, sizeof bytes);
  return QOR_Init_LSC();
}

/// Opened by the link of its name, not the device that stands for every other.
int64_t open_by_link() {
  emmc_state state{};
  const int64_t result = emmc_open(&state, "linked");
  std::memcpy(output, state.path, sizeof state.path);
  if (result == 0) emmc_close(&state);
  return result;
}

/// Those that neither write nor transfer on the partition, and have nothing to report but what they read.
const Subject kReaders[] = {
    {"ReadFlash", [] { return int64_t{ReadFlash(record, reinterpret_cast<uint32_t*>(output + 64))}; }},
    {"flash loader", [] { return int64_t{ReadFlashForFlashCalibration(record, 32)}; }},
    {"dual-flash loader", [] { return int64_t{ReadFlashForDualFlashCali(record, 48)}; }},
    {"D50 loader", [] { return int64_t{ReadFlashForDualCam(record, 32, 0)}; }},
    {"A-light loader", [] { return int64_t{ReadFlashForDualCam(record, 32, 1)}; }},
    {"AEC loader", [] { return int64_t{aec_read_calibration(record, 36)}; }},
    {"marker reader", [] { return int64_t{QOR_Get_LSC(output, 64)}; }},
    {"reference points", [] { return QOR_AWB_Calibration_Reference_Points_Correction(tuning), 0; }},
    {"module points",
     [] {
       return Correct_Reference_Points_qorModule(tuning, tuning + 4000, tuning + 4002, tuning + 4004), 0;
     }},
    {"mesh", [] { return int64_t{Sensor_set_mesh(output, 0, 0.5F, 0.25F)}; }},
    {"dual-camera correction",
     [] { return Dual_Cam_Correction(tuning, tuning + 1, tuning + 2, tuning + 3), 0; }},
    {"gyro check", Sensor_Check_GYRO_Calibration_Result},
    {"lens-shading check", Sensor_Check_LSC_Calibration_Result},
    {"AWB check", Sensor_Check_AWB_Calibration_Result},
    {"AEC check", Sensor_Check_AEC_Calibration_Result},
    {"flash check", Sensor_Check_FLASH_Calibration_Result},
    {"dual-camera check", Sensor_Check_DUAL_Calibration_Result},
    {"eMMC by link", open_by_link},
};

// clang-format off
const Subject kSubjects[] = {
    {"partition", open_and_transfer, {{0x21000, 0x21020}}},
    {"emmc", open_emmc},
    {"ReadEmmcFlash", [] { return ReadEmmcFlash(record, 32); }},
    {"ReadEmmcOffset", [] { return ReadEmmcOffset(record, 32, 0xE08); }},
    {"WriteFlashOffset", [] { return WriteFlashOffset(&kFuse, 16, 0xE08); }, {{0x20E08, 0x20E18}}},
    {"WriteFlash", [] { return WriteFlash(&kFuse, 16); }, {{0x20000, 0x20010}}},
    {"WriteFlash_for_front_Cam", [] { return WriteFlash_for_front_Cam(&kFuse, 16); }, {{0x21000, 0x21010}}},
    {"WriteFlash_for_bayer_Cam", [] { return WriteFlash_for_bayer_Cam(&kFuse, 16, 2); }, {{0x22000, 0x22010}}},
    {"CheckFlash", CheckFlash},
    {"aec_write_calibration", [] { return aec_write_calibration(0, kFuse, 5, 6, 7); }, {{0x20E28, 0x20E4C}}},
    {"aec_read_calibration", [] { return aec_read_calibration(record, 36); }, {}, {36, 0, -1}},
    {"QOR_Calibration_AEC_get_calibration_data", stored_exposure, {}, {0, 5}},
    {"AWB run", run_to_its_end, {{0x20000, 0x20020}, {0x20E28, 0x20E4C}}, {0, 1}},
    {"flash writer", [] { return QOR_FLASH_Calibration_write_to_flash(1, kFuse, 5, 6); }, {{0x21E08, 0x21E28}}},
    {"flash writer, sub camera", [] { return QOR_FLASH_Calibration_write_to_flash(2, kFuse, 5, 6); }, {{0x22E08, 0x22E28}}},
    {"dual-flash writer", [] { return QOR_Dual_FLASH_Calibration_write_to_flash(1, kFuse, 1, 2, 3, 4, 5, 6); }, {{0x21E6C, 0x21E9C}}},
    {"gyro writer", [] { return gyro_write_calibration(1, kFuse); }, {{0x21EA0, 0x21ED0}}},
    {"dual-camera writer", [] { return QOR_DUAL_CalibrationData_write_to_flash(kFuse); }, {{0x23200, 0x23200 + 1667}}},
    {"dual-camera writer, first form", QOR_DUAL_Calibration_write_to_flash, {{0x23000, 0x23000 + 465}}},
    {"dual-camera reader", QOR_DUAL_Calibration_ReadCalData},
    {"dual-camera check", Sensor_Check_DUAL_Calibration_Result},
    {"status", [] { return int64_t{Sensor_get_Calibration_status()}; }, {}, {0, 4}},
    {"lens-shading marker", marker},
};
// clang-format on

/// What a call that failed leaves in errno is neither nothing nor what a later call left behind.
void expect_documented(const Subject& subject, int64_t result, int error) {
  EXPECT_EQ(std::count(subject.results.begin(), subject.results.end(), result), 1) << result;
  const std::set<int> left = {EIO, EINTR, ENOENT, ENOMEM, ENOSPC};
  EXPECT_TRUE(result != -1 || left.contains(error)) << error;
}

constexpr size_t kPartitionSize = 160 * 1024;

class FailingCalls : public PhoneTest {
 protected:
  FailingCalls() : FailingCalls({.partition_size = kPartitionSize}) {}
  explicit FailingCalls(const phone::Options& options) : PhoneTest(options) {
    fit_module("main", {1, 2, 3, 4});
    for (const auto& [name, value] : {std::pair{"mfg.calibration.status", "3"},
                                      {"mfg.awb.calibration.trigger", "1"},
                                      {"mfg.awb.calibration.ae.k.eb", "1"},
                                      {"mfg.awb.calibration.rg_ratio", "0.75"},
                                      {"mfg.awb.calibration.bg_ratio", "0.5625"}}) {
      phone().set_property(name, value);
    }
  }

  /// The result, from the same phone each time.
  int64_t run(const Subject& subject, const Bytes& payload) {
    fill_medium();
    phone().set_property("mfg.calibration.status", std::string(subject.name) == "status" ? "4" : "3");
    for (const std::string& name : camera_files()) std::filesystem::remove(host(kFolder + name));
    for (const auto& [name, bytes] : files_) put(kFolder + name, bytes);
    put(kPayload, payload);
    std::fill_n(tuning, sizeof output / sizeof *tuning, 1.25F);
    int64_t result = INT64_MIN;
    phone().take_calls();
    console_ = console_of([&] { log_ = log_of([&] { result = subject.call(); }); });
    return result;
  }

  virtual void fill_medium() { phone().write_partition(0, image_.data(), image_.size()); }

  const Bytes image_ = pattern(kPartitionSize);
  std::map<std::string, Bytes> files_ = {{"awb_calibration_success.txt", {}},
                                         {"aec_cal", sealed32({3099, 5, 6, 7, 1, 2, 3, 4})},
                                         {"lsc_calibration_done.txt", pattern(64)}};
  std::string console_;
  Log log_;
};

TEST_F(FailingCalls, LeaveTheOldBytesOrTheWholeRecordAndADocumentedResult) {
  const Bytes payload = pattern(1700);
  for (const Subject& subject : kSubjects) {
    SCOPED_TRACE(subject.name);
    run(subject, payload);
    const Bytes stored = phone().partition();
    run(subject, {});
    const Bytes of_empty_payload = phone().partition();  // a payload file that opens but does not read
    const auto one_call_fails = [&] {
      const int64_t result = run(subject, payload);
      expect_documented(subject, result, error);
      Bytes now = phone().partition();
      for (const auto& [first, end] : subject.written) {
        const auto holds = [&, first = first, end = end](const Bytes& image) {
          return std::equal(now.begin() + first, now.begin() + end, image.begin() + first);
        };
        EXPECT_TRUE(holds(stored) || holds(of_empty_payload) || (result != 0 && holds(image_))) << first;
        std::copy(image_.begin() + first, image_.begin() + end, now.begin() + first);
      }
      EXPECT_TRUE(now == image_) << "bytes outside the record have changed";
    };
    for_every_failing_call(phone(), one_call_fails);
    for_every_failing_call(phone(), one_call_fails, "malloc");
  }
}

// ---- raw NAND ---------------------------------------------------------------------------------------------

constexpr uint32_t kBlock = 16384;

int64_t transfers(mtd_partition* partition) {
  Bytes bytes(2 * kBlock);
  const int32_t read = mtd_read(partition, 100, 2 * kBlock, bytes.data());
  return read != 0 ? read : mtd_write(partition, 100, 2 * kBlock, bytes.data());
}

int64_t streams(mtd_partition* partition) {
  uint8_t bytes[kBlock + 10] = {1};
  mtd_read_context* in = mtd_read_partition(partition);
  if (in == nullptr) return -1;
  const int64_t read = mtd_read_data(in, bytes, sizeof bytes);
  const int error = errno;
  mtd_read_close(in);
  errno = error;
  if (read < 0) return -1;
  mtd_write_context* out = mtd_write_partition(partition);
  if (out == nullptr) return -1;
  const int64_t written = mtd_write_data(out, bytes, sizeof bytes);
  const int32_t closed = mtd_write_close(out);
  return written < 0 ? -2 : closed;
}

int64_t whole_partition(mtd_partition* partition) {
  const int32_t fd = mtd_open_partition_device(partition);
  if (fd < 0) return -1;
  uint32_t size = 0;
  void* data = nullptr;
  int32_t result = mtd_read_partition_data(fd, &size, &data);
  if (result == 0) result = mtd_write_partition_data(fd, 2 * kBlock, data);
  const calib::KeepErrno keep;
  std::free(data);
  close(fd);
  return result;
}

int64_t by_name(mtd_partition*) {
  mtd_data_handle handle{};
  int32_t result = mtd_data_open(&handle, "mfg");
  if (result == 0) result = mtd_data_read_block(&handle);
  // Whatever the second read comes to, the handle can be written.
  if (result == 0) mtd_data_read(&handle);
  if (result == 0) result = mtd_data_write(&handle);
  if (result == 0) result = mtd_data_write_block(&handle);
  const calib::KeepErrno keep;
  mtd_data_close(&handle);
  return result;
}

int64_t on_open_partition(int64_t (*call)(mtd_partition*)) {
  mtd_partition state{};
  if (mtd_open(&state, "mfg") != 0) return -1;
  const int64_t result = call(&state);
  const calib::KeepErrno keep;
  mtd_close(&state);
  return result;
}

int64_t erases(mtd_partition* partition) {
  const int32_t fd = mtd_open_partition_device(partition);
  if (fd < 0) return -1;
  region_info_user region{};
  int32_t result = mtd_get_partition_region_info(fd, &region);
  if (result == 0) result = mtd_set_partition_erase_info(fd, kBlock, 3 * kBlock);
  close(fd);
  mtd_write_context* out = result == 0 ? mtd_write_partition(partition) : nullptr;
  if (out == nullptr) return -1;
  const int64_t position = mtd_erase_blocks(out, 2);
  return mtd_write_close(out) == 0 ? position : -1;
}

const Subject kOfNand[] = {
    {"back end", [] { return on_open_partition(transfers); }},
    {"streams", [] { return on_open_partition(streams); }, {}, {0, -1, -2}},
    {"whole partition", [] { return on_open_partition(whole_partition); }},
    {"by name", [] { return on_open_partition(by_name); }},
    {"erases", [] { return on_open_partition(erases); }, {}, {2 * kBlock, -1}},
};

TEST(FailingNandCalls, EndInADocumentedResult) {
  NandPhone phone({.erase_size = kBlock, .blocks = 8, .factory_bad = {2}});
  erase_size = kBlock;
  for (const Subject& subject : kOfNand) {
    SCOPED_TRACE(subject.name);
    const auto one_call_fails = [&] {
      errno = 0;
      const int64_t result = subject.call();
      expect_documented(subject, result, errno);
    };
    for_every_failing_call(phone.phone(), one_call_fails);
    for_every_failing_call(phone.phone(), one_call_fails, "malloc");
  }
  for (const auto& violation : phone.nand().violations()) EXPECT_NE(violation.what, "unaligned erase");
}

// ---- signals ----------------------------------------------------------------------------------------------

// Emulated and sanitized runs are ten times slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__aarch64__)
constexpr unsigned kThinning = 5;
#else
constexpr unsigned kThinning = 1;
#endif

bool is_transfer(const phone::Call& call) {
  return call.name == "read" || call.name == "write";
}

/// A signal does no harm but to a transfer on eMMC and the seek before it, which then fail, and to a close.
bool may_fail(const phone::Call& call) {
  const bool is_emmc = call.path.starts_with("/dev/block/");
  return call.name == "close" || (is_emmc && (is_transfer(call) || call.name == "lseek"));
}

/// A signal also ends a transfer early. The table of MTD and the blocks of NAND come whole or not at all.
bool comes_in_parts(const phone::Call& call) {
  return is_transfer(call) && !call.path.starts_with("/dev/mtd/") && call.path != "/proc/mtd";
}

/// What a call comes to, but for what it says.
struct Effects {
  int64_t result;
  Bytes output, partition;
  std::map<std::string, std::pair<int, Bytes>> files;  ///< mode and content
  bool operator==(const Effects&) const = default;
};

std::vector<phone::Call> made_again(std::vector<phone::Call> calls, unsigned which) {
  calls.insert(calls.begin() + which, phone::Call(calls[which]));
  return calls;
}

class InterruptedCalls : public FailingCalls {
 protected:
  explicit InterruptedCalls(const phone::Options& options = {.partition_size = kPartitionSize})
      : FailingCalls(options) {
    put("/dev/block/mmcblk0p7", image_);
    const std::string folder = "/dev/block/platform/msm_sdcc.1/by-name";
    std::filesystem::create_directories(host(folder));
    std::filesystem::create_symlink("/dev/block/mmcblk0p7", host(folder) / "linked");
  }

  /// The module's records in every cache file; in the export others of it, or the only ones.
  void put_records(bool in_cache) {
    Bytes image(calib::kExportSize);
    for (const uint32_t salt : {0U, 1U}) {
      std::vector<uint64_t> mesh = {3099, 1, 2, 3, 4};
      for (uint64_t i = 0; i < 442; ++i) mesh.push_back((0x3F900000 + salt + i) << 32 | (0x3FA00000 + i));
      const std::tuple<const char*, size_t, Bytes> records[] = {
          {"awb_cal", calib::kExportAwb, sealed32({3099, 700 + salt, 800, 1, 2, 3, 4})},
          {"awb_A_light_cal", calib::kExportALightAwb, sealed32({3099, 710 + salt, 810, 1, 2, 3, 4})},
          {"flash_cal", calib::kExportFlash, sealed32({3099, 1700 + salt, 1800, 1, 2, 3, 4})},
          {"flash_dual_cal", calib::kExportDualFlash,
           sealed32({3099, 1700 + salt, 1500, 1600, 1550, 1650, 1525, 1, 2, 3, 4})},
          {"aec_cal", calib::kExportAec, sealed32({3099, 5 + salt, 6, 7, 1, 2, 3, 4})},
          {"gyro_cal_qor_CAM", calib::kExportGyro, sealed64({3099, 1, 2, 3, 4 + salt})},
          {"lsc_cal", calib::kExportLensShading, sealed64(mesh)}};
      for (const auto& [name, offset, bytes] : records) {
        std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<long>(offset));
        if (salt == 0) files_[name] = bytes;
      }
      if (salt == 0) files_["lsc_cal"] = image;
      if (!in_cache) break;
    }
    if (!in_cache) files_ = {{"lsc_calibration_done.txt", pattern(64)}};
    put("/sys/android_camera_awb_cal/awb_cal", image);
  }

  Effects effects_of(const Subject& subject) {
    const int64_t result = run(subject, pattern(1700));
    EXPECT_EQ(phone().open_descriptors(), 0U) << "a descriptor was left open";
    calls_ = phone().take_calls();
    Effects effects{result, Bytes(output, output + sizeof output), phone().partition(), {}};
    for (const std::string& name : camera_files()) {
      effects.files[name] = {mode_of(host(kFolder + name)), get(kFolder + name).value()};
    }
    // Where its table lies and where it reads to is another matter in every call.
    std::erase_if(log_, [](const LogLine& line) {
      return line.text.find("addr=") != line.text.npos || line.text.starts_with("g_mtd_state");
    });
    return effects;
  }

  void expect_no_harm(const Subject& subject) {
    SCOPED_TRACE(subject.name);
    phone().clear_faults();
    effects_of(subject);  // the trigger's edge is the first run's alone
    const Effects faultless = effects_of(subject);
    const auto calls = calls_;
    const auto said = std::pair(console_, log_);
    std::map<std::pair<std::string, std::string>, unsigned> made;
    for (unsigned i = 0; i < calls.size(); ++i) {
      const phone::Call& call = calls[i];
      const unsigned nth = ++made[{call.name, call.path}];
      if (i % kThinning != 0) continue;
      for (const bool in_parts : {false, true}) {
        if (in_parts && !comes_in_parts(call)) continue;
        SCOPED_TRACE(call.name + " " + call.path + printf_text(", call %u, nth %u, %d", i, nth, in_parts));
        phone().clear_faults();
        phone().add_fault({.call = "*", .nth = i + 1, .error = EINTR, .transfer = in_parts ? 3 : -1});
        if (in_parts) {
          phone().add_fault({.call = call.name, .path = call.path, .nth = nth + 1, .error = EINTR});
        }
        const Effects effects = effects_of(subject);
        EXPECT_GE(phone().struck_faults(), 1U);
        if (may_fail(call) && effects.result != faultless.result) {
          // A transfer that ends early leaves no errno.
          expect_documented(subject, effects.result, in_parts ? EINTR : error);
        } else {
          EXPECT_EQ(effects.result, faultless.result);
          EXPECT_TRUE(effects.output == faultless.output) << "other bytes delivered";
          EXPECT_TRUE(effects.partition == faultless.partition) << "other bytes on the partition";
          EXPECT_TRUE(effects.files == faultless.files) << "other files";
          EXPECT_TRUE(may_fail(call) || std::pair(console_, log_) == said) << "other lines";
          EXPECT_TRUE(may_fail(call) || in_parts || calls_ == made_again(calls, i)) << "not made again";
        }
      }
    }
    phone().clear_faults();
    EXPECT_FALSE(calls.empty());
  }

 private:
  std::vector<phone::Call> calls_;
};

TEST_F(InterruptedCalls, ComeToWhatTheyComeToWithoutASignal) {
  for (const bool in_cache : {true, false}) {
    put_records(in_cache);
    for (const Subject& subject : kReaders) expect_no_harm(subject);
  }
  for (const Subject& subject : kSubjects) expect_no_harm(subject);
}

class InterruptedNandCalls : public InterruptedCalls {
 protected:
  InterruptedNandCalls()
      : InterruptedCalls({.storage = phone::Storage::nand,
                          .page_size = 2048,
                          .nand = {.erase_size = kBlock, .blocks = 7, .factory_bad = {2}}}) {
    erase_size = kBlock;
    phone().nand().save_at_detach();
  }
  /// A block of zeros is none to write_partition().
  void fill_medium() override {
    for (uint32_t i = 0; i < blocks_.size(); ++i) phone().nand().set_block_bytes(i, blocks_[i]);
  }

 private:
  const std::vector<Bytes> blocks_ = patterned({.erase_size = kBlock, .blocks = 7});
};

TEST_F(InterruptedNandCalls, ComeToWhatTheyComeToWithoutASignal) {
  for (const Subject& subject : kSubjects) expect_no_harm(subject);
  for (const Subject& subject : kOfNand) expect_no_harm(subject);
}

}  // namespace
