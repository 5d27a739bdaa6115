#include "demo/factory_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "awb_calibration/factory.h"
#include "awb_calibration/records.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr int kPatience = 60;  // frames; the library itself waits forever
constexpr int kFramesSummed = 10;
constexpr useconds_t kFramePause = 20000;  // so that a person sees the progress line move

class FactoryRun {
 public:
  FactoryRun(phone::VirtualPhone& phone, const RunPlan& plan, Noise& noise, Terminal& terminal)
      : phone_(phone), plan_(plan), sensor_(plan.light, plan.module, noise), terminal_(terminal) {}

  RunResult run();

 private:
  void set_property(const char* name, const std::string& value);
  void set_properties();
  void open_camera();
  bool next_frame(ExposureControl& exposure);
  void note(const FrameEvent& event, bool settled);
  void add_event(std::string what);
  void show_progress(double luma, const Frame& frame);

  phone::VirtualPhone& phone_;
  const RunPlan& plan_;
  SensorModel sensor_;
  Terminal& terminal_;
  RunResult result_;
  bool was_settled_ = false;
};

void FactoryRun::set_property(const char* name, const std::string& value) {
  phone_.set_property(name, value);
  result_.properties.emplace_back(name, value);
}

void FactoryRun::set_properties() {
  set_property("mfg.calibration.status", "3");
  set_property("mfg.awb.calibration.camid", std::to_string(camid_of(plan_.camera)));
  set_property("mfg.awb.calibration.threshold", std::to_string(kTolerancePercent));
  set_property("mfg.awb.calibration.Alight", plan_.light.is_a_light ? "1" : "0");
  set_property("mfg.awb.calibration.rg_ratio", fmt::format("{:.4f}", plan_.light.rg));
  set_property("mfg.awb.calibration.bg_ratio", fmt::format("{:.4f}", plan_.light.bg));
  set_property("mfg.awb.calibration.ae.k.eb", plan_.calibrates_exposure ? "1" : "0");
}

void FactoryRun::open_camera() {
  sensor_detect(camid_of(plan_.camera));
  QOR_Calibration_AEC_get_params(&result_.luma_target, &result_.luma_tolerance);
  check_and_init_awb_calibration();
  // A run starts on a change of the trigger from 0 to 1, and only a frame sees where it stands.
  const Frame preview = sensor_.capture({256, 10000}).frame;
  QOR_AWB_Calibration_collect(preview.rg_sum, preview.bg_sum, preview.count);
}

/// One preview frame through exposure control and statistics. False at the end of a recorded stream.
bool FactoryRun::next_frame(ExposureControl& exposure) {
  const Exposure taken_with = exposure.exposure();
  SensorModel::Measurement measured = sensor_.capture(taken_with);
  const auto index = static_cast<size_t>(result_.frames);
  if (!plan_.recorded.empty()) {
    if (index >= plan_.recorded.size()) return false;
    measured.frame = plan_.recorded[index];
  }
  result_.frames += 1;
  exposure.observe(measured.luma);
  if (exposure.has_settled()) {
    QOR_Calibration_AEC_set_ready(taken_with.gain, taken_with.exp_time,
                                  static_cast<uint32_t>(measured.luma + 0.5));
  }
  QOR_AWB_Calibration_collect(measured.frame.rg_sum, measured.frame.bg_sum, measured.frame.count);
  note({result_.frames, measured.luma, taken_with, measured.frame, ""}, exposure.has_settled());
  show_progress(measured.luma, measured.frame);
  return true;
}

/// Keeps a frame whose outcome a reader wants to see: told from the library's own state.
void FactoryRun::note(const FrameEvent& event, bool settled) {
  result_.events.push_back(event);
  if (result_.frames == 1) add_event("run starts");
  if (settled && !was_settled_) add_event("settled");
  was_settled_ = settled;
  if (awb_if_enabled() == 0) {
    add_event("judged, stored");
  } else if (result_.frames > kFramesSummed) {
    add_event("judged, not stored");
    if (result_.while_waiting.empty()) result_.while_waiting = camera_files(phone_);
  }
}

void FactoryRun::add_event(std::string what) {
  std::string& text = result_.events.back().what;
  text += text.empty() ? what : "; " + what;
}

void FactoryRun::show_progress(double luma, const Frame& frame) {
  if (!terminal_.is_interactive()) return;
  const double samples = frame.count != 0 ? frame.count : 1;
  terminal_.progress(fmt::format("  {} camera  frame {:2}  luma {:5.1f}  R/G {:.4f}  B/G {:.4f}",
                                 camera_name(plan_.camera), result_.frames, luma,
                                 frame.rg_sum / samples / 1024.0, frame.bg_sum / samples / 1024.0));
  usleep(kFramePause);
}

RunResult FactoryRun::run() {
  result_.before = camera_files(phone_);
  phone_.set_property("mfg.awb.calibration.trigger", "0");
  set_properties();
  open_camera();
  phone_.set_property("mfg.awb.calibration.trigger", "1");
  ExposureControl exposure(result_.luma_target, result_.luma_tolerance, plan_.exposure_speed);
  while (result_.frames < kPatience && !result_.has_finished && next_frame(exposure)) {
    result_.has_finished = awb_if_enabled() == 0;
  }
  std::erase_if(result_.events, [](const FrameEvent& event) { return event.what.empty(); });
  phone_.set_property("mfg.awb.calibration.trigger", "0");
  result_.after = camera_files(phone_);
  return result_;
}

}  // namespace

calib::FuseWords module_of(const phone::VirtualPhone& phone, calib::Camera camera) {
  calib::FuseWords words{};
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string name = fmt::format("qor.camera.sensor.{}_fuse{}", camera_name(camera), i + 1);
    words[i] = static_cast<uint32_t>(std::stoll(phone.property(name, "0")));
  }
  return words;
}

CameraFiles camera_files(const phone::VirtualPhone& phone) {
  CameraFiles files;
  for (const auto& entry : fs::directory_iterator(phone.host_path("/data/misc/camera"))) {
    std::ifstream stream(entry.path(), std::ios::binary);
    files[entry.path().filename().string()] = {
        .mode = static_cast<unsigned>(entry.status().permissions()),
        .content = std::string(std::istreambuf_iterator<char>(stream), {})};
  }
  return files;
}

RunResult run_calibration(phone::VirtualPhone& phone, const RunPlan& plan, Noise& noise, Terminal& terminal,
                          ConsoleCapture& console) {
  phone.take_log();
  console.take();
  RunResult result = FactoryRun(phone, plan, noise, terminal).run();
  result.console = console.take();
  for (const phone::LogLine& line : phone.take_log()) {
    // Storage logs its every close at this priority.
    if (line.priority >= 6 && line.tag == "camera_calibration") result.error_lines.push_back(line.text);
  }
  return result;
}

}  // namespace awbcal
