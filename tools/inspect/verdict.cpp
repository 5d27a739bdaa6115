#include "inspect/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "inspect/claims.h"
#include "records/record_layouts.h"

namespace awbcal {

using calib::Camera;

namespace {

struct VerdictText {
  const char* name;
  const char* rule;
};

/// In the order of Verdict.
constexpr std::array<VerdictText, 11> kVerdicts = {{{"good", "record.good"},
                                                    {"absent", "record.present"},
                                                    {"blank", "record.written"},
                                                    {"bad CRC", "record.crc"},
                                                    {"wrong module", "record.module"},
                                                    {"judged out of tolerance", "record.tolerance"},
                                                    {"unknown version", "record.version"},
                                                    {"truncated", "record.length"},
                                                    {"unreadable", "record.readable"},
                                                    {"overwritten", "record.overlap"},
                                                    {"hidden", "record.reachable"}}};

Finding verdict_on_version(const RecordSpec& spec, uint64_t valid_word) {
  const uint64_t version = valid_word / calib::kVersionUnit;
  const bool is_known = version >= 1 && version <= spec.rule.last_version;
  if (spec.is_judged && is_known && valid_word % calib::kVersionUnit == 0) {
    return {Verdict::out_of_tolerance, fmt::format("valid word {}", valid_word + calib::kValidMark),
            fmt::format("valid word {}: the mark was taken away", valid_word)};
  }
  std::string expected;
  for (uint32_t known = spec.rule.first_version; known <= spec.rule.last_version; ++known) {
    expected += fmt::format("{}{}", expected.empty() ? "valid word " : ", ",
                            known * calib::kVersionUnit + calib::kValidMark);
  }
  return {Verdict::unknown_version, expected, fmt::format("valid word {}", valid_word)};
}

bool bears_main_camera(const RecordSpec& spec, const FoundRecord& record, const Claims& claims,
                       const Modules& modules) {
  const auto main = modules.find(Camera::main);
  if (!spec.front_may_bear_main || record.camera != Camera::front || main == modules.end()) return false;
  calib::JudgementRule rule = spec.rule;
  rule.zero_first_fuse_word_matches_any = false;
  return calib::judge(claims.words, main->second, rule).is_bound();
}

Finding verdict_on_module(const FoundRecord& record, const Claims& claims, const Modules& modules) {
  const RecordSpec& spec = *record.spec;
  // The one record of the phone is the main camera's module's.
  const auto module = modules.find(record.camera.value_or(Camera::main));
  if (!claims.has_fuse_id) return {Verdict::good, "", "no fuse ID in this kind"};
  if (claims.words.fuse == calib::FuseWords{}) return {Verdict::good, "", "bound to no module"};
  if (module == modules.end()) return {Verdict::good, "", "module not known, not compared"};
  if (calib::judge(claims.words, module->second, spec.rule).is_bound()) {
    return {Verdict::good, "", "bound to the fitted module"};
  }
  if (bears_main_camera(spec, record, claims, modules))
    return {Verdict::good, "", "bears the main camera's fuse ID"};
  return {Verdict::wrong_module, "fuse ID " + fuse_text(module->second),
          "fuse ID " + fuse_text(claims.words.fuse)};
}

Finding bad_crc(const Phone& phone, const FoundRecord& record, const Claims& claims) {
  const std::string expected = fmt::format("CRC 0x{:08x}", claims.words.computed_crc);
  const std::string found = fmt::format("CRC 0x{:08x}", claims.words.stored_crc);
  const FoundRecord* owner = good_overlap(phone, record);
  if (owner == nullptr) return {Verdict::bad_crc, expected, found};
  return {Verdict::overwritten, expected,
          fmt::format("{}: the {} was written over {} of its bytes", found, owner->spec->name, kSharedBytes)};
}

Finding truncated(const FoundRecord& record) {
  return {Verdict::truncated, fmt::format("{} bytes", record.spec->size),
          fmt::format("{} bytes", record.bytes.size())};
}

// ---- one camera and kind ----------------------------------------------------------------------------------

/// What a source holds, and the verdict on it.
struct Held {
  const FoundRecord* record;
  Finding finding;

