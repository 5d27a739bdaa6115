// The record area of the calibration partition: where it begins, and one transfer per call.

#include <cstdlib>
#include <cstring>

#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "records/a_light_mode.h"
#include "records/calibration_log.h"
#include "records/judgement.h"
#include "records/record_layouts.h"

namespace calib {

constinit int32_t a_light_mode = 0;

}  // namespace calib

namespace {

using calib::log_module;

/// The partition "mfg", open for the scope.
class Partition {
 public:
  Partition() : is_open_(partition_open(&handle_, "mfg") == 0) {}
  Partition(const Partition&) = delete;
  Partition& operator=(const Partition&) = delete;
  ~Partition() {
    const calib::KeepErrno keep;
    partition_close(&handle_);
  }

  bool is_open() const { return is_open_; }
  bool read(uint32_t offset, uint32_t length, void* buffer) {
    return partition_read(&handle_, offset, length, buffer) == 0;
  }
  bool write(uint32_t offset, uint32_t length, const void* buffer) {
    return partition_write(&handle_, offset, length, buffer) == 0;
  }

 private:
  partition_handle handle_{};
  bool is_open_;
};

/// The property "ro.pagesize", read afresh for every transfer.
struct PageSize {
  PageSize() { __system_property_get("ro.pagesize", text); }
  bool is_4k() const { return strcmp(text, "4096") == 0; }
  uint32_t area_base() const { return is_4k() ? calib::kAreaBase4k : calib::kAreaBase2k; }

  char text[PROP_VALUE_MAX] = {};
};

void log_read_page(const PageSize& page) {
  if (page.is_4k()) {
    LOGI("ReadEmmcFlash() : 4K page\n");
  } else {
    LOGI("ReadEmmcFlash() : 2K page\n");
  }
}

void log_write_page(const PageSize& page) {
  if (page.is_4k()) {
    LOGI("WriteFlash() : 4K page\n");
  } else {
    LOGI("WriteFlash() : 2K page\n");
  }
}

void log_star_row() {
  LOGI("*********************************************************************************\n");
}

/// Failures are logged as information here, unlike in WriteFlashOffset().
int32_t write_at(uint32_t offset, const void* buffer, uint32_t length, bool with_star_rows) {
  LOGI("[LSC Calibration]WriteFlash open\n");
  Partition partition;
  if (!partition.is_open()) {
    const calib::KeepErrno keep;
    LOGI("WriteFlash(): partition_open fail\n");
    return -1;
  }
  LOGI("WriteFlash(): partition_open success (%d)\n", static_cast<int32_t>(length));
  if (with_star_rows) {
    log_star_row();
    log_star_row();
  }
  LOGI("[LSC Calibration]WriteFlash memcpy\n");
  if (!partition.write(offset, length, buffer)) {
    const calib::KeepErrno keep;
    LOGI("partition_write() fail\n");
    return -1;
  }
  LOGI("partition_write() done\n");
  return 0;
}

/// Every writer ends with a look at the area, whatever came of the write.
int32_t check_area_after(int32_t result) {
  const calib::KeepErrno keep;
  CheckFlash();
  return result;
}

void log_bytes(const void* buffer, uint32_t length) {
  if (buffer == nullptr) return;
  const auto* bytes = static_cast<const uint8_t*>(buffer);
  for (uint32_t i = 0; i < length; ++i) LOGI("write partition data %x\n", bytes[i]);
}

int32_t write_with_byte_lines(uint32_t offset, const void* buffer, uint32_t length) {
  Partition partition;
  if (!partition.is_open()) return FAIL("WriteFlash(): partition_open fail\n");
  LOGI("WriteFlash(): partition_open success\n");
  log_star_row();
  log_bytes(buffer, length);
  log_star_row();
  LOGI("[Calibration]WriteFlash partition_write()\n");
  if (!partition.write(offset, length, buffer)) return FAIL("partition_write() fail\n");
  LOGI("partition_write() done\n");
  return 0;
}

}  // namespace

int32_t ReadEmmcFlash(void* buffer, uint32_t length) {
  const PageSize page;
  log_read_page(page);
  LOGI("%s: eMMC boot: offset =0x%x\n", "ReadEmmcFlash", page.area_base());
  LOGI("[LSC Calibration]ReadFlash open\n");

  Partition partition;
  if (!partition.is_open()) return FAIL("ReadEmmcFlash(): partition_open fail\n");
  LOGI("[LSC Calibration]WriteFlash read : pdata addr=%p\n", buffer);
  if (!partition.read(page.area_base(), length, buffer))
    return FAIL("ReadEmmcFlash(): partition_read fail\n");
  return 0;
}

