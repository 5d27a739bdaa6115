#include "log/act.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

namespace awbcal {

namespace {

constexpr const char* kMovedPoints = "QOR_AWB_Calibration_Reference_Points_Correction";
constexpr const char* kModulePoints = "Correct_Reference_Points_qorModule";
constexpr const char* kPair = "Dual_Cam_Correction";
constexpr uint32_t kFinished = 3;

/// In the order of Deed.
constexpr DeedSpec kDeeds[] = {
    {DeedClass::correction, kMovedPoints, RecordKind::awb},
    {DeedClass::correction, kMovedPoints, RecordKind::flash},
    {DeedClass::correction, kModulePoints, RecordKind::awb, 1},
    {DeedClass::correction, kModulePoints, RecordKind::dual_flash},
    {DeedClass::correction, "Sensor_set_mesh", RecordKind::lens_shading, kFinished},
    {DeedClass::correction, kPair, RecordKind::awb},
    {DeedClass::correction, kPair, RecordKind::a_light_awb},
    {DeedClass::correction, "QOR_Calibration_AEC_get_calibration_data", RecordKind::aec},
    {DeedClass::check, "Sensor_Check_AWB_Calibration_Result", RecordKind::awb, kFinished},
    {DeedClass::check, "Sensor_Check_AEC_Calibration_Result", RecordKind::aec, kFinished},
    {DeedClass::check, "Sensor_Check_LSC_Calibration_Result", RecordKind::lens_shading, kFinished},
    {DeedClass::check, "Sensor_Check_FLASH_Calibration_Result", RecordKind::flash, kFinished},
    {DeedClass::check, "Sensor_Check_GYRO_Calibration_Result", RecordKind::gyro, kFinished},
    {DeedClass::check, "Sensor_Check_DUAL_Calibration_Result", RecordKind::dual_camera, kFinished},
    {DeedClass::writer, "aec_write_calibration", RecordKind::aec},
    {DeedClass::writer, "QOR_FLASH_Calibration_write_to_flash", RecordKind::flash},
    {DeedClass::writer, "QOR_Dual_FLASH_Calibration_write_to_flash", RecordKind::dual_flash},
    {DeedClass::writer, "gyro_write_calibration", RecordKind::gyro},
    {DeedClass::writer, "QOR_DUAL_CalibrationData_write_to_flash", RecordKind::dual_camera},
    {DeedClass::writer, "QOR_DUAL_Calibration_write_to_flash", RecordKind::dual_camera_first_form},
    {DeedClass::writer, "QOR_DUAL_Calibration_ReadCalData", RecordKind::dual_camera_payload},
    {DeedClass::run, "QOR_AWB_Calibration_write_to_flash", RecordKind::awb}};
static_assert(std::size(kDeeds) == kDeedCount);
static_assert(kDeedCount <= sizeof(Deeds) * 8);

struct Helper {
  const char* function;
  const char* caller;
};

/// Functions that log in their own name for another.
constexpr Helper kHelpers[] = {{"dual_led_correction", kModulePoints},
                               {"LCD_flash_correction", kModulePoints},
                               {"aec_read_calibration", "QOR_Calibration_AEC_get_calibration_data"},
                               {"aec_read_calibration", "Sensor_Check_AEC_Calibration_Result"}};

Deeds of_function(std::string_view name) {
  Deeds result = 0;
  for (size_t i = 0; i < kDeedCount; ++i) {
    if (kDeeds[i].function == name) result |= deeds(static_cast<Deed>(i));
  }
  return result;
}

std::map<std::string_view, Deeds> by_name() {
  std::map<std::string_view, Deeds> result;
  for (const DeedSpec& spec : kDeeds) result[spec.function] = of_function(spec.function);
  for (const auto& [function, caller] : kHelpers) result[function] |= of_function(caller);
  return result;
}

/// What all candidates have in common; null: nothing.
template <class Value>
const Value* common(Deeds candidates, const Value* (*of)(const DeedSpec&)) {
  const Value* result = nullptr;
  for (size_t i = 0; i < kDeedCount; ++i) {
    if (!has(candidates, i)) continue;
    const Value* value = of(kDeeds[i]);
    if (result != nullptr && result != value) return nullptr;
    result = value;
  }
  return result;
}

/// Where the first fuse word stands among the 32-bit words of the record; 0: it has 64-bit ones, or bytes.
size_t fuse_index(const RecordSpec* spec) {
  if (spec == nullptr) return 0;
  switch (spec->kind) {
    case RecordKind::awb:
    case RecordKind::a_light_awb:
    case RecordKind::flash:
      return 3;
    case RecordKind::aec:
      return 4;
    case RecordKind::dual_flash:
      return 7;
    default:
      return 0;
  }
}

}  // namespace

const DeedSpec& spec_of(Deed deed) {
  return kDeeds[static_cast<size_t>(deed)];
}

Deeds deeds_of_function(std::string_view name) {
  static const std::map<std::string_view, Deeds> kByName = by_name();
  const auto known = kByName.find(name);
  return known == kByName.end() ? 0 : known->second;
}

Deed Act::deed() const {
  return static_cast<Deed>(std::countr_zero(candidates));
}

const char* Act::function() const {
  return common<char>(candidates, [](const DeedSpec& spec) { return spec.function; });
}

const RecordSpec* Act::record() const {
  return common<RecordSpec>(candidates, [](const DeedSpec& spec) { return &record_spec(spec.kind); });
}

std::optional<uint64_t> Act::known_valid_word() const {
  if (valid_word) return valid_word;
  return words[0] ? std::optional<uint64_t>(*words[0]) : std::nullopt;
}

std::optional<calib::FuseWords> Act::known_fuse() const {
  calib::FuseWords result{};
  const size_t first = fuse_index(record());
  for (size_t i = 0; i < result.size(); ++i) {
    if (fuse[i]) {
      result[i] = *fuse[i];
    } else if (first != 0 && words[first + i]) {
      result[i] = *words[first + i];
    } else {
      return std::nullopt;
    }
  }
  return result;
}

std::optional<calib::FuseWords> Act::known_module() const {
  calib::FuseWords result{};
  for (size_t i = 0; i < result.size(); ++i) {
    if (!module[i]) return std::nullopt;
    result[i] = *module[i];
  }
  return result;
}

std::optional<std::vector<uint8_t>> Act::bytes() const {
  const RecordSpec* spec = record();
  const size_t first_fuse = fuse_index(spec);
  if (first_fuse == 0) return std::nullopt;
  const size_t word_count = spec->size / sizeof(uint32_t);
  std::vector<uint8_t> result(spec->size);
  for (size_t i = 0; i < word_count; ++i) {
    std::optional<uint32_t> word = words[i];
    const size_t at = i - first_fuse;
    if (!word && at < fuse.size() && fuse[at]) word = static_cast<uint32_t>(*fuse[at]);
    if (!word && i == 0 && valid_word) word = static_cast<uint32_t>(*valid_word);
    if (!word && i + 1 == word_count && stored_crc) word = static_cast<uint32_t>(*stored_crc);
    if (!word) return std::nullopt;
    memcpy(result.data() + i * sizeof *word, &*word, sizeof *word);
  }
  return result;
}

}  // namespace awbcal
