#include "inspect/open_phone.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <set>

#include "inspect/archive.h"
#include "inspect/partition_search.h"
#include "inspect/pull_state.h"
#include "inspect/recognise.h"
#include "inspect/search.h"
#include "phone/services/properties_file.h"
#include "records/record_layouts.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kPageSizeProperty = "ro.pagesize";

// ---- records in a file whose layout is known --------------------------------------------------------------

/// The byte of the file that is byte `offset` of the partition; past its end when there is none.
uint64_t place_in_file(const PhoneFile& file, uint64_t offset) {
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

void find_record(Phone& phone, size_t index, const RecordSpec& spec, std::optional<calib::Camera> camera,
                 uint64_t offset) {
  const PhoneFile& file = phone.files[index];
  phone.records.push_back(
      {&spec, camera, file.source, index, offset, cut(file.content.bytes, offset, spec.size)});
}

void find_in_partition(Phone& phone, size_t index) {
  phone.records.reserve(phone.records.size() + record_specs().size() * kCameras.size());
  for (const RecordSpec& spec : record_specs()) {
    if (!spec.offset) continue;
    for (const calib::Camera camera : kCameras) {
      const auto of = spec.is_per_camera ? std::optional(camera) : std::nullopt;
      const uint64_t offset = phone.area->base + area_offset(spec, camid_of(camera));
      find_record(phone, index, spec, of, place_in_file(phone.files[index], offset));
      if (!of) break;
    }
  }
}

void find_in_file(Phone& phone, size_t index) {
  const PhoneFile& file = phone.files[index];
  const std::optional<RecordKind> only = file.kind;
  const std::optional<calib::Camera> camera = file.camera;
  for (const RecordSpec& spec : record_specs()) {
    if (only.value_or(spec.kind) != spec.kind) continue;
    if (file.layout == Layout::record && only) find_record(phone, index, spec, camera, 0);
    if (file.layout == Layout::export_image && spec.export_offset())
      find_record(phone, index, spec, camera, *spec.export_offset());
    if (!spec.offset) continue;
    if (file.layout == Layout::slot && spec.is_per_camera)
      find_record(phone, index, spec, camera, *spec.offset);
    if (file.layout == Layout::dual_camera_node && !spec.is_per_camera)
      find_record(phone, index, spec, {}, *spec.offset - calib::kAreaDualCameraFirstForm);
  }
}

// ---- the record area --------------------------------------------------------------------------------------

/// Where the phone itself looks for the area, and who says so.
struct ExpectedBase {
  std::optional<uint32_t> base;
  std::string reason;
};

ExpectedBase expected_base(const Phone& phone, const InputOptions& options) {
  if (options.base) return {options.base, "as --base says"};
  if (phone.properties) {
    const auto page_size = phone.properties->find(kPageSizeProperty);
    if (page_size != phone.properties->end())
      return {area_base(page_size->second), fmt::format("ro.pagesize is {}", page_size->second)};
  }
  return {};
}

/// Good blocks in order, as the kernel's reader delivers them.
Bytes bytes_of_blocks(const PhoneFile& file) {
  Bytes bytes;
  for (const uint32_t block : file.blocks) {
    const auto first =
        file.content.bytes.begin() + static_cast<std::ptrdiff_t>(uint64_t{block} * file.block_size);
    bytes.insert(bytes.end(), first, first + static_cast<std::ptrdiff_t>(file.block_size));
  }
  return bytes;
}

std::string readings_text(const std::vector<Reading>& readings) {
  std::vector<std::string> texts;
  for (const Reading& reading : readings) {
    texts.push_back(fmt::format("record area at 0x{:x}{}{}{}", reading.base, reading.how.empty() ? "" : " (",
                                reading.how, reading.how.empty() ? "" : ")"));
  }
  return fmt::format("records fit more than one reading: {}; give --base or --as to choose one",
                     fmt::join(texts, "; "));
}

/// Nothing stands where records belong, and nothing that is one stands elsewhere.
void take_empty_area(Phone& phone, const PhoneFile& file, const ExpectedBase& expected) {
  const bool is_area_alone = file.content.bytes.size() <= calib::kAreaBase2k;
  const uint32_t base = expected.base.value_or(is_area_alone ? 0 : calib::kAreaBase4k);
  phone.area = {base, page_size_of(base, expected.base),
                expected.base ? expected.reason : "no record at either base"};
}

void take_reading(Phone& phone, PhoneFile& file, Reading& reading, const ExpectedBase& expected) {
  if (!reading.how.empty()) {
    phone.notes.push_back(fmt::format("{}: {}", file.path, reading.how));
    file.content.bytes = std::move(reading.bytes);
  }
  const std::string shift = shift_text(reading.base, expected.base);
  if (!shift.empty()) phone.notes.push_back(fmt::format("{}: {}", file.path, shift));
  const bool is_expected = shift.empty() && expected.base;
  phone.area = {reading.base, page_size_of(reading.base, expected.base),
                is_expected ? expected.reason : "found by its records"};
}

/// Decides the area of the partition `file`; the trouble, when its bytes can be read in several ways.
std::optional<std::string> locate_area(Phone& phone, PhoneFile& file, const InputOptions& options) {
  const ExpectedBase expected = expected_base(phone, options);
  // Blocks that are numbered are the kernel's own view of a chip.
  const SearchOptions search{
      .base = expected.base, .modules = modules_of(phone), .as_they_are = file.block_size != 0};
  if (file.block_size != 0) {
    take_empty_area(phone, file, expected);
    if (expected.base) return std::nullopt;
  }
  std::vector<Reading> readings = file.block_size != 0 ? search_records(bytes_of_blocks(file), search)
                                                       : search_records(file.content.bytes, search);
  if (readings.size() > 1) return readings_text(readings);
  if (readings.empty() || (options.base && readings[0].base != *options.base)) {
    take_empty_area(phone, file, expected);
  } else {
    take_reading(phone, file, readings[0], expected);
  }
  phone.area->has_records = !readings.empty();
  return std::nullopt;
}

void find_records(Phone& phone, const InputOptions& options) {
  for (size_t index = 0; index < phone.files.size(); ++index) {
    PhoneFile& file = phone.files[index];
    if (file.content.trouble) continue;
    if (file.layout != Layout::partition) {
      find_in_file(phone, index);
    } else if (const auto trouble = locate_area(phone, file, options)) {
      if (phone.kind != Layout::phone) throw InputError(fmt::format("{}: {}", phone.name, *trouble));
      file.content.trouble = trouble;
    } else {
      find_in_partition(phone, index);
    }
  }
}

// ---- a phone's files --------------------------------------------------------------------------------------

/// Where an archive or a folder of several begins to look like a phone: the folders that hold nothing but one
/// folder are passed over.
FileTree without_outer_folders(FileTree tree) {
  static const std::set<std::string> kRoots = {"data", "proc", "sys", "dev", "factory"};
  while (true) {
    const auto& entries = tree.entries();
    const auto first = entries.begin();
    if (first == entries.end() || first->second.type != FileTree::Type::folder ||
        kRoots.contains(first->first))
      return tree;
    if (!tree.unreadable().empty()) return tree;
    const std::string outer = first->first + "/";
    const bool is_only = std::all_of(std::next(first), entries.end(),
                                     [&](const auto& entry) { return entry.first.starts_with(outer); });
    if (!is_only || entries.size() == 1) return tree;
    FileTree inner(tree.name());
    for (auto entry = std::next(first); entry != entries.end(); ++entry)
      inner.add(entry->first.substr(outer.size()), entry->second);
    tree = std::move(inner);
  }
}

/// A file that holds no records, by its place.
Layout layout_of_place(const std::string& path) {
  const std::string leaf = fs::path(path).filename().string();
  if (path == "properties" || leaf == "getprop.txt" || leaf.ends_with(".prop")) return Layout::properties;
  const bool is_report = leaf.ends_with(".txt") && leaf.find("alibration") != std::string::npos;
  return is_report || is_table(path) ? Layout::text : Layout::other;
}

PhoneFile describe(const std::string& path, const std::string& partition) {
  if (path == partition) return {.path = path, .layout = Layout::partition, .source = Source::partition};
  if (auto known = recognise_by_place(path)) return std::move(*known);
  for (const calib::Camera camera : kCameras) {
    if (path != fmt::format("factory/lens_shading_{}.bin", camera_name(camera))) continue;
    return {.path = path,
            .layout = Layout::record,
            .source = Source::factory,
            .kind = RecordKind::lens_shading,
            .camera = camera};
  }
  return {.path = path, .layout = layout_of_place(path)};
}

/// The first file's value stands, but not against another one of a property that decides something here.
void merge_properties(Phone& phone, const PhoneFile& file) {
  if (!phone.properties) phone.properties.emplace();
  std::map<std::string, std::string> more = phone::parse_properties(text_of(file.content.bytes));
  phone.properties->merge(more);
  for (const auto& [name, value] : more) {
    const std::string& taken = phone.properties->at(name);
    const bool decides = name == kPageSizeProperty || name.find("_fuse") != std::string::npos;
    if (decides && value != taken) {
      throw InputError(
          fmt::format("{}: {}: {} is {}, and {} in another file", phone.name, file.path, name, value, taken));
    }
  }
}

bool is_of_a_phone(const PhoneFile& file) {
  return file.layout != Layout::text && file.layout != Layout::other;
}

bool claim_same_place(const PhoneFile& a, const PhoneFile& b) {
  return is_of_a_phone(a) && a.layout != Layout::properties && a.source == b.source && a.layout == b.layout &&
         a.kind == b.kind && a.camera == b.camera;
}

/// Where the phone itself has such files; those by the same name elsewhere are copies of them.
bool is_at_home(const std::string& path) {
  const std::string folder = fs::path(path).parent_path().string();
  return folder == "data/misc/camera" || folder == "sys/android_camera_awb_cal";
}

void set_aside(PhoneFile& file) {
  file.layout = Layout::other;
  file.kind.reset();
  file.content = {};
}

/// A part of the phone is there once: the one at its own place, or any of equal ones. Of several that differ none
/// is taken for the others.
void add_part(Phone& phone, PhoneFile file) {
  for (PhoneFile& other : phone.files) {
    if (!claim_same_place(other, file)) continue;
    const bool is_equal = !other.content.trouble && other.content.bytes == file.content.bytes;
    const bool is_first = is_at_home(other.path) || !is_at_home(file.path);
    if (!is_equal && is_at_home(file.path) == is_at_home(other.path)) {
      throw InputError(fmt::format("{} and {}: both are given as the same part of one phone, and differ",
                                   other.path, file.path));
    }
    PhoneFile& copy = is_first ? file : other;
    if (!is_equal) {
      phone.notes.push_back(fmt::format("{}: not taken: {} is at the phone's own place", copy.path,
                                        is_first ? other.path : file.path));
    }
    set_aside(copy);
  }
  phone.files.push_back(std::move(file));
}

/// The names of the folders on the way to records.
bool leads_to_records(const std::string& path) {
  static const std::set<std::string> kFolders = {
      "data", "misc", "camera", "sys", "android_camera_awb_cal", "factory", "proc", "dev", "block", "mtd"};
  return kFolders.contains(fs::path(path).filename().string());
}

bool is_in(const std::string& path, const std::string& folder) {
  return path == folder || path.starts_with(folder + "/");
}

/// A folder that cannot be looked into: what it may hold is not known.
void add_unknown_folder(Phone& phone, const std::string& path, const std::string& trouble) {
  static const std::pair<const char*, Source> kHomes[] = {
      {"data/misc/camera", Source::cache},
      {"sys/android_camera_awb_cal", Source::kernel_export},
      {"dev", Source::partition},
      {"proc", Source::partition},
      {"factory", Source::factory}};
  const std::string reason = fmt::format("{}: {}", path, trouble);
  phone.unknown.push_back(reason);
  std::set<Source> sources;
  for (const auto& [home, source] : kHomes) {
    if (is_in(path, home) || is_in(home, path)) sources.insert(source);
  }
  // Files that were pulled one by one are known by their names in whatever folder.
  if (sources.empty()) sources = {Source::cache, Source::kernel_export, Source::partition};
  for (const Source source : sources) phone.unknown_sources.emplace(source, reason);
}

void add_file(Phone& phone, const FileTree& tree, const std::string& path, const std::string& partition,
              bool with_digest) {
  const FileTree::Entry& entry = tree.entries().at(path);
  PhoneFile file = describe(path, partition);
  if (entry.type == FileTree::Type::link && leads_to_records(path)) {
    if (const auto trouble = tree.resolve(path).trouble) add_unknown_folder(phone, path, *trouble);
  }
  // A folder in a record's place is no file that could be read, and that has to be said.
  if (entry.type == FileTree::Type::folder && (file.layout == Layout::other || file.layout == Layout::text))
    return;
  file.link_target = entry.target;
  if (file.layout != Layout::other) file.content = tree.read(path);
  if (file.content.trouble) phone.unknown.push_back(fmt::format("{}: {}", path, *file.content.trouble));
  if (with_digest && file.layout != Layout::other && !file.content.trouble)
    phone.digests.emplace(path, sha256_of(file.content.bytes));
  if (file.layout == Layout::properties && !file.content.trouble) merge_properties(phone, file);
  if (file.layout == Layout::partition && path.starts_with("dev/mtd/")) take_good_blocks(tree, file);
  add_part(phone, std::move(file));
}

/// What a pull could not read is not absent, nor is what it had no time for.
void take_pull_state(Phone& phone, FileTree& tree) {
  if (!tree.entries().contains(kPullStateFile)) return;
  const FileContent content = tree.read(kPullStateFile);
  const auto state = parse_pull_state(text_of(content.bytes));
  if (!state) return;
  for (const auto& [path, reason] : state->unreadable) {
    if (!tree.entries().contains(path)) tree.add(path, {.content = FileContent{{}, reason}});
  }
  for (const auto& [path, reason] : state->unreadable_links) tree.add_unreadable(path, reason);
  phone.notes.insert(phone.notes.end(), state->notes.begin(), state->notes.end());
  if (state->is_finished) return;
  const std::string reason = fmt::format("{}: not whole: run awbcal pull again", tree.name());
  phone.unknown.push_back(reason);
  for (const Source source : {Source::cache, Source::kernel_export, Source::partition})
    phone.unknown_sources.emplace(source, reason);
}

void add_tree(Phone& phone, const std::string& name, FileTree& tree, bool with_digests) {
  tree = without_outer_folders(std::move(tree));
  take_pull_state(phone, tree);
  const FoundPartition partition = find_partition(tree);
  phone.notes.insert(phone.notes.end(), partition.notes.begin(), partition.notes.end());
  const size_t before = phone.files.size();
  for (const auto& [path, entry] : tree.entries()) {
    if (fs::path(path).filename() != kMadeHereMark) add_file(phone, tree, path, partition.path, with_digests);
  }
  for (const auto& [path, trouble] : tree.unreadable()) add_unknown_folder(phone, path, trouble);
  if (partition.is_not_known)
    phone.unknown_sources.emplace(Source::partition, "what leads to the partition cannot be read");
  const bool has_any = std::any_of(phone.files.begin() + static_cast<std::ptrdiff_t>(before),
                                   phone.files.end(), is_of_a_phone);
  if (!has_any && phone.unknown_sources.empty())
    throw InputError(fmt::format("{}: no file of a phone's calibration in it", name));
  if (partition.path.empty() && !phone.unknown_sources.contains(Source::partition))
    phone.notes.emplace_back("partition: absent");
}

// ---- a file by itself -------------------------------------------------------------------------------------

/// Bytes that match no size or name: what the records in them say.
Recognised recognise_by_search(const std::string& name, const Bytes& bytes) {
  // A record area by itself is known by its size, even if nothing was written there.
  const bool is_large = bytes.size() > calib::kAreaBase2k || bytes.size() == size_t{4} * calib::kSlotSize;
  if (bytes.size() == calib::kSlotSize)
    return {search_records(bytes, {}).empty() ? Layout::dual_camera_node : Layout::slot};
  if (is_large || !search_records(bytes, {}).empty()) return {Layout::partition};
  throw InputError(fmt::format("{}: {} bytes match no record, export or partition; say what it is with --as",
                               name, bytes.size()));
}

/// The records are those of bytes of no meaning, which happen to stand where records would: nearly every place is
/// filled, and none of them as a record begins.
void drop_noise(Phone& phone) {
  constexpr std::ptrdiff_t kFilledPlaces = 6;
  const auto filled = std::count_if(
      phone.records.begin(), phone.records.end(),
      [](const FoundRecord& record) { return !record.bytes.empty() && !is_blank(record.bytes); });
  if (filled >= kFilledPlaces && !phone.area->has_records) phone.records.clear();
}

void note_other_kinds(Phone& phone, const PhoneFile& file) {
  std::vector<const char*> names;
  for (const RecordSpec* spec : kinds_of_size(file.content.bytes)) names.push_back(spec->id);
  if (names.size() < 2) return;
  phone.notes.push_back(fmt::format("{}: may be any of {}: taken for the first; give --as to choose another",
                                    file.path, fmt::join(names, ", ")));
}

PhoneFile file_of_bytes(Phone& phone, const std::string& name, Bytes bytes, const InputOptions& options) {
  if (bytes.empty() && options.as.empty()) throw InputError(fmt::format("{}: empty", name));
  const auto known = recognise_alone(name, bytes, options.as);
  const Recognised found = known ? *known : recognise_by_search(name, bytes);
  PhoneFile file{.path = fs::path(name).filename().string(),
                 .layout = found.layout,
                 .kind = found.kind,
                 .camera = options.camera ? options.camera : found.camera,
                 .content = {std::move(bytes), std::nullopt}};
  if (found.kind && !record_spec(*found.kind).is_per_camera) file.camera.reset();
  const bool is_by_size =
      options.as.empty() && found.layout == Layout::record && !recognise_by_place(file.path);
  if (is_by_size) note_other_kinds(phone, file);
  return file;
}

// ---- inputs -----------------------------------------------------------------------------------------------

/// "mfg.img" of "mfg.img.gz".
std::string without_packing(const std::string& name) {
  static const std::set<std::string> kEndings = {".gz", ".bz2", ".xz", ".zst"};
  const fs::path path(name);
  return kEndings.contains(path.extension().string()) ? fs::path(path).replace_extension().string() : name;
}

/// What one input holds, before the phone is known.
struct Opened {
  std::string name;
  std::variant<Bytes, FileTree> content;
  std::string digest = {};  ///< of a file, as it was given
};

Opened opened(const std::string& path, bool with_digest) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (path != "-" && status.type() == fs::file_type::not_found)
    throw InputError(fmt::format("{}: no such file", path));
  if (path != "-" && fs::is_directory(status)) return {path, FileTree::of_folder(path)};
  Bytes bytes = bytes_of_file(path);
  const std::string digest = with_digest ? sha256_of(bytes) : "";
  if (!is_packed(bytes)) return {path, std::move(bytes), digest};
  return {without_packing(path), unpacked(path, bytes), digest};
}

