// MTD back end of a phone without MTD: no partition is ever found, so nothing is ever open.

#include "storage/mtd.h"

#include "common/log.h"

namespace {

constinit calib::LogModule log_module{"camera_calibration_mtd"};

}  // namespace

int32_t mtd_open(mtd_partition* /*state*/, const char* name) {
  return FAIL("mtd_open(): cannot find MTD partition [%s]!\n", name);
}

int32_t mtd_read(mtd_partition* /*state*/, int64_t /*offset*/, int64_t /*length*/, void* /*buffer*/) {
  return -1;
}

int32_t mtd_write(mtd_partition* /*state*/, int64_t /*offset*/, int64_t /*length*/, const void* /*buffer*/) {
  return -1;
}

int32_t mtd_close(mtd_partition* /*state*/) {
  return -1;
}
