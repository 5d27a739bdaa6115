// Does a camera start with the lens-shading gains that were measured for its module, softened exactly?
// Guards against another module's shading in the picture, and against gains that differ between processors.

#include <algorithm>

#include "tests/correction_support.h"

namespace {

using support::Bytes;
using support::E;
using support::Floats;
using support::I;
using support::kModule;
using support::Log;
using support::operator+;
using support::printf_text;
using support::Words;

constexpr size_t kCells = 884;
constexpr size_t kTuningBytes = 45052 + 3540;
using Words64 = std::vector<uint64_t>;

// ---- Sensor_mesh_interpolation ----------------------------------------------------------------------------

float softened(float gain, float ratio) {
  return support::sum(1, support::product(ratio, support::difference(gain, 1)));
}

/// Cell by cell upwards: `to` and `from` are places of tables in `memory`.
void soften(Floats& memory, size_t to, size_t from, float ratio) {
  for (size_t i = 1; i <= kCells; ++i) memory[to + i] = softened(memory[from + i], ratio);
}

TEST(MeshInterpolation, AMillionCellsAreTheSameOnEveryProcessor) {
  // Apart, in place, and overlapping: by a cell, by a vector, by most of a table; upwards and downwards.
  const size_t places[][2] = {{0, 885}, {0, 0},   {1, 0},   {0, 1},   {4, 0},     {0, 4},     {0, 883},
                              {883, 0}, {884, 0}, {0, 884}, {885, 0}, {870, 885}, {884, 885}, {3, 7}};
  support::Integers integers(42);
  uint64_t hash = 0xCBF29CE484222325;
  for (int i = 0; i < 1200; ++i) {
    const auto& [to, from] = places[static_cast<size_t>(i) % std::size(places)];
    Floats memory(2 * 885);
    for (float& gain : memory) gain = integers.gain();
    float ratio = integers.gain();
    if (ratio >= 1) ratio = support::difference(ratio, 1.5F);
    Floats expected = memory;
    if (ratio >= 1) ratio = 0;
    soften(expected, to, from, ratio);
    Sensor_mesh_interpolation(&memory[to], &memory[from], ratio);
    ASSERT_EQ(support::bits_of(memory), support::bits_of(expected)) << to << " from " << from;
    support::add_to_hash(hash, support::bits_of(memory));
  }
  EXPECT_EQ(hash, 2228437680242705914U);
}

class Mesh : public support::PhoneTest {
 protected:
  Mesh() : PhoneTest({.partition_size = 256 * 1024}) {
    for (const char* camera : {"main", "front", "sub"}) fit_module(camera);
  }
  void remove(const std::string& path) { std::filesystem::remove(host(path)); }
};

TEST_F(Mesh, InterpolationRefusesNullTablesAndRatiosFromOne) {
  const Floats made(885, 1.4F);
  Floats table = made;
  const auto refused = [&](void* dst, const void* src, float ratio) {
    EXPECT_EQ(log_of([&] { Sensor_mesh_interpolation(dst, src, ratio); }),
              (Log{E(printf_text("failed: %p %p ratio(%f)", src, dst, static_cast<double>(ratio)))}));
    EXPECT_EQ(table, made);
  };
  refused(table.data(), nullptr, 0.5F);
  refused(nullptr, table.data(), 0.5F);
  for (const float ratio : {1.0F, 1.5F, HUGE_VALF}) refused(table.data(), table.data(), ratio);

  for (const auto& [ratio, gain] : {std::pair{0.5F, 1.2F}, {0.0F, 1.0F}, {-1.0F, 0.6F}}) {
    Sensor_mesh_interpolation(table.data(), made.data(), ratio);
    EXPECT_FLOAT_EQ(table[884], gain);
    EXPECT_EQ(table[0], 1.4F) << "the header";
  }
  Sensor_mesh_interpolation(table.data(), table.data(), std::nanf(""));
  EXPECT_TRUE(std::all_of(table.begin() + 1, table.end(), [](float gain) { return std::isnan(gain); }));
}

// ---- Sensor_set_mesh --------------------------------------------------------------------------------------

const Words64 kThisModule = {kModule[0], kModule[1], kModule[2], kModule[3]};
constexpr uint64_t kHigh = uint64_t{1} << 32;

Words64 with(Words64 fuse, size_t place, uint64_t word) {
  fuse.at(place) = word;
  return fuse;
}

Floats gains() {
  support::Integers integers(3);
  Floats made(kCells);
  for (float& gain : made) gain = integers.gain();
  return made;
}

/// The 4000-byte image with a lens-shading record at 64.
Bytes image(uint64_t valid_word, const Words64& fuse, uint64_t wrong_crc_bits = 0) {
  Words64 fields = fuse;
  fields.insert(fields.begin(), valid_word);
  Bytes record = support::le64(fields);
  const Bytes cells = support::le32([] {
    Words words;
    for (const float gain : gains()) words.push_back(std::bit_cast<uint32_t>(gain));
    return words;
  }());
  record.insert(record.end(), cells.begin(), cells.end());
  const uint64_t crc = support::bitwise_crc(record.data(), record.size());
  const Bytes crc_bytes = support::le64({crc ^ wrong_crc_bits});
  record.insert(record.end(), crc_bytes.begin(), crc_bytes.end());
  Bytes made = support::pattern(4000);
  std::copy(record.begin(), record.end(), made.begin() + 64);
  return made;
}

struct Block {
  Floats tuning;  // by 4 bytes
  int32_t result;
  Log log;
};

Floats made_tuning() {
  support::Integers integers(9);
  Floats tuning(kTuningBytes / 4);
  for (float& value : tuning) value = integers.gain();
  return tuning;
}

/// What a good record makes of the tuning.
Floats replaced(float bright, float low) {
  Floats tuning = made_tuning();
  const Floats made = gains();
  const auto store = [&](size_t byte, float ratio) {
    for (size_t i = 0; i < kCells; ++i)
      tuning[byte / 4 + 1 + i] = ratio > 0 && ratio < 1 ? softened(made[i], ratio) : made[i];
  };
  store(2572, bright);
  for (const size_t byte : {6112U, 9652U, 13192U}) store(byte, 0);
  if (low > 0 && low < 1) store(16732, low);
  store(45052, bright);
  return tuning;
}

constexpr const char* kFiles[] = {"/data/misc/camera/lsc_cal", "/data/misc/camera/lsc_cal_front_CAM",
                                  "/data/misc/camera/lsc_cal_sub_CAM"};
constexpr const char* kNodes[] = {"/sys/android_camera_awb_cal/awb_cal",
                                  "/sys/android_camera_awb_cal/awb_cal_front",
                                  "/sys/android_camera_awb_cal/awb_cal_sub"};
constexpr const char* kOpenings[] = {"Sensor_set_mesh(): LSC for MAIN CAM\n",
                                     "Sensor_set_mesh() LSC for Front CAM\n",
                                     "Sensor_set_mesh(): LSC for Sub CAM\n"};

Log opening(uint32_t camera) {
  return Log{I("[LSC Calibration]: Sensor_set_mesh\n"), I("[LSC Calibration]: call awb_get_fuseid\n")} +
         support::fuse_lines(kModule) + Log{I(kOpenings[camera])};
}

Log loaded(uint32_t camera) {
  return {I(printf_text("Read from file OK: %s or %s", kFiles[camera], kNodes[camera]))};
}

const Log kCopied = {I("Sensor_set_mesh:load k chromatix 4\n")};
const Log kRefused = {E("Sensor_set_mesh: valid bit or fuse id is wrong\n")};
const Log kBadCrc = {E("Sensor_set_mesh: check sum is not valid\n")};

class SetMesh : public Mesh {
 protected:
  Block set(float bright = 0, float low = 0) {
    Block block{.tuning = made_tuning(), .result = -7, .log = {}};
    block.log = log_of([&] { block.result = Sensor_set_mesh(block.tuning.data(), 12345, bright, low); });
    return block;
  }
  static void expect_untouched(const Block& block) {
    EXPECT_EQ(block.result, 0);
    EXPECT_EQ(support::bits_of(block.tuning), support::bits_of(made_tuning()));
  }
  static void expect_replaced(const Block& block, float bright = 0, float low = 0) {
    EXPECT_EQ(block.result, 1);
    EXPECT_EQ(support::bits_of(block.tuning), support::bits_of(replaced(bright, low)));
  }
};

Log record_log(uint64_t valid_word, const Words64& fuse, uint64_t crc) {
  const auto word = [&](size_t i) { return static_cast<unsigned long>(fuse[i]); };
  return {I(printf_text("[LSC Calibration]: lsc_checksum=%lx, lsc_verify=%lx\n",
                        static_cast<unsigned long>(crc), static_cast<unsigned long>(valid_word))),
          I(printf_text("[LSC Calibration]: fuseid_1=%lx,fuseid_2=%lx,fuseid_3=%lx,fuseid_4=%lx, "
                        "sfuse.fuse_id_word1=%x,sfuse.fuse_id_word2=%x,sfuse.fuse_id_word3=%x,"
                        "sfuse.fuse_id_word4=%x\n",
                        word(0), word(1), word(2), word(3), word(0) == 0 ? 0 : kModule[0], kModule[1],
                        kModule[2], kModule[3]))};
}

TEST_F(SetMesh, TheValidWordAndTheModuleDecideAndTheChecksumOnlyWarns) {
  struct Row {
    const char* what;
    uint64_t valid_word;
    Words64 fuse;
    uint64_t wrong_crc_bits;
    bool used;
  };
  const Row rows[] = {
      {"this module", 3099, kThisModule, 0, true},
      {"any module", 3099, {0, 0, 0, 0}, 0, true},
      {"zero first word", 3099, with(kThisModule, 0, 0), 0, true},
      {"wrong checksum", 3099, kThisModule, 1, true},
      {"checksum of 33 bits", 3099, kThisModule, kHigh, true},
      {"wrong checksum, any module", 3099, {0, 0, 0, 0}, 1, true},
      {"another first word", 3099, with(kThisModule, 0, 1), 0, false},
      {"another last word", 3099, with(kThisModule, 3, 1), 0, false},
      {"zero and another word", 3099, with(with(kThisModule, 0, 0), 2, 1), 0, false},
      {"word of 33 bits", 3099, with(kThisModule, 1, kHigh + kModule[1]), 0, false},
      {"version 2", 2099, kThisModule, 0, false},
      {"version 4", 4099, kThisModule, 0, false},
      {"version 0", 99, kThisModule, 0, false},
      {"judged bad", 3000, kThisModule, 0, false},
      {"valid word of 33 bits", kHigh + 3099, kThisModule, 0, false},
      {"bad in every way", 0, with(kThisModule, 0, 1), 1, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    const Bytes bytes = image(row.valid_word, row.fuse, row.wrong_crc_bits);
    put(kFiles[0], bytes);
    const Block block = set();
    row.used ? expect_replaced(block) : expect_untouched(block);
    const uint64_t crc = support::word_at(bytes, 3640) + (uint64_t{support::word_at(bytes, 3644)} << 32);
    EXPECT_EQ(block.log, opening(0) + loaded(0) + record_log(row.valid_word, row.fuse, crc) +
                             (row.wrong_crc_bits == 0 ? Log{} : kBadCrc) + (row.used ? kCopied : kRefused));
  }
}

TEST_F(SetMesh, EachCameraHasItsFileAndItsNode) {
  for (uint32_t camera = 0; camera < 3; ++camera) {
    SCOPED_TRACE(camera);
    set_sensor_selection(camera);
    put(kFiles[camera], image(3099, kThisModule));
    put(kNodes[camera], {});
    expect_replaced(set());
    std::filesystem::rename(host(kFiles[camera]), host(kNodes[camera]));
    const Block block = set();
    expect_replaced(block);
    const Log start = opening(camera) + Log{I("Read /data/misc/camera/lsc_cal fail\n")};
    EXPECT_EQ(Log(block.log.begin(), block.log.begin() + 9), start + loaded(camera));
    remove(kNodes[camera]);
    const Block nothing = set();
    expect_untouched(nothing);
    EXPECT_EQ(nothing.log, start + Log{I(printf_text("Read from file:%s fail", kNodes[camera]))});
  }
}

TEST_F(SetMesh, TablesAreSoftenedInTheirOrder) {
  put(kFiles[0], image(3099, kThisModule));
  const auto low_line = [](float ratio) {
    return Log{I(
        printf_text("Sensor_set_mesh:interpolate low light rolloff with %f\n", static_cast<double>(ratio)))};
  };
  const auto bright_line = [](float ratio) {
    return Log{I(printf_text("Sensor_set_mesh:interpolate bright light rolloff with %f\n",
                             static_cast<double>(ratio)))};
  };
  for (const float bright : {0.25F, 0.0F, -1.0F, std::nanf(""), 1.0F, 2.0F}) {
    for (const float low : {0.5F, 0.0F, -0.5F, std::nanf(""), 1.0F}) {
      const Block block = set(bright, low);
      expect_replaced(block, bright, low);
      Log lines = block.log;
      std::erase_if(lines, [](const auto& line) { return line.text.starts_with("failed:"); });
      EXPECT_EQ(Log(lines.begin() + 10, lines.end()),
                kCopied + (low > 0 ? low_line(low) : Log{}) + (bright > 0 ? bright_line(bright) : Log{}));
      EXPECT_EQ(block.log.size() - lines.size(), (low >= 1 ? 1U : 0U) + (bright >= 1 ? 2U : 0U));
    }
  }
}

TEST_F(SetMesh, TruncatedImagesAreZerosBehindTheirEnd) {
  const Bytes good = image(3099, kThisModule);
  for (const size_t size : {0U, 63U, 64U, 99U, 4000U, 4500U}) {
    Bytes bytes = good;
    bytes.resize(size, 0xAA);
    put(kFiles[0], bytes);
    size < 100 ? expect_untouched(set()) : expect_replaced(set());
  }
  put(kFiles[0], Bytes(good.begin(), good.begin() + 108));
  const Block block = set();
  EXPECT_EQ(block.tuning[2572 / 4 + 1], gains()[0]);
  EXPECT_EQ(block.tuning[2572 / 4 + 2], 0) << "a checksum that only warns lets a truncated record through";
  EXPECT_EQ(Sensor_set_mesh(nullptr, 0, 0, 0), 0);
}

}  // namespace
