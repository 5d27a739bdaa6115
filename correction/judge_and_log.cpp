#include "correction/judge_and_log.h"

#include "records/calibration_log.h"

// The lines of a record differ in their tag alone, but for those of the AWB record: they have no function's
// name in front, and show the fuse words without the ratios.

namespace calib {

namespace {

#define CONTENT_LINE(line)                                            \
  [](const char* name, const uint32_t* w) {                           \
    LOGI(line, name, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]); \
  }
#define VALUES_LINE(line) \
  [](const char* name, const uint32_t* w) { LOGI(line, name, w[1], w[2], w[3], w[4], w[5], w[6]); }
#define VALID_WORD_LINE(line) \
  [](const char* name, const uint32_t* w) { LOGI(line, name, static_cast<int32_t>(w[0])); }

constexpr auto kBadDualCameraCrc = LINE(
    LOGE,
    "%s, [Dual Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n");
constexpr auto kNothingDoneForDualCamera = LINE(LOGE, "%s, [Dual Calibration] will do nothing!\n");
constexpr auto kGoodDualCameraCrc = LINE(LOGI, "%s, [Dual Calibration] check sum=%x, OK\n");
constexpr auto kDualCameraValues = VALUES_LINE("%s, [Dual Calibration] %x, %x, (%x %x %x %x)\n");
constexpr auto kDualCameraValidWord = VALID_WORD_LINE("%s, [Dual Calibration] caBuff[0]:%d\n");

}  // namespace

constinit const RecordLines kAwbLines{
    .content = CONTENT_LINE(
        "%s, [AWB Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
    .bad_crc =
        [](const char*) {
          LOGE(
              "[AWB Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n");
        },
    .nothing_done = [](const char*) { LOGE("[AWB Calibration] will do nothing!\n"); },
    .good_crc = [](const char*, uint32_t crc) { LOGI("[AWB Calibration] check sum=%x, OK\n", crc); },
    .values = [](const char*,
                 const uint32_t* w) { LOGI("[AWB Calibration] %x %x %x %x\n", w[3], w[4], w[5], w[6]); },
    .valid_word =
        [](const char*, const uint32_t* w) {
          LOGI("[AWB Calibration] caBuff[0]:%d\n", static_cast<int32_t>(w[0]));
        }};

constinit const RecordLines kFlashLines{
    .content = CONTENT_LINE(
        "%s, [Flash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
    .bad_crc = LINE(
        LOGE,
        "%s, [Flash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
    .nothing_done = LINE(LOGE, "%s, [Flash Calibration] will do nothing!\n"),
    .good_crc = LINE(LOGI, "%s, [Flash Calibration] check sum=%x, OK\n"),
    .values = VALUES_LINE("%s, [Flash Calibration] %x, %x, (%x %x %x %x)\n"),
    .valid_word = VALID_WORD_LINE("%s, [Flash Calibration] caBuff[0]:%d\n")};

constinit const RecordLines kDualFlashLines{
    .content = CONTENT_LINE(
        "%s, [DualFlash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
    .bad_crc = LINE(
        LOGE,
        "%s, [DualFlash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
    .nothing_done = LINE(LOGE, "%s, [DualFlash Calibration] will do nothing!\n"),
    .good_crc = LINE(LOGI, "%s, [DualFlash Calibration] check sum=%x, OK\n"),
    .values = VALUES_LINE("%s, [DualFlash Calibration] %x, %x, (%x %x %x %x)\n"),
    .valid_word = VALID_WORD_LINE("%s, [DualFlash Calibration] caBuff[0]:%d\n")};

constinit const RecordLines kD50Lines{
    .content =
        CONTENT_LINE("%s, [Dual Calibration] D50 data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
    .bad_crc = kBadDualCameraCrc,
    .nothing_done = kNothingDoneForDualCamera,
    .good_crc = kGoodDualCameraCrc,
    .values = kDualCameraValues,
    .valid_word = kDualCameraValidWord};

constinit const RecordLines kALightLines{
    .content =
        CONTENT_LINE("%s, [Dual Calibration] A light data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
    .bad_crc = kBadDualCameraCrc,
    .nothing_done = kNothingDoneForDualCamera,
    .good_crc = kGoodDualCameraCrc,
    .values = kDualCameraValues,
    .valid_word = kDualCameraValidWord};

void log_judged(const char* name, const RecordLines& lines, const RecordWords& words, bool crc_good) {
  lines.content(name, words.word);
  if (!crc_good) {
    lines.bad_crc(name);
    lines.nothing_done(name);
    return;
  }
  lines.good_crc(name, words.crc);
  lines.values(name, words.word);
  lines.valid_word(name, words.word);
}

}  // namespace calib
