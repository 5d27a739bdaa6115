// What does one camera start, with every correction, ask of the system?
// Guards against calls that make every camera slower to open, and against descriptors and damage on a fault.

#include "tests/support/correction_support.h"

namespace {

using namespace support;
using phone::Call;

const std::string kCaches = "/data/misc/camera/";
constexpr size_t kSensor = 10 + 12464 / 4;  // the sensor's tuning, behind ten outputs and the AWB tuning
// What a start reads, in its order: dual flash (not on the sub camera) with the newer entry, flash with the
// older.
const std::vector<std::string> kFiles[] = {
    {"awb_cal", "flash_dual_cal", "awb_cal", "flash_cal", "lsc_cal", "awb_cal", "awb_A_light_cal"},
    {"awb_cal_front_CAM", "flash_dual_cal_front_CAM", "awb_cal_front_CAM", "flash_cal_front",
     "lsc_cal_front_CAM", "awb_cal_front_CAM", "awb_A_light_cal_front_CAM"},
    {"awb_cal_sub_CAM", "awb_cal_sub_CAM", "flash_cal_sub_CAM", "lsc_cal_sub_CAM", "awb_cal_sub_CAM",
     "awb_A_light_cal_sub_CAM"}};

class CameraStart : public CorrectionTest {
 protected:
  CameraStart() {
    Bytes mesh(4000);
    mesh[64] = 3099 & 0xFF, mesh[65] = 3099 >> 8;
    for (uint32_t camera = 0; camera < 3; ++camera) {
      put(kExports[camera], mesh);
      for (const std::string& file : kFiles[camera]) {
        const bool is_dual = file.starts_with("flash_dual");
        put_words(kCaches + file,
                  record(3099, kAny, is_dual ? Words{1024, 512, 256, 1024, 512, 256} : Words{1024, 1024}));
        if (file.starts_with("lsc_cal")) put(kCaches + file, mesh);
      }
    }
  }
  /// All corrections of a camera; the outputs and tunings after them.
  static Floats start(uint32_t camera) {
    set_sensor_selection(camera);
    Floats memory(kSensor + 48592 / 4, 1);
    std::fill_n(memory.begin(), 10, 77.0F);
    float* out = memory.data();
    Correct_Reference_Points_qorModule(out + 10, out, out + 2, out + 4);
    QOR_AWB_Calibration_Reference_Points_Correction(out + 10);
    Sensor_set_mesh(out + kSensor, 0, 0.25F, 0.5F);
    Dual_Cam_Correction(out + 6, out + 7, out + 8, out + 9);
    return memory;
  }
  std::vector<Call> calls_of_start(uint32_t camera) {
    phone().take_calls();
    start(camera);
    return phone().take_calls();
  }
  void remove_caches(uint32_t camera) {
    for (const std::string& file : kFiles[camera]) put_words(kCaches + file, {});
  }
};

TEST_F(CameraStart, TakesThreeCallsForAFile) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    std::vector<Call> cached, exported;
    for (const std::string& file : kFiles[camera]) {
      for (const char* call : {"open", "read", "close"}) cached.push_back({call, kCaches + file});
      exported.push_back({"open", kCaches + file});
      for (const char* call : {"open", "read", "close"}) exported.push_back({call, kExports[camera]});
    }
    EXPECT_EQ(calls_of_start(camera), cached) << "camera " << camera;
    remove_caches(camera);
    EXPECT_EQ(calls_of_start(camera), exported) << "camera " << camera;
  }
}

TEST_F(CameraStart, ShortReadsChangeNothing) {
  const Words expected = bits_of(start(1));
  for (const long size : {1L, 7L, 31L, 3999L}) {
    phone().add_fault({.call = "read", .from_then_on = true, .transfer = size});
    EXPECT_EQ(bits_of(start(1)), expected) << size;
    phone().clear_faults();
  }
}

/// What is written whole or not at all is `untouched` throughout or `corrected` throughout.
void expect_whole(const Floats& memory, size_t from, size_t count, float untouched, float corrected) {
  const auto begin = memory.begin() + static_cast<std::ptrdiff_t>(from);
  const Floats values(begin, begin + static_cast<std::ptrdiff_t>(count));
  EXPECT_TRUE(values == Floats(count, untouched) || values == Floats(count, corrected)) << from;
}

TEST_F(CameraStart, AnyFailingCallLeavesEveryCorrectionWholeOrUndone) {
  for (const bool from_cache : {true, false}) {
    if (!from_cache) remove_caches(0);
    for (unsigned nth = 1, struck = 1; struck != 0; ++nth) {
      SCOPED_TRACE(nth);
      phone().add_fault({.call = "*", .nth = nth});
      const Floats memory = start(0);
      struck = phone().struck_faults();
      phone().clear_faults();
      expect_whole(memory, 0, 2, 77, 1);
      expect_whole(memory, 2, 4, 77, 77);
      expect_whole(memory, 6, 4, 1, 1);
      expect_whole(memory, kSensor + 2572 / 4 + 1, 884, 1, 0.75F);
      expect_whole(memory, kSensor + 6112 / 4 + 1, 884, 1, 0);
      expect_whole(memory, kSensor + 16732 / 4 + 1, 884, 1, 0.5F);
      EXPECT_EQ(phone().open_descriptors(), 0U);
    }
  }
}

}  // namespace
