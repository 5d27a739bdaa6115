#include "pull/target_folder.h"

#include <fmt/format.h>

#include <fstream>

#include "inspect/errors.h"
#include "inspect/files.h"
#include "phone/services/properties_file.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr const char* kUnfinished = ".part";

std::optional<PullState> state_in(const fs::path& folder) {
  return parse_pull_state(text_of(read_regular_file(folder / kPullStateFile).bytes));
}

/// Which phone it is, and which modules are in it.
bool tells_phones_apart(const std::string& name) {
  return name == "ro.serialno" || name == "ro.boot.serialno" || name == "ro.build.fingerprint" ||
         name.find("_fuse") != std::string::npos;
}

/// Only the beginning of a device: nothing but an earlier pull of all its bytes leaves one.
void keep_beginning(const fs::path& device, bool is_area_only) {
  if (device.extension() == kUnfinished) return;
  if (is_area_only || device.parent_path().filename() == "mtd") {
    fs::remove(device);
  } else {
    fs::rename(device, device.string() + kUnfinished);
  }
}

void make_folders(const fs::path& folder) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) throw std::runtime_error(fmt::format("{}: {}", folder.string(), error.message()));
}

}  // namespace

TargetFolder::TargetFolder(const std::string& folder) : path_(folder) {
  const fs::file_status status = fs::symlink_status(path_);
  if (!fs::exists(status)) return;
  if (!fs::is_directory(status)) throw InputError(fmt::format("{}: exists, and is no folder", folder));
  if (!fs::is_empty(path_) && !state_in(path_))
    throw InputError(
        fmt::format("{}: is not empty, and no awbcal pull made it: nothing in it was touched", folder));
}

fs::path TargetFolder::in(const std::string& file) const {
  // The phone chooses names and where links point: neither may lead this host's files astray.
  const auto check = [&file](bool leads_out) {
    if (leads_out) throw InputError(fmt::format("{}: a path that leads out of the folder", file));
  };
  fs::path at = path_;
  for (const fs::path& part : fs::path(file)) {
    check(part == ".." || (at != path_ && fs::is_symlink(at)));
    at /= part;
  }
  return at;
}

void TargetFolder::check_same_phone(const std::string& properties) const {
  const FileContent old = read_regular_file(path_ / "properties");
  if (old.trouble) return;
  const auto before = phone::parse_properties(text_of(old.bytes));
  const auto now = phone::parse_properties(properties);
  for (const auto& [name, value] : before) {
    if (!tells_phones_apart(name)) continue;
    const auto found = now.find(name);
    if (found == now.end() || found->second != value) {
      throw InputError(
          fmt::format("{}: is of another phone, or of other modules: its {} is {}: give another folder",
                      path_.string(), name, value));
    }
  }
}

void TargetFolder::clear() {
  const std::optional<PullState> state = state_in(path_);
  if (!state) return;
  // From here on it is not whole, but what was read of a device counts as before.
  put_state({.area_only = state->area_only});
  for (const char* part : {"data", "sys", "proc", "nand", "properties"}) fs::remove_all(path_ / part);
  std::vector<fs::path> devices;
  if (!fs::exists(path_ / "dev")) return;
  for (const auto& entry : fs::recursive_directory_iterator(path_ / "dev")) {
    if (!entry.is_directory() || entry.is_symlink()) devices.push_back(entry.path());
  }
  for (const fs::path& device : devices) {
    if (fs::is_symlink(device)) {
      fs::remove(device);
    } else {
      keep_beginning(device, state->area_only.contains(device.lexically_relative(path_).string()));
    }
  }
}

void TargetFolder::put(const std::string& file, std::string_view bytes) const {
  const fs::path path = in(file);
  make_folders(path.parent_path());
  write_output({path.string(), true}, bytes);
}

void TargetFolder::put_link(const std::string& link, const std::string& target) const {
  const fs::path path = in(link);
  make_folders(path.parent_path());
  fs::create_symlink(target, path);
}

fs::path TargetFolder::unfinished(const std::string& file) const {
  return in(file).string() + kUnfinished;
}

void TargetFolder::append(const std::string& file, const Bytes& piece) const {
  make_folders(in(file).parent_path());
  std::ofstream out(unfinished(file), std::ios::binary | std::ios::app);
  out.write(reinterpret_cast<const char*>(piece.data()), static_cast<std::streamsize>(piece.size()));
  if (!out.flush()) throw std::runtime_error(fmt::format("{}: cannot be written", unfinished(file).string()));
}

void TargetFolder::finish(const std::string& file) const {
  fs::rename(unfinished(file), in(file));
}

}  // namespace awbcal
