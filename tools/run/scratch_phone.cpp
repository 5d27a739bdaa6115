#include "run/scratch_phone.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "records/kernel_export.h"

namespace awbcal {

namespace fs = std::filesystem;

ScratchPhone::ScratchPhone(const phone::Options& options)
    : phone_(phone::VirtualPhone::create(folder_.path() / "phone", options)) {}

void ScratchPhone::clear_records() {
  const fs::path files = phone_->host_path("/data/misc/camera");
  fs::remove_all(files);
  fs::create_directories(files);
  const Bytes zeros(calib::kSlotSize);
  for (const calib::Camera camera : kCameras) {
    put(calib::kExportNode.of(camera), std::span(zeros).first(calib::kExportSize));
  }
  put("/sys/android_camera_awb_cal/awb_cal_3D", zeros);
}

void ScratchPhone::put(std::string_view phone_path, std::span<const uint8_t> bytes) {
  const fs::path path = phone_->host_path(phone_path);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error(fmt::format("{}: cannot be written", path.string()));
}

void ScratchPhone::overlay(std::string_view phone_path, size_t offset, std::span<const uint8_t> bytes) {
  Bytes content = read_file(phone_->host_path(phone_path)).bytes;
  if (offset + bytes.size() > content.size()) throw std::out_of_range("behind the file's end");
  std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<std::ptrdiff_t>(offset));
  put(phone_path, content);
}

void ScratchPhone::fit(calib::Camera camera, const calib::FuseWords& module) {
  std::map<std::string, std::string> properties;
  for (size_t i = 0; i < module.size(); ++i) {
    properties[fmt::format("qor.camera.sensor.{}_fuse{}", camera_name(camera), i + 1)] =
        std::to_string(static_cast<uint32_t>(module[i]));
  }
  phone_->set_properties(properties);
}

}  // namespace awbcal
