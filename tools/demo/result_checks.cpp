#include "demo/result_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "demo/factory_line.h"
#include "demo/run_report.h"
#include "run/camera_start.h"
#include "run/readers.h"

namespace awbcal {

namespace {

using calib::Camera;

/// Why the answer of a check is -1 on this phone although nothing failed.
struct Note {
  const char* check;
  std::vector<Camera> cameras;
  const char* text;
};

const std::vector<Camera> kEvery = {Camera::main, Camera::front, Camera::sub};

const Note kNotes[] = {
    {"AWB", kEvery, never_passes("Sensor_Check_AWB_Calibration_Result")},
    {"AEC", {Camera::front}, "the front camera is never calibrated for exposure"},
    {"lens shading", kEvery, never_passes("Sensor_Check_LSC_Calibration_Result")},
    {"flash", kEvery, never_passes("Sensor_Check_FLASH_Calibration_Result")},
    {"gyro", {Camera::sub}, "the sub camera's answer comes from the main camera's file: another module's"},
    {"dual camera", {Camera::front, Camera::sub}, "answers for the main camera alone"},
};

/// The number of the note that explains a bad answer; 0 for none.
size_t note_for(const char* check, Camera camera) {
  for (size_t i = 0; i < std::size(kNotes); ++i) {
    const auto& cameras = kNotes[i].cameras;
    if (kNotes[i].check == std::string_view(check) &&
        std::find(cameras.begin(), cameras.end(), camera) != cameras.end()) {
      return i + 1;
    }
  }
  return 0;
}

/// Every "... record = 0x..." of the log: a check of two records has two.
std::string record_words(const std::vector<phone::LogLine>& log) {
  constexpr std::string_view kBefore = " record = ";
  std::string words;
  for (const phone::LogLine& line : log) {
    const size_t at = line.text.find(kBefore);
    if (at == std::string::npos) continue;
    const std::string word = line.text.substr(at + kBefore.size());
    words += (words.empty() ? "" : ", ") + word.substr(0, word.find('\n'));
  }
  return words.empty() ? "none" : words;
}

}  // namespace

void show_result_checks(phone::VirtualPhone& phone, Terminal& terminal) {
  terminal.heading("Result checks");
  terminal.paragraph(
      "The record word: 0x1 the fitted module's, 0x2 checksum, 0xc finished. The flash check has two: the "
      "dual-flash record's, then the flash record's.");
  Table table({"check", "camera", ">answer", "", "record word", "note"});
  std::map<Camera, std::vector<LibraryCall>> calls;
  for (const Camera camera : kEvery) calls[camera] = check_results(phone, camera);
  for (const ResultCheck& check : kResultChecks) {
    for (const Camera camera : kEvery) {
      const LibraryCall& call = *find_call(calls.at(camera), check.function);
      const size_t note = call.answer ? 0 : note_for(check.name, camera);
      table.row({check.name, camera_name(camera), call.answer ? "0" : "-1", verdict_cell(call.answer),
                 record_words(call.log), note != 0 ? fmt::format("[{}]", note) : ""});
    }
  }
  table.print(terminal);
  for (size_t i = 0; i < std::size(kNotes); ++i) {
    terminal.paragraph(fmt::format("[{}] {}: {}.", i + 1, kNotes[i].check, kNotes[i].text), 4);
  }
}

}  // namespace awbcal
