// A temporary folder that does not outlive the process, however that ends: a second process waits for the end of
// this one and removes what it left.
#ifndef RUN_FOLDER_GUARD_H
#define RUN_FOLDER_GUARD_H

#include <sys/types.h>

#include <filesystem>

namespace awbcal {

class FolderGuard {
 public:
  explicit FolderGuard(const std::filesystem::path& folder);
  FolderGuard(const FolderGuard&) = delete;
  FolderGuard& operator=(const FolderGuard&) = delete;
  ~FolderGuard();  ///< the folder is gone, unless it was kept

  void keep();

 private:
  void finish(bool keeps);

  pid_t guard_ = -1;
  int alive_ = -1;  ///< its other end is closed when this process is no more
};

}  // namespace awbcal

#endif
