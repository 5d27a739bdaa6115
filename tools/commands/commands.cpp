#include "commands/commands.h"

#include <fmt/format.h>

#include <cmath>

#include "inspect/phrases.h"

namespace awbcal {

void print_json(const Json& document) {
  write_output({}, text_of(document), {});
}

void show_input(Terminal& terminal, const Phone& phone) {
  const std::vector<std::string> lines = input_lines(phone);
  for (size_t i = 0; i < lines.size(); ++i) terminal.paragraph(lines[i], i == 0 ? 0 : 2);
}

void show_modules(Terminal& terminal, const Modules& modules, const Modules& assumed) {
  for (const std::string& line : module_lines(modules, assumed)) terminal.paragraph(line);
}

Json modules_json(const Modules& modules) {
  Json json = Json::object();
  for (const auto& [camera, module] : modules) json[camera_name(camera)] = module;
  return json;
}

Json number_json(double value) {
  if (std::isfinite(value)) return value;
  return std::isnan(value) ? "nan" : value > 0 ? "infinity" : "-infinity";
}

int exit_code_of(Outcome outcome) {
  switch (outcome) {
    case Outcome::pass:
      return kDone;
    case Outcome::fail:
      return kFailed;
    case Outcome::nothing_to_judge:
      return kNothing;
    case Outcome::incomplete:
      break;
  }
  return kBadInput;
}

Json margin_json(const calib::Margin& margin) {
  return {{"delta", margin.delta}, {"limit", margin.limit}};
}

}  // namespace awbcal
