#include "inspect/json_form.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>

#include "inspect/verdict.h"
#include "text/utc.h"
#include "text/version.h"

namespace awbcal {

namespace {

constexpr size_t kShortestFill = 32;

const char* state_of(const Phone& phone, const FoundRecord& record) {
  if (!record.bytes.empty() && is_blank_record(phone, record)) return "blank";
  return record.is_truncated() ? "truncated" : "present";
}

Json fields_json(const FoundRecord& record) {
  Json fields = Json::object();
  for (const FieldSpec& field : record.spec->fields) {
    if (fits(field, record.bytes.size())) fields[field_id(field)] = field_json(record.bytes, field);
  }
  return fields;
}

Json meanings_json(const FoundRecord& record) {
  Json meanings = Json::object();
  std::vector<Field> fields = decode(*record.spec, record.bytes);
  for (size_t i = 0; i < fields.size(); ++i) {
    if (!fields[i].meaning.empty()) meanings[field_id(record.spec->fields[i])] = fields[i].meaning;
  }
  return meanings;
}

Json record_json(const Phone& phone, const FoundRecord& record, const Modules& modules, bool raw) {
  const std::string state = state_of(phone, record);
  Json json = {{"kind", record.spec->id},
               {"camera", json_of(record.camera)},
               {"source", source_name(record.source)},
               {"file", phone.files[record.file].path},
               {"offset", record.offset},
               {"size", record.bytes.size()},
               {"state", state}};
  if (state != "blank") {
    json["fields"] = fields_json(record);
    json["meanings"] = meanings_json(record);
    json["faults"] = Json::array();
    for (const Finding& fault : faults_of(phone, record, modules))
      json["faults"].push_back(verdict_name(fault.verdict));
  }
  if (const FoundRecord* owner = good_overlap(phone, record)) json["overwritten_by"] = owner->spec->id;
  if (raw) json["raw"] = hex(record.bytes);
  return json;
}

struct Extent {
  size_t begin;
  size_t end;
  auto operator<=>(const Extent&) const = default;
};

/// Which bytes of the file the records' fields give, by where they begin.
std::vector<Extent> given_by_fields(const Phone& phone, size_t file) {
  std::vector<Extent> given;
  for (const FoundRecord& record : phone.records) {
    if (record.file != file || is_blank_record(phone, record)) continue;
    for (const FieldSpec& field : record.spec->fields) {
      if (!fits(field, record.bytes.size())) continue;
      const size_t begin = record.offset + field.offset;
      given.push_back({begin, begin + field.width});
    }
  }
  std::sort(given.begin(), given.end());
  return given;
}

/// Bytes [begin, end) as runs of one value and the bytes between them.
void add_runs(Json& rest, const Bytes& bytes, size_t begin, size_t end) {
  size_t plain = begin;
  const auto add_plain = [&](size_t until) {
    if (plain == until) return;
    const auto run = std::span(bytes).subspan(plain, until - plain);
    rest.push_back({{"offset", plain}, {"bytes", hex(run)}});
  };
  for (size_t at = begin; at < end;) {
    const size_t same = fill_length(std::span(bytes).subspan(at, end - at));
    if (same >= kShortestFill) {
      add_plain(at);
      rest.push_back({{"offset", at}, {"size", same}, {"fill", bytes[at]}});
      plain = at + same;
    }
    at += same;
  }
  add_plain(end);
}

Json rest_json(const Phone& phone, size_t file) {
  const Bytes& bytes = phone.files[file].content.bytes;
  Json rest = Json::array();
  size_t at = 0;
  for (const Extent& given : given_by_fields(phone, file)) {
    add_runs(rest, bytes, at, std::max(at, given.begin));
    at = std::max(at, given.end);
  }
  add_runs(rest, bytes, at, bytes.size());
  return rest;
}

bool is_plain_text(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) {
    return byte == '\n' || byte == '\t' || (byte >= 0x20 && byte < 0x7F);
  });
}

Json file_json(const Phone& phone, size_t index) {
  const PhoneFile& file = phone.files[index];
  Json json = {{"path", file.path}, {"layout", layout_name(file.layout)}};
  if (file.content.trouble) {
    json["unreadable"] = *file.content.trouble;
    return json;
  }
  json["size"] = file.content.bytes.size();
  const bool is_text = file.layout == Layout::text || file.layout == Layout::properties;
  if (is_text && is_plain_text(file.content.bytes)) {
    json["text"] = text_of(file.content.bytes);
  } else {
    json["rest"] = rest_json(phone, index);
  }
  return json;
}

}  // namespace

Json json_document(const char* command) {
  const Json name = command == nullptr ? Json(nullptr) : Json(command);
  return {{"awbcal_json", kJsonVersion},
          {"tool", version_text()},
          {"time", utc_text(std::time(nullptr))},
          {"command", name}};
}

Json error_document(const char* command, std::string_view message, int exit_code) {
  Json document = json_document(command);
  document["error"] = {{"message", message}, {"exit_code", exit_code}};
  return document;
}

Json json_of(std::optional<calib::Camera> camera) {
  return camera ? Json(camera_name(*camera)) : Json(nullptr);
}

Json json_of(const Phone& phone) {
  Json json = {{"name", phone.name}, {"kind", layout_name(phone.kind)}};
  if (!phone.digests.empty()) json["sha256"] = digest_of(phone.digests);
  if (!phone.notes.empty()) json["notes"] = phone.notes;
  if (!phone.is_complete()) json["unknown"] = phone.unknown;
  if (phone.area) json["record_area"] = {{"base", phone.area->base}, {"reason", phone.area->reason}};
  return json;
}

std::string text_of(const Json& document) {
  return document.dump(1, ' ', true, Json::error_handler_t::replace) + "\n";
}

std::string field_id(const FieldSpec& field) {
  std::string id;
  for (const char c : std::string_view(field.name)) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0) {
      id += static_cast<char>(std::tolower(byte));
    } else if (!id.ends_with('_')) {
      id += '_';
    }
  }
  return id;
}

namespace {

/// Row by row; a gain that is no finite number keeps its bits as the hexadecimal digits of its bytes.
Json gains_json(std::span<const uint8_t> gains) {
  Json rows = Json::array();
  for (size_t i = 0; i < calib::kMeshGains; ++i) {
    if (i % kMeshColumns == 0) rows.push_back(Json::array());
    const std::span<const uint8_t> bytes = gains.subspan(i * sizeof(float), sizeof(float));
    const auto gain = calib::record_at<float>(bytes.data());
    rows.back().push_back(std::isfinite(gain) ? Json(gain) : Json(hex(bytes)));
  }
  return rows;
}

}  // namespace

Json field_json(std::span<const uint8_t> record, const FieldSpec& field) {
  if (field.kind == FieldKind::gains) return gains_json(record.subspan(field.offset, field.width));
  if (is_run_of_bytes(field)) return hex(record.subspan(field.offset, field.width));
  const uint64_t value = field_value(record, field);
  if (field.kind == FieldKind::signed_word) return static_cast<int32_t>(value);
  return value;
}

Json show_document(const Phone& phone, bool raw) {
  Json document = json_document("show");
  document["input"] = json_of(phone);
  document["records"] = Json::array();
  const Modules modules = modules_of(phone);
  for (const FoundRecord& record : phone.records)
    document["records"].push_back(record_json(phone, record, modules, raw));
  document["files"] = Json::array();
  for (size_t file = 0; file < phone.files.size(); ++file) {
    if (phone.files[file].layout != Layout::other) document["files"].push_back(file_json(phone, file));
  }
  return document;
}

}  // namespace awbcal
