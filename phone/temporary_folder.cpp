#include "phone/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <string>

namespace phone {
namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
  std::string name = (fs::temp_directory_path() / "phone-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr)
    throw fs::filesystem_error("cannot make a temporary folder", name, {errno, std::system_category()});
  path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace phone
