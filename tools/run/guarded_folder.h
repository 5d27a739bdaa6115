// A temporary folder that does not outlive the process, however that ends: a second process makes it, waits for the
// end of this one and removes what it left.
#ifndef RUN_GUARDED_FOLDER_H
#define RUN_GUARDED_FOLDER_H

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace awbcal {

class GuardedFolder {
 public:
  /// A new folder in `parent`, whose name begins with `name`. Throws std::runtime_error if it cannot be made.
  GuardedFolder(const std::filesystem::path& parent, const std::string& name);
  GuardedFolder(const GuardedFolder&) = delete;
  GuardedFolder& operator=(const GuardedFolder&) = delete;
  ~GuardedFolder();  ///< the folder is gone, unless it was kept

  const std::filesystem::path& path() const { return path_; }
  void keep();

 private:
  void finish(bool keeps);

  std::filesystem::path path_;
  pid_t guard_ = -1;
  int guard_socket_ = -1;  ///< its other end is closed when this process is no more
};

}  // namespace awbcal

#endif
