// What `awbcal pull` notes in the folder that it makes: whether the phone was read to its end, and what in it could
// not be read. A file that is not in such a folder is absent only where this does not say otherwise.
#ifndef INSPECT_PULL_STATE_H
#define INSPECT_PULL_STATE_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace awbcal {

/// In the folder, beside the phone's own folders.
inline constexpr const char* kPullStateFile = "pulled";

struct PullState {
  bool is_finished = false;  ///< false: what is not in the folder was not asked for yet
  std::map<std::string, std::string> unreadable = {};        ///< files of the phone, and why
  std::map<std::string, std::string> unreadable_links = {};  ///< which may lead to the partition
  std::set<std::string> area_only = {};  ///< devices of which nothing but the record area was read
  std::vector<std::string> notes = {};   ///< a line each
};

std::string text_of(const PullState& state);

/// Nothing: the text is no such state. Lines that say nothing known are passed over.
std::optional<PullState> parse_pull_state(std::string_view text);

}  // namespace awbcal

#endif
