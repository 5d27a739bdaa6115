#include "inspect/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "records/record_layouts.h"

namespace awbcal {

using calib::Camera;

namespace {

struct VerdictText {
  const char* name;
  const char* rule;
};

/// In the order of Verdict.
constexpr std::array<VerdictText, 9> kVerdicts = {{{"good", "record.good"},
                                                   {"absent", "record.present"},
                                                   {"blank", "record.written"},
                                                   {"bad CRC", "record.crc"},
                                                   {"wrong module", "record.module"},
                                                   {"judged out of tolerance", "record.tolerance"},
                                                   {"unknown version", "record.version"},
                                                   {"truncated", "record.length"},
                                                   {"unreadable", "record.readable"}}};

/// As the library converts the text: decimal, in 64 bits, its low 32 kept.
uint32_t fuse_word_of(const std::string& text) {
  return static_cast<uint32_t>(std::strtoll(text.c_str(), nullptr, 10));
}

std::string fuse_text(const calib::FuseWords& words) {
  return fmt::format("{:08x} {:08x} {:08x} {:08x}", words[0], words[1], words[2], words[3]);
}

/// The bytes of [offset, offset + size) of the record's slot that the kinds share.
constexpr size_t kShared = calib::kSlotGyro + sizeof(calib::GyroRecord) - calib::kSlotALightAwb;

bool overlaps(const RecordSpec& spec) {
  return spec.kind == RecordKind::gyro || spec.kind == RecordKind::a_light_awb;
}

/// The kernel copies both records out of the slot as they lie there, so its export shows the overlap too.
const FoundRecord* overlap_partner(const Input& input, const FoundRecord& record) {
  const bool from_slot = record.source == Source::partition || record.source == Source::kernel_export ||
                         input.kind == InputKind::partition || input.kind == InputKind::export_image;
  if (!overlaps(*record.spec) || !from_slot) return nullptr;
  const RecordKind other = record.spec->kind == RecordKind::gyro ? RecordKind::a_light_awb : RecordKind::gyro;
  return input.find(record_spec(other), record.camera, record.source);
}

std::span<const uint8_t> unshared(const FoundRecord& record) {
  const std::span<const uint8_t> bytes = record.bytes;
  return record.spec->kind == RecordKind::gyro ? bytes.first(bytes.size() - kShared) : bytes.subspan(kShared);
}

bool is_good_alone(const FoundRecord& record) {
  return !record.is_truncated() && !is_blank(record.bytes) &&
         claims_of(*record.spec, record.bytes).has_good_crc();
}

Finding judge_version(const RecordSpec& spec, uint64_t valid_word) {
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

Finding judge_module(const FoundRecord& record, const Claims& claims, const Modules& modules) {
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

Finding judge_whole(const Input& input, const FoundRecord& record, const Modules& modules) {
  const RecordSpec& spec = *record.spec;
  const Claims claims = claims_of(spec, record.bytes);
  if (claims.has_crc && !claims.has_good_crc()) {
    const FoundRecord* owner = good_overlap(input, record);
    return {Verdict::bad_crc, fmt::format("CRC 0x{:08x}", claims.words.computed_crc),
            fmt::format("CRC 0x{:08x}{}", claims.words.stored_crc,
                        owner == nullptr ? std::string()
                                         : fmt::format(": the {} was written over {} of its bytes",
                                                       owner->spec->name, kShared))};
  }
  const calib::Judgement judgement = calib::judge(claims.words, {}, spec.rule);
  if (claims.has_valid_word && !judgement.valid_word_good)
    return judge_version(spec, claims.words.valid_word);
  return judge_module(record, claims, modules);
}

bool may_hold(const Input& input, const RecordSpec& spec) {
  if (input.kind == InputKind::phone) return spec.kind != RecordKind::dual_camera_payload;
  return std::any_of(input.records.begin(), input.records.end(),
                     [&](const FoundRecord& record) { return record.spec == &spec; });
}

class Judge {
 public:
  Judge(const Input& input, const Modules& modules) : input_(input), modules_(modules) {}

  std::vector<RecordVerdict> all() {
    for (const RecordSpec& spec : record_specs()) {
      if (may_hold(input_, spec)) judge_kind(spec);
    }
    return std::move(verdicts_);
  }

 private:
  void judge_kind(const RecordSpec& spec) {
    if (input_.kind != InputKind::phone && input_.kind != InputKind::partition) {
      verdicts_.push_back(judge_one(spec, input_.files[0].camera));
    } else if (!spec.is_per_camera) {
      verdicts_.push_back(judge_one(spec, {}));
    } else {
      for (const Camera camera : kCameras) verdicts_.push_back(judge_one(spec, camera));
    }
  }

  /// The order in which sources stand in `Source` is the order in which readers try them.
  RecordVerdict judge_one(const RecordSpec& spec, std::optional<Camera> camera) {
    RecordVerdict result{.spec = &spec, .camera = camera};
    take_unreadable_file(result);
    std::vector<const FoundRecord*> records;
    for (const FoundRecord& record : input_.records) {
      if (record.spec == &spec && record.camera == camera) records.push_back(&record);
    }
    std::stable_sort(records.begin(), records.end(),
                     [](const FoundRecord* a, const FoundRecord* b) { return a->source < b->source; });
    for (const FoundRecord* record : records) take(result, *record);
    return result;
  }

  void take_unreadable_file(RecordVerdict& result) {
    for (const InputFile& file : input_.files) {
      if (!file.content.trouble || !holds(file, *result.spec, result.camera)) continue;
      if (result.finding.verdict == Verdict::unreadable) continue;
      result.finding = {Verdict::unreadable, "a file that can be read", *file.content.trouble};
      result.file = file.path;
    }
  }

  static bool holds(const InputFile& file, const RecordSpec& spec, std::optional<Camera> camera) {
    if (file.kind) return *file.kind == spec.kind && (file.camera == camera || !spec.is_per_camera);
    if (file.layout == Layout::partition) return spec.offset.has_value();
    if (file.layout == Layout::export_image) return spec.export_offset.has_value() && file.camera == camera;
    return file.layout == Layout::dual_camera_node && spec.offset.has_value() && !spec.is_per_camera;
  }

  void take(RecordVerdict& result, const FoundRecord& record) {
    const Finding finding = judge_found(input_, record, modules_);
    const bool says_nothing = finding.verdict == Verdict::blank;
    const bool is_first = result.finding.verdict == Verdict::absent ||
                          (result.finding.verdict == Verdict::blank && !says_nothing);
    const bool is_worse =
        result.finding.verdict == Verdict::good && finding.verdict != Verdict::good && !says_nothing;
    if (is_first || is_worse) {
      if (is_worse) result.others.push_back(other_text(result.record, result.finding));
      result.finding = finding;
      result.record = &record;
      result.file = input_.files[record.file].path;
    } else if (!says_nothing && is_different(result.record, record)) {
      result.others.push_back(other_text(&record, finding));
    }
  }

  static bool is_different(const FoundRecord* a, const FoundRecord& b) {
    return a == nullptr || a->bytes != b.bytes;
  }

  static std::string other_text(const FoundRecord* record, const Finding& finding) {
    return fmt::format("the {}'s is {}", source_name(record->source), verdict_name(finding.verdict));
  }

  const Input& input_;
  const Modules& modules_;
  std::vector<RecordVerdict> verdicts_;
};

}  // namespace

const char* verdict_name(Verdict verdict) {
  return kVerdicts.at(static_cast<size_t>(verdict)).name;
}

const char* verdict_rule(Verdict verdict) {
  return kVerdicts.at(static_cast<size_t>(verdict)).rule;
}

Modules modules_of(const Input& input) {
  Modules modules;
  if (!input.properties) return modules;
  for (const Camera camera : kCameras) {
    calib::FuseWords words{};
    for (size_t i = 0; i < words.size(); ++i) {
      const auto property =
          input.properties->find(fmt::format("qor.camera.sensor.{}_fuse{}", camera_name(camera), i + 1));
      if (property != input.properties->end()) words[i] = fuse_word_of(property->second);
    }
    modules[camera] = words;
  }
  return modules;
}

const FoundRecord* good_overlap(const Input& input, const FoundRecord& record) {
  const FoundRecord* other = overlap_partner(input, record);
  return other != nullptr && is_good_alone(*other) ? other : nullptr;
}

bool is_blank_record(const Input& input, const FoundRecord& record) {
  if (is_blank(record.bytes)) return true;
  if (record.is_truncated() || good_overlap(input, record) == nullptr) return false;
  return is_blank(unshared(record));
}

Finding judge_found(const Input& input, const FoundRecord& record, const Modules& modules) {
  const bool is_own_file = input.files[record.file].layout == Layout::record;
  if (record.is_truncated() && (is_own_file || record.bytes.empty() || !is_blank(record.bytes))) {
    return {Verdict::truncated, fmt::format("{} bytes", record.spec->size),
            fmt::format("{} bytes", record.bytes.size())};
  }
  if (is_blank_record(input, record)) {
    const bool whole = is_blank(record.bytes);
    return {Verdict::blank, "a record",
            whole ? blank_text(record.bytes)
                  : fmt::format("{} but for {} bytes of the {}", blank_text(unshared(record)), kShared,
                                good_overlap(input, record)->spec->name)};
  }
  return judge_whole(input, record, modules);
}

std::vector<RecordVerdict> judge_input(const Input& input, const Modules& modules) {
  return Judge(input, modules).all();
}

}  // namespace awbcal
