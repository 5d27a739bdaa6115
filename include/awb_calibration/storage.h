/** @file storage.h
 *  Byte-range access to the calibration partition, whether it is an eMMC block device or raw NAND (MTD).
 *
 *  Results are 0 for success and -1 for failure unless a function says otherwise; a failure is also logged.
 *  Offsets are absolute byte offsets in the partition. No function takes a lock or keeps anything between
 * calls: one thread at a time per handle, and no two writers of one partition.
 */
#ifndef AWB_CALIBRATION_STORAGE_H
#define AWB_CALIBRATION_STORAGE_H

#include <stdint.h>

#include "awb_calibration/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An open eMMC partition. */
struct emmc_state {
  char path[256]; /**< block device, NUL-terminated, at most 255 characters */
  int32_t fd;     /**< descriptor opened read-write; -1 after emmc_close() */
};

/** An MTD partition: an open one, or an entry of the partition table. */
struct mtd_partition {
  char path[256];      /**< "/dev/mtd/mtd<N>"; first byte NUL until found */
  int32_t fd;          /**< descriptor opened read-write; -1 after mtd_close() */
  int32_t index;       /**< N of the mtdN entry in /proc/mtd; -1: an empty table entry */
  uint32_t size;       /**< bytes of the partition */
  uint32_t erase_size; /**< bytes of an erase block: the unit of every transfer */
  const char* name;    /**< partition name; set in table entries only */
};

/** A partition opened by partition_open(). Clear it before the open: a successful eMMC open leaves `mtd` as
 * it is. */
struct partition_handle {
  struct mtd_partition* mtd;
  struct emmc_state* emmc; /**< tested first by every call */
};

/** Opens the partition called `name`: as an eMMC partition, else as an MTD partition.
 *
 *  Every open looks the device up anew. Call partition_close() afterwards whatever the result.
 *  @param handle filled; the caller's
 *  @return 0, or -1 when neither back end has the partition or an argument is null */
AWB_CALIBRATION_API int32_t partition_open(struct partition_handle* handle, const char* name);

/** Reads exactly `length` (at least 1) bytes at `offset` (at least 0) into `buffer` of `length` bytes.
 *  @return 0; -1 for a bad argument, a handle that is not open, or a transfer that fails or is short (the
 *  buffer may then hold part of the data) */
AWB_CALIBRATION_API int32_t partition_read(struct partition_handle* handle, int64_t offset, int64_t length,
                                           void* buffer);

/** Writes exactly `length` (at least 1) bytes of `buffer` at `offset` (at least 0). On eMMC no other byte
 *  changes; on NAND the touched erase blocks are read, merged, erased, written and verified.
 *  @return 0, or -1 as partition_read() */
AWB_CALIBRATION_API int32_t partition_write(struct partition_handle* handle, int64_t offset, int64_t length,
                                            const void* buffer);

/** Closes the back end that is open and releases what partition_open() allocated; both pointers become null.
 *  @return 0, or -1 when nothing was open (silently) or `handle` is null (logged) */
AWB_CALIBRATION_API int32_t partition_close(struct partition_handle* handle);

/** Finds the block device of partition `name` and opens it read-write: by /proc/emmc, else by the link
 *  /dev/block/platform/msm_sdcc.N/by-name/<name> with N from 0 to 10, else /dev/block/mmcblk0p6 whatever the
 * name.
 *  @return 0, or -1 when the device cannot be opened or an argument is null */
AWB_CALIBRATION_API int32_t emmc_open(struct emmc_state* state, const char* name);

/** One seek and one read(2) of `length` bytes; arguments and result as partition_read(). */
AWB_CALIBRATION_API int32_t emmc_read(struct emmc_state* state, int64_t offset, int64_t length, void* buffer);

/** One seek and one write(2) of `length` bytes, without a sync; arguments and result as partition_write(). */
AWB_CALIBRATION_API int32_t emmc_write(struct emmc_state* state, int64_t offset, int64_t length,
                                       const void* buffer);

/** Closes the descriptor if it is open and sets it to -1.
 *  @return 0, also when it was closed already; -1 for a null state */
AWB_CALIBRATION_API int32_t emmc_close(struct emmc_state* state);

#ifdef __cplusplus
}
#endif

#endif