int32_t ReadEmmcOffset(void* buffer, uint32_t length, uint32_t byte_offset) {
  const PageSize page;
  log_read_page(page);  // under the sibling's name
  LOGI("%s: eMMC boot: offset =0x%x\n", "ReadEmmcOffset", page.area_base());

  Partition partition;
  if (!partition.is_open()) return FAIL("ReadEmmcOffset(): partition_open fail\n");
  LOGI("[DUAL Calibration]ReadEmmcOffset : pdata addr=%p\n", buffer);
  if (!partition.read(page.area_base() + byte_offset, length, buffer)) {
    return FAIL("ReadEmmcOffset(): partition_read fail\n");
  }
  return 0;
}

int32_t WriteFlashOffset(const void* buffer, uint32_t length, uint32_t byte_offset) {
  LOGI("%s, byteOffset=%d", "WriteFlashOffset", static_cast<int32_t>(byte_offset));
  const PageSize page;
  log_write_page(page);
  LOGI("%s: eMMC boot: offset =0x%x\n", "WriteFlashOffset", page.area_base());
  LOGI("[Calibration]WriteFlash open\n");

  return check_area_after(write_with_byte_lines(page.area_base() + byte_offset, buffer, length));
}

int32_t WriteFlash(const void* buffer, uint32_t length) {
  LOGI("WriteFlash(%d)\n", static_cast<int32_t>(length));
  const PageSize page;
  log_write_page(page);
  const uint32_t offset = page.area_base();
  LOGI("%s: eMMC boot pagesize[%s] offset(%d)\n", "WriteFlash", page.text, static_cast<int32_t>(offset));
  return check_area_after(write_at(offset, buffer, length, true));
}

int32_t WriteFlash_for_front_Cam(const void* buffer, uint32_t length) {
  LOGI("WriteFlash_for_front_Cam(%d)\n", static_cast<int32_t>(length));
  const PageSize page;
  log_write_page(page);
  const uint32_t offset = page.area_base() + calib::kSlotSize;
  LOGI("%s: eMMC boot: offset =0x%x\n", "WriteFlash_for_front_Cam", offset);
  return check_area_after(write_at(offset, buffer, length, false));
}

int32_t WriteFlash_for_bayer_Cam(const void* buffer, uint32_t length, uint8_t cam_id) {
  LOGI("WriteFlash_for_bayer_Cam(%d), cam_id = %d\n", static_cast<int32_t>(length), cam_id);
  const uint32_t position = calib::is_a_light() ? calib::kSlotALightAwb : calib::kSlotAwb;
  const PageSize page;
  log_write_page(page);
  const uint32_t offset = page.area_base() + position + cam_id * calib::kSlotSize;
  LOGI("%s: eMMC boot: pagesize[%s], offset = 0x%x\n", "WriteFlash_for_bayer_Cam", page.text, offset);
  return check_area_after(write_at(offset, buffer, length, false));
}

int32_t CheckFlash() {
  const PageSize page;
  if (page.is_4k()) {
    LOGI("CheckFlash() : 4K page\n");
  } else {
    LOGI("CheckFlash() : 2K page\n");
  }
  LOGI("%s: eMMC boot: offset =0x%x\n", "CheckFlash", page.area_base());
  uint8_t slot[calib::kSlotSize] = {};
  LOGI("[LSC Calibration]CheckFlash open\n");

  partition_handle handle{};
  if (partition_open(&handle, "mfg") != 0) return partition_close(&handle);
  LOGI("[LSC Calibration]CheckFlash read\n");
  if (partition_read(&handle, page.area_base(), sizeof slot, slot) == 0) {
    LOGI("[LSC Calibration]CheckFlash memcpy\n");
    QOR_Show_LSC(slot);
  }
  return partition_close(&handle);
}

int32_t QOR_Show_LSC(const void* buffer) {
  if (buffer == nullptr) return -1;

  const auto* at = static_cast<const uint8_t*>(buffer);
  for (int i = 0; i < 8; ++i, at += 8) {
    LOGI("[Read NandFlash]pData.caBuff[%d]:0x%lx\n", i, calib::record_at<unsigned long>(at));
  }
  for (int j = 0; j < 150; ++j, at += 4) {
    LOGI("[Read NandFlash] 0x%x:0x%x\n", calib::record_at<uint16_t>(at), at[2]);
  }
  return 0;
}
