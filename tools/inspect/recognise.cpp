#include "inspect/recognise.h"

#include <fmt/format.h>

#include <map>

#include "inspect/claims.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kExportFolder = "android_camera_awb_cal";

std::optional<Recognised> by_node_name(const std::string& name) {
  if (name == "awb_cal_3D") return Recognised{Layout::dual_camera_node};
  for (const calib::Camera camera : kCameras) {
    if (name == leaf_of(calib::kExportNode.of(camera))) return Recognised{Layout::export_image, {}, camera};
  }
  return std::nullopt;
}

std::map<std::string_view, Recognised> cache_names() {
  std::map<std::string_view, Recognised> names;
  for (const RecordSpec& spec : record_specs()) {
    for (const calib::Camera camera : kCameras) {
      Recognised known{spec.cache_is_export() ? Layout::export_image : Layout::record, spec.kind};
      if (spec.is_per_camera) known.camera = camera;
      if (!spec.cache_file(camera).empty()) names.emplace(spec.cache_file(camera), known);
    }
  }
  return names;
}

std::optional<Recognised> by_cache_name(const std::string& name) {
  static const std::map<std::string_view, Recognised> kNames = cache_names();
  const auto known = kNames.find(name);
  return known == kNames.end() ? std::nullopt : std::optional(known->second);
}

Recognised as_said(const std::string& as) {
  const std::optional<Layout> layout = layout_of_name(as);
  if (layout && *layout >= Layout::partition && *layout < Layout::record) return {*layout};
  const RecordSpec* spec = record_spec_of_id(as);
  if (spec == nullptr) throw InputError(fmt::format("--as {}: no such kind", as));
  return {Layout::record, spec->kind};
}

}  // namespace

std::vector<const RecordSpec*> kinds_of_size(std::span<const uint8_t> bytes) {
  std::vector<const RecordSpec*> kinds;
  std::vector<const RecordSpec*> good;
  for (const RecordSpec& spec : record_specs()) {
    if (spec.size != bytes.size()) continue;
    kinds.push_back(&spec);
    // Over bytes and their own CRC the checksum is 0: the end of another kind's record would pass for one.
    const Claims claims = claims_of(spec, bytes);
    if (claims.has_good_crc() && claims.words.stored_crc != 0) good.push_back(&spec);
  }
  return good.empty() ? kinds : good;
}

std::optional<PhoneFile> recognise_by_place(const std::string& path) {
  const std::string leaf = fs::path(path).filename().string();
  const bool in_sysfs = fs::path(path).parent_path().filename() == kExportFolder;
  if (const auto cached = in_sysfs ? std::nullopt : by_cache_name(leaf)) {
    return PhoneFile{.path = path,
                     .layout = cached->layout,
                     .source = Source::cache,
                     .kind = cached->kind,
                     .camera = cached->camera};
  }
  // A node's name without its folder: what was pulled file by file.
  if (const auto node = by_node_name(leaf)) {
    return PhoneFile{
        .path = path, .layout = node->layout, .source = Source::kernel_export, .camera = node->camera};
  }
  return std::nullopt;
}

std::optional<Recognised> recognise_alone(const std::string& name, const Bytes& bytes,
                                          const std::string& as) {
  const std::string leaf = fs::path(name).filename().string();
  const bool in_sysfs = fs::path(name).parent_path().filename() == kExportFolder;
  const auto node = by_node_name(leaf);
  const auto cached = in_sysfs ? std::nullopt : by_cache_name(leaf);
  if (!as.empty()) {
    Recognised file = as_said(as);
    if (cached && cached->kind == file.kind) file.camera = cached->camera;
    if (node && file.layout == Layout::export_image) file.camera = node->camera;
    return file;
  }
  // "awb_cal" is a cache file and a node; only the node is as long as an export.
  if (node && (in_sysfs || !cached || bytes.size() == calib::kExportSize)) return node;
  if (cached) return cached;
  const std::vector<const RecordSpec*> kinds = kinds_of_size(bytes);
  if (!kinds.empty()) return Recognised{Layout::record, kinds.front()->kind};
  if (bytes.size() == calib::kExportSize) return Recognised{Layout::export_image};
  return std::nullopt;
}

}  // namespace awbcal
