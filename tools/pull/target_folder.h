// The folder that a pull makes. A file comes into it whole or not at all.
#ifndef PULL_TARGET_FOLDER_H
#define PULL_TARGET_FOLDER_H

#include <filesystem>
#include <map>
#include <string>

#include "inspect/decode.h"
#include "inspect/pull_state.h"

namespace awbcal {

class TargetFolder {
 public:
  /// Throws InputError unless the folder is new, empty or an earlier pull's.
  explicit TargetFolder(const std::string& folder);

  const std::filesystem::path& path() const { return path_; }

  /// Throws InputError when the folder is of another phone or module than one with these properties.
  void check_same_phone(const std::string& properties) const;
  /// What an earlier pull left goes, but for the beginning of a device that begin() can go on from.
  void clear();

  void put(const std::string& file, std::string_view bytes) const;
  void put_link(const std::string& link, const std::string& target) const;
  void put_state(const PullState& state) const { put(kPullStateFile, text_of(state)); }

  /// A device is read in pieces, under another name until finish().
  std::filesystem::path unfinished(const std::string& file) const;
  void append(const std::string& file, const Bytes& piece) const;
  void finish(const std::string& file) const;

 private:
  std::filesystem::path in(const std::string& file) const;

  std::filesystem::path path_;
};

}  // namespace awbcal

#endif
