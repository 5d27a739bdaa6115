// A phone with raw NAND, as the tests of the MTD back end and utility share it.
#ifndef TESTS_SUPPORT_NAND_PHONE_H
#define TESTS_SUPPORT_NAND_PHONE_H

#include "awb_calibration/storage.h"
#include "tests/support/support.h"

namespace support {

using phone::NandFault;
using Op = NandFault::Op;
using Effect = NandFault::Effect;

inline constexpr const char* kMtdTag = "camera_calibration_mtd";
inline constexpr const char* kMtdPath = "/dev/mtd/mtd3";

/// Every block of a chip with bytes of its own.
inline std::vector<Bytes> patterned(const phone::NandGeometry& geometry) {
  std::vector<Bytes> contents;
  for (uint32_t i = 0; i < geometry.blocks; ++i) contents.push_back(pattern(geometry.erase_size, 1 + i));
  return contents;
}

/// A fixture, and also an object for tests that go through many chips.
class NandPhone : public PhoneTest {
 public:
  explicit NandPhone(const phone::NandGeometry& geometry = {.erase_size = 4096, .blocks = 8})
      : PhoneTest({.storage = phone::Storage::nand, .nand = geometry}), contents_(patterned(geometry)) {
    fill(contents_);
    EXPECT_EQ(mtd_open(&state_, "mfg"), 0);
    phone().take_calls();
    phone().take_log();
  }
  ~NandPhone() override { mtd_close(&state_); }
  void TestBody() override {}

  using PhoneTest::error, PhoneTest::phone;
  phone::Nand& nand() { return phone().nand(); }
  mtd_partition* state() { return &state_; }
  const Bytes& content(uint32_t block) const { return contents_.at(block); }  ///< at the start

  void fill(const std::vector<Bytes>& contents) {
    for (uint32_t i = 0; i < contents.size(); ++i) nand().set_block_bytes(i, contents[i]);
  }
  unsigned erases() {
    unsigned sum = 0;
    for (uint32_t block = 0; block < contents_.size(); ++block) sum += nand().erase_count(block);
    return sum;
  }
  void list_in_proc_mtd(const std::string& text) { put("/proc/mtd", Bytes(text.begin(), text.end())); }

  /// Each line of the log of `call` as its level's letter and its text, with a '|' behind.
  std::string said(const std::function<void()>& call) {
    std::string text;
    for (const auto& line : log_of(call)) {
      EXPECT_EQ(line.tag, kMtdTag);
      text += "??VDIWE"[line.priority] + (line.text + "|");
    }
    return text;
  }
  Names calls_of(const std::function<void()>& call) {
    phone().take_calls();
    call();
    Names names;
    for (const auto& made : phone().take_calls()) names.push_back(made.name);
    return names;
  }

 private:
  std::vector<Bytes> contents_;
  mtd_partition state_{};
};

}  // namespace support

#endif
