// Is what verify says of a record's acceptance what a camera start then does with it? Guards against an answer
// that was asked of another phone than the one that is explained: without the record that a reader needs first,
// from another source, or with another module.

#include <random>

#include "awb_calibration/correction.h"
#include "run/explanation.h"
#include "run/verification.h"
#include "tests/support/tool_support.h"

namespace {

using namespace tool;
using awbcal::RecordKind;
using calib::Camera;

constexpr calib::FuseWords kFitted = {kModule[0], kModule[1], kModule[2], kModule[3]};
constexpr calib::FuseWords kOther = {11, 12, 13, 14};

/// A phone whose records are there or missing, good, damaged, of another module or another kind, in every source.
class RandomPhone {
 public:
  RandomPhone(const fs::path& dir, unsigned seed) : dir_(dir), random_(seed) {
    std::string properties = "ro.pagesize=4096\n";
    for (const Camera camera : awbcal::kCameras) {
      for (size_t i = 0; i < kFitted.size(); ++i) {
        properties += "qor.camera.sensor." + std::string(awbcal::camera_name(camera)) + "_fuse" +
                      std::to_string(i + 1) + "=" + std::to_string(kFitted[i]) + "\n";
      }
    }
    support::write_bytes(dir_ / "properties", Bytes(properties.begin(), properties.end()));
    for (const Camera camera : awbcal::kCameras) add_camera(camera);
    support::write_bytes(dir_ / "mfg.img", partition_);
  }

 private:
  bool chance(unsigned percent) { return random_() % 100 < percent; }

  void add_camera(Camera camera) {
    Bytes node(calib::kExportSize);
    Bytes slot(calib::kSlotSize);
    for (const awbcal::RecordSpec& spec : awbcal::record_specs()) {
      if (!spec.is_per_camera || !spec.export_offset()) continue;
      if (chance(60)) put(node, *spec.export_offset(), record(spec.kind, spec.size));
      if (spec.offset && chance(60)) put(slot, *spec.offset, record(spec.kind, spec.size));
      if (chance(50)) add_cache(spec, camera);
    }
    if (chance(80)) support::write_bytes(dir_ / std::string(calib::kExportNode.of(camera)).substr(1), node);
    put(partition_, 0x20000 + calib::kSlotSize * static_cast<size_t>(camera), slot);
  }

  void add_cache(const awbcal::RecordSpec& spec, Camera camera) {
    Bytes bytes = record(spec.kind, spec.size);
    if (spec.cache_is_export()) {
      Bytes image(calib::kExportSize);
      put(image, *spec.export_offset(), bytes);
      bytes = image;
    }
    if (chance(10)) bytes.resize(random_() % bytes.size());
    support::write_bytes(dir_ / "data/misc/camera" / std::string(spec.cache_file(camera)), bytes);
  }

  /// Of `size` bytes, though it may be of another kind.
  Bytes record(RecordKind kind, size_t size) {
    const calib::FuseWords fuse = chance(15) ? kOther : chance(15) ? calib::FuseWords{} : kFitted;
    Bytes bytes = good_record(chance(5) ? RecordKind::aec : kind, fuse);
    bytes.resize(size);
    if (chance(12)) bytes[random_() % bytes.size()] ^= static_cast<uint8_t>(1U << random_() % 8);
    if (chance(5)) bytes.assign(size, chance(50) ? 0x00 : 0xFF);
    return bytes;
  }

  Bytes good_record(RecordKind kind, const calib::FuseWords& fuse) {
    const uint32_t words[4] = {static_cast<uint32_t>(fuse[0]), static_cast<uint32_t>(fuse[1]),
                               static_cast<uint32_t>(fuse[2]), static_cast<uint32_t>(fuse[3])};
    constexpr uint32_t kValidWords[] = {3099, 3099, 3099, 2099, 1099, 99, 3000, 4099};
    const uint32_t valid = kValidWords[random_() % std::size(kValidWords)];
    if (kind == RecordKind::lens_shading) return awbcal::make_lens_shading_record(fuse, 1.5);
    if (kind == RecordKind::gyro) return gyro(words);
    if (kind == RecordKind::aec) return aec(words);
    if (kind == RecordKind::dual_flash) return dual_flash(words);
    const auto ratio = [this] { return static_cast<uint32_t>(300 + random_() % 600); };
    return awb(valid, ratio(), ratio(), words);
  }

