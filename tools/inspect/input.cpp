#include "inspect/input.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "inspect/errors.h"
#include "inspect/judge.h"
#include "inspect/phone_folder.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr std::array<uint32_t, 2> kBases = {calib::kAreaBase4k, calib::kAreaBase2k};

/// What the file's name says, or nothing.
struct NamedFile {
  Layout layout;
  std::optional<RecordKind> kind = {};
  std::optional<calib::Camera> camera = {};
};

std::optional<NamedFile> by_export_name(const std::string& name) {
  if (name == "awb_cal_3D") return NamedFile{Layout::dual_camera_node};
  constexpr std::array kNodes = {"awb_cal", "awb_cal_front", "awb_cal_sub"};
  for (const calib::Camera camera : kCameras) {
    if (name == kNodes.at(static_cast<size_t>(camera))) return NamedFile{Layout::export_image, {}, camera};
  }
  return std::nullopt;
}

std::optional<NamedFile> by_cache_name(const std::string& name) {
  for (const RecordSpec& spec : record_specs()) {
    for (const calib::Camera camera : kCameras) {
      const char* file = spec.cache.of(camera);
      if (file == nullptr || name != file) continue;
      NamedFile named{spec.cache_is_export ? Layout::export_image : Layout::record, spec.kind};
      if (spec.is_per_camera) named.camera = camera;
      return named;
    }
  }
  return std::nullopt;
}

/// Among the kinds of this size the one whose checksum is good, else the first.
std::optional<RecordKind> kind_by_content(std::span<const uint8_t> bytes) {
  std::optional<RecordKind> first;
  for (const RecordSpec& spec : record_specs()) {
    if (spec.size != bytes.size()) continue;
    // Over bytes and their own CRC the checksum is 0: the end of another kind's record would pass for one.
    const Claims claims = claims_of(spec, bytes);
    if (claims.has_good_crc() && claims.words.stored_crc != 0) return spec.kind;
    if (!first) first = spec.kind;
  }
  return first;
}

NamedFile by_content(const std::string& name, const Bytes& bytes) {
  if (const auto kind = kind_by_content(bytes)) return {Layout::record, kind};
  if (bytes.size() == calib::kExportSize) return {Layout::export_image};
  if (bytes.size() == calib::kSlotSize) return {Layout::dual_camera_node};
  if (bytes.size() > calib::kAreaBase2k) return {Layout::partition};
  throw InputError(fmt::format("{}: {} bytes are neither a record, an export nor a partition; --as names it",
                               name, bytes.size()));
}

NamedFile by_option(const std::string& as) {
  if (as == "partition") return {Layout::partition};
  if (as == "export") return {Layout::export_image};
  if (as == "node") return {Layout::dual_camera_node};
  const RecordSpec* spec = record_spec_of_id(as);
  if (spec == nullptr) throw InputError(fmt::format("--as {}: there is no such kind", as));
  return {Layout::record, spec->kind};
}

NamedFile recognise_file(const std::string& name, const Bytes& bytes, const InputOptions& options) {
  const std::string leaf = fs::path(name).filename().string();
  const bool in_sysfs = fs::path(name).parent_path().filename() == "android_camera_awb_cal";
  const auto exported = by_export_name(leaf);
  const auto cached = in_sysfs ? std::nullopt : by_cache_name(leaf);
  if (!options.as.empty()) {
    NamedFile file = by_option(options.as);
    if (cached && cached->kind == file.kind) file.camera = cached->camera;
    if (exported && file.layout == Layout::export_image) file.camera = exported->camera;
    return file;
  }
  // "awb_cal" is a cache file and a node; only the node is as long as an export.
  if (exported && (in_sysfs || !cached || bytes.size() == calib::kExportSize)) return *exported;
  if (cached) return *cached;
  return by_content(name, bytes);
}

/// The byte of the file that is byte `offset` of the partition; past its end when there is none.
uint64_t place_in_file(const InputFile& file, uint64_t offset) {
  if (file.block_size == 0) return offset;
  const uint64_t block = offset / file.block_size;
  if (block >= file.blocks.size()) return file.content.bytes.size();
  return uint64_t{file.blocks[block]} * file.block_size + offset % file.block_size;
}

Bytes cut(const Bytes& bytes, uint64_t offset, size_t size) {
  if (offset >= bytes.size()) return {};
  const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  return Bytes(first, first + static_cast<std::ptrdiff_t>(std::min<uint64_t>(size, bytes.size() - offset)));
}

