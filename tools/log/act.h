// What the library did, as far as its log tells: one correction's work on one record, a result check, a writer, a
// calibration run.
#ifndef LOG_ACT_H
#define LOG_ACT_H

#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/record_kinds.h"

namespace awbcal {

enum class Deed : uint8_t {
  // a camera start, a record each
  moved_points,
  moved_points_flash,
  module_points,
  module_points_flash,
  mesh,
  pair_normal_light,
  pair_a_light,
  exposure,
  // result checks
  check_awb,
  check_aec,
  check_lens_shading,
  check_flash,
  check_gyro,
  check_dual_camera,
  // writers
  write_aec,
  write_flash,
  write_dual_flash,
  write_gyro,
  write_dual_camera,
  write_dual_camera_first_form,
  read_dual_camera,
  run,
};
inline constexpr size_t kDeedCount = static_cast<size_t>(Deed::run) + 1;

enum class DeedClass { correction, check, writer, run };

struct DeedSpec {
  DeedClass of;
  const char* function;
  RecordKind kind;
  uint32_t first_version = 0;  ///< of the light source, that a reader accepts
};
const DeedSpec& spec_of(Deed deed);

/// Those that a line can belong to.
using Deeds = uint32_t;
template <class... Each>
constexpr Deeds deeds(Each... each) {
  return (Deeds{0} | ... | (Deeds{1} << static_cast<size_t>(each)));
}
constexpr bool has(Deeds among, size_t deed) {
  return (among >> deed & 1) != 0;
}
/// Those of a function, or of one that works for it; none: the name says nothing.
Deeds deeds_of_function(std::string_view name);

enum class TakenFrom : uint8_t { cache_file, kernel_export, nowhere };

/// Lost lines leave fields empty; an act may even be one of several.
struct Act {
  Deeds candidates = 0;
  uint32_t process;  ///< index in LogStory::processes
  uint64_t first_line;
  uint64_t last_line;
  std::string time;   ///< of the first line
  uint64_t call = 0;  ///< acts of one call of the library have the same
  int order = 0;      ///< how far into the act the last line is

  std::optional<calib::Camera> camera = {};
  std::array<std::optional<uint32_t>, 4> module = {};  ///< the fitted one's fuse words

  // ---- the record that was read or written -----
  std::optional<TakenFrom> from = {};
  std::optional<int64_t> count = {};                   ///< bytes that the file delivered
  std::array<std::optional<uint32_t>, 12> words = {};  ///< as they lie in it; of records of 32-bit words
  std::optional<uint64_t> valid_word = {};
  std::array<std::optional<uint64_t>, 4> fuse = {};
  std::optional<uint64_t> stored_crc = {};

  // ---- what came of it -----
  std::optional<bool> is_crc_good = {};
  std::optional<bool> is_bound = {};       ///< a check's
  std::optional<bool> is_calibrated = {};  ///< a check's
  std::optional<bool> is_taken = {};       ///< the correction used it, the check passed, the partition has it
  std::optional<bool> is_cached = {};
  bool has_no_golden_value = false;                      ///< of the tuning
  bool is_intact = true;                                 ///< false: CRC wrong, and only warned of
  std::array<std::optional<double>, 2> handed_out = {};  ///< ratios or gains

  // ---- a calibration run -----
  std::optional<int64_t> tolerance_percent = {};
  std::optional<int64_t> frames = {};  ///< that were summed
  bool has_judged = false;             ///< a frame came after those
  std::optional<bool> is_a_light = {};
  std::optional<double> delta = {};
  std::optional<double> limit = {};
  std::optional<bool> is_exposure_stored = {};
  bool is_exposure_left_out = false;
  int64_t unsettled = 0;  ///< judgements that had to wait for the exposure
  bool has_finished = false;

  /// Of the storage below, at error priority; the first ones.
  std::vector<std::string> storage_errors = {};
  uint64_t storage_error_count = 0;

  bool is_certain() const { return std::popcount(candidates) == 1; }
  /// The first, where there are several.
  Deed deed() const;
  DeedClass of() const { return spec_of(deed()).of; }
  /// Null: the candidates differ in it.
  const char* function() const;
  const RecordSpec* record() const;

  std::optional<uint64_t> known_valid_word() const;
  std::optional<calib::FuseWords> known_fuse() const;
  std::optional<calib::FuseWords> known_module() const;
  /// The whole record, where every byte of it is known.
  std::optional<std::vector<uint8_t>> bytes() const;
};

}  // namespace awbcal

#endif
