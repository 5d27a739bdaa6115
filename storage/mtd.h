// The MTD back end as the partition front end calls it.
#ifndef STORAGE_MTD_H
#define STORAGE_MTD_H

#include "awb_calibration/storage.h"

int32_t mtd_open(mtd_partition* state, const char* name);
int32_t mtd_read(mtd_partition* state, int64_t offset, int64_t length, void* buffer);
int32_t mtd_write(mtd_partition* state, int64_t offset, int64_t length, const void* buffer);
int32_t mtd_close(mtd_partition* state);

#endif
