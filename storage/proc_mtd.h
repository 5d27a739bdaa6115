// /proc/mtd, as the back end and the partition table read it, and as awbcal reads the one in a phone's folder.
#ifndef STORAGE_PROC_MTD_H
#define STORAGE_PROC_MTD_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace calib::mtd {

struct ProcMtdEntry {
  int32_t number;
  uint32_t size;        ///< UINT32_MAX for a larger one
  uint32_t erase_size;  ///< likewise
  char name[64];
};

inline constexpr const char* kTable = "/proc/mtd";

/// What the back end looks at of the table, with the NUL.
inline constexpr size_t kBackEndWindow = 512;

/// Reads the beginning of /proc/mtd, one read of up to `size` - 1 bytes, and ends it with a NUL. Returns the
/// bytes read, or -1 and errno.
ssize_t read_proc_mtd(char* text, size_t size);

/// Takes the next entry from the text at `*cursor` and moves the cursor past its line. Lines of another form,
/// the header among them, are passed over. Returns false when the text is used up. The text is cut into lines
/// in place; a name whose closing quote is missing ends with its line.
bool next_entry(char** cursor, ProcMtdEntry* entry);

/// Takes the first entry named `partition` from a text, as next_entry() does.
bool find_entry(char* text, const char* partition, ProcMtdEntry* entry);

/// The character device of MTD number `number`.
void set_device_path(char (&path)[256], int32_t number);

}  // namespace calib::mtd

#endif
