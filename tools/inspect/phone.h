// A phone as the tool knows it, whatever it was given of it: a folder, an image of the partition, an archive, a
// single cache file, or several of them. Every verb works on this one model.
#ifndef INSPECT_PHONE_H
#define INSPECT_PHONE_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inspect/cameras.h"
#include "inspect/decode.h"
#include "inspect/digest.h"
#include "inspect/files.h"
#include "records/judgement.h"
#include "records/record_layouts.h"

namespace awbcal {

/// What the bytes of an input or of one of its files are.
enum class Layout {
  phone,             ///< files of a phone
  partition,         ///< "mfg", or a part of it that begins before the record area or with it
  slot,              ///< one camera's slot of the record area
  export_image,      ///< the kernel's export of a camera
  dual_camera_node,  ///< the kernel's page with the dual-camera records
  record,            ///< one record and nothing else
  properties,
  text,   ///< a report for the factory tool, or a table that the partition is found by
  other,  ///< nothing that this tool decodes
};
/// The name for JSON and for --as.
const char* layout_name(Layout layout);
std::optional<Layout> layout_of_name(std::string_view name);

/// Where a record was found. Readers try them in this order, the partition only after the next boot.
enum class Source { cache, kernel_export, partition, factory, file };
const char* source_name(Source source);

/// What is known of a place where a record belongs. "Absent" is said only of what is not there.
enum class State { present, absent, unreadable, blank, not_whole };
const char* state_name(State state);

/// One file of the phone.
struct PhoneFile {
  std::string path;  ///< in the phone's folder; the input's name when that is a file itself
  Layout layout = Layout::other;
  Source source = Source::file;
  std::optional<RecordKind> kind = {};  ///< the one record that is looked for; none: all that the layout has
  std::optional<calib::Camera> camera = {};
  FileContent content = {};  ///< after unpacking; without out-of-band bytes, words the right way round
  std::vector<uint32_t> blocks = {};  ///< of raw NAND: the chip's blocks that make up the partition
  uint32_t block_size = 0;
  std::string link_target = {};  ///< of a link: where it points

  /// Whether this is where the record would be found.
  bool has_place_for(const RecordSpec& spec, std::optional<calib::Camera> of) const;
};

/// A place where a record belongs, and what is there.
struct FoundRecord {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;  ///< none: of the whole phone, or not known
  Source source;
  size_t file;      ///< index in Phone::files
  uint64_t offset;  ///< in the file
  Bytes bytes;      ///< at most the record's size; less: cut short

  bool is_truncated() const { return bytes.size() < spec->size; }
};

struct RecordArea {
  uint64_t base;             ///< in the partition's file, its bad blocks taken out
  int page_size;             ///< 4096 or 2048: where the phone itself expects it
  std::string reason;        ///< why this base and not another
  bool has_records = false;  ///< some were found, here or elsewhere
};

struct Phone {
  std::string name;
  Layout kind = Layout::record;
  std::vector<PhoneFile> files = {};
  std::vector<FoundRecord> records = {};
  std::optional<std::map<std::string, std::string>> properties = {};  ///< none: the input does not say
  std::optional<RecordArea> area = {};
  std::vector<std::string> notes = {};    ///< what was found, and not where or as expected; a line each
  std::vector<std::string> unknown = {};  ///< what could not be read and why; a line each
  Digests digests = {};                   ///< as they were given; only where they were asked for

  /// Which may hold more, and why: their folder, or what leads there, is unreadable.
  std::map<Source, std::string> unknown_sources = {};

  /// False: what was not found may be there all the same, and the answer is incomplete.
  bool is_complete() const { return unknown.empty(); }
  /// The same of all but the partition and what leads to it: a camera start reads neither.
  bool is_complete_without_partition() const;
  /// Whether anything but blank bytes stands where a record belongs.
  bool holds_calibration() const;
  const FoundRecord* find(const RecordSpec& spec, std::optional<calib::Camera> camera, Source source) const;
  const PhoneFile* partition() const;  ///< null: none
  State state_of(const RecordSpec& spec, std::optional<calib::Camera> camera, Source source) const;
};

/// The partition's bytes as the phone's kernel delivers them: bad blocks left out, and the record area where the
/// page size places it. Empty without a partition.
Bytes partition_bytes(const Phone& phone);

/// Which module is fitted, where that is known.
using Modules = std::map<calib::Camera, calib::FuseWords>;

/// The fuse IDs that the phone's properties name; without properties, none.
Modules modules_of(const Phone& phone);

/// The bytes of a slot that the end of the gyro record and the beginning of the A-light record share.
inline constexpr size_t kSharedBytes = calib::kSlotGyro + sizeof(calib::GyroRecord) - calib::kSlotALightAwb;
/// What is left of such a record without them.
std::span<const uint8_t> unshared_bytes(const FoundRecord& record);

/// Whether it is whole and its checksum is right; a blank record has none.
bool has_good_crc(const FoundRecord& record);

/// "blank" to readers: blank, or blank but for the bytes that a good overlapping record owns.
bool is_blank_record(const Phone& phone, const FoundRecord& record);

/// The good record that has overwritten the end or the beginning of this one; null: none.
const FoundRecord* good_overlap(const Phone& phone, const FoundRecord& record);

}  // namespace awbcal

#endif
