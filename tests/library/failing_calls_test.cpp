// What happens when any one call of a storage, record or factory function fails, once or for good?
// Guards against crashes, leaked descriptors, undocumented results, and a success told of bytes that are not there.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "awb_calibration/factory.h"
#include "awb_calibration/verify.h"
#include "tests/support/nand_phone.h"

namespace {

using namespace support;

constexpr const char* kDone = "/data/misc/camera/lsc_calibration_done.txt";
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

uint8_t record[48];

int64_t open_and_transfer() {
  partition_handle handle{};
  const Bytes bytes = pattern(32, 7);
  int64_t result = partition_open(&handle, "mfg");
  if (result == 0) result = partition_read(&handle, 8, 48, record);
  if (result == 0) result = partition_write(&handle, 0x21000, 32, bytes.data());
  const int error = errno;
  partition_close(&handle);
  errno = error;
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

const Subject kSubjects[] = {
    {"partition", open_and_transfer, {{0x21000, 0x21020}}},
    {"emmc", open_emmc},
    {"ReadEmmcFlash", [] { return ReadEmmcFlash(record, 32); }},
    {"ReadEmmcOffset", [] { return ReadEmmcOffset(record, 32, 0xE08); }},
    {"WriteFlashOffset", [] { return WriteFlashOffset(&kFuse, 16, 0xE08); }, {{0x20E08, 0x20E18}}},
    {"WriteFlash", [] { return WriteFlash(&kFuse, 16); }, {{0x20000, 0x20010}}},
    {"WriteFlash_for_front_Cam", [] { return WriteFlash_for_front_Cam(&kFuse, 16); }, {{0x21000, 0x21010}}},
    {"WriteFlash_for_bayer_Cam",
     [] { return WriteFlash_for_bayer_Cam(&kFuse, 16, 2); },
     {{0x22000, 0x22010}}},
    {"CheckFlash", CheckFlash},
    {"aec_write_calibration", [] { return aec_write_calibration(0, kFuse, 5, 6, 7); }, {{0x20E28, 0x20E4C}}},
    {"aec_read_calibration", [] { return aec_read_calibration(record, 36); }, {}, {36, 0, -1}},
    {"QOR_Calibration_AEC_get_calibration_data", stored_exposure, {}, {0, 5}},
    {"AWB run", run_to_its_end, {{0x20000, 0x20020}, {0x20E28, 0x20E4C}}, {0, 1}},
    {"flash writer",
     [] { return QOR_FLASH_Calibration_write_to_flash(1, kFuse, 5, 6); },
     {{0x21E08, 0x21E28}}},
    {"dual-flash writer",
     [] { return QOR_Dual_FLASH_Calibration_write_to_flash(1, kFuse, 1, 2, 3, 4, 5, 6); },
     {{0x21E6C, 0x21E9C}}},
    {"gyro writer", [] { return gyro_write_calibration(1, kFuse); }, {{0x21EA0, 0x21ED0}}},
    {"dual-camera writer",
     [] { return QOR_DUAL_CalibrationData_write_to_flash(kFuse); },
     {{0x23200, 0x23200 + 1667}}},
    {"dual-camera writer, first form", QOR_DUAL_Calibration_write_to_flash, {{0x23000, 0x23000 + 465}}},
    {"dual-camera reader", QOR_DUAL_Calibration_ReadCalData},
    {"dual-camera check", Sensor_Check_DUAL_Calibration_Result},
    {"status", [] { return int64_t{Sensor_get_Calibration_status()}; }, {}, {0, 4}},
    {"lens-shading marker", marker},
};

/// What a call that failed leaves is neither nothing nor what a later call left behind.
void expect_its_errno(int64_t result, int error) {
  const std::set<int> left = {EIO, ENOENT, ENOMEM, ENOSPC};
  EXPECT_TRUE(result != -1 || left.contains(error)) << error;
}

class FailingCalls : public PhoneTest {
 protected:
  FailingCalls() : PhoneTest({.partition_size = 160 * 1024}) {
    fit_module("main", {1, 2, 3, 4});
    for (const auto& [name, value] : {std::pair{"mfg.calibration.status", "3"},
                                      {"mfg.awb.calibration.trigger", "1"},
                                      {"mfg.awb.calibration.ae.k.eb", "1"},
                                      {"mfg.awb.calibration.rg_ratio", "0.75"}}) {
      phone().set_property(name, value);
    }
  }

  /// The result, from the same phone each time.
  int64_t run(const Subject& subject, const Bytes& payload) {
    phone().write_partition(0, image_.data(), image_.size());
    phone().set_property("mfg.calibration.status", std::string(subject.name) == "status" ? "4" : "3");
    put("/data/misc/camera/awb_calibration_success.txt", {});
    put("/data/misc/camera/aec_cal", sealed32({3099, 5, 6, 7, 1, 2, 3, 4}));
    put(kDone, pattern(64));
    put(kPayload, payload);
    int64_t result = INT64_MIN;
    console_of([&] { log_of([&] { result = subject.call(); }); });
    expect_its_errno(result, error);
    return result;
  }

  const Bytes image_ = pattern(160 * 1024);
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
      EXPECT_EQ(std::count(subject.results.begin(), subject.results.end(), result), 1) << result;
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

constexpr uint32_t kBlock = 4096;

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
  const int error = errno;
  std::free(data);
  close(fd);
  errno = error;
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
  const int error = errno;
  mtd_data_close(&handle);
  errno = error;
  return result;
}

TEST(FailingNandCalls, EndInADocumentedResult) {
  NandPhone phone({.erase_size = kBlock, .blocks = 8, .factory_bad = {2}});
  erase_size = kBlock;
  for (const auto call : {transfers, streams, whole_partition, by_name}) {
    for (const char* name : {"*", "malloc"}) {
      for_every_failing_call(
          phone.phone(),
          [&] {
            errno = 0;
            const int64_t result = call(phone.state());
            expect_its_errno(result, errno);
            EXPECT_TRUE(result == 0 || result == -1 || (call == streams && result == -2)) << result;
          },
          name);
    }
  }
  for (const auto& violation : phone.nand().violations()) EXPECT_NE(violation.what, "unaligned erase");
}

}  // namespace
