// Two inputs record by record.
#ifndef INSPECT_COMPARISON_H
#define INSPECT_COMPARISON_H

#include <vector>

#include "inspect/open_phone.h"

namespace awbcal {

/// What A and B hold of one record; null: nothing.
struct RecordPair {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;
  const FoundRecord* a;
  const FoundRecord* b;

  bool is_equal() const { return a != nullptr && b != nullptr && a->bytes == b->bytes; }
};

/// Of two phones, source by source; else the first source of each that holds the record. The pairs refer to the
/// inputs' records.
std::vector<RecordPair> pair_records(const Phone& a, const Phone& b);

/// Both records of the pair are there.
bool is_equal_field(const RecordPair& pair, const FieldSpec& field);

}  // namespace awbcal

#endif
