// awbcal replay: recorded frames through the factory run.

#include <fmt/format.h>

#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "page/replay_page.h"
#include "run/factory_replay.h"
#include "run/frame_files.h"

namespace awbcal {

namespace {

struct ReplayArguments {
  std::vector<std::string> files;
  FrameFileOptions format;
  std::pair<size_t, size_t> size;
  std::pair<size_t, size_t> grid = {32, 24};
  ReplaySettings settings;
  OutputTarget page;
  bool json = false;
};

void print_replay(Terminal& terminal, const Frames& frames, const Replay& replay) {
  frame_table(frames, replay).print(terminal, 0);
  terminal.line();
  for (const std::string& warning : frame_warnings(frames)) terminal.paragraph(warning, 0);
  if (replay.record) terminal.paragraph(record_text(*replay.record), 0);
  const Outcome outcome = outcome_of(replay);
  terminal.line(fmt::format(
      "{}: {}", terminal.styled(outcome_name(outcome), outcome == Outcome::pass ? Style::good : Style::bad),
      outcome_text(replay)));
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
  const bool has_page = !arguments.page.path.empty();
  if (has_page) check_output(arguments.page, arguments.files);
  const Frames frames = read_frame_files(arguments.files, arguments.format);
  const Replay result = replay(frames, arguments.settings);
  if (arguments.json) {
    print_json(replay_json(frames, result));
  } else {
    print_replay(terminal, frames, result);
  }
  if (has_page)
    write_output(arguments.page, replay_page(frames, result, arguments.settings), arguments.files);
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
  add_page_options(*app, arguments->page);
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_replay(*arguments, terminal); }};
}

}  // namespace awbcal
