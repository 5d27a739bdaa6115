// A folder for as long as a scope lives: for scratch phones of tests and benchmarks.
#ifndef PHONE_TEMPORARY_FOLDER_H
#define PHONE_TEMPORARY_FOLDER_H

#include <filesystem>

namespace phone {

/// $TMPDIR if that is set, else memory where the machine has that to spare, else /tmp.
std::filesystem::path temporary_parent();

/// A new folder with a name of its own in temporary_parent(). It is removed with all that it holds when the scope ends.
/// std::filesystem::filesystem_error if none can be made.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace phone

#endif
