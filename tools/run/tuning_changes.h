// What a camera start changed in the tuning: every field that a correction may write, for scripts and for people.
#ifndef RUN_TUNING_CHANGES_H
#define RUN_TUNING_CHANGES_H

#include <string>
#include <vector>

#include "run/camera_start.h"
#include "text/tables.h"
#include "text/terminal.h"

namespace awbcal {

/// A float that a correction may write.
struct TuningValue {
  std::string block;
  std::string field;
  float before;
  float after;
};

std::vector<TuningValue> tuning_values(const CameraTuning& before, const CameraTuning& after);

// ---- for people -------------------------------------------------------------------------------------------

enum class TuningPart { reference_points, triples, flash_gains, led_table, meshes, ratios };

/// One kind of field, before and after.
struct TuningTable {
  TuningPart part;
  const char* title;
  Table table;
  bool has_changed;
};

/// Those of the tunings that they belong to.
struct TuningTables {
  const char* of;
  std::vector<TuningTable> tables;
};

std::vector<TuningTables> tuning_tables(const CameraTuning& before, const CameraTuning& after);

/// What a reader of the gain triples would take for a fault.
inline constexpr const char* kTripleNote =
    "Triple 4: its g became its r, and triple 1's g its g, as documented.";

/// A table without a difference is one line.
void show_tuning(Terminal& terminal, const CameraTuning& before, const CameraTuning& after);

}  // namespace awbcal

#endif
