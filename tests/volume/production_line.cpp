#include "tests/volume/production_line.h"

#include <fstream>

#include "awb_calibration/factory.h"
#include "demo/factory_line.h"
#include "demo/reference_lights.h"
#include "records/record_layouts.h"
#include "run/tuning.h"

namespace volume {

namespace {

using awbcal::camera_name;
using awbcal::camid_of;
using calib::Camera;

constexpr awbcal::ModuleDeviation kGoodModule{.rg = 1.034, .bg = 0.978};
constexpr awbcal::ModuleDeviation kBadModule{.rg = 1.19, .bg = 0.86};
constexpr const char* kPayloadFile = "/data/misc/camera/CalibrationData.dat";

size_t slot(Camera camera, uint32_t position) {
  return calib::kAreaBase4k + static_cast<size_t>(camid_of(camera)) * calib::kSlotSize + position;
}

class Steps {
 public:
  Steps(Station station, unsigned round) : station_(station), round_(round) {}

  std::vector<Step> all();

 private:
  std::string name(const char* what, Camera camera) const {
    return std::string(camera_name(camera)) + " camera, " + what + (round_ == 0 ? "" : ", again");
  }
  awb_fuse_id fuse(Camera camera) const {
    const calib::FuseWords words = awbcal::module_of(station_.phone, camera);
    awb_fuse_id fuse{};
    for (size_t i = 0; i < words.size(); ++i) fuse.word[i] = static_cast<uint32_t>(words[i]);
    return fuse;
  }
  /// A gain word that no other call gives.
  int32_t gain(int number) const { return 1100 + number * 7 + static_cast<int32_t>(round_) * 500; }

  Step awb_run(Camera camera, const awbcal::Light& light) const;
  Step flash(Camera camera) const;
  Step dual_flash(Camera camera) const;
  Step gyro(Camera camera) const;
  Step dual_camera(const char* what, Place place, int32_t (*write)(awb_fuse_id)) const;

  Station station_;
  unsigned round_;
};

/// Its frames end some time after the eleventh, as a line's patience does.
Step Steps::awb_run(Camera camera, const awbcal::Light& light) const {
  const bool is_bad = round_ > 0 && camera == Camera::front;
  awbcal::RunPlan plan{.camera = camera,
                       .light = light,
                       .module = is_bad ? kBadModule : kGoodModule,
                       .exposure_speed = 0.6,
                       .calibrates_exposure = !light.is_a_light,
                       .recorded = {}};
  for (int i = 0; i < 16; ++i) {
    const double rg = light.rg * plan.module.rg * (1.0 + 0.01 * round_);
    const double bg = light.bg * plan.module.bg;
    plan.recorded.push_back(
        {static_cast<int32_t>(rg * 1024 * 500), static_cast<int32_t>(bg * 1024 * 500), 500});
  }
  const Place awb{slot(camera, light.is_a_light ? calib::kSlotALightAwb : calib::kSlotAwb),
                  sizeof(calib::AwbRecord)};
  const Place aec{slot(camera, calib::kSlotAec), sizeof(calib::AecRecord)};
  const bool has_aec = plan.calibrates_exposure && camera != Camera::front;
  return {.name = name(light.is_a_light ? "A-light run" : "run", camera),
          .writes = has_aec ? std::vector{aec, awb} : std::vector{awb},
          .run = [station = station_, plan, seed = round_] {
            awbcal::Noise noise(seed + 1);
            run_calibration(station.phone, plan, noise, station.terminal, station.console);
          }};
}

Step Steps::flash(Camera camera) const {
  return {.name = name("flash", camera),
          .writes = {{slot(camera, calib::kSlotFlash), sizeof(calib::FlashRecord)}},
          .run = [*this, camera] {
            QOR_FLASH_Calibration_write_to_flash(static_cast<uint8_t>(camid_of(camera)), fuse(camera),
                                                 gain(1), gain(2));
          }};
}

/// The front camera's is its screen.
Step Steps::dual_flash(Camera camera) const {
  const bool is_screen = camera == Camera::front;
  return {.name = name("dual flash", camera),
          .writes = {{slot(camera, calib::kSlotDualFlash), sizeof(calib::DualFlashRecord)}},
          .run = [*this, camera, is_screen] {
            QOR_Dual_FLASH_Calibration_write_to_flash(static_cast<uint8_t>(camid_of(camera)), fuse(camera),
                                                      is_screen ? 0 : gain(3), is_screen ? 0 : gain(4),
                                                      gain(5), gain(6), gain(7), gain(8));
          }};
}

Step Steps::gyro(Camera camera) const {
  return {.name = name("gyro", camera),
          .writes = {{slot(camera, calib::kSlotGyro), sizeof(calib::GyroRecord)}},
          .run = [*this, camera] {
            gyro_write_calibration(static_cast<uint8_t>(camid_of(camera)), fuse(camera));
          }};
}

Step Steps::dual_camera(const char* what, Place place, int32_t (*write)(awb_fuse_id)) const {
  return {
      .name = std::string(what) + (round_ == 0 ? "" : ", again"), .writes = {place}, .run = [*this, write] {
        std::ofstream payload(station_.phone.host_path(kPayloadFile), std::ios::binary);
        for (size_t i = 0; i < calib::kDualCameraPayload; ++i) {
          payload.put(static_cast<char>(i * 31 + i / 256 + round_ * 7 + 1));
        }
        payload.close();
        write(fuse(Camera::main));
      }};
}

/// The sub camera before the main camera, whose cache files its writers replace.
std::vector<Step> Steps::all() {
  std::vector<Step> steps;
  for (const Camera camera : {Camera::sub, Camera::front, Camera::main}) {
    steps.push_back(awb_run(camera, awbcal::kNormalLight));
    steps.push_back(awb_run(camera, awbcal::kALight));
    steps.push_back(flash(camera));
    steps.push_back(dual_flash(camera));
    steps.push_back(gyro(camera));
  }
  constexpr size_t kArea = calib::kAreaBase4k;
  steps.push_back(
      dual_camera("dual camera, first form",
                  {kArea + calib::kAreaDualCameraFirstForm, sizeof(calib::DualCameraFirstFormRecord)},
                  [](awb_fuse_id) { return QOR_DUAL_Calibration_write_to_flash(); }));
  steps.push_back(dual_camera("dual camera",
                              {kArea + calib::kAreaDualCamera, sizeof(calib::DualCameraRecord)},
                              QOR_DUAL_CalibrationData_write_to_flash));
  return steps;
}

}  // namespace

std::vector<Step> production_steps(Station station, unsigned round) {
  return Steps(station, round).all();
}

void fit_modules(phone::VirtualPhone& phone) {
  constexpr const char* kImages[] = {"lens_shading_main.bin", "lens_shading_front.bin",
                                     "lens_shading_sub.bin"};
  std::filesystem::create_directories(phone.dir() / "factory");
  for (const Camera camera : awbcal::kCameras) {
    const auto number = static_cast<uint32_t>(camid_of(camera));
    for (uint32_t i = 1; i <= 4; ++i) {
      phone.set_property(
          std::string("qor.camera.sensor.") + camera_name(camera) + "_fuse" + std::to_string(i),
          std::to_string(0x1000001 * (number + 1) + i));
    }
    const awbcal::Bytes record =
        awbcal::make_lens_shading_record(awbcal::module_of(phone, camera), 0.7 + 0.2 * number);
    std::ofstream image(phone.dir() / "factory" / kImages[number], std::ios::binary);
    image.write(reinterpret_cast<const char*>(record.data()), static_cast<std::streamsize>(record.size()));
  }
}

}  // namespace volume
