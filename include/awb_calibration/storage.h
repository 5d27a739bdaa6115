/** @file storage.h
 *  Byte-range access to the calibration partition, whether it is an eMMC block device or raw NAND (MTD).
 *
 *  Results are 0 for success and -1 for failure unless a function says otherwise; a failure is also logged.
 *  A system call that a signal interrupts (EINTR) is made again, but for a seek or a transfer on eMMC and for a
 *  close, which then fail with it.
 *  Offsets are absolute byte offsets in the partition. No function takes a lock: one thread at a time per
 *  handle, state or context, and no two writers of one partition. Only the table of MTD partitions outlives
 *  a call; it is the process's, so only one thread at a time may scan, look a partition up or close a data
 *  handle.
 */
#ifndef AWB_CALIBRATION_STORAGE_H
#define AWB_CALIBRATION_STORAGE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

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
  const char* name;    /**< partition name; set in table entries only, by mtd_scan_partitions() */
};

/** A partition opened by partition_open(). Clear it before the open: a successful eMMC open leaves `mtd` as
 *  it is. */
struct partition_handle {
  struct mtd_partition* mtd; /**< used when `emmc` is null */
  struct emmc_state* emmc;   /**< tested first by every call */
};

/** Opens the partition called `name`: as an eMMC partition, else as an MTD partition.
 *
 *  Every open looks the device up anew. An open that failed has nothing left to release; partition_close()
 *  then does nothing and returns -1.
 *  @param handle filled; the caller's
 *  @param name   partition name, NUL-terminated
 *  @return 0, or -1 when neither back end has the partition or an argument is null */
AWB_CALIBRATION_API int32_t partition_open(struct partition_handle* handle, const char* name);

/** Reads exactly `length` (at least 1) bytes at `offset` (at least 0) into `buffer` of `length` bytes.
 *  @return 0; -1 for a bad argument, a handle that is not open, or a transfer that fails or is short (the
 *  buffer may then hold part of the data) */
AWB_CALIBRATION_API int32_t partition_read(struct partition_handle* handle, int64_t offset, int64_t length,
                                           void* buffer);

/** Writes exactly `length` (at least 1) bytes of `buffer` at `offset` (at least 0). On eMMC no other byte
 *  changes; on NAND the touched erase blocks are erased, written and verified, and one that is touched in part
 *  is first read and merged.
 *  @return 0, or -1 as partition_read() */
AWB_CALIBRATION_API int32_t partition_write(struct partition_handle* handle, int64_t offset, int64_t length,
                                            const void* buffer);

/** Closes the back end that is open and releases what partition_open() allocated; both pointers become
 *  null.
 *  @return 0, or -1 when nothing was open (silently) or `handle` is null (logged) */
AWB_CALIBRATION_API int32_t partition_close(struct partition_handle* handle);

/** Finds the block device of partition `name` and opens it read-write: by /proc/emmc, else by the link
 *  /dev/block/platform/msm_sdcc.N/by-name/"name" with N from 0 to 10, else /dev/block/mmcblk0p6 whatever
 *  the name.
 *  @return 0, or -1 when the device cannot be opened or an argument is null */
AWB_CALIBRATION_API int32_t emmc_open(struct emmc_state* state, const char* name);

/** One seek and one read(2) of `length` bytes; arguments and result as partition_read(). Neither is made again. */
AWB_CALIBRATION_API int32_t emmc_read(struct emmc_state* state, int64_t offset, int64_t length, void* buffer);

/** One seek and one write(2) of `length` bytes, without a sync; arguments and result as partition_write().
 *  Neither is made again: after a write that was short, the bytes that it moved are there. */
AWB_CALIBRATION_API int32_t emmc_write(struct emmc_state* state, int64_t offset, int64_t length,
                                       const void* buffer);

/** Closes the descriptor if it is open and sets it to -1. Only for a state that emmc_open() filled: an open that
 *  failed leaves the descriptor as it was, and in a zeroed state that is 0, the standard input.
 *  @return 0, also when it was closed already; -1 for a null state */
