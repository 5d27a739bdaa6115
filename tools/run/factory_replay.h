// Recorded frames through the library's own AWB run, each with what it counts for alone.
#ifndef RUN_FACTORY_REPLAY_H
#define RUN_FACTORY_REPLAY_H

#include <optional>
#include <string>
#include <vector>

#include "factory/run_arithmetic.h"
#include "inspect/decode.h"
#include "run/frame_files.h"
#include "run/verification.h"
#include "text/tables.h"

namespace awbcal {

struct ReplaySettings {
  calib::GoldenRatios golden = {};
  uint32_t threshold = 20;    ///< percent of the larger golden ratio
  uint32_t light_source = 3;  ///< its version, 1 to 3
};

enum class FramePart { summed, judged, after_the_run };

/// A frame with what it is worth by itself.
struct ReplayedFrame {
  int32_t rg;  ///< the rounded mean, as the run takes it
  int32_t bg;
  calib::Margin margin;
  FramePart part;
};

/// The record that the run stored.
struct ReplayedRecord {
  calib::AwbRecord record;
  calib::Margin margin;

  bool passed() const { return record.valid_word % calib::kVersionUnit == calib::kValidMark; }
};

struct Replay {
  std::vector<ReplayedFrame> frames;
  std::optional<ReplayedRecord> record;  ///< none: too few frames for a judgement

  bool passed() const { return record && record->passed(); }
};

using Frames = std::vector<FrameOfFile>;

Replay replay(const Frames& frames, const ReplaySettings& settings);

Outcome outcome_of(const Replay& replay);

// ---- for people -------------------------------------------------------------------------------------------

const char* part_text(FramePart part);

/// Counts as 0 for both ratios, which pulls a run's mean down without being seen in it.
bool is_without_samples(const FrameOfFile& frame);

Table frame_table(const Frames& frames, const Replay& replay);
std::vector<std::string> frame_warnings(const Frames& frames);
std::string record_text(const ReplayedRecord& replayed);

/// What decided: the margin, or that there are too few frames.
std::string outcome_text(const Replay& replay);

}  // namespace awbcal

#endif