/// Where the file of a phone would be, when it was given by itself.
void give_source(PhoneFile& file) {
  if (file.layout == Layout::partition) file.source = Source::partition;
  if (file.layout == Layout::dual_camera_node) file.source = Source::kernel_export;
  if (file.layout == Layout::export_image && !file.kind) file.source = Source::kernel_export;
  if (file.kind && recognise_by_place(file.path)) file.source = Source::cache;
}

void add_input(Phone& phone, Opened& input, const InputOptions& options) {
  const bool of_files = options.with_digests && input.digest.empty();
  if (!input.digest.empty()) phone.digests.emplace(input.name, input.digest);
  if (auto* tree = std::get_if<FileTree>(&input.content)) return add_tree(phone, input.name, *tree, of_files);
  Bytes& bytes = std::get<Bytes>(input.content);
  const std::string leaf = fs::path(input.name).filename().string();
  if (options.paths.size() > 1 && layout_of_place(leaf) == Layout::properties) {
    PhoneFile file{.path = leaf, .layout = Layout::properties, .content = {std::move(bytes), std::nullopt}};
    merge_properties(phone, file);
    phone.files.push_back(std::move(file));
    return;
  }
  PhoneFile file = file_of_bytes(phone, input.name, std::move(bytes), options);
  if (options.paths.size() > 1) give_source(file);
  add_part(phone, std::move(file));
}

