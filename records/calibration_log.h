// The log tag that records, factory, correction and verify share.
#ifndef RECORDS_CALIBRATION_LOG_H
#define RECORDS_CALIBRATION_LOG_H

#include "common/log.h"
#include "records/camera.h"

namespace calib {

extern constinit LogModule log_module;  // tag "camera_calibration"

}  // namespace calib

/// One line of a family that differs by camera: whole literals, with the same arguments.
#define LOG_BY_CAMERA(LOG, camera, main_line, front_line, sub_line, ...) \
  do {                                                                   \
    switch (camera) {                                                    \
      case ::calib::Camera::main:                                        \
        LOG(main_line __VA_OPT__(, ) __VA_ARGS__);                       \
        break;                                                           \
      case ::calib::Camera::front:                                       \
        LOG(front_line __VA_OPT__(, ) __VA_ARGS__);                      \
        break;                                                           \
      case ::calib::Camera::sub:                                         \
        LOG(sub_line __VA_OPT__(, ) __VA_ARGS__);                        \
        break;                                                           \
    }                                                                    \
  } while (false)

#endif
