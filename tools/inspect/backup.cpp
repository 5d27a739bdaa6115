#include "inspect/backup.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <map>
#include <variant>

#include "inspect/archive.h"
#include "inspect/json_form.h"
#include "inspect/phrases.h"
#include "inspect/verdict.h"

namespace awbcal {

using calib::Camera;

namespace {

constexpr const char* kDocument = "backup.json";

// ---- of a phone -------------------------------------------------------------------------------------------

std::vector<std::optional<Camera>> cameras_of(const RecordSpec& spec) {
  if (!spec.is_per_camera) return {std::nullopt};
  return {kCameras.begin(), kCameras.end()};
}

/// In the order in which readers try the sources.
std::vector<const FoundRecord*> found_records(const Phone& phone, const RecordSpec& spec,
                                              std::optional<Camera> camera) {
  std::vector<const FoundRecord*> found;
  for (const FoundRecord& record : phone.records) {
    if (record.spec == &spec && record.camera == camera) found.push_back(&record);
  }
  std::ranges::stable_sort(found, {}, [](const FoundRecord* record) { return record->source; });
  return found;
}

/// The fitted module, or where that is not known, the one that the record is bound to.
calib::FuseWords module_for(const FoundRecord& record, const Modules& modules) {
  const auto fitted = modules.find(record.camera.value_or(Camera::main));
  return fitted != modules.end() ? fitted->second : claims_of(*record.spec, record.bytes).words.fuse;
}

bool is_kept(const Phone& phone, const FoundRecord& record, const Modules& modules) {
  return verdict_on(phone, record, modules).verdict == Verdict::good &&
         claims_of(*record.spec, record.bytes).has_good_crc() &&
         module_for(record, modules) != calib::FuseWords{};
}

std::string why_not(const Phone& phone, const FoundRecord& record, const Modules& modules) {
  const Verdict verdict = verdict_on(phone, record, modules).verdict;
  if (verdict != Verdict::good) return verdict_name(verdict);
  if (!claims_of(*record.spec, record.bytes).has_good_crc()) return "no checksum of its own";
  return is_kept(phone, record, modules) ? "good, and another one than readers take" : "bound to no module";
}

void add_records(BackupOfPhone& result, const Phone& phone, const RecordSpec& spec,
                 std::optional<Camera> camera) {
  const Modules& modules = result.backup.modules;
  BackupRecord kept{.spec = &spec, .camera = camera, .module = {}};
  std::map<std::string, std::vector<const char*>> reasons;
  for (const FoundRecord* record : found_records(phone, spec, camera)) {
    const bool is_good = is_kept(phone, *record, modules);
    if (is_good && kept.sources.empty()) {
      kept.bytes = record->bytes;
      kept.module = module_for(*record, modules);
    }
    if (is_good && record->bytes == kept.bytes) {
      kept.sources.insert(record->source);
    } else if (!record->bytes.empty() && !is_blank_record(phone, *record)) {
      reasons[why_not(phone, *record, modules)].push_back(source_name(record->source));
    }
  }
  for (const auto& [reason, sources] : reasons)
    result.left_out.push_back(
        {record_title(spec, camera), fmt::format("{} ({})", reason, fmt::join(sources, ", "))});
  if (!kept.sources.empty()) result.backup.records.push_back(std::move(kept));
}

// ---- the document -----------------------------------------------------------------------------------------

std::string file_name(const BackupRecord& record) {
  return fmt::format("records/{}/{}.bin", record.camera ? camera_name(*record.camera) : "phone",
                     record.spec->id);
}

Json record_json(const BackupRecord& record) {
  Json sources = Json::array();
  for (const Source source : record.sources) sources.push_back(source_name(source));
  return {{"kind", record.spec->id},          {"camera", json_of(record.camera)},
          {"module", record.module},          {"sources", std::move(sources)},
          {"file", file_name(record)},        {"size", record.bytes.size()},
          {"sha256", sha256_of(record.bytes)}};
}

std::string document_of(const Backup& backup) {
  Json document = json_document("backup");
  document["awbcal_backup"] = kBackupVersion;
  document["modules"] = Json::object();
  for (const auto& [camera, words] : backup.modules) document["modules"][camera_name(camera)] = words;
  document["records"] = Json::array();
  for (const BackupRecord& record : backup.records) document["records"].push_back(record_json(record));
  return text_of(document);
}

calib::FuseWords words_of(const Json& json) {
  calib::FuseWords words{};
  if (json.size() != words.size()) throw InputError("a fuse ID has four words");
  for (size_t i = 0; i < words.size(); ++i) {
    if (!json.at(i).is_number_unsigned()) throw InputError("a fuse word is a number from 0");
    words[i] = json.at(i).get<uint64_t>();
  }
  return words;
}

Camera camera_of(const std::string& name) {
  const auto camera = camera_of_name(name);
  if (!camera) throw InputError(fmt::format("no such camera: \"{}\"", name));
  return *camera;
}

Source source_of(const std::string& name) {
  for (const Source source :
       {Source::cache, Source::kernel_export, Source::partition, Source::factory, Source::file}) {
    if (name == source_name(source)) return source;
  }
  throw InputError(fmt::format("no such source: \"{}\"", name));
}

BackupRecord record_of(const Json& json) {
  const auto kind = json.at("kind").get<std::string>();
  BackupRecord record{.spec = record_spec_of_id(kind), .camera = {}, .module = words_of(json.at("module"))};
  if (record.spec == nullptr) throw InputError(fmt::format("no such kind: \"{}\"", kind));
  if (!json.at("camera").is_null()) record.camera = camera_of(json.at("camera").get<std::string>());
  if (record.camera.has_value() != record.spec->is_per_camera)
    throw InputError(fmt::format("{}: of a camera, or of the whole phone?", kind));
  for (const Json& source : json.at("sources")) record.sources.insert(source_of(source.get<std::string>()));
  return record;
}

/// Takes the record's bytes from its file; why they are not what they were, if so.
std::string take_bytes(BackupRecord& record, const Json& json, const FileTree& tree) {
  FileContent content = tree.read(json.at("file").get<std::string>());
  if (content.trouble) return *content.trouble;
  if (content.bytes.size() != record.spec->size)
    return fmt::format("{} bytes, expected {}", content.bytes.size(), record.spec->size);
  if (sha256_of(content.bytes) != json.at("sha256").get<std::string>()) return "not the digest that it had";
  record.bytes = std::move(content.bytes);
  return "";
}

ReadBackup read_document(const Json& document, const FileTree& tree) {
  if (!document.is_object() || !document.contains("awbcal_backup")) throw InputError("no backup of awbcal");
  if (document.at("awbcal_backup") != kBackupVersion)
    throw InputError(fmt::format("a backup of version {}, this awbcal reads {}",
                                 document.at("awbcal_backup").dump(), kBackupVersion));
  ReadBackup result;
  for (const auto& [name, words] : document.at("modules").items())
    result.backup.modules.emplace(camera_of(name), words_of(words));
  for (const Json& json : document.at("records")) {
    BackupRecord record = record_of(json);
    const std::string title = record_title(*record.spec, record.camera);
    if (result.backup.find(record.spec->kind, record.camera) != nullptr)
      throw InputError(fmt::format("{}: there twice", title));
    const std::string trouble = take_bytes(record, json, tree);
    if (trouble.empty()) {
      result.backup.records.push_back(std::move(record));
    } else {
      result.damaged.push_back({title, trouble});
    }
  }
  return result;
}

FileTree tree_of(const std::string& name, std::span<const uint8_t> file) {
  if (is_packed(file)) {
    auto content = unpacked(name, file);
    if (auto* tree = std::get_if<FileTree>(&content)) return std::move(*tree);
  }
  throw InputError(fmt::format("{}: no backup of awbcal: not an archive", name));
}

}  // namespace

const BackupRecord* Backup::find(RecordKind kind, std::optional<Camera> camera) const {
  const auto found = std::ranges::find_if(records, [&](const BackupRecord& record) {
    return record.spec->kind == kind && record.camera == camera;
  });
  return found == records.end() ? nullptr : &*found;
}

BackupOfPhone backup_of(const Phone& phone, const Modules& modules) {
  BackupOfPhone result{.backup = {.modules = modules}, .left_out = {}};
  for (const RecordSpec& spec : record_specs()) {
    for (const auto camera : cameras_of(spec)) add_records(result, phone, spec, camera);
  }
  return result;
}

Bytes file_of(const Backup& backup) {
  const std::string document = document_of(backup);
  std::vector<OutputFile> files = {{.path = kDocument, .bytes = Bytes(document.begin(), document.end())}};
  for (const BackupRecord& record : backup.records)
    files.push_back({.path = file_name(record), .bytes = record.bytes});
  return packed(files);
}

ReadBackup read_backup(const std::string& name, std::span<const uint8_t> file) {
  const FileTree tree = tree_of(name, file);
  const FileContent document = tree.read(kDocument);
  try {
    if (document.trouble) throw InputError("no backup of awbcal: it has no backup.json");
    return read_document(parse_document(text_of(document.bytes)), tree);
  } catch (const Json::exception&) {
    throw InputError(fmt::format("{}: {}: a value is missing or of another type", name, kDocument));
  } catch (const InputError& error) {
    throw InputError(fmt::format("{}: {}", name, error.what()));
  }
}

}  // namespace awbcal
