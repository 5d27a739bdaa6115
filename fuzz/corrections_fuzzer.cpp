// Any phone, any tuning, and the corrections: a tuning changes only where a correction may change it, only by a record
// that is good in a second opinion, and bytes that no file gave are never among the new ones.

#include <algorithm>
#include <cstring>

#include "awb_calibration/correction.h"
#include "awb_calibration/records.h"
#include "fuzz/phone_program.h"

namespace {

using namespace fuzz;

#define CAMERA "/data/misc/camera/"

constexpr size_t kAwbTuning = 12464;
constexpr size_t kSensorTuning = 48592;
constexpr RecordForm kEightWords{.width = 4, .fuse = 12, .crc = 28, .covered = 28};
constexpr RecordForm kDualFlash{.width = 4, .fuse = 28, .crc = 44, .covered = 44};
constexpr RecordForm kLensShading{.width = 8, .fuse = 8, .crc = 3576, .covered = 3576};

// ---- a tuning and what may change in it -------------------------------------------------------------------

struct Range {
  size_t from;
  size_t to;
};

/// A tuning that a call works on, and the one that it began with. In memory of its own size, so that a byte beyond its
/// end is seen.
class Tuning {
 public:
  explicit Tuning(size_t size)
      : size_(size), before_(static_cast<uint8_t*>(malloc(size))), now_(static_cast<uint8_t*>(malloc(size))) {
    for (size_t i = 0; i < size / 4; ++i) put(4 * i, 0.5F + static_cast<float>(i % 64) / 32.0F);
    memcpy(now_, before_, size_);
  }
  uint8_t* bytes() { return now_; }
  float* floats() { return reinterpret_cast<float*>(now_); }
  void put(size_t at, float value) { memcpy(before_ + at, &value, sizeof value); }
  void put16(size_t at, uint32_t value) { memcpy(before_ + at, &value, 2); }
  void begin(size_t from, size_t to) { memcpy(now_ + from, before_ + from, to - from); }
  bool changed(Range range) const {
    return memcmp(now_ + range.from, before_ + range.from, range.to - range.from) != 0;
  }

  /// Outside the ranges nothing changed; what lies in them is said, and put back.
  void finish(std::span<const Range> ranges, Transcript& said) {
    size_t at = 0;
    for (const Range& range : ranges) {
      require(!changed({at, range.from}), "a tuning changes only where it may");
      said.add(now_ + range.from, range.to - range.from);
      memcpy(now_ + range.from, before_ + range.from, range.to - range.from);
      at = range.to;
    }
    require(!changed({at, size_}), "a tuning changes only where it may");
  }

