// Replaces the tuning's lens-shading meshes by this module's, and softens them for low and bright light.

#include <cstring>

#include "awb_calibration/correction.h"
#include "correction/tuning_layout.h"
#include "records/calibration_log.h"
#include "records/judgement.h"
#include "records/module_identity.h"
#include "records/record_reader.h"

namespace {

using calib::Camera;
using calib::LensShadingRecord;
using calib::log_module;
using calib::MeshTable;

constexpr const char* kName = "Sensor_set_mesh";

// ---- softening a mesh -------------------------------------------------------------------------------------

constexpr size_t kGains = sizeof(MeshTable::gains) / sizeof(float);

/// In single precision, in this order, and not fused.
inline float softened(float gain, float ratio) {
  return 1.0F + ratio * (gain - 1.0F);
}

// Each of these is one flat loop over all four channels, in the one form that the compiler makes vector code
// of at -O2: a single pointer, or two that it may take as disjoint.

void soften_in_place(float* gains, float ratio) {
  for (size_t i = 0; i < kGains; ++i) gains[i] = softened(gains[i], ratio);
}

void soften_disjoint(float* __restrict to, const float* __restrict from, float ratio) {
  for (size_t i = 0; i < kGains; ++i) to[i] = softened(from[i], ratio);
}

/// Tables that overlap otherwise are done gain by gain, upwards: what is read may have been written before.
void soften_overlapping(float* to, const float* from, float ratio) {
  for (size_t i = 0; i < kGains; ++i) to[i] = softened(from[i], ratio);
}

float* gains_at(void* mesh) {
  return reinterpret_cast<float*>(static_cast<uint8_t*>(mesh) + offsetof(MeshTable, gains));
}

const float* gains_at(const void* mesh) {
  return reinterpret_cast<const float*>(static_cast<const uint8_t*>(mesh) + offsetof(MeshTable, gains));
}

// ---- the record -------------------------------------------------------------------------------------------

/// 3099 alone passes: the factory tool marks its meshes with no other version.
constexpr calib::JudgementRule kRule{
    .first_version = 3, .last_version = 3, .zero_first_fuse_word_matches_any = true};

calib::RecordReading load(LensShadingRecord& record) {
  using From = calib::RecordReading::From;
  // As the writers do, and unlike the other readers, this one takes an unknown selection for the main camera.
  const Camera camera = calib::camera_of_camid(get_sensor_selection());
  LOG_BY_CAMERA(LOGI, camera, "Sensor_set_mesh(): LSC for MAIN CAM\n",
                "Sensor_set_mesh() LSC for Front CAM\n", "Sensor_set_mesh(): LSC for Sub CAM\n");
  const calib::RecordReading reading =
      calib::read_record(calib::kLensShadingFiles, camera, &record, sizeof record);
  const calib::KeepErrno keep;
  if (reading.from != From::cache_file) LOGI("Read /data/misc/camera/lsc_cal fail\n");
  if (reading.from == From::nowhere) {
    LOG_BY_CAMERA(LOGI, camera, "Read from file:/sys/android_camera_awb_cal/awb_cal fail",
                  "Read from file:/sys/android_camera_awb_cal/awb_cal_front fail",
                  "Read from file:/sys/android_camera_awb_cal/awb_cal_sub fail");
    return reading;
  }
  LOG_BY_CAMERA(
      LOGI, camera, "Read from file OK: /data/misc/camera/lsc_cal or /sys/android_camera_awb_cal/awb_cal",
      "Read from file OK: /data/misc/camera/lsc_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front",
      "Read from file OK: /data/misc/camera/lsc_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub");
  return reading;
}

void log_record(const LensShadingRecord& record, const calib::FuseWords& module) {
  LOGI("[LSC Calibration]: lsc_checksum=%lx, lsc_verify=%lx\n", record.crc, record.valid_word);
  LOGI(
      "[LSC Calibration]: fuseid_1=%lx,fuseid_2=%lx,fuseid_3=%lx,fuseid_4=%lx, sfuse.fuse_id_word1=%x,sfuse.fuse_id_word2=%x,sfuse.fuse_id_word3=%x,sfuse.fuse_id_word4=%x\n",
      record.fuse[0], record.fuse[1], record.fuse[2], record.fuse[3], FUSE_WORDS_32(module));
}

/// A record whose end is missing is none: without it, the gains would be zeros, and the checksum only warns.
bool is_usable(const LensShadingRecord& record, bool is_whole, const calib::FuseWords& module) {
  calib::JudgementRule rule = kRule;
  rule.zero_first_fuse_word_matches_any = is_whole;
  const calib::Judgement judgement = calib::judge(calib::claims_of(record), module, rule);
  log_record(record, judgement.module);
  // Only a warning: the valid word and the module alone decide, on purpose.
  if (!judgement.crc_good) LOGE("%s: check sum is not valid\n", kName);
  if (is_whole && judgement.valid_word_good && judgement.is_bound()) return true;
  LOGE("%s: valid bit or fuse id is wrong\n", kName);
  return false;
}

void store(const LensShadingRecord& record, void* mesh) {
  memcpy(gains_at(mesh), record.gains, sizeof record.gains);
}

}  // namespace

