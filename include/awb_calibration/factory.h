/** @file factory.h
 *  Factory calibration: the production line's steps that measure, judge and store records.
 *
 *  The factory tool steers a run through system properties; the camera stack calls the per-frame entries from
 *  its frame thread and the others when a camera is opened. All state is process-wide and unsynchronised: one
 *  call at a time. A signal that interrupts a system call is no failure but as storage.h says, in a transfer on
 *  eMMC. Files are written under /data/misc/camera with mode 0644; the lines that go to standard
 *  output are the factory tool's console.
 */
#ifndef AWB_CALIBRATION_FACTORY_H
#define AWB_CALIBRATION_FACTORY_H

#include <stdint.h>

#include "awb_calibration/export.h"
#include "awb_calibration/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- AWB calibration run: state that the factory tool may read ---- */

/** Tolerance of the run in percent of the larger golden ratio; initially 1024. */
AWB_CALIBRATION_API extern uint32_t QOR_AWB_Calibration_threshold;
/** Light-source version 1 to 3; 0 stands for 3; larger values are clamped to 3 by the next frame. */
AWB_CALIBRATION_API extern uint32_t QOR_AWB_Calibration_light_source_version;
/** Frames summed in this run; the one after the tenth judges. */
AWB_CALIBRATION_API extern uint32_t QOR_AWB_Calibration_counter;
/** 1 while a run is active. */
AWB_CALIBRATION_API extern uint32_t QOR_AWB_Calibration_enabled;
/** 1 once the exposure control may report settled values. */
AWB_CALIBRATION_API extern uint32_t QOR_AWB_Calibration_aec_ready;

/* ---- AWB calibration run ---- */

/** Called when the camera is opened: stops a run and reads the properties "mfg.awb.calibration.Alight" and
 *  "mfg.calibration.status". When the status is 3 it also takes "mfg.awb.calibration.threshold" (default 20),
 *  "...camid", "...rg_ratio" and "...bg_ratio" (both ratios become the golden sample of all three light-source
 *  versions when rg_ratio is above 0), and sets the light-source version back to 3. Nothing is checked.
 *  @return 0 */
AWB_CALIBRATION_API int32_t check_and_init_awb_calibration(void);

/** One preview frame: the sums of its R/G and B/G ratios times 1024 over `count` samples. Starts a run when
 *  the property "mfg.awb.calibration.trigger" has changed from 0 to 1, and passes the rounded means of a frame
 *  in a run to QOR_AWB_Calibration_write_to_flash(). A count of 0 counts as means of 0. */
AWB_CALIBRATION_API void QOR_AWB_Calibration_collect(int32_t rg_sum, int32_t bg_sum, int32_t count);

/** Looks for the trigger's rising edge; only while the calibration status is 3.
 *  @return 0 */
AWB_CALIBRATION_API int32_t check_awb_calibration_trigger(void);

/** Starts a run: frame counter and sums become 0. */
AWB_CALIBRATION_API void awb_enable_calibration(void);

/** Stops the run: frame counter and sums become 0. */
AWB_CALIBRATION_API void awb_disable_calibration(void);

/** @return 1 while a run is active, else 0 */
AWB_CALIBRATION_API uint32_t awb_if_enabled(void);

/** Sets the tolerance (percent) and the light-source version (1 to 3). Both act from the next frame on, also
 *  in the middle of a run, until check_and_init_awb_calibration() sets them again. */
AWB_CALIBRATION_API void awb_calibration_set_parm(uint32_t threshold, uint32_t light_source_version);

/** One frame of a run: R/G and B/G times 1024, taken as signed.
 *
 *  The first frame creates the fail file: the answer of a run that never ends. Ten frames are summed. Each
 *  later one judges: the distance of the mean ratios from the golden sample must not be greater than the
 *  tolerance times the larger golden ratio (so a golden sample of nan or inf lets every module pass, and so
 *  does a threshold of -1, which is 4294967295 %). It writes the AEC record (if asked for, and only on the
 *  main and the sub camera) and the AWB record into the slot of awb_get_camid(). Once the partition has the
 *  AWB record, it writes the success file and the cache file, or the fail file for a record out of tolerance
 *  (which is stored without its valid mark). The run ends there; after a failed write, or while AEC has not
 *  settled, the next frame tries again. */
