#include "tools/decode.h"

#include <fmt/format.h>

#include <array>

#include "records/judgement.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace {

using enum FieldKind;

// A field of a record, its place taken from the library's own layout.
#define FIELD(RECORD, MEMBER, KIND, NAME)                                      \
  FieldSpec {                                                                  \
    offsetof(calib::RECORD, MEMBER), sizeof(calib::RECORD::MEMBER), KIND, NAME \
  }
#define ELEMENT(RECORD, MEMBER, INDEX, KIND, NAME)                                \
  FieldSpec {                                                                     \
    offsetof(calib::RECORD, MEMBER) + (INDEX) * sizeof(calib::RECORD::MEMBER[0]), \
        sizeof(calib::RECORD::MEMBER[0]), KIND, NAME                              \
  }
#define FUSE_WORDS(RECORD)                                                                                \
  ELEMENT(RECORD, fuse, 0, fuse_word, "fuse word 1"), ELEMENT(RECORD, fuse, 1, fuse_word, "fuse word 2"), \
      ELEMENT(RECORD, fuse, 2, fuse_word, "fuse word 3"), ELEMENT(RECORD, fuse, 3, fuse_word, "fuse word 4")

constexpr FieldSpec kAwbFields[] = {
    FIELD(AwbRecord, valid_word, valid_word, "valid word"), FIELD(AwbRecord, rg, unity_word, "R/G"),
    FIELD(AwbRecord, bg, unity_word, "B/G"), FUSE_WORDS(AwbRecord), FIELD(AwbRecord, crc, crc, "CRC")};

constexpr FieldSpec kFlashFields[] = {FIELD(FlashRecord, valid_word, valid_word, "valid word"),
                                      FIELD(FlashRecord, x, signed_word, "R gain"),
                                      FIELD(FlashRecord, y, signed_word, "B gain"), FUSE_WORDS(FlashRecord),
                                      FIELD(FlashRecord, crc, crc, "CRC")};

constexpr FieldSpec kAecFields[] = {FIELD(AecRecord, valid_word, valid_word, "valid word"),
                                    FIELD(AecRecord, gain, number, "gain"),
                                    FIELD(AecRecord, exp_time, number, "exposure time"),
                                    FIELD(AecRecord, luma_value, number, "luma"),
                                    FUSE_WORDS(AecRecord),
                                    FIELD(AecRecord, crc, crc, "CRC")};

constexpr FieldSpec kDualFlashFields[] = {FIELD(DualFlashRecord, valid_word, valid_word, "valid word"),
                                          ELEMENT(DualFlashRecord, x1, 0, signed_word, "LED 1, R gain"),
                                          ELEMENT(DualFlashRecord, x1, 1, signed_word, "LED 1, B gain"),
                                          ELEMENT(DualFlashRecord, x2, 0, signed_word, "LED 2, R gain"),
                                          ELEMENT(DualFlashRecord, x2, 1, signed_word, "LED 2, B gain"),
                                          ELEMENT(DualFlashRecord, x3, 0, signed_word, "both, R gain"),
                                          ELEMENT(DualFlashRecord, x3, 1, signed_word, "both, B gain"),
                                          FUSE_WORDS(DualFlashRecord),
                                          FIELD(DualFlashRecord, crc, crc, "CRC")};

constexpr FieldSpec kGyroFields[] = {FIELD(GyroRecord, valid_word, valid_word, "valid word"),
                                     FUSE_WORDS(GyroRecord), FIELD(GyroRecord, crc, crc, "CRC")};

// Its words are not aligned, so the layout has them as bytes.
constexpr size_t kDualCameraFuse = offsetof(calib::DualCameraRecord, fuse);
constexpr FieldSpec kDualCameraFields[] = {FIELD(DualCameraRecord, valid_word, valid_word, "valid word"),
                                           FIELD(DualCameraRecord, payload, payload, "payload"),
                                           {kDualCameraFuse, 4, fuse_word, "fuse word 1"},
                                           {kDualCameraFuse + 4, 4, fuse_word, "fuse word 2"},
                                           {kDualCameraFuse + 8, 4, fuse_word, "fuse word 3"},
                                           {kDualCameraFuse + 12, 4, fuse_word, "fuse word 4"},
                                           FIELD(DualCameraRecord, crc, crc, "CRC")};

