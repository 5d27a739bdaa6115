// The AWB calibration run: frames are summed, judged against the golden sample, and the record is stored.

#include <cstdio>
#include <cstring>

#include "awb_calibration/factory.h"
#include "common/file.h"
#include "common/property.h"
#include "factory/factory_console.h"
#include "factory/factory_state.h"
#include "factory/run_arithmetic.h"
#include "records/a_light_mode.h"
#include "records/golden_sample.h"
#include "records/judgement.h"
#include "records/module_identity.h"
#include "records/record_files.h"

constinit uint32_t QOR_AWB_Calibration_threshold = 1024;
constinit uint32_t QOR_AWB_Calibration_light_source_version = 0;
constinit uint32_t QOR_AWB_Calibration_counter = 0;
constinit uint32_t QOR_AWB_Calibration_enabled = 0;

namespace {

using calib::AwbRecord;
using calib::Camera;
using calib::factory_state;
using calib::GoldenRatios;
using calib::log_module;
using calib::Margin;
using calib::MarkerText;

constexpr const char* kName = "QOR_AWB_Calibration_write_to_flash";
constexpr uint32_t kNewestVersion = 3;

// ---- files ------------------------------------------------------------------------------------------------

struct RunFiles {
  calib::PerCamera success;
  calib::PerCamera fail;
  calib::PerCamera cache;
};

constexpr RunFiles kNormalLight{
    .success = {.main = "/data/misc/camera/awb_calibration_success.txt",
                .front = "/data/misc/camera/awb_calibration_success_front_CAM.txt",
                .sub = "/data/misc/camera/awb_calibration_success_sub_CAM.txt"},
    .fail = {.main = "/data/misc/camera/awb_calibration_fail.txt",
             .front = "/data/misc/camera/awb_calibration_fail_front_CAM.txt",
             .sub = "/data/misc/camera/awb_calibration_fail_sub_CAM.txt"},
    .cache = calib::kAwbFiles.written};

constexpr RunFiles kALight{
    .success = {.main = "/data/misc/camera/awb_A_light_calibration_success.txt",
                .front = "/data/misc/camera/awb_A_light_calibration_success_front_CAM.txt",
                .sub = "/data/misc/camera/awb_A_light_calibration_success_sub_CAM.txt"},
    .fail = {.main = "/data/misc/camera/awb_A_light_calibration_fail.txt",
             .front = "/data/misc/camera/awb_A_light_calibration_fail_front_CAM.txt",
             .sub = "/data/misc/camera/awb_A_light_calibration_fail_sub_CAM.txt"},
    .cache = calib::kALightAwbFiles.written};

Camera run_camera() {
  return calib::camera_of_camid(awb_get_camid());
}

const RunFiles& run_files() {
  return calib::is_a_light() ? kALight : kNormalLight;
}

/// Replaces the fail file by one line.
void write_fail_file(const char* line) {
  const int fd = calib::create_replacement(run_files().fail.of(run_camera()));
  if (fd >= 0) calib::finish_marker(fd, line, strlen(line));
}

// ---- judgement --------------------------------------------------------------------------------------------

struct Tolerance {
  float percent;
  float fraction;  ///< what the report calls the threshold until the golden sample scales it
};

/// What the sums of a run came to.
struct RunResult {
  GoldenRatios measured;
  Margin margin;
};

void start_record(AwbRecord& record) {
  record.valid_word = calib::kFinishedValidWord;
  record.rg = record.bg = calib::kUnityWord;
  awb_get_fuseid(record.fuse);
  calib::seal(record);
}

/// Fills the record from the sums. The fuse words stay those of the run's first frame.
RunResult judge_run(AwbRecord& record, uint32_t version, float tolerance) {
  record.valid_word = version * calib::kVersionUnit + calib::kValidMark;
  record.rg = calib::run_mean(factory_state.rg_sum);
  record.bg = calib::run_mean(factory_state.bg_sum);

  const GoldenRatios measured = calib::ratios_of(record.rg, record.bg);
  const Margin margin = calib::margin_of(measured, calib::golden_sample.of_version(version), tolerance);
  if (!margin.is_kept()) {
    LOGE("%s error:not valid : delta(%f)>threshold(%f)\n", kName, static_cast<double>(margin.delta),
         static_cast<double>(margin.limit));
    record.valid_word = version * calib::kVersionUnit;
  }
  calib::seal(record);
  return {measured, margin};
}

// ---- report -----------------------------------------------------------------------------------------------

/// The lines that the time-out verdict and the report share.
void add_run_lines(MarkerText& text, const AwbRecord& record, float percent, float limit) {
  text.add("Fuse_ID[1]=0x%x\n", record.fuse[0]);
  text.add("Fuse_ID[2]=0x%x\n", record.fuse[1]);
  text.add("Fuse_ID[3]=0x%x\n", record.fuse[2]);
  text.add("Fuse_ID[4]=0x%x\n", record.fuse[3]);
  text.add("Light source version: v%d\n",
           static_cast<int32_t>(calib::light_source_version(record.valid_word)));
  text.add("Tolerance=%f %%\n", static_cast<double>(percent));
  text.add("Threshold=%f \n", static_cast<double>(limit));
}

void add_result_lines(MarkerText& text, const RunResult& result) {
  text.add("R/G_ratio=%f\n", static_cast<double>(result.measured.rg));
  text.add("B/G_ratio=%f\n", static_cast<double>(result.measured.bg));
  text.add("Delta=%f\n", static_cast<double>(result.margin.delta));
}

void log_lines(const MarkerText& text) {
  for (const char* line = text.data(); *line != '\0';) {
    const char* end = strchr(line, '\n') + 1;
    LOGI("%.*s", static_cast<int>(end - line), line);
    line = end;
  }
}

void log_record(const AwbRecord& record) {
  LOGI("[AWB Calibration] caBuff[0]:0x%x\n", record.valid_word);
  LOGI("[AWB Calibration] caBuff[1]:0x%x\n", record.rg);
  LOGI("[AWB Calibration] caBuff[2]:0x%x\n", record.bg);
  LOGI("[AWB Calibration] caBuff[3]:0x%x\n", record.fuse[0]);
  LOGI("[AWB Calibration] caBuff[4]:0x%x\n", record.fuse[1]);
  LOGI("[AWB Calibration] caBuff[5]:0x%x\n", record.fuse[2]);
  LOGI("[AWB Calibration] caBuff[6]:0x%x\n", record.fuse[3]);
  LOGI("[AWB Calibration] caBuff[7]:0x%x\n", record.crc);
}

void log_record_in_one_line(const AwbRecord& record) {
  const auto decimal = [](uint32_t word) { return static_cast<int32_t>(word); };
  LOGI("%s, caBuff: 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d", kName, decimal(record.valid_word),
       decimal(record.rg), decimal(record.bg), decimal(record.fuse[0]), decimal(record.fuse[1]),
       decimal(record.fuse[2]), decimal(record.fuse[3]), decimal(record.crc));
}

// ---- the steps of a run -----------------------------------------------------------------------------------

/// Leaves the fail file as the verdict of a run that never ends: nothing here has a timer, the factory tool
/// decides when it has waited too long.
void begin_run(const Tolerance& tolerance) {
  const Camera camera = run_camera();
  calib::remove_file(run_files().success.of(camera));
  const int fd = calib::create_replacement(run_files().fail.of(camera));
  if (fd < 0) {
    LOGI("[AWB Calibration] can't open /data/misc/camera/awb_calibration_fail.txt");
    return;
  }
  start_record(factory_state.awb_record);
  MarkerText text;
  text.add("Calibration fail: Time out!!\n");
  add_run_lines(text, factory_state.awb_record, tolerance.percent, tolerance.fraction);
  calib::finish_marker(fd, text.data(), text.size());
}

void add_frame(uint32_t rg, uint32_t bg) {
  factory_state.rg_sum += static_cast<float>(static_cast<int32_t>(rg));
  factory_state.bg_sum += static_cast<float>(static_cast<int32_t>(bg));
  LOGI("%s:counter=%3d rg=%f bg=%f\n", kName, static_cast<int32_t>(QOR_AWB_Calibration_counter),
       static_cast<double>(factory_state.rg_sum), static_cast<double>(factory_state.bg_sum));
  QOR_AWB_Calibration_counter += 1;
}

/// The front camera has no AEC calibration.
bool is_aec_wanted(uint8_t camid) {
  if (factory_state.calibration_status != calib::kCalibrationMode || (camid != 0 && camid != 2)) return false;
  const int32_t trigger = calib::property_number("mfg.awb.calibration.trigger", "0");
  const int32_t enable = calib::property_number("mfg.awb.calibration.ae.k.eb", "0");
  if (trigger != 1 || enable != 1) return false;
  LOGI("calibration_trigger %d, aec_calibration_enable %d", trigger, enable);
  return true;
}

int32_t write_settled_aec(uint8_t camid) {
  if (aec_is_ready() == 0) {
    LOGE("%s: AEC is not settled !!\n", kName);
    printf("AEC is not settled !!\n");
    return -1;
  }
  const calib::SettledExposure settled = factory_state.settled;
  const auto decimal = [](uint32_t word) { return static_cast<int32_t>(word); };
  LOGI("%s: AEC settled, gain = %d, exp_time = %d, luma_value = %d\n", kName, decimal(settled.gain),
       decimal(settled.exp_time), decimal(settled.luma_value));
  printf("AEC settled, gain = %d, exp_time = %d, luma_value = %d\n", decimal(settled.gain),
         decimal(settled.exp_time), decimal(settled.luma_value));
  awb_fuse_id fuse;
  awb_get_fuseid(fuse.word);
  return aec_write_calibration(camid, fuse, settled.gain, settled.exp_time, settled.luma_value);
}

/// Returns false when the AEC record is wanted and could not be written: the next frame tries again.
bool do_aec_step(uint8_t camid) {
  if (!is_aec_wanted(camid)) {
    LOGI("%s: Bypass aec calibration\n", kName);
    printf("Bypass aec calibration\n");
    return true;
  }
  if (write_settled_aec(camid) >= 0) return true;

  LOG_BY_CAMERA(PRINT_AND_LOGI, run_camera(), "%s: write AEC flash for main-cam fail\n",
                "%s: write AEC flash for front-cam fail\n", "%s: write AEC flash for sub-cam fail\n", kName);
  LOGE("%s: Can't write AEC calibration to flash. Maybe AEC not settled or Flash is bad\n", kName);
  write_fail_file("Can't write AEC calibration to flash. Maybe AEC not settled or Flash is bad\n");
  return false;
}

void end_run() {
  awb_disable_calibration();
  aec_reset_status();
}

/// The partition has the record: leaves the verdict in a marker file and, for a good one, the cache file.
void finish_run(const Tolerance& tolerance, const RunResult& result) {
  const AwbRecord& record = factory_state.awb_record;
  const Camera camera = run_camera();
  const RunFiles& files = run_files();
  const bool is_good = record.valid_word % calib::kVersionUnit == calib::kValidMark;

  calib::remove_file(files.fail.of(camera));
  const char* marker = is_good ? files.success.of(camera) : files.fail.of(camera);
  const char* cache = files.cache.of(camera);
  const int marker_fd = calib::create_replacement(marker);
  const int cache_fd = is_good ? calib::create_replacement(cache) : -1;

  log_record(record);
  MarkerText text;
  add_run_lines(text, record, tolerance.percent, result.margin.limit);
  add_result_lines(text, result);
  log_lines(text);
  if (marker_fd >= 0) calib::finish_marker(marker_fd, text.data(), text.size());

  if (cache_fd < 0) {
    LOGI("[AWB Calibration] open file(data/awb_cal) error");
    end_run();
    return;
  }
  LOGI("[AWB Calibration] write cabuff to /data/misc/camera/awb_cal");
  calib::finish_cache(cache_fd, &record, sizeof record, cache);
  end_run();
  LOGI("[AWB Calibration] ok, calibration finish!!");
}

void judge_and_store(uint32_t version, const Tolerance& tolerance) {
  const uint8_t camid = awb_get_camid();
  AwbRecord& record = factory_state.awb_record;
  const RunResult result = judge_run(record, version, tolerance.fraction);
  if (!do_aec_step(camid)) return;

  LOGI("%s: WriteFlash_for_bayer_Cam()\n", kName);
  const int32_t written = WriteFlash_for_bayer_Cam(&record, sizeof record, camid);
  log_record_in_one_line(record);
  if (written < 0) {
    LOG_BY_CAMERA(PRINT_AND_LOGI, run_camera(), "%s: write flash for main-cam fail\n",
                  "%s: write flash for front-cam fail\n", "%s: write flash for sub-cam fail\n", kName);
    write_fail_file("Can't write flash. Maybe Not MFG ROM or Flash is bad\n");
    return;
  }
  LOG_BY_CAMERA(PRINT_AND_LOGI, run_camera(), "%s: write flash for main-cam OK\n",
                "%s: write flash for front-cam OK\n", "%s: write flash for sub-cam OK\n", kName);
  LOGI("[AWB Calibration] write all %x , ok=%d", record.valid_word, written);
  finish_run(tolerance, result);
}

/// The light-source version of this run; the stored one is clamped for good.
uint32_t run_version() {
  uint32_t& stored = QOR_AWB_Calibration_light_source_version;
  if (stored > kNewestVersion) stored = kNewestVersion;
  return stored != 0 ? stored : kNewestVersion;
}

void set_run(uint32_t enabled) {
  QOR_AWB_Calibration_enabled = enabled;
  QOR_AWB_Calibration_counter = 0;
  factory_state.rg_sum = factory_state.bg_sum = 0.0F;
}

/// The golden sample from the properties. Both ratios are taken when R/G is given: B/G is not looked at.
void read_golden_sample() {
  const auto rg = static_cast<float>(calib::property_real("mfg.awb.calibration.rg_ratio"));
  const auto bg = static_cast<float>(calib::property_real("mfg.awb.calibration.bg_ratio"));
  if (!(rg > 0.0F)) return;
  calib::golden_sample = {.rg = {rg, rg, rg}, .bg = {bg, bg, bg}};
}

}  // namespace

