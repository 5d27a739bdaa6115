#include "log/line_rules.h"

#include <algorithm>
#include <span>
#include <vector>

#include "factory/run_arithmetic.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace {

using calib::Camera;
using M = LineMatch;

// ---- what lines say ---------------------------------------------------------------------------------------

template <Camera camera>
void of_camera(Act& act, const M&) {
  act.camera = camera;
}

/// The number of bytes follows where the line has it.
template <TakenFrom from, Camera camera>
void from_of(Act& act, const M& match) {
  act.camera = camera;
  act.from = from;
  if (from != TakenFrom::cache_file) return;
  if (!match.text(0).empty()) act.count = match.number(0);
}

template <TakenFrom from>
void taken_from(Act& act, const M&) {
  act.from = from;
}

/// "... (%d) (%d)": the bytes of the export, and how many of them were asked for.
template <size_t first>
void from_export(Act& act, const M& match) {
  act.from = TakenFrom::kernel_export;
  act.count = match.number(first);
  if (act.candidates == deeds(Deed::moved_points_flash, Deed::module_points_flash)) {
    const bool is_short = match.number(first + 1) == static_cast<int64_t>(sizeof(calib::FlashRecord));
    act.candidates = deeds(is_short ? Deed::moved_points_flash : Deed::module_points_flash);
  }
}

/// One line for both sources: the cache file's, unless a line before it said that there is none.
template <Camera camera>
void from_either(Act& act, const M&) {
  act.camera = camera;
  if (!act.from) act.from = TakenFrom::cache_file;
}

/// No cache file: where the record comes from instead is said next.
template <Camera camera>
void without_cache(Act& act, const M&) {
  act.camera = camera;
  act.from = TakenFrom::kernel_export;
}

/// Words `first` to `last` of the record, from argument 1 on.
template <size_t first, size_t last>
void take_words(Act& act, const M& match) {
  for (size_t i = first; i <= last; ++i) act.words[i] = static_cast<uint32_t>(match.hex(1 + i - first));
}

template <size_t i>
void take_word(Act& act, const M& match) {
  act.words[i] = static_cast<uint32_t>(match.hex(0));
}

void take_numbered_word(Act& act, const M& match) {
  const int64_t i = match.number(1);
  if (i >= 0 && i < static_cast<int64_t>(act.words.size()))
    act.words[static_cast<size_t>(i)] = static_cast<uint32_t>(match.hex(2));
}

/// From argument `first` on.
template <size_t first>
void take_fuse(Act& act, const M& match) {
  for (size_t i = 0; i < act.fuse.size(); ++i) act.fuse[i] = match.hex(first + i);
}

template <size_t first>
void take_module(Act& act, const M& match) {
  for (size_t i = 0; i < act.module.size(); ++i) act.module[i] = static_cast<uint32_t>(match.hex(first + i));
}

/// The module after the judgement: a record whose first fuse word is 0 has made the module's 0.
template <size_t first>
void take_judged_module(Act& act, const M& match) {
  for (size_t i = 0; i < act.module.size(); ++i) {
    const auto word = static_cast<uint32_t>(match.hex(first + i));
    if (!act.module[i] && (i > 0 || word != 0)) act.module[i] = word;
  }
}

/// "%s: ..._verify(%ld)... (0x%lx 0x%lx 0x%lx 0x%lx)"
template <size_t first_fuse>
void take_fields(Act& act, const M& match) {
  act.valid_word = static_cast<uint64_t>(match.number(1));
  take_fuse<first_fuse>(act, match);
}

template <size_t i>
void good_checksum(Act& act, const M& match) {
  act.is_crc_good = true;
  act.stored_crc = match.hex(i);
}

void bad_checksum(Act& act, const M&) {
  act.is_crc_good = false;
  if (act.of() == DeedClass::correction) act.is_taken = false;
}

template <size_t i>
void take_valid_word(Act& act, const M& match) {
  act.valid_word = static_cast<uint32_t>(match.number(i));
}

template <bool is_taken>
void decided(Act& act, const M&) {
  act.is_taken = is_taken;
}

template <size_t first>
void hand_out(Act& act, const M& match) {
  act.is_taken = true;
  act.handed_out = {match.real(first), match.real(first + 1)};
}

template <bool is_cached>
void cached(Act& act, const M&) {
  act.is_cached = is_cached;
}

template <bool value, std::optional<bool> Act::*field>
void said(Act& act, const M&) {
  act.*field = value;
}

void take_record_word(Act& act, const M& match) {
  constexpr uint64_t kGood = 0xF;
  const bool is_first_of_two = match.line().format.find("[dual]") != std::string_view::npos;
  if (match.hex(1) == kGood) {
    act.is_taken = true;
  } else if (!is_first_of_two) {
    act.is_taken = false;
  }
}

void take_sensor(Act& act, const M& match) {
  act.camera = calib::camera_of_selection(static_cast<int32_t>(match.number(1)));
  take_module<2>(act, match);
}

template <size_t i>
void take_camid(Act& act, const M& match) {
  act.camera = calib::camera_of_camid(static_cast<int32_t>(match.number(i)));
}

/// The same line stands for a record that cannot be read back.
void not_written(Act& act, const M&) {
  if (act.is_taken.value_or(false)) {
    act.is_intact = false;
  } else {
    act.is_taken = false;
  }
}

// ---- a calibration run ------------------------------------------------------------------------------------

/// Frames are summed up to the tenth; those behind it judge.
template <size_t i>
void take_counter(Act& act, const M& match) {
  act.frames = std::clamp<int64_t>(match.number(i), 0, calib::kFramesToSum);
  act.has_judged = match.number(i) >= calib::kFramesToSum;
}

void take_frame(Act& act, const M& match) {
  act.frames = std::clamp<int64_t>(match.number(1), -1, calib::kFramesToSum - 1) + 1;
}

void take_decimal_record(Act& act, const M& match) {
  for (size_t i = 0; i < 8; ++i) act.words[i] = static_cast<uint32_t>(match.number(1 + i));
}

