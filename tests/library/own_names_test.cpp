// Does a program that has functions of the library's names get in the way of the library's own calls?
// Guards against a camera process whose mtd_open() or Crc32CheckSumByte() silently takes the place of ours.
//
// Built twice: a program's names reach the dynamic linker because a library that it is linked to has them, and
// because the program exports all of its names.

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "awb_calibration/storage.h"
#include "tests/support/nand_phone.h"

namespace {

using namespace support;
int taken = 0;
}  // namespace

// One for each way in which the library reaches itself: within a file, within a folder, and down a layer.
extern "C" {
int32_t emmc_open(emmc_state*, const char*) {
  return ++taken, 0;
}
int32_t mtd_open(mtd_partition*, const char*) {
  return ++taken, -1;
}
int32_t partition_open(partition_handle*, const char*) {
  return ++taken, -1;
}
int32_t mtd_scan_partitions() {
  return ++taken, -1;
}
mtd_write_context* mtd_write_partition(const mtd_partition*) {
  return ++taken, nullptr;
}
uint32_t Crc32CheckSumByte(const void*, uint32_t, uint32_t) {
  return static_cast<uint32_t>(++taken);
}
int32_t get_sensor_selection() {
  return ++taken;
}
uint8_t awb_get_camid() {
  return static_cast<uint8_t>(++taken);
}
void awb_get_fuseid(uint32_t*) {
  ++taken;
}
int32_t WriteFlashOffset(const void*, uint32_t, uint32_t) {
  return ++taken, -1;
}
uint32_t awb_if_enabled() {
  return static_cast<uint32_t>(++taken);
}
}

namespace {

class OwnNames : public PhoneTest {
 protected:
  OwnNames() : PhoneTest({.storage = phone::Storage::nand, .nand = {.erase_size = 4096, .blocks = 64}}) {}
};

TEST_F(OwnNames, ChangeNothing) {
  fit_module("main");
  ASSERT_GT(awb_get_camid(), 0) << "the program itself calls its own";
  taken = 0;

  uint32_t gain = 0, time = 0, luma = 0;
  const awb_fuse_id fuse = {{kModule[0], kModule[1], kModule[2], kModule[3]}};
  console_of([&] { EXPECT_EQ(aec_write_calibration(0, fuse, 160, 33000, 51), 0); });
  QOR_Calibration_AEC_get_calibration_data(&gain, &time, &luma);
  EXPECT_EQ(gain + time + luma, 160U + 33000U + 51U) << "written, read back, sealed and bound by our own";

  awb_enable_calibration();
  console_of([] {
    for (int i = 0; i < 11; ++i) QOR_AWB_Calibration_collect(0, 0, 1);
  });
  EXPECT_EQ(get("/data/misc/camera/awb_cal")->size(), 32U);

  mtd_data_handle data{};
  EXPECT_EQ(mtd_data_open(&data, "mfg"), 0);
  EXPECT_EQ(mtd_data_read_block(&data), 0);
  EXPECT_EQ(mtd_data_write_block(&data), 0);
  mtd_data_close(&data);
  EXPECT_EQ(taken, 0);
}

}  // namespace
