/** @file correction.h
 *  Runtime correction: when a camera starts, its tuning is adapted to the sensor module that is fitted.
 *
 *  Every function works for the selected camera (set_sensor_selection(), sensor_detect()), reads its records
 *  anew (cache file under /data/misc/camera, else the kernel's export under /sys/android_camera_awb_cal), and
 *  applies one only if its CRC-32 matches, its valid word is good and its four fuse words are the module's or
 *  all zero; a record whose first fuse word is 0 leaves the first word out of the comparison. Nothing is
 *  reported to the caller but the changed values and the log.
 *
 *  The tuning blocks belong to the caller and have the camera stack's layout; they are aligned to 4 bytes and
 *  changed in place, only where said. A gain is a record's word / 1024, a colour ratio 1024 / word. With a
 *  null pointer nothing is done.
 *
 *  A signal changes nothing: the system call that it interrupts is made again.
 *
 *  Not re-entrant: one call at a time, on the thread that owns the blocks.
 */
#ifndef AWB_CALIBRATION_CORRECTION_H
#define AWB_CALIBRATION_CORRECTION_H

#include <stdint.h>

#include "awb_calibration/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Moves the white points and gains by the ratio between the module and the golden sample (as set by
 *  awb_calibration_set_GS(); an unset one, 0.0, makes the ratios infinite), and then takes the LED flash's
 *  gains from the flash record. Calling it twice applies the ratios twice.
 *
 *  Light-source versions 0 (served as 1) to 3 are known. An AWB record that cannot be read or has a bad CRC
 *  leaves everything untouched; a refused one (valid word, module) only leaves out the AWB part, and a
 *  missing or refused flash record the flash part.
 *  @param awb_tuning  at least 12464 bytes, used as floats: reference points i = 0 to 14, R/G at byte 48 + 8
 *                     i and B/G at 52 + 8 i; five triples of gains r, g, b at 12392, 12404, 12416, 12428,
 *                     12440; the LED flash's triple at 12452. Reference points are multiplied by the ratio; r
 *                     and b of a triple are divided by it and, if one falls below 1.0, the triple is scaled
 *                     so that the smaller becomes 1.0. The fourth triple is the exception: its r becomes its
 *                     own g, its g the corrected one of the first.
 */
AWB_CALIBRATION_API void QOR_AWB_Calibration_Reference_Points_Correction(float* awb_tuning);

/** The same for tunings that carry their own golden sample: hands out the module's ratios for the caller to
 *  apply, and corrects the flash. Always installs the tuning's golden sample with awb_calibration_set_GS().
 *
 *  Light-source versions 1 to 3 are known. On the front camera the record may carry the main camera's fuse ID
 *  instead. An AWB record that cannot be read or has a bad CRC, or a golden value of 0 for the record's
 *  version, ends the call with nothing written; a refused record only leaves `module_ratio` out.
 *
 *  Flash: from the dual-flash record, main and front camera only. With two LEDs, r and b at 12452 and 12460
 *  become the gains of both LEDs together, and the CCT/LED table is rebuilt, if it and the record are
 *  reasonable. On the front camera a record whose first pair is 0 belongs to a screen flash: r and b become
 *  those of its white light, or of its yellow one if the property "persist.camera.disp.color" (default -1) is
 *  neither 0 nor -1.
 *  @param awb_tuning          at least 12464 bytes. Read: golden R/G of version v at byte 11916 + 4 (v - 1),
 *                             golden B/G at 12044 + 4 (v - 1) (floats, v = 1 to 3); the 16-bit number of
 *                             CCT/LED entries at 6936 (3 to 16); of entry i, at 6940 + 28 i, the 16-bit
 *                             settings of LED 1 at + 2 and LED 2 at + 4. Changed: R/G and B/G of an entry's
 *                             light (floats at + 8 and + 12) and the flash gains r and b (floats at 12452 and
 *                             12460; g at 12456 is read).
 *  @param module_ratio        2 floats: the module's R/G and B/G
 *  @param flash_ratio_first   2 floats: R/G and B/G of the white screen; on the front camera, when its record
 *                             is refused but its CRC is good, g / r and g / b of the tuning's flash gains;
 *                             else untouched
 *  @param flash_ratio_second  2 floats: of the yellow screen; otherwise as the first */
AWB_CALIBRATION_API void Correct_Reference_Points_qorModule(float* awb_tuning, float* module_ratio,
                                                            float* flash_ratio_first,
                                                            float* flash_ratio_second);

/** Replaces the lens-shading meshes by the module's, as the factory tool measured them. A mesh table is 3540
 *  bytes: a word that is left alone, then four colour channels of 221 floats (gains; 1.0: no correction).
 *  Only valid word 3099 is accepted; a bad CRC is logged and otherwise ignored.
 *  @param tuning        at least 48592 bytes. The measured gains go into the four mesh tables at bytes 2572,
 *                       6112, 9652 and 13192 and into the one at 45052; the first of the four and the one at
 *                       45052 are then softened by `bright_ratio`, and the low-light table at 16732 becomes
 *                       the measured gains softened by `low_ratio`
 *  @param reserved      ignored
 *  @param bright_ratio  see Sensor_mesh_interpolation(); softens nothing unless above 0 and below 1
 *  @param low_ratio     the same; the low-light table then stays as it was
 *  @return 1, or 0 when the block was left untouched: no record, not a good one, or another module's */
AWB_CALIBRATION_API int32_t Sensor_set_mesh(void* tuning, intptr_t reserved, float bright_ratio,
                                            float low_ratio);

/** Pulls every gain of a mesh table towards 1.0: dst = 1 + ratio * (src - 1), in single precision, first to
 *  last. Ratio 0 gives a flat table; negative ones invert the correction, and NaN fills the table with NaN.
 *  @param dst    mesh table (3540 bytes, at its first word) to be written; may be `src`
 *  @param src    mesh table
 *  @param ratio  below 1.0; otherwise, or with a null pointer, an error is logged and nothing is written */
AWB_CALIBRATION_API void Sensor_mesh_interpolation(void* dst, const void* src, float ratio);

/** Hands out the camera's R/G and B/G in normal light (D50) and in A light, to balance the cameras of a pair;
 *  1.0 for both of a light whose record is missing, damaged or refused. Light-source versions 0 to 3 are
 *  known. On the front camera a record may carry the main camera's fuse ID. A zero first fuse word counts in
 *  the D50 record only, and then for both. */
AWB_CALIBRATION_API void Dual_Cam_Correction(float* d50_rg, float* d50_bg, float* a_rg, float* a_bg);

#ifdef __cplusplus
}
#endif

#endif
