#include "verify/result_check.h"

#include "records/module_identity.h"

namespace calib {

constinit const TestLines kPlainLines{
    .checksum_good = LINE(LOGI, "[Calibration Record] %s: check sum pass\n"),
    .checksum_bad = LINE(LOGE, "[Calibration Record] %s: check sum is not valid\n"),
    .this_module = LINE(LOGI, "[Calibration Record] %s: check fuseid success\n"),
    .any_module = LINE(LOGI, "[Calibration Record] %s: check fuseid = 0x0000\n"),
    .other_module = LINE(LOGE, "[Calibration Record] %s: check fuseid fail\n"),
    .calibrated = LINE(LOGI, "[Calibration Record] %s: calibration success\n"),
    .not_calibrated = LINE(LOGE, "[Calibration Record] %s: calibration fail\n")};

namespace {

uint64_t field_at(const uint8_t* bytes, RecordView::Fields fields) {
  return fields == RecordView::Fields::bits64 ? record_at<uint64_t>(bytes) : record_at<uint32_t>(bytes);
}

/// The properties are signed 32-bit numbers: a 64-bit fuse field matches only with their sign extended.
bool is_main_cameras(const FuseWords& fuse) {
  FuseWords words = main_camera_fuse_words();
  for (uint64_t& word : words) word = static_cast<uint64_t>(int64_t{static_cast<int32_t>(word)});
  return fuse == words;
}

bool test_binding(const RecordTest& test, const FuseWords& fuse, Binding binding) {
  switch (binding) {
    case Binding::this_module:
      test.lines.this_module(test.name);
      return true;
    case Binding::any_module:
      test.lines.any_module(test.name);
      return true;
    case Binding::other_module:
      break;
  }
  if (test.front_camera_may_bear_main_fuse_id && selected_camera() == Camera::front &&
      is_main_cameras(fuse)) {
    LOGI("[Calibration Record] %s: front camera fuseid is the same with main camera fuseid, check success\n",
         test.name);
    return true;
  }
  test.lines.other_module(test.name);
  return false;
}

bool say(bool good, TestLines::Line yes, TestLines::Line no, const char* check) {
  (good ? yes : no)(check);
  return good;
}

}  // namespace

RecordClaims claims_at(const void* record, const RecordView& view) {
  const auto* bytes = static_cast<const uint8_t*>(record);
  RecordClaims claims{.valid_word = field_at(bytes, view.fields),
                      .fuse = {},
                      .stored_crc = field_at(bytes + view.checksum, view.fields),
                      .computed_crc = Crc32CheckSumByte(bytes, view.covered, 0)};
  for (size_t i = 0; i < claims.fuse.size(); ++i) {
    claims.fuse[i] = field_at(bytes + view.fuse + i * view.width(), view.fields);
  }
  return claims;
}

FuseWords identify_module(const char* check) {
  const FuseWords module = module_fuse_words();
  LOGI("%s: get_sensor(%d) get_fuseid(0x%x 0x%x 0x%x 0x%x)\n", check, get_sensor_selection(),
       FUSE_WORDS_32(module));
  return module;
}

uint32_t test_record(const RecordTest& test, const RecordClaims& claims, FuseWords& module) {
  constexpr uint32_t kFinishedVersion = light_source_version(kFinishedValidWord);
  const Judgement judgement =
      judge(claims, module,
            {.first_version = kFinishedVersion,
             .last_version = kFinishedVersion,
             .zero_first_fuse_word_matches_any = test.zero_first_fuse_word_matches_any});
  module = judgement.module;

  const TestLines& lines = test.lines;
  const bool checksum_good = judgement.crc_good && !(test.zero_checksum_is_bad && claims.stored_crc == 0);
  uint32_t word = 0;
  if (say(checksum_good, lines.checksum_good, lines.checksum_bad, test.name)) word |= kChecksumBit;
  if (test_binding(test, claims.fuse, judgement.binding)) word |= kBoundBit;
  if (say(judgement.valid_word_good, lines.calibrated, lines.not_calibrated, test.name)) {
    word |= kCalibratedBits;
  }
  test.log_word(test.name, word);
  return word;
}

void log_eight_fields(const char* check, const RecordClaims& claims, const uint8_t* record) {
  LOGI("%s: awb_verify(%ld)(0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
       static_cast<int64_t>(claims.valid_word), record_at<uint64_t>(record + 8),
       record_at<uint64_t>(record + 16), claims.fuse[0], claims.fuse[1], claims.fuse[2], claims.fuse[3]);
}

int32_t run(const ResultCheck& check) {
  FuseWords module = identify_module(check.test.name);
  const Camera camera = selected_camera();
  // Room for the longest record. What its source does not hold counts as zeros.
  uint8_t record[sizeof(LensShadingRecord)] = {};
  switch (read_record(check.files, camera, record, check.test.view.size()).from) {
    case RecordReading::From::cache_file:
      check.from_cache(camera);
      break;
    case RecordReading::From::kernel_export:
      check.no_cache(camera);
      check.from_export(camera);
      break;
    case RecordReading::From::nowhere:
      check.no_cache(camera);
      check.nowhere(camera);
      return -1;
  }
  const RecordClaims claims = claims_at(record, check.test.view);
  check.log_fields(check.test.name, claims, record);
  return test_record(check.test, claims, module) == kGoodRecord ? 0 : -1;
}

}  // namespace calib
