#include "phone/services/properties.h"

#include <cutils/properties.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>
#include <mutex>
#include <string_view>
#include <vector>

#include "phone/calls/faults.h"
#include "phone/calls/real.h"
#include "phone/services/properties_file.h"

namespace phone {
namespace {

struct State {
  std::mutex mutex;
  std::filesystem::path file;      // empty: no phone
  std::vector<std::string> lines;  // comments and empty lines included, since they are written back
  struct stat seen = {};
  time_t read_at = 0;
};

State& state() {
  static auto* const instance = new State;
  return *instance;
}

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
         a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

void refresh() {
  struct stat now = {};
  if (stat(state().file.c_str(), &now) != 0) now = {};
  // A file written within the same tick of the clock as our last look may have changed unseen.
  const bool settled = state().read_at > now.st_mtim.tv_sec + 1;
  if (settled && same_file(now, state().seen)) return;
  state().seen = now;
  state().read_at = time(nullptr);
  state().lines.clear();
  std::ifstream in(state().file);
  for (std::string line; std::getline(in, line);) state().lines.push_back(line);
}

// A reader in another process sees the old file or the new one, never half of one.
bool save() {
  const std::filesystem::path fresh = state().file.string() + ".new";
  std::ofstream out(fresh, std::ios::trunc);
  for (const std::string& line : state().lines) out << line << '\n';
  out.close();
  std::error_code error;
  if (out) std::filesystem::rename(fresh, state().file, error);
  if (!out || error) return false;
  return true;
}

bool is_line_of(std::string_view name, std::string_view line) {
  const auto parsed = parse_property_line(line);
  return parsed && parsed->name == name;
}

// The last line of a name wins.
std::string* line_of(const std::string& name) {
  const auto found = std::find_if(state().lines.rbegin(), state().lines.rend(),
                                  [&](const std::string& line) { return is_line_of(name, line); });
  return found == state().lines.rend() ? nullptr : &*found;
}

bool can_be_name(std::string_view name) {
  return !name.empty() && name[0] != '#' && name.find_first_of("= \t\r\n") == name.npos;
}

bool can_be_value(std::string_view value) {
  return value.size() < PROP_VALUE_MAX && value.find_first_of("\r\n") == value.npos;
}

int copy_value(std::string_view from, char* to) {
  const std::string_view fits = from.substr(0, PROP_VALUE_MAX - 1);
  std::memcpy(to, fits.data(), fits.size());
  to[fits.size()] = '\0';
  return static_cast<int>(fits.size());
}

int read_value(std::string_view service_call, const char* name, char* value) {
  value[0] = '\0';
  if (name == nullptr || judge_service_call(service_call, name).error != 0) return 0;
  return copy_value(read_property(name).value_or(""), value);
}

}  // namespace

void serve_properties_from(const std::filesystem::path& file) {
  const std::lock_guard lock(state().mutex);
  state().file = file;
  state().lines.clear();
  state().seen = {};
}

void stop_serving_properties() {
  serve_properties_from({});
}

std::optional<std::string> read_property(const std::string& name) {
  const std::lock_guard lock(state().mutex);
  if (state().file.empty() || name.empty()) return std::nullopt;
  refresh();
  const std::string* line = line_of(name);
  return line == nullptr ? std::nullopt : std::optional(std::string(parse_property_line(*line)->value));
}

bool write_property(const std::string& name, const std::string& value) {
  const std::lock_guard lock(state().mutex);
  if (state().file.empty() || !can_be_name(name) || !can_be_value(value)) return false;
  refresh();
  std::string fresh = name;
  fresh.append("=").append(value);
  if (std::string* line = line_of(name))
    *line = fresh;
  else
    state().lines.push_back(fresh);
  return save();
}

void remove_property(const std::string& name) {
  const std::lock_guard lock(state().mutex);
  if (state().file.empty()) return;
  refresh();
  std::erase_if(state().lines, [&](const std::string& line) { return is_line_of(name, line); });
  save();
}

}  // namespace phone

#define PHONE_EXPORT extern "C" __attribute__((visibility("default")))

PHONE_EXPORT int __system_property_get(const char* name, char* value) {
  const phone::ErrnoKeeper keeper;
  return phone::read_value("__system_property_get", name, value);
}

// An empty value counts as no value, as it does on the platform.
PHONE_EXPORT int property_get(const char* key, char* value, const char* default_value) {
  const phone::ErrnoKeeper keeper;
  const int size = phone::read_value("property_get", key, value);
  return size > 0 || default_value == nullptr ? size : phone::copy_value(default_value, value);
}

PHONE_EXPORT int property_set(const char* key, const char* value) {
  const phone::ErrnoKeeper keeper;
  if (key == nullptr || phone::judge_service_call("property_set", key).error != 0) return -1;
  // The platform lets nobody change a read-only property once it has a value.
  if (std::string_view(key).starts_with("ro.") && phone::read_property(key)) return -1;
  return phone::write_property(key, value == nullptr ? "" : value) ? 0 : -1;
}
