// What people have: a phone's folder, a partition image, a kernel export, a cache file. Recognises which it
// is and finds the records in it. Reads only.
#ifndef INSPECT_INPUT_H
#define INSPECT_INPUT_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inspect/cameras.h"
#include "inspect/decode.h"
#include "inspect/errors.h"
#include "inspect/files.h"

namespace awbcal {

/// What a file is.
enum class Layout {
  partition,         ///< "mfg", from its first byte
  export_image,      ///< the kernel's export of a camera
  dual_camera_node,  ///< the kernel's page with the dual-camera records
  record,            ///< one record and nothing else
  properties,
  text,   ///< a report for the factory tool
  other,  ///< nothing that this tool decodes
};
const char* layout_name(Layout layout);

/// Where a record was found. Readers try them in this order, the partition only after the next boot.
enum class Source { cache, kernel_export, partition, factory, file };
const char* source_name(Source source);

/// One file of the input.
struct InputFile {
  std::string path;  ///< in the input's folder; the input's name when that is a file itself
  Layout layout = Layout::other;
  Source source = Source::file;
  std::optional<RecordKind> kind = {};  ///< the one record that is looked for; none: all that the layout has
  std::optional<calib::Camera> camera = {};
  FileContent content = {};
  std::vector<uint32_t> blocks = {};  ///< of raw NAND: the chip's blocks that make up the partition
  uint32_t block_size = 0;
};

/// A place where a record belongs, and what is there.
struct FoundRecord {
  const RecordSpec* spec;
  std::optional<calib::Camera> camera;  ///< none: of the whole phone, or not known
  Source source;
  size_t file;      ///< index in Input::files
  uint64_t offset;  ///< in the file
  Bytes bytes;      ///< at most the record's size; less: cut short

  bool is_truncated() const { return bytes.size() < spec->size; }
};

struct RecordArea {
  uint32_t base;
  std::string reason;  ///< why this base and not the other
};

enum class InputKind { phone, partition, export_image, dual_camera_node, record };
const char* input_kind_name(InputKind kind);

struct Input {
  std::string name;
  InputKind kind = InputKind::record;
  std::vector<InputFile> files = {};
  std::vector<FoundRecord> records = {};
  std::optional<std::map<std::string, std::string>> properties = {};  ///< none: the input does not say
  std::optional<RecordArea> area = {};

  const FoundRecord* find(const RecordSpec& spec, std::optional<calib::Camera> camera, Source source) const;
};

struct InputOptions {
  std::string path;
  std::string as;  ///< "phone", "partition", "export", "node" or a record's id; empty: recognise it
  std::optional<uint32_t> base;
  std::optional<calib::Camera> camera;  ///< of a file that does not name it
};

/// Throws InputError, with the file and the cause, for what cannot be read or recognised.
Input open_input(const InputOptions& options);

/// The same from bytes; `name` may tell the kind, as a file's name does.
Input recognise(const std::string& name, Bytes bytes, const InputOptions& options);

/// Puts the files' records into `records`, and decides the record area.
void find_records(Input& input, const InputOptions& options);

/// The property's text, as the library reads it; "name=value" lines and what `getprop` prints are understood.
std::map<std::string, std::string> parse_properties(std::string_view text);

}  // namespace awbcal

#endif
