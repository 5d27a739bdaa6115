// What do the storage and factory functions make of null pointers and of ranges that mean nothing?
// Guards against a crash of the camera process, and against a bad call that reaches a device all the same.

#include <mtd/mtd-user.h>
#include <unistd.h>

#include "awb_calibration/factory.h"
#include "tests/support/nand_phone.h"

namespace {

struct Group {
  const char* tag;
  const char* line;  ///< of each call; empty: none
  std::vector<std::function<int64_t()>> calls;
};

class Arguments : public support::NandPhone {};

TEST_F(Arguments, BadArgumentsAreRefusedAndTouchNothing) {
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
        // Without a result.
        [&] { return mtd_read_close(nullptr), -1; }, [&] { return QOR_Set_LSC(nullptr, 9), -1; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(nullptr, &size, &size), -1; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(&size, nullptr, &size), -1; },
        [&] { return QOR_Calibration_AEC_get_calibration_data(&size, &size, nullptr), -1; }, [&] { return mtd_data_close(nullptr) - 1; },
        [&] { return mtd_data_close(&no_partition) - 1; }}},
  };
  // clang-format on
  for (const Group& group : groups) {
    for (size_t i = 0; i < group.calls.size(); ++i) {
      std::vector<phone::LogLine> lines;
      const auto made = calls_of([&] { lines = log_of([&] { EXPECT_EQ(group.calls[i](), -1) << i; }); });
      EXPECT_TRUE(made.empty()) << group.line << i;
      const bool is_silent = *group.line == '\0';
      EXPECT_EQ(lines, is_silent ? decltype(lines){} : std::vector{support::E(group.line, group.tag)}) << i;
    }
  }
  EXPECT_EQ(byte, 0xA5);
  EXPECT_EQ(size, 8U);
  mtd_read_close(from);
  EXPECT_EQ(mtd_write_close(to), 0);
  close(fd);
}

}  // namespace
