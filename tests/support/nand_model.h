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
  /// Of read, write or ioctl on the device.
  void add_fault(const phone::Fault& fault) { call_faults_.push_back({fault, 0}); }
  void mark_bad(size_t block) { chip_[block].bad = true; }
  bool is_powered() const { return powered_; }
  const std::vector<Block>& chip() const { return chip_; }

  /// The bytes, or nothing when the transfer fails.
  std::optional<Bytes> read(size_t offset, size_t length) {
    Stream from_start;
    const auto all = take(from_start, offset + length);
    if (!all) return std::nullopt;
    return Bytes(all->begin() + static_cast<long>(offset), all->end());
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

  // ---- the utility's streams ------------------------------------------------------------------------------

  /// Where a stream stands, and the bytes that wait in it.
  struct Stream {
    size_t place = 0;
    Bytes waiting = {};
  };

  /// Whole blocks are written at once when nothing waits.
  bool append(Stream& stream, const Bytes& data) {
    for (size_t done = 0; done < data.size();) {
      const bool at_once = stream.waiting.empty() && data.size() - done >= block_size_;
      const size_t part = std::min(data.size() - done, block_size_ - stream.waiting.size());
      const auto first = data.begin() + static_cast<long>(done);
      Bytes block = stream.waiting;
      block.insert(block.end(), first, first + static_cast<long>(part));
      if (!at_once) stream.waiting = block;
      if (block.size() == block_size_ && !put_next(stream, block)) return false;
      done += part;
    }
    return true;
  }

  bool flush(Stream& stream) {
    if (stream.waiting.empty()) return true;
    Bytes block = stream.waiting;
    block.resize(block_size_);
    return put_next(stream, block);
  }

  /// The position behind the erased blocks; the stream itself stays where it is.
  int64_t erase_next(Stream& stream, int blocks) {
    if (!flush(stream) || !powered_) return -1;
    const auto available = static_cast<int>(chip_.size() - stream.place);
    if (blocks > available) return -1;
    size_t place = stream.place;
    for (int left = blocks < 0 ? available : blocks; left > 0; --left, ++place) {
      if (answers_bad(place) != 1) erase(place);
    }
    return static_cast<int64_t>(place * block_size_);
  }

  std::optional<Bytes> take(Stream& stream, size_t length) {
    Bytes taken;
    while (taken.size() < length) {
      if (stream.waiting.empty()) {
        const auto found = next_usable(stream.place);
        if (!found) return std::nullopt;
        stream = {found->place + 1, found->bytes};
      }
      const auto part = static_cast<long>(std::min(length - taken.size(), stream.waiting.size()));
      taken.insert(taken.end(), stream.waiting.begin(), stream.waiting.begin() + part);
      stream.waiting.erase(stream.waiting.begin(), stream.waiting.begin() + part);
    }
    return taken;
  }

  // ---- the utility's transfers through a descriptor -------------------------------------------------------

  std::optional<Bytes> read_device(size_t length) {
    const auto moved = call("read");
    Bytes bytes;
    for (size_t block = 0; moved && bytes.size() < std::min(*moved, length); ++block) {
      const auto part = read_cells(block, std::min(*moved, length) - bytes.size());
      if (!part) return std::nullopt;
      bytes.insert(bytes.end(), part->begin(), part->end());
    }
    return bytes.size() == length ? std::optional(bytes) : std::nullopt;
  }

  bool write_device(const Bytes& data) {
    bool is_erased = true;
    for (size_t block = 0; block < data.size() / block_size_; ++block) {
      if (answers_bad(block) == 0 && !erase(block)) is_erased = false;
    }
    return is_erased && program(0, data);
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

  bool put_next(Stream& stream, const Bytes& block) {
    const auto written = put(stream.place, block);
    if (written) stream = {*written + 1, {}};
    return written.has_value();
  }

  // ---- the calls ------------------------------------------------------------------------------------------

  static bool is_due(const auto& fault, unsigned seen) {
    return seen == fault.nth || (fault.from_then_on && seen > fault.nth);
  }

  /// How many bytes a call may move; nothing when it fails. One that a signal interrupts is made again.
  std::optional<size_t> call(const char* name) {
    std::optional<size_t> moved = SIZE_MAX;
    bool is_decided = false, is_interrupted = false;
    for (auto& [fault, seen] : call_faults_) {
      if (fault.call != name) continue;
      if (!is_due(fault, ++seen) || is_decided) continue;
      is_decided = true;
      is_interrupted = fault.transfer < 0 && fault.error == EINTR;
      moved = fault.transfer < 0 ? std::nullopt : std::optional(static_cast<size_t>(fault.transfer));
    }
    if (!powered_) return std::nullopt;
    return is_interrupted ? call(name) : moved;
  }

  // ---- the chip -------------------------------------------------------------------------------------------

  std::optional<Effect> strike(Op op, size_t block) {
    std::optional<Effect> effect;
    for (auto& [fault, seen] : faults_) {
      if (fault.op != op || (fault.block >= 0 && fault.block != static_cast<int64_t>(block))) continue;
      if (is_due(fault, ++seen) && !effect) effect = fault.effect;
    }
    if (effect == Effect::power_cut) powered_ = false;
    return effect;
  }

  bool ecc_answers() { return call("ioctl") && !strike(Op::ecc_stats, 0); }

  int answers_bad(size_t block) {
    if (!call("ioctl") || strike(Op::ask_bad, block)) return -1;
    return chip_[block].bad ? 1 : 0;
  }

  std::optional<Bytes> read_block(size_t block) {
    const auto moved = call("read");
    auto bytes = moved && *moved > 0 ? read_cells(block, *moved) : std::nullopt;
    return bytes && bytes->size() == block_size_ ? bytes : std::nullopt;
  }

  /// At most a block, of which one that fails half-way says nothing.
  std::optional<Bytes> read_cells(size_t block, size_t most) {
    const auto effect = strike(Op::read, block);
    if (effect == Effect::fail) return std::nullopt;
    Bytes bytes = chip_[block].bytes;
    bytes.resize(std::min(most, block_size_));
    if (effect == Effect::corrupt) bytes[0] ^= 1;
    if (effect == Effect::ecc_failed) ++ecc_failed_;
    return bytes;
  }

  bool erase(size_t block) {
    if (!call("ioctl") || chip_[block].bad) return false;
    const auto effect = strike(Op::erase, block);
    Bytes& bytes = chip_[block].bytes;
    std::fill_n(bytes.begin(), effect ? block_size_ / 2 : block_size_, 0xFF);
    return !effect;
  }

  /// From the first byte of a block on. True when all of it is done, whether it is right or not.
  bool program(size_t block, const Bytes& content) {
    const auto moved = call("write");
    if (!moved) return false;
    const size_t size = std::min(*moved, content.size());
    if (size % std::min<size_t>(2048, block_size_) != 0) return false;  // no whole page
    for (size_t done = 0; done < size; ++block) {
      const size_t part = std::min(size - done, block_size_);
      const auto effect = strike(Op::program, block);
      const bool breaks_off = effect == Effect::fail || effect == Effect::power_cut;
      Bytes& bytes = chip_[block].bytes;
      // Bits are only cleared.
      for (size_t i = 0; i < (breaks_off ? part / 2 : part); ++i) {
        bytes[i] = static_cast<uint8_t>(bytes[i] & content[done + i]);
      }
      if (effect == Effect::corrupt) bytes[0] ^= 1;
      if (breaks_off) return false;
      done += part;
    }
    return size == content.size();
  }

  std::vector<Block> chip_;
  size_t block_size_;
  std::vector<std::pair<phone::NandFault, unsigned>> faults_;
  std::vector<std::pair<phone::Fault, unsigned>> call_faults_;
  unsigned ecc_failed_ = 0;
  bool powered_ = true;
};

}  // namespace support

#endif
