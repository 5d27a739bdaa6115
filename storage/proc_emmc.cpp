#include "storage/proc_emmc.h"

#include <cstdio>
#include <cstring>

#include "common/file.h"

namespace calib::emmc {

namespace {

/// Takes `device: size erasesize "partition"` apart in place; null members for a line of another form, a name
/// without its closing quote among them.
TableEntry parse_entry(char* line) {
  char* colon = strchr(line, ':');
  if (colon == nullptr) return {};
  *colon = '\0';
  char* name = strchr(colon + 1, '"');
  if (name == nullptr) return {};
  char* closing = strchr(++name, '"');
  if (closing == nullptr) return {};
  *closing = '\0';
  return {line, name};
}

}  // namespace

bool Table::refill() {
  at_ = 0;
  filled_ = read_up_to(fd_, text_, sizeof text_);
  return filled_ > 0;
}

/// The next piece, NUL-terminated; null at the end of the table.
char* Table::next_piece() {
  size_t length = 0;
  while (length < sizeof piece_ - 1) {
    if (at_ == filled_ && !refill()) break;
    piece_[length++] = text_[at_++];
    if (piece_[length - 1] == '\n') break;
  }
  piece_[length] = '\0';
  return length > 0 ? piece_ : nullptr;
}

bool Table::find(const char* partition, TableEntry* entry) {
  while (char* line = next_piece()) {
    *entry = parse_entry(line);
    if (entry->partition != nullptr && strcmp(entry->partition, partition) == 0) return true;
  }
  return false;
}

void set_device_path(char (&path)[256], const char* device) {
  snprintf(path, sizeof path, "/dev/block/%.244s", device);
}

void set_by_name_folder(char (&path)[64], int controller) {
  snprintf(path, sizeof path, "/dev/block/platform/msm_sdcc.%d/by-name/", controller);
}

}  // namespace calib::emmc
