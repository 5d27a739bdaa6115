#include "run/correction_story.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace awbcal {

namespace {

using calib::Camera;

struct Place {
  Source source;
  const char* name;
};

/// Where loaders look, in their order; a file that was given by itself stands where its reader would.
constexpr Place kLoaded[] = {
    {Source::cache, "cache file"}, {Source::file, "file"}, {Source::kernel_export, "export"}};

std::string trouble_of(const Phone& phone, const RecordSpec& spec, Camera camera, Source source) {
  for (const PhoneFile& file : phone.files) {
    if (file.content.trouble && file.source == source && file.has_place_for(spec, camera))
      return fmt::format("{}: {}", file.path, *file.content.trouble);
  }
  return phone.unknown_sources.at(source);
}

std::string verdict_text(const Phone& phone, const FoundRecord& record, const Modules& modules) {
  const Finding finding = verdict_on(phone, record, modules);
  if (finding.verdict == Verdict::good) return verdict_name(finding.verdict);
  return fmt::format("{} ({}: expected {}, found {})", verdict_name(finding.verdict),
                     verdict_rule(finding.verdict), finding.expected, finding.found);
}

void tell_sources_of(const Phone& phone, Camera camera, const Modules& modules, const RecordSpec& spec,
                     std::vector<SourceStory>& stories) {
  std::string taken;
  bool is_behind_unknown = false;
  for (const auto& [source, name] : kLoaded) {
    const State state = phone.state_of(spec, camera, source);
    const FoundRecord* record = phone.find(spec, camera, source);
    if (record == nullptr) {
      const std::string fate = state == State::absent
                                   ? "absent"
                                   : fmt::format("unreadable: {}", trouble_of(phone, spec, camera, source));
      if (source != Source::file) stories.push_back({&spec, name, state, fate});
      is_behind_unknown = is_behind_unknown || state != State::absent;
      continue;
    }
    const char* first = is_behind_unknown ? "taken unless an earlier source is there" : "taken";
    const std::string fate = taken.empty() ? first : fmt::format("not read: the {} opens first", taken);
    if (taken.empty()) taken = name;
    stories.push_back(
        {&spec, name, state, fmt::format("{}; {}", fate, verdict_text(phone, *record, modules))});
  }
  if (const FoundRecord* record = phone.find(spec, camera, Source::partition)) {
    stories.push_back(
        {&spec, "partition", State::present,
         fmt::format("read by the kernel at boot only; {}", verdict_text(phone, *record, modules))});
  }
}

// ---- corrections ------------------------------------------------------------------------------------------

/// The record that the loaders take.
const FoundRecord* taken_record(const Phone& phone, const RecordSpec& spec, Camera camera) {
  for (const auto& [source, name] : kLoaded) {
    if (const FoundRecord* record = phone.find(spec, camera, source)) return record;
  }
  return nullptr;
}

}  // namespace

int test_of(Verdict verdict) {
  switch (verdict) {
    case Verdict::good:
      return 0;
    case Verdict::truncated:
      return 2;
    case Verdict::bad_crc:
    case Verdict::overwritten:
      return 3;
    case Verdict::out_of_tolerance:
    case Verdict::unknown_version:
      return 4;
    case Verdict::wrong_module:
      return 5;
    default:
      return 1;
  }
}

std::string test_text(int test) {
  constexpr std::array kOrdinals = {"", "first", "second", "third", "fourth", "fifth"};
  return fmt::format("{} of five tests", kOrdinals.at(static_cast<size_t>(test)));
}

std::string refusal_text(const std::string& name, const Finding& finding) {
  const std::string tests = test_text(test_of(finding.verdict));
  if (finding.verdict == Verdict::wrong_module) {
    return fmt::format("the {} belongs to another module: {}; fitted is {} ({})", name, finding.found,
                       finding.expected, tests);
  }
  return fmt::format("the {} is {}: expected {}, found {} ({})", name, verdict_name(finding.verdict),
                     finding.expected, finding.found, tests);
}

