#include "log/log_story.h"

#include <fmt/format.h>

#include <algorithm>

#include "inspect/phrases.h"
#include "run/camera_start.h"
#include "run/correction_story.h"
#include "run/readers.h"
#include "run/verification_phrases.h"

namespace awbcal {

namespace {

// ---- the record ------------------------------------------------------------------------------------------

std::string source_text(const Act& act) {
  if (!act.from || act.from == TakenFrom::nowhere) return "";
  return act.from == TakenFrom::cache_file ? " of the cache file" : " of the export";
}

/// Whether every word that the log shows of the record is this one, and it shows some.
bool are_all(const Act& act, uint32_t word) {
  const auto is_word = [word](const auto& each) { return !each || *each == word; };
  const bool is_other = !std::ranges::all_of(act.words, is_word) || !std::ranges::all_of(act.fuse, is_word) ||
                        !is_word(act.valid_word) || !is_word(act.stored_crc);
  return !is_other && act.known_valid_word();
}

/// Enough of it to say so of the whole: a checksum of 0 is that of zeros.
bool shows_all(const Act& act) {
  return act.stored_crc || std::ranges::all_of(act.words.begin(), act.words.begin() + 8,
                                               [](const auto& each) { return each.has_value(); });
}

/// The file ended before the record did, as far as the log says how long it was.
bool is_cut_short(const Act& act, const RecordSpec& spec) {
  if (!act.count || !act.from) return false;
  const size_t before = act.from == TakenFrom::kernel_export ? spec.export_offset().value_or(0) : 0;
  return *act.count < static_cast<int64_t>(before + spec.size);
}

calib::JudgementRule rule_of_reader(const Act& act) {
  const DeedSpec& spec = spec_of(act.deed());
  return {.first_version = spec.first_version, .last_version = 3, .zero_first_fuse_word_matches_any = true};
}

bool has_good_valid_word(const Act& act, uint64_t valid_word) {
  return calib::judge({.valid_word = valid_word, .fuse = {}, .stored_crc = 0, .computed_crc = 0}, {},
                      rule_of_reader(act))
      .valid_word_good;
}

/// Which of the tests refused the record; 0: lost lines would say.
int test_that_refused(const Act& act, const RecordSpec* spec) {
  if (act.from == TakenFrom::nowhere || is_blank_act(act)) return 1;
  if (spec != nullptr && is_cut_short(act, *spec)) return 2;
  if (are_all(act, 0)) return 0;
  if (act.is_crc_good == false) return 3;
  const auto valid_word = act.known_valid_word();
  if (!valid_word) return 0;
  return has_good_valid_word(act, *valid_word) ? 5 : 4;
}

/// The same that `verify` says of these bytes, where the log has them all and both agree on the test.
std::optional<Finding> finding_on(const Act& act, const RecordSpec& spec, int test) {
  const auto bytes = act.bytes();
  if (!bytes || !act.camera) return std::nullopt;
  Phone phone{.name = {}};
  phone.files.push_back({.path = {}, .layout = Layout::record});
  const FoundRecord record{&spec, act.camera, Source::file, 0, 0, *bytes};
  Modules modules;
  if (const auto module = act.known_module()) modules.emplace(*act.camera, *module);
  Finding finding = verdict_on(phone, record, modules);
  return test_of(finding.verdict) == test ? std::optional(std::move(finding)) : std::nullopt;
}

std::string fault_text(const Act& act, const std::string& name, int test) {
  switch (test) {
    case 1:
      return act.from == TakenFrom::nowhere
                 ? fmt::format("there is no {}, neither a cache file nor in the export", name)
                 : fmt::format("the {}{} is blank", name, source_text(act));
    case 2:
      return fmt::format("the {}{} is cut short", name, source_text(act));
    case 3:
      return fmt::format("the checksum of the {}{} is wrong", name, source_text(act));
    case 4:
      return fmt::format("the {}{} has the valid word {}", name, source_text(act),
                         act.known_valid_word().value_or(0));
    default:
      return fmt::format("the {}{} belongs to another module", name, source_text(act));
  }
}

std::string fuses_text(const Act& act) {
  const auto fuse = act.known_fuse();
  const auto module = act.known_module();
  if (!fuse || !module) return "";
  return fmt::format(": fuse ID {}; fitted is fuse ID {}", fuse_text(*fuse), fuse_text(*module));
}

std::string reason_text(const Act& act, const RecordSpec* spec, int test) {
  const std::string name = spec != nullptr ? spec->name : "record";
  if (test == 0) return fmt::format("the library refused the {}, and lost lines would say why", name);
  const auto finding = spec != nullptr && test > 2 ? finding_on(act, *spec, test) : std::nullopt;
  if (finding) return refusal_text(name + source_text(act), *finding);
  return fmt::format("{}{} ({})", fault_text(act, name, test), test == 5 ? fuses_text(act) : "",
                     test_text(test));
}

std::string ratio_text(const Act& act, const char* first, const char* second) {
  if (!act.words[1] || !act.words[2]) return "";
  const calib::GoldenRatios values = calib::ratios_of(*act.words[1], *act.words[2]);
  return fmt::format(": {} {:.4f}, {} {:.4f}", first, values.rg, second, values.bg);
}

std::string values_text(const Act& act) {
  switch (act.record() != nullptr ? act.record()->kind : RecordKind::gyro) {
    case RecordKind::awb:
    case RecordKind::a_light_awb:
      return ratio_text(act, "R/G", "B/G");
    case RecordKind::flash:
      return ratio_text(act, "R gain", "B gain");
    case RecordKind::aec:
      if (!act.words[1] || !act.words[2] || !act.words[3]) return "";
      return fmt::format(": gain {}, time {}, luma {}", *act.words[1], *act.words[2], *act.words[3]);
    default:
      return "";
  }
}

// ---- corrections -----------------------------------------------------------------------------------------

const Reader* reader_of(size_t deed) {
  const DeedSpec& spec = spec_of(static_cast<Deed>(deed));
  for (const Reader& reader : readers_of(spec.kind)) {
    if (std::string_view(reader.function) == spec.function) return &reader;
  }
  return nullptr;
}

/// "White balance", or all that it can have been.
std::string effect_text(const Act& act) {
  std::string text;
  for (size_t i = 0; i < kDeedCount; ++i) {
    const Reader* reader = has(act.candidates, i) ? reader_of(i) : nullptr;
    if (reader == nullptr) continue;
    if (!text.empty()) text += " or ";
    text += reader->effect != nullptr ? reader->effect : "a result check";
  }
  return text;
}

const char* done_text(const Act& act) {
  const Reader* reader = reader_of(static_cast<size_t>(act.deed()));
  return act.is_certain() && reader != nullptr ? reader->done : "done";
}

bool is_without_flash(const Act& act) {
  return act.deed() == Deed::module_points_flash && act.camera == calib::Camera::sub && !act.from &&
         !act.words[0];
}

/// What ended the act without a decision of its own.
std::optional<bool> is_taken(const Act& act) {
  if (act.is_taken) return act.is_taken;
  const bool is_empty = act.count == 0 && act.from == TakenFrom::cache_file;
  return act.from == TakenFrom::nowhere || is_empty ? std::optional(false) : std::nullopt;
}

void tell_correction(ActStory& story) {
  const Act& act = story.act;
  const RecordSpec* spec = act.record();
  const std::string effect = effect_text(act);
  const std::optional<bool> taken = is_taken(act);
  if (!taken) {
    story.sentence = fmt::format("{}: not known, because lines are lost", effect);
  } else if (*taken && act.has_no_golden_value) {
    story.result = ActResult::refused;
    story.sentence = fmt::format("{} NOT {}: the tuning has no golden value", effect, done_text(act));
  } else if (*taken) {
    story.result = ActResult::done;
    story.sentence = fmt::format("{} {}: the {}{} was used{}{}", effect, done_text(act),
                                 spec != nullptr ? spec->name : "record", source_text(act), values_text(act),
                                 act.is_intact ? "" : ", though its checksum is wrong");
  } else {
    story.result = ActResult::refused;
    if (!is_without_flash(act)) story.test = test_that_refused(act, spec);
    const std::string reason = is_without_flash(act)
                                   ? "the library has no flash correction for the sub camera"
                               : spec != nullptr ? reason_text(act, spec, story.test)
                                                 : "the library refused the record";
    story.sentence = fmt::format("{} NOT {}: {}", effect, done_text(act), reason);
  }
}

// ---- result checks ---------------------------------------------------------------------------------------

std::string check_name(const Act& act) {
  const char* function = act.function();
  for (const ResultCheck& check : kResultChecks) {
    if (function == nullptr || std::string_view(check.function) != function) continue;
    std::string name = std::string(check.name) + " check";
    name[0] = static_cast<char>(toupper(name[0]));
    return name;
  }
  return "Result check";
}

std::string failed_tests(const Act& act) {
  if (act.from == TakenFrom::nowhere) return "there is no record, neither a cache file nor in the export";
  std::vector<std::string> tests;
  if (act.is_crc_good == false) tests.emplace_back("checksum");
  if (act.is_bound == false) tests.emplace_back("module");
  if (act.is_calibrated == false) tests.emplace_back("valid word");
  if (tests.empty()) return "lost lines would say why";
  return fmt::format("the record{} has a wrong {}", source_text(act), fmt::join(tests, ", "));
}

/// The record word says all three tests at once; without it they do themselves. The flash check has another record.
std::optional<bool> has_passed(const Act& act) {
  if (act.is_taken) return act.is_taken;
  if (act.from == TakenFrom::nowhere) return false;
  const bool is_selected = act.deed() != Deed::check_dual_camera || act.camera == calib::Camera::main;
  if (!is_selected && act.camera) return false;
  if (act.deed() == Deed::check_flash || act.deed() == Deed::check_dual_camera) return std::nullopt;
  if (act.is_crc_good == false || act.is_bound == false || act.is_calibrated == false) return false;
  return act.is_crc_good && act.is_bound && act.is_calibrated ? std::optional(true) : std::nullopt;
}

int first_failed_test(const Act& act) {
  if (act.from == TakenFrom::nowhere) return 1;
  if (act.is_crc_good == false) return 3;
  if (act.is_calibrated == false) return 4;
  return act.is_bound == false ? 5 : 0;
}

void tell_check(ActStory& story) {
  const Act& act = story.act;
  const std::string name = check_name(act);
  const std::optional<bool> passed = has_passed(act);
  if (!passed) {
    const bool is_of_marker = act.deed() == Deed::check_dual_camera;
    story.sentence =
        fmt::format("{}: not known, because {}", name,
                    is_of_marker ? "the log does not show what the in-house node says" : "lines are lost");
    return;
  }
  story.result = *passed ? ActResult::done : ActResult::refused;
  if (*passed) {
    story.sentence = fmt::format("{} passed on the record{}", name, source_text(act));
    return;
  }
  story.test = first_failed_test(act);
  const bool is_other_camera = act.deed() == Deed::check_dual_camera && act.camera != calib::Camera::main;
  story.sentence = fmt::format("{} FAILED: {}", name,
                               is_other_camera ? "it is of the main camera alone" : failed_tests(act));
  if (const char* why = act.is_certain() ? never_passes(act.function()) : nullptr)
    story.sentence += fmt::format("; the check {}", why);
}

// ---- writers ---------------------------------------------------------------------------------------------

std::string cache_text(const Act& act) {
  if (act.deed() == Deed::write_dual_camera)
    return act.is_cached.value_or(false) ? ", and it was read back" : "";
  if (!act.is_cached) return "";
  return *act.is_cached ? ", with its cache file" : ", but its cache file could not be created";
}

void tell_writer(ActStory& story) {
  const Act& act = story.act;
  const std::string what = act.record() != nullptr ? act.record()->name : "flash or dual-flash record";
  const std::string subject =
      act.deed() == Deed::read_dual_camera ? "Dual-camera payload" : fmt::format("The {}", what);
  const char* done = act.deed() == Deed::read_dual_camera ? "read from the partition" : "stored";
  if (!act.is_taken) {
    story.sentence = fmt::format("{}: whether it was {} is not known, because lines are lost", subject, done);
    return;
  }
  story.result = *act.is_taken && act.is_intact ? ActResult::done : ActResult::refused;
  if (!*act.is_taken) {
    story.sentence = fmt::format("{} was NOT {}", subject, done);
  } else if (!act.is_intact) {
    story.sentence = fmt::format("{} was {}, but could NOT be read back", subject, done);
  } else {
    const auto fuse = act.known_fuse();
    story.sentence = fmt::format("{} was {}{}{}{}", subject, done, cache_text(act), values_text(act),
                                 fuse ? fmt::format("; fuse ID {}", fuse_text(*fuse)) : "");
  }
}

// ---- calibration runs ------------------------------------------------------------------------------------

std::string margin_of(const Act& act) {
  if (!act.delta || !act.limit) return "its distance from the golden sample is not in the log";
  return margin_text({static_cast<float>(*act.delta), static_cast<float>(*act.limit)});
}

std::optional<bool> is_good_run(const Act& act) {
  if (const auto word = act.known_valid_word()) return *word % calib::kVersionUnit == calib::kValidMark;
  if (act.delta && act.limit) return !(*act.delta > *act.limit);
  return std::nullopt;
}

std::string waited_text(const Act& act) {
  if (act.unsettled == 0) return "";
  return fmt::format("; {} waited for the exposure",
                     counted(static_cast<size_t>(act.unsettled), "judgement"));
}

std::string store_text(const Act& act) {
  if (act.is_taken == false) return "; the record was NOT stored: the partition could not be written";
  if (act.is_cached.value_or(false)) return "; the record was stored, with its cache file";
  return act.is_taken ? "; the record was stored" : "; whether the record was stored is not in the log";
}

/// A run whose exposure is wanted and not stored has judged and stored nothing: the next frame tries again.
bool is_waiting(const Act& act) {
  return act.is_exposure_stored == false && !act.is_taken;
}

void tell_run(ActStory& story) {
  const Act& act = story.act;
  const char* light = act.is_a_light.value_or(false) ? " in A light" : "";
  const std::optional<bool> good = is_good_run(act);
  const auto frames = static_cast<int64_t>(calib::kFramesToSum);
  if (is_waiting(act)) {
    story.result = ActResult::unfinished;
    story.sentence = fmt::format(
        "Calibration run{} NOT finished: {}{}", light,
        act.unsettled > 0 ? "the exposure had not settled" : "the AEC record could not be written",
        waited_text(act));
  } else if (!good && !act.has_judged) {
    story.result = ActResult::unfinished;
    story.sentence =
        fmt::format("Calibration run{} NOT finished: {} of {} frames were summed, and none was judged", light,
                    act.frames.value_or(0), frames);
  } else if (!good) {
    story.sentence = fmt::format("Calibration run{}: not known, because lines are lost", light);
  } else {
    const bool is_stored = act.is_taken.value_or(act.is_cached.value_or(false));
    const bool is_refused = !*good || act.is_taken == false;
    story.result = is_refused ? ActResult::refused : is_stored ? ActResult::done : ActResult::not_known;
    if (!*good) story.test = 4;
    story.sentence = fmt::format(
        "Calibration run{} {}: {}{}{}{}", light, *good ? "passed" : "FAILED", margin_of(act),
        values_text(act).empty() ? "" : "; " + values_text(act).substr(2), store_text(act), waited_text(act));
  }
}

void tell(ActStory& story) {
  switch (story.act.of()) {
    case DeedClass::correction:
      return tell_correction(story);
    case DeedClass::check:
      return tell_check(story);
    case DeedClass::writer:
      return tell_writer(story);
    case DeedClass::run:
      return tell_run(story);
  }
}

void tell_storage(ActStory& story) {
  const Act& act = story.act;
  if (act.storage_error_count == 0) return;
  const uint64_t more = act.storage_error_count - act.storage_errors.size();
  story.sentence += fmt::format("; the storage says: {}{}", fmt::join(act.storage_errors, "; "),
                                more == 0 ? "" : fmt::format(" and {} more", more));
}

template <class Read>
LogStory tell_with(const Read& read) {
  Recogniser recogniser;
  LogReader reader(recogniser);
  LogStory story{.input = read(reader)};
  story.lines = reader.lines();
  story.cut_lines = reader.cut_lines();
  story.is_bug_report = reader.is_bug_report();
  story.properties = reader.properties();
  story.sections = reader.sections();
  story.processes = recogniser.processes();
  story.untold = recogniser.untold();
  for (Act& act : recogniser.finish()) {
    story.acts.push_back({.act = std::move(act)});
    tell(story.acts.back());
    tell_storage(story.acts.back());
  }
  return story;
}

}  // namespace

bool is_blank_act(const Act& act) {
  return shows_all(act) && (are_all(act, 0) || are_all(act, 0xFFFFFFFF));
}

uint64_t LogStory::library_lines() const {
  uint64_t sum = 0;
  for (const LogProcess& process : processes) sum += process.lines;
  return sum;
}

Modules LogStory::modules() const {
  Phone phone{.name = input.name};
  if (!properties.empty()) phone.properties = properties;
  return modules_of(phone);
}

LogStory tell_log(const std::string& path) {
  return tell_with([&path](LogReader& reader) { return read_log(path, reader); });
}

LogStory tell_log_bytes(const std::string& name, std::span<const uint8_t> bytes) {
  return tell_with([&](LogReader& reader) { return read_log_bytes(name, bytes, reader); });
}

}  // namespace awbcal