int32_t check_and_init_awb_calibration() {
  awb_disable_calibration();
  calib::a_light_mode = calib::property_number("mfg.awb.calibration.Alight", "0");
  factory_state.calibration_status = calib::property_number("mfg.calibration.status", "0");
  if (factory_state.calibration_status != calib::kCalibrationMode) return 0;

  const int32_t threshold = calib::property_number("mfg.awb.calibration.threshold", "20");
  LOGI("Cal_Status %d threshold %d", factory_state.calibration_status, threshold);
  awb_calibration_set_parm(static_cast<uint32_t>(threshold), kNewestVersion);
  const int32_t camid = calib::property_number("mfg.awb.calibration.camid", "0");
  awb_set_camid(static_cast<uint8_t>(camid));
  LOGI("camid %d", camid);
  read_golden_sample();
  return 0;
}

void QOR_AWB_Calibration_collect(int32_t rg_sum, int32_t bg_sum, int32_t count) {
  check_awb_calibration_trigger();
  if (awb_if_enabled() == 0) return;

  LOGI("QOR_AWB_Calibration_collect (%d,%d) (%d)\n", rg_sum, bg_sum, count);
  QOR_AWB_Calibration_write_to_flash(static_cast<uint32_t>(calib::frame_mean(rg_sum, count)),
                                     static_cast<uint32_t>(calib::frame_mean(bg_sum, count)));
}