void take_slot(Act& act, const M& match) {
  const uint64_t base = match.text(1) == "4096" ? calib::kAreaBase4k : calib::kAreaBase2k;
  act.is_a_light = (match.hex(2) - base) % calib::kSlotSize == calib::kSlotALightAwb;
}

void take_margin(Act& act, const M& match) {
  act.delta = match.real(1);
  act.limit = match.real(2);
}

void wait_for_exposure(Act& act, const M&) {
  ++act.unsettled;
  act.is_exposure_stored = false;
}

template <Camera camera, bool is_taken>
void stored_of(Act& act, const M&) {
  act.camera = camera;
  act.is_taken = is_taken;
}

template <std::optional<double> Act::*field>
void take_real(Act& act, const M& match) {
  act.*field = match.real(0);
}

template <size_t i>
void take_ratio(Act& act, const M& match) {
  act.handed_out[i] = match.real(0);
}

// ---- the table --------------------------------------------------------------------------------------------

constexpr Camera kMain = Camera::main;
constexpr Camera kFront = Camera::front;
constexpr Camera kSub = Camera::sub;
constexpr TakenFrom kCache = TakenFrom::cache_file;
constexpr TakenFrom kExport = TakenFrom::kernel_export;
constexpr TakenFrom kNowhere = TakenFrom::nowhere;

constexpr Deeds kCheckAwb = deeds(Deed::check_awb);
constexpr Deeds kCheckAec = deeds(Deed::check_aec);
constexpr Deeds kCheckMesh = deeds(Deed::check_lens_shading);
constexpr Deeds kCheckFlash = deeds(Deed::check_flash);
constexpr Deeds kCheckGyro = deeds(Deed::check_gyro);
constexpr Deeds kCheckPair = deeds(Deed::check_dual_camera);
constexpr Deeds kEightFields = kCheckAwb | kCheckFlash;
constexpr Deeds kFileChecks = kEightFields | kCheckMesh | kCheckGyro;
constexpr Deeds kChecks = kFileChecks | kCheckPair;

constexpr Deeds kWriteAec = deeds(Deed::write_aec);
constexpr Deeds kWriteFlash = deeds(Deed::write_flash);
constexpr Deeds kWriteDualFlash = deeds(Deed::write_dual_flash);
constexpr Deeds kFlashWriters = kWriteFlash | kWriteDualFlash;
constexpr Deeds kWriteGyro = deeds(Deed::write_gyro);
constexpr Deeds kReadPair = deeds(Deed::read_dual_camera);
constexpr Deeds kPairWriters = deeds(Deed::write_dual_camera, Deed::write_dual_camera_first_form);
constexpr Deeds kPairSteps = kPairWriters | kReadPair;

constexpr Deeds kRun = deeds(Deed::run);

constexpr Deeds kMoved = deeds(Deed::moved_points);
constexpr Deeds kMovedFlash = deeds(Deed::moved_points_flash);
constexpr Deeds kModule = deeds(Deed::module_points);
constexpr Deeds kModuleFlash = deeds(Deed::module_points_flash);
constexpr Deeds kMesh = deeds(Deed::mesh);
constexpr Deeds kAwb = kMoved | kModule;
constexpr Deeds kFlash = kMovedFlash | kModuleFlash;
constexpr Deeds kPair = deeds(Deed::pair_normal_light, Deed::pair_a_light);
constexpr Deeds kExposure = deeds(Deed::exposure, Deed::check_aec);
constexpr Deeds kOpened = kAwb | kPair | kMovedFlash;
constexpr Deeds kMeshOrCheck = kMesh | deeds(Deed::check_lens_shading);

#define L(text) library_line(text)
#define SET(statement) [](Act& act, [[maybe_unused]] const M& match) { statement; }

