// What does one camera start, with every correction, ask of the system?
// Guards against calls that make every camera slower to open, and against descriptors and damage on a fault.

#include <sys/mman.h>

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

struct Kind {
  std::string name, cache;  // the main camera's file
  size_t in_export;
  Words values;
};
const Kind kKinds[] = {{"awb", "/awb_cal", 0, {2048, 2048}},
                       {"dual_flash", "/flash_dual_cal", 3848, {1024, 512, 256, 1024, 512, 256}},
                       {"flash", "/flash_cal", 3648, {5120, 5120}},
                       {"lsc", "/lsc_cal", 64, {}},
                       {"a_light", "/awb_A_light_cal", 3784, {512, 512}},
                       {"aec", "/aec_cal", 3712, {7, 8, 9}}};

/// Nothing of the dual-flash record is asked of the sub camera.
std::string cache_of(const Kind& kind, uint32_t camera) {
  return camera == 2 && kind.name == "dual_flash" ? "" : of_camera("/data/misc/camera" + kind.cache, camera);
}

class CameraStart : public CorrectionTest {
 protected:
  /// The bytes of a good record of this camera's module.
  static Bytes good(const Kind& kind, uint32_t camera) {
    const Words& fuse = camera == 0 ? kMain : kThis;
    if (kind.name != "lsc") return le32(record(3099, fuse, kind.values));
    Bytes bytes = le64({3099, fuse[0], fuse[1], fuse[2], fuse[3]});
    bytes.resize(3584);
    return bytes;
  }
  void put_all(uint32_t camera) {
    image_ = Bytes(4000);
    for (const Kind& kind : kKinds) {
      const Bytes bytes = good(kind, camera);
      std::copy(bytes.begin(), bytes.end(), image_.begin() + static_cast<std::ptrdiff_t>(kind.in_export));
    }
    for (const Kind& kind : kKinds)
      if (const std::string path = cache_of(kind, camera); !path.empty())
        put(path, kind.name == "lsc" ? image_ : good(kind, camera));
    put(kExports[camera], image_);
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

  Bytes image_;  ///< of the export
};

TEST_F(CameraStart, TakesThreeCallsForAFile) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    put_all(camera);
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

TEST_F(CameraStart, EndsWhereTheTuningEnds) {
  constexpr size_t kRoom = 65536;
  auto* const end = static_cast<uint8_t*>(mmap(nullptr, 2 * kRoom, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) +
                    kRoom;
  ASSERT_EQ(mprotect(end, kRoom, PROT_NONE), 0);
  auto* const tuning = reinterpret_cast<float*>(end - 12464);
  std::fill_n(tuning, 12464 / 4, 1.0F);
  for (uint32_t i = 0; i < 4; ++i) {
    if (i < 3) put_all(i);
    if (i == 3) put_words(kCaches + kFiles[1][1], record(3000, kAny, {1024, 512, 256, 1024, 512, 256}));
    float out[6] = {};
    set_sensor_selection(i == 3 ? 1 : i);  // once more, with a refused flash record
    Correct_Reference_Points_qorModule(tuning, out, out + 2, out + 4);
    EXPECT_EQ(out[0], 2);
    QOR_AWB_Calibration_Reference_Points_Correction(tuning);
  }
  EXPECT_EQ(Sensor_set_mesh(end - 48592, 0, 0.25F, 0.5F), 1);
  munmap(end - kRoom, 2 * kRoom);
}

/// What is written whole or not at all is `untouched` throughout or `corrected` throughout.
void expect_whole(const Floats& memory, size_t from, size_t count, float untouched, float corrected) {
  const auto begin = memory.begin() + static_cast<std::ptrdiff_t>(from);
  const Floats values(begin, begin + static_cast<std::ptrdiff_t>(count));
  EXPECT_TRUE(values == Floats(count, untouched) || values == Floats(count, corrected)) << from;
}

TEST_F(CameraStart, AnyFailingCallLeavesEveryCorrectionWholeOrUndone) {
  put_all(0);
  for (const bool from_cache : {true, false}) {
    if (!from_cache) remove_caches(0);
    for_every_failing_call(phone(), [] {
      const Floats memory = start(0);
      expect_whole(memory, 0, 2, 77, 2);
      expect_whole(memory, 2, 4, 77, 77);
      expect_whole(memory, 6, 2, 1, 2);
      expect_whole(memory, 8, 2, 1, 0.5F);
      expect_whole(memory, kSensor + 2572 / 4 + 1, 884, 1, 0.75F);
      expect_whole(memory, kSensor + 6112 / 4 + 1, 884, 1, 0);
      expect_whole(memory, kSensor + 16732 / 4 + 1, 884, 1, 0.5F);
    });
  }
}

// ---- records that are cut or missing ----------------------------------------------------------------------

class CutRecords : public CameraStart {
 protected:
  /// The records of which the corrections and the exposure control take something.
  static std::string taken() {
    std::string names;
    const auto add = [&names](bool is_taken, const char* name) { names += is_taken ? name : ""; };
    Floats tuning(12464 / 4, 1), older = tuning, out(10, 77), sensor(48592 / 4);
    Correct_Reference_Points_qorModule(tuning.data(), &out[0], &out[2], &out[4]);
    add(out[0] == 2, "awb ");
    add(tuning[3113] == 0.5F, "dual_flash ");
    QOR_AWB_Calibration_Reference_Points_Correction(older.data());
    add(older[12] == 2, "older:awb ");
    add(older[3113] == 5, "flash ");
    add(Sensor_set_mesh(sensor.data(), 0, 0, 0) == 1, "lsc ");
    Dual_Cam_Correction(&out[6], &out[7], &out[8], &out[9]);
    add(out[6] == 2, "d50 ");
    add(out[8] == 0.5F, "a_light ");
    uint32_t aec[3];
    QOR_Calibration_AEC_get_calibration_data(&aec[0], &aec[1], &aec[2]);
    add(aec[0] == 7, "aec ");
    return names;
  }
  /// What is left when `lost` is: without an AWB record, or with a damaged one, flash is not corrected at all.
  static std::string left(const std::string& lost, bool is_empty, uint32_t camera) {
    std::string names;
    for (const std::string name :
         {"awb ", "dual_flash ", "older:awb ", "flash ", "lsc ", "d50 ", "a_light ", "aec "}) {
      const bool is_awb = name == "awb " || name == "older:awb " || name == "d50 ";
      const bool is_flash = name == "flash " || name == "dual_flash ";
      if (camera == 2 && name == "dual_flash ") continue;
      if (name == lost + " " || (lost == "awb" && (is_awb || (is_flash && !is_empty)))) continue;
      names += name;
    }
    return names;
  }
  /// What is taken; no line shows bytes that no file held. The build for debugging fills them with 0xFE.
  std::string taken_from_files() {
    std::string names;
    for (const auto& line : log_of([&names] { names = taken(); }))
      EXPECT_EQ(line.text.find("fefefe"), line.text.npos) << line.text;
    return names;
  }
  /// Puts the first `size` bytes; -1: no file.
  void put_cut(const std::string& path, const Bytes& bytes, int size) {
    put(path, Bytes(bytes.begin(), bytes.begin() + std::max(size, 0)));
    if (size < 0) std::filesystem::remove(host(path));
  }
};

TEST_F(CutRecords, EveryOtherGoodRecordOfTheModuleIsTaken) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    set_sensor_selection(camera);
    put_all(camera);
    EXPECT_EQ(taken_from_files(), left("", false, camera));
    for (const Kind& kind : kKinds) {
      const std::string path = cache_of(kind, camera);
      if (path.empty()) continue;
      const Bytes whole = *get(path);
      for (const int size : {0, 12, 31}) {
        put_cut(path, whole, size);
        EXPECT_EQ(taken_from_files(), left(kind.name, size == 0, camera)) << path << " cut to " << size;
      }
      std::filesystem::remove(host(path));
      for (const int size : {-1, 0, 12, 31, 4000}) {
        put_cut(kExports[camera], image_, size);
        EXPECT_EQ(taken_from_files(), left(size == 4000 ? "" : kind.name, size == 0, camera))
            << path << " export " << size;
      }
      std::filesystem::remove(host(kExports[camera]));
      put(path, whole);
    }
  }
}

}  // namespace
