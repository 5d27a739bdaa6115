// A phone's folder made from a phone on a cable: what the library reads there, asked for file by file.
#ifndef PULL_PULL_H
#define PULL_PULL_H

#include <optional>
#include <string>
#include <vector>

#include "inspect/pull_state.h"
#include "pull/adb.h"

namespace awbcal {

struct PullOptions {
  std::string serial = {};  ///< empty: the one phone that is connected
  std::string folder;
  bool whole = false;  ///< the partition with all its bytes, not only the record area
};

/// What the phone's files are to the camera.
enum class Group { properties, tables, cache, exports, reports, partition };

enum class Found { read, absent, unreadable };

struct PulledFile {
  Group group;
  std::string path;  ///< in the folder
  Found found;
  std::string detail = {};  ///< why it is unreadable; of the partition also what was read of it
};

struct Pulled {
  std::string serial;
  Access access;
  std::vector<PulledFile> files;
  PullState state;
  bool names_modules = false;               ///< its properties say which are fitted
  std::optional<std::string> cut_off = {};  ///< the phone went away; the folder says that it is not whole

  /// The reason of the first that is unreadable; null: none is.
  const PulledFile* unreadable(Group group) const;
  size_t count(Group group, Found found) const;
};

/// Throws InputError when there is no phone to pull, when the folder was made by something else or is of another
/// phone, and std::runtime_error when it cannot be written.
Pulled pull_phone(const PullOptions& options);

}  // namespace awbcal

#endif
