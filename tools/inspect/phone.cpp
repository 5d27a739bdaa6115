#include "inspect/phone.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "inspect/claims.h"
#include "records/record_layouts.h"

namespace awbcal {

using calib::Camera;

namespace {

constexpr std::array kLayouts = {"phone",  "partition",  "slot", "export", "node",
                                 "record", "properties", "text", "other"};

/// As the library converts the text: decimal, in 64 bits, its low 32 kept.
uint32_t fuse_word_of(const std::string& text) {
  return static_cast<uint32_t>(std::strtoll(text.c_str(), nullptr, 10));
}

bool overlaps(const RecordSpec& spec) {
  return spec.kind == RecordKind::gyro || spec.kind == RecordKind::a_light_awb;
}

/// The kernel copies both records out of the slot as they lie there, so its export shows the overlap too.
const FoundRecord* overlap_partner(const Phone& phone, const FoundRecord& record) {
  const Layout layout = phone.files[record.file].layout;
  const bool from_slot =
      layout == Layout::partition || layout == Layout::slot || layout == Layout::export_image;
  if (!overlaps(*record.spec) || !from_slot) return nullptr;
  const RecordKind other = record.spec->kind == RecordKind::gyro ? RecordKind::a_light_awb : RecordKind::gyro;
  return phone.find(record_spec(other), record.camera, record.source);
}

/// Of a whole record.
std::span<const uint8_t> shared_bytes(const FoundRecord& record) {
  const std::span<const uint8_t> bytes = record.bytes;
  return record.spec->kind == RecordKind::gyro ? bytes.last(kSharedBytes) : bytes.first(kSharedBytes);
}

}  // namespace

const char* layout_name(Layout layout) {
  return kLayouts.at(static_cast<size_t>(layout));
}

std::optional<Layout> layout_of_name(std::string_view name) {
  const auto found = std::find(kLayouts.begin(), kLayouts.end(), name);
  if (found == kLayouts.end()) return std::nullopt;
  return static_cast<Layout>(found - kLayouts.begin());
}

const char* source_name(Source source) {
  constexpr std::array kNames = {"cache", "export", "partition", "factory", "file"};
  return kNames.at(static_cast<size_t>(source));
}

const char* state_name(State state) {
  constexpr std::array kNames = {"present", "absent", "unreadable", "blank", "not whole"};
  return kNames.at(static_cast<size_t>(state));
}

bool PhoneFile::has_place_for(const RecordSpec& spec, std::optional<Camera> of) const {
  if (kind) return *kind == spec.kind && (camera == of || !spec.is_per_camera);
  if (layout == Layout::partition) return spec.offset.has_value();
  if (layout == Layout::export_image) return spec.export_offset().has_value() && camera == of;
  return layout == Layout::dual_camera_node && spec.offset.has_value() && !spec.is_per_camera;
}

const FoundRecord* Phone::find(const RecordSpec& spec, std::optional<Camera> camera, Source source) const {
  const auto found = std::find_if(records.begin(), records.end(), [&](const FoundRecord& record) {
    return record.spec == &spec && record.camera == camera && record.source == source;
  });
  return found == records.end() ? nullptr : &*found;
}

const PhoneFile* Phone::partition() const {
  const auto found = std::find_if(files.begin(), files.end(),
                                  [](const PhoneFile& file) { return file.layout == Layout::partition; });
  return found == files.end() ? nullptr : &*found;
}

bool Phone::is_complete_without_partition() const {
  const bool has_unknown_source =
      std::any_of(unknown_sources.begin(), unknown_sources.end(),
                  [](const auto& entry) { return entry.first != Source::partition; });
  const bool has_trouble = std::any_of(files.begin(), files.end(), [](const PhoneFile& file) {
    return file.content.trouble && file.source != Source::partition && !file.path.starts_with("proc/");
  });
  return !has_unknown_source && !has_trouble;
}

bool Phone::holds_calibration() const {
  return std::any_of(records.begin(), records.end(), [this](const FoundRecord& record) {
    return !record.bytes.empty() && !is_blank_record(*this, record);
  });
}

State Phone::state_of(const RecordSpec& spec, std::optional<Camera> camera, Source source) const {
  if (const FoundRecord* record = find(spec, camera, source)) {
    if (!record->bytes.empty() && is_blank_record(*this, *record)) return State::blank;
    return record->is_truncated() ? State::not_whole : State::present;
  }
  const bool is_unreadable = std::any_of(files.begin(), files.end(), [&](const PhoneFile& file) {
    return file.content.trouble && file.source == source && file.has_place_for(spec, camera);
  });
  return is_unreadable || unknown_sources.contains(source) ? State::unreadable : State::absent;
}

Bytes partition_bytes(const Phone& phone) {
  const PhoneFile* file = phone.partition();
  if (file == nullptr || file->content.trouble) return {};
  const Bytes& bytes = file->content.bytes;
  Bytes result;
  for (const uint32_t block : file->blocks) {
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(uint64_t{block} * file->block_size);
    result.insert(result.end(), first, first + static_cast<std::ptrdiff_t>(file->block_size));
  }
  if (file->block_size == 0) result = bytes;
  if (!phone.area) return result;
  const uint64_t base = phone.area->base;
  const uint64_t expected = area_base(std::to_string(phone.area->page_size));
  if (base > expected) {
    const auto first = result.begin() + static_cast<std::ptrdiff_t>(expected);
    result.erase(first, first + static_cast<std::ptrdiff_t>(base - expected));
  } else {
    result.insert(result.begin(), expected - base, 0xFF);
  }
  return result;
}

Modules modules_of(const Phone& phone) {
  Modules modules;
  if (!phone.properties) return modules;
  for (const Camera camera : kCameras) {
    calib::FuseWords words{};
    bool is_named = false;
    for (size_t i = 0; i < words.size(); ++i) {
      const auto property =
          phone.properties->find(fmt::format("qor.camera.sensor.{}_fuse{}", camera_name(camera), i + 1));
      if (property == phone.properties->end()) continue;
      words[i] = fuse_word_of(property->second);
      is_named = true;
    }
    // A phone that does not say is no phone with a module of nothing but zeros.
    if (is_named) modules[camera] = words;
  }
  return modules;
}

bool has_good_crc(const FoundRecord& record) {
  return !record.is_truncated() && !is_blank(record.bytes) &&
         claims_of(*record.spec, record.bytes).has_good_crc();
}

const FoundRecord* good_overlap(const Phone& phone, const FoundRecord& record) {
  const FoundRecord* other = overlap_partner(phone, record);
  if (other == nullptr || !has_good_crc(*other)) return nullptr;
  // An export has them twice: where the copies differ, neither record was written over the other.
  const bool is_same =
      record.is_truncated() || std::ranges::equal(shared_bytes(record), shared_bytes(*other));
  return is_same ? other : nullptr;
}

std::span<const uint8_t> unshared_bytes(const FoundRecord& record) {
  const std::span<const uint8_t> bytes = record.bytes;
  return record.spec->kind == RecordKind::gyro ? bytes.first(bytes.size() - kSharedBytes)
                                               : bytes.subspan(kSharedBytes);
}

bool is_blank_record(const Phone& phone, const FoundRecord& record) {
  if (is_blank(record.bytes)) return true;
  if (record.is_truncated() || good_overlap(phone, record) == nullptr) return false;
  return is_blank(unshared_bytes(record));
}

}  // namespace awbcal
