// awbcal explain: a camera start on a copy of the phone, told from the library's own log.

#include <fmt/format.h>

#include <cmath>
#include <memory>

#include "commands/commands.h"
#include "commands/options.h"
#include "run/explanation.h"
#include "run/tuning_changes.h"
#include "text/tables.h"

namespace awbcal {

namespace {

struct ExplainArguments {
  InputOptions input;
  ExplainQuestion question = {.golden = {0.7539F, 0.5625F}};
  Modules modules;
  bool json = false;
};

void print_sources(Terminal& terminal, const Explanation& explanation) {
  Table table({"", "", ""});
  const RecordSpec* last = nullptr;
  for (const SourceStory& story : explanation.sources) {
    table.row({story.spec == last ? "" : story.spec->id, story.place, story.fate});
    last = story.spec;
  }
  table.print(terminal, 2);
}

void print_explanation(Terminal& terminal, const Phone& phone, calib::Camera camera,
                       const Explanation& explanation) {
  show_input(terminal, phone);
  terminal.heading(fmt::format("{} camera: where its records come from", camera_name(camera)));
  print_sources(terminal, explanation);
  for (const LibraryCall& call : explanation.calls) {
    terminal.heading(call.function);
    for (const phone::LogLine& line : call.log) {
      terminal.quote((is_error(line) ? "(error) " : "") + line.text);
    }
  }
  terminal.heading("The tuning before, after, ratio");
  show_tuning(terminal, explanation.before, explanation.after);
}

/// A number, or its name where JSON has none for it.
Json number_json(float value) {
  if (std::isfinite(value)) return value;
  return std::isnan(value) ? "nan" : value > 0 ? "infinity" : "-infinity";
}

Json call_json(const LibraryCall& call) {
  Json lines = Json::array();
  for (const phone::LogLine& line : call.log)
    lines.push_back({{"error", is_error(line)}, {"text", line.text}});
  return {{"function", call.function}, {"log", std::move(lines)}};
}

Json explanation_json(const Phone& phone, calib::Camera camera, const Explanation& explanation) {
  Json document = json_document("explain");
  document["input"] = json_of(phone);
  document["camera"] = camera_name(camera);
  document["sources"] = Json::array();
  for (const SourceStory& story : explanation.sources) {
    document["sources"].push_back({{"kind", story.spec->id}, {"source", story.place}, {"fate", story.fate}});
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

int run_explain(ExplainArguments& arguments, Terminal& terminal) {
  ExplainQuestion& question = arguments.question;
  // A file that does not name its camera is of the one that is asked for.
  if (!arguments.input.camera) arguments.input.camera = question.camera;
  const Phone phone = open_phone_of(arguments.input);
  question.modules = arguments.modules;
  question.modules.merge(modules_of(phone));
  const Explanation explanation = explain(phone, question);
  if (arguments.json) {
    print_json(explanation_json(phone, question.camera, explanation));
  } else {
    print_explanation(terminal, phone, question.camera, explanation);
  }
  return kDone;
}

}  // namespace

Command add_explain(CLI::App& parent) {
  const auto arguments = std::make_shared<ExplainArguments>();
  ExplainQuestion& question = arguments->question;
  CLI::App* app = add_command(parent, "explain", "Start a camera on a copy of the phone and say why");
  app->add_option("CAMERA", question.camera, "main, front or sub")
      ->required()
      ->transform(camera_names())
      ->default_str("")
      ->type_name("");
  add_input_options(*app, arguments->input);
  add_fuse_option(*app, arguments->modules);
  add_golden_option(*app, question.golden)->default_str("0.7539,0.5625");
  app->add_option("--tuning", question.tuning_file, "AWB tuning block to correct; otherwise a typical one")
      ->type_name("FILE");
  app->add_option("--mesh-tuning", question.mesh_tuning_file,
                  "Sensor's tuning block with the meshes; otherwise a typical one")
      ->type_name("FILE");
  app->add_flag("--reboot", question.reboot, "First let the kernel read the partition anew");
  add_json_option(*app, arguments->json);
  return {app, [arguments](Terminal& terminal) { return run_explain(*arguments, terminal); }};
}

}  // namespace awbcal
