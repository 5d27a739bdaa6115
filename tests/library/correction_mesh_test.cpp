// Does a camera start with the lens-shading gains that were measured for its module, softened exactly?
// Guards against another module's shading in the picture, and against gains that differ between processors.

#include <algorithm>

#include "tests/support/correction_support.h"

namespace {

using namespace support;
using Words64 = std::vector<uint64_t>;

constexpr size_t kCells = 884;

// ---- Sensor_mesh_interpolation ----------------------------------------------------------------------------

float softened(float gain, float ratio) {
  return sum(1, product(ratio, difference(gain, 1)));
}

TEST(MeshInterpolation, AMillionCellsAreTheSameOnEveryProcessor) {
  // Apart, in place, and overlapping: by a cell, by a vector, by most of a table; upwards and downwards.
  const size_t places[][2] = {{0, 885}, {0, 0},   {1, 0},   {0, 1},   {4, 0},     {0, 4},     {0, 883},
                              {883, 0}, {884, 0}, {0, 884}, {885, 0}, {870, 885}, {884, 885}, {3, 7}};
  Integers integers(42);
  for (size_t i = 0; i < 1200; ++i) {
    const auto& [to, from] = places[i % std::size(places)];
    Floats memory = integers.gains(2 * 885);
    float ratio = integers.gain();
    if (ratio >= 1) ratio = difference(ratio, 1.5);
    if (ratio >= 1) ratio = 0;
    Floats expected = memory;
    for (size_t cell = 1; cell <= kCells; ++cell)
      expected[to + cell] = softened(expected[from + cell], ratio);
    Sensor_mesh_interpolation(&memory[to], &memory[from], ratio);
    ASSERT_EQ(bits_of(memory), bits_of(expected)) << to << " from " << from;
  }
}

class Mesh : public CorrectionTest {};

TEST_F(Mesh, InterpolationRefusesNullTablesAndRatiosFromOne) {
  const Floats made(885, 1.4F);
  Floats table = made;
  const auto refused = [&](void* dst, const void* src, float ratio) {
    const std::string line = printf_text("failed: %p %p ratio(%f)", src, dst, static_cast<double>(ratio));
    EXPECT_EQ(log_of([&] { Sensor_mesh_interpolation(dst, src, ratio); }), Log{E(line)});
    EXPECT_EQ(table, made);
  };
  refused(table.data(), nullptr, 0.5F);
  refused(nullptr, table.data(), 0.5F);
  for (const float ratio : {1.0F, 1.5F, HUGE_VALF}) refused(table.data(), table.data(), ratio);
  Sensor_mesh_interpolation(table.data(), table.data(), std::nanf(""));
  EXPECT_EQ(table[0], 1.4F) << "the header";
  EXPECT_TRUE(std::all_of(table.begin() + 1, table.end(), [](float gain) { return std::isnan(gain); }));
}

// ---- Sensor_set_mesh --------------------------------------------------------------------------------------

constexpr uint64_t kHigh = uint64_t{1} << 32;
const Words64 kModuleWords(kThis.begin(), kThis.end());

const std::string kFile = "/data/misc/camera/lsc_cal";
const char* const kOpenings[] = {"Sensor_set_mesh(): LSC for MAIN CAM\n",
                                 "Sensor_set_mesh() LSC for Front CAM\n",
                                 "Sensor_set_mesh(): LSC for Sub CAM\n"};

struct Record {
  const char* what = "";
  uint64_t valid_word = 3099;
  Words64 fuse = kModuleWords;
  uint64_t wrong_crc_bits = 0;
  uint64_t crc = 0;

