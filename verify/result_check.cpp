#include "verify/result_check.h"

#include "records/module_identity.h"

namespace calib {

constinit const TestLines kPlainLines{
    .checksum_good = CHECK_LINE(LOGI, "[Calibration Record] %s: check sum pass\n"),
    .checksum_bad = CHECK_LINE(LOGE, "[Calibration Record] %s: check sum is not valid\n"),
    .this_module = CHECK_LINE(LOGI, "[Calibration Record] %s: check fuseid success\n"),
    .any_module = CHECK_LINE(LOGI, "[Calibration Record] %s: check fuseid = 0x0000\n"),
    .other_module = CHECK_LINE(LOGE, "[Calibration Record] %s: check fuseid fail\n"),
    .calibrated = CHECK_LINE(LOGI, "[Calibration Record] %s: calibration success\n"),
    .not_calibrated = CHECK_LINE(LOGE, "[Calibration Record] %s: calibration fail\n")};

namespace {

uint64_t field_at(const uint8_t* bytes, RecordView::Fields fields) {
  return fields == RecordView::Fields::bits64 ? record_at<uint64_t>(bytes) : record_at<uint32_t>(bytes);
}

/// The properties are signed 32-bit numbers: a 64-bit fuse field matches only with their sign extended.
bool is_main_cameras(const FuseWords& fuse) {
  const std::array<int32_t, 4> words = main_camera_fuse_words();
  for (size_t i = 0; i < words.size(); ++i) {
    if (fuse[i] != static_cast<uint64_t>(int64_t{words[i]})) return false;
  }
  return true;
}

bool test_binding(const RecordCheck& check, const FuseWords& fuse, Binding binding) {
  switch (binding) {
    case Binding::this_module:
      check.lines.this_module(check.name);
      return true;
    case Binding::any_module:
      check.lines.any_module(check.name);
      return true;
    case Binding::other_module:
      break;
  }
  if (check.front_camera_may_bear_main_fuse_id && selected_camera() == Camera::front &&
      is_main_cameras(fuse)) {
    LOGI("[Calibration Record] %s: front camera fuseid is the same with main camera fuseid, check success\n",
         check.name);
    return true;
  }
  check.lines.other_module(check.name);
  return false;
}

bool say(bool good, TestLines::Line yes, TestLines::Line no, const char* check) {
  (good ? yes : no)(check);
  return good;
}

}  // namespace

RecordClaims claims_at(const void* record, const RecordView& view) {
  const size_t width = view.fields == RecordView::Fields::bits64 ? sizeof(uint64_t) : sizeof(uint32_t);
  const auto* bytes = static_cast<const uint8_t*>(record);
  RecordClaims claims{.valid_word = field_at(bytes, view.fields),
                      .fuse = {},
                      .stored_crc = field_at(bytes + view.checksum, view.fields),
                      .computed_crc = Crc32CheckSumByte(bytes, view.covered, 0)};
  for (size_t i = 0; i < claims.fuse.size(); ++i) {
    claims.fuse[i] = field_at(bytes + view.fuse + i * width, view.fields);
  }
  return claims;
}

FuseWords identify_module(const char* check) {
  const FuseWords module = module_fuse_words();
  LOGI("%s: get_sensor(%d) get_fuseid(0x%x 0x%x 0x%x 0x%x)\n", check, get_sensor_selection(),
       static_cast<uint32_t>(module[0]), static_cast<uint32_t>(module[1]), static_cast<uint32_t>(module[2]),
       static_cast<uint32_t>(module[3]));
  return module;
}

uint32_t test_record(const RecordCheck& check, const RecordClaims& claims, FuseWords& module) {
  constexpr uint32_t kFinishedVersion = light_source_version(kFinishedValidWord);
  const Judgement judgement =
      judge(claims, module,
            {.first_version = kFinishedVersion,
             .last_version = kFinishedVersion,
             .zero_first_fuse_word_matches_any = check.zero_first_fuse_word_matches_any});
  module = judgement.module;

  const TestLines& lines = check.lines;
  const bool checksum_good = judgement.crc_good && !(check.zero_checksum_is_bad && claims.stored_crc == 0);
  uint32_t word = 0;
  if (say(checksum_good, lines.checksum_good, lines.checksum_bad, check.name)) word |= kChecksumBit;
  if (test_binding(check, claims.fuse, judgement.binding)) word |= kBoundBit;
  if (say(judgement.valid_word_good, lines.calibrated, lines.not_calibrated, check.name)) {
    word |= kCalibratedBits;
  }
  check.log_word(check.name, word);
  return word;
}

void log_eight_fields(const char* check, const RecordClaims& claims, const uint8_t* record) {
  LOGI("%s: awb_verify(%ld)(0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n", check,
       static_cast<long>(claims.valid_word), record_at<unsigned long>(record + 8),
       record_at<unsigned long>(record + 16), static_cast<unsigned long>(claims.fuse[0]),
       static_cast<unsigned long>(claims.fuse[1]), static_cast<unsigned long>(claims.fuse[2]),
       static_cast<unsigned long>(claims.fuse[3]));
}

}  // namespace calib