AWB_CALIBRATION_API int32_t emmc_close(struct emmc_state* state);

/* ---- MTD back end ---------------------------------------------------------------------------------------
 *
 * A raw NAND partition is moved in erase blocks, and an offset counts usable blocks only: logical block k is
 * the k-th block, from the start of the partition, that a read accepts. A read passes over blocks that are
 * marked bad or cannot be asked about, that do not read, or that hold nothing but zeros. At a block with an
 * uncorrectable ECC error it fails (errno ENOSPC): from there on no block is trusted. A write passes over
 * marked blocks, and over one that failed two attempts to erase, write and verify it; the blocks before the
 * wanted ones, and one that it touches in part, it reads as a read does, and fails with that.
 *
 * Hence reads and writes agree on addresses as long as blocks are only marked bad. They diverge where a read
 * alone passes over a block: zeros written over a whole block hide it from later reads, and a part of a block
 * is merged with what the read found but written to where the read began. A block that a write gave up on is
 * not marked bad (there is no MEMSETBADBLOCK); a later read takes it, with whatever it holds. */

/** Finds `name` among the first 511 bytes of /proc/mtd, fills `state` (all but the partition's name) and
 *  opens the device read-write. A size that does not fit 32 bits counts as the largest.
 *  @param name  partition name, NUL-terminated
 *  @param state the caller's; on failure its path is empty or that of the device that did not open
 *  @return 0, or -1 when there is no such entry, the device does not open or an argument is null */
AWB_CALIBRATION_API int32_t mtd_open(struct mtd_partition* state, const char* name);

/** Reads exactly `length` (at least 1) bytes at logical offset `offset` (at least 0) into `buffer` of
 *  `length` bytes. Every block before the wanted ones is read as well. Needs one erase block of heap.
 *  @return 0; -1 for a bad argument, an erase size of 0, a call that fails, no memory (errno ENOMEM), or a
 *  partition of 2 GiB or more or without that many usable blocks (errno ENOSPC). The buffer may then hold
 *  part of the data, or bytes of a block that was passed over. */
AWB_CALIBRATION_API int32_t mtd_read(struct mtd_partition* state, int64_t offset, int64_t length,
                                     void* buffer);

/** Writes exactly `length` (at least 1) bytes of `buffer` at logical offset `offset` (at least 0): every
 *  touched erase block is erased, written and read back to verify; one that is touched in part is read
 *  first, and its other bytes keep their values. Needs two erase blocks of heap, allocated before anything is
 *  erased.
 *  @return 0, or -1 as mtd_read(). Touched blocks may then be written, erased or in between: a power cut or
 *  a failure between erase and write loses what the block held. */
AWB_CALIBRATION_API int32_t mtd_write(struct mtd_partition* state, int64_t offset, int64_t length,
                                      const void* buffer);

/** Closes the descriptor if it is open and sets it to -1. Only for a state that mtd_open() filled: without an
 *  entry for the name it leaves the descriptor as it was.
 *  @return 0, also when it was closed already; -1 for a null state */
AWB_CALIBRATION_API int32_t mtd_close(struct mtd_partition* state);

/* ---- MTD utility: the partition table --------------------------------------------------------------- */

/** Fills the process-wide table from the first 2047 bytes of /proc/mtd. Entries of earlier scans stay where
 *  the file no longer lists them. Numbers outside 0 to 31 are not taken. Names, and a table that
 *  mtd_data_close() dropped, are never freed, because callers may hold pointers to them.
 *  @return the number of partitions taken, or -1: /proc/mtd cannot be read, or no memory (errno ENOMEM) */
AWB_CALIBRATION_API int32_t mtd_scan_partitions(void);

/** Scans, then looks `name` up by exact comparison, lowest MTD number first.
 *  @return the table's entry, valid as long as the process runs and refilled by later scans; null when there
 *  is none or `name` is null */
AWB_CALIBRATION_API struct mtd_partition* mtd_find_partition_by_name(const char* name);

/* ---- MTD utility: streams over a whole partition ---------------------------------------------------- */

