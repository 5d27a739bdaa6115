#include "demo/demo.h"

#include <fmt/format.h>

#include <memory>
#include <stdexcept>

#include "demo/demo_folder.h"
#include "demo/factory_writers.h"
#include "demo/reference_lights.h"
#include "demo/result_checks.h"
#include "demo/run_report.h"
#include "run/tuning_changes.h"

namespace awbcal {

namespace {

using calib::Camera;
using phone::VirtualPhone;
namespace fs = std::filesystem;

constexpr Camera kCameras[] = {Camera::main, Camera::front, Camera::sub};

constexpr ModuleDeviation kMainModule{.rg = 1.034, .bg = 0.978};
constexpr ModuleDeviation kBadFrontModule{.rg = 1.19, .bg = 0.86};
constexpr ModuleDeviation kSubModule{.rg = 0.962, .bg = 1.021};

constexpr double kQuickLoop = 0.6;
constexpr double kSlowLoop = 0.25;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using LogFile = std::unique_ptr<std::FILE, CloseFile>;

phone::Options phone_options(phone::Storage storage) {
  phone::Options options;
  options.storage = storage;
  options.nand.factory_bad = {0};
  return options;
}

std::string nand_text(const phone::NandGeometry& chip) {
  return fmt::format(
      "A virtual phone with raw NAND: partition \"mfg\" is mtd{}, {} blocks of {} KiB, the first marked bad by the "
      "factory that made the chip.",
      chip.mtd_number, chip.blocks, chip.erase_size / 1024);
}

class Demo {
 public:
  Demo(const DemoOptions& options, Terminal& terminal, const fs::path& dir)
      : options_(options),
        terminal_(terminal),
        noise_(options.seed),
        phone_(VirtualPhone::create(dir, phone_options(options.storage))),
        logcat_(std::fopen((dir / "logcat.txt").c_str(), "w")) {
    if (logcat_ == nullptr) throw std::runtime_error("cannot write logcat.txt");
    phone_.print_log_to(logcat_.get());
  }
  ~Demo() { phone_.print_log_to(nullptr); }
  Demo(const Demo&) = delete;
  Demo& operator=(const Demo&) = delete;

  bool run(std::vector<Frame> recorded);

 private:
  void describe_phone();
  void fit_modules();
  RunPlan plan(Camera camera, const Light& light, const ModuleDeviation& module) const;
  RunResult run_line(const char* why, const RunPlan& plan);
  void calibrate(const char* why, const RunPlan& plan);
  void calibrate_briefly(const char* why, const RunPlan& plan);
  void start_from_cache();
  void show_refusals(const std::vector<LibraryCall>& calls);
  void start_from_export();
  void describe_folder();

