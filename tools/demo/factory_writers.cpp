#include "demo/factory_writers.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "awb_calibration/factory.h"
#include "demo/factory_line.h"
#include "demo/run_report.h"
#include "run/tuning.h"

namespace awbcal {

namespace {

using calib::Camera;
using phone::VirtualPhone;

awb_fuse_id fuse_of(const VirtualPhone& phone, Camera camera) {
  const calib::FuseWords words = module_of(phone, camera);
  awb_fuse_id fuse{};
  for (size_t i = 0; i < words.size(); ++i) fuse.word[i] = static_cast<uint32_t>(words[i]);
  return fuse;
}

void write_file(const std::filesystem::path& file, const Bytes& bytes) {
  std::ofstream stream(file, std::ios::binary);
  stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!stream.flush()) throw std::runtime_error("cannot write " + file.string());
}

void show_console(Terminal& terminal, ConsoleCapture& console) {
  terminal.paragraph("Console of the library");
  terminal.quote(console.take());
}

/// Gains times 1024 of R and B.
struct FlashGains {
  int32_t r;
  int32_t b;
};

void write_dual_flash(const VirtualPhone& phone, Camera camera, FlashGains first, FlashGains second,
                      FlashGains both) {
  QOR_Dual_FLASH_Calibration_write_to_flash(static_cast<uint8_t>(camid_of(camera)), fuse_of(phone, camera),
                                            first.r, first.b, second.r, second.b, both.r, both.b);
}

}  // namespace

void write_flash_records(VirtualPhone& phone, Terminal& terminal, ConsoleCapture& console) {
  terminal.heading("Flash");
  terminal.paragraph(
      "The main camera has two LEDs. The front camera's flash is the screen: its first pair is 0, the others are "
      "the white and the yellow light.");
  console.take();
  QOR_FLASH_Calibration_write_to_flash(0, fuse_of(phone, Camera::main), 1772, 1618);
  write_dual_flash(phone, Camera::main, {1506, 1750}, {1101, 2498}, {1296, 2028});
  write_dual_flash(phone, Camera::front, {0, 0}, {1454, 1649}, {1239, 2099});
  show_console(terminal, console);
  show_records(terminal, phone,
               {{RecordKind::flash, Camera::main},
                {RecordKind::dual_flash, Camera::main},
                {RecordKind::dual_flash, Camera::front}});
}

void write_lens_shading(VirtualPhone& phone, Terminal& terminal) {
  struct Lens {
    Camera camera;
    const char* image;
    const char* node;
    const char* cache;
    double falloff;
  };
  static constexpr Lens kLenses[] = {
      {Camera::main, "lens_shading_main.bin", "awb_cal", "lsc_cal", 1.05},
      {Camera::front, "lens_shading_front.bin", "awb_cal_front", "lsc_cal_front_CAM", 0.70},
      {Camera::sub, "lens_shading_sub.bin", "awb_cal_sub", "lsc_cal_sub_CAM", 1.12}};
  terminal.heading("Lens shading and reboot");
  terminal.paragraph(
      "The factory tool writes the lens-shading images itself. The phone reboots: the kernel exports the "
      "calibration area anew, and the tool keeps each camera's export as its lens-shading cache file.");
  for (const Lens& lens : kLenses) {
    write_file(phone.dir() / "factory" / lens.image,
               make_lens_shading_record(module_of(phone, lens.camera), lens.falloff));
  }
  phone.reboot();
  for (const Lens& lens : kLenses) {
    std::filesystem::copy_file(phone.host_path("/sys/android_camera_awb_cal") / lens.node,
                               phone.host_path("/data/misc/camera") / lens.cache);
    terminal.paragraph(fmt::format("{}: factory/{}, {}", camera_name(lens.camera), lens.image, lens.cache),
                       4);
  }
}

void write_gyro_and_dual_camera(VirtualPhone& phone, Terminal& terminal, ConsoleCapture& console,
                                Noise& noise) {
  terminal.heading("Gyro and dual camera");
  terminal.paragraph(
      "The sub camera would share the main camera's gyro file, so it gets none. A gyro record lies on "
      "16 bytes of its camera's A-light record, which is no longer good; its cache file still is.");
  Bytes payload(calib::kDualCameraPayload);
  for (uint8_t& byte : payload) byte = static_cast<uint8_t>(noise.word());
  write_file(phone.host_path("/data/misc/camera/CalibrationData.dat"), payload);
  console.take();
  gyro_write_calibration(0, fuse_of(phone, Camera::main));
  gyro_write_calibration(1, fuse_of(phone, Camera::front));
  QOR_DUAL_Calibration_write_to_flash();
  QOR_DUAL_CalibrationData_write_to_flash(fuse_of(phone, Camera::main));
  QOR_DUAL_Calibration_ReadCalData();
  show_console(terminal, console);
  show_records(terminal, phone,
               {{RecordKind::gyro, Camera::main},
                {RecordKind::gyro, Camera::front},
                {RecordKind::dual_camera, Camera::main},
                {RecordKind::a_light_awb, Camera::main}});
}

}  // namespace awbcal