  /// The 4000-byte image with the record at 64.
  Bytes image() {
    Bytes bytes = le64({valid_word, fuse[0], fuse[1], fuse[2], fuse[3]});
    const Floats gains = Integers(3).gains(kCells);
    bytes.resize(40 + 4 * kCells);
    std::memcpy(&bytes[40], gains.data(), 4 * kCells);
    crc = bitwise_crc(bytes.data(), bytes.size()) ^ wrong_crc_bits;
    const Bytes crc_bytes = le64({crc});
    bytes.insert(bytes.end(), crc_bytes.begin(), crc_bytes.end());
    Bytes made = pattern(4000);
    std::copy(bytes.begin(), bytes.end(), made.begin() + 64);
    return made;
  }
  Log lines() const {
    const uint32_t first = fuse[0] == 0 ? 0 : kThis[0];
    return {
        I(printf_text("[LSC Calibration]: lsc_checksum=%lx, lsc_verify=%lx\n", crc, valid_word)),
        I(printf_text("[LSC Calibration]: fuseid_1=%lx,fuseid_2=%lx,fuseid_3=%lx,fuseid_4=%lx, ", fuse[0],
                      fuse[1], fuse[2], fuse[3]) +
          printf_text(
              "sfuse.fuse_id_word1=%x,sfuse.fuse_id_word2=%x,sfuse.fuse_id_word3=%x,sfuse.fuse_id_word4=%x\n",
              first, kThis[1], kThis[2], kThis[3]))};
  }
};

Floats made_tuning() {
  return Integers(9).gains((45052 + 3540) / 4);
}

/// What a good record makes of the tuning.
Floats replaced(float bright, float low) {
  Floats tuning = made_tuning();
  const Floats gains = Integers(3).gains(kCells);
  const auto store = [&](size_t byte, float ratio) {
    for (size_t i = 0; i < kCells; ++i)
      tuning[byte / 4 + 1 + i] = ratio > 0 && ratio < 1 ? softened(gains[i], ratio) : gains[i];
  };
  for (const size_t byte : {6112U, 9652U, 13192U}) store(byte, 0);
  for (const size_t byte : {2572U, 45052U}) store(byte, bright);
  if (low > 0 && low < 1) store(16732, low);
  return tuning;
}

class SetMesh : public CorrectionTest {
 protected:
  SetMesh() { fit_module("main"); }
  /// Calls, expects the tuning to be replaced or not, and returns the log.
  Log set(bool is_replaced, float bright = 0, float low = 0) {
    Floats tuning = made_tuning();
    const Log log =
        log_of([&] { EXPECT_EQ(Sensor_set_mesh(tuning.data(), 5, bright, low), is_replaced ? 1 : 0); });
    EXPECT_EQ(bits_of(tuning), bits_of(is_replaced ? replaced(bright, low) : made_tuning()));
    return log;
  }
  static Log opening(uint32_t camera) {
    return Log{I("[LSC Calibration]: Sensor_set_mesh\n"), I("[LSC Calibration]: call awb_get_fuseid\n")} +
           fuse_lines(kThis) + Log{I(kOpenings[camera])};
  }
  static Log loaded(uint32_t camera) {
    return {I("Read from file OK: " + of_camera(kFile, camera) + " or " + kExports[camera])};
  }
};

const Log kCopied = {I("Sensor_set_mesh:load k chromatix 4\n")};

TEST_F(SetMesh, TheValidWordAndTheModuleDecideAndTheChecksumOnlyWarns) {
  const uint64_t a = kThis[0], b = kThis[1], c = kThis[2], d = kThis[3];
  // clang-format off
  const std::vector<Record> used = {
      {"this module"}, {"any module", 3099, {0, 0, 0, 0}}, {"zero first word", 3099, {0, b, c, d}}, {"wrong checksum", 3099, kModuleWords, 1},
      {"checksum of 33 bits", 3099, kModuleWords, kHigh}, {"wrong checksum, any module", 3099, {0, 0, 0, 0}, 1}};
  const std::vector<Record> refused = {
      {"word 1", 3099, {1, b, c, d}}, {"word 4", 3099, {a, b, c, 1}}, {"zero and word 3", 3099, {0, b, 1, d}}, {"33 bits", 3099, {a, kHigh + b, c, d}},
      {"version 2", 2099}, {"version 4", 4099}, {"version 0", 99}, {"judged bad", 3000}, {"valid word of 33 bits", kHigh + 3099},
      {"3099 in its low 32 bits", 125 * kHigh + 3099}, {"version 3 in 32 bits", (kHigh + 3) * 1000 + 99}, {"all bad", 0, {1, b, c, d}, 1}};
  // clang-format on
  for (const bool is_used : {true, false}) {
    for (Record record : is_used ? used : refused) {
      SCOPED_TRACE(record.what);
      put(kFile, record.image());
      const Log verdict = is_used ? kCopied : Log{E("Sensor_set_mesh: valid bit or fuse id is wrong\n")};
      const Log warning{E("Sensor_set_mesh: check sum is not valid\n")};
      EXPECT_EQ(set(is_used), opening(0) + loaded(0) + record.lines() +
                                  (record.wrong_crc_bits == 0 ? Log{} : warning) + verdict);
    }
  }
}

TEST_F(SetMesh, EachCameraHasItsFileAndItsNode) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    SCOPED_TRACE(camera);
    set_sensor_selection(camera);
    put(of_camera(kFile, camera), Record{}.image());
    set(true);
    std::filesystem::rename(host(of_camera(kFile, camera)), host(kExports[camera]));
    const Log start = opening(camera) + Log{I("Read /data/misc/camera/lsc_cal fail\n")};
    Log log = set(true);
    log.resize(9);
    EXPECT_EQ(log, start + loaded(camera));
    put_words(kExports[camera], {});
    EXPECT_EQ(set(false), start + Log{I(printf_text("Read from file:%s fail", kExports[camera]))});
    EXPECT_EQ(error, ENOENT);
  }
}

TEST_F(SetMesh, TablesAreSoftenedInTheirOrder) {
  put(kFile, Record{}.image());
  const std::string start = "Sensor_set_mesh:interpolate ";
  for (const float bright : {0.25F, 0.0F, -1.0F, std::nanf(""), 1.0F, 2.0F}) {
    for (const float low : {0.5F, 0.0F, -0.5F, std::nanf(""), 1.0F}) {
      Log expected = kCopied;
      if (low > 0)
        expected.push_back(I(start + printf_text("low light rolloff with %f\n", static_cast<double>(low))));
      if (bright > 0)
        expected.push_back(
            I(start + printf_text("bright light rolloff with %f\n", static_cast<double>(bright))));
      Log log = set(true, bright, low);
      const size_t refusals =
          std::erase_if(log, [](const auto& line) { return line.text.starts_with("failed:"); });
      EXPECT_EQ(refusals, (low >= 1 ? 1U : 0U) + (bright >= 1 ? 2U : 0U));
      EXPECT_EQ(Log(log.begin() + 10, log.end()), expected);
    }
  }
}

TEST_F(SetMesh, AnImageThatEndsInsideItsRecordHasNone) {
  for (const uint64_t first_word : {0U, kThis[0]}) {
    for (const size_t size : {0U, 64U, 99U, 104U, 108U, 3640U, 3647U, 3648U, 4000U, 4500U}) {
      Bytes bytes = Record{.fuse = {first_word, kThis[1], kThis[2], kThis[3]}}.image();
      bytes.resize(size, 0xAA);
      put(kFile, bytes);
      const Log log = set(size >= 3648);
      EXPECT_EQ(log.back() == E("Sensor_set_mesh: valid bit or fuse id is wrong\n"), size < 3648) << size;
      // Before its end is read, its zero first word says nothing of the module.
      EXPECT_EQ(log[9].text.find("fuse_id_word1=0,") != std::string::npos, first_word == 0 && size >= 3648);
    }
  }
}

}  // namespace