 private:
  size_t size_;
  uint8_t* before_;
  uint8_t* now_;
};

/// Values that a tuning has, should not have, or has in no case.
float odd_value(uint8_t choice) {
  static constexpr float kValues[] = {1.0F, 0.5F, 0.0F, -1.0F, 1e30F, 1e-30F, 2.5F, __builtin_nanf("")};
  return kValues[choice % std::size(kValues)];
}

/// The awb tuning as the call's bytes make it: golden values, flash gains and the table of two LEDs.
Tuning& awb_tuning(const Call& call) {
  static Tuning tuning(kAwbTuning);
  for (size_t version = 0; version < 3; ++version) {
    tuning.put(11916 + 4 * version, odd_value(static_cast<uint8_t>(call.argument[0] + version)));
    tuning.put(12044 + 4 * version, odd_value(static_cast<uint8_t>(call.argument[0] >> 4)));
  }
  for (size_t i = 0; i < 3; ++i)
    tuning.put(12452 + 4 * i, odd_value(static_cast<uint8_t>(call.argument[1] >> i)));
  const uint32_t entries = call.argument[2] % 20;
  tuning.put16(6936, entries);
  for (uint32_t i = 0; i < 16; ++i) {
    // Both LEDs are strongest at one entry, or each at its own.
    const uint32_t peak = call.argument[3] % 16;
    const uint32_t other = call.argument[3] / 16 % 4 == 3 ? peak / 2 : peak;
    tuning.put16(6940 + 28 * i + 2, 100 - (i > peak ? i - peak : peak - i));
    tuning.put16(6940 + 28 * i + 4, call.argument[3] < 250 ? 100 - (i > other ? i - other : other - i) : 0);
  }
  tuning.begin(6936, 7388);
  tuning.begin(11916, kAwbTuning);
  return tuning;
}

// ---- second opinions --------------------------------------------------------------------------------------

struct Opinion {
  bool is_loaded;
  bool crc_good;
  bool is_accepted;
  Fuse module;
};

/// A zero first word counts in a record that came whole. The front camera's may carry the main camera's fuse ID.
Opinion opinion_of(const char* cache, size_t offset, size_t size, RecordForm form, const Fuse& fitted,
                   uint64_t first, bool front_may_be_main) {
  const Source& source = source_of(cache, kernel_export(), offset, size);
  form.zero_first_matches = form.zero_first_matches && source.count == size;
  const SecondOpinion judgement = judged(source.bytes, form, fitted);
  const bool by_main = front_may_be_main && program_camera() == 1 &&
                       (judgement.fuse == fuse_of(0) || judgement.binding == Binding::none);
  return {.is_loaded = source.file != nullptr,
          .crc_good = source.file != nullptr && judgement.crc_good,
          .is_accepted = source.file != nullptr && judgement.crc_good && judgement.is_valid(first, 3) &&
                         (judgement.is_bound() || by_main),
          .module = judgement.module};
}

Opinion awb_opinion(uint64_t first_version, bool front_may_be_main) {
  return opinion_of(of_camera(CAMERA "awb_cal", CAMERA "awb_cal_front_CAM", CAMERA "awb_cal_sub_CAM"), 0, 32,
                    kEightWords, fitted_module(), first_version, front_may_be_main);
}

// ---- the corrections --------------------------------------------------------------------------------------

void correct_reference_points(const Call& call, Transcript& said) {
  static constexpr Range kRanges[] = {{48, 168}, {12392, 12464}};
  Tuning& tuning = awb_tuning(call);
  const float golden[3] = {odd_value(call.argument[0]), odd_value(call.argument[1]), 0.75F};
  awb_calibration_set_GS(golden, golden);
  const unsigned struck = phone.struck;
  QOR_AWB_Calibration_Reference_Points_Correction(tuning.floats());
  if (is_to_be_compared(struck)) {
    const Opinion awb = awb_opinion(0, false);
    const bool points = tuning.changed({48, 168}) || tuning.changed({12392, 12452});
    const bool flash = tuning.changed({12452, 12464});
    require(!points || awb.is_accepted, "points are moved by a good record");
    require(!(points || flash) || awb.crc_good, "nothing is corrected beside a damaged record");
    const Opinion led =
        opinion_of(of_camera(CAMERA "flash_cal", CAMERA "flash_cal_front", CAMERA "flash_cal_sub_CAM"), 3648,
                   32, kEightWords, awb.module, 0, false);
    require(!flash || awb.is_accepted || led.is_accepted, "flash gains come from a good record");
  }
  tuning.finish(kRanges, said);
}

void correct_for_module(const Call& call, Transcript& said) {
  static constexpr Range kRanges[] = {{6940, 7388}, {12452, 12464}};
  Tuning& tuning = awb_tuning(call);
  float ratio[3][2] = {{-3, -3}, {-3, -3}, {-3, -3}};
  const unsigned struck = phone.struck;
  Correct_Reference_Points_qorModule(tuning.floats(), ratio[0], ratio[1], ratio[2]);
  said.add(ratio, sizeof ratio);
  if (is_to_be_compared(struck)) {
    const Opinion awb = awb_opinion(1, true);
    require(ratio[0][0] == -3 || awb.is_accepted, "ratios come from a good record");
    const Opinion led = opinion_of(of_camera(CAMERA "flash_dual_cal", CAMERA "flash_dual_cal_front_CAM",
                                             CAMERA "flash_dual_cal_sub_CAM"),
                                   3848, 48, kDualFlash, awb.module, 0, false);
    const bool flash = tuning.changed({6940, 7388}) || tuning.changed({12452, 12464});
    require(!flash || (awb.crc_good && led.is_accepted), "flash gains come from a good record");
    require(!flash || program_camera() != 2, "the sub camera has no flash");
  }
  tuning.finish(kRanges, said);
}

/// Gains of all tables but the low-light one are those of the record, where nothing softens them.
void check_meshes(Tuning& tuning, const Source& source, bool is_softened) {
  for (size_t table = is_softened ? 1 : 0; table < 4; ++table) {
    require(memcmp(tuning.bytes() + 2572 + 3540 * table + 4, source.bytes + 40, 3536) == 0,
            "meshes are the record's");
  }
}

void set_mesh(const Call& call, Transcript& said) {
  static constexpr Range kRanges[] = {{2576, 6112},   {6116, 9652},   {9656, 13192},
                                      {13196, 16732}, {16736, 20272}, {45056, 48592}};
  static Tuning tuning(kSensorTuning);
  const unsigned struck = phone.struck;
  const float bright = odd_value(call.argument[0]), low = odd_value(call.argument[1]);
  const int32_t result = Sensor_set_mesh(tuning.bytes(), 0, bright, low);
  said.add(result);
  if (is_to_be_compared(struck)) {
    const char* cache = of_camera(CAMERA "lsc_cal", CAMERA "lsc_cal_front_CAM", CAMERA "lsc_cal_sub_CAM");
    const Source& source = source_of(cache, kernel_export(), 64, 3584, 64);
    RecordForm form = kLensShading;
    form.zero_first_matches = source.count == 3584;
    const SecondOpinion judgement = judged(source.bytes, form, fitted_module());
    const bool is_good = source.count == 3584 && judgement.valid_word == 3099 && judgement.is_bound();
    require(result == (is_good ? 1 : 0), "a mesh is set by a whole, valid record of this module");
    if (is_good) check_meshes(tuning, source, bright > 0 && bright < 1);
  }
  if (result == 0) return tuning.finish({}, said);
  tuning.finish(kRanges, said);
}

/// Two tables anywhere in one block, over each other as well.
void soften(const Call& call, Transcript& said) {
  static Tuning tuning(3 * 3540);
  const size_t to = 4U * call.argument[0], from = 4U * (call.argument[1] % 250) * 7U;
  const float ratio = odd_value(call.argument[2]);
  Sensor_mesh_interpolation(tuning.bytes() + to, tuning.bytes() + from, ratio);
  require(ratio < 1.0F || !tuning.changed({to, to + 3540}) || ratio != ratio,
          "a ratio of 1 or more changes nothing");
  const Range written[] = {{to + 4, to + 3540}};
  tuning.finish(written, said);
}

void balance_pair(Transcript& said) {
  float ratios[4] = {-3, -3, -3, -3};
  const unsigned struck = phone.struck;
  Dual_Cam_Correction(&ratios[0], &ratios[1], &ratios[2], &ratios[3]);
  said.add(ratios, sizeof ratios);
  if (!is_to_be_compared(struck)) return;
  const Opinion d50 = awb_opinion(0, true);
  require((ratios[0] == 1.0F && ratios[1] == 1.0F) || d50.is_accepted, "D50 ratios come from a good record");
  RecordForm form = kEightWords;
  form.zero_first_matches = false;
  const char* cache = of_camera(CAMERA "awb_A_light_cal", CAMERA "awb_A_light_cal_front_CAM",
                                CAMERA "awb_A_light_cal_sub_CAM");
  const Opinion a_light = opinion_of(cache, 3784, 32, form, d50.module, 0, true);
  require((ratios[2] == 1.0F && ratios[3] == 1.0F) || a_light.is_accepted,
          "A-light ratios come from a good record");
}

void perform(const Call& call, Transcript& said) {
  switch (call.function % 8) {
    case 0:
    case 1:
      return correct_reference_points(call, said);
    case 2:
    case 3:
      return correct_for_module(call, said);
    case 4:
    case 5:
      return set_mesh(call, said);
    case 6:
      return soften(call, said);
    default:
      return balance_pair(said);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  run_program({data, size}, perform);
  return 0;
}
