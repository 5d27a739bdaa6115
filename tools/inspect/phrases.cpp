#include "inspect/phrases.h"

#include <fmt/format.h>

#include "inspect/verdict.h"

namespace awbcal {

namespace {

const char* input_kind_text(const Phone& phone) {
  switch (phone.kind) {
    case Layout::phone:
      return "a phone's files";
    case Layout::partition:
      return phone.holds_calibration() ? "an image of the partition \"mfg\"" : "no calibration found";
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

std::vector<std::string> input_lines(const Phone& phone) {
  std::vector<std::string> lines = {fmt::format("{}: {}", phone.name, input_kind_text(phone))};
  lines.insert(lines.end(), phone.notes.begin(), phone.notes.end());
  for (const std::string& unknown : phone.unknown) lines.push_back("not known: " + unknown);
  if (phone.area)
    lines.push_back(fmt::format("record area at 0x{:x} ({})", phone.area->base, phone.area->reason));
  return lines;
}

std::vector<std::string> module_lines(const Modules& modules, const Modules& assumed) {
  std::vector<std::string> lines;
  for (const auto& [camera, module] : modules)
    lines.push_back(fmt::format("{} module: fuse ID {}", camera_name(camera), fuse_text(module)));
  for (const auto& [camera, module] : assumed) {
    lines.push_back(fmt::format(
        "{} module: not known; its record's own fuse ID, {}, is assumed; give --fuse to say which it is",
        camera_name(camera), fuse_text(module)));
  }
  if (lines.empty()) lines.emplace_back("modules: not known; give --fuse to say which are fitted");
  return lines;
}

}  // namespace awbcal
