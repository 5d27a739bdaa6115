#include "fleet/unit_source.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <utility>

#include "inspect/files.h"
#include "inspect/recognise.h"

namespace awbcal {

namespace fs = std::filesystem;

namespace {

/// What is in a folder, by name; nothing when it cannot be read.
std::vector<UnitSource::Entry> entries_of(const std::string& folder) {
  std::vector<UnitSource::Entry> entries;
  std::error_code error;
  fs::directory_iterator entry(folder, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code ignored;
    // A link to a folder may lead anywhere, and round in circles.
    if (entry->is_symlink(ignored) && entry->is_directory(ignored)) continue;
    entries.push_back({entry->path().filename().string(), entry->is_directory(ignored)});
  }
  std::ranges::sort(entries, std::greater(), &UnitSource::Entry::path);
  return entries;
}

/// Whether the folder is a phone, or the files pulled from one, and not a folder of units.
bool is_of_one_phone(const std::vector<UnitSource::Entry>& entries) {
  static const std::set<std::string> kPlaces = {"data",    "dev",        "proc",        "sys",
                                                "factory", "properties", "getprop.txt", "nand"};
  return std::ranges::any_of(entries, [](const UnitSource::Entry& entry) {
    return kPlaces.contains(entry.path) || recognise_by_place(entry.path).has_value();
  });
}

template <class Value>
Value taken_from(std::vector<Value>& stack) {
  Value last = std::move(stack.back());
  stack.pop_back();
  return last;
}

UnitSource::Entry entry_of(const std::string& path) {
  std::error_code error;
  return {path, fs::is_directory(path, error)};
}

}  // namespace

UnitSource::UnitSource(std::vector<std::string> paths, bool zero_ended, const std::atomic<bool>& stops)
    : stops_(stops), waiting_(std::move(paths)), end_of_line_(zero_ended ? '\0' : '\n') {
  std::reverse(waiting_.begin(), waiting_.end());
}

/// More of the list; false at its end.
bool UnitSource::fill() {
  constexpr int kPatience = 100;
  constexpr size_t kPart = 64 * 1024;
  pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  while (poll(&input, 1, kPatience) <= 0) {
    if (stops_) return false;
  }
  list_.erase(0, std::exchange(used_, 0));
  const size_t size = list_.size();
  list_.resize(size + kPart);
  const ssize_t count = read(STDIN_FILENO, list_.data() + size, kPart);
  list_.resize(size + static_cast<size_t>(std::max<ssize_t>(count, 0)));
  return count > 0 || (count < 0 && errno == EINTR);
}

std::optional<std::string> UnitSource::next_line() {
  size_t end = std::string::npos;
  while ((end = list_.find(end_of_line_, used_)) == std::string::npos && fill()) {
  }
  if (end == std::string::npos && used_ == list_.size()) return std::nullopt;
  const std::string line = list_.substr(used_, end - used_);
  used_ = end == std::string::npos ? list_.size() : end + 1;
  // Standard input is the list; a file of this name can be in it.
  return line == "-" ? "./-" : line;
}

std::optional<UnitSource::Entry> UnitSource::next_entry() {
  if (!entries_.empty()) return taken_from(entries_);
  while (reads_list_) {
    const std::optional<std::string> line = next_line();
    reads_list_ = line.has_value();
    if (line && !line->empty()) return entry_of(*line);
  }
  if (waiting_.empty()) return std::nullopt;
  const std::string path = taken_from(waiting_);
  if (path != "-") return entry_of(path);
  reads_list_ = true;
  return next_entry();
}

std::optional<std::string> UnitSource::next() {
  while (std::optional<Entry> entry = next_entry()) {
    if (!entry->is_folder) return std::move(entry->path);
    std::vector<Entry> inner = entries_of(entry->path);
    // A folder without anything in it is a unit without anything in it.
    if (inner.empty() || is_of_one_phone(inner)) return std::move(entry->path);
    for (Entry& each : inner) {
      if (each.path.starts_with(".")) continue;
      each.path = (fs::path(entry->path) / each.path).string();
      entries_.push_back(std::move(each));
    }
  }
  return std::nullopt;
}

}  // namespace awbcal
