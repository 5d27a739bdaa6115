// What a camera start changed in the tuning: every field that a correction may write, for scripts and for people.
#ifndef RUN_TUNING_CHANGES_H
#define RUN_TUNING_CHANGES_H

#include <string>
#include <vector>

#include "run/camera_start.h"
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

/// A table per kind of field, before and after; one without a difference in one line.
void show_tuning(Terminal& terminal, const CameraTuning& before, const CameraTuning& after);

}  // namespace awbcal

#endif
