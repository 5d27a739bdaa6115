// awbcal replay: recorded frames through the factory run.

#include <fmt/format.h>

#include <cmath>
#include <memory>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"
#include "commands/commands.h"
#include "commands/options.h"
#include "inspect/errors.h"
#include "run/bayer.h"
#include "run/scratch_phone.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct ReplayArguments {
  std::vector<std::string> files;
  RawFormat format{.packing = "csv"};
  std::string size;
  std::string grid = "32x24";
  std::string golden;
  double threshold = 20;
  uint32_t light_source = 3;
  bool json = false;
};

/// A frame with what was left out of it, and the judgement on it alone.
struct ReplayedFrame {
  GridSums sums;
  uint32_t rg = 0;
  uint32_t bg = 0;
  AwbVerdict verdict{};
  std::string what;
};

std::pair<size_t, size_t> parse_size(const std::string& text, const char* option) {
  size_t first = 0;
  size_t second = 0;
  char rest = '\0';
  if (std::sscanf(text.c_str(), "%5zux%5zu%c", &first, &second, &rest) != 2) {
    throw InputError(fmt::format("{}: WIDTHxHEIGHT is wanted, not \"{}\"", option, text));
  }
  return {first, second};
}

std::vector<ReplayedFrame> read_images(const ReplayArguments& arguments) {
  RawFormat format = arguments.format;
  Grid grid;
  std::tie(grid.columns, grid.rows) = parse_size(arguments.grid, "--grid");
  if (format.packing != "dng") std::tie(format.width, format.height) = parse_size(arguments.size, "--size");
  std::vector<ReplayedFrame> frames;
  for (const std::string& name : arguments.files) {
    BayerImage image;
    if (format.packing == "dng") {
      image = read_dng(name);
    } else {
      const FileContent content = read_file(name);
      if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", name, *content.trouble));
      image = unpack(content.bytes, format, name);
    }
    frames.push_back({.sums = reduce(image, grid, name), .what = {}});
  }
  return frames;
}

std::vector<ReplayedFrame> read_all(const ReplayArguments& arguments) {
  if (arguments.format.packing != "csv") return read_images(arguments);
  std::vector<ReplayedFrame> frames;
  for (const std::string& name : arguments.files) {
    for (const Frame& frame : read_frames(name)) frames.push_back({.sums = {.frame = frame}, .what = {}});
  }
  return frames;
}

/// The run, on a phone of its own.
class Replay {
 public:
  explicit Replay(const ReplayArguments& arguments)
      : frames_(read_all(arguments)),
        golden_(parse_golden(arguments.golden).value()),
        threshold_(static_cast<float>(arguments.threshold)) {
    if (!(arguments.threshold >= 0) || arguments.threshold > 1000 ||
        std::floor(arguments.threshold) != arguments.threshold) {
      throw InputError("--threshold: a whole number of percent up to 1000 is wanted");
    }
    if (arguments.light_source < 1 || arguments.light_source > 3) {
      throw InputError("--light-source: 1, 2 or 3 is wanted");
    }
    ConsoleCapture console;
    ScratchPhone scratch;
    prepare(arguments);
    for (ReplayedFrame& frame : frames_) run(frame);
    if (has_verdict_) take_record(scratch);
  }

  bool passed() const { return has_verdict_ && verdict_.passed() && record_is_marked_; }
  void print(Terminal& terminal) const;
  Json json() const;

 private:
  void prepare(const ReplayArguments& arguments) const {
    const float rg[3] = {golden_.rg, golden_.rg, golden_.rg};
    const float bg[3] = {golden_.bg, golden_.bg, golden_.bg};
    awb_set_camid(0);
    check_and_init_awb_calibration();
    awb_calibration_set_parm(static_cast<uint32_t>(arguments.threshold), arguments.light_source);
    awb_calibration_set_GS(rg, bg);
    awb_enable_calibration();
  }

  AwbVerdict judge_alone(uint32_t rg, uint32_t bg) const {
    calib::AwbRecord record{};
    record.rg = rg;
    record.bg = bg;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return awb_verdict({bytes, sizeof record}, golden_.rg, golden_.bg, threshold_);
  }

  void run(ReplayedFrame& frame) {
    const Frame& sums = frame.sums.frame;
    // What a frame counts for by itself is the rounded mean, as the run takes it.
    const int64_t count = sums.count != 0 ? sums.count : 1;
    frame.rg = sums.count == 0 ? 0 : static_cast<uint32_t>((sums.rg_sum + count / 2) / count);
    frame.bg = sums.count == 0 ? 0 : static_cast<uint32_t>((sums.bg_sum + count / 2) / count);
    frame.verdict = judge_alone(frame.rg, frame.bg);
    if (awb_if_enabled() == 0) {
      frame.what = has_verdict_ ? "after the run" : "";
      return;
    }
    QOR_AWB_Calibration_collect(sums.rg_sum, sums.bg_sum, sums.count);
    has_verdict_ = awb_if_enabled() == 0;
    frame.what = has_verdict_ ? "judges" : "summed";
  }

  void take_record(ScratchPhone& scratch) {
    const Bytes partition = scratch.phone().partition();
    const RecordSpec& spec = record_spec(RecordKind::awb);
    const auto bytes = std::span(partition).subspan(calib::kAreaBase4k + *spec.offset, spec.size);
    record_.assign(bytes.begin(), bytes.end());
    verdict_ = awb_verdict(record_, golden_.rg, golden_.bg, threshold_);
    const uint64_t valid_word = claims_of(spec, record_).words.valid_word;
    record_is_marked_ = valid_word % calib::kVersionUnit == calib::kValidMark;
  }

