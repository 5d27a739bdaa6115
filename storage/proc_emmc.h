// The eMMC partitions of a phone: the kernel's table /proc/emmc, and the paths that serve where it has no entry.
// Without state and without log lines, so that awbcal searches a phone's folder just as emmc_open() searches the
// phone.
#ifndef STORAGE_PROC_EMMC_H
#define STORAGE_PROC_EMMC_H

#include <cstddef>

namespace calib::emmc {

inline constexpr const char* kTable = "/proc/emmc";

struct TableEntry {
  const char* device;  ///< "mmcblk0p6"
  const char* partition;
};

/// The entries of a table, read from a descriptor in pieces as fgets() with a 255-byte buffer cuts it: up to a
/// newline or 254 characters.
class Table {
 public:
  explicit Table(int fd) : fd_(fd) {}

  /// Takes the next entry named `partition`; the texts are valid until the next call. Pieces of another form
  /// are passed over. Returns false at the end of the table.
  bool find(const char* partition, TableEntry* entry);

 private:
  char* next_piece();
  bool refill();

  int fd_;
  size_t at_ = 0;
  size_t filled_ = 0;
  char text_[512] = {};
  char piece_[255] = {};
};

/// The block device of a table's entry; a longer name is cut.
void set_device_path(char (&path)[256], const char* device);

/// Links to partitions by their names stand in numbered folders, one a host controller: 0 to this.
inline constexpr int kLastController = 10;

/// Ends in a slash; the partition's name follows.
void set_by_name_folder(char (&path)[64], int controller);

/// The calibration partition's place on phones that list it nowhere.
inline constexpr const char* kFixedDevice = "/dev/block/mmcblk0p6";

}  // namespace calib::emmc

#endif
