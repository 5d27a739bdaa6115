// Stores the dual-camera pair's calibration in its two forms, and reads the payload back.
//
// The payload passes between this library and the factory tool in a file; what tells the tool that a record
// is on the partition is an empty marker file, created only after the record was read back.

#include <cstring>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "common/on_heap.h"
#include "factory/factory_console.h"
#include "records/judgement.h"

namespace {

using calib::DualCameraFirstFormRecord;
using calib::DualCameraRecord;
using calib::log_module;
using calib::OnHeap;

constexpr const char* kPayloadFile = "/data/misc/camera/CalibrationData.dat";
constexpr const char* kSuccessMarker = "/data/misc/camera/dual_calibration_success.txt";

int32_t fail_without_memory(const char* name) {
  const calib::KeepErrno keep;
  LOGE("%s, [Dual Calibration] Can't allocate calibration buffer", name);
  printf("%s: Can't allocate calibration buffer\n", name);
  return -1;
}

int32_t write_record(const char* name, const void* record, uint32_t size, uint32_t offset) {
  if (WriteFlashOffset(record, size, offset) < 0) {
    const calib::KeepErrno keep;
    LOGE("%s, [Dual Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad", name);
    printf("%s: writeflash() fail\n", name);
    return -1;
  }
  LOGI("%s, [DUAL Calibration] write flash pass", name);
  printf("%s: writeflash() OK\n", name);
  return 0;
}

/// A read that fails is logged as a write that failed, too.
int32_t read_back(const char* name, void* buffer, uint32_t size, uint32_t offset) {
  if (ReadEmmcOffset(buffer, size, offset) >= 0) return 0;
  const calib::KeepErrno keep;
  LOGE("%s, [Dual Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad", name);
  printf("%s: ReadEmmcOffset() fail\n", name);
  return -1;
}

int32_t leave_success_marker() {
  const int fd = calib::create_replacement(kSuccessMarker);
  if (fd < 0) {
    const calib::KeepErrno keep;
    printf("\n can not open calibration_success.txt file");
    return -1;
  }
  calib::finish_marker(fd, nullptr, 0);
  return 0;
}

/// Binds and seals a record whose payload is in place.
void complete(DualCameraRecord& record, const awb_fuse_id& fuse) {
  const uint32_t valid_word = calib::kFinishedValidWord;
  memcpy(record.valid_word, &valid_word, sizeof record.valid_word);
  memcpy(record.fuse, fuse.word, sizeof record.fuse);
  const uint32_t crc = calib::crc_of(record);
  memcpy(record.crc, &crc, sizeof record.crc);
}

}  // namespace

int32_t QOR_DUAL_CalibrationData_write_to_flash(awb_fuse_id fuse) {
  constexpr const char* kName = "QOR_DUAL_CalibrationData_write_to_flash";
  constexpr uint32_t kOffset = calib::kAreaDualCamera;
  LOGI("%s: offset(%d)", kName, static_cast<int32_t>(kOffset));
  calib::remove_file(kSuccessMarker);
  const OnHeap<DualCameraRecord> record;
  if (!record) return fail_without_memory(kName);
  if (calib::read_file(kPayloadFile, record->payload, sizeof record->payload) < 0) {
    const calib::KeepErrno keep;
    printf("\n can not open file: %s\n", kPayloadFile);
    return -1;
  }
  complete(*record, fuse);
  if (write_record(kName, &*record, sizeof *record, kOffset) < 0) return -1;

  uint8_t stored_crc[sizeof record->crc] = {};
  constexpr uint32_t kCrcOffset = kOffset + offsetof(DualCameraRecord, crc);
  if (read_back(kName, stored_crc, sizeof stored_crc, kCrcOffset) < 0) return -1;
  // The marker, not the result, is the verdict on what was read back.
  if (memcmp(stored_crc, record->crc, sizeof stored_crc) != 0) return 0;
  if (leave_success_marker() < 0) return -1;
  LOGI("%s, [DUAL Calibration] dual_calibration_success.txt", kName);
  printf("%s: [DUAL Calibration] dual_calibration_success.txt\n", kName);
  return 0;
}

int32_t QOR_DUAL_Calibration_write_to_flash() {
  constexpr const char* kName = "QOR_DUAL_Calibration_write_to_flash";
  constexpr uint32_t kOffset = calib::kAreaDualCameraFirstForm;
  LOGI("%s: offset(%d)", kName, static_cast<int32_t>(kOffset));
  calib::remove_file(kSuccessMarker);
  const OnHeap<DualCameraFirstFormRecord> record;
  const OnHeap<DualCameraFirstFormRecord> stored;
  if (!record || !stored) return fail_without_memory(kName);
  if (calib::read_file(kPayloadFile, record->payload, sizeof record->payload) < 0) {
    const calib::KeepErrno keep;
    printf("\n can not open file: %s", kPayloadFile);
    return -1;
  }
  record->crc_low = static_cast<uint8_t>(Crc32CheckSumByte(record->payload, sizeof record->payload, 0));
  if (write_record(kName, &*record, sizeof *record, kOffset) < 0) return -1;
  if (read_back(kName, &*stored, sizeof *stored, kOffset) < 0) return -1;
  return memcmp(&*stored, &*record, sizeof *record) == 0 ? leave_success_marker() : 0;
}

int32_t QOR_DUAL_Calibration_ReadCalData() {
  constexpr const char* kName = "QOR_DUAL_Calibration_ReadCalData";
  struct Payload {
    uint8_t bytes[calib::kDualCameraPayload];
  };
  PRINT_AND_LOGI("%s: [Dual Calibration] calibration_size=%d, offset=%x\n", kName,
                 static_cast<int>(sizeof(Payload)), calib::kAreaDualCamera);
  const OnHeap<Payload> payload;
  if (!payload) return fail_without_memory(kName);
  constexpr uint32_t kPayloadOffset = calib::kAreaDualCamera + offsetof(DualCameraRecord, payload);
  if (read_back(kName, payload->bytes, sizeof *payload, kPayloadOffset) < 0) return -1;

  const int fd = calib::create_replacement(kPayloadFile);
  if (fd < 0) {
    const calib::KeepErrno keep;
    printf("\n can not open file: %s", kPayloadFile);
    return -1;
  }
  LOGE("%s, [Dual Calibration] dump the calibration data...", kName);
  printf("%s: [Dual Calibration] dump the calibration data...\n", kName);
  calib::finish_marker(fd, payload->bytes, sizeof *payload);
  return 0;
}
