#include "phone/devices/nand_chip.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace phone {
namespace fs = std::filesystem;

constinit std::recursive_mutex nand_mutex;

/// The part of a transfer that lies in one block.
struct NandSegment {
  uint32_t block;
  uint64_t at;  // in the chip
  size_t done;  // before this part
  size_t size;
};

namespace {

using Op = NandFault::Op;
using Effect = NandFault::Effect;

constexpr uint8_t kErased = 0xFF;

std::vector<NandSegment> segments(uint64_t at, size_t size, uint32_t erase_size) {
  std::vector<NandSegment> parts;
  for (size_t done = 0; done < size; done += parts.back().size) {
    const uint64_t from = at + done;
    const size_t part = std::min<size_t>(size - done, erase_size - from % erase_size);
    parts.push_back({static_cast<uint32_t>(from / erase_size), from, done, part});
  }
  return parts;
}

/// `byte` as of NandFault.
void flip_bit(uint8_t* bytes, size_t size, int64_t byte) {
  const auto count = static_cast<int64_t>(size);
  bytes[std::clamp<int64_t>(byte < 0 ? count + byte : byte, 0, count - 1)] ^= 1;
}

/// How much of an erase or program that breaks off is done.
size_t done_before(const NandFault& fault, size_t size) {
  return fault.done < 0 ? size / 2 : std::min(size, static_cast<size_t>(fault.done));
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

}  // namespace

Chip::Chip(const fs::path& dir) : dir_(dir), state_(read_nand_state(dir)) {
  const fs::path content = dir.string() + nand_device_name(geometry());
  if (!fs::exists(content) || fs::file_size(content) != size()) {
    throw std::runtime_error("not the content of the NAND chip: " + content.string());
  }
  const int fd = open(content.c_str(), O_RDWR | O_CLOEXEC);
  void* map = fd < 0 ? MAP_FAILED : mmap(nullptr, size(), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (fd >= 0) close(fd);
  if (map == MAP_FAILED) throw std::runtime_error("cannot map " + content.string());
  content_ = static_cast<uint8_t*>(map);
}

Chip::~Chip() {
  if (saves_at_detach_) {
    try {
      save_nand_state(dir_, state_);
    } catch (const std::exception&) {  // the folder is gone, and the chip with it
    }
  }
  munmap(content_, size());
}

void Chip::set_block_bytes(uint32_t block, const std::vector<uint8_t>& bytes) {
  const NandLock lock(nand_mutex);
  if (bytes.size() != geometry().erase_size) throw std::invalid_argument("a block has another size");
  std::copy(bytes.begin(), bytes.end(), content_ + start_of(block));
}

void Chip::add_fault(const NandFault& fault) {
  const bool no_such_block = fault.block >= static_cast<int64_t>(geometry().blocks) ||
                             (fault.op == Op::ecc_stats && fault.block >= 0);
  if (no_such_block || !makes_sense(fault.op, fault.effect)) {
    throw std::invalid_argument("not a fault that this chip can have");
  }
  const NandLock lock(nand_mutex);
  faults_.push_back({fault});
}

void Chip::record_violation(const char* what, uint64_t at) {
  state_.violations.push_back({what, at});
  save();
}

// Every fault counts the operation, also when another fault strikes it.
std::optional<NandFault> Chip::strike(Op op, int64_t block) {
  std::optional<NandFault> striking;
  for (Armed& armed : faults_) {
    const NandFault& fault = armed.fault;
    if (fault.op != op || (fault.block >= 0 && fault.block != block)) continue;
    ++armed.matches;
    const bool due = armed.matches == fault.nth || (fault.from_then_on && armed.matches > fault.nth);
    if (due && !striking) striking = fault;
  }
  if (striking && striking->effect == Effect::power_cut) cut_power();
  return striking;
}

int Chip::read(uint64_t at, uint8_t* to, size_t size) {
  for (const NandSegment& part : segments(at, size, geometry().erase_size)) {
    std::memcpy(to + part.done, content_ + part.at, part.size);
    const auto fault = strike(Op::read, part.block);
    if (!fault) continue;
    if (fault->effect == Effect::fail) return EIO;
    if (fault->effect == Effect::corrupt) flip_bit(to + part.done, part.size, fault->byte);
    if (fault->effect == Effect::ecc_corrected) ++state_.corrected;
    if (fault->effect == Effect::ecc_failed) ++state_.failed;
    save();
  }
  return 0;
}

int Chip::program_segment(const NandSegment& part, const uint8_t* from) {
  NandBlock& block = state_.blocks[part.block];
  uint8_t* to = content_ + part.at;
  if (block.bad) record_violation("program of a bad block", part.at);
  if (std::any_of(to, to + part.size, [](uint8_t byte) { return byte != kErased; })) {
    record_violation("program of a block that was not erased", part.at);
  }
  const auto fault = strike(Op::program, part.block);
  const bool corrupts = fault && fault->effect == Effect::corrupt;
  const bool breaks_off = fault && !corrupts;
  const size_t programmed = breaks_off ? done_before(*fault, part.size) : part.size;
  // A cell that was discharged stays so until its block is erased.
  for (size_t i = 0; i < programmed; ++i) to[i] = static_cast<uint8_t>(to[i] & from[i]);
  if (corrupts) flip_bit(to, part.size, fault->byte);
  ++block.programs;
  return breaks_off ? EIO : 0;
}

int Chip::program(uint64_t at, const uint8_t* from, size_t size) {
  if (at % page_size() != 0 || size % page_size() != 0) {
    record_violation("unaligned write", at);
    return EINVAL;
  }
  int error = 0;
  for (const NandSegment& part : segments(at, size, geometry().erase_size)) {
    error = program_segment(part, from + part.done);
    if (error != 0) break;
  }
  save();
  return error;
}

int Chip::erase_block(uint32_t block) {
  if (state_.blocks[block].bad) {
    record_violation("erase of a bad block", start_of(block));
    return EIO;
  }
  const auto fault = strike(Op::erase, block);
  const size_t size = geometry().erase_size;
  std::fill_n(content_ + start_of(block), fault ? done_before(*fault, size) : size, kErased);
  ++state_.blocks[block].erases;
  return fault ? EIO : 0;
}

int Chip::erase(uint64_t at, uint64_t length) {
  const uint32_t erase_size = geometry().erase_size;
  if (at % erase_size != 0 || length % erase_size != 0) {
    record_violation("unaligned erase", at);
    return EINVAL;
  }
  if (at >= size() || length > size() - at) {
    record_violation("erase beyond the end", at);
    return EINVAL;
  }
  int error = 0;
  for (uint64_t done = 0; done < length && error == 0; done += erase_size) {
    error = erase_block(static_cast<uint32_t>((at + done) / erase_size));
  }
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
  const auto bad = std::count_if(state_.blocks.begin(), state_.blocks.end(),
                                 [](const NandBlock& block) { return block.bad; });
  stats = {.corrected = state_.corrected,
           .failed = state_.failed,
           .badblocks = static_cast<uint32_t>(bad),
           .bbtblocks = 0};
  return 0;
}

}  // namespace phone
