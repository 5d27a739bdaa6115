#include "phone/services/properties.h"

#include <cutils/properties.h>
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "phone/calls/faults.h"
#include "phone/calls/real.h"
#include "phone/services/properties_file.h"
#include "phone/virtual_phone.h"

namespace phone {
namespace {

struct State {
  std::mutex mutex;
  std::filesystem::path file;  // empty: no phone
  std::string text;            // comments and empty lines included, since they are written back
  std::map<std::string, std::string> values;
  struct stat seen = {};
  timespec read_at = {};
};

State& state() {
  static auto* const instance = new State;
  return *instance;
}

auto instant(const timespec& time) {
  return std::pair(time.tv_sec, time.tv_nsec);
}

/// Reads the file again if it may be another than at the last look. Every question comes by here.
void refresh() {
  struct stat now = {};
  if (stat(state().file.c_str(), &now) != 0) now = {};
  // Within one tick of the clock that stamps files, a second change leaves the stamp as it is.
  const bool settled = instant(now.st_mtim) < instant(state().read_at);
  const bool same = now.st_ino == state().seen.st_ino && now.st_size == state().seen.st_size &&
                    instant(now.st_mtim) == instant(state().seen.st_mtim);
  if (settled && same) return;
  state().seen = now;
  clock_gettime(CLOCK_REALTIME_COARSE, &state().read_at);
  std::string text(static_cast<size_t>(now.st_size), '\0');
  std::ifstream in(state().file, std::ios::binary);
  in.read(text.data(), now.st_size);
  text.resize(static_cast<size_t>(in.gcount()));
  if (text == state().text) return;
  state().text = std::move(text);
  state().values = parse_properties(state().text);
}

// A reader in another process sees the old file or the new one, never half of one.
bool replace_file(const std::string& text) {
  const std::filesystem::path fresh = state().file.string() + ".new";
  std::ofstream out(fresh, std::ios::trunc);
  out << text;
  out.close();
  std::error_code error;
  if (out) std::filesystem::rename(fresh, state().file, error);
  return out && !error;
}

/// `text` with one line for this property instead of all that it has; with none if there is no value.
std::string with(const std::string& text, const std::string& name, const std::optional<std::string>& value) {
  std::string fresh = value ? name + "=" + *value + "\n" : "";
  std::string result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    const auto parsed = parse_property_line(line);
    result += parsed && parsed->name == name ? std::exchange(fresh, "") : line + "\n";
  }
  return result + fresh;
}

bool can_be(const std::string& name, const std::string& value) {
  return !name.empty() && name[0] != '#' && name[0] != '[' && name.find_first_of("= \t\r\n") == name.npos &&
         value.size() < PROP_VALUE_MAX && value.find_first_of("\r\n") == value.npos;
}

std::optional<std::string> read_property(const std::string& name) {
  const std::lock_guard lock(state().mutex);
  if (state().file.empty()) return std::nullopt;
  refresh();
  const auto found = state().values.find(name);
  return found == state().values.end() ? std::nullopt : std::optional(found->second);
}

/// False: not what a property's name or value can be, or the file cannot be written.
bool write_properties(const std::map<std::string, std::string>& properties) {
  const std::lock_guard lock(state().mutex);
  if (state().file.empty()) return false;
  refresh();
  std::string text = state().text;
  for (const auto& [name, value] : properties) {
    if (!can_be(name, value)) return false;
    text = with(text, name, value);
  }
  return replace_file(text);
}

int copy_value(std::string_view from, char* to) {
  const std::string_view fits = from.substr(0, PROP_VALUE_MAX - 1);
  std::memcpy(to, fits.data(), fits.size());
  to[fits.size()] = '\0';
  return static_cast<int>(fits.size());
}

int read_value(std::string_view service_call, const char* name, char* value) {
  value[0] = '\0';
  if (name == nullptr || effect_on_service_call(service_call, name).error != 0) return 0;
  return copy_value(read_property(name).value_or(""), value);
}

}  // namespace

void serve_properties_from(const std::filesystem::path& file) {
  const std::lock_guard lock(state().mutex);
  state().file = file;
  state().text.clear();
  state().values.clear();
  state().seen = {};
}

void stop_serving_properties() {
  serve_properties_from({});
}

void VirtualPhone::set_property(const std::string& name, const std::string& value) {
  set_properties({{name, value}});
}

void VirtualPhone::set_properties(const std::map<std::string, std::string>& properties) {
  if (write_properties(properties)) return;
  std::string names;
  for (const auto& [name, value] : properties) names += " " + name + "=" + value;
  throw std::invalid_argument("not properties, or the file cannot be written:" + names);
}

void VirtualPhone::unset_property(const std::string& name) {
  const std::lock_guard lock(state().mutex);
  refresh();
  replace_file(with(state().text, name, std::nullopt));
}

std::string VirtualPhone::property(const std::string& name, const std::string& otherwise) const {
  return read_property(name).value_or(otherwise);
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
  if (key == nullptr || phone::effect_on_service_call("property_set", key).error != 0) return -1;
  // The platform lets nobody change a read-only property once it has a value.
  if (std::string_view(key).starts_with("ro.") && phone::read_property(key)) return -1;
  return phone::write_properties({{key, value == nullptr ? "" : value}}) ? 0 : -1;
}
