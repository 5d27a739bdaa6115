#include "demo/fleet_model.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "demo/factory_line.h"
#include "demo/reference_lights.h"
#include "factory/run_arithmetic.h"
#include "records/judgement.h"
#include "records/record_layouts.h"
#include "run/verification.h"

namespace awbcal {

namespace {

using calib::Camera;

constexpr std::array kFaultNames = {"none", "off", "damaged", "erased", "cut", "copied", "stuck", "outdated"};
constexpr size_t kFaults = kFaultNames.size() - 1;

/// Numbers that depend on the plan's seed, the unit and what they are for, and on nothing that was drawn before.
Noise noise_of(const FleetPlan& plan, size_t number, uint64_t purpose) {
  return Noise((plan.seed * 1000003 + number) * 16 + purpose);
}

enum Purpose : uint64_t { kFaultOf, kModuleOf, kRatiosOf };

UnitFault fault_of(const FleetPlan& plan, size_t number) {
  Noise noise = noise_of(plan, number, kFaultOf);
  constexpr double kWords = 4294967296.0;
  if (noise.word() / kWords * 100.0 >= plan.bad) return UnitFault::none;
  return static_cast<UnitFault>(1 + noise.word() % kFaults);
}

/// The unit whose measurement of the main camera was stored in this one.
size_t measured_unit(const FleetPlan& plan, size_t number) {
  for (size_t back = 0; back < kStuckUnits && back <= number; ++back) {
    if (fault_of(plan, number - back) == UnitFault::stuck) return number - back;
  }
  return number;
}

int64_t time_of_unit(const FleetPlan& plan, size_t number) {
  constexpr int64_t kDay = 24 * 60 * 60;
  return kFirstDay + static_cast<int64_t>(static_cast<double>(number) / static_cast<double>(plan.units) *
                                          static_cast<double>(kFleetDays * kDay));
}

ModuleDeviation deviation_of(const FleetPlan& plan, size_t number, Noise& noise) {
  const auto day = static_cast<double>((time_of_unit(plan, number) - kFirstDay) / (24 * 60 * 60));
  const double drift = 1.0 + plan.drift / 100.0 * day;
  const double rg = noise();
  const double bg = noise();
  return {.rg = (1.0 + plan.spread / 100.0 * rg) * drift, .bg = (1.0 + plan.spread / 100.0 * bg) * drift};
}

uint32_t word_of(double ratio) {
  return static_cast<uint32_t>(std::clamp(ratio * 1024.0, 1.0, 65535.0));
}

class UnitImage {
 public:
  UnitImage(const FleetPlan& plan, size_t number) : bytes_(size_t{4} * calib::kSlotSize) {
    Noise noise = noise_of(plan, number, kModuleOf);
    for (calib::FuseWords& module : modules_) {
      for (auto& word : module) word = static_cast<std::remove_reference_t<decltype(word)>>(noise.word());
    }
  }

  template <class Record>
  void put(Camera camera, size_t offset, Record record) {
    std::copy(module(camera).begin(), module(camera).end(), record.fuse);
    calib::seal(record);
    std::memcpy(&bytes_[static_cast<size_t>(camid_of(camera)) * calib::kSlotSize + offset], &record,
                sizeof record);
  }

  /// As the factory run does: beyond the limit the record loses its valid mark. False: it is beyond.
  bool put_awb(Camera camera, size_t offset, const Light& light, const ModuleDeviation& module,
               uint32_t version) {
    calib::AwbRecord record{};
    record.rg = word_of(light.rg * module.rg);
    record.bg = word_of(light.bg * module.bg);
    const bool is_kept = calib::margin_of(calib::ratios_of(record.rg, record.bg), light.golden(),
                                          calib::tolerance_of(kTolerancePercent))
                             .is_kept();
    record.valid_word = version * calib::kVersionUnit + (is_kept ? calib::kValidMark : 0);
    put(camera, offset, record);
    return is_kept;
  }

  Bytes& bytes() { return bytes_; }