  std::vector<ReplayedFrame> frames_;
  Golden golden_;
  float threshold_;
  Bytes record_;
  AwbVerdict verdict_{};
  bool has_verdict_ = false;
  bool record_is_marked_ = false;
};

void Replay::print(Terminal& terminal) const {
  Table table({">frame", ">samples", ">dark", ">bright", ">R/G", ">B/G", ">delta", ">of limit", ""});
  for (size_t i = 0; i < frames_.size(); ++i) {
    const ReplayedFrame& frame = frames_[i];
    table.row({std::to_string(i + 1), std::to_string(frame.sums.frame.count),
               std::to_string(frame.sums.dark_cells), std::to_string(frame.sums.saturated_cells),
               fmt::format("{:.4f}", frame.rg / 1024.0), fmt::format("{:.4f}", frame.bg / 1024.0),
               fmt::format("{:.4f}", frame.verdict.delta),
               fmt::format("{:.0f} %", frame.verdict.percent_of_limit()), frame.what});
  }
  table.print(terminal, 0);
  terminal.line();
  if (!has_verdict_) {
    terminal.paragraph(fmt::format("No verdict after {}: ten are summed, the eleventh judges",
                                   counted(frames_.size(), "frame")),
                       0);
    return;
  }
  const auto record = calib::record_at<calib::AwbRecord>(record_.data());
  terminal.paragraph(fmt::format("Record: valid word {}, R/G {} ({:.4f}), B/G {} ({:.4f})", record.valid_word,
                                 record.rg, record.rg / 1024.0, record.bg, record.bg / 1024.0),
                     0);
  terminal.line(fmt::format("{}: {:.4f} from the golden sample, {:.4f} allowed ({:.0f} % of it)",
                            terminal.styled(passed() ? "PASS" : "FAIL", passed() ? Style::good : Style::bad),
                            verdict_.delta, verdict_.limit, verdict_.percent_of_limit()));
}

Json margin_json(const AwbVerdict& verdict) {
  return {{"delta", verdict.delta}, {"limit", verdict.limit}};
}

Json Replay::json() const {
  Json document = json_document("replay");
  document["frames"] = Json::array();
  for (const ReplayedFrame& frame : frames_) {
    document["frames"].push_back({{"rg_sum", frame.sums.frame.rg_sum},
                                  {"bg_sum", frame.sums.frame.bg_sum},
                                  {"count", frame.sums.frame.count},
                                  {"dark_cells", frame.sums.dark_cells},
                                  {"saturated_cells", frame.sums.saturated_cells},
                                  {"rg", frame.rg},
                                  {"bg", frame.bg},
                                  {"margin", margin_json(frame.verdict)},
                                  {"part", frame.what}});
  }
  if (has_verdict_) {
    const auto record = calib::record_at<calib::AwbRecord>(record_.data());
    document["record"] = {{"valid_word", record.valid_word}, {"rg", record.rg}, {"bg", record.bg}};
    document["margin"] = margin_json(verdict_);
  }
  document["result"] = !has_verdict_ ? "NO VERDICT" : passed() ? "PASS" : "FAIL";
  return document;
}

}  // namespace

Command add_replay(CLI::App& parent) {
  const auto arguments = std::make_shared<ReplayArguments>();
  CLI::App* app = parent.add_subcommand("replay", "Judge recorded frames as the factory run does");
  app->add_option("FRAMES", arguments->files, "CSV of rg_sum,bg_sum,count, or raw images, one a frame")
      ->required();
  app->add_option("--golden", arguments->golden, "Golden sample")->required()->type_name("RG,BG");
  app->add_option("--threshold", arguments->threshold, "Percent of the golden sample allowed [20]")
      ->type_name("PERCENT");
  app->add_option("--light-source", arguments->light_source, "Light-source version, 1 to 3 [3]")
      ->type_name("NUMBER");
  app->add_option("--format", arguments->format.packing, "csv, raw10, raw16 or dng [csv]")
      ->check(CLI::IsMember({"csv", "raw10", "raw16", "dng"}))
      ->type_name("KIND");
  app->add_option("--size", arguments->size, "Samples of a raw10 or raw16 image")->type_name("WxH");
  app->add_option("--stride", arguments->format.stride, "Bytes from row to row [no padding]")
      ->type_name("BYTES");
  app->add_option("--bayer", arguments->format.pattern, "rggb, bggr, grbg or gbrg [rggb]")
      ->check(CLI::IsMember({"rggb", "bggr", "grbg", "gbrg"}))
      ->type_name("PATTERN");
  app->add_option("--black", arguments->format.black, "Black level of raw10 or raw16 [64]")
      ->type_name("LEVEL");
  app->add_option("--white", arguments->format.white, "Clipping level of raw10 or raw16 [1023]")
      ->type_name("LEVEL");
  app->add_option("--grid", arguments->grid, "Cells of the statistics [32x24]")->type_name("CxR");
  app->add_flag("--json", arguments->json, "For programs");
  return {app, [arguments](Terminal& terminal) {
            const Replay replay(*arguments);
            if (arguments->json) {
              print_json(replay.json());
            } else {
              replay.print(terminal);
            }
            return replay.passed() ? kDone : kFailed;
          }};
}

}  // namespace awbcal
