#include "inspect/pull_state.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace awbcal {

namespace {

constexpr std::string_view kFirstLine = "# What awbcal pull could read of a phone";

/// On one line, and without the sign that divides it.
std::string flat(std::string text) {
  std::ranges::replace_if(
      text, [](char c) { return c == '\n' || c == '\t'; }, ' ');
  return text;
}

}  // namespace

std::string text_of(const PullState& state) {
  std::string text = fmt::format("{}\n{}\n", kFirstLine, state.is_finished ? "finished" : "unfinished");
  const auto add = [&text](const char* what, const std::string& path, const std::string& reason) {
    text += fmt::format("{}\t{}\t{}\n", what, flat(path), flat(reason));
  };
  for (const auto& [path, reason] : state.unreadable) add("unreadable", path, reason);
  for (const auto& [path, reason] : state.unreadable_links) add("link", path, reason);
  for (const std::string& path : state.area_only) add("area", path, "");
  for (const std::string& note : state.notes) add("note", note, "");
  return text;
}

std::optional<PullState> parse_pull_state(std::string_view text) {
  if (!text.starts_with(kFirstLine)) return std::nullopt;
  PullState state;
  std::istringstream lines{std::string(text)};
  for (std::string line; std::getline(lines, line);) {
    if (line == "finished") state.is_finished = true;
    std::istringstream parts(line);
    std::string what, path, reason;
    std::getline(parts, what, '\t');
    if (!std::getline(parts, path, '\t') || path.empty()) continue;
    std::getline(parts, reason, '\t');
    if (what == "unreadable") state.unreadable.emplace(path, reason);
    if (what == "link") state.unreadable_links.emplace(path, reason);
    if (what == "area") state.area_only.insert(path);
    if (what == "note") state.notes.push_back(path);
  }
  return state;
}

}  // namespace awbcal
