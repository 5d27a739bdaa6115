#include "records/calibration_log.h"

namespace calib {

constinit LogModule log_module{"camera_calibration"};

}  // namespace calib
