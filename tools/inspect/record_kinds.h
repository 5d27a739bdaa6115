// The kinds of calibration records: THE table of what the tool knows about each. A new kind is a new row.
#ifndef INSPECT_RECORD_KINDS_H
#define INSPECT_RECORD_KINDS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "records/camera.h"
#include "records/judgement.h"
#include "records/record_files.h"

namespace awbcal {

enum class RecordKind {
  awb,
  a_light_awb,
  flash,
  aec,
  dual_flash,
  gyro,
  lens_shading,
  dual_camera,
  dual_camera_first_form,
  dual_camera_payload,
};

enum class FieldKind { valid_word, unity_word, signed_word, number, fuse_word, payload, gains, crc };

struct FieldSpec {
  size_t offset;
  size_t width;  ///< bytes; for a payload or gains their length
  FieldKind kind;
  const char* name;
};

/// The grid of a channel's lens-shading gains, row by row.
inline constexpr size_t kMeshColumns = 17;
inline constexpr size_t kMeshRows = 13;
static_assert(kMeshColumns * kMeshRows == calib::kMeshGains);

/// A field whose value is a run of bytes and not a number.
constexpr bool is_run_of_bytes(const FieldSpec& field) {
  return field.kind == FieldKind::payload || field.kind == FieldKind::gains;
}

/// What the bytes of a record are, where it lies, and who reads it by which rule.
struct RecordSpec {
  RecordKind kind;
  const char* id;    ///< for the command line and for JSON
  const char* name;  ///< for people
  size_t size;
  std::span<const FieldSpec> fields;
  bool is_per_camera = true;
  std::optional<uint32_t> offset = {};        ///< in its camera's slot, or in the area when not per camera
  const calib::RecordFiles* files = nullptr;  ///< null: no cache file, and not in a camera's export
  const char* phone_file = "";                ///< the one file of a kind that is not per camera
  bool is_judged = false;                     ///< its writer takes the valid mark away when out of tolerance
  bool front_may_bear_main = false;  ///< readers accept the main camera's fuse ID on the front camera
  calib::JudgementRule rule = {
      .first_version = 0, .last_version = 3, .zero_first_fuse_word_matches_any = true};

  std::optional<size_t> export_offset() const;  ///< in the kernel's export
  bool cache_is_export() const { return files != nullptr && files->cache_is_image; }
  std::string_view cache_file(
      calib::Camera camera) const;  ///< that readers open, without its folder; or empty
};

/// A path's last part.
std::string_view leaf_of(std::string_view path);

std::span<const RecordSpec> record_specs();
const RecordSpec& record_spec(RecordKind kind);
const RecordSpec* record_spec_of_id(std::string_view id);  ///< null: there is none

const FieldSpec* field_of_kind(const RecordSpec& spec, FieldKind kind);  ///< the first; null: there is none

}  // namespace awbcal

#endif
