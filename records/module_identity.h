// Which module is fitted, for the library's own readers.
#ifndef RECORDS_MODULE_IDENTITY_H
#define RECORDS_MODULE_IDENTITY_H

#include "awb_calibration/records.h"
#include "records/camera.h"
#include "records/judgement.h"

namespace calib {

/// The camera that the sensor selection names, asked anew by every reader.
inline Camera selected_camera() {
  return camera_of_selection(get_sensor_selection());
}

/// awb_get_fuseid() as the words that records are compared with.
FuseWords module_fuse_words();

/// The main camera's fuse ID whatever the selection, without a log line. The front camera's readers accept it
/// as a second chance.
FuseWords main_camera_fuse_words();

}  // namespace calib

#endif
