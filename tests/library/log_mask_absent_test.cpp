// What is logged on a phone whose platform has no log-mask service?
// Guards against a crash at the missing import, and against a phone that says nothing.

#include "awb_calibration/factory.h"
#include "awb_calibration/storage.h"
#include "tests/support/support.h"

namespace {

using namespace support;

class LogMaskAbsent : public PhoneTest {};

TEST_F(LogMaskAbsent, EveryLevelOfEveryTagIsLogged) {
  phone().set_log_mask(0);  // nobody asks for it
  const auto log = log_of([] {
    uint8_t byte = 0;
    partition_handle handle{};
    partition_open(&handle, "mfg");
    partition_read(&handle, 0, 1, &byte);
    partition_close(&handle);
    awb_read_fuseid(3);
    emmc_close(nullptr);
  });
  EXPECT_EQ(log, (std::vector{
                     D("found emmc partition [mfg]=[mmcblk0p6]\n", "camera_calibration_emmc"),
                     D("use emmc_read(), path = /dev/block/mmcblk0p6\n", "camera_calibration_partition"),
                     E("partition_close(): emmc_close\n", "camera_calibration_partition"),
                     I("awb_read_fuseid: ctrlfd = 3\n"),
                     E("emmc_close(): invalid argument!\n", "camera_calibration_emmc"),
                 }));
  EXPECT_TRUE(phone().take_mask_questions().empty());
}

}  // namespace
