#include "storage/mtd_partitions.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "awb_calibration/storage.h"
#include "storage/mtd_log.h"
#include "storage/proc_mtd.h"

namespace {

using calib::mtd::log_module;
using calib::mtd::ProcMtdEntry;

constexpr int32_t kTableEntries = 32;
constexpr size_t kProcMtdLimit = 2048;  // bytes of /proc/mtd that are looked at, with the NUL

static_assert(sizeof(mtd_partition) == 280);

struct PartitionTable {
  mtd_partition* partitions;  // kTableEntries of them, indexed by MTD number; null until the first scan
  int32_t count;              // entries filled by the last scan; -1 after a failed one
};

constinit PartitionTable g_mtd_state{nullptr, 0};

int32_t out_of_memory() {
  errno = ENOMEM;
  return -1;
}

int32_t allocate_table() {
  auto* table = static_cast<mtd_partition*>(calloc(kTableEntries, sizeof(mtd_partition)));
  if (table == nullptr) return out_of_memory();
  for (int32_t i = 0; i < kTableEntries; ++i) table[i].index = -1;
  g_mtd_state.partitions = table;
  return 0;
}

/// Fills the entry of the parsed MTD number. A name that was there before is not freed: the caller of the
/// scan may be holding it.
int32_t fill_entry(const ProcMtdEntry& parsed) {
  const size_t size = strlen(parsed.name) + 1;
  auto* name = static_cast<char*>(malloc(size));
  if (name == nullptr) return out_of_memory();
  memcpy(name, parsed.name, size);

  mtd_partition& entry = g_mtd_state.partitions[parsed.number];
  entry.index = parsed.number;
  entry.size = parsed.size;
  entry.erase_size = parsed.erase_size;
  entry.name = name;
  return 0;
}

/// Returns the number of entries filled, or -1.
int32_t fill_table() {
  char text[kProcMtdLimit] = {};
  if (calib::mtd::read_proc_mtd(text, sizeof text) < 0) return -1;
  int32_t count = 0;
  char* cursor = text;
  for (ProcMtdEntry entry{}; calib::mtd::next_entry(&cursor, &entry);) {
    if (entry.number < 0 || entry.number >= kTableEntries) continue;
    if (fill_entry(entry) != 0) return -1;
    ++count;
  }
  return count;
}

}  // namespace

void calib::mtd::drop_partition_table() {
  g_mtd_state.partitions = nullptr;
}

int32_t mtd_scan_partitions(void) {
  LOGI("g_mtd_state.partitions %x\n",
       static_cast<unsigned>(reinterpret_cast<uintptr_t>(g_mtd_state.partitions)));
  if (g_mtd_state.partitions == nullptr && allocate_table() != 0) return -1;
  g_mtd_state.count = fill_table();
  return g_mtd_state.count;
}

mtd_partition* mtd_find_partition_by_name(const char* name) {
  if (name == nullptr) return nullptr;

  mtd_scan_partitions();
  if (g_mtd_state.partitions == nullptr) return nullptr;
  for (int32_t i = 0; i < kTableEntries; ++i) {
    mtd_partition& entry = g_mtd_state.partitions[i];
    if (entry.index >= 0 && entry.name != nullptr && strcmp(entry.name, name) == 0) return &entry;
  }
  return nullptr;
}
