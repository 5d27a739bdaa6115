#include "commands/commands.h"

#include <fmt/format.h>

#include <cmath>

#include "run/verification.h"

namespace awbcal {

namespace {

const char* input_kind_text(Layout kind) {
  switch (kind) {
    case Layout::phone:
      return "a phone's files";
    case Layout::partition:
      return "an image of the partition \"mfg\"";
    case Layout::export_image:
      return "a kernel export of one camera";
    case Layout::dual_camera_node:
      return "the kernel's page of dual-camera records";
    case Layout::slot:
      return "one camera's slot of the record area";
    default:
      break;
  }
  return "one record";
}

}  // namespace

void print_json(const Json& document) {
  write_output({}, text_of(document), {});
}

std::string counted(size_t count, const char* noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string record_title(const RecordSpec& spec, std::optional<calib::Camera> camera) {
  return camera ? fmt::format("{} camera, {}", camera_name(*camera), spec.name) : spec.name;
}

std::string place_text(const Phone& phone, const FoundRecord& record) {
  return fmt::format("{}: {}, byte 0x{:x}", source_name(record.source), phone.files[record.file].path,
                     record.offset);
}

void show_input(Terminal& terminal, const Phone& phone) {
  const bool is_empty_image = phone.kind == Layout::partition && !phone.holds_calibration();
  terminal.paragraph(fmt::format("{}: {}", phone.name,
                                 is_empty_image ? "no calibration found" : input_kind_text(phone.kind)),
                     0);
  for (const std::string& note : phone.notes) terminal.paragraph(note);
  for (const std::string& unknown : phone.unknown) terminal.paragraph("not known: " + unknown);
  if (phone.area) {
    terminal.paragraph(fmt::format("record area at 0x{:x} ({})", phone.area->base, phone.area->reason));
  }
}

void show_modules(Terminal& terminal, const Modules& modules, const Modules& assumed) {
  for (const auto& [camera, module] : modules) {
    terminal.paragraph(fmt::format("{} module: fuse ID {}", camera_name(camera), fuse_text(module)));
  }
  for (const auto& [camera, module] : assumed) {
    terminal.paragraph(fmt::format(
        "{} module: not known; its record's own fuse ID, {}, is assumed; give --fuse to say which it is",
        camera_name(camera), fuse_text(module)));
  }
  if (modules.empty() && assumed.empty())
    terminal.paragraph("modules: not known; give --fuse to say which are fitted");
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

std::string pass_or_fail(const Terminal& terminal, bool passed) {
  return passed ? terminal.styled("PASS", Style::good) : terminal.styled("FAIL", Style::bad);
}

std::string margin_text(const calib::Margin& margin) {
  return fmt::format("{:.4f} from the golden sample, {:.4f} allowed ({:.0f} % of it)", margin.delta,
                     margin.limit, percent_of_limit(margin));
}

Json margin_json(const calib::Margin& margin) {
  return {{"delta", margin.delta}, {"limit", margin.limit}};
}

}  // namespace awbcal
