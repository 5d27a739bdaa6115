// Packed input: gzip, bzip2, xz, zstd, tar and zip, also one in the other.
#ifndef INSPECT_ARCHIVE_H
#define INSPECT_ARCHIVE_H

#include <variant>

#include "inspect/file_tree.h"

namespace awbcal {

/// Whether the bytes begin as one of those does.
bool is_packed(std::span<const uint8_t> bytes);

/// The one file that was packed, or the files of an archive. Throws InputError, in our words, for what is damaged
/// or unpacks to more than any phone has; what it unpacks to is counted as it comes.
std::variant<Bytes, FileTree> unpacked(const std::string& name, std::span<const uint8_t> bytes);

/// A tar archive of the files, the same for the same files.
Bytes packed(const std::vector<OutputFile>& files);

}  // namespace awbcal

#endif
