#include "demo/result_checks.h"

#include <fmt/format.h>

#include <algorithm>

#include "awb_calibration/records.h"
#include "awb_calibration/verify.h"
#include "demo/factory_line.h"
#include "demo/run_report.h"

namespace awbcal {

namespace {

using calib::Camera;

struct Check {
  const char* name;
  int32_t (*answer)();
};

constexpr Check kChecks[] = {{"AWB", Sensor_Check_AWB_Calibration_Result},
                             {"AEC", Sensor_Check_AEC_Calibration_Result},
                             {"lens shading", Sensor_Check_LSC_Calibration_Result},
                             {"flash", Sensor_Check_FLASH_Calibration_Result},
                             {"gyro", Sensor_Check_GYRO_Calibration_Result},
                             {"dual camera", Sensor_Check_DUAL_Calibration_Result}};

/// Why the answer of a check is -1 on this phone although nothing failed.
struct Note {
  const char* check;
  std::vector<Camera> cameras;
  const char* text;
};

const std::vector<Camera> kEvery = {Camera::main, Camera::front, Camera::sub};

const Note kNotes[] = {
    {"AWB", kEvery,
     "reads 64-bit fields and can accept no record of a calibration run, whose fields have 32 bits"},
    {"AEC", {Camera::front}, "the front camera is never calibrated for exposure"},
    {"lens shading", kEvery,
     "covers 3556 bytes, the image's own checksum 3576: an image that a camera start takes without an error "
     "never passes"},
    {"flash", kEvery,
     "reads 64-bit fields and can accept no record of the flash writers, whose fields have 32 bits"},
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
  for (const Check& check : kChecks) {
    for (const Camera camera : kEvery) {
      set_sensor_selection(static_cast<uint32_t>(camid_of(camera)));
      phone.take_log();
      const int32_t answer = check.answer();
      const size_t note = answer == 0 ? 0 : note_for(check.name, camera);
      table.row({check.name, camera_name(camera), std::to_string(answer), verdict_cell(answer == 0),
                 record_words(phone.take_log()), note != 0 ? fmt::format("[{}]", note) : ""});
    }
  }
  table.print(terminal);
  for (size_t i = 0; i < std::size(kNotes); ++i) {
    terminal.paragraph(fmt::format("[{}] {}: {}.", i + 1, kNotes[i].check, kNotes[i].text), 4);
  }
}

}  // namespace awbcal
