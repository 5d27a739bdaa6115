#include "commands/commands.h"

#include <fmt/format.h>

#include "run/verification.h"

namespace awbcal {

namespace {

const char* input_kind_text(InputKind kind) {
  switch (kind) {
    case InputKind::phone:
      return "a phone's folder";
    case InputKind::partition:
      return "an image of the partition \"mfg\"";
    case InputKind::export_image:
      return "a kernel export of one camera";
    case InputKind::dual_camera_node:
      return "the kernel's page of dual-camera records";
    case InputKind::record:
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

std::string place_text(const Input& input, const FoundRecord& record) {
  return fmt::format("{}: {}, byte 0x{:x}", source_name(record.source), input.files[record.file].path,
                     record.offset);
}

void show_input(Terminal& terminal, const Input& input) {
  terminal.paragraph(fmt::format("{}: {}", input.name, input_kind_text(input.kind)), 0);
  if (input.area) {
    terminal.paragraph(fmt::format("record area at 0x{:x} ({})", input.area->base, input.area->reason));
  }
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
