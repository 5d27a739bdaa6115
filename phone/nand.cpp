#include "phone/nand.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "phone/real.h"

namespace phone {
namespace fs = std::filesystem;
namespace {

using Op = NandFault::Op;
using Effect = NandFault::Effect;

constexpr uint8_t erased = 0xFF;

std::string device_name(int mtd_number) {
  return "/dev/mtd/mtd" + std::to_string(mtd_number);
}

struct Block {
  bool bad = false;
  unsigned erases = 0;
  unsigned programs = 0;
};

// ---- the chip's state file: what a person can read and change is one line a block
// -----------------------------

struct ChipState {
  NandGeometry geometry;
  std::vector<Block> blocks;
  unsigned corrected = 0;
  unsigned failed = 0;
};

void save_state(const fs::path& file, const ChipState& state) {
  std::ofstream out(file, std::ios::trunc);
  out << "# The NAND chip whose content is " << device_name(state.geometry.mtd_number).substr(1) << "\n"
      << "mtd " << state.geometry.mtd_number << "\nerase_size " << state.geometry.erase_size << "\nblocks "
      << state.geometry.blocks << "\nfactory_bad " << state.geometry.factory_bad.size();
  for (const uint32_t block : state.geometry.factory_bad) out << ' ' << block;
  out << "\necc_corrected " << state.corrected << "\necc_failed " << state.failed << "\n";
  for (size_t i = 0; i < state.blocks.size(); ++i)
    out << "block " << i << " erased " << state.blocks[i].erases << " programmed " << state.blocks[i].programs
        << (state.blocks[i].bad ? " bad" : " good") << "\n";
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
}

bool read_block_line(std::istream& line, ChipState& state) {
  size_t number = 0;
  Block block;
  std::string erased_word, programmed_word, condition;
  line >> number >> erased_word >> block.erases >> programmed_word >> block.programs >> condition;
  if (!line || number >= state.geometry.blocks || (condition != "bad" && condition != "good")) return false;
  block.bad = condition == "bad";
  state.blocks.resize(state.geometry.blocks);
  state.blocks[number] = block;
  return true;
}

bool read_state_line(const std::string& text, ChipState& state) {
  std::istringstream line(text);
  std::string key;
  if (!(line >> key) || key[0] == '#') return true;
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

ChipState read_state(const fs::path& file) {
  ChipState state;
  std::ifstream in(file);
  std::string line;
  for (int row = 1; std::getline(in, line); ++row)
    if (!read_state_line(line, state))
      throw std::runtime_error(file.string() + ":" + std::to_string(row) + ": not a chip's state: " + line);
  state.blocks.resize(state.geometry.blocks);
  return state;
}

// ---- the chip
// ---------------------------------------------------------------------------------------------------

/// The part of a transfer that lies in one block.
struct Segment {
  uint32_t block;
  uint64_t at;  // in the chip
  size_t done;  // before this part
  size_t size;
};

std::vector<Segment> segments(uint64_t at, size_t size, uint32_t erase_size) {
  std::vector<Segment> parts;
  for (size_t done = 0; done < size; done += parts.back().size) {
    const uint64_t from = at + done;
    const size_t part = std::min<size_t>(size - done, erase_size - from % erase_size);
    parts.push_back({static_cast<uint32_t>(from / erase_size), from, done, part});
  }
  return parts;
}

bool makes_sense(Op op, Effect effect) {
  switch (effect) {
    case Effect::fail:
      return true;
    case Effect::corrupt:
      return op == Op::program || op == Op::read;
    case Effect::ecc_corrected:
    case Effect::ecc_failed:
      return op == Op::read;
    case Effect::power_cut:
      return op == Op::erase || op == Op::program;
  }
  return false;
}

// Calls come from any thread, and one chip is in the phone at a time. Recursive, so that the interface's
// calls can be made of each other.
constinit std::recursive_mutex mutex;
using Lock = std::lock_guard<std::recursive_mutex>;

class Chip final : public Nand {
 public:
  explicit Chip(const fs::path& dir) : state_file_(dir / "nand"), state_(read_state(state_file_)) {
    const fs::path content = dir.string() + device_name(geometry().mtd_number);
    if (!fs::exists(content) || fs::file_size(content) != size())
      throw std::runtime_error("not the content of the NAND chip: " + content.string());
    const int fd = open(content.c_str(), O_RDWR | O_CLOEXEC);
    void* map = fd < 0 ? MAP_FAILED : mmap(nullptr, size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0) close(fd);
    if (map == MAP_FAILED) throw std::runtime_error("cannot map " + content.string());
    content_ = static_cast<uint8_t*>(map);
  }
  ~Chip() override { munmap(content_, size()); }
  Chip(const Chip&) = delete;
  Chip& operator=(const Chip&) = delete;

  const NandGeometry& geometry() const override { return state_.geometry; }
  bool is_bad(uint32_t block) const override {
    const Lock lock(mutex);
    return state_.blocks.at(block).bad;
  }
  void mark_bad(uint32_t block) override {
    const Lock lock(mutex);
    state_.blocks.at(block).bad = true;
    save();
  }
  std::vector<uint8_t> block_bytes(uint32_t block) const override {
    const Lock lock(mutex);
    const uint8_t* from = content_ + start_of(block);
    return {from, from + geometry().erase_size};
  }
  void set_block_bytes(uint32_t block, const std::vector<uint8_t>& bytes) override {
    const Lock lock(mutex);
    if (bytes.size() != geometry().erase_size) throw std::invalid_argument("a block has another size");
    std::copy(bytes.begin(), bytes.end(), content_ + start_of(block));
  }
  unsigned erase_count(uint32_t block) const override {
    const Lock lock(mutex);
    return state_.blocks.at(block).erases;
  }
  unsigned program_count(uint32_t block) const override {
    const Lock lock(mutex);
    return state_.blocks.at(block).programs;
  }
  void add_fault(const NandFault& fault) override {
    const bool no_such_block = fault.block >= static_cast<int64_t>(geometry().blocks) ||
                               (fault.op == Op::ecc_stats && fault.block >= 0);
    if (no_such_block || !makes_sense(fault.op, fault.effect))
      throw std::invalid_argument("not a fault that this chip can have");
    const Lock lock(mutex);
    faults_.push_back({fault});
  }
  void clear_faults() override {
    const Lock lock(mutex);
    faults_.clear();
    powered_ = true;
  }
  std::vector<NandViolation> violations() const override {
    const Lock lock(mutex);
    return violations_;
  }

  uint64_t size() const { return uint64_t{geometry().erase_size} * geometry().blocks; }
  uint32_t page_size() const { return std::min<uint32_t>(2048, geometry().erase_size); }
  bool powered() const { return powered_; }
  void power_on() { powered_ = true; }

  // Each returns 0 or an errno value. The ranges are within the chip.
  int read(uint64_t at, uint8_t* to, size_t size);
  int program(uint64_t at, const uint8_t* from, size_t size);
  int erase(uint64_t at, uint64_t size);
  int ask_bad(int64_t at, bool& bad);
  int mark_bad_at(int64_t at);
  int ecc_stats(mtd_ecc_stats& stats);

 private:
  struct Armed {
    NandFault fault;
    unsigned matches = 0;
  };

  uint64_t start_of(uint32_t block) const {
    static_cast<void>(state_.blocks.at(block));
    return uint64_t{block} * geometry().erase_size;
  }
  void save() const { save_state(state_file_, state_); }
  std::optional<Effect> strike(Op op, int64_t block);
  int program_segment(const Segment& part, const uint8_t* from);
  int erase_block(uint32_t block);
  bool out_of_chip(int64_t at) const { return at < 0 || static_cast<uint64_t>(at) >= size(); }

  const fs::path state_file_;
  ChipState state_;
  uint8_t* content_ = nullptr;
  std::vector<Armed> faults_;
  std::vector<NandViolation> violations_;
  bool powered_ = true;
};

// Every fault counts the operation, also when another fault strikes it.
std::optional<Effect> Chip::strike(Op op, int64_t block) {
  std::optional<Effect> effect;
  for (Armed& armed : faults_) {
    const NandFault& fault = armed.fault;
    if (fault.op != op || (fault.block >= 0 && fault.block != block)) continue;
    ++armed.matches;
    const bool due = armed.matches == fault.nth || (fault.from_then_on && armed.matches > fault.nth);
    if (due && !effect) effect = fault.effect;
  }
  if (effect == Effect::power_cut) powered_ = false;
  return effect;
}

int Chip::read(uint64_t at, uint8_t* to, size_t size) {
  for (const Segment& part : segments(at, size, geometry().erase_size)) {
    std::memcpy(to + part.done, content_ + part.at, part.size);
    const auto effect = strike(Op::read, part.block);
    if (effect == Effect::fail) return EIO;
    if (effect == Effect::corrupt) to[part.done] ^= 1;
    if (effect == Effect::ecc_corrected) ++state_.corrected;
    if (effect == Effect::ecc_failed) ++state_.failed;
    if (effect) save();
  }
  return 0;
}

int Chip::program_segment(const Segment& part, const uint8_t* from) {
  Block& block = state_.blocks[part.block];
  uint8_t* to = content_ + part.at;
  if (block.bad) violations_.push_back({"program of a bad block", part.at});
  if (std::any_of(to, to + part.size, [](uint8_t byte) { return byte != erased; }))
    violations_.push_back({"program of a block that was not erased", part.at});
  const auto effect = strike(Op::program, part.block);
  const bool half_done = effect == Effect::fail || effect == Effect::power_cut;
  const size_t programmed = half_done ? part.size / 2 : part.size;
  // A cell that was discharged stays so until its block is erased.
  for (size_t i = 0; i < programmed; ++i) to[i] = static_cast<uint8_t>(to[i] & from[i]);
  if (effect == Effect::corrupt) to[0] ^= 1;
  ++block.programs;
  return half_done ? EIO : 0;
}

int Chip::program(uint64_t at, const uint8_t* from, size_t size) {
  if (at % page_size() != 0 || size % page_size() != 0) {
    violations_.push_back({"unaligned write", at});
    return EINVAL;
  }
  int error = 0;
  for (const Segment& part : segments(at, size, geometry().erase_size)) {
    error = program_segment(part, from + part.done);
    if (error != 0) break;
  }
  save();
  return error;
}

int Chip::erase_block(uint32_t block) {
  if (state_.blocks[block].bad) {
    violations_.push_back({"erase of a bad block", start_of(block)});
    return EIO;
  }
  const bool half_done = strike(Op::erase, block).has_value();
  std::fill_n(content_ + start_of(block), half_done ? geometry().erase_size / 2 : geometry().erase_size,
              erased);
  ++state_.blocks[block].erases;
  return half_done ? EIO : 0;
}

int Chip::erase(uint64_t at, uint64_t length) {
  const uint32_t erase_size = geometry().erase_size;
  if (at % erase_size != 0 || length % erase_size != 0) {
    violations_.push_back({"unaligned erase", at});
    return EINVAL;
  }
  if (at >= size() || length > size() - at) {
    violations_.push_back({"erase beyond the end", at});
    return EINVAL;
  }
  int error = 0;
  for (uint64_t done = 0; done < length && error == 0; done += erase_size)
    error = erase_block(static_cast<uint32_t>((at + done) / erase_size));
  save();
  return error;
}

int Chip::ask_bad(int64_t at, bool& bad) {
  if (out_of_chip(at)) return EINVAL;
  const int64_t block = at / geometry().erase_size;
  if (strike(Op::ask_bad, block)) return EIO;
  bad = state_.blocks[static_cast<size_t>(block)].bad;
  return 0;
}

int Chip::mark_bad_at(int64_t at) {
  if (out_of_chip(at)) return EINVAL;
  mark_bad(static_cast<uint32_t>(at / geometry().erase_size));
  return 0;
}

int Chip::ecc_stats(mtd_ecc_stats& stats) {
  if (strike(Op::ecc_stats, -1)) return EIO;
  const auto bad =
      std::count_if(state_.blocks.begin(), state_.blocks.end(), [](const Block& block) { return block.bad; });
  stats = {.corrected = state_.corrected,
           .failed = state_.failed,
           .badblocks = static_cast<uint32_t>(bad),
           .bbtblocks = 0};
  return 0;
}

constinit Chip* inserted = nullptr;

// ---- what the kernel makes of it
// ---------------------------------------------------------------------------------

/// Runs `use` on the chip; its errno value becomes the call's failure, and success leaves errno alone.
template <typename Use>
ssize_t with_chip(ssize_t result, Use&& use) {
  int error = 0;
  {
    const ErrnoKeeper keeper;
    const Lock lock(mutex);
    try {
      error = inserted == nullptr || !inserted->powered() ? EIO : use(*inserted);
    } catch (const std::exception&) {
      error = EIO;
    }
  }
  if (error == 0) return result;
  errno = error;
  return -1;
}

bool open_for(int fd, int other_mode) {
  return (real::fcntl(fd, F_GETFL) & O_ACCMODE) != other_mode;
}

/// A read or write: `move(chip, from where, how much of it is in the chip)` does it, and the position
/// follows.
template <typename Move>
ssize_t transfer(int fd, size_t size, const off_t* offset, int refused_mode, Move&& move) {
  const Lock lock(mutex);
  const off_t at = offset != nullptr ? *offset : real::lseek(fd, 0, SEEK_CUR);
  size_t part = 0;
  const ssize_t result = with_chip(0, [&](Chip& chip) {
    if (!open_for(fd, refused_mode)) return EBADF;
    if (at < 0) return EINVAL;
    const auto from = static_cast<uint64_t>(at);
    part = std::min<size_t>(size, chip.size() - std::min(chip.size(), from));
    return move(chip, from, part);
  });
  if (result < 0) return result;
  if (offset == nullptr) real::lseek(fd, at + static_cast<off_t>(part), SEEK_SET);
  return static_cast<ssize_t>(part);
}

int erase_range(Chip& chip, int fd, uint64_t start, uint64_t length) {
  return open_for(fd, O_RDONLY) ? chip.erase(start, length) : EPERM;
}

template <typename Request>
Request argument_of(const void* argument) {
  Request request;
  std::memcpy(&request, argument, sizeof request);
  return request;
}

int give_info(const Chip& chip, void* argument) {
  mtd_info_user info = {};
  info.type = MTD_NANDFLASH;
  info.flags = MTD_CAP_NANDFLASH;
  info.size = static_cast<uint32_t>(chip.size());
  info.erasesize = chip.geometry().erase_size;
  info.writesize = chip.page_size();
  info.oobsize = chip.page_size() / 32;
  std::memcpy(argument, &info, sizeof info);
  return 0;
}

int give_region(const Chip& chip, void* argument) {
  auto region = argument_of<region_info_user>(argument);
  if (region.regionindex != 0) return EINVAL;
  region.offset = 0;
  region.erasesize = chip.geometry().erase_size;
  region.numblocks = chip.geometry().blocks;
  std::memcpy(argument, &region, sizeof region);
  return 0;
}

int answer(Chip& chip, int fd, unsigned long request, void* argument, bool& bad) {
  switch (request) {
    case MEMGETINFO:
      return give_info(chip, argument);
    case MEMGETREGIONCOUNT: {
      const int one = 1;
      std::memcpy(argument, &one, sizeof one);
      return 0;
    }
    case MEMGETREGIONINFO:
      return give_region(chip, argument);
    case MEMERASE: {
      const auto range = argument_of<erase_info_user>(argument);
      return erase_range(chip, fd, range.start, range.length);
    }
    case MEMERASE64: {
      const auto range = argument_of<erase_info_user64>(argument);
      return erase_range(chip, fd, range.start, range.length);
    }
    case MEMGETBADBLOCK:
      return chip.ask_bad(argument_of<int64_t>(argument), bad);
    case MEMSETBADBLOCK:
      return open_for(fd, O_RDONLY) ? chip.mark_bad_at(argument_of<int64_t>(argument)) : EPERM;
    case ECCGETSTATS: {
      mtd_ecc_stats stats = {};
      const int error = chip.ecc_stats(stats);
      if (error == 0) std::memcpy(argument, &stats, sizeof stats);
      return error;
    }
    default:
      return ENOTTY;
  }
}

}  // namespace

void create_nand(const fs::path& dir, const NandGeometry& geometry) {
  if (geometry.erase_size == 0 || geometry.blocks == 0)
    throw std::invalid_argument("a NAND chip without blocks");
  ChipState state{.geometry = geometry, .blocks = std::vector<Block>(geometry.blocks)};
  for (const uint32_t block : geometry.factory_bad) state.blocks.at(block).bad = true;
  const fs::path content = dir.string() + device_name(geometry.mtd_number);
  fs::create_directories(content.parent_path());
  std::ofstream out(content, std::ios::binary);
  const std::string block(geometry.erase_size, static_cast<char>(erased));
  for (uint32_t i = 0; i < geometry.blocks; ++i) out << block;
  if (!out.flush()) throw std::runtime_error("cannot write " + content.string());
  save_state(dir / "nand", state);

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

std::unique_ptr<Nand> open_nand(const fs::path& dir) {
  if (!fs::exists(dir / "nand")) return nullptr;
  return std::make_unique<Chip>(dir);
}

void insert_nand(Nand* nand) {
  const Lock lock(mutex);
  inserted = static_cast<Chip*>(nand);
}

bool is_nand_path(const std::string& phone_path) {
  const Lock lock(mutex);
  return inserted != nullptr && phone_path == device_name(inserted->geometry().mtd_number);
}

bool nand_powered() {
  const Lock lock(mutex);
  return inserted == nullptr || inserted->powered();
}

void power_nand_on() {
  const Lock lock(mutex);
  if (inserted != nullptr) inserted->power_on();
}

ssize_t nand_read(int fd, void* buffer, size_t size, const off_t* offset) {
  return transfer(fd, size, offset, O_WRONLY, [&](Chip& chip, uint64_t at, size_t part) {
    return chip.read(at, static_cast<uint8_t*>(buffer), part);
  });
}

ssize_t nand_write(int fd, const void* buffer, size_t size, const off_t* offset) {
  return transfer(fd, size, offset, O_RDONLY, [&](Chip& chip, uint64_t at, size_t part) {
    if (at >= chip.size()) return ENOSPC;
    if (part == 0) return 0;
    return chip.program(at, static_cast<const uint8_t*>(buffer), part);
  });
}

int nand_ioctl(int fd, unsigned long request, void* argument) {
  bool bad = false;
  const ssize_t result = with_chip(
      0, [&](Chip& chip) { return argument == nullptr ? EFAULT : answer(chip, fd, request, argument, bad); });
  return result == 0 && bad ? 1 : static_cast<int>(result);
}

}  // namespace phone
