// AEC calibration: the target for the exposure control, its settled values, and their record.

#include <cstring>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "common/property.h"
#include "factory/factory_console.h"
#include "factory/factory_state.h"
#include "records/judgement.h"
#include "records/module_identity.h"
#include "records/record_files.h"

constinit uint32_t QOR_AWB_Calibration_aec_ready = 0;

namespace {

using calib::AecRecord;
using calib::factory_state;
using calib::log_module;

constexpr calib::JudgementRule kRule{
    .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

void set_ready(uint32_t ready) {
  QOR_AWB_Calibration_aec_ready = ready;
  factory_state.settled = {};
}

AecRecord make_record(const awb_fuse_id& fuse, const calib::SettledExposure& settled) {
  AecRecord record{.valid_word = calib::kFinishedValidWord,
                   .gain = settled.gain,
                   .exp_time = settled.exp_time,
                   .luma_value = settled.luma_value,
                   .fuse = {fuse.word[0], fuse.word[1], fuse.word[2], fuse.word[3]},
                   .crc = 0};
  calib::seal(record);
  return record;
}

void log_words(const AecRecord& record) {
  uint32_t words[sizeof record / sizeof(uint32_t)];
  memcpy(words, &record, sizeof words);
  for (int i = 0; i < 9; ++i) {
    LOGI("%s, [AWB Calibration]-aec_caBuff-%d, 0x%x", "aec_write_calibration", i, words[i]);
  }
}

void write_cache(uint8_t camid, const AecRecord& record) {
  const calib::Camera camera = calib::camera_of_camid(camid);
  const char* path = calib::kAecFiles.written.of(camera);
  const int fd = calib::create_replacement(path);
  if (fd < 0) {
    LOG_BY_CAMERA(PRINT_AND_LOGE, camera, "%s: create /data/misc/camera/aec_cal fail\n",
                  "%s: create /data/misc/camera/aec_cal_front_CAM fail\n",
                  "%s: create /data/misc/camera/aec_cal_sub_CAM fail\n", "aec_write_calibration");
    return;
  }
  LOGI("[AWB Calibration] write aec_cabuff to /data/misc/camera/aec_cal");
  calib::finish_cache(fd, &record, sizeof record, path);
}

/// Says what the record holds and whether it is this module's good one.
bool is_good(const AecRecord& record, const calib::FuseWords& module) {
  constexpr const char* kName = "QOR_Calibration_AEC_get_calibration_data";
  const calib::Judgement judgement = calib::judge(calib::claims_of(record), module, kRule);
  const uint32_t(&fuse)[4] = record.fuse;
  LOGI("%s, AEC nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n", kName,
       record.valid_word, record.gain, record.exp_time, record.luma_value, fuse[0], fuse[1], fuse[2], fuse[3],
       record.crc);
  if (!judgement.crc_good) {
    LOGE("%s, AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n", kName);
    LOGE("%s, AEC will do nothing!\n", kName);
    return false;
  }
  LOGI("%s, AEC check sum=%x, OK\n", kName, record.crc);
  LOGI("%s, AEC %x, %x, %x, (%x %x %x %x)\n", kName, record.gain, record.exp_time, record.luma_value, fuse[0],
       fuse[1], fuse[2], fuse[3]);
  LOGI("%s, AEC caAecBuff[0]:%d\n", kName, static_cast<int32_t>(record.valid_word));
  if (!judgement.valid_word_good || !judgement.is_bound()) {
    LOGE("%s, Not load AEC-Calibraton data", kName);
    return false;
  }
  LOGI("%s, Load AEC-Calibraton data", kName);
  return true;
}

}  // namespace

int32_t QOR_Calibration_AEC_get_params(uint32_t* luma_target, uint32_t* tolerance) {
  if (luma_target == nullptr || tolerance == nullptr) return -1;

  aec_reset_status();
  factory_state.calibration_status = calib::property_number("mfg.calibration.status", "0");
  if (factory_state.calibration_status != calib::kCalibrationMode) return -1;

  const int32_t target = calib::property_number("mfg.awb.calibration.luma_target", "50");
  const int32_t tolerated = calib::property_number("mfg.awb.calibration.tolerance", "4");
  LOGI("Cal_Status %d, luma_target = %d, tolerance = %d", factory_state.calibration_status, target,
       tolerated);
  *luma_target = static_cast<uint32_t>(target);
  *tolerance = static_cast<uint32_t>(tolerated);
  LOGI("[AWB Calibration] %s: luma_target(%d) tolerance(%d)\n", "QOR_Calibration_AEC_get_params", target,
       tolerated);
  const int32_t camid = calib::property_number("mfg.awb.calibration.camid", "0");
  awb_set_camid(static_cast<uint8_t>(camid));
  LOGI("camid %d", camid);
  return 0;
}

uint32_t QOR_Calibration_AEC_set_ready(uint32_t gain, uint32_t exp_time, uint32_t luma_value) {
  aec_check_calibration_trigger();
  if (QOR_AWB_Calibration_aec_ready != 0) factory_state.settled = {gain, exp_time, luma_value};
  return QOR_AWB_Calibration_aec_ready;
}

int32_t aec_check_calibration_trigger() {
  if (factory_state.calibration_status != calib::kCalibrationMode) return 0;

  const int32_t trigger = calib::property_number("mfg.awb.calibration.trigger", "0");
  const int32_t enable = calib::property_number("mfg.awb.calibration.ae.k.eb", "0");
  if (trigger == 1 && enable == 1) {
    LOGI("calibration_trigger %d, aec_calibration_enable %d", trigger, enable);
    aec_set_status_ready();
  }
  return 0;
}

void aec_set_status_ready() {
  set_ready(1);
}

void aec_reset_status() {
  set_ready(0);
}

uint32_t aec_is_ready() {
  return QOR_AWB_Calibration_aec_ready;
}

int32_t aec_write_calibration(uint8_t camid, awb_fuse_id fuse, uint32_t gain, uint32_t exp_time,
                              uint32_t luma_value) {
  constexpr const char* kName = "aec_write_calibration";
  const uint32_t offset = camid * calib::kSlotSize + calib::kSlotAec;
  LOGI("%s: camid(%d) offset(%d) (%d,%d)", kName, camid, static_cast<int32_t>(offset),
       static_cast<int32_t>(gain), static_cast<int32_t>(exp_time));
  const AecRecord record = make_record(fuse, {gain, exp_time, luma_value});
  log_words(record);

  if (WriteFlashOffset(&record, sizeof record, offset) < 0) {
    const calib::KeepErrno keep;
    LOGE("%s, [AWB Calibration] Can't write AEC to flash. Maybe Not MFG ROM or Flash is bad", kName);
    printf("%s: writeflash() fail\n", kName);
    return -1;
  }
  LOGI("%s, [AWB Calibration] AEC write flash pass", kName);
  printf("%s: writeflash() OK\n", kName);
  write_cache(camid, record);
  return 0;
}

void QOR_Calibration_AEC_get_calibration_data(uint32_t* gain, uint32_t* exp_time, uint32_t* luma_value) {
  if (gain == nullptr || exp_time == nullptr || luma_value == nullptr) return;

  const calib::FuseWords module = calib::module_fuse_words();
  *gain = *exp_time = *luma_value = 0;
  // A record that cannot be read stays all zeros: its CRC is good, its valid word is not.
  uint8_t bytes[sizeof(AecRecord)] = {};
  if (aec_read_calibration(bytes, sizeof bytes) == 0) return;
  const auto record = calib::record_at<AecRecord>(bytes);
  if (!is_good(record, module)) return;

  *gain = record.gain;
  *exp_time = record.exp_time;
  *luma_value = record.luma_value;
  LOGI("%s, (gain, exp_time, luma_value,) = (0x%x, 0x%x, 0x%x)", "QOR_Calibration_AEC_get_calibration_data",
       *gain, *exp_time, *luma_value);
}