namespace {

/// The library's own words, where the record itself is good.
std::string last_error(const CameraRun& run, const char* function) {
  const LibraryCall* call = find_call(run, function);
  if (call == nullptr) return {};
  const auto found = std::find_if(call->log.rbegin(), call->log.rend(), is_error);
  if (found == call->log.rend()) return {};
  return ": " + found->text.substr(0, found->text.find_last_not_of(" \n") + 1);
}

/// A cache file that is not good, before an export that is.
std::string hidden_text(const Phone& phone, const RecordSpec& spec, Camera camera, const Modules& modules) {
  const FoundRecord* cache = phone.find(spec, camera, Source::cache);
  const FoundRecord* behind = phone.find(spec, camera, Source::kernel_export);
  if (cache == nullptr || behind == nullptr) return {};
  if (verdict_on(phone, *cache, modules).verdict == Verdict::good) return {};
  if (verdict_on(phone, *behind, modules).verdict != Verdict::good) return {};
  return fmt::format("; without {} the camera would load the export's, which is good",
                     phone.files[cache->file].path);
}

bool is_source_unreadable(const Phone& phone, const RecordSpec& spec, Camera camera) {
  for (const auto& [source, name] : kLoaded) {
    const State state = phone.state_of(spec, camera, source);
    if (state == State::unreadable) return true;
    if (state != State::absent) return false;  // what is behind it is not read anyway
  }
  return false;
}

/// What the reader that refused the record holds against it: not all of them test the same.
Finding refusal_of(const Reader& reader, const Phone& phone, const FoundRecord& record,
                   const Modules& modules) {
  Finding finding = verdict_on(phone, record, modules);
  if (finding.verdict == Verdict::truncated || finding.verdict == Verdict::blank) return finding;
  for (Finding& fault : faults_of(phone, record, modules, reader.first_version)) {
    const bool is_of_checksum = fault.verdict == Verdict::bad_crc || fault.verdict == Verdict::overwritten;
    if (!(is_of_checksum && reader.checksum_only_warns)) return std::move(fault);
  }
  return {Verdict::good, "", ""};
}

/// Why it was not done; also names the test, where one refused the record.
std::string reason_of(CorrectionStory& story, const FoundRecord* record, const Finding& finding,
                      const CameraRun& run) {
  story.test = test_of(finding.verdict);
  if (story.test != 0) story.rule = verdict_rule(finding.verdict);
  if (record == nullptr) {
    return fmt::format("there is no {}, neither a cache file nor in the export ({})", story.spec->name,
                       test_text(story.test));
  }
  if (story.test != 0) return refusal_text(story.spec->name, finding);
  const bool is_refused = story.acceptance == Acceptance::refused;
  return fmt::format("{} {} the {}{}", story.reader->function,
                     is_refused ? "refused" : "ended before it came to", story.spec->name,
                     last_error(run, story.reader->function));
}

CorrectionStory tell_correction(const Phone& phone, Camera camera, const Modules& modules,
                                const CameraRun& run, const RecordSpec& spec, const Answer& answer) {
  CorrectionStory story{.spec = &spec, .reader = answer.reader, .acceptance = answer.acceptance};
  const FoundRecord* record = taken_record(phone, spec, camera);
  const Finding finding = record != nullptr ? verdict_on(phone, *record, modules) : Finding{};
  const Reader& reader = *answer.reader;
  const std::string hidden = hidden_text(phone, spec, camera, modules);
  if (is_source_unreadable(phone, spec, camera)) {
    story.is_known = false;
    story.rule = verdict_rule(Verdict::unreadable);
    story.test = 1;
    story.sentence = fmt::format("{}: not known, because its {} cannot be read", reader.effect, spec.name);
  } else if (answer.acceptance == Acceptance::accepted) {
    story.sentence = fmt::format("{} {}: the {} was used, which is {}{}", reader.effect, reader.done,
                                 spec.name, verdict_name(finding.verdict), hidden);
  } else {
    const Finding refusal = record != nullptr ? refusal_of(reader, phone, *record, modules) : finding;
    const std::string reason = reason_of(story, record, refusal, run);
    story.sentence = fmt::format("{} NOT {}: {}{}", reader.effect, reader.done, reason, hidden);
  }
  return story;
}

}  // namespace

std::vector<SourceStory> tell_sources(const Phone& phone, Camera camera, const Modules& modules) {
  std::vector<SourceStory> stories;
  for (const RecordSpec& spec : record_specs()) {
    if (spec.is_per_camera && !readers_of(spec.kind).empty())
      tell_sources_of(phone, camera, modules, spec, stories);
  }
  return stories;
}

std::vector<CorrectionStory> tell_corrections(const Phone& phone, Camera camera, const Modules& modules,
                                              const CameraRun& run) {
  std::vector<CorrectionStory> stories;
  for (const RecordSpec& spec : record_specs()) {
    for (const Answer& answer : answers_on(spec.kind, run)) {
      if (answer.reader->effect != nullptr)
        stories.push_back(tell_correction(phone, camera, modules, run, spec, answer));
    }
  }
  return stories;
}

}  // namespace awbcal
