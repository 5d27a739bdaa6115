// Stores the flash and the dual-flash record that the factory tool measured.

#include <cstring>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "factory/factory_console.h"
#include "records/judgement.h"
#include "records/record_files.h"

namespace {

using calib::DualFlashRecord;
using calib::FlashRecord;
using calib::log_module;

struct Writer {
  const char* name;   ///< of the exported function; it begins most lines
  uint32_t position;  ///< in the camera's slot
  const calib::PerCamera& cache;
  calib::PerCamera not_created;  ///< the line when the cache file cannot be
};

constexpr Writer kFlash{
    .name = "QOR_FLASH_Calibration_write_to_flash",
    .position = calib::kSlotFlash,
    .cache = calib::kFlashFiles.written,
    .not_created = {
        .main = "QOR_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_cal fail\n",
        .front = "QOR_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_cal_front fail\n",
        .sub = "QOR_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_cal fail\n"}};

constexpr Writer kDualFlash{
    .name = "QOR_Dual_FLASH_Calibration_write_to_flash",
    .position = calib::kSlotDualFlash,
    .cache = calib::kDualFlashFiles.written,
    .not_created = {
        .main = "QOR_Dual_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_dual_cal fail\n",
        .front =
            "QOR_Dual_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_dual_cal_front_CAM fail\n",
        .sub = "QOR_Dual_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_dual_cal fail\n"}};

uint32_t offset_of(const Writer& writer, uint8_t camid) {
  return camid * calib::kSlotSize + writer.position;
}

void write_cache(const Writer& writer, uint8_t camid, const void* record, size_t size) {
  const calib::Camera camera = calib::camera_of_camid(camid);
  const char* path = writer.cache.of(camera);
  const int fd = calib::create_replacement(path);
  if (fd < 0) {
    PRINT_AND_LOGE("%s", writer.not_created.of(camera));
    return;
  }
  LOGI("[Flash Calibration] write cabuff to /data/misc/camera/awb_cal");
  // The sub camera's record goes into the main camera's file, yet the mode is set on the front camera's.
  // Kept.
  calib::finish_cache(fd, record, size, path,
                      writer.cache.of(camid != 0 ? calib::Camera::front : calib::Camera::main));
}

template <class Record>
int32_t store(const Writer& writer, uint8_t camid, Record record) {
  calib::seal(record);
  uint32_t words[sizeof record / sizeof(uint32_t)];
  memcpy(words, &record, sizeof words);
  int index = 0;
  for (const uint32_t word : words) {
    LOGI("%s, [Flash Calibration]-FlashcaBuff-%d, 0x%x", writer.name, index++, word);
  }
  if (WriteFlashOffset(&record, sizeof record, offset_of(writer, camid)) < 0) {
    const calib::KeepErrno keep;
    LOGE("%s, [Flash Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad", writer.name);
    printf("%s: writeflash() fail\n", writer.name);
    return -1;
  }
  LOGI("%s, [Flash Calibration] write flash pass", writer.name);
  printf("%s: writeflash() OK\n", writer.name);
  write_cache(writer, camid, &record, sizeof record);
  return 0;
}

}  // namespace

int32_t QOR_FLASH_Calibration_write_to_flash(uint8_t camid, awb_fuse_id fuse, int32_t x, int32_t y) {
  LOGI("%s: camid(%d) offset(%d) (%d,%d)", kFlash.name, camid, static_cast<int32_t>(offset_of(kFlash, camid)),
       x, y);
  return store(kFlash, camid,
               FlashRecord{.valid_word = calib::kFinishedValidWord,
                           .x = x,
                           .y = y,
                           .fuse = {fuse.word[0], fuse.word[1], fuse.word[2], fuse.word[3]},
                           .crc = 0});
}

int32_t QOR_Dual_FLASH_Calibration_write_to_flash(uint8_t camid, awb_fuse_id fuse, int32_t x1a, int32_t x1b,
                                                  int32_t x2a, int32_t x2b, int32_t x3a, int32_t x3b) {
  const auto offset = static_cast<int32_t>(offset_of(kDualFlash, camid));
  LOGI("%s: camid(%d) offset(%d) x1(%d,%d)", kDualFlash.name, camid, offset, x1a, x1b);
  LOGI("%s: camid(%d) offset(%d) x2(%d,%d)", kDualFlash.name, camid, offset, x2a, x2b);
  LOGI("%s: camid(%d) offset(%d) x3(%d,%d)", kDualFlash.name, camid, offset, x3a, x3b);
  return store(kDualFlash, camid,
               DualFlashRecord{.valid_word = calib::kFinishedValidWord,
                               .x1 = {x1a, x1b},
                               .x2 = {x2a, x2b},
                               .x3 = {x3a, x3b},
                               .fuse = {fuse.word[0], fuse.word[1], fuse.word[2], fuse.word[3]},
                               .crc = 0});
}
