#include "inspect/record_kinds.h"

#include <algorithm>
#include <array>

#include "records/record_layouts.h"

namespace awbcal {

namespace {

using enum FieldKind;

// ---- fields: their places are taken from the library's own layout -----------------------------------------

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
                                          ELEMENT(DualFlashRecord, x1, 0, signed_word, "LED 1 R gain"),
                                          ELEMENT(DualFlashRecord, x1, 1, signed_word, "LED 1 B gain"),
                                          ELEMENT(DualFlashRecord, x2, 0, signed_word, "LED 2 R gain"),
                                          ELEMENT(DualFlashRecord, x2, 1, signed_word, "LED 2 B gain"),
                                          ELEMENT(DualFlashRecord, x3, 0, signed_word, "both R gain"),
                                          ELEMENT(DualFlashRecord, x3, 1, signed_word, "both B gain"),
                                          FUSE_WORDS(DualFlashRecord),
                                          FIELD(DualFlashRecord, crc, crc, "CRC")};

constexpr FieldSpec kGyroFields[] = {FIELD(GyroRecord, valid_word, valid_word, "valid word"),
                                     FUSE_WORDS(GyroRecord), FIELD(GyroRecord, crc, crc, "CRC")};

constexpr FieldSpec kLensShadingFields[] = {FIELD(LensShadingRecord, valid_word, valid_word, "valid word"),
                                            FUSE_WORDS(LensShadingRecord),
                                            ELEMENT(LensShadingRecord, gains, 0, gains, "channel 1"),
                                            ELEMENT(LensShadingRecord, gains, 1, gains, "channel 2"),
                                            ELEMENT(LensShadingRecord, gains, 2, gains, "channel 3"),
                                            ELEMENT(LensShadingRecord, gains, 3, gains, "channel 4"),
                                            FIELD(LensShadingRecord, crc, crc, "CRC")};

// Its words are not aligned, so the layout has them as bytes.
constexpr size_t kDualCameraFuse = offsetof(calib::DualCameraRecord, fuse);
constexpr FieldSpec kDualCameraFields[] = {FIELD(DualCameraRecord, valid_word, valid_word, "valid word"),
                                           FIELD(DualCameraRecord, payload, payload, "payload"),
                                           {kDualCameraFuse, 4, fuse_word, "fuse word 1"},
                                           {kDualCameraFuse + 4, 4, fuse_word, "fuse word 2"},
                                           {kDualCameraFuse + 8, 4, fuse_word, "fuse word 3"},
                                           {kDualCameraFuse + 12, 4, fuse_word, "fuse word 4"},
                                           FIELD(DualCameraRecord, crc, crc, "CRC")};

constexpr FieldSpec kFirstFormFields[] = {FIELD(DualCameraFirstFormRecord, payload, payload, "payload"),
                                          FIELD(DualCameraFirstFormRecord, crc_low, crc, "CRC, low byte")};

constexpr FieldSpec kPayloadFields[] = {{0, calib::kDualCameraPayload, payload, "payload"}};

#undef FIELD
#undef ELEMENT
#undef FUSE_WORDS

// ---- the table --------------------------------------------------------------------------------------------

// The result checks of these know one finished version only.
constexpr calib::JudgementRule kFinishedVersion{
    .first_version = 3, .last_version = 3, .zero_first_fuse_word_matches_any = true};
constexpr calib::JudgementRule kFinishedVersionAllWords{
    .first_version = 3, .last_version = 3, .zero_first_fuse_word_matches_any = false};

/// In the order of RecordKind.
constexpr std::array kRecords = {
    RecordSpec{.kind = RecordKind::awb,
               .id = "awb",
               .name = "AWB record",
               .size = sizeof(calib::AwbRecord),
               .fields = kAwbFields,
               .offset = calib::kSlotAwb,
               .files = &calib::kAwbFiles,
               .is_judged = true,
               .front_may_bear_main = true},
    RecordSpec{.kind = RecordKind::a_light_awb,
               .id = "a_light_awb",
               .name = "A-light AWB record",
               .size = sizeof(calib::AwbRecord),
               .fields = kAwbFields,
               .offset = calib::kSlotALightAwb,
               .files = &calib::kALightAwbFiles,
               .is_judged = true,
               .front_may_bear_main = true},
    RecordSpec{.kind = RecordKind::flash,
               .id = "flash",
               .name = "flash record",
               .size = sizeof(calib::FlashRecord),
               .fields = kFlashFields,
               .offset = calib::kSlotFlash,
               .files = &calib::kFlashFiles},
    RecordSpec{.kind = RecordKind::aec,
               .id = "aec",
               .name = "AEC record",
               .size = sizeof(calib::AecRecord),
               .fields = kAecFields,
               .offset = calib::kSlotAec,
               .files = &calib::kAecFiles},
    RecordSpec{.kind = RecordKind::dual_flash,
               .id = "dual_flash",
               .name = "dual-flash record",
               .size = sizeof(calib::DualFlashRecord),
               .fields = kDualFlashFields,
               .offset = calib::kSlotDualFlash,
               .files = &calib::kDualFlashFiles},
    RecordSpec{.kind = RecordKind::gyro,
               .id = "gyro",
               .name = "gyro record",
               .size = sizeof(calib::GyroRecord),
               .fields = kGyroFields,
               .offset = calib::kSlotGyro,
               .files = &calib::kGyroFiles,
               .rule = kFinishedVersionAllWords},
    RecordSpec{.kind = RecordKind::lens_shading,
               .id = "lens_shading",
               .name = "lens-shading record",
               .size = sizeof(calib::LensShadingRecord),
               .fields = kLensShadingFields,
               .files = &calib::kLensShadingFiles,
               .rule = kFinishedVersion},
    RecordSpec{.kind = RecordKind::dual_camera,
               .id = "dual_camera",
               .name = "dual-camera record",
               .size = sizeof(calib::DualCameraRecord),
               .fields = kDualCameraFields,
               .is_per_camera = false,
               .offset = calib::kAreaDualCamera,
               .rule = kFinishedVersion},
    RecordSpec{.kind = RecordKind::dual_camera_first_form,
               .id = "dual_camera_first_form",
               .name = "dual-camera record, first form",
               .size = sizeof(calib::DualCameraFirstFormRecord),
               .fields = kFirstFormFields,
               .is_per_camera = false,
               .offset = calib::kAreaDualCameraFirstForm},
    RecordSpec{.kind = RecordKind::dual_camera_payload,
               .id = "dual_camera_payload",
               .name = "dual-camera payload",
               .size = calib::kDualCameraPayload,
               .fields = kPayloadFields,
               .is_per_camera = false,
               .phone_file = "CalibrationData.dat"},
};
static_assert([] {
  for (size_t i = 0; i < kRecords.size(); ++i) {
    if (kRecords[i].kind != static_cast<RecordKind>(i)) return false;
  }
  return true;
}());

}  // namespace

std::optional<size_t> RecordSpec::export_offset() const {
  return files == nullptr ? std::nullopt : std::optional(files->export_offset);
}

std::string_view leaf_of(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

std::string_view RecordSpec::cache_file(calib::Camera camera) const {
  return files == nullptr ? std::string_view(phone_file) : leaf_of(files->read.of(camera));
}

std::span<const RecordSpec> record_specs() {
  return kRecords;
}

const RecordSpec& record_spec(RecordKind kind) {
  return kRecords.at(static_cast<size_t>(kind));
}

const RecordSpec* record_spec_of_id(std::string_view id) {
  const auto found =
      std::find_if(kRecords.begin(), kRecords.end(), [id](const RecordSpec& spec) { return id == spec.id; });
  return found == kRecords.end() ? nullptr : &*found;
}

const FieldSpec* field_of_kind(const RecordSpec& spec, FieldKind kind) {
  const auto found = std::find_if(spec.fields.begin(), spec.fields.end(),
                                  [kind](const FieldSpec& field) { return field.kind == kind; });
  return found == spec.fields.end() ? nullptr : &*found;
}

}  // namespace awbcal
