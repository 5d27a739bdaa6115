// Does each loader deliver the bytes of its record from the right file or place, and say where they came
// from? Guards against the record of another camera, kind or offset, and against bytes that no source held.

#include "awb_calibration/records.h"
#include "tests/support/support.h"

namespace {

using namespace support;

struct Loader {
  int32_t (*load)(void* buffer, uint32_t length);
  size_t export_offset;
  std::string cache;  // file name of the main camera
  const char* opening;
  std::string cache_line;  // what the log says of it, up to the camera's part
  const char* fallback;
  const char* record;
};

// clang-format off
const Loader kLoaders[] = {
    {ReadFlashForFlashCalibration, 3648, "flash_cal", "ReadFlash() for AWB of ", "ReadFlash() /data/misc/camera/flash_cal",
     "ReadFlashForFlashCalibration() for Flash of ", "[Flash Calibration]"},
    {ReadFlashForDualFlashCali, 3848, "flash_dual_cal", "ReadFlash() for Flash of ", "ReadFlash() /data/misc/camera/flash_dual_cal",
     "ReadFlashForFlashCalibration() for Flash of ", "[Flash Calibration]"},
    {[](void* buffer, uint32_t length) { return ReadFlashForDualCam(buffer, length, 0); }, 0, "awb_cal", "ReadFlash() for AWB of ",
     "ReadFlash() /data/misc/camera/awb_dual_cal", "ReadAWBCalibration() for DualCam of ", "[Dual AWB Calibration]"},
    {[](void* buffer, uint32_t length) { return ReadFlashForDualCam(buffer, length, 7); }, 3784, "awb_A_light_cal", "ReadFlash() for AWB of ",
     "ReadFlash() /data/misc/camera/awb_dual_cal", "ReadAWBCalibration() for DualCam of ", "[Dual AWB Calibration]"},
    // clang-format on
    {[](void* buffer, uint32_t length) {
       return aec_read_calibration(static_cast<uint8_t*>(buffer), length);
     },
     3712, "aec_cal", "aec_read_calibration: Read file for AEC of ", "Read /data/misc/camera/aec_cal",
     "aec_read_calibration: Read flash for AEC of ", "[AWB Calibration]aec_read_calibration:"}};

const std::string kCaches = "/data/misc/camera/";
const std::string kNodes[] = {"/sys/android_camera_awb_cal/awb_cal",
                              "/sys/android_camera_awb_cal/awb_cal_front",
                              "/sys/android_camera_awb_cal/awb_cal_sub"};
const std::string kCameras[] = {"MAIN CAM\n", "Front CAM\n", "Sub CAM\n"};
const std::string kFallbackCameras[] = {"MAIN CAM\n", "front CAM\n", "sub CAM\n"};

/// `size` bytes at `offset`, and then 0xEE up to 48 bytes: what a load leaves of a buffer of 0xEE.
Bytes part(const Bytes& bytes, size_t offset, size_t size) {
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  Bytes made(from, from + static_cast<std::ptrdiff_t>(size));
  made.resize(48, 0xEE);
  return made;
}

const Bytes kUntouched(48, 0xEE);

class Loaders : public PhoneTest {
 protected:
  void remove(const std::string& path) { std::filesystem::remove(host(path)); }
  static Bytes loaded(const Loader& loader, int32_t result, uint32_t length = 32) {
    Bytes buffer = kUntouched;
    const int32_t loaded = loader.load(buffer.data(), length);
    EXPECT_TRUE(loaded >= 0 || errno == ENOENT) << errno;
    EXPECT_EQ(loaded, result) << loader.cache;
    return buffer;
  }
};

TEST_F(Loaders, TakeTheCacheFileThenTheExportThenNothing) {
  for (const Loader& loader : kLoaders) {
    for (uint32_t camera = 0; camera < 3; ++camera) {
      const std::string path = of_camera(kCaches + loader.cache, camera);
      const auto opening = I(loader.opening + kCameras[camera]);
      const auto fallback = I(loader.fallback + kFallbackCameras[camera]);
      const Bytes cached = pattern(60, camera + 1), image = pattern(4100, camera + 9);
      set_sensor_selection(camera);
      put(path, cached);
      put(kNodes[camera], image);
      EXPECT_EQ(log_of([&] { EXPECT_EQ(loaded(loader, 32), part(cached, 0, 32)); }),
                (std::vector{opening, I(of_camera(loader.cache_line, camera) + " OK (32)\n")}));
      remove(path);
      EXPECT_EQ(log_of([&] { EXPECT_EQ(loaded(loader, 32), part(image, loader.export_offset, 32)); }),
                (std::vector{opening, fallback,
                             I(loader.record + (" read from file OK: " + kNodes[0]) + " (4000) (32)")}));
      remove(kNodes[camera]);
      EXPECT_EQ(
          log_of([&] { EXPECT_EQ(loaded(loader, -1), kUntouched); }),
          (std::vector{opening, fallback, E(loader.record + (" fail to read from file:" + kNodes[camera]))}));
    }
  }
}

TEST_F(Loaders, AShortSourceIsDeliveredAsFarAsItGoes) {
  for (const Loader& loader : kLoaders) {
    for (const size_t size : {0U, 1U, 31U, 32U, 33U}) {
      put(kCaches + loader.cache, pattern(size));
      const size_t expected = std::min<size_t>(size, 32);
      EXPECT_EQ(loaded(loader, static_cast<int32_t>(expected)), part(pattern(size), 0, expected));
    }
    remove(kCaches + loader.cache);
    Bytes image = pattern(loader.export_offset + 5);
    put(kNodes[0], image);
    image.resize(4000, 0);
    EXPECT_EQ(loaded(loader, 32), part(image, loader.export_offset, 32)) << "what no source held is zero";
    put(kNodes[0], {});
    EXPECT_EQ(loaded(loader, 32), part(Bytes(32, 0), 0, 32));
  }
}

TEST_F(Loaders, LengthsPastTheExportAreDeliveredAsZeros) {
  put(kNodes[0], pattern(4000));
  Bytes buffer(5000, 0xEE);
  for (const Loader& loader : kLoaders) {
    EXPECT_EQ(loader.load(buffer.data(), 5000), 5000);
    Bytes expected = pattern(4000);
    expected.erase(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(loader.export_offset));
    expected.resize(5000, 0);
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(loaded(loader, 0, 0), kUntouched);
  }
}

TEST_F(Loaders, UnreadableFilesFallBackAndFailingReadsEndTheFile) {
  const Bytes image = pattern(4000), record = pattern(32, 2);
  put("/data/misc/camera/flash_cal", record);
  put(kNodes[0], image);
  const auto loaded_with = [&](const std::vector<Fault>& faults, int32_t result) {
    phone().clear_faults();
    for (const Fault& fault : faults) phone().add_fault(fault);
    return loaded(kLoaders[0], result);
  };
  EXPECT_EQ(loaded_with({{.call = "open", .path = "/data/misc/camera/*", .error = 13}}, 32),
            part(image, 3648, 32));
  EXPECT_EQ(loaded_with({{.call = "read", .error = EINTR}}, 32), part(record, 0, 32)) << "a signal";
  EXPECT_EQ(loaded_with({{.call = "read", .transfer = 10}, {.call = "read", .nth = 2, .error = EINTR}}, 32),
            part(record, 0, 32))
      << "read on after a short read";
  EXPECT_EQ(loaded_with({{.call = "read", .from_then_on = true, .transfer = 1}}, 32), part(record, 0, 32));
  EXPECT_EQ(loaded_with({{.call = "read", .nth = 1}}, 0), kUntouched) << "and no fallback";
}

TEST_F(Loaders, TheAwbLoaderHandsOutTheTagWord) {
  const std::string ok = "[AWB Calibration] read from file OK: ";
  const auto fallback = I("[AWB Calibration] fail to read /data/misc/camera/awb_cal, try another file\n");
  const auto load = [](int32_t result, uint32_t tag, const Bytes& expected) {
    Bytes buffer = kUntouched;
    uint32_t word = 5;
    EXPECT_EQ(ReadFlash(buffer.data(), &word), result);
    EXPECT_EQ(word, tag);
    EXPECT_EQ(buffer, expected);
  };
  for (uint32_t camera = 0; camera < 3; ++camera) {
    const std::string path = of_camera(kCaches + "awb_cal", camera);
    const auto opening = I("ReadFlash() for AWB of " + kCameras[camera]);
    const Bytes image = pattern(4000, camera);
    set_sensor_selection(camera);
    put(path, pattern(3));
    put(kNodes[camera], image);
    EXPECT_EQ(log_of([&] { load(1, 0xFF3ACA01, part(pattern(3), 0, 3)); }),
              (std::vector{opening, I(ok + path)}));
    remove(path);
    EXPECT_EQ(log_of([&] { load(1, word_at(image, 3944), part(image, 0, 32)); }),
              (std::vector{opening, fallback, I(ok + kNodes[camera])}));
    remove(kNodes[camera]);
    EXPECT_EQ(
        log_of([&] { load(0, 5, kUntouched); }),
        (std::vector{opening, fallback, I("[AWB Calibration] fail to read from file:" + kNodes[camera])}));
  }
}

}  // namespace
