// The units that were named: files and phone folders, folders full of them, a list on standard input. One after the
// other, so that their number needs no memory.
#ifndef FLEET_UNIT_SOURCE_H
#define FLEET_UNIT_SOURCE_H

#include <atomic>
#include <optional>
#include <string>
#include <vector>

namespace awbcal {

class UnitSource {
 public:
  struct Entry {
    std::string path;
    bool is_folder;
  };

  /// "-" is a list of paths on standard input, ended by newlines, or by zero bytes.
  /// When `stops` becomes true, no line is waited for.
  UnitSource(std::vector<std::string> paths, bool zero_ended, const std::atomic<bool>& stops);

  /// The path of the next unit; nothing after the last. A folder's entries come in the order of their names.
  std::optional<std::string> next();

 private:
  std::optional<Entry> next_entry();
  std::optional<std::string> next_line();
  bool fill();

  const std::atomic<bool>& stops_;
  std::vector<std::string> waiting_;  ///< what was named; the next one last
  std::vector<Entry> entries_ = {};   ///< of the folders that were opened; the next one last
  char end_of_line_;
  bool reads_list_ = false;
  std::string list_ = {};  ///< what was read of it and not used
  size_t used_ = 0;
};

}  // namespace awbcal

#endif