/** An open stream. It has a descriptor of its own and keeps a copy of the partition record, which gives the
 *  size of its buffer: later changes to the record, by a scan or otherwise, do not affect it. */
struct mtd_read_context;
struct mtd_write_context;

/** Opens a read stream at the first usable block. Allocates one erase block.
 *  @return the context, for mtd_read_close(); null when the device does not open, there is no memory, or
 *  `partition` is null */
AWB_CALIBRATION_API struct mtd_read_context* mtd_read_partition(const struct mtd_partition* partition);

/** Reads the next `length` bytes of the usable blocks into `data` of `length` bytes.
 *  @return `length`, or -1 when a block read fails (errno ENOSPC past the last usable block); what `data`
 *  then holds is not defined, and neither is the stream's position */
AWB_CALIBRATION_API int64_t mtd_read_data(struct mtd_read_context* context, void* data, int64_t length);

/** Closes the stream and frees it. With null nothing is done. */
AWB_CALIBRATION_API void mtd_read_close(struct mtd_read_context* context);

/** Opens a write stream at the first block. Allocates one erase block. Erases nothing yet.
 *  @return the context, for mtd_write_close(); null when the device does not open, there is no memory, or
 *  `partition` is null */
AWB_CALIBRATION_API struct mtd_write_context* mtd_write_partition(const struct mtd_partition* partition);

/** Appends `length` bytes of `data`. Whole blocks are erased, written and verified at once, the rest waits
 *  in the context. Allocates one erase block during the call, before anything is erased.
 *  @return `length`, or -1 when a block write fails (errno ENOSPC past the last block) or there is no memory
 *  (ENOMEM) */
AWB_CALIBRATION_API int64_t mtd_write_data(struct mtd_write_context* context, const void* data,
                                           int64_t length);

/** Writes the waiting bytes with zeros up to the end of their block, then erases the next `blocks` blocks,
 *  bad ones left out but counted. A failed erase is logged and does not change the result.
 *  @param context the stream
 *  @param blocks how many; negative: up to the end of the partition
 *  @return the position after the last of them in bytes; -1 when the waiting bytes cannot be written, or
 *  for more blocks than there are (errno ENOSPC; the waiting bytes are written then) */
AWB_CALIBRATION_API int64_t mtd_erase_blocks(struct mtd_write_context* context, int32_t blocks);

/** Writes the waiting bytes as mtd_erase_blocks() does, closes the stream and frees it, whatever the
 *  result.
 *  @return 0, or -1 when that write or the close failed, or for null */
AWB_CALIBRATION_API int32_t mtd_write_close(struct mtd_write_context* context);

/* ---- MTD utility: whole partitions through a descriptor --------------------------------------------- */

/** Bytes of an erase block for mtd_set_partition_erase_info() and mtd_write_partition_data(), which do not
 *  ask the device; initially 0x20000 (128 KiB, a NAND chip of 2 KiB pages). The caller sets it. */
AWB_CALIBRATION_API extern uint32_t erase_size;

/** Opens the partition's device read-write.
 *  @return the descriptor, the caller's to close; -1 for null, an empty entry and a device that
 *  does not open */
AWB_CALIBRATION_API int32_t mtd_open_partition_device(const struct mtd_partition* partition);

struct mtd_info_user;    /* of <mtd/mtd-user.h> */
struct region_info_user; /* of <mtd/mtd-user.h> */

/** The device's MEMGETINFO.
 *  @return what ioctl() returned (0 for success); -1 for a negative descriptor or null */
AWB_CALIBRATION_API int32_t mtd_get_partition_info(int32_t fd, struct mtd_info_user* info);

/** The device's MEMGETREGIONINFO; the caller sets `regionindex`. Result as mtd_get_partition_info(). */
AWB_CALIBRATION_API int32_t mtd_get_partition_region_info(int32_t fd, struct region_info_user* info);

