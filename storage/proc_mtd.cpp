#include "storage/proc_mtd.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "common/file.h"
#include "common/uninterrupted.h"

namespace calib::mtd {

namespace {

uint32_t saturated(unsigned long long value) {
  return static_cast<uint32_t>(std::min<unsigned long long>(value, UINT32_MAX));
}

bool parse_line(const char* line, ProcMtdEntry* entry) {
  // Read wide, so that a number that does not fit is seen for what it is: scanned into 32 bits it would be
  // undefined, and in practice pass for another, smaller one.
  long long number = -1;
  unsigned long long size = 0;
  unsigned long long block_size = 0;
  if (sscanf(line, "mtd%lld: %llx %llx \"%63[^\"]", &number, &size, &block_size, entry->name) != 4) {
    return false;
  }
  entry->number = static_cast<int32_t>(number);
  entry->size = saturated(size);
  entry->erase_size = saturated(block_size);
  return entry->number == number;
}

}  // namespace

ssize_t read_proc_mtd(char* text, size_t size) {
  const Descriptor file(open_for_reading(kTable));
  if (!file.is_open()) return -1;
  const ssize_t length = uninterrupted([&] { return read(file.get(), text, size - 1); });
  text[std::max<ssize_t>(length, 0)] = '\0';
  return length;
}

bool next_entry(char** cursor, ProcMtdEntry* entry) {
  while (**cursor != '\0') {
    char* line = *cursor;
    *cursor += strcspn(line, "\n");
    if (**cursor == '\n') *(*cursor)++ = '\0';
    if (parse_line(line, entry)) return true;
  }
  return false;
}

bool find_entry(char* text, const char* partition, ProcMtdEntry* entry) {
  while (next_entry(&text, entry)) {
    if (strcmp(entry->name, partition) == 0) return true;
  }
  return false;
}

void set_device_path(char (&path)[256], int32_t number) {
  snprintf(path, sizeof path, "/dev/mtd/mtd%d", number);
}

}  // namespace calib::mtd
