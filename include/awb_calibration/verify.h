/** @file verify.h
 *  Result checks: does the selected camera have a good record of a kind of calibration?
 *
 *  Each check reads its source anew, tests three things and logs the outcome of each, whatever came of the
 *  others: that the checksum is right, that the record belongs to the fitted module (its four fuse words are
 *  the module's, or all zero), and that its valid word is 3099, a finished calibration. A "record word"
 *  collects a bit per test, 0x2, 0x1 and (together) 0xC; it is logged, not returned.
 *
 *  The camera is the one that set_sensor_selection() selected, its module's fuse ID that of awb_get_fuseid()
 *  (records.h). A source is the camera's cache file under /data/misc/camera or, when that does not open, the
 *  kernel's export under /sys/android_camera_awb_cal. Only an absent cache file leads to the export: an empty
 *  or cut one is tested as if zeros followed. Nothing is written anywhere, and no state is kept.
 *  A signal changes no answer: the system call that it interrupts is made again.
 *
 *  Every check takes nothing and returns 0 (good) or -1 (not good, or no source). The checks share nothing
 *  with each other; like all of this library they are called one at a time.
 */
#ifndef AWB_CALIBRATION_VERIFY_H
#define AWB_CALIBRATION_VERIFY_H

#include <stdint.h>

#include "awb_calibration/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Gyro: the 48-byte record, from the cache file or byte 3952 of the export. The sub camera has no files of
 *  its own; the main camera's are read.
 *  @return 0 or -1 */
AWB_CALIBRATION_API int32_t Sensor_Check_GYRO_Calibration_Result(void);

/** Lens shading: the record at byte 64 of the cache file or the export (both 4000 bytes). The checksum covers
 *  3556 of the 3576 bytes before it: damage in bytes 3620 to 3639 is not seen here. A zero first fuse word
 *  matches any.
 *  @return 0 or -1 */
AWB_CALIBRATION_API int32_t Sensor_Check_LSC_Calibration_Result(void);

/** AWB: a block of eight 64-bit fields at the start of the cache file or the export, 28 bytes of it under the
 *  checksum. A zero first fuse word matches any; on the front camera the main camera's fuse ID (properties
 *  "qor.camera.sensor.main_fuse1" to "..._fuse4" as signed 32-bit numbers) is accepted as well. The 32-byte
 *  record of the AWB calibration run never passes: its R/G lies in the upper half of the valid word.
 *  @return 0 or -1 */
AWB_CALIBRATION_API int32_t Sensor_Check_AWB_Calibration_Result(void);

/** AEC: the 36-byte record as aec_read_calibration() delivers it. A zero first fuse word matches
 *  any.
 *  @return 0 or -1; -1 without a line of its own when the record is empty or cannot be read */
AWB_CALIBRATION_API int32_t Sensor_Check_AEC_Calibration_Result(void);

/** Flash: a good dual-flash record, or else a good flash record. The first source that opens is the only one:
 *  the dual-flash cache file, the flash cache file, the export (dual-flash at byte 3848, flash at byte 3648);
 *  a record that it does not hold counts as zeros. Both are read as 64-bit fields, 12 and 8 of them, with 44
 *  and 28 bytes under the checksum, so that the 32-bit records of the flash writers never pass. A zero first
 *  fuse word matches any, and when the dual-flash record's is zero, the module's counts as 0 for the flash
 *  record too: one from the flash cache file, where the dual-flash record is all zeros, is good only with a
 *  zero first word (or no fuse ID at all).
 *  @return 0 or -1 */
AWB_CALIBRATION_API int32_t Sensor_Check_FLASH_Calibration_Result(void);

/** Dual camera: the 1667-byte record at byte 512 of the kernel's node "awb_cal_3D", of any module; the
 *  checksum may not be 0. When that is not good, a node "awb_cal_InHouse3D" whose first four bytes are not
 *  all zero will do. Only while the main camera is selected. Allocates the record and frees it; without
 *  memory it also prints "Sensor_Check_DUAL_Calibration_Result: Can't allocate calibration buffer" on
 *  standard output.
 *  @return 0 or -1 */
AWB_CALIBRATION_API int32_t Sensor_Check_DUAL_Calibration_Result(void);

#ifdef __cplusplus
}
#endif

#endif