#undef FIELD
#undef ELEMENT
#undef FUSE_WORDS

/// In the order of RecordKind.
constexpr std::array<RecordSpec, 7> kRecords = {{
    {RecordKind::awb, "AWB record", calib::kSlotAwb, true, sizeof(calib::AwbRecord), kAwbFields},
    {RecordKind::a_light_awb, "A-light AWB record", calib::kSlotALightAwb, true, sizeof(calib::AwbRecord),
     kAwbFields},
    {RecordKind::flash, "flash record", calib::kSlotFlash, true, sizeof(calib::FlashRecord), kFlashFields},
    {RecordKind::aec, "AEC record", calib::kSlotAec, true, sizeof(calib::AecRecord), kAecFields},
    {RecordKind::dual_flash, "dual-flash record", calib::kSlotDualFlash, true, sizeof(calib::DualFlashRecord),
     kDualFlashFields},
    {RecordKind::gyro, "gyro record", calib::kSlotGyro, true, sizeof(calib::GyroRecord), kGyroFields},
    {RecordKind::dual_camera, "dual-camera record", calib::kAreaDualCamera, false,
     sizeof(calib::DualCameraRecord), kDualCameraFields},
}};
static_assert([] {
  for (size_t i = 0; i < kRecords.size(); ++i) {
    if (kRecords[i].kind != static_cast<RecordKind>(i)) return false;
  }
  return true;
}());

std::string value_text(const FieldSpec& field, uint64_t value) {
  switch (field.kind) {
    case fuse_word:
    case crc:
      return fmt::format("0x{:08x}", value);
    case signed_word:
      return fmt::format("{}", static_cast<int32_t>(value));
    case payload:
      return fmt::format("{} bytes", field.width);
    default:
      return fmt::format("{}", value);
  }
}

std::string meaning_text(const FieldSpec& field, uint64_t value) {
  switch (field.kind) {
    case valid_word:
      return fmt::format("version {}, {}", value / calib::kVersionUnit,
                         value % calib::kVersionUnit == calib::kValidMark ? "calibrated" : "not valid");
    case unity_word:
      return fmt::format("{:.4f}", static_cast<double>(value) / calib::kUnityWord);
    case signed_word:
      return fmt::format("{:.4f}", static_cast<int32_t>(value) / double{calib::kUnityWord});
    default:
      return "";
  }
}

}  // namespace

const RecordSpec& record_spec(RecordKind kind) {
  return kRecords.at(static_cast<size_t>(kind));
}

uint32_t area_base(const std::string& page_size) {
  return page_size == "4096" ? calib::kAreaBase4k : calib::kAreaBase2k;
}

uint32_t area_offset(const RecordSpec& spec, int camid) {
  return spec.offset + (spec.is_per_camera ? static_cast<uint32_t>(camid) * calib::kSlotSize : 0);
}

uint64_t field_value(std::span<const uint8_t> record, const FieldSpec& field) {
  if (field.kind == payload) return 0;
  uint64_t value = 0;
  const auto bytes = record.subspan(field.offset, field.width);
  for (size_t i = bytes.size(); i-- > 0;) value = value << 8 | bytes[i];
  return value;
}

std::vector<Field> decode(const RecordSpec& spec, std::span<const uint8_t> record) {
  std::vector<Field> fields;
  for (const FieldSpec& field : spec.fields) {
    const uint64_t value = field_value(record, field);
    fields.push_back({field.offset, field.name, value_text(field, value), meaning_text(field, value)});
  }
  return fields;
}

}  // namespace awbcal
