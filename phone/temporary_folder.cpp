#include "phone/temporary_folder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace phone {
namespace fs = std::filesystem;

// Memory, if there is plenty: a phone is hundreds of small files, and a disk makes one wait for each.
fs::path temporary_parent() {
  constexpr const char* kMemory = "/dev/shm";
  constexpr uintmax_t kPlenty = 1U << 30;
  if (std::getenv("TMPDIR") != nullptr) return fs::temp_directory_path();
  std::error_code error;
  const fs::space_info space = fs::space(kMemory, error);
  const bool plenty = !error && space.available >= kPlenty && access(kMemory, W_OK | X_OK) == 0;
  return plenty ? kMemory : fs::temp_directory_path();
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (temporary_parent() / "phone-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw fs::filesystem_error("cannot make a temporary folder", name, {errno, std::system_category()});
  }
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace phone
