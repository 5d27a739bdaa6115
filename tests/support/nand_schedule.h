// What may happen to a NAND chip: a schedule of faults and of transfers through the MTD back end and utility, done to the
// phone's chip and to a model of it. Where the choices come from is the program's affair: random numbers, or the bytes
// of a fuzzer's input.
#ifndef TESTS_SUPPORT_NAND_SCHEDULE_H
#define TESTS_SUPPORT_NAND_SCHEDULE_H

#include <optional>
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

/// One chip, its model beside it, and what is done to both.
class ChipUnderTest {
 public:
  ChipUnderTest(Choices& choices, const phone::NandGeometry& geometry);
  ~ChipUnderTest() { mtd_close(&state_); }

  /// Blocks went bad: for them there is no way back.
  bool went_bad() const { return went_bad_; }

  /// Empty, or what differed.
  std::string run_schedule();

 private:
  phone::Nand& nand() { return phone_.nand(); }
  size_t block() const { return geometry_.erase_size; }
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
  bool chip_is_as_modelled() {
    for (uint32_t i = 0; i < geometry_.blocks; ++i) {
      if (nand().block_bytes(i) != model_->chip()[i].bytes) return false;
    }
    return true;
  }
  bool agrees(const std::optional<Bytes>& expected, bool done, const Bytes& bytes) {
    return done == expected.has_value() && (!done || bytes == *expected);
  }

  bool read();
  bool write();
  bool read_stream();
  bool write_stream();
  bool read_device();
  bool write_device();

  Choices& choices_;
  phone::NandGeometry geometry_;
  TemporaryFolder folder_;
  phone::VirtualPhone phone_;
  mtd_partition state_{};
  mtd_partition entry_{};
  std::optional<NandModel> model_;
  bool went_bad_ = false;
  bool is_over_ = false;  ///< a stream has failed: where it then stands is not defined
};

}  // namespace support

#endif
