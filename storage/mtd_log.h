// The log tag that the MTD back end and the MTD utility share.
#ifndef STORAGE_MTD_LOG_H
#define STORAGE_MTD_LOG_H

#include "common/log.h"

namespace calib::mtd {

extern constinit LogModule log_module;  // tag "camera_calibration_mtd"

}  // namespace calib::mtd

#endif
