#include "run/explanation.h"

#include <fmt/format.h>

#include "inspect/errors.h"
#include "run/phone_copy.h"
#include "run/readers.h"

namespace awbcal {

namespace {

void take_file(const std::string& path, size_t least, TuningBlock& block) {
  if (path.empty()) return;
  const Bytes bytes = bytes_of_file(path);
  if (bytes.size() < least) {
    throw InputError(
        fmt::format("{}: a tuning block must have at least {} bytes, found {}", path, least, bytes.size()));
  }
  // In whole words; the last may be filled in part.
  constexpr size_t kWord = sizeof(float);
  block = TuningBlock((bytes.size() + kWord - 1) / kWord * kWord);
  memcpy(block.data(), bytes.data(), bytes.size());
}

CameraTuning tuning_of(const ExplainQuestion& question) {
  CameraTuning tuning(question.golden);
  take_file(question.tuning_file, kAwbTuningBytes, tuning.moved);
  take_file(question.tuning_file, kAwbTuningBytes, tuning.own_golden);
  take_file(question.mesh_tuning_file, kMeshTuningBytes, tuning.mesh);
  return tuning;
}

/// The phone after the kernel has read its partition: the export is what the partition and the factory's files hold.
Phone booted(Phone phone) {
  std::erase_if(phone.records,
                [](const FoundRecord& record) { return record.source == Source::kernel_export; });
  std::vector<FoundRecord> exported;
  for (const FoundRecord& record : phone.records) {
    if (record.source != Source::partition && record.source != Source::factory) continue;
    exported.push_back(record);
    exported.back().source = Source::kernel_export;
  }
  phone.records.insert(phone.records.end(), exported.begin(), exported.end());
  return phone;
}

}  // namespace

std::string assumed_golden_text() {
  return fmt::format("golden sample {:.4f}, {:.4f} assumed: give --golden", kAssumedGolden.rg,
                     kAssumedGolden.bg);
}

Explanation explain(const Phone& phone, const ExplainQuestion& question) {
  const bool boots = question.reboot || phone.kind == Layout::partition;
  const Phone read = boots ? booted(phone) : phone;
  const CameraTuning before = tuning_of(question);
  Explanation result{.corrections = {},
                     .sources = {},
                     .assumed = assumed_modules(phone, question.modules),
                     .calls = {},
                     .before = before,
                     .after = before};
  Modules fitted = question.modules;
  fitted.insert(result.assumed.begin(), result.assumed.end());
  result.sources = tell_sources(read, question.camera, question.modules);
  PhoneCopy copy(phone, fitted, question.reboot);
  result.calls = start_camera(copy.phone(), question.camera, question.golden, result.after);
  result.corrections = tell_corrections(read, question.camera, question.modules, result.calls);
  return result;
}

Table source_table(const Explanation& explanation) {
  Table table({"", "", ""});
  const RecordSpec* last = nullptr;
  for (const SourceStory& story : explanation.sources) {
    table.row({story.spec == last ? "" : story.spec->id, story.place, story.fate});
    last = story.spec;
  }
  return table;
}

}  // namespace awbcal
