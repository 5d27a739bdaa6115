// What every correction does with a record that it has loaded: log it, judge it, log whether its CRC is good.
#ifndef CORRECTION_RECORD_CHECK_H
#define CORRECTION_RECORD_CHECK_H

#include <cstdint>
#include <cstring>

#include "records/judgement.h"
#include "records/module_identity.h"

namespace calib {

/// A record as the log shows it: its first eight words, and its CRC wherever that lies.
struct RecordWords {
  uint32_t word[8];
  uint32_t crc;
};

template <class Record>
RecordWords words_of(const Record& record) {
  RecordWords words;
  memcpy(words.word, &record, sizeof words.word);
  words.crc = record.crc;
  return words;
}

/// What is logged on the way; `name` is the exported function.
struct RecordLines {
  void (*content)(const char* name, const RecordWords& words);
  void (*bad_crc)(const char* name);
  void (*good_crc)(const char* name, const RecordWords& words);
};

extern const RecordLines kAwbLines;
extern const RecordLines kFlashLines;
extern const RecordLines kDualFlashLines;
extern const RecordLines kD50Lines;     // dual-camera correction, normal light
extern const RecordLines kALightLines;  // the same, A light

template <class Record>
Judgement check(const char* name, const RecordLines& lines, const Record& record, const FuseWords& module,
                const JudgementRule& rule) {
  const Judgement judgement = judge(claims_of(record), module, rule);
  const RecordWords words = words_of(record);
  lines.content(name, words);
  if (judgement.crc_good) {
    lines.good_crc(name, words);
  } else {
    lines.bad_crc(name);
  }
  return judgement;
}

/// A record whose CRC is good may be applied.
inline bool is_accepted(const Judgement& judgement) {
  return judgement.valid_word_good && judgement.is_bound();
}

/// The front camera's second chance: its record may carry the main camera's fuse ID instead, word for word.
template <class Record>
bool is_accepted_with_main_camera(const Record& record, JudgementRule rule) {
  if (selected_camera() != Camera::front) return false;
  FuseWords main_camera;
  const auto words = main_camera_fuse_words();
  for (size_t i = 0; i < words.size(); ++i) main_camera[i] = static_cast<uint32_t>(words[i]);
  rule.zero_first_fuse_word_matches_any = false;
  return is_accepted(judge(claims_of(record), main_camera, rule));
}

}  // namespace calib

#endif
