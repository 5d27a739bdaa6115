// What does each entry that takes a pointer do with a null one?
// Guards against a crash of the camera's process, and against half of a call's effect.

#include "awb_calibration/records.h"
#include "tests/support/correction_support.h"

namespace {

using namespace support;

/// A call with one null pointer; every other one points at `m`.
struct Row {
  const char* name;
  int32_t (*call)(float* m);
  int32_t result = 0;
};

// clang-format off
#define CALL(result, ...) {#__VA_ARGS__, []([[maybe_unused]] float* m) -> int32_t { return __VA_ARGS__; }, result}
// clang-format on

uint32_t* words(float* m) {
  return reinterpret_cast<uint32_t*>(m);
}

const Row kRows[] = {
    CALL(0, awb_get_fuseid(nullptr), 0),
    CALL(0, ReadFlash(nullptr, words(m))),
    CALL(0, ReadFlash(m, nullptr)),
    CALL(-1, ReadFlashForFlashCalibration(nullptr, 32)),
    CALL(-1, ReadFlashForDualFlashCali(nullptr, 48)),
    CALL(-1, ReadFlashForDualCam(nullptr, 32, 0)),
    CALL(-1, ReadFlashForDualCam(nullptr, 32, 1)),
    CALL(-1, aec_read_calibration(nullptr, 36)),
    CALL(0, awb_calibration_set_GS(nullptr, m), 0),
    CALL(0, awb_calibration_set_GS(m, nullptr), 0),
    CALL(-1, QOR_Show_LSC(nullptr)),
    CALL(0, QOR_AWB_Calibration_Reference_Points_Correction(nullptr), 0),
    CALL(0, Correct_Reference_Points_qorModule(nullptr, m, m, m), 0),
    CALL(0, Correct_Reference_Points_qorModule(m, nullptr, m, m), 0),
    CALL(0, Correct_Reference_Points_qorModule(m, m, nullptr, m), 0),
    CALL(0, Correct_Reference_Points_qorModule(m, m, m, nullptr), 0),
    CALL(0, Dual_Cam_Correction(nullptr, m, m, m), 0),
    CALL(0, Dual_Cam_Correction(m, nullptr, m, m), 0),
    CALL(0, Dual_Cam_Correction(m, m, nullptr, m), 0),
    CALL(0, Dual_Cam_Correction(m, m, m, nullptr), 0),
    CALL(0, Sensor_set_mesh(nullptr, 0, 0.5F, 0.5F)),
};

class NullArguments : public CorrectionTest {};

TEST_F(NullArguments, AreRefusedWithoutALineOrAnEffect) {
  for (const char* name : {"awb_cal", "awb_A_light_cal", "flash_cal", "flash_dual_cal", "aec_cal"})
    put_words(std::string("/data/misc/camera/") + name, record(3099, kAny, {1024, 1024}));
  const Floats untouched(12464 / 4, 77);
  for (const Row& row : kRows) {
    Floats memory = untouched;
    EXPECT_EQ(log_of([&] { EXPECT_EQ(row.call(memory.data()), row.result) << row.name; }), Log{}) << row.name;
    EXPECT_EQ(memory, untouched) << row.name;
  }
}

TEST_F(NullArguments, AndLengthsOfTheRecordAreaFailLikeTheirTransfers) {
  const Row rows[] = {CALL(-1, ReadEmmcFlash(nullptr, 32)),
                      CALL(-1, ReadEmmcOffset(nullptr, 32, 0)),
                      CALL(-1, WriteFlash(nullptr, 32)),
                      CALL(-1, WriteFlash_for_front_Cam(nullptr, 32)),
                      CALL(-1, WriteFlash_for_bayer_Cam(nullptr, 32, 0)),
                      CALL(-1, WriteFlashOffset(nullptr, 32, 0)),
                      CALL(-1, ReadEmmcOffset(m, 0, 0)),
                      CALL(-1, ReadEmmcOffset(m, 32, 0x80000000)),
                      CALL(-1, WriteFlash_for_front_Cam(m, 0)),
                      CALL(-1, WriteFlashOffset(m, 0, 0))};
  float memory[8] = {};
  const Bytes before = phone().partition();
  for (const Row& row : rows) {
    for (const auto& line : log_of([&] { EXPECT_EQ(row.call(memory), row.result) << row.name; }))
      EXPECT_FALSE(line.text.starts_with("write partition data")) << row.name;
  }
  EXPECT_EQ(phone().partition(), before);
}

}  // namespace
