#include "run/restore.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "inspect/errors.h"
#include "inspect/phrases.h"
#include "inspect/pull_state.h"
#include "inspect/verdict.h"
#include "run/writer_phone.h"

namespace awbcal {

namespace fs = std::filesystem;

using calib::Camera;

namespace {

// ---- the target -------------------------------------------------------------------------------------------

/// Only an image as it lies on the disk can be put back as it was: no archive, nothing with out-of-band bytes.
bool is_as_on_disk(const Phone& phone, const std::string& target) {
  const PhoneFile& file = *phone.partition();
  const fs::path path = phone.kind == Layout::phone ? fs::path(target) / file.path : fs::path(target);
  return read_regular_file(path).bytes == file.content.bytes;
}

bool is_area_alone(const Phone& phone) {
  for (const PhoneFile& file : phone.files) {
    if (file.path != kPullStateFile) continue;
    const auto state = parse_pull_state(text_of(file.content.bytes));
    return state && state->area_only.contains(phone.partition()->path);
  }
  return false;
}

bool is_nand_without_map(const Phone& phone) {
  return phone.partition()->path.starts_with("dev/mtd/") && phone.partition()->block_size == 0;
}

/// Why nothing may be written to it; null: it may.
std::optional<std::string> trouble_of(const Phone& phone, const RestoreQuestion& question) {
  if (!phone.is_complete()) return phone.unknown.front();
  if (phone.partition() == nullptr) return "the partition is missing";
  if (is_area_alone(phone)) return "only the record area was pulled: pull it with --whole";
  if (is_nand_without_map(phone)) return "which blocks of the chip are bad is not known";
  const bool is_said = question.base || (phone.properties && phone.properties->contains("ro.pagesize"));
  if (!is_said && !phone.area->has_records) return "where the record area begins is not known: give --base";
  if (phone.area->base != area_base(std::to_string(phone.area->page_size)))
    return "the record area is not where the phone looks for it";
  if (!is_as_on_disk(phone, question.target))
    return "not the partition as the phone delivers it: nothing is written to it";
  return std::nullopt;
}

Phone open_target(const RestoreQuestion& question) {
  Phone phone = open_phone_of({.paths = {question.target}, .base = question.base});
  if (phone.kind != Layout::phone && phone.kind != Layout::partition)
    throw InputError(
        fmt::format("{}: neither a phone's folder nor an image of the partition", question.target));
  if (const auto trouble = trouble_of(phone, question))
    throw InputError(fmt::format("{}: {}", question.target, *trouble));
  return phone;
}

// ---- what becomes of a record -----------------------------------------------------------------------------

/// The bytes as if they were found by themselves.
Finding judged(const BackupRecord& record, const Modules& modules) {
  Phone alone;
  alone.files.push_back({.path = "", .layout = Layout::record, .kind = record.spec->kind});
  return verdict_on(alone, {record.spec, record.camera, Source::file, 0, 0, record.bytes}, modules);
}

RecordKind partner_of(RecordKind kind) {
  return kind == RecordKind::gyro ? RecordKind::a_light_awb : RecordKind::gyro;
}

bool shares_bytes(const RecordSpec& spec) {
  return spec.kind == RecordKind::gyro || spec.kind == RecordKind::a_light_awb;
}

class Planner {
 public:
  Planner(const Backup& backup, const RestoreQuestion& question)
      : backup_(backup), phone_(open_target(question)), modules_(question.modules), force_(question.force) {
    modules_.merge(modules_of(phone_));
  }

  RestorePlan plan() {
    RestorePlan plan;
    for (const BackupRecord& record : backup_.records) plan.steps.push_back(step_of(record));
    write(plan);
    return plan;
  }

 private:
  /// Why the record is not of what is fitted now; empty: it is.
  std::string foreign(const BackupRecord& record) const {
    const auto fitted = modules_.find(record.camera.value_or(Camera::main));
    if (fitted == modules_.end()) return "which module is fitted is not known: give --fuse";
    if (fitted->second != record.module)
      return fmt::format("of another module: its fuse ID is {}, and fitted is {}", fuse_text(record.module),
                         fuse_text(fitted->second));
    if (record.camera) return "";
    // What the pair was measured for is both of its modules.
    const auto before = backup_.modules.find(Camera::sub);
    const auto now = modules_.find(Camera::sub);
    const bool is_same = (before == backup_.modules.end()) == (now == modules_.end()) &&
                         (now == modules_.end() || before->second == now->second);
    return is_same ? "" : "of another pair: the sub camera's module is another one";
  }

  /// Of two records that share bytes one alone can be on the partition: where the old one does not say which, the
  /// gyro's, which the production line writes last.
  bool is_for_partition(const BackupRecord& record) const {
    if (!record.spec->offset) return false;
    if (!shares_bytes(*record.spec)) return true;
    const BackupRecord* partner = backup_.find(partner_of(record.spec->kind), record.camera);
    if (partner == nullptr || !foreign(*partner).empty()) return true;
    if (record.was_on_partition() != partner->was_on_partition()) return record.was_on_partition();
    return record.spec->kind == RecordKind::gyro;
  }

