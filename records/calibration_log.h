// The log tag that records, factory, correction and verify share.
#ifndef RECORDS_CALIBRATION_LOG_H
#define RECORDS_CALIBRATION_LOG_H

#include "common/log.h"
#include "records/camera.h"

namespace calib {

extern constinit LogModule log_module;  // tag "camera_calibration"

}  // namespace calib

// A line stands whole where it is decided. Where several differ only in a name, they stand side by side in a
// table, as rows of LINE and LINE_BY_CAMERA: functions that log one line, with the arguments that it takes.

#define LINE(LOG, line) [](auto... args) { LOG(line, args...); }

#define LINE_BY_CAMERA(LOG, main_line, front_line, sub_line)              \
  [](::calib::Camera camera, auto... args) {                              \
    LOG_BY_CAMERA(LOG, camera, main_line, front_line, sub_line, args...); \
  }

/// One line of three that differ by camera, with the same arguments.
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
