// A phone that is nothing but memory, for fuzzers: the library's system calls, properties and log end here, and no file
// of the host is touched. Linked in place of phone_linked.
//
// While the phone is on, every path is the phone's. What is not there does not open. Nothing can be written: an attempt
// is counted.
#ifndef FUZZ_PHONE_IN_MEMORY_H
#define FUZZ_PHONE_IN_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace fuzz {

struct File {
  std::string_view path;
  uint8_t* bytes;
  size_t room;
  size_t size;
  bool exists;
};

struct Property {
  const char* name;
  char value[92];
  bool exists;
};

/// A raw NAND chip behind every /dev/mtd/mtdN, its content the partition's bytes. A bit of a mask stands for a block.
struct Chip {
  uint32_t erase_size;
  uint32_t bad;
  uint32_t not_askable;  ///< whether it is bad
  uint32_t unreadable;
  uint32_t ecc_failing;
  bool has_ecc_counters;
};

/// The nth system call of a pass fails, or moves fewer bytes.
struct CallFault {
  unsigned nth;
  int error;  ///< 0: `transfer` holds
  size_t transfer;
};

struct Phone {
  bool is_on;
  bool has_block_device;
  unsigned log_mask;
  Chip chip;
  std::span<const CallFault> faults;

  // Of a pass.
  unsigned calls;
  unsigned struck;   ///< faults
  unsigned written;  ///< attempts to write, remove, erase or change something
  bool used_chip;    ///< a device was read that is not a block device
  size_t log_size;
};
extern Phone phone;

inline constexpr const char* kPartition = "/dev/block/";

/// Every file that the library has a name for; the last one is the partition.
std::span<File> files();
File& file_at(std::string_view path);
std::span<Property> properties();

/// No file, no property, no fault; the partition as it was at first.
void new_phone();
/// The file is there with `size` bytes, most of which should be set.
void create(File& file, size_t size);
/// Bytes [from, to) of the partition were changed; new_phone() puts them back.
void partition_changed(size_t from, size_t to);
/// The partition as it is where nothing but changes counts: every other byte is `blank`.
std::vector<uint8_t> changes_of_partition(uint8_t blank);

void begin_pass();
size_t open_descriptors();
std::string_view log_text();

}  // namespace fuzz

#endif
