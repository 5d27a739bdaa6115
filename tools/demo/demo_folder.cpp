#include "demo/demo_folder.h"

#include <fmt/format.h>

#include <fstream>
#include <set>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kMarker = "awbcal-demo.txt";
constexpr const char* kMarkerText =
    "A virtual phone, made by `awbcal demo`.\n"
    "The next demo in this folder replaces these files, and does nothing if it finds others:\n";

/// Everything below `dir`, links not followed.
std::set<std::string> contents_of(const fs::path& dir) {
  std::set<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(dir))
    paths.insert(entry.path().lexically_relative(dir).string());
  return paths;
}

void write_marker(const fs::path& dir, const std::set<std::string>& made) {
  std::ofstream marker(dir / kMarker);
  marker << kMarkerText;
  for (const std::string& path : made) marker << path << "\n";
  if (!marker.flush()) throw InputError(fmt::format("{}: cannot be written to", dir.string()));
}

/// What the marker says was made; nothing without one.
std::set<std::string> made_by_a_demo(const fs::path& dir) {
  if (!fs::is_regular_file(fs::symlink_status(dir / kMarker))) return {};
  std::set<std::string> made = {kMarker};
  std::ifstream marker(dir / kMarker);
  for (std::string line; std::getline(marker, line);) made.insert(line);
  return made;
}

void clear(const fs::path& dir) {
  if (!fs::is_directory(dir)) throw InputError(fmt::format("{}: is not a folder", dir.string()));
  const std::set<std::string> made = made_by_a_demo(dir);
  for (const std::string& path : contents_of(dir)) {
    if (made.contains(path)) continue;
    throw InputError(
        made.empty()
            ? fmt::format("{}: is not empty and not the phone of an earlier demo; nothing in it was touched",
                          dir.string())
            : fmt::format("{}: holds {}, which no demo made; nothing in it was touched", dir.string(), path));
  }
  for (const auto& entry : fs::directory_iterator(dir)) fs::remove_all(entry.path());
}

}  // namespace

DemoFolder::DemoFolder(const fs::path& wanted)
    : temporary_(wanted.empty() ? std::make_unique<GuardedFolder>(fs::temp_directory_path(), "awbcal-demo")
                                : nullptr),
      path_(temporary_ ? temporary_->path() : wanted) {
  if (fs::exists(path_)) clear(path_);
  std::error_code error;
  fs::create_directories(path_, error);
  if (error) throw InputError(fmt::format("{}: {}", path_.string(), error.message()));
  write_marker(path_, {});
}

void DemoFolder::keep() const {
  write_marker(path_, contents_of(path_));
  if (temporary_) temporary_->keep();
}

}  // namespace awbcal
