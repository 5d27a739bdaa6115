#include "inspect/file_tree.h"

#include <fmt/format.h>

#include <algorithm>

#include "inspect/errors.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

constexpr int kMostLinks = 40;

FileTree::Entry entry_of(const fs::directory_entry& found) {
  std::error_code error;
  const fs::file_status status = found.symlink_status(error);
  FileTree::Entry entry{.on_disk = found.path()};
  // What may not be asked for its type is taken for a file, and reading it tells why it cannot be read.
  if (error) return entry;
  if (fs::is_symlink(status)) {
    entry.type = FileTree::Type::link;
    entry.target = fs::read_symlink(found.path(), error).string();
  } else if (fs::is_directory(status)) {
    entry.type = FileTree::Type::folder;
  } else if (!fs::is_regular_file(status)) {
    entry.type = FileTree::Type::other;
  }
  return entry;
}

/// The path's parts, the first one last: a stack.
std::vector<std::string> parts_of(const fs::path& path) {
  std::vector<std::string> parts;
  for (const fs::path& part : path) {
    if (!part.empty() && part != "/" && part != ".") parts.insert(parts.begin(), part.string());
  }
  return parts;
}

}  // namespace

void FileTree::add(const std::string& path, Entry entry) {
  if (entries_.size() == kMostFiles || std::count(path.begin(), path.end(), '/') > kDeepestFolder) {
    throw InputError(fmt::format("{}: not a phone's files: more than {}, or deeper than {} folders", name_,
                                 kMostFiles, kDeepestFolder));
  }
  entries_.insert_or_assign(path, std::move(entry));
  // An archive need not name them.
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash == 0) return;
  const std::string above = path.substr(0, slash);
  if (!entries_.contains(above)) add(above, {.type = Type::folder});
}

FileTree FileTree::of_folder(const fs::path& folder) {
  FileTree tree(folder.string());
  std::vector<std::string> folders = {""};
  while (!folders.empty()) {
    const std::string path = folders.back();
    folders.pop_back();
    std::error_code error;
    fs::directory_iterator found(folder / path, error);
    if (error && path.empty())
      throw InputError(fmt::format("{}: cannot be read: {}", folder.string(), error.message()));
    for (; !error && found != fs::directory_iterator(); found.increment(error)) {
      const std::string inner = (fs::path(path) / found->path().filename()).string();
      Entry entry = entry_of(*found);
      if (entry.type == Type::folder) folders.push_back(inner);
      tree.add(inner, std::move(entry));
    }
    if (error) tree.unreadable_[path] = "cannot be read: " + error.message();
  }
  return tree;
}

FileTree::Resolved FileTree::resolve(const std::string& path) const {
  std::vector<std::string> rest = parts_of(path);
  fs::path at;
  int links = 0;
  std::string target;
  while (!rest.empty()) {
    const std::string part = rest.back();
    rest.pop_back();
    if (part == "..") {
      if (at.empty()) return {path, "a link that leads out of the folder"};
      at = at.parent_path();
      continue;
    }
    at /= part;
    const auto found = entries_.find(at.string());
    if (found == entries_.end()) {
      return {at.string(),
              links > 0 ? fmt::format("a link to {}, which is not in the folder", target) : "no such file"};
    }
    if (found->second.type != Type::link) continue;
    if (++links > kMostLinks) return {path, "a link that leads in a circle"};
    target = found->second.target;
    at = target.starts_with('/') ? fs::path() : at.parent_path();
    for (std::string& next : parts_of(target)) rest.push_back(std::move(next));
  }
  return {at.string(), std::nullopt};
}

FileContent FileTree::read(const std::string& path) const {
  const Resolved resolved = resolve(path);
  if (resolved.trouble) return {{}, resolved.trouble};
  const Entry& entry = entries_.at(resolved.path);
  if (entry.type == Type::folder) return {{}, "is a folder"};
  if (entry.type == Type::other) return {{}, "not a regular file"};
  return entry.content ? *entry.content : read_regular_file(entry.on_disk);
}

bool FileTree::holds(const std::string& path) const {
  const Resolved resolved = resolve(path);
  return !resolved.trouble && entries_.at(resolved.path).type != Type::folder;
}

}  // namespace awbcal
