// What the two reference-point corrections share before they differ: the AWB record, loaded and judged.
#ifndef CORRECTION_AWB_RECORD_H
#define CORRECTION_AWB_RECORD_H

#include <optional>

#include "records/judgement.h"

namespace calib {

/// All memory of the corrections: the record that each entry loaded last, for whoever reads a memory dump.
struct CorrectionState {
  AwbRecord reference_points;         // QOR_AWB_Calibration_Reference_Points_Correction
  AwbRecord module_reference_points;  // Correct_Reference_Points_qorModule
};

extern constinit CorrectionState correction_state;

/// Loads the selected camera's AWB record into `record`, which is cleared before. Nothing is returned when
/// there is none or its CRC is bad: then the flash step is left out as well.
std::optional<Judgement> load_awb_record(const char* name, AwbRecord& record, const FuseWords& module,
                                         const JudgementRule& rule);

/// Logs whether the record is used; returns the same.
bool log_use(bool is_used);

}  // namespace calib

#endif
