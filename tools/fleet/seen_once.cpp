#include "fleet/seen_once.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace awbcal {

namespace {

constexpr size_t kFewest = 1024;
constexpr size_t kMost = size_t{1} << 22;  // 64 MiB

}  // namespace

SeenOnce::SeenOnce() : table_(kFewest), names_(std::tmpfile(), std::fclose) {
  if (!names_) throw std::runtime_error(std::string("no temporary file: ") + std::strerror(errno));
}

void SeenOnce::begin_unit(const std::string& name) {
  unit_ = end_;
  if (!is_at_end_) std::fseek(names_.get(), 0, SEEK_END);
  is_at_end_ = true;
  std::fwrite(name.c_str(), 1, name.size() + 1, names_.get());
  end_ += name.size() + 1;
}

std::optional<std::string> SeenOnce::add(uint64_t key) {
  if (key == 0) key = 1;
  if (used_ >= table_.size() / 4 * 3 && table_.size() < kMost) grow();
  Entry& entry = place_of(table_, key);
  if (entry.key == key) return entry.unit == unit_ ? std::nullopt : std::optional(name_at(entry.unit));
  if (used_ >= table_.size() / 4 * 3) {
    ++not_compared_;
    return std::nullopt;
  }
  entry = {key, unit_};
  ++used_;
  return std::nullopt;
}

SeenOnce::Entry& SeenOnce::place_of(std::vector<Entry>& table, uint64_t key) const {
  size_t at = (key * 0x9E3779B97F4A7C15) % table.size();
  while (table[at].key != 0 && table[at].key != key) at = (at + 1) % table.size();
  return table[at];
}

void SeenOnce::grow() {
  std::vector<Entry> larger(table_.size() * 2);
  for (const Entry& entry : table_) {
    if (entry.key != 0) place_of(larger, entry.key) = entry;
  }
  table_ = std::move(larger);
}

std::string SeenOnce::name_at(uint64_t unit) {
  std::string name;
  is_at_end_ = false;
  std::fseek(names_.get(), static_cast<long>(unit), SEEK_SET);
  for (int character = 0; (character = std::getc(names_.get())) > 0;) name += static_cast<char>(character);
  return name;
}

}  // namespace awbcal