void check_kind(const Opened& input, const InputOptions& options) {
  const bool is_tree = std::holds_alternative<FileTree>(input.content);
  if (options.as == "phone" && !is_tree) throw InputError(fmt::format("{}: not a folder", input.name));
  if (is_tree && !options.as.empty() && options.as != "phone")
    throw InputError(fmt::format("{}: a folder, not a file to read as {}", input.name, options.as));
}

/// The one file's layout is the input's; several are a phone.
void finish(Phone& phone, bool is_alone, const InputOptions& options) {
  phone.kind = is_alone ? phone.files.at(0).layout : Layout::phone;
  find_records(phone, options);
  if (is_alone && options.as.empty() && phone.kind == Layout::partition) drop_noise(phone);
}

}  // namespace

Phone phone_of_bytes(const std::string& name, Bytes bytes, const InputOptions& options) {
  Phone phone{.name = name};
  phone.files.push_back(file_of_bytes(phone, name, std::move(bytes), options));
  finish(phone, true, options);
  return phone;
}

Phone phone_of_tree(FileTree tree, const InputOptions& options) {
  Phone phone{.name = tree.name()};
  add_tree(phone, phone.name, tree, options.with_digests);
  finish(phone, false, options);
  return phone;
}

Phone open_phone_of(const InputOptions& options) {
  std::vector<Opened> inputs;
  for (const std::string& path : options.paths) {
    inputs.push_back(opened(path, options.with_digests));
    check_kind(inputs.back(), options);
  }
  Phone phone{.name = fmt::format("{}", fmt::join(options.paths, " "))};
  for (Opened& input : inputs) add_input(phone, input, options);
  finish(phone, inputs.size() == 1 && std::holds_alternative<Bytes>(inputs[0].content), options);
  return phone;
}

}  // namespace awbcal
