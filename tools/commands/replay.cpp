// awbcal replay: recorded frames through the factory run.

#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "run/factory_replay.h"
#include "run/frame_files.h"
#include "run/verification.h"
#include "text/printable.h"
#include "text/tables.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

struct ReplayArguments {
  std::vector<std::string> files;
  FrameFileOptions format;
  std::pair<size_t, size_t> size;
  std::pair<size_t, size_t> grid = {32, 24};
  ReplaySettings settings;
  bool json = false;
};

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

using Frames = std::vector<FrameOfFile>;

bool is_without_samples(const FrameOfFile& frame) {
  return frame.sums.frame.count == 0;
}

void print_frames(Terminal& terminal, const Frames& frames, const Replay& replay) {
  Table table({">frame", ">samples", ">dark", ">bright", ">R/G", ">B/G", ">delta", ">of limit", "", "file"});
  for (size_t i = 0; i < frames.size(); ++i) {
    const ReplayedFrame& frame = replay.frames[i];
    const GridSums& sums = frames[i].sums;
    table.row({std::to_string(i + 1), std::to_string(sums.frame.count), std::to_string(sums.dark_cells),
               std::to_string(sums.saturated_cells), fmt::format("{:.4f}", frame.rg / 1024.0),
               fmt::format("{:.4f}", frame.bg / 1024.0), fmt::format("{:.4f}", frame.margin.delta),
               fmt::format("{:.0f} %", percent_of_limit(frame.margin)), part_text(frame.part),
               printable(fs::path(frames[i].place).filename().string())});
  }
  table.print(terminal, 0);
  terminal.line();
}

/// What pulls a run's mean down without being seen in it.
void warn_of_empty_frames(Terminal& terminal, const Frames& frames) {
  for (size_t i = 0; i < frames.size(); ++i) {
    if (!is_without_samples(frames[i])) continue;
    terminal.paragraph(
        fmt::format("warning: frame {} ({}) has no usable sample and counts as 0, as on the phone", i + 1,
                    printable(frames[i].place)),
        0);
  }
}

void print_replay(Terminal& terminal, const Frames& frames, const Replay& replay) {
  print_frames(terminal, frames, replay);
  warn_of_empty_frames(terminal, frames);
  if (!replay.record) {
    terminal.line(fmt::format("{}: {}; ten are summed, the eleventh judges",
                              terminal.styled(outcome_name(outcome_of(replay)), Style::bad),
                              counted(frames.size(), "frame")));
    return;
  }
  const auto& [record, margin] = *replay.record;
  terminal.paragraph(fmt::format("Record: valid word {}, R/G {} ({:.4f}), B/G {} ({:.4f})", record.valid_word,
                                 record.rg, record.rg / 1024.0, record.bg, record.bg / 1024.0),
                     0);
  terminal.line(fmt::format("{}: {}", pass_or_fail(terminal, replay.passed()), margin_text(margin)));
}

Json frame_json(const FrameOfFile& of, const ReplayedFrame& frame) {
  const GridSums& sums = of.sums;
  return {{"file", of.place},
          {"rg_sum", sums.frame.rg_sum},
          {"bg_sum", sums.frame.bg_sum},
          {"count", sums.frame.count},
          {"dark_cells", sums.dark_cells},
          {"saturated_cells", sums.saturated_cells},
          {"rg", frame.rg},
          {"bg", frame.bg},
          {"margin", margin_json(frame.margin)},
          {"part", part_text(frame.part)},
          {"is_without_samples", is_without_samples(of)}};
}

Json replay_json(const Frames& frames, const Replay& replay) {
  Json document = json_document("replay");
  document["frames"] = Json::array();
  for (size_t i = 0; i < frames.size(); ++i)
    document["frames"].push_back(frame_json(frames[i], replay.frames[i]));
  if (replay.record) {
    const auto& [record, margin] = *replay.record;
    document["record"] = {{"valid_word", record.valid_word}, {"rg", record.rg}, {"bg", record.bg}};
    document["margin"] = margin_json(margin);
  }
  document["result"] = outcome_name(outcome_of(replay));
  document["exit_code"] = exit_code_of(outcome_of(replay));
  return document;
}

int run_replay(ReplayArguments& arguments, Terminal& terminal) {
  std::tie(arguments.format.format.width, arguments.format.format.height) = arguments.size;
  std::tie(arguments.format.grid.columns, arguments.format.grid.rows) = arguments.grid;
  const Frames frames = read_frame_files(arguments.files, arguments.format);
  const Replay result = replay(frames, arguments.settings);
  if (arguments.json) {
    print_json(replay_json(frames, result));
  } else {
    print_replay(terminal, frames, result);
  }
  return exit_code_of(outcome_of(result));
}

}  // namespace

Command add_replay(CLI::App& parent) {
  const auto arguments = std::make_shared<ReplayArguments>();
  RawFormat& raw = arguments->format.format;
  CLI::App* app = add_command(parent, "replay", "Judge recorded frames as the factory run does");
  app->add_option("FRAMES", arguments->files,
                  "CSV of rg_sum,bg_sum,count, or raw images, one per frame; - is stdin")
      ->required()
      ->default_str("")
      ->type_name("");
  add_golden_option(*app, arguments->settings.golden)->required();
  add_threshold_option(*app, arguments->settings.threshold);
  app->add_option("--light-source", arguments->settings.light_source, "Light-source version, 1 to 3")
      ->check(whole_number(1, 3))
      ->type_name("NUMBER");
  app->add_option("--format", raw.packing, "csv, raw10, raw16 or dng; otherwise by name and content")
      ->check(one_of({"csv", "raw10", "raw16", "dng"}))
      ->default_str("")
      ->type_name("KIND");
  app->add_option("--size", arguments->size, "Samples of a raw10 or raw16 image")
      ->delimiter('x')
      ->default_str("")
      ->type_name("WxH");
  app->add_option("--stride", raw.stride, "Bytes from one row to the next; 0 means no padding")
      ->check(whole_number(0, UINT32_MAX))
      ->type_name("BYTES");
  app->add_option("--bayer", raw.pattern, "rggb, bggr, grbg or gbrg")
      ->check(one_of({"rggb", "bggr", "grbg", "gbrg"}))
      ->type_name("PATTERN");
  app->add_option("--black", raw.black, "Black level of raw10 or raw16")->type_name("LEVEL");
  app->add_option("--white", raw.white, "Clipping level of raw10 or raw16")->type_name("LEVEL");
  app->add_option("--grid", arguments->grid, "Cells of the statistics")
      ->delimiter('x')
      ->default_str("32x24")
      ->type_name("CxR");
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_replay(*arguments, terminal); }};
}

}  // namespace awbcal
