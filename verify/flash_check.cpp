// The flash check: the dual-flash record, else the flash record, out of whichever source opens first.

#include "awb_calibration/verify.h"
#include "common/file.h"
#include "records/kernel_export.h"
#include "records/module_identity.h"
#include "verify/result_check.h"

namespace {

using calib::log_module;
using calib::PerCamera;
using calib::RecordClaims;

constexpr const char* kName = "Sensor_Check_FLASH_Calibration_Result";

/// The fuse line of an unbound record is the plain one.
constexpr calib::TestLines kDualLines{
    .checksum_good = CHECK_LINE(LOGI, "[Calibration Record][dual] %s: check sum pass\n"),
    .checksum_bad = CHECK_LINE(LOGE, "[Calibration Record][dual]  %s: check sum is not valid\n"),
    .this_module = CHECK_LINE(LOGI, "[Calibration Record][dual] %s: check fuseid success\n"),
    .any_module = CHECK_LINE(LOGI, "[Calibration Record] %s: check fuseid = 0x0000\n"),
    .other_module = CHECK_LINE(LOGE, "[Calibration Record][dual] %s: check fuseid fail\n"),
    .calibrated = CHECK_LINE(LOGI, "[Calibration Record][dual] %s: calibration success\n"),
    .not_calibrated = CHECK_LINE(LOGE, "[Calibration Record][dual] %s: calibration fail\n")};

/// Twelve fields: valid word, three pairs of values, four fuse words, checksum.
constexpr calib::RecordCheck kDualFlash{
    .name = kName,
    .view = {.fields = calib::RecordView::Fields::bits64, .fuse = 56, .checksum = 88, .covered = 44},
    .lines = kDualLines,
    .log_word = RECORD_WORD_LINE("[Calibration Record][dual] %s: awb record = 0x%x\n")};

constexpr calib::RecordCheck kFlash{
    .name = kName,
    .view = calib::kEightFields,
    .lines = calib::kPlainLines,
    .log_word = RECORD_WORD_LINE("[Calibration Record] %s: awb record = 0x%x\n")};

constexpr PerCamera kDualFlashCache{.main = "/data/misc/camera/flash_dual_cal",
                                    .front = "/data/misc/camera/flash_dual_cal_front_CAM",
                                    .sub = "/data/misc/camera/flash_dual_cal_sub_CAM"};
constexpr PerCamera kFlashCache{.main = "/data/misc/camera/flash_cal",
                                .front = "/data/misc/camera/flash_cal_front",
                                .sub = "/data/misc/camera/flash_cal_sub_CAM"};
constexpr PerCamera kCacheMissing{
    .main = "Read /data/misc/camera/flash_cal not exist, read awb_cal\n",
    .front = "Read /data/misc/camera/flash_cal_front not exist, read awb_cal_front\n",
    .sub = "Read /data/misc/camera/flash_cal_sub_CAM not exist, read awb_cal_sub\n"};
constexpr PerCamera kOpened{
    .main = "Read from file OK: /data/misc/camera/flash_cal or /sys/android_camera_awb_cal/awb_cal",
    .front =
        "Read from file OK: /data/misc/camera/flash_cal_front or /sys/android_camera_awb_cal/awb_cal_front",
    .sub =
        "Read from file OK: /data/misc/camera/flash_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"};

/// Both records as found; what the source does not hold stays zero.
struct FlashBlocks {
  uint8_t dual_flash[96];
  uint8_t flash[calib::kEightFieldsSize];
};

bool read_from_export(calib::Camera camera, FlashBlocks& blocks) {
  LOGI("%s", kCacheMissing.of(camera));
  uint8_t image[calib::kExportSize] = {};
  if (calib::read_file(calib::kExportNode.of(camera), image, sizeof image) < 0) {
    LOGE("%s", calib::kExportFails.of(camera));
    return false;
  }
  calib::copy_from_export(image, calib::kExportFlash, blocks.flash, sizeof blocks.flash);
  calib::copy_from_export(image, calib::kExportDualFlash, blocks.dual_flash, sizeof blocks.dual_flash);
  return true;
}

bool read_blocks(calib::Camera camera, FlashBlocks& blocks) {
  const bool dual_flash =
      calib::read_file(kDualFlashCache.of(camera), blocks.dual_flash, sizeof blocks.dual_flash) >= 0;
  const bool from_export =
      !dual_flash && calib::read_file(kFlashCache.of(camera), blocks.flash, sizeof blocks.flash) < 0;
  if (from_export && !read_from_export(camera, blocks)) return false;

  LOGI("%s", kOpened.of(camera));
  LOGI("%s: file_source(%d), dual_flash(%d)", kName, from_export ? 1 : 0, dual_flash ? 1 : 0);
  return true;
}

void log_dual_flash_fields(const uint8_t* record) {
  const auto field = [record](size_t i) { return calib::record_at<unsigned long>(record + 8 * i); };
  LOGI(
      "%s: dual flash awb_verify(%ld)(0x%lx 0x%lx) (0x%lx 0x%lx) (0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n",
      kName, static_cast<long>(field(0)), field(1), field(2), field(3), field(4), field(5), field(6),
      field(7), field(8), field(9), field(10));
}

}  // namespace

int32_t Sensor_Check_FLASH_Calibration_Result() {
  calib::FuseWords module = calib::identify_module(kName);
  FlashBlocks blocks{};
  if (!read_blocks(calib::selected_camera(), blocks)) return -1;

  const RecordClaims dual_flash = calib::claims_at(blocks.dual_flash, kDualFlash.view);
  const RecordClaims flash = calib::claims_at(blocks.flash, kFlash.view);
  log_dual_flash_fields(blocks.dual_flash);
  calib::log_eight_fields(kName, flash, blocks.flash);
  // A module word that the first record's zero-word rule changed stays changed for the second.
  if (calib::test_record(kDualFlash, dual_flash, module) == calib::kGoodRecord) {
    LOGI("[Calibration Record][dual flash] CALIBRATIONOK\n");
    return 0;
  }
  return calib::test_record(kFlash, flash, module) == calib::kGoodRecord ? 0 : -1;
}