  /// The cache file that no other camera's readers open.
  std::string cache_of(const BackupRecord& record) const {
    if (phone_.kind != Layout::phone || record.spec->files == nullptr) return "";
    const std::string_view name = record.spec->cache_file(record.camera.value_or(Camera::main));
    const bool is_own = record.camera == Camera::main || name != record.spec->cache_file(Camera::main);
    return is_own ? fmt::format("data/misc/camera/{}", name) : "";
  }

  /// What stands in the record's place: it itself, another good one, or nothing that counts.
  enum class There { itself, good, nothing };
  There there(const RecordSpec& spec, const BackupRecord& record, Source source) const {
    const FoundRecord* found = phone_.find(spec, record.camera, source);
    if (found == nullptr || found->bytes.empty()) return There::nothing;
    if (found->bytes == record.bytes) return There::itself;
    const bool is_good = verdict_on(phone_, *found, modules_).verdict == Verdict::good;
    return is_good && !is_blank_record(phone_, *found) ? There::good : There::nothing;
  }

  RestoreStep step_of(const BackupRecord& record) const {
    RestoreStep step{.record = &record};
    step.text = foreign(record);
    if (!step.text.empty()) return step;
    if (const Finding finding = judged(record, modules_); finding.verdict != Verdict::good) {
      step.text = fmt::format("{}: expected {}, found {}", verdict_name(finding.verdict), finding.expected,
                              finding.found);
      return step;
    }
    take_places(step);
    return step;
  }

  void take_places(RestoreStep& step) const {
    const BackupRecord& record = *step.record;
    const bool for_partition = is_for_partition(record);
    const bool for_cache = !cache_of(record).empty();
    if (!for_partition && !for_cache) {
      step.text = "an image of the partition has no place for it";
      return;
    }
    const There on_partition =
        for_partition ? there(*record.spec, record, phone_.partition()->source) : There::itself;
    const There in_cache = for_cache ? there(*record.spec, record, Source::cache) : There::itself;
    const bool is_under_partner = for_partition && on_partition != There::itself && is_over_partner(record);
    if (!force_ && (on_partition == There::good || in_cache == There::good || is_under_partner)) {
      step.text = is_under_partner ? "another good record that shares its bytes is there: --force replaces it"
                                   : "another good one of this module is there: --force replaces it";
      return;
    }
    step.to_partition = for_partition && on_partition != There::itself;
    step.to_cache = for_cache && in_cache != There::itself;
    step.fate = step.to_partition || step.to_cache ? RestoreFate::restored : RestoreFate::already_there;
    step.text = for_partition && for_cache ? "partition and cache file"
                : for_partition            ? "partition"
                                           : "cache file";
  }

  /// A good one of the phone's own, which is not going to be replaced by its own of the backup.
  bool is_over_partner(const BackupRecord& record) const {
    if (!shares_bytes(*record.spec)) return false;
    const FoundRecord* found =
        phone_.find(record_spec(partner_of(record.spec->kind)), record.camera, phone_.partition()->source);
    return found != nullptr && !is_blank_record(phone_, *found) &&
           verdict_on(phone_, *found, modules_).verdict == Verdict::good;
  }

  Bytes cache_content(const BackupRecord& record) const {
    if (!record.spec->cache_is_export()) return record.bytes;
    Bytes image(calib::kExportSize);
    std::ranges::copy(record.bytes,
                      image.begin() + static_cast<std::ptrdiff_t>(*record.spec->export_offset()));
    return image;
  }

  void write(RestorePlan& plan) const {
    const bool writes = std::ranges::any_of(plan.steps, &RestoreStep::to_partition);
    if (writes) {
      WriterPhone writer(phone_);
      for (const RestoreStep& step : plan.steps) {
        if (!step.to_partition) continue;
        const int camid = camid_of(step.record->camera.value_or(Camera::main));
        writer.write(area_offset(*step.record->spec, camid), step.record->bytes);
      }
      plan.files = {writer.file()};
      note_blocks(plan);
    }
    for (const RestoreStep& step : plan.steps) {
      if (step.to_cache)
        plan.files.push_back({.path = cache_of(*step.record), .bytes = cache_content(*step.record)});
    }
  }

  void note_blocks(RestorePlan& plan) const {
    const Bytes& before = phone_.partition()->content.bytes;
    const Bytes& after = plan.files[0].bytes;
    plan.block_size = phone_.partition()->block_size;
    for (const uint32_t block : phone_.partition()->blocks) {
      const auto at = static_cast<std::ptrdiff_t>(uint64_t{block} * plan.block_size);
      if (!std::equal(before.begin() + at, before.begin() + at + plan.block_size, after.begin() + at))
        plan.changed_blocks.push_back(block);
    }
  }

  const Backup& backup_;
  Phone phone_;
  Modules modules_;
  bool force_;
};

}  // namespace

RestorePlan plan_restore(const Backup& backup, const RestoreQuestion& question) {
  return Planner(backup, question).plan();
}

void apply(const RestorePlan& plan, const std::string& target) {
  const bool is_folder = fs::is_directory(target);
  for (const OutputFile& file : plan.files) {
    const fs::path path = is_folder ? fs::path(target) / file.path : fs::path(target);
    struct stat status = {};
    const bool is_there = stat(path.c_str(), &status) == 0;
    fs::create_directories(path.parent_path());
    write_output({path.string(), true}, text_of(file.bytes));
    if (is_there) chmod(path.c_str(), status.st_mode & 07777);
  }
}

}  // namespace awbcal
