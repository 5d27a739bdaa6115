#include "commands/suggestion.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <vector>

namespace awbcal {

namespace {

/// How many characters must be put in, taken out or replaced to make one word of the other.
size_t distance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string unknown_command(const CLI::App& app, int count, char** arguments) {
  const auto is_word = [](const char* text) { return text[0] != '-'; };
  char** word = std::find_if(arguments + 1, arguments + count, is_word);
  if (word == arguments + count) return {};
  const std::string typed = *word;
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands({})) names.push_back(command->get_name());
  if (std::ranges::find(names, typed) != names.end()) return {};
  const auto nearest = std::ranges::min_element(
      names, {}, [&typed](const std::string& name) { return distance(typed, name); });
  constexpr size_t kTypingError = 2;
  const bool is_near = distance(typed, *nearest) <= std::min(kTypingError, typed.size() / 2);
  return fmt::format("no such command: \"{}\"{}", typed,
                     is_near ? fmt::format("; did you mean \"{}\"?", *nearest) : "; see `awbcal --help`");
}

}  // namespace awbcal
