// What makes a record good: sealing one, and judging one. No I/O, no log lines.
#ifndef RECORDS_JUDGEMENT_H
#define RECORDS_JUDGEMENT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "awb_calibration/records.h"
#include "records/record_layouts.h"

namespace calib {

/// Fuse words 1 to 4, of a record or of a module. 64 bits, for the records that store them so.
using FuseWords = std::array<uint64_t, 4>;

/// Words of 32 bits, extended by zeros.
constexpr FuseWords fuse_words(const uint32_t (&words)[4]) {
  return {words[0], words[1], words[2], words[3]};
}
constexpr FuseWords fuse_words(const uint64_t (&words)[4]) {
  return {words[0], words[1], words[2], words[3]};
}

/// The words as four arguments of a log line that shows 32 bits of each.
#define FUSE_WORDS_32(words)                                                                               \
  static_cast<uint32_t>((words)[0]), static_cast<uint32_t>((words)[1]), static_cast<uint32_t>((words)[2]), \
      static_cast<uint32_t>((words)[3])

/// What a record says of itself, whatever the widths of its fields.
struct RecordClaims {
  uint64_t valid_word;
  FuseWords fuse;
  uint64_t stored_crc;
  uint32_t computed_crc;  ///< over the bytes that the reader covers
};

/// Where readers differ.
struct JudgementRule {
  uint32_t first_version;  ///< light-source versions accepted
  uint32_t last_version;
  bool zero_first_fuse_word_matches_any;  ///< a stored first word of 0 makes the module's first word 0
};

enum class Binding {
  this_module,  ///< all four fuse words equal the module's, as the zero-word rule left it
  any_module,   ///< all four are zero
  other_module,
};

struct Judgement {
  bool crc_good;
  bool valid_word_good;
  Binding binding;
  FuseWords
      module;  ///< the module's words as the zero-word rule left them, for the rest of the caller's work

  bool is_bound() const { return binding != Binding::other_module; }
};

Judgement judge(const RecordClaims& record, const FuseWords& module, const JudgementRule& rule);

/// The light-source version that a valid word names.
constexpr uint32_t light_source_version(uint32_t valid_word) {
  return valid_word / kVersionUnit;
}

template <class Record>
inline constexpr size_t kSealedBytes = offsetof(Record, crc);

template <class Record>
uint32_t crc_of(const Record& record) {
  return Crc32CheckSumByte(&record, kSealedBytes<Record>, 0);
}

/// Stores the CRC of everything before the CRC field. Gyro: zero-extended.
template <class Record>
void seal(Record& record) {
  record.crc = crc_of(record);
}

/// The claims of a record whose reader covers all of it.
template <class Record>
RecordClaims claims_of(const Record& record) {
  return {.valid_word = record.valid_word,
          .fuse = fuse_words(record.fuse),
          .stored_crc = record.crc,
          .computed_crc = crc_of(record)};
}

/// A record copied out of a buffer of any alignment.
template <class Record>
Record record_at(const void* bytes) {
  Record record;
  memcpy(&record, bytes, sizeof record);
  return record;
}

}  // namespace calib

#endif
