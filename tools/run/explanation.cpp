#include "run/explanation.h"

#include <fmt/format.h>

#include "inspect/errors.h"
#include "run/phone_copy.h"
#include "run/readers.h"

namespace awbcal {

namespace {

void take_file(const std::string& path, size_t least, TuningBlock& block) {
  if (path.empty()) return;
  const FileContent content = read_file(path);
  if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", path, *content.trouble));
  if (content.bytes.size() < least) {
    throw InputError(fmt::format("{}: a tuning block must have at least {} bytes, found {}", path, least,
                                 content.bytes.size()));
  }
  // In whole words; the last may be filled in part.
  constexpr size_t kWord = sizeof(float);
  block = TuningBlock((content.bytes.size() + kWord - 1) / kWord * kWord);
  memcpy(block.data(), content.bytes.data(), content.bytes.size());
}

CameraTuning tuning_of(const ExplainQuestion& question) {
  CameraTuning tuning(question.golden);
  take_file(question.tuning_file, kAwbTuningBytes, tuning.moved);
  take_file(question.tuning_file, kAwbTuningBytes, tuning.own_golden);
  take_file(question.mesh_tuning_file, kMeshTuningBytes, tuning.mesh);
  return tuning;
}

std::string verdict_text(const Phone& phone, const FoundRecord& record, const Modules& modules) {
  const Finding finding = verdict_on(phone, record, modules);
  if (finding.verdict == Verdict::good) return verdict_name(finding.verdict);
  return fmt::format("{} ({}: expected {}, found {})", verdict_name(finding.verdict),
                     verdict_rule(finding.verdict), finding.expected, finding.found);
}

/// The sources of one kind of record, in the order in which its loader tries them.
void tell_sources(const Phone& phone, const ExplainQuestion& question, const RecordSpec& spec,
                  std::vector<SourceStory>& stories) {
  constexpr std::pair<Source, const char*> kLoaded[] = {
      {Source::cache, "cache file"}, {Source::file, "file"}, {Source::kernel_export, "export"}};
  std::string taken;
  for (const auto& [source, name] : kLoaded) {
    const FoundRecord* record = phone.find(spec, question.camera, source);
    if (record == nullptr) {
      if (source != Source::file) stories.push_back({&spec, name, "absent"});
      continue;
    }
    const std::string fate = taken.empty() ? "taken" : fmt::format("not read: the {} opens first", taken);
    if (taken.empty()) taken = name;
    stories.push_back(
        {&spec, name, fmt::format("{}; {}", fate, verdict_text(phone, *record, question.modules))});
  }
  if (const FoundRecord* record = phone.find(spec, question.camera, Source::partition)) {
    stories.push_back(
        {&spec, "partition",
         fmt::format("read by the kernel at boot only; {}", verdict_text(phone, *record, question.modules))});
  }
}

}  // namespace

Explanation explain(const Phone& phone, const ExplainQuestion& question) {
  const CameraTuning before = tuning_of(question);
  Explanation explanation{.sources = {}, .calls = {}, .before = before, .after = before};
  for (const RecordSpec& spec : record_specs()) {
    if (spec.is_per_camera && !readers_of(spec.kind).empty()) {
      tell_sources(phone, question, spec, explanation.sources);
    }
  }
  ScratchPhone copy(phone_options_for(phone));
  copy_phone(phone, question.modules, question.reboot, copy);
  explanation.calls = start_camera(copy.phone(), question.camera, question.golden, explanation.after);
  return explanation;
}

}  // namespace awbcal