class Finder {
 public:
  Finder(const Input& input, size_t file) : file_(input.files[file]), index_(file) {}

  std::vector<FoundRecord> records(uint32_t base) {
    switch (file_.layout) {
      case Layout::partition:
        in_partition(base);
        break;
      case Layout::export_image:
        in_export();
        break;
      case Layout::dual_camera_node:
        in_node();
        break;
      case Layout::record:
        add(record_spec(file_.kind.value()), file_.camera, 0);
        break;
      default:
        break;
    }
    return std::move(found_);
  }

 private:
  void add(const RecordSpec& spec, std::optional<calib::Camera> camera, uint64_t offset) {
    found_.push_back(
        {&spec, camera, file_.source, index_, offset, cut(file_.content.bytes, offset, spec.size)});
  }

  void in_partition(uint32_t base) {
    for (const RecordSpec& spec : record_specs()) {
      if (!spec.offset) continue;
      for (const calib::Camera camera : kCameras) {
        const auto of = spec.is_per_camera ? std::optional(camera) : std::nullopt;
        add(spec, of, place_in_file(file_, uint64_t{base} + area_offset(spec, camid_of(camera))));
        if (!of) break;
      }
    }
  }

  void in_export() {
    for (const RecordSpec& spec : record_specs()) {
      if (spec.export_offset && file_.kind.value_or(spec.kind) == spec.kind) {
        add(spec, file_.camera, *spec.export_offset);
      }
    }
  }

  void in_node() {
    for (const RecordSpec& spec : record_specs()) {
      if (spec.offset && !spec.is_per_camera) add(spec, {}, *spec.offset - calib::kAreaDualCameraFirstForm);
    }
  }

  const InputFile& file_;
  size_t index_;
  std::vector<FoundRecord> found_;
};

/// Records at this base that can hardly be there by chance.
int good_records_at(const Input& input, size_t file, uint32_t base) {
  const std::vector<FoundRecord> records = Finder(input, file).records(base);
  return static_cast<int>(std::count_if(records.begin(), records.end(), [](const FoundRecord& record) {
    return !record.is_truncated() && !is_blank(record.bytes) &&
           field_of_kind(*record.spec, FieldKind::valid_word) != nullptr &&
           claims_of(*record.spec, record.bytes).has_good_crc();
  }));
}

bool has_content_at(const Input& input, size_t file, uint32_t base) {
  const std::vector<FoundRecord> records = Finder(input, file).records(base);
  return std::any_of(records.begin(), records.end(), [](const FoundRecord& record) {
    return !record.bytes.empty() && !is_blank(record.bytes);
  });
}

RecordArea area_by_content(const Input& input, size_t file) {
  const int good[2] = {good_records_at(input, file, kBases[0]), good_records_at(input, file, kBases[1])};
  if (good[0] != good[1]) {
    const size_t best = good[0] > good[1] ? 0 : 1;
    return {kBases.at(best), fmt::format("good checksums there: {}, at 0x{:x}: {}", good[best],
                                         kBases.at(1 - best), good[1 - best])};
  }
  const bool only_second = has_content_at(input, file, kBases[1]) && !has_content_at(input, file, kBases[0]);
  const size_t best = only_second ? 1 : 0;
  return {kBases.at(best), fmt::format("good checksums at either base: {}; --base decides", good[0])};
}

RecordArea decide_area(const Input& input, size_t file, const InputOptions& options) {
  if (options.base) return {*options.base, "as --base says"};
  if (input.properties) {
    const auto page_size = input.properties->find("ro.pagesize");
    if (page_size != input.properties->end()) {
      return {area_base(page_size->second), fmt::format("ro.pagesize is {}", page_size->second)};
    }
  }
  return area_by_content(input, file);
}

InputKind kind_of(Layout layout) {
  switch (layout) {
    case Layout::partition:
      return InputKind::partition;
    case Layout::export_image:
      return InputKind::export_image;
    case Layout::dual_camera_node:
      return InputKind::dual_camera_node;
    default:
      return InputKind::record;
  }
}

bool is_blank_char(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_blank_char(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_blank_char(text.back())) text.remove_suffix(1);
  return text;
}

