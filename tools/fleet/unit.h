// One unit of a fleet, judged as `awbcal verify` judges it, as flat rows: one for the unit, one for each of its
// records. Every output of `awbcal fleet` holds these rows, and these columns under these names.
#ifndef FLEET_UNIT_H
#define FLEET_UNIT_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "run/verification.h"

namespace awbcal {

/// What a unit comes to: an Outcome's name, or kBroken.
inline constexpr const char* kBroken = "ERROR";

struct Measurement {
  const RecordSpec* spec = nullptr;
  std::optional<calib::Camera> camera = {};
  std::string source = {};
  Verdict verdict = Verdict::absent;
  bool is_good = false;
  std::string found = {};
  std::optional<uint32_t> version = {};                     ///< of the valid word
  std::optional<std::pair<uint32_t, uint32_t>> words = {};  ///< R/G and B/G times 1024, of an AWB record
  std::optional<Limit> limit = {};                          ///< what it was judged against here
  std::optional<calib::Margin> margin = {};
  std::optional<calib::FuseWords> module = {};  ///< that the record names
  uint64_t content = 0;  ///< of its bytes but for the module's and the checksum; 0: no whole record
  std::string refused_by = {};

  /// Its ratios, if it has any, are those of a run that was finished.
  bool is_measured() const { return verdict == Verdict::good || verdict == Verdict::out_of_tolerance; }
  /// Something is wrong with it: more than that it cannot be read.
  bool is_fault() const { return !is_good && verdict != Verdict::unreadable; }
  /// The rule that it breaks: of its verdict, or that it is beyond the limit.
  std::string rule() const;
};

struct Unit {
  std::string name;
  std::string path;
  int64_t time = 0;  ///< when its newest file was changed, seconds since 1970
  std::string lot = {};
  std::string digest = {};  ///< SHA-256 of the input; empty where no row asks for it
  std::string tool = {};    ///< which judged it
  std::string result = kBroken;
  std::string error = {};
  std::vector<Measurement> measurements = {};
};

struct UnitQuestion {
  VerifyQuestion verify = {};
  std::string lot = {};
  bool with_digests = false;
};

/// A unit of this path that cannot be judged, and why.
Unit broken_unit(const std::string& path, const std::string& error);

/// Judges the measurements of a unit that was judged before against these limits, and the unit by them.
void judge_again(Unit& unit, const Limits& limits);

/// The same of bytes that are in no file.
Unit judged_bytes(const std::string& name, Bytes bytes, const UnitQuestion& question);

/// Opens and judges what is at `path`. Nothing that is wrong with it is thrown: a broken unit is a row as well.
Unit judged_unit(const std::string& path, const UnitQuestion& question);

// ---- rows -------------------------------------------------------------------------------------------------

using Value = std::variant<std::monostate, std::string, int64_t, double>;

/// awbcal-fleet(1) says what each means.
struct Column {
  const char* name;
  const char* type;  ///< in SQL
};

/// What tells units apart and what they come to; then what a measurement adds.
std::span<const Column> unit_columns();
std::span<const Column> measurement_columns();

std::vector<Value> unit_values(const Unit& unit);
std::vector<Value> measurement_values(const Measurement& measurement);

}  // namespace awbcal

#endif
