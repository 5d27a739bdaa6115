#include "fleet/unit.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "inspect/claims.h"
#include "inspect/errors.h"
#include "records/judgement.h"
#include "run/verification_phrases.h"
#include "text/utc.h"
#include "text/version.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

// ---- the unit ---------------------------------------------------------------------------------------------

/// By the name that the phone has for itself; a file by itself has its own.
std::string name_of(const Phone& phone, const std::string& path) {
  if (phone.properties) {
    for (const char* property : {"ro.serialno", "ro.boot.serialno"}) {
      const auto serial = phone.properties->find(property);
      if (serial != phone.properties->end() && !serial->second.empty()) return serial->second;
    }
  }
  return std::string(leaf_of(path.ends_with('/') ? path.substr(0, path.size() - 1) : path));
}

int64_t change_time(const fs::path& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? int64_t{status.st_mtime} : 0;
}

/// Of a folder, when the newest file in it was changed: folders' own times change with every copy.
int64_t time_of(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) != 0) return 0;
  if (!S_ISDIR(status.st_mode)) return status.st_mtime;
  std::error_code error;
  int64_t newest = 0;
  fs::recursive_directory_iterator entry(path, fs::directory_options::skip_permission_denied, error);
  for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (entry->is_regular_file(error)) newest = std::max(newest, change_time(entry->path()));
  }
  return newest;
}

// ---- its records ------------------------------------------------------------------------------------------

/// What was measured, without the words that every such record has: two units that share it share a measurement. 0: a
/// record that says no more than that something was done.
uint64_t content_of(const RecordSpec& spec, const Bytes& record) {
  bool is_measured = false;
  uint64_t hash = 0xCBF29CE484222325;  // FNV-1a
  for (const FieldSpec& field : spec.fields) {
    if (field.kind == FieldKind::valid_word || field.kind == FieldKind::fuse_word ||
        field.kind == FieldKind::crc)
      continue;
    is_measured = true;
    for (const uint8_t byte : std::span(record).subspan(field.offset, field.width))
      hash = (hash ^ byte) * 0x100000001B3;
  }
  return is_measured ? hash : 0;
}

void add_claims(Measurement& measurement, const Bytes& bytes) {
  const RecordSpec& spec = *measurement.spec;
  const Claims claims = claims_of(spec, bytes);
  if (claims.has_valid_word)
    measurement.version = static_cast<uint32_t>(claims.words.valid_word / calib::kVersionUnit);
  if (claims.has_fuse_id && claims.words.fuse != calib::FuseWords{}) measurement.module = claims.words.fuse;
  measurement.content = content_of(spec, bytes);
  if (spec.kind != RecordKind::awb && spec.kind != RecordKind::a_light_awb) return;
  const auto record = calib::record_at<calib::AwbRecord>(bytes.data());
  measurement.words = {record.rg, record.bg};
}

Measurement measurement_of(VerifiedRecord& verified) {
  RecordVerdict& verdict = verified.verdict;
  Measurement measurement{
      .spec = verdict.spec,
      .camera = verdict.camera,
      .verdict = verdict.finding.verdict,
      .is_good = verified.is_good(),
      .found = std::move(verdict.finding.found),
      .margin = verified.margin,
      .refused_by = fmt::format("{}", fmt::join(answering(verified.answers, Acceptance::refused), " "))};
  if (verified.limit != nullptr) measurement.limit = *verified.limit;
  if (verdict.record == nullptr) return measurement;
  measurement.source = source_name(verdict.record->source);
  if (!verdict.record->is_truncated() && !verdict.is_missing())
    add_claims(measurement, verdict.record->bytes);
  return measurement;
}

void judge(Unit& unit, const Phone& phone, const UnitQuestion& question) {
  unit.name = name_of(phone, unit.path);
  VerifyQuestion verify_question = question.verify;
  verify_question.modules = modules_of(phone);
  Verification verification = verify(phone, verify_question);
  unit.result = outcome_name(verification.outcome());
  constexpr size_t kUsual = 8;
  unit.measurements.reserve(kUsual);
  for (VerifiedRecord& verified : verification.records) {
    if (!verified.verdict.is_missing() || verified.is_required)
      unit.measurements.push_back(measurement_of(verified));
  }
  if (!phone.is_complete()) unit.error = fmt::format("{}", fmt::join(phone.unknown, "; "));
}

// ---- rows -------------------------------------------------------------------------------------------------

constexpr std::array kUnitColumns = {
    Column{"unit", "TEXT"},         Column{"path", "TEXT"}, Column{"time", "TEXT"},   Column{"lot", "TEXT"},
    Column{"input_sha256", "TEXT"}, Column{"tool", "TEXT"}, Column{"result", "TEXT"}, Column{"error", "TEXT"},
};

