// The cameras by name, for people and scripts.
#ifndef INSPECT_CAMERAS_H
#define INSPECT_CAMERAS_H

#include <array>
#include <optional>
#include <string_view>

#include "records/camera.h"

namespace awbcal {

inline constexpr std::array<calib::Camera, 3> kCameras = {calib::Camera::main, calib::Camera::front,
                                                          calib::Camera::sub};

/// "main", "front" or "sub".
constexpr const char* camera_name(calib::Camera camera) {
  constexpr calib::PerCamera kNames{.main = "main", .front = "front", .sub = "sub"};
  return kNames.of(camera);
}

constexpr int camid_of(calib::Camera camera) {
  return static_cast<int>(camera);
}

constexpr std::optional<calib::Camera> camera_of_name(std::string_view name) {
  for (const calib::Camera camera : kCameras) {
    if (name == camera_name(camera)) return camera;
  }
  return std::nullopt;
}

}  // namespace awbcal

#endif
