// Files of other people, read whole and never written; and files of ours, never written over unasked.
#ifndef INSPECT_FILES_H
#define INSPECT_FILES_H

#include <filesystem>
#include <optional>
#include <string>

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

/// "-" is standard input.
FileContent read_file(const std::filesystem::path& path);

struct OutputTarget {
  std::string path;    ///< empty or "-": standard output
  bool force = false;  ///< replace what is there
};

/// Creates or, with `force`, replaces the file as one step. Throws InputError when it is there already or is
/// `input` itself, and std::runtime_error when it cannot be written.
void write_output(const OutputTarget& target, std::string_view bytes, const std::filesystem::path& input);

/// Throws InputError unless `target` may be created, or, with `force`, replaced, without touching `input`.
void check_output(const OutputTarget& target, const std::filesystem::path& input);

inline std::string_view text_of(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace awbcal

#endif
