// The files of a folder or of an archive by their paths, read with care: nothing that a stranger put there can
// keep the tool waiting, lead it out of the folder or fill its memory.
#ifndef INSPECT_FILE_TREE_H
#define INSPECT_FILE_TREE_H

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inspect/files.h"

namespace awbcal {

// More than this is no phone's folder and no dump of one. Enforced before memory is taken.
inline constexpr size_t kMostFiles = 4096;
inline constexpr int kDeepestFolder = 12;
inline constexpr uint64_t kLargestTotal = 256 * 1024 * 1024;

class FileTree {
 public:
  enum class Type { file, folder, link, other };

  struct Entry {
    Type type = Type::file;
    std::string target = {};                  ///< of a link
    std::filesystem::path on_disk = {};       ///< of a folder's file: read when it is asked for
    std::optional<FileContent> content = {};  ///< of an archive's file
  };

  /// `name` is what was given, for messages.
  explicit FileTree(std::string name) : name_(std::move(name)) {}

  /// In the folder's own order of names. Throws InputError when there is too much in it, or it cannot be read.
  static FileTree of_folder(const std::filesystem::path& folder);

  /// The folders above are then there, too. Throws InputError when there is too much.
  void add(const std::string& path, Entry entry);

  const std::string& name() const { return name_; }

  const std::map<std::string, Entry>& entries() const { return entries_; }
  /// Folders that cannot be looked into, and links that cannot be read, and why: what is there is not known.
  const std::map<std::string, std::string>& unreadable() const { return unreadable_; }
  void add_unreadable(const std::string& path, const std::string& trouble) { unreadable_[path] = trouble; }

  /// Links are followed as the phone would: an absolute one from the root of the tree.
  FileContent read(const std::string& path) const;
  /// Where a path leads, links followed; the reason why it leads nowhere, instead.
  struct Resolved {
    std::string path;
    std::optional<std::string> trouble;
  };
  Resolved resolve(const std::string& path) const;
  /// Whether a file or device stands there, links followed.
  bool holds(const std::string& path) const;

 private:
  std::string name_;
  std::map<std::string, Entry> entries_;
  std::map<std::string, std::string> unreadable_;
};

}  // namespace awbcal

#endif
