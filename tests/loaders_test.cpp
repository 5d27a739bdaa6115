// Does each loader deliver the bytes of its record from the right file or place, and say where they came
// from? Guards against the record of another camera, kind or offset, and against bytes that no source held.

#include "awb_calibration/records.h"
#include "tests/support.h"

namespace {

using support::Bytes;
using support::E;
using support::I;

struct Loader {
  const char* name;
  int32_t (*load)(void* buffer, uint32_t length);
  size_t export_offset;
  const char* cache[3];  // below /data/misc/camera
  const char* opening[3];
  const char* cached[3];  // the file that the line names; null: no number behind it
  const char* fallback[3];
  const char* exported;
  const char* failure;
};

int32_t load_a_light(void* buffer, uint32_t length) {
  return ReadFlashForDualCam(buffer, length, 7);
}
int32_t load_d50(void* buffer, uint32_t length) {
  return ReadFlashForDualCam(buffer, length, 0);
}

#define AWB_OPENING                                                            \
  {                                                                            \
    "ReadFlash() for AWB of MAIN CAM\n", "ReadFlash() for AWB of Front CAM\n", \
        "ReadFlash() for AWB of Sub CAM\n"                                     \
  }
#define FLASH_FALLBACK                                             \
  {                                                                \
    "ReadFlashForFlashCalibration() for Flash of MAIN CAM\n",      \
        "ReadFlashForFlashCalibration() for Flash of front CAM\n", \
        "ReadFlashForFlashCalibration() for Flash of sub CAM\n"    \
  }
#define DUAL_FALLBACK                                                                                    \
  {                                                                                                      \
    "ReadAWBCalibration() for DualCam of MAIN CAM\n", "ReadAWBCalibration() for DualCam of front CAM\n", \
        "ReadAWBCalibration() for DualCam of sub CAM\n"                                                  \
  }

constexpr const char* kNodes[] = {"/sys/android_camera_awb_cal/awb_cal",
                                  "/sys/android_camera_awb_cal/awb_cal_front",
                                  "/sys/android_camera_awb_cal/awb_cal_sub"};

const Loader kLoaders[] = {
    {"flash",
     ReadFlashForFlashCalibration,
     3648,
     {"flash_cal", "flash_cal_front", "flash_cal_sub_CAM"},
     AWB_OPENING,
     {"flash_cal", "flash_cal_front", "flash_cal_sub_CAM"},
     FLASH_FALLBACK,
     "[Flash Calibration] read from file OK: ",
     "[Flash Calibration] fail to read from file:"},
    {"dual flash",
     ReadFlashForDualFlashCali,
     3848,
     {"flash_dual_cal", "flash_dual_cal_front_CAM", "flash_dual_cal_sub_CAM"},
     {"ReadFlash() for Flash of MAIN CAM\n", "ReadFlash() for Flash of Front CAM\n",
      "ReadFlash() for Flash of Sub CAM\n"},
     {"flash_dual_cal", "flash_dual_cal_front_CAM", "flash_dual_cal_sub_CAM"},
     FLASH_FALLBACK,
     "[Flash Calibration] read from file OK: ",
     "[Flash Calibration] fail to read from file:"},
    {"D50",
     load_d50,
     0,
     {"awb_cal", "awb_cal_front_CAM", "awb_cal_sub_CAM"},
     AWB_OPENING,
     {"awb_dual_cal", "awb_dual_cal_front_CAM", "awb_dual_cal_sub_CAM"},
     DUAL_FALLBACK,
     "[Dual AWB Calibration] read from file OK: ",
     "[Dual AWB Calibration] fail to read from file:"},
    {"A light",
     load_a_light,
     3784,
     {"awb_A_light_cal", "awb_A_light_cal_front_CAM", "awb_A_light_cal_sub_CAM"},
     AWB_OPENING,
     {"awb_dual_cal", "awb_dual_cal_front_CAM", "awb_dual_cal_sub_CAM"},
     DUAL_FALLBACK,
     "[Dual AWB Calibration] read from file OK: ",
     "[Dual AWB Calibration] fail to read from file:"},
};

class Loaders : public support::PhoneTest {
 protected:
  Loaders() : PhoneTest({.partition_size = 256 * 1024}) {}
  static std::string cache_of(const Loader& loader, uint32_t camera) {
    return std::string("/data/misc/camera/") + loader.cache[camera];
  }
  /// Runs on 48 bytes of 0xEE and returns what they have become.
  static Bytes loaded(const Loader& loader, uint32_t length, int32_t result) {
    Bytes buffer(48, 0xEE);
    EXPECT_EQ(loader.load(buffer.data(), length), result) << loader.name;
    return buffer;
  }
};

/// `start` and then 0xEE up to 48 bytes.
Bytes then_untouched(Bytes start) {
  start.resize(48, 0xEE);
  return start;
}

Bytes part(const Bytes& bytes, size_t offset, size_t size) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  return {from, from + static_cast<std::ptrdiff_t>(size)};
}

