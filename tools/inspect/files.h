// Files of other people, read whole and never written; and files of ours, never written over unasked.
#ifndef INSPECT_FILES_H
#define INSPECT_FILES_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "inspect/decode.h"
#include "inspect/errors.h"

namespace awbcal {

/// Larger than any calibration partition: more is refused and not read to its end.
inline constexpr size_t kLargestFile = 64 * 1024 * 1024;

/// Either the bytes or why there are none.
struct FileContent {
  Bytes bytes;
  std::optional<std::string> trouble;
};

/// "-" is standard input. A pipe or a terminal that delivers nothing is waited for, and that is said.
FileContent read_file(const std::filesystem::path& path, size_t limit = kLargestFile);

/// The same; throws InputError, "FILE: cannot be read: WHY", for what is not there whole.
Bytes bytes_of_file(const std::filesystem::path& path, size_t limit = kLargestFile);

/// As read_file(), of a name that a stranger chose: only of a regular file, no link followed, without waiting.
FileContent read_regular_file(const std::filesystem::path& path);

struct OutputTarget {
  std::string path;    ///< empty or "-": standard output
  bool force = false;  ///< replace a regular file, or a folder that write_folder() made
};

/// Throws InputError unless `target` may be created, or, with `force`, replaced, without touching an input.
void check_output(const OutputTarget& target, const std::vector<std::string>& inputs = {});

/// Creates or, with `force`, replaces the file as one step. Throws InputError as check_output() does, and
/// std::runtime_error when it cannot be written.
void write_output(const OutputTarget& target, std::string_view bytes,
                  const std::vector<std::string>& inputs = {});

struct OutputFile {
  std::string path;  ///< in the folder
  Bytes bytes = {};
  std::string link_target = {};  ///< not empty: a link
};

/// The same for a folder of files.
void write_folder(const OutputTarget& target, const std::vector<OutputFile>& files,
                  const std::vector<std::string>& inputs = {});

/// A folder that this tool made carries a mark; no other may be replaced or deleted.
inline constexpr const char* kMadeHereMark = ".made-by-awbcal";
void mark_as_made_here(const std::filesystem::path& folder);
bool is_made_here(const std::filesystem::path& folder);

inline std::string_view text_of(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace awbcal

#endif
