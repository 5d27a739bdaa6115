/** @file records.h
 *  Calibration records: which camera and module they belong to, their checksum, and the area of the
 *  calibration partition where they lie.
 *
 *  The record area begins at byte 0x20000 of partition "mfg" when the property "ro.pagesize" is exactly
 *  "4096", else at 0x10000; it holds a slot of 4096 bytes per camera: camid 0 main, 1 front, 2 sub.
 *
 *  All state is process-wide and unsynchronised: one call at a time. Signals are no failure of a loader, which
 *  goes on reading; for the record area storage.h says what they do.
 */
#ifndef AWB_CALIBRATION_RECORDS_H
#define AWB_CALIBRATION_RECORDS_H

#include <stdint.h>

#include "awb_calibration/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The identity of a fitted sensor module, as burnt into it: words 1 to 4 in order. */
struct awb_fuse_id {
  uint32_t word[4]; /**< zero where nothing is burnt in */
};

/* ---- module identity and checksum ---- */

/** Reflected CRC-32 of IEEE 802.3 (polynomial 0x04C11DB7) without its inversions: the register starts at
 *  `start` and is returned as it stands. Record checksums use start 0; "123456789" then gives 0x2DFD2D88. A
 *  checksum over several pieces passes the result of one piece as the start of the next.
 *  @param data    `length` bytes; may be null when `length` is 0
 *  @param length  bytes
 *  @param start   0, or the checksum of the bytes before `data`
 *  @return the register, neither inverted nor reflected again */
AWB_CALIBRATION_API uint32_t Crc32CheckSumByte(const void* data, uint32_t length, uint32_t start);

/** The camera whose records are loaded, checked and corrected: 0 main, 1 front, 2 sub; initially 0. */
AWB_CALIBRATION_API int32_t get_sensor_selection(void);

/** Sets the selection; a `camid` of 3 or more selects the main camera. */
AWB_CALIBRATION_API void set_sensor_selection(uint32_t camid);

/** Called when a sensor starts: selects 0, 1, or for every other (also negative) value 2.
 *  @return the mapped value 0, 1 or 2 */
AWB_CALIBRATION_API int32_t sensor_detect(int32_t camid);

/** Fills `out` (4 words) with the fuse ID of the selected camera's module, from the properties
 *  "qor.camera.sensor.<main|front|sub>_fuse1" to "..._fuse4": decimal, signed, converted in 64 bits, low 32
 *  kept; 0 for a property that is absent or not a number. With a null `out` nothing happens. */
AWB_CALIBRATION_API void awb_get_fuseid(uint32_t* out);

/** Logs its argument; the fuse ID comes from the properties alone.
 *  @return 0, which means nothing */
AWB_CALIBRATION_API int32_t awb_read_fuseid(int32_t ctrl_fd);

/** Sets the camera whose slot the factory writers store into; independent of the sensor selection. */
AWB_CALIBRATION_API void awb_set_camid(uint8_t camid);

/** @return what awb_set_camid() stored last; initially 0 */
AWB_CALIBRATION_API uint8_t awb_get_camid(void);

/* ---- loading ----
 * What a camera start reads: the record of the selected camera, from its cache file under /data/misc/camera,
 * or, when that does not open, from the kernel's 4000-byte export under /sys/android_camera_awb_cal. Bytes
 * are only copied: whether the record is good is the caller's to judge. A short source is no error: of a
 * cache file, only the bytes that it holds are written; the missing end of an export is delivered as zeros.
 * When nothing is loaded, and with a null pointer, nothing is written. */

/** Loads the AWB record.
 *  @param buffer  32 bytes
 *  @param word    the calibration tag word: 0xFF3ACA01 from the cache file, else the export's word at byte
 *                 3944
 *  @return 1 when either source opened, else 0 */
AWB_CALIBRATION_API int32_t ReadFlash(void* buffer, uint32_t* word);

/** Loads the flash record (32 bytes; byte 3648 of the export). The front camera's cache file is
 *  "flash_cal_front".
 *  @param buffer  `length` bytes
 *  @param length  32 for the whole record
 *  @return the bytes read from the cache file (0 when it is empty), or `length` from the export, or -1 */
AWB_CALIBRATION_API int32_t ReadFlashForFlashCalibration(void* buffer, uint32_t length);

/** Loads the dual-flash record (48 bytes; byte 3848 of the export). Arguments and result as above. */
AWB_CALIBRATION_API int32_t ReadFlashForDualFlashCali(void* buffer, uint32_t length);

/** Loads the AWB record of normal light (`a_light` 0; byte 0 of the export) or of A light (any other value;
 *  byte 3784), 32 bytes, for a dual-camera pair. Arguments and result as above. */
AWB_CALIBRATION_API int32_t ReadFlashForDualCam(void* buffer, uint32_t length, uint32_t a_light);

/** Loads the AEC record (36 bytes; byte 3712 of the export). Arguments and result as above. */
AWB_CALIBRATION_API int32_t aec_read_calibration(uint8_t* buffer, uint32_t length);

/* ---- golden sample ---- */

/** Sets the golden sample's R/G and B/G for light-source versions 1, 2 and 3 (three floats each). The run and
 *  the reference-point correction use it; until it is set all are 0.0, and every run is judged bad. */
AWB_CALIBRATION_API void awb_calibration_set_GS(const float rg[3], const float bg[3]);

/* ---- record area ----
 * Each call reads the page size, opens the partition, does one transfer, closes it, and, if it writes, dumps
 * the start of the area to the log. Results are 0, or -1 for a failure (logged; a null buffer is one).
 * Offsets are 32-bit sums; nothing checks that a transfer stays inside its slot. Bytes outside the range
 * written stay as they were. */

/** Reads `length` bytes at the start of the area into `buffer`. */
AWB_CALIBRATION_API int32_t ReadEmmcFlash(void* buffer, uint32_t length);

/** Reads `length` bytes at area offset `byte_offset` into `buffer`. */
AWB_CALIBRATION_API int32_t ReadEmmcOffset(void* buffer, uint32_t length, uint32_t byte_offset);

/** Writes `length` bytes of `buffer` at area offset `byte_offset`. */
AWB_CALIBRATION_API int32_t WriteFlashOffset(const void* buffer, uint32_t length, uint32_t byte_offset);

/** Writes `length` bytes of `buffer` at the start of the area. */
AWB_CALIBRATION_API int32_t WriteFlash(const void* buffer, uint32_t length);

/** Writes `length` bytes of `buffer` into slot `cam_id`: at its start, or at 0xEC0 while the AWB calibration
 *  run works in A light. */
AWB_CALIBRATION_API int32_t WriteFlash_for_bayer_Cam(const void* buffer, uint32_t length, uint8_t cam_id);

/** Writes `length` bytes of `buffer` at the start of the front camera's slot. */
AWB_CALIBRATION_API int32_t WriteFlash_for_front_Cam(const void* buffer, uint32_t length);

/** Dumps the first slot to the log with QOR_Show_LSC().
 *  @return 0 when the partition opened and closed, else -1; it says nothing about the data */
AWB_CALIBRATION_API int32_t CheckFlash(void);

/** Dumps `buffer` (664 bytes, any alignment) to the log: 8 64-bit words, then 150 entries of a 16-bit and an
 *  8-bit value.
 *  @return 0, or -1 for a null buffer, for which nothing is logged */
AWB_CALIBRATION_API int32_t QOR_Show_LSC(const void* buffer);

#ifdef __cplusplus
}
#endif

#endif