TEST_F(Loaders, TakeTheCacheFileThenTheExportThenNothing) {
  const std::string export_size = " (4000) (32)";
  for (const Loader& loader : kLoaders) {
    for (uint32_t camera = 0; camera < 3; ++camera) {
      SCOPED_TRACE(std::string(loader.name) + " of camera " + std::to_string(camera));
      set_sensor_selection(camera);
      const Bytes cached = support::pattern(60, camera + 1);
      const Bytes image = support::pattern(4100, camera + 9);
      put(cache_of(loader, camera), cached);
      put(kNodes[camera], image);
      EXPECT_EQ(log_of([&] { EXPECT_EQ(loaded(loader, 32, 32), then_untouched(part(cached, 0, 32))); }),
                (std::vector{I(loader.opening[camera]), I(std::string("ReadFlash() /data/misc/camera/") +
                                                          loader.cached[camera] + " OK (32)\n")}));

      std::filesystem::remove(host(cache_of(loader, camera)));
      const Bytes exported = part(image, loader.export_offset, 32);
      EXPECT_EQ(log_of([&] { EXPECT_EQ(loaded(loader, 32, 32), then_untouched(exported)); }),
                (std::vector{I(loader.opening[camera]), I(loader.fallback[camera]),
                             I(loader.exported + std::string(kNodes[0]) + export_size)}));

      std::filesystem::remove(host(kNodes[camera]));
      EXPECT_EQ(log_of([&] { EXPECT_EQ(loaded(loader, 32, -1), then_untouched({})); }),
                (std::vector{I(loader.opening[camera]), I(loader.fallback[camera]),
                             E(loader.failure + std::string(kNodes[camera]))}));
    }
  }
}

TEST_F(Loaders, AShortSourceIsDeliveredAsFarAsItGoes) {
  const Bytes record = support::pattern(48);
  for (const Loader& loader : kLoaders) {
    for (const size_t size : {0U, 1U, 31U, 32U, 33U}) {
      put(cache_of(loader, 0), part(record, 0, size));
      const size_t expected = std::min<size_t>(size, 32);
      EXPECT_EQ(loaded(loader, 32, static_cast<int32_t>(expected)),
                then_untouched(part(record, 0, expected)));
    }
    std::filesystem::remove(host(cache_of(loader, 0)));
    for (const size_t size : {size_t{0}, loader.export_offset + 5}) {
      const Bytes image = support::pattern(size);
      put(kNodes[0], image);
      Bytes expected = size == 0 ? Bytes{} : part(image, loader.export_offset, 5);
      expected.resize(32, 0);
      EXPECT_EQ(loaded(loader, 32, 32), then_untouched(expected)) << "what no source held is zero";
    }
  }
}

TEST_F(Loaders, LengthsPastTheExportAndNullBuffersAreHarmless) {
  put(kNodes[0], support::pattern(4000));
  Bytes buffer(5000, 0xEE);
  for (const Loader& loader : kLoaders) {
    EXPECT_EQ(loader.load(buffer.data(), 5000), 5000);
    Bytes expected = part(support::pattern(4000), loader.export_offset, 4000 - loader.export_offset);
    expected.resize(5000, 0);
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(loader.load(nullptr, 32), -1);
    EXPECT_EQ(loaded(loader, 0, 0), then_untouched({}));
  }
  uint32_t word = 5;
  EXPECT_EQ(ReadFlash(nullptr, &word), 0);
  EXPECT_EQ(ReadFlash(buffer.data(), nullptr), 0);
  EXPECT_EQ(word, 5U);
}

TEST_F(Loaders, UnreadableFilesFallBackAndFailingReadsEndTheFile) {
  const Loader& flash = kLoaders[0];
  const Bytes image = support::pattern(4000);
  put(cache_of(flash, 0), support::pattern(32));
  put(kNodes[0], image);
  phone().add_fault({.call = "open", .path = "/data/misc/camera/*", .error = 13});
  EXPECT_EQ(loaded(flash, 32, 32), then_untouched(part(image, 3648, 32)));
  phone().clear_faults();
  phone().add_fault({.call = "read", .path = "/data/misc/camera/*", .nth = 1, .transfer = 10});
  EXPECT_EQ(loaded(flash, 32, 32), then_untouched(support::pattern(32))) << "read on after a short read";
  phone().clear_faults();
  phone().add_fault({.call = "read", .path = "/data/misc/camera/*"});
  EXPECT_EQ(loaded(flash, 32, 0), then_untouched({})) << "and no fallback";
}

// ---- ReadFlash -------------------------------------------------------------------------------------------

constexpr const char* kAwbCache[] = {"/data/misc/camera/awb_cal", "/data/misc/camera/awb_cal_front_CAM",
                                     "/data/misc/camera/awb_cal_sub_CAM"};

TEST_F(Loaders, TheAwbLoaderHandsOutTheTagWord) {
  const char* openings[] = AWB_OPENING;
  for (uint32_t camera = 0; camera < 3; ++camera) {
    set_sensor_selection(camera);
    const Bytes image = support::pattern(4000, camera);
    const auto load = [&](int32_t result, uint32_t tag, const Bytes& expected) {
      Bytes buffer(48, 0xEE);
      uint32_t word = 5;
      EXPECT_EQ(ReadFlash(buffer.data(), &word), result);
      EXPECT_EQ(word, tag);
      EXPECT_EQ(buffer, then_untouched(expected));
    };
    const std::string ok = "[AWB Calibration] read from file OK: ";
    const auto opening = I(openings[camera]);
    put(kAwbCache[camera], {1, 2, 3});
    put(kNodes[camera], image);
    EXPECT_EQ(log_of([&] {
                load(1, 0xFF3ACA01, {1, 2, 3});
              }),
              (std::vector{opening, I(ok + kAwbCache[camera])}));
    std::filesystem::remove(host(kAwbCache[camera]));
    const auto fallback = I("[AWB Calibration] fail to read /data/misc/camera/awb_cal, try another file\n");
    EXPECT_EQ(log_of([&] { load(1, support::word_at(image, 3944), part(image, 0, 32)); }),
              (std::vector{opening, fallback, I(ok + kNodes[camera])}));
    std::filesystem::remove(host(kNodes[camera]));
    EXPECT_EQ(log_of([&] { load(0, 5, {}); }),
              (std::vector{opening, fallback,
                           I(std::string("[AWB Calibration] fail to read from file:") + kNodes[camera])}));
  }
}

}  // namespace
