#include "demo/demo_folder.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kMarker = "awbcal-demo.txt";
constexpr const char* kMarkerText =
    "A virtual phone, made by `awbcal demo`.\n"
    "The next demo in this folder replaces everything in it.\n";

fs::path new_temporary_folder() {
  std::string name = (fs::temp_directory_path() / "awbcal-demo-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw InputError(fmt::format("{}: {}", name, std::strerror(errno)));
  }
  return name;
}

void clear(const fs::path& dir) {
  for (const auto& entry : fs::directory_iterator(dir)) fs::remove_all(entry.path());
}

void prepare_existing(const fs::path& dir) {
  if (!fs::is_directory(dir)) throw InputError(fmt::format("{}: is not a folder", dir.string()));
  if (fs::is_empty(dir)) return;
  if (!fs::exists(dir / kMarker)) {
    throw InputError(fmt::format(
        "{}: is not empty and not the phone of an earlier demo; nothing in it was touched", dir.string()));
  }
  clear(dir);
}

}  // namespace

fs::path prepare_demo_folder(const fs::path& wanted) {
  const fs::path dir = wanted.empty() ? new_temporary_folder() : wanted;
  if (fs::exists(dir)) prepare_existing(dir);
  std::error_code error;
  fs::create_directories(dir, error);
  if (error) throw InputError(fmt::format("{}: {}", dir.string(), error.message()));
  std::ofstream marker(dir / kMarker);
  marker << kMarkerText;
  if (!marker.flush()) throw InputError(fmt::format("{}: cannot be written to", dir.string()));
  return dir;
}

}  // namespace awbcal
