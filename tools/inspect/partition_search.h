// Which file of a phone is the calibration partition: the library's own search, in the files of a folder.
#ifndef INSPECT_PARTITION_SEARCH_H
#define INSPECT_PARTITION_SEARCH_H

#include <optional>

#include "inspect/file_tree.h"
#include "inspect/phone.h"

namespace awbcal {

struct FoundPartition {
  std::string path = {};      ///< in the tree; empty: none was found
  bool is_not_known = false;  ///< none was found, and what could have led to one cannot be read
  std::vector<std::string> notes = {};
};

/// By /proc/emmc, the links by name, the fixed device and /proc/mtd, in the library's order; of a folder without
/// a device, the names that people give to what they pull.
FoundPartition find_partition(const FileTree& tree);

/// The devices that those tables and links name, whether they are in the tree or not, as paths in it: the first is
/// opened, and the next where that fails. `is_certain`: no link was left out that could name another one.
std::vector<std::string> named_devices(const FileTree& tree, bool is_certain);

/// Whether a file of a phone says where the partition is, or what of the phone can be read: in places and sizes.
bool is_table(const std::string& path);

/// The library's links to the partition by its name, as paths in the tree.
std::vector<std::string> partition_links();

/// The entry of /proc/mtd, which the partition has on raw NAND.
struct MtdPartition {
  std::string device;  ///< in the tree
  int32_t number;
  uint32_t size;
  uint32_t erase_size;
};
std::optional<MtdPartition> mtd_partition(const FileTree& tree);

/// The good blocks of a chip, by its state beside the phone; of a chip without one, none are told apart.
void take_good_blocks(const FileTree& tree, PhoneFile& file);

}  // namespace awbcal

#endif
