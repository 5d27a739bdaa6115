// The lens-shading step's marker file. Its content is the factory tool's.

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "factory/factory_state.h"
#include "records/calibration_log.h"

namespace {

using calib::log_module;

constexpr const char* kMarker = "/data/misc/camera/lsc_calibration_done.txt";

}  // namespace

int32_t QOR_Init_LSC() {
  LOGI("%s\n", "QOR_Init_LSC");
  return calib::remove_file(kMarker);
}

void QOR_Set_LSC(const void* buffer, uint32_t length) {
  if (buffer == nullptr) return;

  LOGI("%s\n", "QOR_Set_LSC");
  const int fd = calib::create_replacement(kMarker);
  if (fd < 0) {
    LOGI("[AWB Calibration] can't open /data/misc/camera/lsc_calibration_done.txt");
    return;
  }
  calib::finish_marker(fd, buffer, length);
}

int32_t QOR_Get_LSC(void* buffer, uint32_t length) {
  if (buffer == nullptr) return -1;

  LOGI("%s\n", "QOR_Get_LSC");
  const ssize_t count = calib::read_file(kMarker, buffer, length);
  if (count < 0) {
    const calib::KeepErrno keep;
    LOGI("[AWB Calibration] can't open /data/misc/camera/lsc_calibration_done.txt");
    return -1;
  }
  LOGI("bytes_read :%d\n", static_cast<int32_t>(count));
  // Callers get this process's AWB record in front of the tool's data, whatever stood there.
  const calib::AwbRecord& record = calib::factory_state.awb_record;
  memcpy(buffer, &record, std::min<size_t>(sizeof record, length));
  return 1;
}
