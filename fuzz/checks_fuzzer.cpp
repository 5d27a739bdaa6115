// Any phone, and the result checks on it: each says good exactly when a second opinion on the same bytes does.

#include <algorithm>
#include <cstring>

#include "awb_calibration/factory.h"
#include "awb_calibration/verify.h"
#include "fuzz/phone_program.h"

namespace {

using namespace fuzz;

#define CAMERA "/data/misc/camera/"
#define NODE "/sys/android_camera_awb_cal/"

constexpr RecordForm kEightFields{.width = 8, .fuse = 24, .crc = 56, .covered = 28};
constexpr RecordForm kTwelveFields{.width = 8, .fuse = 56, .crc = 88, .covered = 44};
constexpr RecordForm kAec{.width = 4, .fuse = 16, .crc = 32, .covered = 32};
constexpr RecordForm kGyro{.width = 8, .fuse = 8, .crc = 40, .covered = 40, .zero_first_matches = false};
constexpr RecordForm kLensShading{.width = 8, .fuse = 8, .crc = 3576, .covered = 3556};
constexpr RecordForm kDualCamera{.width = 4, .fuse = 1647, .crc = 1663, .covered = 1663};

bool is_finished(const SecondOpinion& opinion) {
  return opinion.crc_good && opinion.valid_word == 3099;
}

bool lens_shading_is_good() {
  const Source& source =
      source_of(of_camera(CAMERA "lsc_cal", CAMERA "lsc_cal_front_CAM", CAMERA "lsc_cal_sub_CAM"),
                kernel_export(), 64, 3584, 64);
  const SecondOpinion opinion = judged(source.bytes, kLensShading, fitted_module());
  return source.file != nullptr && is_finished(opinion) && opinion.is_bound();
}

bool gyro_is_good() {
  const char* main = CAMERA "gyro_cal_qor_CAM";
  const char* of = of_camera(NODE "awb_cal", NODE "awb_cal_front", NODE "awb_cal");
  const Source& source = source_of(of_camera(main, CAMERA "gyro_cal_front_qor_CAM", main), of, 3952, 48);
  const SecondOpinion opinion = judged(source.bytes, kGyro, fitted_module());
  return source.file != nullptr && is_finished(opinion) && opinion.is_bound();
}

bool awb_is_good() {
  const Source& source =
      source_of(of_camera(CAMERA "awb_cal", CAMERA "awb_cal_front_CAM", CAMERA "awb_cal_sub_CAM"),
                kernel_export(), 0, 64);
  const SecondOpinion opinion = judged(source.bytes, kEightFields, fitted_module());
  Fuse main = fuse_of(0);
  for (uint64_t& word : main) word = static_cast<uint64_t>(int64_t{static_cast<int32_t>(word)});
  const bool is_bound = opinion.is_bound() || (program_camera() == 1 && opinion.fuse == main);
  return source.file != nullptr && is_finished(opinion) && is_bound;
}

bool aec_is_good() {
  const Source& source =
      source_of(of_camera(CAMERA "aec_cal", CAMERA "aec_cal_front_CAM", CAMERA "aec_cal_sub_CAM"),
                kernel_export(), 3712, 36);
  if (source.file == nullptr || (source.is_cache && source.count == 0)) return false;
  const SecondOpinion opinion = judged(source.bytes, kAec, fitted_module());
  return is_finished(opinion) && opinion.is_bound();
}

/// The first source that opens has both records, or the one.
bool flash_is_good() {
  const char* dual =
      of_camera(CAMERA "flash_dual_cal", CAMERA "flash_dual_cal_front_CAM", CAMERA "flash_dual_cal_sub_CAM");
  const char* flash = of_camera(CAMERA "flash_cal", CAMERA "flash_cal_front", CAMERA "flash_cal_sub_CAM");
  uint8_t records[2][96] = {};
  if (file_at(dual).exists) {
    memcpy(records[0], source_of(dual, nullptr, 0, 96).bytes, 96);
  } else if (file_at(flash).exists) {
    memcpy(records[1], source_of(flash, nullptr, 0, 64).bytes, 64);
  } else if (file_at(kernel_export()).exists) {
    memcpy(records[0], source_of(dual, kernel_export(), 3848, 96).bytes, 96);
    memcpy(records[1], source_of(flash, kernel_export(), 3648, 64).bytes, 64);
  } else {
    return false;
  }
  const SecondOpinion first = judged(records[0], kTwelveFields, fitted_module());
  if (is_finished(first) && first.is_bound()) return true;
  const SecondOpinion second = judged(records[1], kEightFields, first.module);
  return is_finished(second) && second.is_bound();
}

bool dual_camera_is_good() {
  const File& record = file_at(NODE "awb_cal_3D");
  if (program_camera() != 0 || !record.exists) return false;
  static uint8_t bytes[1667];
  memset(bytes, 0, sizeof bytes);
  memcpy(bytes, record.bytes + std::min<size_t>(512, record.size),
         std::min(sizeof bytes, record.size - std::min<size_t>(512, record.size)));
  const SecondOpinion opinion = judged(bytes, kDualCamera, fitted_module());
  if (is_finished(opinion) && field(bytes + 1663, 4) != 0) return true;
  const File& marker = file_at(NODE "awb_cal_InHouse3D");
  uint32_t word = 0;
  if (marker.exists) memcpy(&word, marker.bytes, std::min<size_t>(4, marker.size));
  return word != 0;
}

struct Check {
  int32_t (*check)();
  bool (*is_good)();
};
constexpr Check kChecks[] = {{Sensor_Check_AWB_Calibration_Result, awb_is_good},
                             {Sensor_Check_LSC_Calibration_Result, lens_shading_is_good},
                             {Sensor_Check_GYRO_Calibration_Result, gyro_is_good},
                             {Sensor_Check_AEC_Calibration_Result, aec_is_good},
                             {Sensor_Check_FLASH_Calibration_Result, flash_is_good},
                             {Sensor_Check_DUAL_Calibration_Result, dual_camera_is_good}};

/// The exposure control gets the settled values of a good record, of any version, and zeros otherwise.
void get_settled_values(Transcript& said) {
  const unsigned struck = phone.struck;
  uint32_t values[3] = {7, 7, 7};
  QOR_Calibration_AEC_get_calibration_data(&values[0], &values[1], &values[2]);
  said.add(values, sizeof values);
  if (!is_to_be_compared(struck) || (values[0] | values[1] | values[2]) == 0) return;
  const Source& source =
      source_of(of_camera(CAMERA "aec_cal", CAMERA "aec_cal_front_CAM", CAMERA "aec_cal_sub_CAM"),
                kernel_export(), 3712, 36);
  const SecondOpinion opinion = judged(source.bytes, kAec, fitted_module());
  require(opinion.crc_good && opinion.is_bound() && opinion.valid_word % 1000 == 99,
          "values of a good record");
  require(memcmp(values, source.bytes + 4, sizeof values) == 0, "the values are the record's");
}

void perform(const Call& call, Transcript& said) {
  const size_t number = call.function % (std::size(kChecks) + 1);
  if (number == std::size(kChecks)) return get_settled_values(said);
  const Check& check = kChecks[number];
  const unsigned struck = phone.struck;
  const int32_t result = check.check();
  said.add(result);
  require(result == 0 || result == -1, "a check says 0 or -1");
  if (is_to_be_compared(struck)) require((result == 0) == check.is_good(), "a second opinion says the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_program({data, size}, perform);
  return 0;
}
