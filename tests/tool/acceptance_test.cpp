// Is what verify says of a record's acceptance what a camera start then does with it? Guards against an answer
// that was asked of another phone than the one that is explained: without the record that a reader needs first,
// from another source, or with another module.

#include "awb_calibration/correction.h"
#include "run/explanation.h"
#include "run/verification.h"
#include "tests/support/random_phone.h"

namespace {

using namespace tool;
using awbcal::RecordKind;
using calib::Camera;

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
