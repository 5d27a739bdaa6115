// Who in the library takes a record at run time, per kind of record: the corrections and the result checks.
#ifndef RUN_READERS_H
#define RUN_READERS_H

#include <span>

#include "inspect/record_kinds.h"

namespace awbcal {

/// A function of the library that takes the record, and how its log tells whether it did.
struct Reader {
  const char* function;
  /// Part of the line that it logs exactly when it uses the record; null: its answer tells.
  const char* line_when_used = nullptr;
  /// Part of the first and of the line after the last that are about this record, where it logs the same lines
  /// for others too; null: all are.
  const char* first_line = nullptr;
  const char* line_after = nullptr;
  /// What a camera start does with the record, as "White balance" and "corrected"; null: it only checks it.
  const char* effect = nullptr;
  const char* done = "corrected";
  uint32_t first_version = 0;  ///< of the light source, where others take records of an earlier one
  bool checksum_only_warns = false;
  /// Why no record of the system's own writers can pass; null: a good one does.
  const char* never_passes = nullptr;
};

/// Empty for a kind that the library only writes.
std::span<const Reader> readers_of(RecordKind kind);

/// Why a function can accept no record of the system's own writers; null: it can.
const char* never_passes(std::string_view function);

}  // namespace awbcal

#endif
