// What do the library's functions make of null pointers and of ranges that mean nothing?
// Guards against a crash of the camera process, against a bad call that reaches a device all the same, and against half
// of a call's effect.

#include <mtd/mtd-user.h>
#include <unistd.h>

#include "awb_calibration/records.h"
#include "tests/support/correction_support.h"
#include "tests/support/nand_phone.h"

namespace {

using namespace support;
using Calls = std::vector<std::function<int64_t()>>;

struct Group {
  const char* tag;
  const char* line;  ///< of each call; empty: none
  Calls calls;
  int64_t result = -1;
};

/// With room for the record area.
class Arguments : public NandPhone {
 protected:
  Arguments() : NandPhone({.erase_size = 4096, .blocks = 64}) {}
};

TEST_F(Arguments, BadArgumentsAreRefusedAndTouchNothing) {
  // What a call would correct with, or hand out, if it went on.
  for (const char* name : {"awb_cal", "awb_A_light_cal", "flash_cal", "flash_dual_cal", "aec_cal"})
    put(std::string("/data/misc/camera/") + name, le32(record(3099, kAny, {1024, 1024})));
  Floats memory(12464 / 4, 77);
  float* const m = memory.data();
  uint8_t byte = 0xA5;
  uint32_t size = 8;
  void* out = &byte;
  mtd_info_user info{};
  region_info_user region{};
  emmc_state emmc{"", -1};
  mtd_partition* const mtd = state();
  mtd_partition no_entry{};
  no_entry.index = -1;
  mtd_partition no_erase_size = *mtd;
  no_erase_size.erase_size = 0;
  partition_handle open{mtd, nullptr}, closed{};
  mtd_data_handle no_partition{}, no_data{mtd, nullptr}, no_blocks{&no_erase_size, &byte};
  mtd_write_context* const to = mtd_write_partition(mtd);
  mtd_read_context* const from = mtd_read_partition(mtd);
  const int32_t fd = mtd_open_partition_device(mtd);
  const auto read_by = [](int, void*, size_t) { return ssize_t{0}; };

  // clang-format off
  const Group groups[] = {
      {"camera_calibration_partition", "partition_open(): invalid argument!\n",
       {[&] { return partition_open(nullptr, "mfg"); }, [&] { return partition_open(&closed, nullptr); }}},
      {"camera_calibration_partition", "partition_read(): invalid argument!\n",
       {[&] { return partition_read(nullptr, 0, 1, &byte); }, [&] { return partition_read(&open, -1, 1, &byte); },
        [&] { return partition_read(&open, 0, 0, &byte); }, [&] { return partition_read(&open, 0, -5, &byte); },
        [&] { return partition_read(&open, 0, 1, nullptr); }}},
      {"camera_calibration_partition", "partition_write(): invalid argument!\n",
       {[&] { return partition_write(nullptr, 0, 1, &byte); }, [&] { return partition_write(&open, INT64_MIN, 1, &byte); },
        [&] { return partition_write(&open, 0, 0, &byte); }, [&] { return partition_write(&open, 0, 1, nullptr); }}},
      {"camera_calibration_partition", "partition_close(): invalid argument!\n", {[&] { return partition_close(nullptr); }}},
      {"camera_calibration_emmc", "emmc_open(): invalid argument!\n", {[&] { return emmc_open(nullptr, "mfg"); }, [&] { return emmc_open(&emmc, nullptr); }}},
      {"camera_calibration_emmc", "emmc_read(): invalid argument!\n",
       {[&] { return emmc_read(nullptr, 0, 1, &byte); }, [&] { return emmc_read(&emmc, -1, 1, &byte); },
        [&] { return emmc_read(&emmc, 0, 0, &byte); }, [&] { return emmc_read(&emmc, 0, 1, nullptr); }}},
      {"camera_calibration_emmc", "emmc_write(): invalid argument!\n",
       {[&] { return emmc_write(nullptr, 0, 1, &byte); }, [&] { return emmc_write(&emmc, -1, 1, &byte); },
        [&] { return emmc_write(&emmc, 0, 0, &byte); }, [&] { return emmc_write(&emmc, 0, 1, nullptr); }}},
      {"camera_calibration_emmc", "emmc_close(): invalid argument!\n", {[&] { return emmc_close(nullptr); }}},
      {"camera_calibration_mtd", "mtd_open(): invalid argument!\n", {[&] { return mtd_open(nullptr, "mfg"); }, [&] { return mtd_open(mtd, nullptr); }}},
      {"camera_calibration_mtd", "mtd_read(): invalid argument!\n",
       {[&] { return mtd_read(nullptr, 0, 1, &byte); }, [&] { return mtd_read(mtd, -1, 1, &byte); }, [&] { return mtd_read(mtd, 0, 0, &byte); },
        [&] { return mtd_read(mtd, 0, 1, nullptr); }}},
      {"camera_calibration_mtd", "mtd_write(): invalid argument!\n",
       {[&] { return mtd_write(nullptr, 0, 1, &byte); }, [&] { return mtd_write(mtd, -1, 1, &byte); },
        [&] { return mtd_write(mtd, 0, -1, &byte); }, [&] { return mtd_write(mtd, 0, 1, nullptr); }}},
      {"camera_calibration_mtd", "mtd_close(): invalid argument!\n", {[&] { return mtd_close(nullptr); }}},
      {"", "",
       {[&] { return partition_read(&closed, 0, 1, &byte); }, [&] { return partition_write(&closed, 0, 1, &byte); },
        [&] { return partition_close(&closed); }, [&] { return mtd_read(&no_erase_size, 0, 1, &byte); },
        [&] { return mtd_write(&no_erase_size, 0, 1, &byte); }, [&] { return mtd_find_partition_by_name(nullptr) == nullptr ? -1 : 0; },
        [&] { return mtd_read_partition(nullptr) == nullptr ? -1 : 0; }, [&] { return mtd_write_partition(nullptr) == nullptr ? -1 : 0; },
        [&] { return mtd_read_data(nullptr, &byte, 1); }, [&] { return mtd_read_data(from, nullptr, 1); },
        [&] { return mtd_read_data(from, &byte, -1); }, [&] { return mtd_write_data(nullptr, &byte, 1); },
        [&] { return mtd_write_data(to, nullptr, 1); }, [&] { return mtd_write_data(to, &byte, -1); },
        [&] { return mtd_erase_blocks(nullptr, 0); }, [&] { return mtd_write_close(nullptr); },
        [&] { return mtd_open_partition_device(nullptr); }, [&] { return mtd_open_partition_device(&no_entry); },
        [&] { return mtd_get_partition_info(-1, &info); }, [&] { return mtd_get_partition_info(fd, nullptr); },
        [&] { return mtd_get_partition_region_info(-1, &region); }, [&] { return mtd_get_partition_region_info(fd, nullptr); },
        [&] { return mtd_set_partition_erase_info(-1, 0, 4096); }, [&] { return alloc_mtd_repeat_and_do(nullptr, fd, &byte, 8192); },
        [&] { return alloc_mtd_repeat_and_do(read_by, fd, nullptr, 8192); }, [&] { return mtd_read_partition_data(fd, nullptr, &out); },
        [&] { return mtd_write_partition_data(fd, 0, &byte); }, [&] { return mtd_write_partition_data(fd, 4096, nullptr); },
        [&] { return mtd_data_open(nullptr, "mfg"); }, [&] { return mtd_data_open(&no_partition, nullptr); },
        [&] { return mtd_data_read(nullptr); }, [&] { return mtd_data_read(&no_partition); }, [&] { return mtd_data_read_block(&no_partition); },
        [&] { return mtd_data_write(nullptr); }, [&] { return mtd_data_write(&no_partition); }, [&] { return mtd_data_write(&no_data); },
        [&] { return mtd_data_write_block(&no_data); }, [&] { return mtd_data_write_block(&no_blocks); },
        [&] { return QOR_Calibration_AEC_get_params(nullptr, &size); }, [&] { return QOR_Calibration_AEC_get_params(&size, nullptr); },
        [&] { return aec_read_calibration(nullptr, 36); }, [&] { return QOR_Get_LSC(nullptr, 40); },
        [&] { return ReadFlashForFlashCalibration(nullptr, 32); }, [&] { return ReadFlashForDualFlashCali(nullptr, 48); },
        [&] { return ReadFlashForDualCam(nullptr, 32, 0); }, [&] { return ReadFlashForDualCam(nullptr, 32, 1); },
        [&] { return QOR_Show_LSC(nullptr); }}},
      {"", "",
       {[&] { return mtd_read_close(nullptr), 0; }, [&] { return QOR_Set_LSC(nullptr, 9), 0; }, [&] { return awb_get_fuseid(nullptr), 0; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(nullptr, &size, &size), 0; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(&size, nullptr, &size), 0; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(&size, &size, nullptr), 0; }, [&] { return mtd_data_close(nullptr); },
        [&] { return mtd_data_close(&no_partition); }, [&] { return ReadFlash(nullptr, &size); }, [&] { return ReadFlash(m, nullptr); },
        [&] { return awb_calibration_set_GS(nullptr, m), 0; }, [&] { return awb_calibration_set_GS(m, nullptr), 0; },
        [&] { return QOR_AWB_Calibration_Reference_Points_Correction(nullptr), 0; }, [&] { return Sensor_set_mesh(nullptr, 0, 0.5F, 0.5F); },
        [&] { return Correct_Reference_Points_qorModule(nullptr, m, m, m), 0; }, [&] { return Correct_Reference_Points_qorModule(m, nullptr, m, m), 0; },
        [&] { return Correct_Reference_Points_qorModule(m, m, nullptr, m), 0; }, [&] { return Correct_Reference_Points_qorModule(m, m, m, nullptr), 0; },
        [&] { return Dual_Cam_Correction(nullptr, m, m, m), 0; }, [&] { return Dual_Cam_Correction(m, nullptr, m, m), 0; },
        [&] { return Dual_Cam_Correction(m, m, nullptr, m), 0; }, [&] { return Dual_Cam_Correction(m, m, m, nullptr), 0; }},
       0},
  };
  // clang-format on
  for (const Group& group : groups) {
    for (size_t i = 0; i < group.calls.size(); ++i) {
      Log lines;
      const auto made =
          calls_of([&] { lines = log_of([&] { EXPECT_EQ(group.calls[i](), group.result) << i; }); });
      EXPECT_TRUE(made.empty()) << group.line << i;
      EXPECT_EQ(lines, (*group.line == '\0' ? Log{} : Log{E(group.line, group.tag)})) << i;
    }
  }
  EXPECT_EQ(byte, 0xA5);
  EXPECT_EQ(size, 8U);
  EXPECT_EQ(memory, Floats(12464 / 4, 77));
  mtd_read_close(from);
  EXPECT_EQ(mtd_write_close(to), 0);
  close(fd);
}

TEST_F(Arguments, TheRecordAreasFailLikeTheirTransfers) {
  uint8_t byte = 0xA5;
  const Calls calls = {[&] { return ReadEmmcFlash(nullptr, 32); },
                       [&] { return ReadEmmcOffset(nullptr, 32, 0); },
                       [&] { return WriteFlash(nullptr, 32); },
                       [&] { return WriteFlash_for_front_Cam(nullptr, 32); },
                       [&] { return WriteFlash_for_bayer_Cam(nullptr, 32, 0); },
                       [&] { return WriteFlashOffset(nullptr, 32, 0); },
                       [&] { return ReadEmmcOffset(&byte, 0, 0); },
                       [&] { return ReadEmmcOffset(&byte, 32, 0x80000000); },
                       [&] { return WriteFlash_for_front_Cam(&byte, 0); },
                       [&] { return WriteFlashOffset(&byte, 0, 0); }};
  for (size_t i = 0; i < calls.size(); ++i) {
    for (const auto& line : log_of([&] { EXPECT_EQ(calls[i](), -1) << i; }))
      EXPECT_FALSE(line.text.starts_with("write partition data")) << i;
  }
  EXPECT_EQ(byte, 0xA5);
  EXPECT_EQ(erases(), 0U);
}

}  // namespace
