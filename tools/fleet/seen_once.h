// What should be seen in one unit only, such as a module's fuse ID, and in which it was seen first. Sixteen bytes for
// each, and the units' names in a file without a name: a million units fit.
#ifndef FLEET_SEEN_ONCE_H
#define FLEET_SEEN_ONCE_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace awbcal {

class SeenOnce {
 public:
  SeenOnce();

  /// What is added from now on is of this unit.
  void begin_unit(const std::string& name);
  /// The name of the other unit that had `key` first; nothing when this is the first, or there is no more room.
  std::optional<std::string> add(uint64_t key);
  /// How many keys came when there was no more room: whether another unit had them is not known.
  size_t not_compared() const { return not_compared_; }

 private:
  struct Entry {
    uint64_t key = 0;   ///< 0: free
    uint64_t unit = 0;  ///< where its name begins in the file
  };

  Entry& place_of(std::vector<Entry>& table, uint64_t key) const;
  void grow();
  std::string name_at(uint64_t unit);

  std::vector<Entry> table_;
  size_t used_ = 0;
  size_t not_compared_ = 0;
  uint64_t unit_ = 0;
  uint64_t end_ = 0;
  bool is_at_end_ = true;  ///< of the file
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> names_;
};

}  // namespace awbcal

#endif
