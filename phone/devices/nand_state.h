// What a NAND chip remembers besides its content, in the readable file <dir>/nand.
#ifndef PHONE_DEVICES_NAND_STATE_H
#define PHONE_DEVICES_NAND_STATE_H

#include <filesystem>
#include <string>
#include <vector>

#include "phone/virtual_phone.h"

namespace phone {

struct NandBlock {
  bool bad = false;
  unsigned erases = 0;
  unsigned programs = 0;
};

struct NandState {
  NandGeometry geometry;
  std::vector<NandBlock> blocks;
  unsigned corrected = 0;
  unsigned failed = 0;
  std::vector<NandViolation> violations = {};
};

/// The chip's device, "/dev/mtd/mtd3"; in the phone's folder this is the file with its content.
std::string nand_device_name(const NandGeometry& geometry);

/// Writes a fresh chip and the kernel's list of partitions into a phone's folder.
void create_nand(const std::filesystem::path& dir, const NandGeometry& geometry);

bool has_nand(const std::filesystem::path& dir);
void save_nand_state(const std::filesystem::path& dir, const NandState& state);
NandState read_nand_state(const std::filesystem::path& dir);

}  // namespace phone

#endif