AWB_CALIBRATION_API void QOR_AWB_Calibration_write_to_flash(uint32_t rg, uint32_t bg);

/* ---- AEC calibration ---- */

/** The exposure control asks for its target when the camera is opened; settled values are dropped.
 *  @param luma_target,tolerance written only on success, in the exposure control's units
 *  @return 0; -1 when the property "mfg.calibration.status" is not 3, or for a null pointer */
AWB_CALIBRATION_API int32_t QOR_Calibration_AEC_get_params(uint32_t* luma_target, uint32_t* tolerance);

/** The exposure control reports, each frame, what it has settled on. Kept while the ready flag is set.
 *  @return the ready flag */
AWB_CALIBRATION_API uint32_t QOR_Calibration_AEC_set_ready(uint32_t gain, uint32_t exp_time,
                                                           uint32_t luma_value);

/** Sets the ready flag, and the settled values to 0, on every call while the status is 3 and
 *  "mfg.awb.calibration.trigger" and "...ae.k.eb" are both 1. Never takes the flag back.
 *  @return 0 */
AWB_CALIBRATION_API int32_t aec_check_calibration_trigger(void);

/** Ready, with settled values of 0. */
AWB_CALIBRATION_API void aec_set_status_ready(void);

/** Not ready, with settled values of 0. */
AWB_CALIBRATION_API void aec_reset_status(void);

/** @return the ready flag, 0 or 1 */
AWB_CALIBRATION_API uint32_t aec_is_ready(void);

/** Writes the AEC record into slot `camid` and, if that succeeds, its cache file.
 *  @return 0 when the partition has the record, else -1 */
AWB_CALIBRATION_API int32_t aec_write_calibration(uint8_t camid, struct awb_fuse_id fuse, uint32_t gain,
                                                  uint32_t exp_time, uint32_t luma_value);

/** The settled values stored for the selected camera's module; all 0 when there is no good record of it.
 *  Nothing is written if a pointer is null. */
AWB_CALIBRATION_API void QOR_Calibration_AEC_get_calibration_data(uint32_t* gain, uint32_t* exp_time,
                                                                  uint32_t* luma_value);

/* ---- flash, dual-camera and gyro writers ----
 * They store what the factory tool measured. `camid` is the slot (0 main, 1 front, 2 sub), `fuse` the fuse ID
 * that the record is bound to. The outcome is printed on standard output: "<function>: writeflash() OK" or
 * "<function>: writeflash() fail". For the first three the partition alone decides the result; a cache file
 * that cannot be created is logged and printed. Sub camera: their cache files are the main camera's, whose own
 * record is gone from there, and flash and dual flash then set the mode of the front camera's file instead. */

/** Writes the flash record (32 bytes at 0xE08 of the slot) and its cache file.
 *  @param camid,fuse slot and module
 *  @param x,y        white-balance gains of R and B under flash light, times 1024
 *  @return 0 when the partition has the record, else -1 */
AWB_CALIBRATION_API int32_t QOR_FLASH_Calibration_write_to_flash(uint8_t camid, struct awb_fuse_id fuse,
                                                                 int32_t x, int32_t y);

/** Writes the dual-flash record (48 bytes at 0xE6C of the slot) and its cache file.
 *  @param camid,fuse slot and module
 *  @param x1a,x1b    gains of R and B times 1024 under the first LED
 *  @param x2a,x2b    the same under the second LED
 *  @param x3a,x3b    the same under both
 *  @return 0 when the partition has the record, else -1 */
AWB_CALIBRATION_API int32_t QOR_Dual_FLASH_Calibration_write_to_flash(uint8_t camid, struct awb_fuse_id fuse,
                                                                      int32_t x1a, int32_t x1b, int32_t x2a,
                                                                      int32_t x2b, int32_t x3a, int32_t x3b);

/** Writes the gyro record (48 bytes at 0xEA0 of the slot), the mark that the module's gyro is calibrated, and
 *  its cache file. It overlaps the A-light AWB record of the same slot, which is no longer good.
 *  @return 0 when the partition has the record, else -1 */