void Sensor_mesh_interpolation(void* dst, const void* src, float ratio) {
  if (src == nullptr || dst == nullptr || static_cast<double>(ratio) >= 1.0) {
    LOGE("failed: %p %p ratio(%f)", src, dst, static_cast<double>(ratio));
    return;
  }
  float* to = gains_at(dst);
  const float* from = gains_at(src);
  const auto to_address = reinterpret_cast<uintptr_t>(to);
  const auto from_address = reinterpret_cast<uintptr_t>(from);
  if (to == from) {
    soften_in_place(to, ratio);
  } else if (to_address - from_address >= sizeof(MeshTable::gains) &&
             from_address - to_address >= sizeof(MeshTable::gains)) {
    soften_disjoint(to, from, ratio);
  } else {
    soften_overlapping(to, from, ratio);
  }
}

int32_t Sensor_set_mesh(void* tuning, intptr_t /*reserved*/, float bright_ratio, float low_ratio) {
  if (tuning == nullptr) return 0;

  LOGI("[LSC Calibration]: Sensor_set_mesh\n");
  LOGI("[LSC Calibration]: call awb_get_fuseid\n");
  const calib::FuseWords module = calib::module_fuse_words();
  LensShadingRecord record{};
  const calib::RecordReading reading = load(record);
  if (reading.from == calib::RecordReading::From::nowhere) return 0;
  if (!is_usable(record, reading.is_whole, module)) return 0;

  auto* bytes = static_cast<uint8_t*>(tuning);
  uint8_t* first = bytes + calib::kMeshTables;
  LOGI("%s:load k chromatix %d\n", kName, static_cast<int>(calib::kMeshTableCount));
  for (size_t k = 0; k < calib::kMeshTableCount; ++k) store(record, first + k * sizeof(MeshTable));
  // Low light first: its mesh comes from the measured gains, not from those softened for bright light.
  if (low_ratio > 0.0F) {
    LOGI("%s:interpolate low light rolloff with %f\n", kName, static_cast<double>(low_ratio));
    Sensor_mesh_interpolation(bytes + calib::kLowLightMesh, first, low_ratio);
  }
  if (bright_ratio > 0.0F) {
    LOGI("%s:interpolate bright light rolloff with %f\n", kName, static_cast<double>(bright_ratio));
    Sensor_mesh_interpolation(first, first, bright_ratio);
  }
  store(record, bytes + calib::kFurtherMesh);
  if (bright_ratio > 0.0F) {
    Sensor_mesh_interpolation(bytes + calib::kFurtherMesh, bytes + calib::kFurtherMesh, bright_ratio);
  }
  return 1;
}