 private:
  const calib::FuseWords& module(Camera camera) const {
    return modules_[static_cast<size_t>(camid_of(camera))];
  }

  Bytes bytes_;
  std::array<calib::FuseWords, 3> modules_{};
};

/// The records that do not lie over each other; all of them good but for the AWB records. False: one of those is out
/// of tolerance.
bool put_records(UnitImage& image, const FleetPlan& plan, size_t number, UnitFault fault) {
  Noise noise = noise_of(plan, number, kRatiosOf);
  Noise measured = noise_of(plan, measured_unit(plan, number), kRatiosOf);
  constexpr double kFarOff = 1.4;
  constexpr uint32_t kVersion = 3;
  ModuleDeviation main = deviation_of(plan, measured_unit(plan, number), measured);
  if (fault == UnitFault::off) main.rg *= kFarOff;
  const ModuleDeviation main_a_light = deviation_of(plan, number, noise);
  const ModuleDeviation front = deviation_of(plan, number, noise);
  const ModuleDeviation sub = deviation_of(plan, number, noise);
  bool are_kept = image.put_awb(Camera::main, calib::kSlotAwb, kNormalLight, main,
                                fault == UnitFault::outdated ? kVersion - 1 : kVersion);
  are_kept &= image.put_awb(Camera::main, calib::kSlotALightAwb, kALight, main_a_light, kVersion);
  are_kept &= image.put_awb(Camera::front, calib::kSlotAwb, kNormalLight, front, kVersion);
  are_kept &= image.put_awb(Camera::sub, calib::kSlotAwb, kNormalLight, sub, kVersion);
  image.put(Camera::main, calib::kSlotAec,
            calib::AecRecord{.valid_word = calib::kFinishedValidWord,
                             .gain = 256,
                             .exp_time = 12000 + noise.word() % 2000,
                             .luma_value = 48 + noise.word() % 5,
                             .fuse = {},
                             .crc = 0});
  calib::GyroRecord gyro{};
  gyro.valid_word = calib::kFinishedValidWord;
  image.put(Camera::front, calib::kSlotGyro, gyro);
  return are_kept;
}

void damage(Bytes& image, UnitFault fault) {
  constexpr size_t kCut = 20;
  if (fault == UnitFault::damaged) image[calib::kSlotAwb + offsetof(calib::AwbRecord, rg)] ^= 1;
  if (fault == UnitFault::erased) std::ranges::fill(image, uint8_t{0xFF});
  if (fault == UnitFault::cut) image.resize(kCut);
}

std::string result_of(UnitFault fault, bool is_out_of_limit) {
  if (fault == UnitFault::cut) return "ERROR";
  if (fault == UnitFault::erased) return outcome_name(Outcome::nothing_to_judge);
  const bool fails = is_out_of_limit || fault == UnitFault::damaged;
  return outcome_name(fails ? Outcome::fail : Outcome::pass);
}

}  // namespace

const char* unit_fault_name(UnitFault fault) {
  return kFaultNames.at(static_cast<size_t>(fault));
}

FleetUnit make_unit(const FleetPlan& plan, size_t number) {
  const UnitFault fault = fault_of(plan, number);
  UnitImage image(plan, fault == UnitFault::copied && number > 0 ? number - 1 : number);
  const bool is_out_of_limit = !put_records(image, plan, number, fault);
  damage(image.bytes(), fault);
  return {.name = fmt::format("unit-{:07}.img", number),
          .time = time_of_unit(plan, number),
          .image = std::move(image.bytes()),
          .fault = fault,
          .result = result_of(fault, is_out_of_limit),
          .is_out_of_limit = is_out_of_limit};
}

std::string fleet_limits_text() {
  std::string text = "camera,light,golden_rg,golden_bg,threshold\n";
  for (const Camera camera : kCameras) {
    for (const Light& light : {kNormalLight, kALight}) {
      text += fmt::format("{},{},{},{},{}\n", camera_name(camera), light.is_a_light ? "a_light" : "normal",
                          light.rg, light.bg, kTolerancePercent);
    }
  }
  return text;
}

}  // namespace awbcal
