// The frame of all result checks: where they read, what they look at in a record, the three tests, and the
// record word.
#ifndef VERIFY_RESULT_CHECK_H
#define VERIFY_RESULT_CHECK_H

#include <cstddef>
#include <cstdint>

#include "records/calibration_log.h"
#include "records/judgement.h"
#include "records/record_reader.h"

namespace calib {

/// Where a check finds a record's claims, in bytes from its valid word. Some checks see 64-bit fields where
/// the writers store 32-bit words, and cover fewer bytes than the writers do: their answers are fixed.
struct RecordView {
  enum class Fields : uint8_t { bits32, bits64 } fields;
  size_t fuse;       ///< the first of four fields
  size_t checksum;   ///< one field, the last
  uint32_t covered;  ///< bytes under the checksum

  constexpr size_t width() const { return fields == Fields::bits64 ? sizeof(uint64_t) : sizeof(uint32_t); }
  constexpr size_t size() const { return checksum + width(); }
};

/// The eight 64-bit fields in which both the AWB and the flash check read their records: valid word, two
/// values, four fuse words, checksum.
inline constexpr RecordView kEightFields{
    .fields = RecordView::Fields::bits64, .fuse = 24, .checksum = 56, .covered = 28};

RecordClaims claims_at(const void* record, const RecordView& view);

/// What is said about each test; `check` is the name of the exported function.
struct TestLines {
  using Line = void (*)(const char* check);
  Line checksum_good;
  Line checksum_bad;
  Line this_module;
  Line any_module;
  Line other_module;
  Line calibrated;
  Line not_calibrated;
};
extern const TestLines kPlainLines;

/// One kind of record and how it is tested.
struct RecordTest {
  const char* name;  ///< of the exported function; it begins most lines
  RecordView view;
  bool zero_first_fuse_word_matches_any = true;
  bool zero_checksum_is_bad = false;
  bool front_camera_may_bear_main_fuse_id = false;
  const TestLines& lines;
  void (*log_word)(const char* check, uint32_t word);
};

/// Bits of the record word.
enum RecordWord : uint32_t {
  kBoundBit = 0x1,
  kChecksumBit = 0x2,
  kCalibratedBits = 0xC,
  kGoodRecord = 0xF,
};

/// The fitted module's fuse words, with the line that opens a check.
FuseWords identify_module(const char* check);

/// Runs the three tests and logs them. Afterwards `module` is as the zero-word rule left it.
uint32_t test_record(const RecordTest& test, const RecordClaims& claims, FuseWords& module);

/// The field line of a record in kEightFields.
void log_eight_fields(const char* check, const RecordClaims& claims, const uint8_t* record);

/// What is said when neither the cache file nor the camera's export opens.
inline constexpr auto kNoSource =
    LINE_BY_CAMERA(REPORT, "Read from file:/sys/android_camera_awb_cal/awb_cal fail",
                   "Read from file:/sys/android_camera_awb_cal/awb_cal_front fail",
                   "Read from file:/sys/android_camera_awb_cal/awb_cal_sub fail");

/// The check of one record that lies in a cache file or in the export.
struct ResultCheck {
  using SourceLine = void (*)(Camera camera);
  RecordTest test;
  const RecordFiles& files;
  SourceLine from_cache;
  SourceLine no_cache;
  SourceLine from_export;
  SourceLine nowhere = kNoSource;
  void (*log_fields)(const char* check, const RecordClaims& claims, const uint8_t* record);
};

/// Runs the check. Returns what the exported function does: 0 or -1.
int32_t run(const ResultCheck& check);

}  // namespace calib

#endif
