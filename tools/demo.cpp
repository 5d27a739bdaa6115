#include "tools/demo.h"

#include <fmt/format.h>

#include <memory>
#include <stdexcept>

#include "tools/demo_folder.h"
#include "tools/run_report.h"

namespace awbcal {

namespace {

using calib::Camera;
using phone::VirtualPhone;

constexpr Light kNormalLight{
    .name = "normal light", .rg = 0.7539, .bg = 0.5625, .luma_per_millisecond = 4.0, .is_a_light = false};
constexpr Light kALight{
    .name = "A light", .rg = 1.1045, .bg = 0.3574, .luma_per_millisecond = 1.5, .is_a_light = true};

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

class Demo {
 public:
  Demo(const DemoOptions& options, Terminal& terminal, const std::filesystem::path& dir)
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
  void describe_folder();

  const DemoOptions& options_;
  Terminal& terminal_;
  Noise noise_;
  VirtualPhone phone_;
  LogFile logcat_;
  ConsoleCapture console_;
  bool all_finished_ = true;
};

/// The camera driver publishes the fuse IDs of the modules that it finds.
void Demo::fit_modules() {
  for (const Camera camera : {Camera::main, Camera::front, Camera::sub}) {
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
  const bool on_nand = options_.storage == phone::Storage::nand;
  terminal_.paragraph(on_nand
                          ? "A virtual phone with raw NAND: partition \"mfg\" is mtd3, 16 blocks of "
                            "128 KiB, the first marked bad by the factory that made the chip."
                          : "A virtual phone with eMMC: partition \"mfg\" is /dev/block/mmcblk0p6, 1 MiB.");
  terminal_.paragraph("The page size is 4096: the record area starts at 0x20000.");
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
  all_finished_ = all_finished_ && result.has_finished;
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

void Demo::describe_folder() {
  terminal_.heading("The folder");
  terminal_.paragraph("The phone stays, to be looked into; its whole log is in logcat.txt:");
  // In one piece, however long, so that it can be copied.
  terminal_.line("  " + phone_.dir().string());
}

bool Demo::run(std::vector<Frame> recorded) {
  describe_phone();
  RunPlan main_run = plan(Camera::main, kNormalLight, kMainModule);
  main_run.recorded = std::move(recorded);
  calibrate("A good module. Ten frames are summed, the eleventh judges.", main_run);
  calibrate(
      "A module that is out of tolerance: its record loses the valid mark, and no cache file is written.",
      plan(Camera::front, kNormalLight, kBadFrontModule));
  calibrate("A good module whose exposure settles late: the judging frame is tried again until it has.",
            plan(Camera::sub, kNormalLight, kSubModule));
  calibrate("The second run, under A light, into a record of its own.",
            plan(Camera::main, kALight, kMainModule));
  calibrate_briefly("The pair's other half, in the same way.", plan(Camera::sub, kALight, kSubModule));
  describe_folder();
  return all_finished_;
}

}  // namespace

bool run_demo(const DemoOptions& options, Terminal& terminal) {
  std::vector<Frame> recorded;
  if (!options.frames.empty()) recorded = read_frames(options.frames);
  const std::filesystem::path dir = prepare_demo_folder(options.dir);
  return Demo(options, terminal, dir).run(std::move(recorded));
}

}  // namespace awbcal
