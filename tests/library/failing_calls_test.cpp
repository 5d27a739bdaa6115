// What happens when any one system call of any exported function fails, once or for good?
// Guards against crashes, leaked descriptors, undocumented results and bytes written outside their range.

#include <algorithm>

#include "awb_calibration/factory.h"
#include "awb_calibration/storage.h"
#include "tests/support/support.h"

namespace {

using support::Bytes;

struct Subject {
  const char* name;
  std::function<int64_t()> call;
  std::vector<int64_t> results;                // what it may return
  std::vector<std::pair<long, long>> written;  // ranges of the partition that it may change
};

uint8_t record[48];

int64_t open_and_transfer() {
  partition_handle handle{};
  int64_t result = partition_open(&handle, "mfg");
  if (result == 0) {
    result =
        partition_read(&handle, 8, sizeof record, record) + partition_write(&handle, 0x21000, 32, record);
  }
  partition_close(&handle);
  return result;
}

int64_t run_to_its_end() {
  awb_enable_calibration();
  aec_set_status_ready();
  for (int i = 0; i < 13; ++i) QOR_AWB_Calibration_collect(77200, 57600, 100);
  return awb_if_enabled();
}

int64_t stored_exposure() {
  uint32_t gain, time, luma;
  QOR_Calibration_AEC_get_calibration_data(&gain, &time, &luma);
  return gain;
}

std::vector<Subject> subjects() {
  const std::vector<int64_t> verdict = {0, -1};
  return {
      {"partition", open_and_transfer, {0, -1, -2}, {{0x21000, 0x21020}}},
      {"emmc",
       [] {
         emmc_state state{};
         const int64_t r = emmc_open(&state, "mfg");
         if (r == 0) emmc_close(&state);
         return r;
       },
       verdict,
       {}},
      {"ReadEmmcFlash", [] { return ReadEmmcFlash(record, 32); }, verdict, {}},
      {"ReadEmmcOffset", [] { return ReadEmmcOffset(record, 32, 0xE08); }, verdict, {}},
      {"WriteFlashOffset", [] { return WriteFlashOffset(record, 32, 0xE08); }, verdict, {{0x20E08, 0x20E28}}},
      {"WriteFlash", [] { return WriteFlash(record, 32); }, verdict, {{0x20000, 0x20020}}},
      {"WriteFlash_for_front_Cam",
       [] { return WriteFlash_for_front_Cam(record, 32); },
       verdict,
       {{0x21000, 0x21020}}},
      {"WriteFlash_for_bayer_Cam",
       [] { return WriteFlash_for_bayer_Cam(record, 32, 2); },
       verdict,
       {{0x22000, 0x22020}}},
      {"CheckFlash", [] { return CheckFlash(); }, verdict, {}},
      {"aec_write_calibration",
       [] {
         return aec_write_calibration(0, {{1, 2, 3, 4}}, 5, 6, 7);
       },
       verdict,
       {{0x20E28, 0x20E4C}}},
      {"aec_read_calibration", [] { return aec_read_calibration(record, 36); }, {36, 0, -1}, {}},
      {"QOR_Calibration_AEC_get_calibration_data", stored_exposure, {0, 5}, {}},
      {"QOR_Calibration_AEC_get_params",
       [] {
         uint32_t a, b;
         return QOR_Calibration_AEC_get_params(&a, &b);
       },
       verdict,
       {}},
      {"AWB run", run_to_its_end, {0, 1}, {{0x20000, 0x20020}, {0x20E28, 0x20E4C}}},
  };
}

class FailingCalls : public support::PhoneTest {
 protected:
  FailingCalls() : PhoneTest({.partition_size = 160 * 1024}), image_(support::pattern(160 * 1024)) {
    fit_module("main", {1, 2, 3, 4});
    for (const auto& [name, value] : {std::pair{"mfg.calibration.status", "3"},
                                      {"mfg.awb.calibration.trigger", "1"},
                                      {"mfg.awb.calibration.ae.k.eb", "1"},
                                      {"mfg.awb.calibration.rg_ratio", "0.75"}}) {
      phone().set_property(name, value);
    }
    check_and_init_awb_calibration();
    const Bytes aec = support::sealed32({3099, 5, 6, 7, 1, 2, 3, 4});
    cached_ = aec;
  }

  void reset() {
    phone().clear_faults();
    phone().write_partition(0, image_.data(), image_.size());
    put("/data/misc/camera/aec_cal", cached_);
    phone().take_calls();
    phone().take_log();
  }

  void expect_only(const Subject& subject, const std::string& what) {
    Bytes now = phone().partition();
    ASSERT_EQ(now.size(), image_.size()) << what;
    for (const auto& [first, end] : subject.written) {
      std::copy(image_.begin() + first, image_.begin() + end, now.begin() + first);
    }
    const auto differs = std::mismatch(now.begin(), now.end(), image_.begin());
    EXPECT_TRUE(differs.first == now.end()) << what << " changed byte " << differs.first - now.begin();
  }

  Bytes image_;
  Bytes cached_;
};

TEST_F(FailingCalls, EachInTurnOnceAndForGood) {
  for (const Subject& subject : subjects()) {
    reset();
    const std::string quiet = support::console_of([&] { subject.call(); });
    const size_t calls = phone().take_calls().size();
    for (size_t nth = 1; nth <= calls + 1; ++nth) {
      for (const bool for_good : {false, true}) {
        const std::string what = std::string(subject.name) + ", call " + std::to_string(nth) +
                                 (for_good ? " and all later ones" : "");
        reset();
        phone().add_fault(
            {.call = "*", .nth = static_cast<unsigned>(nth), .from_then_on = for_good, .error = 5});
        int64_t result = INT64_MIN;
        support::console_of([&] { result = subject.call(); });
        phone().clear_faults();
        EXPECT_TRUE(std::count(subject.results.begin(), subject.results.end(), result) == 1)
            << what << ": " << result;
        EXPECT_EQ(phone().open_descriptors(), 0U) << what;
        expect_only(subject, what);
      }
    }
  }
}

}  // namespace
