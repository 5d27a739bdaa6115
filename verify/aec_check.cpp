// The AEC check: the record that the exposure control's reader delivers.

#include "awb_calibration/records.h"
#include "awb_calibration/verify.h"
#include "records/module_identity.h"
#include "verify/result_check.h"

namespace {

using calib::AecRecord;
using calib::log_module;

constexpr calib::TestLines kLines{
    .checksum_good = LINE(LOGI, "[AEC Calibration Record] %s: check sum pass\n"),
    .checksum_bad = LINE(
        LOGE,
        "%s,[AEC Calibration Record]  AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
    .this_module = LINE(LOGI, "[AEC Calibration Record] %s: check fuseid success\n"),
    .any_module = LINE(LOGI, "[AEC Calibration Record] %s: check fuseid = 0x0000\n"),
    .other_module = LINE(LOGE, "[AEC Calibration Record] %s: check fuseid fail\n"),
    .calibrated = LINE(LOGI, "[AEC Calibration Record] %s: calibration success\n"),
    .not_calibrated = LINE(LOGE, "[AEC Calibration Record] %s: calibration fail\n")};

constexpr calib::RecordTest kTest{.name = "Sensor_Check_AEC_Calibration_Result",
                                  .view = {.fields = calib::RecordView::Fields::bits32,
                                           .fuse = offsetof(AecRecord, fuse),
                                           .checksum = offsetof(AecRecord, crc),
                                           .covered = calib::kSealedBytes<AecRecord>},
                                  .lines = kLines,
                                  .log_word = LINE(LOGI, "[AEC Calibration Record] %s: awb record = 0x%x\n")};

}  // namespace

int32_t Sensor_Check_AEC_Calibration_Result() {
  calib::FuseWords module = calib::module_fuse_words();
  uint8_t bytes[sizeof(AecRecord)] = {};
  if (aec_read_calibration(bytes, sizeof bytes) <= 0) return -1;

  const auto record = calib::record_at<AecRecord>(bytes);
  LOGI(
      "%s,[AEC Calibration Record] AEC nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n",
      kTest.name, record.valid_word, record.gain, record.exp_time, record.luma_value, record.fuse[0],
      record.fuse[1], record.fuse[2], record.fuse[3], record.crc);
  const uint32_t word = calib::test_record(kTest, calib::claims_at(bytes, kTest.view), module);
  return word == calib::kGoodRecord ? 0 : -1;
}
