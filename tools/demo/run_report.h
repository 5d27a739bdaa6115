// What a person reads about a calibration run and about a record on the partition.
#ifndef DEMO_RUN_REPORT_H
#define DEMO_RUN_REPORT_H

#include "demo/factory_line.h"
#include "text/tables.h"

namespace awbcal {

/// Properties, exposure target and the frames at which something happened.
void show_run(Terminal& terminal, const RunPlan& plan, const RunResult& result);

/// Console lines, errors in the log, files, and the report left for the factory tool.
void show_outcome(Terminal& terminal, const RunResult& result);

/// What the run did to the files under /data/misc/camera.
void show_files(Terminal& terminal, const RunResult& result);

/// The record of `kind` in the slot of `camera`: place, fields, rules.
void show_record(Terminal& terminal, phone::VirtualPhone& phone, RecordKind kind, calib::Camera camera);

/// Records in a line each: place, whether every rule passes, values.
void show_records(Terminal& terminal, const phone::VirtualPhone& phone,
                  const std::vector<std::pair<RecordKind, calib::Camera>>& records);

/// The run's AWB record against the golden sample, or that the run came to no end.
void show_verdict(Terminal& terminal, const phone::VirtualPhone& phone, const RunPlan& plan,
                  const RunResult& result);

/// "PASS" or "FAIL".
Cell verdict_cell(bool passed);

}  // namespace awbcal

#endif
