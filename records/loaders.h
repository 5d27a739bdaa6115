// The loaders, for the library's own readers: as the exported ones, with what those cannot say.
#ifndef RECORDS_LOADERS_H
#define RECORDS_LOADERS_H

#include <cstdint>

#include "records/record_reader.h"

namespace calib {

/// Each loads the selected camera's record into `buffer` and logs where it came from. errno is what the last
/// failing call left.
RecordReading load_awb(void* buffer);
RecordReading load_flash(void* buffer, uint32_t length);
RecordReading load_dual_flash(void* buffer, uint32_t length);
RecordReading load_for_dual_camera(void* buffer, uint32_t length, bool a_light);
RecordReading load_aec(void* buffer, uint32_t length);

}  // namespace calib

#endif
