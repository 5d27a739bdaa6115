#include "phone/devices/nand_state.h"

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace phone {
namespace fs = std::filesystem;
namespace {

fs::path state_file(const fs::path& dir) {
  return dir / "nand";
}

bool read_block_line(std::istream& line, NandState& state) {
  size_t number = 0;
  NandBlock block;
  std::string erased_word, programmed_word, condition;
  line >> number >> erased_word >> block.erases >> programmed_word >> block.programs >> condition;
  if (!line || number >= state.geometry.blocks || (condition != "bad" && condition != "good")) return false;
  block.bad = condition == "bad";
  state.blocks.resize(state.geometry.blocks);
  state.blocks[number] = block;
  return true;
}

bool read_state_line(const std::string& text, NandState& state) {
  std::istringstream line(text);
  std::string key;
  if (!(line >> key) || key[0] == '#') return true;
  if (key == "violation") {
    NandViolation violation = {};
    const bool read = line >> violation.offset && std::getline(line >> std::ws, violation.what);
    state.violations.push_back(violation);
    return read;
  }
  if (key == "block") return read_block_line(line, state);
  if (key == "factory_bad") {
    size_t count = 0;
    line >> count;
    for (uint32_t block = 0; count > 0 && line >> block; --count) state.geometry.factory_bad.push_back(block);
    return count == 0;
  }
  const std::map<std::string_view, uint32_t*> numbers = {{"erase_size", &state.geometry.erase_size},
                                                         {"blocks", &state.geometry.blocks},
                                                         {"ecc_corrected", &state.corrected},
                                                         {"ecc_failed", &state.failed}};
  if (key == "mtd") return static_cast<bool>(line >> state.geometry.mtd_number);
  const auto found = numbers.find(key);
  return found != numbers.end() && line >> *found->second;
}

/// In place: a file that is emptied first makes some file systems wait for the disk, here at every erase.
void write_over(const fs::path& file, const std::string& text) {
  std::fstream out(file, fs::exists(file) ? std::ios::in | std::ios::out : std::ios::out);
  out << text;
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
  fs::resize_file(file, text.size());
}

void list_partitions(const fs::path& dir, const NandGeometry& geometry) {
  const uint64_t size = uint64_t{geometry.erase_size} * geometry.blocks;
  std::map<int, std::pair<uint64_t, const char*>> partitions = {{0, {0x40000, "misc"}},
                                                                {1, {0x500000, "recovery"}},
                                                                {2, {0x280000, "boot"}},
                                                                {4, {0xC800000, "system"}}};
  partitions[geometry.mtd_number] = {size, "mfg"};
  fs::create_directories(dir / "proc");
  std::ofstream table(dir / "proc/mtd");
  table << "dev:    size   erasesize  name\n";
  for (const auto& [number, partition] : partitions) {
    char line[64];
    std::snprintf(line, sizeof line, "mtd%d: %08llx %08x \"%s\"\n", number,
                  static_cast<unsigned long long>(partition.first), geometry.erase_size, partition.second);
    table << line;
  }
}

}  // namespace

std::string nand_device_name(const NandGeometry& geometry) {
  return "/dev/mtd/mtd" + std::to_string(geometry.mtd_number);
}

void create_nand(const fs::path& dir, const NandGeometry& geometry) {
  if (geometry.erase_size == 0 || geometry.blocks == 0) {
    throw std::invalid_argument("a NAND chip without blocks");
  }
  NandState state{.geometry = geometry, .blocks = std::vector<NandBlock>(geometry.blocks)};
  for (const uint32_t block : geometry.factory_bad) state.blocks.at(block).bad = true;
  const fs::path content = dir.string() + nand_device_name(geometry);
  fs::create_directories(content.parent_path());
  std::ofstream out(content, std::ios::binary);
  const std::string block(geometry.erase_size, '\xFF');
  for (uint32_t i = 0; i < geometry.blocks; ++i) out << block;
  if (!out.flush()) throw std::runtime_error("cannot write " + content.string());
  save_nand_state(dir, state);
  list_partitions(dir, geometry);
}

bool has_nand(const fs::path& dir) {
  return fs::exists(state_file(dir));
}

void save_nand_state(const fs::path& dir, const NandState& state) {
  std::ostringstream out;
  out << "# The NAND chip whose content is " << nand_device_name(state.geometry).substr(1) << "\n"
      << "mtd " << state.geometry.mtd_number << "\nerase_size " << state.geometry.erase_size << "\nblocks "
      << state.geometry.blocks << "\nfactory_bad " << state.geometry.factory_bad.size();
  for (const uint32_t block : state.geometry.factory_bad) out << ' ' << block;
  out << "\necc_corrected " << state.corrected << "\necc_failed " << state.failed << "\n";
  for (size_t i = 0; i < state.blocks.size(); ++i) {
    out << "block " << i << " erased " << state.blocks[i].erases << " programmed " << state.blocks[i].programs
        << (state.blocks[i].bad ? " bad" : " good") << "\n";
  }
  for (const NandViolation& violation : state.violations) {
    out << "violation " << violation.offset << ' ' << violation.what << "\n";
  }
  write_over(state_file(dir), out.str());
}

NandState read_nand_state(const fs::path& dir) {
  const fs::path file = state_file(dir);
  NandState state;
  std::ifstream in(file);
  std::string line;
  for (int row = 1; std::getline(in, line); ++row) {
    if (!read_state_line(line, state)) {
      throw std::runtime_error(file.string() + ":" + std::to_string(row) + ": not a chip's state: " + line);
    }
  }
  state.blocks.resize(state.geometry.blocks);
  return state;
}

}  // namespace phone
