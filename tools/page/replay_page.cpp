#include "page/replay_page.h"

#include <fmt/format.h>

#include "page/ratio_chart.h"

namespace awbcal {

namespace {

ChartTable points_of(const Replay& replay) {
  std::vector<RatioPoint> points;
  for (size_t i = 0; i < replay.frames.size(); ++i) {
    const ReplayedFrame& frame = replay.frames[i];
    points.push_back({.name = fmt::format("frame {}", i + 1),
                      .rg = frame.rg / 1024.0,
                      .bg = frame.bg / 1024.0,
                      .result = frame.margin.is_kept() ? "within the limit" : "beyond the limit",
                      .is_bad = !frame.margin.is_kept()});
  }
  if (replay.record) {
    const calib::AwbRecord& record = replay.record->record;
    points.push_back({.name = "the run",
                      .rg = record.rg / 1024.0,
                      .bg = record.bg / 1024.0,
                      .result = replay.passed() ? "passes" : "fails",
                      .is_bad = !replay.passed()});
  }
  return point_table(points);
}

}  // namespace

std::string replay_page(const Frames& frames, const Replay& replay, const ReplaySettings& settings) {
  const Outcome outcome = outcome_of(replay);
  Page page("Recorded frames, judged as the factory run does");
  page.result(fmt::format("{}: {}", outcome_name(outcome), outcome_text(replay)),
              outcome == Outcome::pass ? Style::good : Style::bad);
  if (replay.record) page.paragraph(record_text(*replay.record));
  for (const std::string& warning : frame_warnings(frames)) page.paragraph(warning);
  page.chart({.kind = ChartKind::ratios,
              .caption = "R/G against B/G of each frame and of the run",
              .tables = {golden_table({{settings.golden, settings.threshold}}), points_of(replay)}});
  page.heading("Frames");
  page.table(frame_table(frames, replay));
  return page.html();
}

}  // namespace awbcal
