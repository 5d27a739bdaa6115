// The folder that a demo's phone lives in.
#ifndef DEMO_DEMO_FOLDER_H
#define DEMO_DEMO_FOLDER_H

#include <filesystem>
#include <memory>

#include "run/guarded_folder.h"

namespace awbcal {

/// An empty folder for a phone. One that an earlier demo made is cleared, as long as nothing is in it that the demo
/// did not make.
class DemoFolder {
 public:
  /// `wanted`, or when that is empty a new temporary one, which is gone if the demo does not come to its end. Throws
  /// InputError, and has touched nothing, for a folder that holds anything else.
  explicit DemoFolder(const std::filesystem::path& wanted);

  const std::filesystem::path& path() const { return path_; }
  /// The demo has come to its end: notes what it made, for the next one.
  void keep() const;

 private:
  std::unique_ptr<GuardedFolder> temporary_;  ///< where none was wanted
  std::filesystem::path path_;
};

}  // namespace awbcal

#endif
