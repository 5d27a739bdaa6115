#include "commands/commands.h"

#include <fmt/format.h>

#include <cerrno>
#include <charconv>

namespace awbcal {

namespace {

std::string check_base(const std::string& text) {
  return text == "4k" || text == "2k" ? "" : "4k (0x20000) or 2k (0x10000), not " + text;
}

std::string check_camera(const std::string& text) {
  return camera_of_name(text) ? "" : "main, front or sub, not " + text;
}

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
    case InputKind::slot:
      return "one camera's slot of the record area";
    default:
      break;
  }
  return "one record";
}

}  // namespace

void add_input_options(CLI::App& app, InputOptions& options) {
  app.add_option("INPUT", options.paths, "Phone folder, image, export, cache file or archive; - is stdin")
      ->required();
  app.add_option("--as", options.as, "What INPUT is: phone, partition, export, node or a record's kind")
      ->type_name("KIND");
  app.add_option_function<std::string>(
         "--base",
         [&options](const std::string& text) {
           options.base = text == "4k" ? calib::kAreaBase4k : calib::kAreaBase2k;
         },
         "Page size that places the record area: 4k or 2k [tried both]")
      ->check(check_base)
      ->type_name("SIZE");
  app.add_option_function<std::string>(
         "--camera", [&options](const std::string& text) { options.camera = camera_of_name(text); },
         "Camera of a single file: main, front or sub")
      ->check(check_camera)
      ->type_name("NAME");
}

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

}  // namespace awbcal