  const DemoOptions& options_;
  Terminal& terminal_;
  Noise noise_;
  VirtualPhone phone_;
  LogFile logcat_;
  ConsoleCapture console_;
  std::vector<CameraTuning> started_;  ///< from the cache, by camid
  bool all_done_ = true;
};

/// The camera driver publishes the fuse IDs of the modules that it finds.
void Demo::fit_modules() {
  for (const Camera camera : kCameras) {
    std::string words;
    for (int i = 1; i <= 4; ++i) {
      const uint32_t word = noise_.word();
      phone_.set_property(fmt::format("qor.camera.sensor.{}_fuse{}", camera_name(camera), i),
                          std::to_string(word));
      words += fmt::format(" {:08x}", word);
    }
    terminal_.paragraph(fmt::format("{:<6} module, fuse ID{}", camera_name(camera), words), 4);
  }
}

void Demo::describe_phone() {
  terminal_.heading("The phone");
  terminal_.paragraph(options_.storage == phone::Storage::nand
                          ? nand_text(phone_.nand().geometry())
                          : "A virtual phone with eMMC: partition \"mfg\" is /dev/block/mmcblk0p6.");
  const std::string page_size = phone_.property("ro.pagesize");
  terminal_.paragraph(
      fmt::format("The page size is {}: the record area starts at 0x{:x}.", page_size, area_base(page_size)));
  fit_modules();
}

RunPlan Demo::plan(Camera camera, const Light& light, const ModuleDeviation& module) const {
  return {.camera = camera,
          .light = light,
          .module = module,
          .exposure_speed = camera == Camera::sub ? kSlowLoop : kQuickLoop,
          .calibrates_exposure = !light.is_a_light,
          .recorded = {}};
}

RunResult Demo::run_line(const char* why, const RunPlan& plan) {
  terminal_.heading(fmt::format("Calibrating the {} camera, {}", camera_name(plan.camera), plan.light.name));
  terminal_.paragraph(why);
  const RunResult result = run_calibration(phone_, plan, noise_, terminal_, console_);
  all_done_ = all_done_ && result.has_finished;
  return result;
}

void Demo::calibrate(const char* why, const RunPlan& plan) {
  const RunResult result = run_line(why, plan);
  show_run(terminal_, plan, result);
  show_outcome(terminal_, result);
  show_verdict(terminal_, phone_, plan, result);
  if (!result.has_finished) return;
  show_record(terminal_, phone_, plan.light.is_a_light ? RecordKind::a_light_awb : RecordKind::awb,
              plan.camera);
  if (plan.calibrates_exposure && plan.camera != Camera::front) {
    show_record(terminal_, phone_, RecordKind::aec, plan.camera);
  }
}

void Demo::calibrate_briefly(const char* why, const RunPlan& plan) {
  const RunResult result = run_line(why, plan);
  show_files(terminal_, result);
  show_verdict(terminal_, phone_, plan, result);
}

void Demo::start_from_cache() {
  const CameraTuning before(kNormalLight.golden());
  for (const Camera camera : kCameras) {
    terminal_.heading(fmt::format("The {} camera starts", camera_name(camera)));
    CameraTuning tuning = before;
    const std::vector<LibraryCall> calls = start_camera(phone_, camera, kNormalLight.golden(), tuning);
    show_tuning(terminal_, before, tuning);
    show_refusals(calls);
    started_.push_back(std::move(tuning));
  }
}

void Demo::show_refusals(const std::vector<LibraryCall>& calls) {
  bool is_first = true;
  for (const LibraryCall& call : calls) {
    for (const phone::LogLine& line : call.log) {
      if (!is_error(line)) continue;
      if (is_first) terminal_.paragraph("Refusals in the log");
      is_first = false;
      terminal_.quote(line.text);
    }
  }
}

void Demo::start_from_export() {
  terminal_.heading("The cameras start without their cache files");
  const fs::path files = phone_.host_path("/data/misc/camera");
  const fs::path aside = files.string() + ".aside";
  fs::rename(files, aside);
  fs::create_directory(files);
  for (const Camera camera : kCameras) {
    CameraTuning tuning(kNormalLight.golden());
    start_camera(phone_, camera, kNormalLight.golden(), tuning);
    const bool same = tuning == started_.at(static_cast<size_t>(camid_of(camera)));
    all_done_ = all_done_ && same;
    terminal_.line(
        fmt::format("    {:<6} {}", camera_name(camera),
                    same ? terminal_.styled("identical to the start from the cache files", Style::good)
                         : terminal_.styled("differs from the start from the cache files", Style::bad)));
  }
  fs::remove(files);
  fs::rename(aside, files);
  terminal_.paragraph("The records came from the kernel's export. The cache files are restored.");
}

void Demo::describe_folder() {
  terminal_.heading("The folder");
  terminal_.paragraph("The phone is kept for inspection; its complete log is in logcat.txt:");
  // In one piece, however long, so that it can be copied.
  terminal_.line("  " + phone_.dir().string());
}

bool Demo::run(std::vector<Frame> recorded) {
  describe_phone();
  RunPlan main_run = plan(Camera::main, kNormalLight, kMainModule);
  main_run.recorded = std::move(recorded);
  calibrate("A good module. Ten frames are summed; the eleventh triggers the judgement.", main_run);
  calibrate(
      "A module that is out of tolerance: its record loses the valid mark, and no cache file is written.",
      plan(Camera::front, kNormalLight, kBadFrontModule));
  calibrate("A good module whose exposure settles late: the judgement is repeated until it has.",
            plan(Camera::sub, kNormalLight, kSubModule));
  calibrate("The second run, under A light, into a record of its own.",
            plan(Camera::main, kALight, kMainModule));
  calibrate_briefly("The other camera of the pair, in the same way.", plan(Camera::sub, kALight, kSubModule));
  write_flash_records(phone_, terminal_, console_);
  write_lens_shading(phone_, terminal_);
  start_from_cache();
  start_from_export();
  write_gyro_and_dual_camera(phone_, terminal_, console_, noise_);
  phone_.reboot();
  show_result_checks(phone_, terminal_);
  describe_folder();
  return all_done_;
}

}  // namespace

bool run_demo(const DemoOptions& options, Terminal& terminal) {
  std::vector<Frame> recorded;
  if (!options.frames.empty()) {
    for (const FrameLine& each : read_frames(options.frames)) recorded.push_back(each.frame);
  }
  const DemoFolder folder(options.dir);
  const bool is_done = Demo(options, terminal, folder.path()).run(std::move(recorded));
  folder.keep();
  return is_done;
}

}  // namespace awbcal