  bool is(Verdict verdict) const { return finding.verdict == verdict; }
};

std::string held_text(const Held& held) {
  return fmt::format("the {}'s is {}", source_name(held.record->source), verdict_name(held.finding.verdict));
}

/// In the order in which readers try the sources.
void put_held_by_sources(const Phone& phone, const RecordSpec& spec, std::optional<Camera> camera,
                         const Modules& modules, std::vector<Held>& all) {
  all.clear();
  for (const FoundRecord& record : phone.records) {
    if (record.spec == &spec && record.camera == camera)
      all.push_back({&record, verdict_on(phone, record, modules)});
  }
  const auto comes_first = [](const Held& a, const Held& b) { return a.record->source < b.record->source; };
  if (all.size() > 1) std::stable_sort(all.begin(), all.end(), comes_first);
}

const Held* first_with(const std::vector<Held>& all, Verdict verdict) {
  const auto found =
      std::find_if(all.begin(), all.end(), [verdict](const Held& held) { return held.is(verdict); });
  return found == all.end() ? nullptr : &*found;
}

/// The worst that is held against the record: the first that is neither good nor empty nor forgiven.
const Held* deciding(const std::vector<Held>& all, bool is_strict) {
  const Held* good = first_with(all, Verdict::good);
  const bool is_cached = good != nullptr && good->record->source == Source::cache;
  for (const Held& held : all) {
    const bool is_forgiven = held.is(Verdict::overwritten) && is_cached && !is_strict;
    if (!held.is(Verdict::good) && !held.is(Verdict::blank) && !is_forgiven) return &held;
  }
  if (good != nullptr) return good;
  return all.empty() ? nullptr : &all.front();
}

/// A cache file that opens is read, whatever is in it, and the export behind it is not.
void tell_hidden(const Phone& phone, const std::vector<Held>& all, RecordVerdict& result) {
  const Held* good = first_with(all, Verdict::good);
  if (good == nullptr || all.front().record->source != Source::cache || all.front().is(Verdict::good)) return;
  const std::string& cache = phone.files[all.front().record->file].path;
  const Held& first = all.front();
  if ((first.is(Verdict::blank) && result.finding.verdict == Verdict::good) || first.is(Verdict::truncated)) {
    result.finding = {Verdict::hidden, "no cache file, or one with a record",
                      first.is(Verdict::blank)
                          ? fmt::format("a blank cache file: {}", cache)
                          : fmt::format("a cache file of {} of {} bytes: {}", first.record->bytes.size(),
                                        result.spec->size, cache)};
  }
  if (good->record->source != Source::kernel_export) return;
  result.others.push_back(fmt::format(
      "{} hides the good export from every reader: remove it, and the camera loads the export", cache));
}

/// What cannot be read goes before what can: the record may be there all the same.
bool take_unreadable(const Phone& phone, RecordVerdict& result) {
  for (const PhoneFile& file : phone.files) {
    if (!file.content.trouble || !file.has_place_for(*result.spec, result.camera)) continue;
    result.finding = {Verdict::unreadable, "a file that can be read", *file.content.trouble};
    result.file = file.path;
    return true;
  }
  return false;
}

/// Whether readers would try a source first of which is not known what it holds.
bool is_behind_unknown(const Phone& phone, const FoundRecord& record) {
  if (phone.kind != Layout::phone || record.source == Source::file) return false;
  const bool has_cache = !record.spec->cache_file(record.camera.value_or(Camera::main)).empty();
  for (const Source source : {Source::cache, Source::kernel_export}) {
    if (source >= record.source) return false;
    const bool is_possible = has_cache || source != Source::cache;
    if (is_possible && phone.state_of(*record.spec, record.camera, source) == State::unreadable) return true;
  }
  return false;
}

/// What is wrong with the record wherever else a good one may be.
bool is_wrong_anyway(const Finding& finding) {
  return finding.verdict != Verdict::good && finding.verdict != Verdict::blank &&
         finding.verdict != Verdict::overwritten;
}

RecordVerdict verdict_of(const Phone& phone, const RecordSpec& spec, std::optional<Camera> camera,
                         const Modules& modules, bool is_strict, std::vector<Held>& all) {
  RecordVerdict result{.spec = &spec, .camera = camera};
  put_held_by_sources(phone, spec, camera, modules, all);
  const bool is_unreadable = take_unreadable(phone, result);
  const Held* decides = is_unreadable ? nullptr : deciding(all, is_strict);
  if (decides != nullptr && !is_wrong_anyway(decides->finding) && is_behind_unknown(phone, *decides->record))
    decides = nullptr;
  if (decides != nullptr) {
    result.finding = decides->finding;
    result.record = decides->record;
  } else if (!is_unreadable && !phone.unknown_sources.empty()) {
    result.finding = {Verdict::unreadable, "files and folders that can be read",
                      phone.unknown_sources.begin()->second};
  }
  for (const Held& held : all) {
    const bool is_same = decides != nullptr && held.record->bytes == decides->record->bytes;
    if (&held != decides && !held.is(Verdict::blank) && !is_same) result.others.push_back(held_text(held));
  }
  if (!all.empty()) tell_hidden(phone, all, result);
  return result;
}

bool may_hold(const Phone& phone, const RecordSpec& spec) {
  if (phone.kind == Layout::phone) return spec.kind != RecordKind::dual_camera_payload;
  return std::any_of(phone.records.begin(), phone.records.end(),
                     [&](const FoundRecord& record) { return record.spec == &spec; });
}

/// The cameras of a phone, or the one that a file is of.
std::vector<std::optional<Camera>> cameras_of(const Phone& phone, const RecordSpec& spec) {
  if (phone.kind != Layout::phone && phone.kind != Layout::partition) return {phone.files[0].camera};
  if (!spec.is_per_camera) return {std::nullopt};
  return {kCameras.begin(), kCameras.end()};
}

}  // namespace

std::string fuse_text(const calib::FuseWords& words) {
  return fmt::format("{:08x} {:08x} {:08x} {:08x}", words[0], words[1], words[2], words[3]);
}

const char* verdict_name(Verdict verdict) {
  return kVerdicts.at(static_cast<size_t>(verdict)).name;
}

const char* verdict_rule(Verdict verdict) {
  return kVerdicts.at(static_cast<size_t>(verdict)).rule;
}

std::vector<Finding> faults_of(const Phone& phone, const FoundRecord& record, const Modules& modules,
                               uint32_t first_version) {
  if (record.is_truncated()) return {truncated(record)};
  RecordSpec spec = *record.spec;
  spec.rule.first_version = std::max(spec.rule.first_version, first_version);
  const Claims claims = claims_of(spec, record.bytes);
  std::vector<Finding> faults;
  if (claims.has_crc && !claims.has_good_crc()) faults.push_back(bad_crc(phone, record, claims));
  if (claims.has_valid_word && !calib::judge(claims.words, {}, spec.rule).valid_word_good)
    faults.push_back(verdict_on_version(spec, claims.words.valid_word));
  Finding module = verdict_on_module(record, claims, modules);
  if (module.verdict != Verdict::good) faults.push_back(std::move(module));
  return faults;
}

Finding verdict_on(const Phone& phone, const FoundRecord& record, const Modules& modules) {
  const bool is_own_file = phone.files[record.file].layout == Layout::record;
  if (record.is_truncated() && (is_own_file || record.bytes.empty() || !is_blank(record.bytes))) {
    return truncated(record);
  }
  if (is_blank_record(phone, record)) {
    const bool whole = is_blank(record.bytes);
    return {Verdict::blank, "a record",
            whole ? blank_text(record.bytes)
                  : fmt::format("{} but for {} bytes of the {}", blank_text(unshared_bytes(record)),
                                kSharedBytes, good_overlap(phone, record)->spec->name)};
  }
  const std::vector<Finding> faults = faults_of(phone, record, modules);
  return faults.empty() ? verdict_on_module(record, claims_of(*record.spec, record.bytes), modules)
                        : faults.front();
}

std::vector<RecordVerdict> verdicts_of(const Phone& phone, const Modules& modules, bool is_strict) {
  std::vector<RecordVerdict> verdicts;
  verdicts.reserve(record_specs().size() * kCameras.size());
  std::vector<Held> held;
  for (const RecordSpec& spec : record_specs()) {
    if (!may_hold(phone, spec)) continue;
    for (const std::optional<Camera> camera : cameras_of(phone, spec))
      verdicts.push_back(verdict_of(phone, spec, camera, modules, is_strict, held));
  }
  return verdicts;
}

}  // namespace awbcal