  fs::path dir_;
  std::mt19937 random_;
  Bytes partition_ = Bytes(0x30000);
};

/// Whether the tuning's flash gains are those of the two words at `offset`.
bool gives_flash_gains(const Bytes& record, size_t offset, const awbcal::TuningBlock& tuning) {
  constexpr size_t kFlash = calib::kLedFlashWhiteBalance;
  const auto gain = [&record](size_t at) {
    return static_cast<float>(support::word_at(record, at) / 1024.0);
  };
  return record.size() >= offset + 8 && tuning[kFlash] == gain(offset) &&
         tuning[kFlash + 2] == gain(offset + 4);
}

/// Whether the start left a trace of the record: in the tuning, or in what it hands out.
bool is_applied(RecordKind kind, std::string_view function, const awbcal::Explanation& story,
                const Bytes& record) {
  const awbcal::CameraTuning& before = story.before;
  const awbcal::CameraTuning& after = story.after;
  constexpr size_t kPoint = calib::kReferencePoints;
  switch (kind) {
    case RecordKind::awb:
      if (function == "Correct_Reference_Points_qorModule") return before.module_ratio != after.module_ratio;
      if (function == "Dual_Cam_Correction") return before.pair[0] != after.pair[0];
      return before.moved[kPoint] != after.moved[kPoint];
    case RecordKind::a_light_awb:
      return before.pair[2] != after.pair[2];
    case RecordKind::flash:
      return gives_flash_gains(record, 4, after.moved);
    case RecordKind::aec:
      return before.exposure != after.exposure;
    case RecordKind::dual_flash:
      return gives_flash_gains(record, 20, after.own_golden);
    default:
      return !(before.mesh == after.mesh);
  }
}

class Acceptance : public ToolTest {
 protected:
  size_t accepted_ = 0;
  size_t not_accepted_ = 0;

  /// The record that the loaders open first.
  static Bytes opened(const awbcal::Phone& phone, const awbcal::RecordSpec& spec, Camera camera) {
    using awbcal::Source;
    for (const Source source : {Source::cache, Source::kernel_export, Source::file}) {
      if (const awbcal::FoundRecord* record = phone.find(spec, camera, source)) return record->bytes;
    }
    return {};
  }

  void compare(const awbcal::Phone& phone, Camera camera) {
    const awbcal::Modules modules = awbcal::modules_of(phone);
    const awbcal::Verification verification = awbcal::verify(phone, {.modules = modules});
    const awbcal::Explanation story =
        awbcal::explain(phone, {.camera = camera, .modules = modules, .golden = {0.91F, 0.41F}});
    for (const awbcal::VerifiedRecord& verified : verification.records) {
      if (verified.verdict.camera != camera) continue;
      const awbcal::RecordSpec& spec = *verified.verdict.spec;
      for (const auto& [reader, acceptance] : verified.answers) {
        if (reader->effect == nullptr) continue;
        const bool is_accepted = acceptance == awbcal::Acceptance::accepted;
        EXPECT_EQ(is_accepted, is_applied(spec.kind, reader->function, story, opened(phone, spec, camera)))
            << spec.id << " " << awbcal::camera_name(camera) << " " << reader->function;
        ++(is_accepted ? accepted_ : not_accepted_);
      }
    }
  }
};

TEST_F(Acceptance, IsWhatTheStartThenDoes) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    const fs::path dir = path("phone");
    fs::remove_all(dir);
    const RandomPhone made(dir, seed);
    // Every fourth is a partition alone, which the kernel exports.
    const bool is_image = seed % 4 == 3;
    const awbcal::Phone phone = awbcal::open_phone_of(
        {.paths = {(is_image ? dir / "mfg.img" : dir).string()}, .base = calib::kAreaBase4k});
    compare(phone, awbcal::kCameras[seed % 3]);
  }
  EXPECT_GT(accepted_, 200U) << "phones on which nothing is good compare nothing";
  EXPECT_GT(not_accepted_, 200U);
}

}  // namespace
