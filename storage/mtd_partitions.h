// The process-wide table of MTD partitions. Written by mtd_scan_partitions() and, through
// drop_partition_table(), by mtd_data_close().
#ifndef STORAGE_MTD_PARTITIONS_H
#define STORAGE_MTD_PARTITIONS_H

namespace calib::mtd {

/// Forgets the table; the next scan makes a new one. The old one stays allocated, because callers may still
/// hold pointers into it.
void drop_partition_table();

}  // namespace calib::mtd

#endif