constexpr LineRule kCorrectionRules[] = {
    // the AWB record of either reference-point correction
    {L("%s, [AWB Calibration] fuse_id : 0x%x, 0x%x, 0x%x, 0x%x\n"), kAwb, kBegin, take_module<1>},
    {L("ReadFlash() for AWB of MAIN CAM\n"), kOpened, kOpening, of_camera<kMain>},
    {L("ReadFlash() for AWB of Front CAM\n"), kOpened, kOpening, of_camera<kFront>},
    {L("ReadFlash() for AWB of Sub CAM\n"), kOpened, kOpening, of_camera<kSub>},
    {L("[AWB Calibration] read from file OK: /data/misc/camera/awb_cal"), kAwb, kFirstSource,
     from_of<kCache, kMain>},
    {L("[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_front_CAM"), kAwb, kFirstSource,
     from_of<kCache, kFront>},
    {L("[AWB Calibration] read from file OK: /data/misc/camera/awb_cal_sub_CAM"), kAwb, kFirstSource,
     from_of<kCache, kSub>},
    {L("[AWB Calibration] fail to read /data/misc/camera/awb_cal, try another file\n"), kAwb, kFirstSource,
     nullptr},
    {L("[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal"), kAwb, kSecondSource,
     from_of<kExport, kMain>},
    {L("[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_front"), kAwb, kSecondSource,
     from_of<kExport, kFront>},
    {L("[AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal_sub"), kAwb, kSecondSource,
     from_of<kExport, kSub>},
    {L("[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal"), kAwb, kSecondSource,
     from_of<kNowhere, kMain>},
    {L("[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front"), kAwb,
     kSecondSource, from_of<kNowhere, kFront>},
    {L("[AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"), kAwb,
     kSecondSource, from_of<kNowhere, kSub>},
    {L("%s, [AWB Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"), kAwb,
     kContent, take_words<0, 7>},
    {L("[AWB Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     kAwb, kChecksum, bad_checksum},
    {L("[AWB Calibration] will do nothing!\n"), kAwb, kFuse, bad_checksum},
    {L("[AWB Calibration] check sum=%x, OK\n"), kAwb, kChecksum, good_checksum<0>},
    {L("[AWB Calibration] %x %x %x %x\n"), kAwb, kFuse, take_fuse<0>},
    {L("[AWB Calibration] caBuff[0]:%d\n"), kAwb, kValidWord, take_valid_word<0>},
    {L("[AWB Calibration] valid bit and fuseID pass, use new white points\n"), kAwb, kDecision,
     decided<true>},
    {L("[AWB Calibration] valid bit!=99 or calibration light version not in the list. Use default setting.\n"),
     kAwb, kDecision, decided<false>},
    {L("[AWB Calibration] GS ratio: %f,%f\n"), kModule, kResult, nullptr},
    {L("[AWB Calibration] invalid GS ratio\n"), kModule, kLastResult, SET(act.has_no_golden_value = true)},
    {L("[AWB Calibration] use light version: v%d\n"), kAwb, kLastResult, decided<true>},
    {L("[AWB Calibration] Parameter Setup Done !!!\n"), kMoved, kLastResult + 1, decided<true>},

    // the flash record and the dual-flash record
    {L("ReadFlash() for Flash of MAIN CAM\n"), kModuleFlash, kOpening, of_camera<kMain>},
    {L("ReadFlash() for Flash of Front CAM\n"), kModuleFlash, kOpening, of_camera<kFront>},
    {L("ReadFlash() for Flash of Sub CAM\n"), kModuleFlash, kOpening, of_camera<kSub>},
    {L("ReadFlash() /data/misc/camera/flash_cal OK (%d)\n"), kMovedFlash, kFirstSource,
     from_of<kCache, kMain>},
    {L("ReadFlash() /data/misc/camera/flash_cal_front OK (%d)\n"), kMovedFlash, kFirstSource,
     from_of<kCache, kFront>},
    {L("ReadFlash() /data/misc/camera/flash_cal_sub_CAM OK (%d)\n"), kMovedFlash, kFirstSource,
     from_of<kCache, kSub>},
    {L("ReadFlash() /data/misc/camera/flash_dual_cal OK (%d)\n"), kModuleFlash, kFirstSource,
     from_of<kCache, kMain>},
    {L("ReadFlash() /data/misc/camera/flash_dual_cal_front_CAM OK (%d)\n"), kModuleFlash, kFirstSource,
     from_of<kCache, kFront>},
    {L("ReadFlash() /data/misc/camera/flash_dual_cal_sub_CAM OK (%d)\n"), kModuleFlash, kFirstSource,
     from_of<kCache, kSub>},
    {L("ReadFlashForFlashCalibration() for Flash of MAIN CAM\n"), kFlash, kFirstSource, of_camera<kMain>},
    {L("ReadFlashForFlashCalibration() for Flash of front CAM\n"), kFlash, kFirstSource, of_camera<kFront>},
    {L("ReadFlashForFlashCalibration() for Flash of sub CAM\n"), kFlash, kFirstSource, of_camera<kSub>},
    {L("[Flash Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)"), kFlash,
     kSecondSource, from_export<0>},
    {L("[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal"), kFlash,
     kSecondSource, from_of<kNowhere, kMain>},
    {L("[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front"), kFlash,
     kSecondSource, from_of<kNowhere, kFront>},
    {L("[Flash Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"), kFlash,
     kSecondSource, from_of<kNowhere, kSub>},
    {L("%s, [Flash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"), kFlash,
     kContent, take_words<0, 7>},
    {L("%s, [Flash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     kFlash, kChecksum, bad_checksum},
    {L("%s, [Flash Calibration] will do nothing!\n"), kFlash, kFuse, bad_checksum},
    {L("%s, [Flash Calibration] check sum=%x, OK\n"), kFlash, kChecksum, good_checksum<1>},
    {L("%s, [Flash Calibration] %x, %x, (%x %x %x %x)\n"), kFlash, kFuse, take_words<1, 6>},
    {L("%s, [Flash Calibration] caBuff[0]:%d\n"), kFlash, kValidWord, take_valid_word<1>},
    {L("%s, [Flash Calibration] caFlashBuff 0x%x, 0x%x, 0x%x, 0x%x"), kModuleFlash, kAnywhere, take_fuse<1>},
    {L("%s, [Flash Calibration] fuse_id_word 0x%x, 0x%x, 0x%x, 0x%x"), kModuleFlash, kAnywhere,
     take_judged_module<1>},
    {L("%s, [Flash Calibration] Origin led_flash_white_balance.r_gain, b_gain=(%lf, %lf)"), kFlash, kOrigin,
     nullptr},
    {L("%s, [Flash Calibration] Load Flashlight-Calibraton data"), kMovedFlash, kDecision, decided<true>},
    {L("%s, [Flash Calibration] Not load Flashlight-Calibraton data"), kFlash, kDecision, decided<false>},
    {L("%s, [Flash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)"), kMovedFlash, kResult,
     hand_out<1>},
    {L("%s, [DualFlash Calibration] nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
     kModuleFlash, kContent, take_words<0, 7>},
    {L("%s, [DualFlash Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     kModuleFlash, kChecksum, bad_checksum},
    {L("%s, [DualFlash Calibration] will do nothing!\n"), kModuleFlash, kFuse, bad_checksum},
    {L("%s, [DualFlash Calibration] check sum=%x, OK\n"), kModuleFlash, kChecksum, good_checksum<1>},
    {L("%s, [DualFlash Calibration] %x, %x, (%x %x %x %x)\n"), kModuleFlash, kFuse, take_words<1, 6>},
    {L("%s, [DualFlash Calibration] caBuff[0]:%d\n"), kModuleFlash, kValidWord, take_valid_word<1>},
    {L("%s, [DualFlash Calibration] caFlashBuff 0x%x, 0x%x, 0x%x, 0x%x"), kModuleFlash, kAnywhere,
     take_fuse<1>},
    {L("%s, [DualFlash Calibration] fuse_id_word 0x%x, 0x%x, 0x%x, 0x%x"), kModuleFlash, kAnywhere,
     take_judged_module<1>},
    {L("%s, [DualFlash Calibration] Origin led_flash_white_balance.r_gain, b_gain=(%lf, %lf)"), kModuleFlash,
     kOrigin, nullptr},
    {L("%s, [DualFlash Calibration] Load Flashlight-Calibraton data"), kModuleFlash, kDecision,
     decided<true>},
    {L("%s, [DualFlash Calibration] Not load Flashlight-Calibraton data"), kModuleFlash, kDecision,
     decided<false>},
    {L("%s, [DualFlash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)"), kModuleFlash,
     kResult, hand_out<1>},
    {L("%s, [LCDFlash Calibration] Load Flashlight-Calibraton data(LCD color %d)"), kModuleFlash, kDecision,
     decided<true>},
    {L("%s, [LCDFlash Calibration] led_flash_white_balance.r_gain, b_gain=(%lf, %lf)"), kModuleFlash, kResult,
     hand_out<1>},

    // the lens shading
    {L("[LSC Calibration]: Sensor_set_mesh\n"), kMesh, kBegin, nullptr},
    {L("Sensor_set_mesh(): LSC for MAIN CAM\n"), kMesh, kOpening, of_camera<kMain>},
    {L("Sensor_set_mesh() LSC for Front CAM\n"), kMesh, kOpening, of_camera<kFront>},
    {L("Sensor_set_mesh(): LSC for Sub CAM\n"), kMesh, kOpening, of_camera<kSub>},
    {L("Read /data/misc/camera/lsc_cal fail\n"), kMesh, kFirstSource, taken_from<kExport>},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal fail"), kMesh, kSecondSource,
     from_of<kNowhere, kMain>, false, 'I'},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_front fail"), kMesh, kSecondSource,
     from_of<kNowhere, kFront>, false, 'I'},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_sub fail"), kMesh, kSecondSource,
     from_of<kNowhere, kSub>, false, 'I'},
    {L("Read from file OK: /data/misc/camera/lsc_cal or /sys/android_camera_awb_cal/awb_cal"), kMeshOrCheck,
     kSecondSource, from_either<kMain>},
    {L("Read from file OK: /data/misc/camera/lsc_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front"),
     kMeshOrCheck, kSecondSource, from_either<kFront>},
    {L("Read from file OK: /data/misc/camera/lsc_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"),
     kMeshOrCheck, kSecondSource, from_either<kSub>},
    {L("[LSC Calibration]: lsc_checksum=%lx, lsc_verify=%lx\n"), kMesh, kContent,
     SET(act.stored_crc = match.hex(0); act.valid_word = match.hex(1))},
    {L("[LSC Calibration]: fuseid_1=%lx,fuseid_2=%lx,fuseid_3=%lx,fuseid_4=%lx, sfuse.fuse_id_word1=%x,sfuse.fuse_id_word2=%x,sfuse.fuse_id_word3=%x,sfuse.fuse_id_word4=%x\n"),
     kMesh, kFirstChecksum, SET(take_fuse<0>(act, match); take_judged_module<4>(act, match))},
    {L("%s: check sum is not valid\n"), kMesh, kChecksum, SET(act.is_intact = false)},
    {L("%s: valid bit or fuse id is wrong\n"), kMesh, kDecision, decided<false>},
    {L("%s:load k chromatix %d\n"), kMesh, kDecision, decided<true>},
    {L("%s:interpolate low light rolloff with %f\n"), kMesh, kResult, decided<true>},
    {L("%s:interpolate bright light rolloff with %f\n"), kMesh, kLastResult, decided<true>},

    // the pair of cameras
    {L("ReadFlash() /data/misc/camera/awb_dual_cal OK (%d)\n"), kPair, kFirstSource, from_of<kCache, kMain>},
    {L("ReadFlash() /data/misc/camera/awb_dual_cal_front_CAM OK (%d)\n"), kPair, kFirstSource,
     from_of<kCache, kFront>},
    {L("ReadFlash() /data/misc/camera/awb_dual_cal_sub_CAM OK (%d)\n"), kPair, kFirstSource,
     from_of<kCache, kSub>},
    {L("ReadAWBCalibration() for DualCam of MAIN CAM\n"), kPair, kFirstSource, of_camera<kMain>},
    {L("ReadAWBCalibration() for DualCam of front CAM\n"), kPair, kFirstSource, of_camera<kFront>},
    {L("ReadAWBCalibration() for DualCam of sub CAM\n"), kPair, kFirstSource, of_camera<kSub>},
    {L("[Dual AWB Calibration] read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)"), kPair,
     kSecondSource, from_export<0>},
    {L("[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal"), kPair,
     kSecondSource, from_of<kNowhere, kMain>},
    {L("[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_front"), kPair,
     kSecondSource, from_of<kNowhere, kFront>},
    {L("[Dual AWB Calibration] fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"), kPair,
     kSecondSource, from_of<kNowhere, kSub>},
    {L("%s, [Dual Calibration] D50 data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
     deeds(Deed::pair_normal_light), kContent, take_words<0, 7>},
    {L("%s, [Dual Calibration] A light data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
     deeds(Deed::pair_a_light), kContent, take_words<0, 7>},
    {L("%s, [Dual Calibration] read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     kPair, kChecksum, bad_checksum},
    {L("%s, [Dual Calibration] will do nothing!\n"), kPair, kFuse, bad_checksum},
    {L("%s, [Dual Calibration] check sum=%x, OK\n"), kPair, kChecksum, good_checksum<1>},
    {L("%s, [Dual Calibration] %x, %x, (%x %x %x %x)\n"), kPair, kFuse, take_words<1, 6>},
    {L("%s, [Dual Calibration] caBuff[0]:%d\n"), kPair, kValidWord, take_valid_word<1>},
    {L("%s, [Dual Calibration] Load Calibraton data[%f,%f]"), kPair, kDecision, hand_out<1>},
    {L("%s, [Dual Calibration] Not load Dual-Calibraton data"), kPair, kDecision, decided<false>},

    // the deeds(Deed::exposure); its loader is a result check's too
    {L("%s: Read file for AEC of MAIN CAM\n"), kExposure, kOpening, of_camera<kMain>},
    {L("%s: Read file for AEC of Front CAM\n"), kExposure, kOpening, of_camera<kFront>},
    {L("%s: Read file for AEC of Sub CAM\n"), kExposure, kOpening, of_camera<kSub>},
    {L("Read /data/misc/camera/aec_cal OK (%d)\n"), kExposure, kFirstSource, from_of<kCache, kMain>},
    {L("Read /data/misc/camera/aec_cal_front_CAM OK (%d)\n"), kExposure, kFirstSource,
     from_of<kCache, kFront>},
    {L("Read /data/misc/camera/aec_cal_sub_CAM OK (%d)\n"), kExposure, kFirstSource, from_of<kCache, kSub>},
    {L("%s: Read flash for AEC of MAIN CAM\n"), kExposure, kFirstSource, of_camera<kMain>},
    {L("%s: Read flash for AEC of front CAM\n"), kExposure, kFirstSource, of_camera<kFront>},
    {L("%s: Read flash for AEC of sub CAM\n"), kExposure, kFirstSource, of_camera<kSub>},
    {L("[AWB Calibration]%s: read from file OK: /sys/android_camera_awb_cal/awb_cal (%d) (%d)"), kExposure,
     kSecondSource, from_export<1>},
    {L("[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal"), kExposure,
     kSecondSource, from_of<kNowhere, kMain>},
    {L("[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_front"), kExposure,
     kSecondSource, from_of<kNowhere, kFront>},
    {L("[AWB Calibration]%s: fail to read from file:/sys/android_camera_awb_cal/awb_cal_sub"), kExposure,
     kSecondSource, from_of<kNowhere, kSub>},
    {L("%s, AEC nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
     deeds(Deed::exposure), kContent, take_words<0, 8>},
    {L("%s, AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     deeds(Deed::exposure), kChecksum, bad_checksum},
    {L("%s, AEC will do nothing!\n"), deeds(Deed::exposure), kFuse, bad_checksum},
    {L("%s, AEC check sum=%x, OK\n"), deeds(Deed::exposure), kChecksum, good_checksum<1>},
    {L("%s, AEC %x, %x, %x, (%x %x %x %x)\n"), deeds(Deed::exposure), kFuse, take_words<1, 7>},
    {L("%s, AEC caAecBuff[0]:%d\n"), deeds(Deed::exposure), kValidWord, take_valid_word<1>},
    {L("%s, Load AEC-Calibraton data"), deeds(Deed::exposure), kDecision, decided<true>},
    {L("%s, Not load AEC-Calibraton data"), deeds(Deed::exposure), kDecision, decided<false>},
    {L("%s, (gain, exp_time, luma_value,) = (0x%x, 0x%x, 0x%x)"), deeds(Deed::exposure), kResult,
     decided<true>},
};

constexpr LineRule kCheckRules[] = {
    {L("%s: get_sensor(%d) get_fuseid(0x%x 0x%x 0x%x 0x%x)\n"), kChecks, kBegin, take_sensor},
    {L("Read /data/misc/camera/awb_cal not exist, read awb_cal\n"), kCheckAwb, kFirstSource,
     without_cache<kMain>},
    {L("Read /data/misc/camera/awb_cal_front_CAM not exist, read awb_cal_front\n"), kCheckAwb, kFirstSource,
     without_cache<kFront>},
    {L("Read /data/misc/camera/awb_cal_sub_CAM not exist, read awb_cal_sub\n"), kCheckAwb, kFirstSource,
     without_cache<kSub>},
    {L("Read /data/misc/camera/flash_cal not exist, read awb_cal\n"), kCheckFlash, kFirstSource,
     without_cache<kMain>},
    {L("Read /data/misc/camera/flash_cal_front not exist, read awb_cal_front\n"), kCheckFlash, kFirstSource,
     without_cache<kFront>},
    {L("Read /data/misc/camera/flash_cal_sub_CAM not exist, read awb_cal_sub\n"), kCheckFlash, kFirstSource,
     without_cache<kSub>},
    {L("Read /data/misc/camera/lsc_cal not exist, read awb_cal\n"), kCheckMesh, kFirstSource,
     without_cache<kMain>},
    {L("Read /data/misc/camera/lsc_cal_front_CAM not exist, read awb_cal_front\n"), kCheckMesh, kFirstSource,
     without_cache<kFront>},
    {L("Read /data/misc/camera/lsc_cal_sub_CAM not exist, read awb_cal_sub\n"), kCheckMesh, kFirstSource,
     without_cache<kSub>},
    {L("Read /data/misc/camera/gyro_cal_qor_CAM not exist, read awb_cal\n"), kCheckGyro, kFirstSource,
     taken_from<kExport>},
    {L("Read /data/misc/camera/gyro_cal_front_qor_CAM not exist, read awb_cal_front\n"), kCheckGyro,
     kFirstSource, without_cache<kFront>},
    {L("Read from /data/misc/camera"), kCheckGyro, kFirstSource, taken_from<kCache>},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal fail"), kFileChecks, kSecondSource,
     taken_from<kNowhere>, false, 'E'},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_front fail"), kFileChecks, kSecondSource,
     from_of<kNowhere, kFront>, false, 'E'},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_sub fail"), kFileChecks, kSecondSource,
     from_of<kNowhere, kSub>, false, 'E'},
    {L("Read from file OK: /data/misc/camera/awb_cal or /sys/android_camera_awb_cal/awb_cal"), kCheckAwb,
     kSecondSource, from_either<kMain>},
    {L("Read from file OK: /data/misc/camera/awb_cal_front_CAM or /sys/android_camera_awb_cal/awb_cal_front"),
     kCheckAwb, kSecondSource, from_either<kFront>},
    {L("Read from file OK: /data/misc/camera/awb_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"),
     kCheckAwb, kSecondSource, from_either<kSub>},
    {L("Read from file OK: /data/misc/camera/flash_cal or /sys/android_camera_awb_cal/awb_cal"), kCheckFlash,
     kSecondSource, from_either<kMain>},
    {L("Read from file OK: /data/misc/camera/flash_cal_front or /sys/android_camera_awb_cal/awb_cal_front"),
     kCheckFlash, kSecondSource, from_either<kFront>},
    {L("Read from file OK: /data/misc/camera/flash_cal_sub_CAM or /sys/android_camera_awb_cal/awb_cal_sub"),
     kCheckFlash, kSecondSource, from_either<kSub>},
    {L("Read from file OK: /data/misc/camera/gyro_cal_qor_CAM or /sys/android_camera_awb_cal/awb_cal"),
     kCheckGyro, kSecondSource, taken_from<kExport>},
    {L("Read from file OK: /data/misc/camera/gyro_cal_front_qor_CAM or /sys/android_camera_awb_cal/awb_cal_front"),
     kCheckGyro, kSecondSource, from_of<kExport, kFront>},
    {L("Read from /sys/android_camera_awb_cal/"), kCheckGyro, kSourceWord, taken_from<kExport>},
    {L("%s: file_source(%d), dual_flash(%d)"), kCheckFlash, kSourceWord,
     SET(act.from = match.number(1) == 0 ? kCache : kExport)},
    {L("%s: dual flash awb_verify(%ld)(0x%lx 0x%lx) (0x%lx 0x%lx) (0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n"),
     kCheckFlash, kFirstContent, nullptr},
    {L("%s: awb_verify(%ld)(0x%lx 0x%lx) awb_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n"), kEightFields, kContent,
     take_fields<4>},
    {L("%s: gyro_verify(%ld) gyro_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n"), kCheckGyro, kContent, take_fields<2>},
    {L("%s: lsc_verify(%ld) lsc_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n"), kCheckMesh, kContent, take_fields<2>},
    {L("%s: dual_verify(%ld) dual_fuseid(0x%lx 0x%lx 0x%lx 0x%lx)\n"), kCheckPair, kContent, take_fields<2>},
    {L("%s,[AEC Calibration Record] AEC nandflash data: 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x, 0x%x\n"),
     kCheckAec, kContent, take_words<0, 8>},

    // of the kCheckFlash check, the dual-kCheckFlash record comes first
    {L("[Calibration Record][dual] %s: check sum pass\n"), kCheckFlash, kFirstChecksum,
     said<true, &Act::is_crc_good>},
    {L("[Calibration Record][dual]  %s: check sum is not valid\n"), kCheckFlash, kFirstChecksum,
     said<false, &Act::is_crc_good>},
    {L("[Calibration Record][dual] %s: check fuseid success\n"), kCheckFlash, kFirstFuse,
     said<true, &Act::is_bound>},
    {L("[Calibration Record][dual] %s: check fuseid fail\n"), kCheckFlash, kFirstFuse,
     said<false, &Act::is_bound>},
    {L("[Calibration Record][dual] %s: calibration success\n"), kCheckFlash, kFirstCalibrated,
     said<true, &Act::is_calibrated>},
    {L("[Calibration Record][dual] %s: calibration fail\n"), kCheckFlash, kFirstCalibrated,
     said<false, &Act::is_calibrated>},
    {L("[Calibration Record][dual] %s: awb record = 0x%x\n"), kCheckFlash, kFirstWord, take_record_word},
    {L("[Calibration Record][dual flash] CALIBRATIONOK\n"), kCheckFlash, kFirstWord, decided<true>, true},

    {L("[Calibration Record] %s: check sum pass\n"), kChecks, kChecksum, said<true, &Act::is_crc_good>},
    {L("[Calibration Record] %s: check sum is not valid\n"), kChecks, kChecksum,
     said<false, &Act::is_crc_good>},
    {L("[Calibration Record] %s: check fuseid success\n"), kChecks, kFuse, said<true, &Act::is_bound>},
    {L("[Calibration Record] %s: check fuseid = 0x0000\n"), kChecks, kAnywhere, said<true, &Act::is_bound>},
    {L("[Calibration Record] %s: front camera fuseid is the same with main camera fuseid, check success\n"),
     kChecks, kFuse, said<true, &Act::is_bound>},
    {L("[Calibration Record] %s: check fuseid fail\n"), kChecks, kFuse, said<false, &Act::is_bound>},
    {L("[Calibration Record] %s: calibration success\n"), kChecks, kValidWord,
     said<true, &Act::is_calibrated>},
    {L("[Calibration Record] %s: calibration fail\n"), kChecks, kValidWord, said<false, &Act::is_calibrated>},
    {L("[Calibration Record] %s: awb record = 0x%x\n"), kEightFields, kDecision, take_record_word},
    {L("[Calibration Record] %s: lsc record = 0x%x\n"), kCheckMesh, kDecision, take_record_word},
    {L("[Calibration Record] %s: GYRO record = 0x%x\n"), kCheckGyro, kDecision, take_record_word},

    {L("[AEC Calibration Record] %s: check sum pass\n"), kCheckAec, kChecksum, said<true, &Act::is_crc_good>},
    {L("%s,[AEC Calibration Record]  AEC read from /sys/android_camera_awb_cal/awb_cal, not valid or check sum not OK!\n"),
     kCheckAec, kChecksum, said<false, &Act::is_crc_good>},
    {L("[AEC Calibration Record] %s: check fuseid success\n"), kCheckAec, kFuse, said<true, &Act::is_bound>},
    {L("[AEC Calibration Record] %s: check fuseid = 0x0000\n"), kCheckAec, kFuse, said<true, &Act::is_bound>},
    {L("[AEC Calibration Record] %s: check fuseid fail\n"), kCheckAec, kFuse, said<false, &Act::is_bound>},
    {L("[AEC Calibration Record] %s: calibration success\n"), kCheckAec, kValidWord,
     said<true, &Act::is_calibrated>},
    {L("[AEC Calibration Record] %s: calibration fail\n"), kCheckAec, kValidWord,
     said<false, &Act::is_calibrated>},
    {L("[AEC Calibration Record] %s: awb record = 0x%x\n"), kCheckAec, kDecision, take_record_word},

    // the kernel's page, else a marker of which the log does not tell what it says
    {L("Read awb_cal_3D\n"), kCheckPair, kFirstSource, nullptr},
    {L("Read from file OK: /sys/android_camera_awb_cal/awb_cal_3D"), kCheckPair, kSecondSource,
     taken_from<kExport>},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_3D fail"), kCheckPair, kSecondSource,
     SET(act.from = kNowhere; act.is_taken = false)},
    {L("[Calibration Record] %s: dual calibration record = 0x%x\n"), kCheckPair, kDecision, nullptr},
    {L("[Calibration Record] %s: CALIBRATIONOK\n"), kCheckPair, kResult, decided<true>},
    {L("[Calibration Record] %s: Check InHouse calibration\n"), kCheckPair, kResult, nullptr},
    {L("Read awb_cal_InHouse3D\n"), kCheckPair, kLastResult, nullptr},
    {L("Read from file:/sys/android_camera_awb_cal/awb_cal_InHouse3D fail"), kCheckPair, kLastResult + 1,
     decided<false>},
    {L("Read from file OK: /sys/android_camera_awb_cal/awb_cal_InHouse3D"), kCheckPair, kLastResult + 1,
     nullptr},
};

constexpr LineRule kWriterRules[] = {
    {L("%s: camid(%d) offset(%d) (%d,%d)"), kWriteAec | kWriteFlash, kBegin, take_camid<1>},
    {L("%s: camid(%d) offset(%d) x1(%d,%d)"), kWriteDualFlash, kBegin, take_camid<1>},
    {L("%s: camid(%d) offset(%d) x2(%d,%d)"), kWriteDualFlash, kOpening, take_camid<1>},
    {L("%s: camid(%d) offset(%d) x3(%d,%d)"), kWriteDualFlash, kFirstSource, take_camid<1>},
    {L("%s, [AWB Calibration]-aec_caBuff-%d, 0x%x"), kWriteAec, kContent, take_numbered_word, true},
    {L("%s, [Flash Calibration]-FlashcaBuff-%d, 0x%x"), kFlashWriters, kContent, take_numbered_word, true},
    {L("%s, [AWB Calibration] AEC write flash pass"), kWriteAec, kDecision, decided<true>},
    {L("%s, [AWB Calibration] Can't write AEC to flash. Maybe Not MFG ROM or Flash is bad"), kWriteAec,
     kDecision, decided<false>},
    {L("[AWB Calibration] write aec_cabuff to /data/misc/camera/aec_cal"), kWriteAec, kResult, cached<true>},
    {L("%s: create /data/misc/camera/aec_cal fail\n"), kWriteAec, kResult,
     SET(act.camera = kMain; act.is_cached = false)},
    {L("%s: create /data/misc/camera/aec_cal_front_CAM fail\n"), kWriteAec, kResult,
     SET(act.camera = kFront; act.is_cached = false)},
    {L("%s: create /data/misc/camera/aec_cal_sub_CAM fail\n"), kWriteAec, kResult,
     SET(act.camera = kSub; act.is_cached = false)},
    {L("%s, [Flash Calibration] write flash pass"), kFlashWriters, kDecision, decided<true>},
    {L("%s, [Flash Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad"), kFlashWriters,
     kDecision, decided<false>},
    {L("[Flash Calibration] write cabuff to /data/misc/camera/awb_cal"), kFlashWriters, kResult,
     cached<true>},
    {L("QOR_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_cal fail\n"), kWriteFlash,
     kResult, cached<false>},
    {L("QOR_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_cal_front fail\n"), kWriteFlash,
     kResult, cached<false>},
    {L("QOR_Dual_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_dual_cal fail\n"),
     kWriteDualFlash, kResult, cached<false>},
    {L("QOR_Dual_FLASH_Calibration_write_to_flash: create /data/misc/camera/flash_dual_cal_front_CAM fail\n"),
     kWriteDualFlash, kResult, cached<false>},
    {L("%s, [gyro Calibration] E"), kWriteGyro, kBegin, nullptr},
    {L("%s: camid(%d) offset(%d)"), kWriteGyro, kOpening, take_camid<1>},
    {L("%s, [gyro Calibration] camid(%d) offset(%d)"), kWriteGyro, kFirstSource, take_camid<1>},
    {L("%s, [gyro Calibration] gyro write flash pass"), kWriteGyro, kDecision, decided<true>},
    {L("%s, [gyro Calibration] Can't write to flash. Maybe Not MFG ROM or Flash is bad"), kWriteGyro,
     kDecision, decided<false>},
    {L("[ISP Calibration] write isp_cabuff to /data/misc/camera/awb_cal_ISP_sub_qor_CAM"), kWriteGyro,
     kResult, cached<true>},
    {L("%s: create /data/misc/camera/gyro_cal_front_qor_CAM fail\n"), kWriteGyro, kResult, cached<false>},
    {L("%s: create /data/misc/camera/gyro_cal_qor_CAM fail\n"), kWriteGyro, kResult, cached<false>},
    {L("%s: offset(%d)"), kPairWriters, kBegin, nullptr},
    {L("%s: [Dual Calibration] calibration_size=%d, offset=%x\n"), kReadPair, kBegin, nullptr},
    {L("%s, [DUAL Calibration] write flash pass"), kPairWriters, kDecision, decided<true>},
    {L("%s, [Dual Calibration] Can't write flash. Maybe Not MFG ROM or Flash is bad"), kPairSteps, kResult,
     not_written},
    {L("%s, [Dual Calibration] Can't allocate calibration buffer"), kPairSteps, kResult, decided<false>},
    {L("%s, [DUAL Calibration] dual_calibration_success.txt"), deeds(Deed::write_dual_camera), kLastResult,
     cached<true>},
    {L("%s, [Dual Calibration] dump the calibration data..."), kReadPair, kDecision, decided<true>},
};

constexpr LineRule kRunRules[] = {
    {L("calibration_trigger %d"), kRun, kAnywhere, nullptr},
    {L("QOR_AWB_Calibration_write_to_flash (%d,%d)\n"), kRun, kAnywhere, nullptr},
    {L("%s: threshold = %d , light source version = %d\n"), kRun, kAnywhere,
     SET(act.tolerance_percent = match.number(1))},
    {L("%s: %3d %3d\n"), kRun, kAnywhere, SET(take_counter<1>(act, match); take_camid<2>(act, match))},
    {L("[AWB Calibration] :QOR_AWB_Calibration_counter:%d\n"), kRun, kAnywhere, take_counter<0>},
    {L("%s:counter=%3d rg=%f bg=%f\n"), kRun, kAnywhere, take_frame},
    {L("%s error:not valid : delta(%f)>threshold(%f)\n"), kRun, kAnywhere, take_margin},
    {L("%s: Bypass aec calibration\n"), kRun, kAnywhere, SET(act.is_exposure_left_out = true)},
    {L("%s: AEC is not settled !!\n"), kRun, kAnywhere, wait_for_exposure},
    {L("%s: Can't write AEC calibration to flash. Maybe AEC not settled or Flash is bad\n"), kRun, kAnywhere,
     SET(act.is_exposure_stored = false)},
    {L("%s: WriteFlash_for_bayer_Cam()\n"), kRun, kAnywhere, SET(act.is_exposure_stored = true)},
    {L("WriteFlash_for_bayer_Cam(%d), cam_id = %d\n"), kRun, kAnywhere, take_camid<1>},
    {L("%s: eMMC boot: pagesize[%s], offset = 0x%x\n"), kRun, kAnywhere, take_slot},
    {L("WriteFlash(): partition_open fail\n"), kRun, kInside, decided<false>, false, 'I'},
    {L("partition_write() fail\n"), kRun, kInside, decided<false>, false, 'I'},
    {L("%s, caBuff: 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d, 0x%d"), kRun, kAnywhere, take_decimal_record},
    {L("%s: write flash for main-cam OK\n"), kRun, kAnywhere, stored_of<kMain, true>},
    {L("%s: write flash for front-cam OK\n"), kRun, kAnywhere, stored_of<kFront, true>},
    {L("%s: write flash for sub-cam OK\n"), kRun, kAnywhere, stored_of<kSub, true>},
    {L("%s: write flash for main-cam fail\n"), kRun, kAnywhere, stored_of<kMain, false>},
    {L("%s: write flash for front-cam fail\n"), kRun, kAnywhere, stored_of<kFront, false>},
    {L("%s: write flash for sub-cam fail\n"), kRun, kAnywhere, stored_of<kSub, false>},
    {L("[AWB Calibration] write all %x , ok=%d"), kRun, kAnywhere,
     SET(act.valid_word = match.hex(0); act.is_taken = true)},
    {L("Fuse_ID[1]=0x%x\n"), kRun, kAnywhere, take_word<3>},
    {L("Fuse_ID[2]=0x%x\n"), kRun, kAnywhere, take_word<4>},
    {L("Fuse_ID[3]=0x%x\n"), kRun, kAnywhere, take_word<5>},
    {L("Fuse_ID[4]=0x%x\n"), kRun, kAnywhere, take_word<6>},
    {L("Threshold=%f \n"), kRun, kAnywhere, take_real<&Act::limit>},
    {L("R/G_ratio=%f\n"), kRun, kAnywhere, take_ratio<0>},
    {L("B/G_ratio=%f\n"), kRun, kAnywhere, take_ratio<1>},
    {L("Delta=%f\n"), kRun, kAnywhere, take_real<&Act::delta>},
    {L("[AWB Calibration] open file(data/awb_cal) error"), kRun, kAnywhere,
     SET(act.is_cached = false; act.has_finished = true)},
    {L("[AWB Calibration] write cabuff to /data/misc/camera/awb_cal"), kRun, kAnywhere,
     SET(act.is_cached = true; act.has_finished = true)},
    {L("[AWB Calibration] ok, calibration finish!!"), kRun, kAnywhere,
     SET(act.is_cached = true; act.has_finished = true)},
    {L("[AWB Calibration] caBuff[0]:0x%x\n"), kRun, kAnywhere, take_word<0>},
    {L("[AWB Calibration] caBuff[1]:0x%x\n"), kRun, kAnywhere, take_word<1>},
    {L("[AWB Calibration] caBuff[2]:0x%x\n"), kRun, kAnywhere, take_word<2>},
    {L("[AWB Calibration] caBuff[3]:0x%x\n"), kRun, kAnywhere, take_word<3>},
    {L("[AWB Calibration] caBuff[4]:0x%x\n"), kRun, kAnywhere, take_word<4>},
    {L("[AWB Calibration] caBuff[5]:0x%x\n"), kRun, kAnywhere, take_word<5>},
    {L("[AWB Calibration] caBuff[6]:0x%x\n"), kRun, kAnywhere, take_word<6>},
    {L("[AWB Calibration] caBuff[7]:0x%x\n"), kRun, kAnywhere, take_word<7>},
};

#undef SET
#undef L

/// By the line's place in the library's table.
std::vector<std::vector<LineRule>> rules_by_line() {
  std::vector<std::vector<LineRule>> result(kLibraryLineCount);
  for (const std::span<const LineRule> rules :
       {std::span<const LineRule>(kCorrectionRules), std::span<const LineRule>(kCheckRules),
        std::span<const LineRule>(kWriterRules), std::span<const LineRule>(kRunRules)}) {
    for (const LineRule& rule : rules) {
      const auto* const line =
          std::find_if(std::begin(kLibraryLines), std::end(kLibraryLines),
                       [&rule](const LibraryLine& each) { return each.format == rule.format; });
      result[static_cast<size_t>(line - kLibraryLines)].push_back(rule);
    }
  }
  return result;
}

}  // namespace

const LineRule* rule_of(const LineMatch& match, char priority) {
  static const std::vector<std::vector<LineRule>> kRules = rules_by_line();
  for (const LineRule& rule : kRules[match.index()]) {
    if (rule.priority == 0 || rule.priority == priority) return &rule;
  }
  return nullptr;
}

}  // namespace awbcal