/** Erases the blocks at `start`, `start` + erase_size, ... below `end` (byte offsets), bad blocks and those
 *  that cannot be asked about left out.
 *  @param fd    an open device
 *  @param start a multiple of the device's erase block
 *  @param end   a multiple of erase_size
 *  @return 0; -1 when an erase failed (the others are erased all the same), `end` is no such multiple,
 *  erase_size is 0 or `fd` negative */
AWB_CALIBRATION_API int32_t mtd_set_partition_erase_info(int32_t fd, uint32_t start, uint32_t end);

/** A transfer in the manner of read(2): moves `count` bytes between `fd` and `buffer`.
 *  @return the bytes moved, or negative with errno set */
typedef ssize_t (*mtd_transfer)(int fd, void* buffer, size_t count);

/** Repeats a transfer that ran out of memory in pieces: halves, quarters and so on, as long as the piece
 *  before halving has 4096 bytes or more and pieces fail with ENOMEM. The descriptor is not rewound between
 *  passes.
 *  @param transfer,fd,buffer  what is called, and with what
 *  @param total bytes; an odd number, or one that becomes odd on the way, cannot be split and ends in -1
 *  @return 0 when one pass moved all of it, else -1 */
AWB_CALIBRATION_API int32_t alloc_mtd_repeat_and_do(mtd_transfer transfer, int32_t fd, void* buffer,
                                                    uint32_t total);

/** Reads the first `*size` bytes of the partition, as they are, into a new buffer.
 *  @param fd   an open device
 *  @param size bytes; 0: set to the partition's size first
 *  @param out the buffer, the caller's to free(); null on failure. With `*size` 0 it may be null: only the
 *  size is reported then
 *  @return 0, or -1 when a call fails, the partition is shorter, or there is no memory */
AWB_CALIBRATION_API int32_t mtd_read_partition_data(int32_t fd, uint32_t* size, void** out);

/** Erases blocks of erase_size from the start of the partition and writes `length` bytes there, without a
 *  verify and without passing over bad blocks in the write.
 *  @param fd     an open device
 *  @param length bytes, a multiple of erase_size
 *  @param buffer `length` bytes
 *  @return 0, or -1 when a call fails (the partition may then be erased in part) or for 0 and null */
AWB_CALIBRATION_API int32_t mtd_write_partition_data(int32_t fd, uint32_t length, const void* buffer);

/* ---- MTD utility: partitions by name ---------------------------------------------------------------- */

/** A partition and a buffer for its content. */
struct mtd_data_handle {
  struct mtd_partition* partition; /**< entry of the partition table */
  void* data; /**< from malloc(): allocated by the reads, supplied by the caller for writes */
};

/** Sets `data` to null, whatever it was, and looks the partition up.
 *  @return 0, or -1 when there is no such partition or an argument is null */
AWB_CALIBRATION_API int32_t mtd_data_open(struct mtd_data_handle* handle, const char* name);

/** If the handle has data: frees it, sets it to null, and has the next scan start a new partition table.
 *  @return 0 in all cases */
AWB_CALIBRATION_API int32_t mtd_data_close(struct mtd_data_handle* handle);

/** Reads as many bytes of usable blocks as the partition is large, or one erase block of them, into a new
 *  buffer; an earlier one is freed. A read that ends early (on a partition with an unusable block, always)
 *  is logged and still a success: the bytes that were not read are zeros or those of a rejected block.
 *  @return 0; -1 when the stream does not open, there is no memory, or for null */
AWB_CALIBRATION_API int32_t mtd_data_read(struct mtd_data_handle* handle);
/** mtd_data_read() of one erase block. */
AWB_CALIBRATION_API int32_t mtd_data_read_block(struct mtd_data_handle* handle);

/** Writes as many bytes of `data` as the partition is large, or one erase block of them, to the usable
 *  blocks.
 *  @return 0; -1 when the stream does not open, a block write or the close fails, or for null */
AWB_CALIBRATION_API int32_t mtd_data_write(struct mtd_data_handle* handle);
/** mtd_data_write() of one erase block. */
AWB_CALIBRATION_API int32_t mtd_data_write_block(struct mtd_data_handle* handle);

#ifdef __cplusplus
}
#endif

#endif
