// The NAND chip itself: what is stored, what is worn out and what breaks.
#ifndef PHONE_DEVICES_NAND_CHIP_H
#define PHONE_DEVICES_NAND_CHIP_H

#include <mtd/mtd-user.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <optional>
#include <vector>

#include "phone/calls/faults.h"
#include "phone/devices/nand_state.h"
#include "phone/virtual_phone.h"

namespace phone {

// Calls come from any thread, and one chip is in the phone at a time. Recursive, so that the kernel's side
// holds it over several calls of the chip.
extern std::recursive_mutex nand_mutex;
using NandLock = std::lock_guard<std::recursive_mutex>;

struct NandSegment;

/// The interface's calls lock `nand_mutex`; the others are made under it.
class Chip final : public Nand {
 public:
  explicit Chip(const std::filesystem::path& dir);
  ~Chip() override;
  Chip(const Chip&) = delete;
  Chip& operator=(const Chip&) = delete;

  const NandGeometry& geometry() const override { return state_.geometry; }
  bool is_bad(uint32_t block) const override {
    const NandLock lock(nand_mutex);
    return state_.blocks.at(block).bad;
  }
  void mark_bad(uint32_t block) override {
    const NandLock lock(nand_mutex);
    state_.blocks.at(block).bad = true;
    save();
  }
  std::vector<uint8_t> block_bytes(uint32_t block) const override {
    const NandLock lock(nand_mutex);
    const uint8_t* from = content_ + start_of(block);
    return {from, from + geometry().erase_size};
  }
  void set_block_bytes(uint32_t block, const std::vector<uint8_t>& bytes) override;
  unsigned erase_count(uint32_t block) const override {
    const NandLock lock(nand_mutex);
    return state_.blocks.at(block).erases;
  }
  unsigned program_count(uint32_t block) const override {
    const NandLock lock(nand_mutex);
    return state_.blocks.at(block).programs;
  }
  void add_fault(const NandFault& fault) override;
  void clear_faults() override {
    const NandLock lock(nand_mutex);
    faults_.clear();
    power_on();
  }
  void save_at_detach() override {
    const NandLock lock(nand_mutex);
    saves_at_detach_ = true;
  }
  std::vector<NandViolation> violations() const override {
    const NandLock lock(nand_mutex);
    return state_.violations;
  }

  uint64_t size() const { return uint64_t{geometry().erase_size} * geometry().blocks; }
  uint32_t page_size() const { return std::min<uint32_t>(2048, geometry().erase_size); }

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
  void save() const {
    if (!saves_at_detach_) save_nand_state(dir_, state_);
  }
  std::optional<NandFault> strike(NandFault::Op op, int64_t block);
  int program_segment(const NandSegment& part, const uint8_t* from);
  int erase_block(uint32_t block);
  void record_violation(const char* what, uint64_t at);
  bool out_of_chip(int64_t at) const { return at < 0 || static_cast<uint64_t>(at) >= size(); }

  const std::filesystem::path dir_;
  NandState state_;
  uint8_t* content_ = nullptr;
  std::vector<Armed> faults_;
  bool saves_at_detach_ = false;
};

}  // namespace phone

#endif
