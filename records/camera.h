// The three cameras and the tables of per-camera names.
#ifndef RECORDS_CAMERA_H
#define RECORDS_CAMERA_H

#include <cstdint>

namespace calib {

enum class Camera : uint8_t { main, front, sub };

/// The camera of a sensor selection: readers take everything but 0 and 1 as the sub camera.
constexpr Camera camera_of_selection(int32_t selection) {
  return selection == 0 ? Camera::main : selection == 1 ? Camera::front : Camera::sub;
}

/// The camera of a calibration camid: writers take everything but 1 and 2 as the main camera.
constexpr Camera camera_of_camid(int32_t camid) {
  return camid == 1 ? Camera::front : camid == 2 ? Camera::sub : Camera::main;
}

/// One full name per camera; a table that leaves one out does not compile.
struct PerCamera {
  struct Name {
    const char* text;
    consteval Name(const char* name) : text(name) {}  // NOLINT(google-explicit-constructor)
  };
  Name main;
  Name front;
  Name sub;

  constexpr const char* of(Camera camera) const {
    switch (camera) {
      case Camera::front:
        return front.text;
      case Camera::sub:
        return sub.text;
      case Camera::main:
        break;
    }
    return main.text;
  }
};

}  // namespace calib

#endif
