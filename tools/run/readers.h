// Who in the library takes a record at run time, per kind of record: the corrections and the result checks.
#ifndef RUN_READERS_H
#define RUN_READERS_H

#include <optional>
#include <span>

#include "inspect/record_kinds.h"

namespace awbcal {

/// Something in the library that takes the record at run time.
struct Reader {
  const char* function;
  /// Calls it for the selected camera; true when it answers that the record is good or was used.
  bool (*run)();
  /// Part of the line that it logs exactly when it uses the record; null: its answer tells.
  const char* line_when_used;
  /// Part of the line from which on that counts: a reader of two records logs the same for both.
  const char* from_line = nullptr;
};

/// Empty for a kind that the library only writes.
std::span<const Reader> readers_of(RecordKind kind);

/// The kind that the same reader takes first, and that decides how it goes on.
std::optional<RecordKind> companion_of(RecordKind kind);

}  // namespace awbcal

#endif
