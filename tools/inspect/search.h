// Where the record area is in bytes that come from a partition or a chip: whole or in part, shifted by bad blocks
// or padding, with out-of-band bytes, with the bytes of every word turned round.
#ifndef INSPECT_SEARCH_H
#define INSPECT_SEARCH_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/phone.h"

namespace awbcal {

/// One way to take the bytes.
struct Reading {
  Bytes bytes;           ///< as the partition's; empty where nothing was done to them
  uint64_t base = 0;     ///< where the record area begins
  std::string how = {};  ///< what was done to the bytes; empty: nothing
};

struct SearchOptions {
  std::optional<uint32_t> base = {};  ///< where the phone looks; none: at either base
  Modules modules = {};               ///< their fuse words tell a damaged record from noise
  bool as_they_are = false;           ///< nothing is done to the bytes
};

/// The readings that fit best: none, one, or several that fit equally well. Those where the phone itself looks go
/// before all others, and only when none of them has a record the bytes are searched.
std::vector<Reading> search_records(const Bytes& bytes, const SearchOptions& options);

/// "records 0x20000 later than expected: one bad block before them"; empty: they are where the phone looks.
std::string shift_text(uint64_t base, std::optional<uint32_t> expected);

/// The page size whose base is the nearest before `base`.
int page_size_of(uint64_t base, std::optional<uint32_t> expected);

}  // namespace awbcal

#endif
