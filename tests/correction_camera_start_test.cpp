// What does one camera start, with every correction, ask of the system?
// Guards against calls that make every camera slower to open, and against descriptors and damage on a fault.

#include <algorithm>

#include "tests/correction_support.h"

namespace {

using phone::Call;
using support::Bytes;
using support::Floats;

constexpr const char* kFiles[][5] = {{"awb_cal", "flash_cal", "flash_dual_cal", "lsc_cal", "awb_A_light_cal"},
                                     {"awb_cal_front_CAM", "flash_cal_front", "flash_dual_cal_front_CAM",
                                      "lsc_cal_front_CAM", "awb_A_light_cal_front_CAM"},
                                     {"awb_cal_sub_CAM", "flash_cal_sub_CAM", "flash_dual_cal_sub_CAM",
                                      "lsc_cal_sub_CAM", "awb_A_light_cal_sub_CAM"}};
constexpr const char* kNodes[] = {"awb_cal", "awb_cal_front", "awb_cal_sub"};
const std::string kCaches = "/data/misc/camera/";
const std::string kExports = "/sys/android_camera_awb_cal/";

class CameraStart : public support::PhoneTest {
 protected:
  CameraStart() : PhoneTest({.partition_size = 256 * 1024}) {
    support::Words awb = support::with_crc({3099, 1024, 1024, 0, 0, 0, 0});
    support::Words dual = support::with_crc({3099, 1024, 512, 256, 1024, 512, 256, 0, 0, 0, 0});
    Bytes mesh(4000);
    mesh[64] = 3099 & 0xFF, mesh[65] = 3099 >> 8;
    for (uint32_t camera = 0; camera < 3; ++camera) {
      const auto& files = kFiles[camera];
      for (const char* file : {files[0], files[1], files[4]}) put(kCaches + file, support::le32(awb));
      put(kCaches + files[2], support::le32(dual));
      put(kCaches + files[3], mesh);
      put(kExports + kNodes[camera], mesh);
    }
  }
  /// All corrections of a camera; the tunings and outputs after them.
  static Floats start(uint32_t camera) {
    set_sensor_selection(camera);
    Floats memory((12464 + 48592) / 4 + 10, 1);
    float* tuning = memory.data() + 10;
    std::fill_n(memory.begin(), 10, 77.0F);
    Correct_Reference_Points_qorModule(tuning, &memory[0], &memory[2], &memory[4]);
    QOR_AWB_Calibration_Reference_Points_Correction(tuning);
    Sensor_set_mesh(tuning + 12464 / 4, 0, 0.25F, 0.5F);
    Dual_Cam_Correction(&memory[6], &memory[7], &memory[8], &memory[9]);
    return memory;
  }
  void remove_caches() {
    for (const auto& entry : std::filesystem::directory_iterator(host("/data/misc/camera")))
      std::filesystem::remove(entry);
  }
};

std::vector<Call> whole(const std::string& path) {
  return {{"open", path}, {"read", path}, {"close", path}};
}

/// The paths that a camera start reads, in order; the sub camera has no dual flash.
std::vector<std::string> paths_of(uint32_t camera) {
  const auto& files = kFiles[camera];
  std::vector<std::string> paths;
  for (const char* file : {files[0], files[2], files[0], files[1], files[3], files[0], files[4]})
    if (camera != 2 || file != files[2]) paths.push_back(kCaches + file);
  return paths;
}

TEST_F(CameraStart, TakesThreeCallsForAFile) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    std::vector<Call> cached, exported;
    for (const std::string& path : paths_of(camera)) {
      const auto from_cache = whole(path), from_export = whole(kExports + kNodes[camera]);
      cached.insert(cached.end(), from_cache.begin(), from_cache.end());
      exported.push_back({"open", path});
      exported.insert(exported.end(), from_export.begin(), from_export.end());
    }
    phone().take_calls();
    start(camera);
    EXPECT_EQ(phone().take_calls(), cached) << "camera " << camera;
    for (const std::string& path : paths_of(camera)) std::filesystem::remove(host(path));
    phone().take_calls();
    start(camera);
    EXPECT_EQ(phone().take_calls(), exported) << "camera " << camera;
  }
}

TEST_F(CameraStart, ShortReadsChangeNothing) {
  const support::Words expected = support::bits_of(start(1));
  for (const long size : {1L, 7L, 31L, 3999L}) {
    phone().add_fault({.call = "read", .from_then_on = true, .transfer = size});
    EXPECT_EQ(support::bits_of(start(1)), expected) << size;
    phone().clear_faults();
  }
}

/// A value that is written whole or not at all is `untouched` throughout or `corrected` throughout.
void expect_whole(const Floats& memory, size_t from, size_t count, float untouched, float corrected) {
  const auto begin = memory.begin() + static_cast<std::ptrdiff_t>(from);
  const Floats values(begin, begin + static_cast<std::ptrdiff_t>(count));
  EXPECT_TRUE(values == Floats(count, untouched) || values == Floats(count, corrected)) << from;
}

TEST_F(CameraStart, AnyFailingCallLeavesEveryCorrectionWholeOrUndone) {
  constexpr size_t kSensor = 10 + 12464 / 4;
  for (const bool from_cache : {true, false}) {
    if (!from_cache) remove_caches();
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
