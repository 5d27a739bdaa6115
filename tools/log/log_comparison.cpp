#include "log/log_comparison.h"

#include <fmt/format.h>

#include <map>

#include "inspect/claims.h"
#include "inspect/phrases.h"

namespace awbcal {

namespace {

using calib::Camera;
using Key = std::pair<std::optional<Camera>, const RecordSpec*>;

// ---- modules ---------------------------------------------------------------------------------------------

/// The module of each camera as its last call read it, else as the bug report's properties name it.
Modules last_modules(const LogStory& story) {
  Modules modules = story.modules();
  for (const ActStory& each : story.acts) {
    const auto module = each.act.known_module();
    const bool is_reader = each.act.of() == DeedClass::correction || each.act.of() == DeedClass::check;
    if (module && each.act.camera && is_reader) modules.insert_or_assign(*each.act.camera, *module);
  }
  return modules;
}

void compare_modules(const LogStory& story, const Phone& phone, std::vector<LogComparison>& result) {
  const Modules fitted = modules_of(phone);
  for (const auto& [camera, module] : last_modules(story)) {
    const auto now = fitted.find(camera);
    if (now == fitted.end()) continue;
    const bool is_same = now->second == module;
    result.push_back(
        {camera, nullptr, is_same,
         is_same ? fmt::format("the log's {} module is the one in the phone: fuse ID {}", camera_name(camera),
                               fuse_text(module))
                 : fmt::format("the log's {} module is not the one now in the phone: fuse ID {}, now {}",
                               camera_name(camera), fuse_text(module), fuse_text(now->second))});
  }
}

// ---- records ---------------------------------------------------------------------------------------------

/// Whether the log shows enough of the record to tell it from others.
bool shows_record(const Act& act) {
  const bool is_of_record = act.of() != DeedClass::check && act.record() != nullptr;
  const bool is_found = act.from != TakenFrom::nowhere && (act.words[0] || act.valid_word);
  return is_of_record && is_found && !is_blank_act(act) && (act.known_fuse() || act.stored_crc);
}

std::optional<uint32_t> word_at(std::span<const uint8_t> bytes, size_t i) {
  uint32_t word = 0;
  if ((i + 1) * sizeof word > bytes.size()) return std::nullopt;
  memcpy(&word, bytes.data() + i * sizeof word, sizeof word);
  return word;
}

/// Nothing that the log shows differs in these bytes.
bool is_record_of(const Act& act, const FoundRecord& record) {
  if (record.is_truncated()) return false;
  const Claims claims = claims_of(*record.spec, record.bytes);
  for (size_t i = 0; i < act.words.size(); ++i) {
    if (act.words[i] && act.words[i] != word_at(record.bytes, i)) return false;
  }
  if (act.valid_word && claims.has_valid_word && *act.valid_word != claims.words.valid_word) return false;
  if (act.stored_crc && claims.has_crc && *act.stored_crc != claims.words.stored_crc) return false;
  const auto fuse = act.known_fuse();
  return !fuse || !claims.has_fuse_id || *fuse == claims.words.fuse;
}

std::string fuse_of(const FoundRecord& record) {
  if (record.is_truncated()) return "cut short";
  return "of fuse ID " + fuse_text(claims_of(*record.spec, record.bytes).words.fuse);
}

LogComparison compare_record(const Key& key, const ActStory& told, const Phone& phone) {
  const auto& [camera, spec] = key;
  const std::string title = record_title(*spec, camera);
  const FoundRecord* first = nullptr;
  for (const Source source : {Source::cache, Source::kernel_export, Source::partition, Source::file}) {
    const FoundRecord* record = phone.find(*spec, camera, source);
    if (record == nullptr) continue;
    if (is_record_of(told.act, *record)) {
      return {camera, spec, true,
              fmt::format("{}: the log's record (line {}) is in the phone: {}", title, told.act.first_line,
                          phone.files[record->file].path)};
    }
    if (first == nullptr) first = record;
  }
  const auto fuse = told.act.known_fuse();
  const std::string log_fuse = fuse ? " of fuse ID " + fuse_text(*fuse) : "";
  return {camera, spec, false,
          first == nullptr
              ? fmt::format("{}: the phone has none now; the log's (line {}) was{}", title,
                            told.act.first_line, log_fuse.empty() ? " there" : log_fuse)
              : fmt::format(
                    "{}: the log's record (line {}) is not the one now in the phone: the log's is{}, the "
                    "phone's {}",
                    title, told.act.first_line, log_fuse.empty() ? " another" : log_fuse, fuse_of(*first))};
}

}  // namespace

std::vector<LogComparison> compare_with_phone(const LogStory& story, const Phone& phone) {
  std::vector<LogComparison> result;
  compare_modules(story, phone, result);
  std::map<Key, const ActStory*> last;
  for (const ActStory& each : story.acts) {
    const Act& act = each.act;
    if (!shows_record(act) || (act.of() == DeedClass::run && act.is_taken != true)) continue;
    const bool is_a_light_run = act.of() == DeedClass::run && act.is_a_light.value_or(false);
    const RecordSpec* spec = is_a_light_run ? &record_spec(RecordKind::a_light_awb) : act.record();
    if (act.camera || !spec->is_per_camera)
      last[{spec->is_per_camera ? act.camera : std::nullopt, spec}] = &each;
  }
  for (const auto& [key, told] : last) result.push_back(compare_record(key, *told, phone));
  return result;
}

}  // namespace awbcal