AWB_CALIBRATION_API int32_t gyro_write_calibration(uint8_t camid, struct awb_fuse_id fuse);

/** Writes the dual-camera record (1667 bytes at area offset 0x3200, once per phone) with the first 1643 bytes
 *  of /data/misc/camera/CalibrationData.dat as payload, and reads its checksum back. What is missing
 *  from the file, or from one that opens and cannot be read, is zeros in the record, and no failure. The
 *  answer is the file dual_calibration_success.txt: removed first, created empty when the checksum came back.
 *  @return 0, also when the checksum that came back differs; -1 when there is no memory or no payload file,
 *  or when the write, the read or the creation of the success file fails */
AWB_CALIBRATION_API int32_t QOR_DUAL_CalibrationData_write_to_flash(struct awb_fuse_id fuse);

/** Writes the dual-camera record of the first form (465 bytes at area offset 0x3000): 464 bytes of the
 *  payload file and the low byte of their checksum, bound to no module. All of it is read back and compared.
 *  @return as QOR_DUAL_CalibrationData_write_to_flash() */
AWB_CALIBRATION_API int32_t QOR_DUAL_Calibration_write_to_flash(void);

/** Reads the payload of the dual-camera record (1643 bytes at area offset 0x3204), unchecked, into
 *  /data/misc/camera/CalibrationData.dat.
 *  @return 0; -1 when there is no memory, the read fails or the file cannot be created */
AWB_CALIBRATION_API int32_t QOR_DUAL_Calibration_ReadCalData(void);

/* ---- status properties ----
 * Setters store a signed decimal number and return what property_set() returns: 0 on success. Getters return
 * the property's leading decimal number, 0 when there is none, or the default when the property is absent. */

/** Property "mfg.calibration.status". */
AWB_CALIBRATION_API int32_t Sensor_set_Calibration_status(uint32_t status);

/** The step of the production line: 1, 3, 5, 7 and 8 as they stand; 2, 4 and 6 only once their step has left
 *  its success file under /data/misc/camera (LSC_Calibration_Success.txt, awb_calibration_success.txt,
 *  flash_calibration_success.txt); otherwise 0. */
AWB_CALIBRATION_API uint32_t Sensor_get_Calibration_status(void);

/** Property "mfg.calibration.target_luma"; 90 by default. */
AWB_CALIBRATION_API int32_t Sensor_set_target_luma(uint8_t luma);
/** @return the property of Sensor_set_target_luma() */
AWB_CALIBRATION_API uint32_t Sensor_get_target_luma(void);

/** Property "qor.camera.mfg.trigger_index"; 0 by default. */
AWB_CALIBRATION_API int32_t Sensor_set_trigger_index(uint16_t index);
/** @return the property of Sensor_set_trigger_index() */
AWB_CALIBRATION_API uint32_t Sensor_get_trigger_index(void);

/** Property "qor.camera.mfg.aec_exp_index"; 0 by default. */
AWB_CALIBRATION_API int32_t Stats_set_exp_index(uint32_t index);
/** @return the property of Stats_set_exp_index() */
AWB_CALIBRATION_API uint32_t Stats_get_exp_index(void);

/* ---- lens-shading marker: /data/misc/camera/lsc_calibration_done.txt ---- */

/** Removes the marker.
 *  @return 0, or -1 when it could not be removed (there was none) */
AWB_CALIBRATION_API int32_t QOR_Init_LSC(void);

/** Replaces the marker by `length` bytes of `buffer`. With a null buffer nothing happens. */
AWB_CALIBRATION_API void QOR_Set_LSC(const void* buffer, uint32_t length);

/** Reads the marker into `buffer` of `length` bytes, then puts the AWB record of this process's last run over
 *  the first 32 of them (over `length` of them if that is less): zeros when there was no run.
 *  @param buffer `length` bytes
 *  @param length at least 32 to get the whole record
 *  @return 1; -1, with the buffer untouched, when there is no marker or `buffer` is null */
AWB_CALIBRATION_API int32_t QOR_Get_LSC(void* buffer, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
