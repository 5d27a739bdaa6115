// awbcal explain: a camera start on a copy of the phone, told from the library's own log; or what a log of a phone
// tells.

#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "commands/commands.h"
#include "commands/explain_log.h"
#include "commands/options.h"
#include "run/explanation.h"
#include "run/tuning_changes.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct ExplainArguments {
  std::string log;     ///< a log to read, instead of a camera to start
  std::string camera;  ///< with a log, it may be the first of the inputs
  InputOptions input;
  ExplainQuestion question;
  std::optional<calib::GoldenRatios> golden;
  Modules modules;
  bool verbose = false;
  bool json = false;
};

void print_answer(Terminal& terminal, const ExplainArguments& arguments, const Explanation& explanation) {
  for (const CorrectionStory& story : explanation.corrections) terminal.paragraph(story.sentence, 0);
  if (!arguments.golden) terminal.paragraph(assumed_golden_text(), 0);
}

void print_log(Terminal& terminal, const Explanation& explanation) {
  for (const LibraryCall& call : explanation.calls) {
    terminal.heading(call.function);
    for (const phone::LogLine& line : call.log)
      terminal.log_line((is_error(line) ? "(error) " : "") + line.text);
  }
}

void print_explanation(Terminal& terminal, const Phone& phone, const ExplainArguments& arguments,
                       const Explanation& explanation) {
  print_answer(terminal, arguments, explanation);
  terminal.line();
  show_input(terminal, phone);
  show_modules(terminal, arguments.question.modules, explanation.assumed);
  terminal.heading(
      fmt::format("{} camera: where its records come from", camera_name(arguments.question.camera)));
  source_table(explanation).print(terminal, 2);
  terminal.heading("The tuning before, after, ratio");
  show_tuning(terminal, explanation.before, explanation.after);
  if (arguments.verbose) print_log(terminal, explanation);
}

Json call_json(const LibraryCall& call) {
  Json lines = Json::array();
  for (const phone::LogLine& line : call.log)
    lines.push_back({{"error", is_error(line)}, {"text", line.text}});
  return {{"function", call.function}, {"log", std::move(lines)}};
}

const char* result_name(const CorrectionStory& story) {
  if (!story.is_known) return "not known";
  if (story.acceptance == Acceptance::accepted) return "done";
  return story.acceptance == Acceptance::refused ? "refused" : "not reached";
}

Json correction_json(const CorrectionStory& story) {
  return {{"effect", story.reader->effect},
          {"function", story.reader->function},
          {"kind", story.spec->id},
          {"result", result_name(story)},
          {"refused_by_rule", story.rule == nullptr ? Json(nullptr) : Json(story.rule)},
          {"refused_by_test", story.test == 0 ? Json(nullptr) : Json(story.test)},
          {"sentence", story.sentence}};
}

Json explanation_json(const Phone& phone, const ExplainArguments& arguments, const Explanation& explanation) {
  const auto [golden_rg, golden_bg] = arguments.question.golden;
  Json document = json_document("explain");
  document["input"] = json_of(phone);
  document["camera"] = camera_name(arguments.question.camera);
  document["modules"] = modules_json(arguments.question.modules);
  document["assumed_modules"] = modules_json(explanation.assumed);
  document["golden"] = {{"rg", golden_rg}, {"bg", golden_bg}, {"assumed", !arguments.golden}};
  document["corrections"] = Json::array();
  for (const CorrectionStory& story : explanation.corrections)
    document["corrections"].push_back(correction_json(story));
  document["sources"] = Json::array();
  for (const SourceStory& story : explanation.sources) {
    document["sources"].push_back({{"kind", story.spec->id},
                                   {"source", story.place},
                                   {"state", state_name(story.state)},
                                   {"fate", story.fate}});
  }
  document["calls"] = Json::array();
  for (const LibraryCall& call : explanation.calls) document["calls"].push_back(call_json(call));
  document["tuning"] = Json::array();
  for (const TuningValue& value : tuning_values(explanation.before, explanation.after)) {
    document["tuning"].push_back({{"block", value.block},
                                  {"field", value.field},
                                  {"before", number_json(value.before)},
                                  {"after", number_json(value.after)},
                                  {"ratio", number_json(value.after / value.before)}});
  }
  return document;
}

