// What every correction does with a record that it has loaded: judge it, and log what it says and whether its
// CRC is good.
#ifndef CORRECTION_JUDGE_AND_LOG_H
#define CORRECTION_JUDGE_AND_LOG_H

#include <cstdint>
#include <cstring>

#include "records/judgement.h"
#include "records/module_identity.h"

namespace calib {

/// What is logged of a record; `name` is the exported function. `w` are the record's words: which of them a
/// line shows is its own affair.
struct RecordLines {
  using Line = void (*)(const char* name, const uint32_t* w);
  Line content;
  void (*bad_crc)(const char* name);
  void (*nothing_done)(const char* name);
  void (*good_crc)(const char* name, uint32_t crc);
  Line values;
  Line valid_word;
};

extern const RecordLines kAwbLines;
extern const RecordLines kFlashLines;
extern const RecordLines kDualFlashLines;
extern const RecordLines kD50Lines;     // dual-camera correction, normal light
extern const RecordLines kALightLines;  // the same, A light

/// A record as the log shows it: the words that lines show, and its CRC wherever that lies.
struct RecordWords {
  uint32_t word[8];
  uint32_t crc;
};

void log_judged(const char* name, const RecordLines& lines, const RecordWords& words, bool crc_good);

template <class Record>
Judgement judge_and_log(const char* name, const RecordLines& lines, const Record& record,
                        const FuseWords& module, const JudgementRule& rule) {
  const Judgement judgement = judge(claims_of(record), module, rule);
  RecordWords words;
  memcpy(words.word, &record, sizeof words.word);
  words.crc = record.crc;
  log_judged(name, lines, words, judgement.crc_good);
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
  rule.zero_first_fuse_word_matches_any = false;
  return is_accepted(judge(claims_of(record), main_camera_fuse_words(), rule));
}

}  // namespace calib

#endif