int32_t check_awb_calibration_trigger() {
  if (factory_state.calibration_status != calib::kCalibrationMode) return 0;

  const int32_t trigger = calib::property_number("mfg.awb.calibration.trigger", "0");
  if (factory_state.previous_trigger == 0 && trigger == 1) {
    LOGI("calibration_trigger %d", trigger);
    awb_enable_calibration();
  }
  factory_state.previous_trigger = trigger;
  return 0;
}

void awb_enable_calibration() {
  set_run(1);
}

void awb_disable_calibration() {
  set_run(0);
}

uint32_t awb_if_enabled() {
  return QOR_AWB_Calibration_enabled;
}

void awb_calibration_set_parm(uint32_t threshold, uint32_t light_source_version) {
  QOR_AWB_Calibration_threshold = threshold;
  QOR_AWB_Calibration_light_source_version = light_source_version;
  LOGI("[AWB Calibration] %s: threshold(%d) light-ver(%d)\n", "awb_calibration_set_parm",
       static_cast<int32_t>(threshold), static_cast<int32_t>(light_source_version));
}

void QOR_AWB_Calibration_write_to_flash(uint32_t rg, uint32_t bg) {
  LOGI("QOR_AWB_Calibration_write_to_flash (%d,%d)\n", static_cast<int32_t>(rg), static_cast<int32_t>(bg));
  const auto percent = static_cast<float>(QOR_AWB_Calibration_threshold);
  const Tolerance tolerance{.percent = percent, .fraction = calib::tolerance_of(percent)};
  LOGI("%s: threshold = %d , light source version = %d\n", kName,
       static_cast<int32_t>(QOR_AWB_Calibration_threshold),
       static_cast<int32_t>(QOR_AWB_Calibration_light_source_version));
  const uint32_t version = run_version();
  LOGI("%s: %3d %3d\n", kName, static_cast<int32_t>(QOR_AWB_Calibration_counter), awb_get_camid());

  if (QOR_AWB_Calibration_counter == 0) begin_run(tolerance);
  LOGI("[AWB Calibration] :QOR_AWB_Calibration_counter:%d\n",
       static_cast<int32_t>(QOR_AWB_Calibration_counter));
  if (QOR_AWB_Calibration_counter < calib::kFramesToSum) {
    add_frame(rg, bg);
  } else {
    judge_and_store(version, tolerance);
  }
}
