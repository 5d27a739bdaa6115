// Stores the gyro record: that the factory tool has calibrated the gyro of this module.

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "factory/factory_console.h"
#include "records/judgement.h"
#include "records/record_files.h"

namespace {

using calib::GyroRecord;
using calib::log_module;

constexpr const char* kName = "gyro_write_calibration";

void write_cache(uint8_t camid, const GyroRecord& record) {
  const calib::Camera camera = calib::camera_of_camid(camid);
  const char* path = calib::kGyroFiles.written.of(camera);
  const int fd = calib::create_replacement(path);
  if (fd >= 0) {
    LOGE("[ISP Calibration] write isp_cabuff to /data/misc/camera/awb_cal_ISP_sub_qor_CAM");
    calib::finish_cache(fd, &record, sizeof record, path);
  } else if (camera == calib::Camera::front) {
    PRINT_AND_LOGE("%s: create /data/misc/camera/gyro_cal_front_qor_CAM fail\n", kName);
  } else {
    PRINT_AND_LOGE("%s: create /data/misc/camera/gyro_cal_qor_CAM fail\n", kName);
  }
}

}  // namespace

int32_t gyro_write_calibration(uint8_t camid, awb_fuse_id fuse) {
  // Unlike the other writers this one logs its progress as errors, so that it shows under any mask.
  LOGE("%s, [gyro Calibration] E", kName);
  const uint32_t offset = camid * calib::kSlotSize + calib::kSlotGyro;
  LOGI("%s: camid(%d) offset(%d)", kName, camid, static_cast<int32_t>(offset));
  LOGE("%s, [gyro Calibration] camid(%d) offset(%d)", kName, camid, static_cast<int32_t>(offset));

  GyroRecord record{.valid_word = calib::kFinishedValidWord,
                    .fuse = {fuse.word[0], fuse.word[1], fuse.word[2], fuse.word[3]},
                    .crc = 0};
  calib::seal(record);
  if (WriteFlashOffset(&record, sizeof record, offset) < 0) {
    const calib::KeepErrno keep;
    LOGE("%s, [gyro Calibration] Can't write to flash. Maybe Not MFG ROM or Flash is bad", kName);
    printf("%s: writeflash() fail\n", kName);
    return -1;
  }
  LOGE("%s, [gyro Calibration] gyro write flash pass", kName);
  printf("%s: writeflash() OK\n", kName);
  write_cache(camid, record);
  return 0;
}
