// What a NAND chip with faults and the documented block handling make of a transfer, worked out a second
// time.
//
// The oracle of the NAND tests: it shares no code with the library, and instead of walking a file position it
// works out which logical blocks a transfer touches and looks a physical one up for each.
#ifndef TESTS_SUPPORT_NAND_MODEL_H
#define TESTS_SUPPORT_NAND_MODEL_H

#include <algorithm>
#include <optional>

#include "tests/support/support.h"

namespace support {

class NandModel {
 public:
  using Op = phone::NandFault::Op;
  using Effect = phone::NandFault::Effect;
  struct Block {
    Bytes bytes;
    bool bad = false;
  };

  explicit NandModel(std::vector<Block> chip) : chip_(std::move(chip)), block_size_(chip_[0].bytes.size()) {}

  void add_fault(const phone::NandFault& fault) { faults_.push_back({fault, 0}); }
  const std::vector<Block>& chip() const { return chip_; }

  /// The bytes, or nothing when the transfer fails.
  std::optional<Bytes> read(size_t offset, size_t length) {
    Bytes all;
    size_t place = 0;
    for (size_t i = 0; i * block_size_ < offset + length; ++i) {
      const auto found = next_usable(place);
      if (!found) return std::nullopt;
      all.insert(all.end(), found->bytes.begin(), found->bytes.end());
      place = found->place + 1;
    }
    return Bytes(all.begin() + static_cast<long>(offset), all.begin() + static_cast<long>(offset + length));
  }

  bool write(size_t offset, const Bytes& data) {
    const size_t end = offset + data.size();
    size_t place = 0;
    for (size_t start = 0; start < end; start += block_size_) {
      const bool whole = offset <= start && start + block_size_ <= end;
      Bytes content(block_size_);
      size_t after_read = place;
      if (!whole) {
        const auto found = next_usable(place);
        if (!found) return false;
        content = found->bytes;
        after_read = found->place + 1;
      }
      if (start + block_size_ <= offset) {
        place = after_read;
        continue;
      }
      for (size_t at = std::max(start, offset); at < std::min(start + block_size_, end); ++at) {
        content[at - start] = data[at - offset];
      }
      const auto written = put(place, content);
      if (!written) return false;
      place = *written + 1;
    }
    return true;
  }

 private:
  struct Found {
    size_t place;
    Bytes bytes;
  };

  /// What a read accepts at or after `place`.
  std::optional<Found> next_usable(size_t place) {
    if (!ecc_answers()) return std::nullopt;
    const unsigned before = ecc_failed_;
    for (; place < chip_.size(); ++place) {
      const auto bytes = read_block(place);
      if (!bytes) continue;
      if (!ecc_answers()) return std::nullopt;
      if (ecc_failed_ != before || answers_bad(place) != 0) continue;
      if (std::any_of(bytes->begin(), bytes->end(), [](uint8_t byte) { return byte != 0; })) {
        return Found{place, *bytes};
      }
    }
    return std::nullopt;
  }

  /// Where `content` ends up at or after `place`.
  std::optional<size_t> put(size_t place, const Bytes& content) {
    for (; place < chip_.size(); ++place) {
      if (answers_bad(place) == 1) continue;
      for (int attempt = 0; attempt < 2; ++attempt) {
        if (!erase(place)) continue;
        program(place, content);
        if (read_block(place) == content) return place;
      }
      erase(place);
    }
    return std::nullopt;
  }

  // ---- the chip -------------------------------------------------------------------------------------------

  std::optional<Effect> strike(Op op, size_t block) {
    std::optional<Effect> effect;
    for (auto& [fault, seen] : faults_) {
      if (fault.op != op || (fault.block >= 0 && fault.block != static_cast<int64_t>(block))) continue;
      const bool due = ++seen == fault.nth || (fault.from_then_on && seen > fault.nth);
      if (due && !effect) effect = fault.effect;
    }
    if (effect == Effect::power_cut) powered_ = false;
    return effect;
  }

  bool ecc_answers() { return powered_ && !strike(Op::ecc_stats, 0); }

  int answers_bad(size_t block) {
    if (!powered_ || strike(Op::ask_bad, block)) return -1;
    return chip_[block].bad ? 1 : 0;
  }

  std::optional<Bytes> read_block(size_t block) {
    const auto effect = powered_ ? strike(Op::read, block) : Effect::fail;
    if (effect == Effect::fail) return std::nullopt;
    Bytes bytes = chip_[block].bytes;
    if (effect == Effect::corrupt) bytes[0] ^= 1;
    if (effect == Effect::ecc_failed) ++ecc_failed_;
    return bytes;
  }

  bool erase(size_t block) {
    if (!powered_ || chip_[block].bad) return false;
    const auto effect = strike(Op::erase, block);
    Bytes& bytes = chip_[block].bytes;
    std::fill_n(bytes.begin(), effect ? block_size_ / 2 : block_size_, 0xFF);
    return !effect;
  }

  void program(size_t block, const Bytes& content) {
    if (!powered_) return;
    const auto effect = strike(Op::program, block);
    const bool half = effect == Effect::fail || effect == Effect::power_cut;
    Bytes& bytes = chip_[block].bytes;
    std::copy_n(content.begin(), half ? block_size_ / 2 : block_size_, bytes.begin());
    if (effect == Effect::corrupt) bytes[0] ^= 1;
  }

  std::vector<Block> chip_;
  size_t block_size_;
  std::vector<std::pair<phone::NandFault, unsigned>> faults_;
  unsigned ecc_failed_ = 0;
  bool powered_ = true;
};

}  // namespace support

#endif
