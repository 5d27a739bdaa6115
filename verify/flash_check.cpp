// The flash check: the dual-flash record, else the flash record, out of whichever source opens first.

#include "awb_calibration/verify.h"
#include "records/module_identity.h"
#include "verify/result_check.h"

namespace {

using calib::log_module;
using calib::RecordClaims;

constexpr const char* kName = "Sensor_Check_FLASH_Calibration_Result";

/// The fuse line of an unbound record is the plain one.
constexpr calib::TestLines kDualLines{
    .checksum_good = LINE(LOGI, "[Calibration Record][dual] %s: check sum pass\n"),
    .checksum_bad = LINE(LOGE, "[Calibration Record][dual]  %s: check sum is not valid\n"),
    .this_module = LINE(LOGI, "[Calibration Record][dual] %s: check fuseid success\n"),
    .any_module = LINE(LOGI, "[Calibration Record] %s: check fuseid = 0x0000\n"),
    .other_module = LINE(LOGE, "[Calibration Record][dual] %s: check fuseid fail\n"),
    .calibrated = LINE(LOGI, "[Calibration Record][dual] %s: calibration success\n"),
    .not_calibrated = LINE(LOGE, "[Calibration Record][dual] %s: calibration fail\n")};

/// Twelve fields: valid word, three pairs of values, four fuse words, checksum.
constexpr calib::RecordTest kDualFlash{
    .name = kName,
    .view = {.fields = calib::RecordView::Fields::bits64, .fuse = 56, .checksum = 88, .covered = 44},
    .lines = kDualLines,
    .log_word = LINE(LOGI, "[Calibration Record][dual] %s: awb record = 0x%x\n")};

constexpr calib::RecordTest kFlash{.name = kName,
                                   .view = calib::kEightFields,
                                   .lines = calib::kPlainLines,
                                   .log_word = LINE(LOGI, "[Calibration Record] %s: awb record = 0x%x\n")};

constexpr auto kNoCache =
    LINE_BY_CAMERA(LOGI, "Read /data/misc/camera/flash_cal not exist, read awb_cal\n",
                   "Read /data/misc/camera/flash_cal_front not exist, read awb_cal_front\n",
                   "Read /data/misc/camera/flash_cal_sub_CAM not exist, read awb_cal_sub\n");
constexpr auto kOpened = LINE_BY_CAMERA(
    LOGI, "Read from file OK: /data/misc/camera/flash_cal or /sys/android_camera_awb_cal/awb_cal",
    "Read from file OK: /data/misc/camera/flash_cal_front or /sys/android_camera_awb_cal/awb_cal_front",
    "Read from file OK: /data/misc/camera/flash_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub");

/// Both records as found; what the source does not hold stays zero.
struct FlashBlocks {
  uint8_t dual_flash[kDualFlash.view.size()];
  uint8_t flash[kFlash.view.size()];
};

bool read_export(calib::Camera camera, FlashBlocks& blocks) {
  kNoCache(camera);
  calib::ExportImage image;
  if (!image.read(calib::kExportNode.of(camera))) {
    calib::kNoSource(camera);
    return false;
  }
  image.copy(calib::kExportFlash, blocks.flash, sizeof blocks.flash);
  image.copy(calib::kExportDualFlash, blocks.dual_flash, sizeof blocks.dual_flash);
  return true;
}

/// The first source that opens is the only one: a cache file holds one of the records, the export both.
bool read_blocks(calib::Camera camera, FlashBlocks& blocks) {
  const auto is_cached = [camera](const calib::RecordFiles& files, auto& block) {
    return calib::read_cache(files, camera, block, sizeof block).from != calib::RecordReading::From::nowhere;
  };
  const bool dual_flash = is_cached(calib::kDualFlashFiles, blocks.dual_flash);
  const bool from_export = !dual_flash && !is_cached(calib::kFlashFiles, blocks.flash);
  if (from_export && !read_export(camera, blocks)) return false;

  kOpened(camera);
  LOGI("%s: file_source(%d), dual_flash(%d)", kName, from_export ? 1 : 0, dual_flash ? 1 : 0);
  return true;
}

void log_dual_flash_fields(const uint8_t* record) {
  const auto field = [record](size_t i) { return calib::record_at<uint64_t>(record + 8 * i); };
  LOGI(
      "%s: dual flash awb_verify(%ld)(0x%lx 0x%lx) (0x%lx 0x%lx) (0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n",
      kName, static_cast<int64_t>(field(0)), field(1), field(2), field(3), field(4), field(5), field(6),
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