int run_log(ExplainArguments& arguments, Terminal& terminal) {
  LogQuestion question{.file = arguments.log, .phone = arguments.input, .json = arguments.json};
  question.camera = camera_of_name(arguments.camera);
  if (!question.camera && !arguments.camera.empty())
    question.phone.paths.insert(question.phone.paths.begin(), arguments.camera);
  question.phone.with_digests = arguments.json;
  return run_explain_log(question, terminal);
}

int run_explain(ExplainArguments& arguments, Terminal& terminal) {
  if (!arguments.log.empty()) return run_log(arguments, terminal);
  ExplainQuestion& question = arguments.question;
  question.camera = camera_of_name(arguments.camera).value();
  // A file that does not name its camera is of the one that is asked for.
  if (!arguments.input.camera) arguments.input.camera = question.camera;
  arguments.input.with_digests = arguments.json;
  const Phone phone = open_phone_of(arguments.input);
  question.golden = arguments.golden.value_or(kAssumedGolden);
  question.modules = arguments.modules;
  question.modules.merge(modules_of(phone));
  const Explanation explanation = explain(phone, question);
  if (arguments.json) {
    print_json(explanation_json(phone, arguments, explanation));
  } else {
    print_explanation(terminal, phone, arguments, explanation);
  }
  const bool needs_partition = question.reboot || phone.kind == Layout::partition;
  const bool is_complete = needs_partition ? phone.is_complete() : phone.is_complete_without_partition();
  const bool is_known =
      is_complete && std::ranges::all_of(explanation.corrections, &CorrectionStory::is_known);
  return is_known ? kDone : kBadInput;
}

/// Without a log both are needed, and the camera has to be one.
void check_arguments(const CLI::App& app, const ExplainArguments& arguments) {
  if (!arguments.log.empty()) return;
  if (arguments.camera.empty()) throw CLI::RequiredError("CAMERA");
  if (!camera_of_name(arguments.camera))
    throw CLI::ValidationError("CAMERA", fmt::format("{}: no camera: main, front or sub", arguments.camera));
  if (app.get_option("INPUT")->count() == 0) throw CLI::RequiredError("INPUT");
}

}  // namespace

Command add_explain(CLI::App& parent) {
  const auto arguments = std::make_shared<ExplainArguments>();
  ExplainQuestion& question = arguments->question;
  CLI::App* app =
      add_command(parent, "explain", "Start a camera on a copy of the phone and explain the result");
  app->add_option("CAMERA", arguments->camera, "main, front or sub; needed without --log")
      ->default_str("")
      ->type_name("");
  add_input_options(*app, arguments->input);
  app->get_option("INPUT")->required(false);
  CLI::Option* log =
      app->add_option("--log", arguments->log,
                      "Tell what a log, a bug report or - for stdin says; INPUT is compared with it")
          ->type_name("FILE");
  add_fuse_option(*app, arguments->modules);
  add_golden_option(*app, arguments->golden);
  add_tuning_options(*app, question);
  app->add_flag("--reboot", question.reboot, "First let the kernel export the partition again, as at a boot");
  app->add_flag("-v,--verbose", arguments->verbose, "Print what the library logged as well");
  add_json_option(*app, arguments->json);
  for (const char* of_a_start : {"--fuse", "--golden", "--tuning", "--mesh-tuning", "--reboot", "--verbose"})
    log->excludes(app->get_option(of_a_start));
  app->parse_complete_callback([app, arguments] { check_arguments(*app, *arguments); });
  return {app, [arguments](Terminal& terminal) { return run_explain(*arguments, terminal); }};
}

}  // namespace awbcal