/// "[name]: [value]", as getprop prints it.
bool parse_getprop_line(std::string_view line, std::map<std::string, std::string>& properties) {
  const size_t middle = line.find("]: [");
  if (!line.starts_with('[') || !line.ends_with(']') || middle == std::string_view::npos) return false;
  const std::string_view value = line.substr(middle + 4);
  properties[std::string(line.substr(1, middle - 1))] = std::string(value.substr(0, value.size() - 1));
  return true;
}

}  // namespace

const char* layout_name(Layout layout) {
  constexpr std::array kNames = {"partition", "export", "node", "record", "properties", "text", "other"};
  return kNames.at(static_cast<size_t>(layout));
}

const char* source_name(Source source) {
  constexpr std::array kNames = {"cache", "export", "partition", "factory", "file"};
  return kNames.at(static_cast<size_t>(source));
}

const char* input_kind_name(InputKind kind) {
  constexpr std::array kNames = {"phone", "partition", "export", "node", "record"};
  return kNames.at(static_cast<size_t>(kind));
}

const FoundRecord* Input::find(const RecordSpec& spec, std::optional<calib::Camera> camera,
                               Source source) const {
  const auto found = std::find_if(records.begin(), records.end(), [&](const FoundRecord& record) {
    return record.spec == &spec && record.camera == camera && record.source == source;
  });
  return found == records.end() ? nullptr : &*found;
}

std::map<std::string, std::string> parse_properties(std::string_view text) {
  std::map<std::string, std::string> properties;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    const size_t equals = line.find('=');
    if (line.starts_with('#') || parse_getprop_line(line, properties) || equals == std::string_view::npos)
      continue;
    properties[std::string(line.substr(0, equals))] = std::string(line.substr(equals + 1));
  }
  return properties;
}

void find_records(Input& input, const InputOptions& options) {
  for (size_t file = 0; file < input.files.size(); ++file) {
    if (input.files[file].content.trouble) continue;
    const bool is_partition = input.files[file].layout == Layout::partition;
    if (is_partition) input.area = decide_area(input, file, options);
    std::vector<FoundRecord> found = Finder(input, file).records(is_partition ? input.area->base : 0);
    std::move(found.begin(), found.end(), std::back_inserter(input.records));
  }
}

Input recognise(const std::string& name, Bytes bytes, const InputOptions& options) {
  if (bytes.empty() && options.as.empty()) throw InputError(fmt::format("{}: is empty", name));
  const NamedFile named = recognise_file(name, bytes, options);
  Input input{.name = name, .kind = kind_of(named.layout)};
  input.files.push_back({.path = fs::path(name).filename().string(),
                         .layout = named.layout,
                         .kind = named.kind,
                         .camera = options.camera ? options.camera : named.camera,
                         .content = {std::move(bytes), std::nullopt}});
  if (named.kind && !record_spec(*named.kind).is_per_camera) input.files[0].camera.reset();
  find_records(input, options);
  return input;
}

Input open_input(const InputOptions& options) {
  std::error_code error;
  const fs::file_status status = fs::status(options.path, error);
  if (options.path != "-" && status.type() == fs::file_type::not_found) {
    throw InputError(fmt::format("{}: is absent", options.path));
  }
  if (options.path != "-" && fs::is_directory(status)) return open_phone(options);
  if (options.as == "phone") throw InputError(fmt::format("{}: is not a folder", options.path));
  FileContent content = read_file(options.path);
  if (content.trouble) throw InputError(fmt::format("{}: is unreadable: {}", options.path, *content.trouble));
  return recognise(options.path, std::move(content.bytes), options);
}

std::optional<InputFile> classify(const std::string& path) {
  const fs::path file(path);
  const std::string leaf = file.filename().string();
  const bool in_sysfs = file.parent_path().filename() == "android_camera_awb_cal";
  const auto named = in_sysfs ? by_export_name(leaf) : by_cache_name(leaf);
  if (named) {
    return InputFile{.path = path,
                     .layout = named->layout,
                     .source = in_sysfs ? Source::kernel_export : Source::cache,
                     .kind = named->kind,
                     .camera = named->camera};
  }
  // A node's name without its folder: what was pulled file by file.
  if (const auto node = by_export_name(leaf)) {
    return InputFile{
        .path = path, .layout = node->layout, .source = Source::kernel_export, .camera = node->camera};
  }
  return std::nullopt;
}

}  // namespace awbcal