constexpr std::array kMeasurementColumns = {
    Column{"kind", "TEXT"},        Column{"camera", "TEXT"},    Column{"source", "TEXT"},
    Column{"verdict", "TEXT"},     Column{"rule", "TEXT"},      Column{"found", "TEXT"},
    Column{"version", "INTEGER"},  Column{"rg", "REAL"},        Column{"bg", "REAL"},
    Column{"golden_rg", "REAL"},   Column{"golden_bg", "REAL"}, Column{"delta", "REAL"},
    Column{"delta_limit", "REAL"}, Column{"percent", "REAL"},   Column{"good", "INTEGER"},
    Column{"module", "TEXT"},      Column{"content", "TEXT"},   Column{"refused_by", "TEXT"},
};

template <class Number>
Value number(const std::optional<Number>& value) {
  if (!value) return {};
  if constexpr (std::is_floating_point_v<Number>) return static_cast<double>(*value);
  return static_cast<int64_t>(*value);
}

Value text(const std::string& value) {
  return value.empty() ? Value() : Value(value);
}

double ratio(uint32_t word) {
  return word / 1024.0;
}

}  // namespace

std::string Measurement::rule() const {
  if (verdict == Verdict::good) return is_good ? "" : "record.limit";
  return verdict_rule(verdict);
}

Unit broken_unit(const std::string& path, const std::string& error) {
  return {.name = std::string(leaf_of(path)), .path = path, .tool = version_text(), .error = error};
}

void judge_again(Unit& unit, const Limits& limits) {
  bool is_bad = false;
  for (Measurement& each : unit.measurements) {
    const Limit* limit =
        each.words && can_be_measured(each.verdict) ? limits.find(each.camera, each.spec->kind) : nullptr;
    each.limit = limit == nullptr ? std::nullopt : std::optional(*limit);
    each.margin.reset();
    if (limit != nullptr)
      each.margin = calib::margin_of(calib::ratios_of(each.words->first, each.words->second), limit->golden,
                                     calib::tolerance_of(static_cast<float>(limit->threshold)));
    each.is_good = each.verdict == Verdict::good && (!each.margin || each.margin->is_kept());
    is_bad = is_bad || each.is_fault();
  }
  const bool is_judged =
      unit.result == outcome_name(Outcome::pass) || unit.result == outcome_name(Outcome::fail);
  if (is_judged) unit.result = outcome_name(is_bad ? Outcome::fail : Outcome::pass);
}

Unit judged_bytes(const std::string& name, Bytes bytes, const UnitQuestion& question) {
  Unit unit = broken_unit(name, "");
  unit.lot = question.lot;
  judge(unit, phone_of_bytes(name, std::move(bytes), {}), question);
  return unit;
}

Unit judged_unit(const std::string& path, const UnitQuestion& question) {
  Unit unit = broken_unit(path, "");
  unit.time = time_of(path);
  unit.lot = question.lot;
  try {
    const Phone phone = open_phone_of({.paths = {path}, .with_digests = question.with_digests});
    if (question.with_digests) unit.digest = digest_of(phone.digests);
    judge(unit, phone, question);
  } catch (const std::exception& error) {
    unit.result = kBroken;
    unit.error = error.what();
    unit.measurements.clear();
  }
  return unit;
}

std::span<const Column> unit_columns() {
  return kUnitColumns;
}

std::span<const Column> measurement_columns() {
  return kMeasurementColumns;
}

std::vector<Value> unit_values(const Unit& unit) {
  return {unit.name,         unit.path, utc_text(unit.time), text(unit.lot),
          text(unit.digest), unit.tool, unit.result,         text(unit.error)};
}

std::vector<Value> measurement_values(const Measurement& each) {
  const bool has_limit = each.limit && each.margin;
  return {std::string(each.spec->id),
          text(each.camera ? camera_name(*each.camera) : ""),
          text(each.source),
          std::string(verdict_name(each.verdict)),
          text(each.rule()),
          text(each.found),
          number(each.version),
          each.words ? Value(ratio(each.words->first)) : Value(),
          each.words ? Value(ratio(each.words->second)) : Value(),
          has_limit ? Value(double{each.limit->golden.rg}) : Value(),
          has_limit ? Value(double{each.limit->golden.bg}) : Value(),
          has_limit ? Value(double{each.margin->delta}) : Value(),
          has_limit ? Value(double{each.margin->limit}) : Value(),
          has_limit ? Value(percent_of_limit(*each.margin)) : Value(),
          int64_t{each.is_good},
          each.module ? Value(fuse_text(*each.module)) : Value(),
          each.content != 0 ? Value(fmt::format("{:016x}", each.content)) : Value(),
          text(each.refused_by)};
}

}  // namespace awbcal
