#include "correction/record_check.h"

#include "records/calibration_log.h"

namespace calib {

namespace {

int32_t decimal(uint32_t word) {
  return static_cast<int32_t>(word);
}

void log_bad_dual_camera_crc(const char* name) {
  LOGE(
      "%s, [Dual Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n",
      name);
  LOGE("%s, [Dual Calibration] will do nothing!\n", name);
}

void log_good_dual_camera_crc(const char* name, const RecordWords& words) {
  const auto& w = words.word;
  LOGI("%s, [Dual Calibration] check sum=%x, OK\n", name, words.crc);
  LOGI("%s, [Dual Calibration] %x, %x, (%x %x %x %x)\n", name, w[1], w[2], w[3], w[4], w[5], w[6]);
  LOGI("%s, [Dual Calibration] caBuff[0]:%d\n", name, decimal(w[0]));
}

}  // namespace

constinit const RecordLines kAwbLines{
    .content =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [AWB Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n", name,
               w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        },
    .bad_crc =
        [](const char*) {
          LOGE(
              "[AWB Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n");
          LOGE("[AWB Calibration] will do nothing!\n");
        },
    .good_crc =
        [](const char*, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("[AWB Calibration] check sum=%x, OK\n", words.crc);
          LOGI("[AWB Calibration] %x %x %x %x\n", w[3], w[4], w[5], w[6]);
          LOGI("[AWB Calibration] caBuff[0]:%d\n", decimal(w[0]));
        }};

constinit const RecordLines kFlashLines{
    .content =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [Flash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n",
               name, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        },
    .bad_crc =
        [](const char* name) {
          LOGE(
              "%s, [Flash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n",
              name);
          LOGE("%s, [Flash Calibration] will do nothing!\n", name);
        },
    .good_crc =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [Flash Calibration] check sum=%x, OK\n", name, words.crc);
          LOGI("%s, [Flash Calibration] %x, %x, (%x %x %x %x)\n", name, w[1], w[2], w[3], w[4], w[5], w[6]);
          LOGI("%s, [Flash Calibration] caBuff[0]:%d\n", name, decimal(w[0]));
        }};

constinit const RecordLines kDualFlashLines{
    .content =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [DualFlash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n",
               name, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        },
    .bad_crc =
        [](const char* name) {
          LOGE(
              "%s, [DualFlash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n",
              name);
          LOGE("%s, [DualFlash Calibration] will do nothing!\n", name);
        },
    .good_crc =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [DualFlash Calibration] check sum=%x, OK\n", name, words.crc);
          LOGI("%s, [DualFlash Calibration] %x, %x, (%x %x %x %x)\n", name, w[1], w[2], w[3], w[4], w[5],
               w[6]);
          LOGI("%s, [DualFlash Calibration] caBuff[0]:%d\n", name, decimal(w[0]));
        }};

constinit const RecordLines kD50Lines{
    .content =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [Dual Calibration] D50 data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n", name,
               w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        },
    .bad_crc = log_bad_dual_camera_crc,
    .good_crc = log_good_dual_camera_crc};

constinit const RecordLines kALightLines{
    .content =
        [](const char* name, const RecordWords& words) {
          const auto& w = words.word;
          LOGI("%s, [Dual Calibration] A light data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n", name,
               w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        },
    .bad_crc = log_bad_dual_camera_crc,
    .good_crc = log_good_dual_camera_crc};

}  // namespace calib
