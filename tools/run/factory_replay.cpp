#include "run/factory_replay.h"

#include <fmt/format.h>

#include <filesystem>

#include "awb_calibration/factory.h"
#include "inspect/claims.h"
#include "inspect/phrases.h"
#include "run/scratch_phone.h"
#include "run/verification_phrases.h"
#include "text/terminal.h"

namespace awbcal {

namespace {

void begin_run(const ReplaySettings& settings) {
  const auto [golden_rg, golden_bg] = settings.golden;
  const float rg[3] = {golden_rg, golden_rg, golden_rg};
  const float bg[3] = {golden_bg, golden_bg, golden_bg};
  awb_set_camid(0);
  check_and_init_awb_calibration();
  awb_calibration_set_parm(settings.threshold, settings.light_source);
  awb_calibration_set_GS(rg, bg);
  awb_enable_calibration();
}

ReplayedFrame run_frame(const Frame& frame, const ReplaySettings& settings) {
  const int32_t rg = calib::frame_mean(frame.rg_sum, frame.count);
  const int32_t bg = calib::frame_mean(frame.bg_sum, frame.count);
  // As the record of a run of nothing but such frames would have it.
  const calib::GoldenRatios alone = calib::ratios_of(calib::run_mean(10.0F * static_cast<float>(rg)),
                                                     calib::run_mean(10.0F * static_cast<float>(bg)));
  const calib::Margin margin =
      calib::margin_of(alone, settings.golden, calib::tolerance_of(static_cast<float>(settings.threshold)));
  if (awb_if_enabled() == 0) return {rg, bg, margin, FramePart::after_the_run};
  QOR_AWB_Calibration_collect(frame.rg_sum, frame.bg_sum, frame.count);
  return {rg, bg, margin, awb_if_enabled() == 0 ? FramePart::judged : FramePart::summed};
}

ReplayedRecord stored_record(const phone::VirtualPhone& phone, const ReplaySettings& settings) {
  const Bytes partition = phone.partition();
  const uint8_t* bytes = partition.data() + calib::kAreaBase4k + calib::kSlotAwb;
  const auto record = calib::record_at<calib::AwbRecord>(bytes);
  return {record, margin_of({bytes, sizeof record}, settings.golden, static_cast<float>(settings.threshold))};
}

}  // namespace

Replay replay(const Frames& frames, const ReplaySettings& settings) {
  ConsoleCapture console;
  ScratchPhone scratch;
  begin_run(settings);
  Replay result;
  for (const FrameOfFile& each : frames) result.frames.push_back(run_frame(each.sums.frame, settings));
  if (awb_if_enabled() == 0) result.record = stored_record(scratch.phone(), settings);
  return result;
}

Outcome outcome_of(const Replay& replay) {
  if (!replay.record) return Outcome::nothing_to_judge;
  return replay.passed() ? Outcome::pass : Outcome::fail;
}

const char* part_text(FramePart part) {
  switch (part) {
    case FramePart::summed:
      return "summed";
    case FramePart::judged:
      return "judges";
    case FramePart::after_the_run:
      break;
  }
  return "after the run";
}

bool is_without_samples(const FrameOfFile& frame) {
  return frame.sums.frame.count == 0;
}

Table frame_table(const Frames& frames, const Replay& replay) {
  Table table({">frame", ">samples", ">dark", ">bright", ">R/G", ">B/G", ">delta", ">of limit", "", "file"});
  for (size_t i = 0; i < frames.size(); ++i) {
    const ReplayedFrame& frame = replay.frames[i];
    const GridSums& sums = frames[i].sums;
    table.row({std::to_string(i + 1), std::to_string(sums.frame.count), std::to_string(sums.dark_cells),
               std::to_string(sums.saturated_cells), fmt::format("{:.4f}", frame.rg / 1024.0),
               fmt::format("{:.4f}", frame.bg / 1024.0), fmt::format("{:.4f}", frame.margin.delta),
               fmt::format("{:.0f} %", percent_of_limit(frame.margin)), part_text(frame.part),
               std::filesystem::path(frames[i].place).filename().string()});
  }
  return table;
}

std::vector<std::string> frame_warnings(const Frames& frames) {
  std::vector<std::string> warnings;
  for (size_t i = 0; i < frames.size(); ++i) {
    if (!is_without_samples(frames[i])) continue;
    warnings.push_back(
        fmt::format("warning: frame {} ({}) has no usable sample and counts as 0, as on the phone", i + 1,
                    frames[i].place));
  }
  return warnings;
}

std::string record_text(const ReplayedRecord& replayed) {
  const calib::AwbRecord& record = replayed.record;
  return fmt::format("Record: valid word {}, R/G {} ({:.4f}), B/G {} ({:.4f})", record.valid_word, record.rg,
                     record.rg / 1024.0, record.bg, record.bg / 1024.0);
}

std::string outcome_text(const Replay& replay) {
  if (replay.record) return margin_text(replay.record->margin);
  return fmt::format("{}; ten are summed, the eleventh judges", counted(replay.frames.size(), "frame"));
}

}  // namespace awbcal
