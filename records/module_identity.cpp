// The camera that is worked on, and the fuse ID of its module.

#include "records/module_identity.h"

#include <cstdlib>

#include "records/calibration_log.h"

namespace {

using calib::log_module;

struct IdentityState {
  int32_t sensor_selection;
  int32_t single_camera;  // non-zero: the selection is fixed; for phones with one camera, set by nobody here
  uint8_t calibration_camid;
  uint32_t last_fuse_id[4];
};

constinit IdentityState state{};

struct FuseProperties {
  const char* word[4];
};

constexpr FuseProperties kMainFuse{"qor.camera.sensor.main_fuse1", "qor.camera.sensor.main_fuse2",
                                   "qor.camera.sensor.main_fuse3", "qor.camera.sensor.main_fuse4"};
constexpr FuseProperties kFrontFuse{"qor.camera.sensor.front_fuse1", "qor.camera.sensor.front_fuse2",
                                    "qor.camera.sensor.front_fuse3", "qor.camera.sensor.front_fuse4"};
constexpr FuseProperties kSubFuse{"qor.camera.sensor.sub_fuse1", "qor.camera.sensor.sub_fuse2",
                                  "qor.camera.sensor.sub_fuse3", "qor.camera.sensor.sub_fuse4"};

const FuseProperties& fuse_properties_of(calib::Camera camera) {
  switch (camera) {
    case calib::Camera::front:
      return kFrontFuse;
    case calib::Camera::sub:
      return kSubFuse;
    case calib::Camera::main:
      break;
  }
  return kMainFuse;
}

/// The property's decimal value, converted in 64 bits with the low 32 kept; 0 when it is no number.
uint32_t fuse_word(const char* property) {
  char text[PROPERTY_VALUE_MAX] = {};
  property_get(property, text, "0");
  return static_cast<uint32_t>(strtoll(text, nullptr, 10));
}

}  // namespace

namespace calib {

FuseWords module_fuse_words() {
  uint32_t words[4];
  awb_get_fuseid(words);
  return fuse_words(words);
}

FuseWords main_camera_fuse_words() {
  FuseWords words;
  for (size_t i = 0; i < words.size(); ++i) words[i] = fuse_word(kMainFuse.word[i]);
  return words;
}

}  // namespace calib

int32_t get_sensor_selection() {
  return state.sensor_selection;
}

void set_sensor_selection(uint32_t camid) {
  LOGI("set sensor selection :%d\n", state.sensor_selection);
  if (camid >= 3) {
    state.sensor_selection = 0;
  } else if (state.single_camera != 0) {
    LOGI("only 1 camera exist\n");
  } else {
    state.sensor_selection = static_cast<int32_t>(camid);
  }
}

int32_t sensor_detect(int32_t camid) {
  LOGI("[LSC/AWB Calibration] %s: detect cam id = %d\n", "sensor_detect", camid);
  const int32_t mapped = camid == 0 || camid == 1 ? camid : 2;
  set_sensor_selection(static_cast<uint32_t>(mapped));
  return mapped;
}

void awb_get_fuseid(uint32_t* out) {
  if (out == nullptr) return;

  const FuseProperties& properties = fuse_properties_of(calib::selected_camera());
  for (int i = 0; i < 4; ++i) out[i] = state.last_fuse_id[i] = fuse_word(properties.word[i]);
  LOGI("[AWB Calibration] sfuse.fuse_id_word1:0x%x\n", out[0]);
  LOGI("[AWB Calibration] sfuse.fuse_id_word2:0x%x\n", out[1]);
  LOGI("[AWB Calibration] sfuse.fuse_id_word3:0x%x\n", out[2]);
  LOGI("[AWB Calibration] sfuse.fuse_id_word4:0x%x\n", out[3]);
}

int32_t awb_read_fuseid(int32_t ctrl_fd) {
  LOGI("%s: ctrlfd = %d\n", "awb_read_fuseid", ctrl_fd);
  return 0;
}

void awb_set_camid(uint8_t camid) {
  state.calibration_camid = camid;
}

uint8_t awb_get_camid() {
  return state.calibration_camid;
}
