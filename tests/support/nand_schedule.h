// What may happen to a NAND chip: a schedule of faults and of transfers through the MTD back end and utility, done to the
// phone's chip and to a model of it. Where the choices come from is the program's affair: random numbers, or the bytes
// of a fuzzer's input.
#ifndef TESTS_SUPPORT_NAND_SCHEDULE_H
#define TESTS_SUPPORT_NAND_SCHEDULE_H

#include <optional>
#include <random>
#include <string>

#include "awb_calibration/storage.h"
#include "tests/support/nand_model.h"
#include "tests/support/nand_phone.h"

namespace support {

struct Choices {
  virtual ~Choices() = default;
  virtual unsigned up_to(unsigned limit) = 0;  ///< limit included
  bool one_in(unsigned n) { return up_to(n - 1) == 0; }
};

class Random final : public Choices {
 public:
  explicit Random(uint32_t seed) : random_(seed) {}
  unsigned up_to(unsigned limit) override {
    return std::uniform_int_distribution<unsigned>(0, limit)(random_);
  }

 private:
  std::mt19937 random_;
};

/// One chip and its model beside it. What is done to both says whether they agree afterwards.
class ModelledChip {
 public:
  explicit ModelledChip(const phone::NandGeometry& geometry);
  ~ModelledChip() { mtd_close(&state_); }

  phone::Nand& nand() { return phone_.nand(); }
  /// The chip as good as new with these contents, but for its bad blocks.
  void start(const std::vector<Bytes>& contents);
  void add_fault(const NandFault& fault) {
    nand().add_fault(fault);
    model_->add_fault(fault);
  }
  bool read(size_t offset, size_t length);
  bool write(size_t offset, const Bytes& bytes);
  bool chip_is_as_modelled() {
    for (uint32_t i = 0; i < geometry_.blocks; ++i) {
      if (nand().block_bytes(i) != model_->chip()[i].bytes) return false;
    }
    return true;
  }

 protected:
  size_t block() const { return geometry_.erase_size; }
  static bool agrees(const std::optional<Bytes>& expected, bool done, const Bytes& bytes) {
    return done == expected.has_value() && (!done || bytes == *expected);
  }

  const phone::NandGeometry geometry_;
  TemporaryFolder folder_;
  phone::VirtualPhone phone_;
  mtd_partition state_{};
  std::optional<NandModel> model_;
};

/// A chip to which happens what the choices say.
class ChipUnderTest : public ModelledChip {
 public:
  ChipUnderTest(Choices& choices, const phone::NandGeometry& geometry);

  /// Blocks went bad: for them there is no way back.
  bool went_bad() const { return went_bad_; }

  /// Empty, or what differed.
  std::string run_schedule();

 private:
  Bytes some_bytes(size_t length) {
    return choices_.one_in(8) ? Bytes(length, 0) : pattern(length, choices_.up_to(1000));
  }
  /// Often whole blocks.
  size_t extent(unsigned blocks) {
    const auto size = static_cast<unsigned>(block());
    return choices_.one_in(3) ? choices_.up_to(blocks) * size : choices_.up_to(blocks * size);
  }
  void fill();
  void break_something();

  bool read_somewhere();
  bool write_somewhere();
  bool read_stream();
  bool write_stream();
  bool read_device();
  bool write_device();

  Choices& choices_;
  mtd_partition entry_{};
  bool went_bad_ = false;
  bool is_over_ = false;  ///< a stream has failed: where it then stands is not defined
};

}  // namespace support

#endif
