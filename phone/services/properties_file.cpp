#include "phone/services/properties_file.h"

#include <algorithm>

namespace phone {
namespace {

constexpr const char* kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

std::optional<PropertyLine> parse_getprop_line(std::string_view line) {
  const size_t middle = line.find("]: [");
  if (!line.starts_with('[') || !line.ends_with(']') || middle == line.npos) return std::nullopt;
  const std::string_view value = line.substr(middle + 4);
  return PropertyLine{line.substr(1, middle - 1), value.substr(0, value.size() - 1)};
}

}  // namespace

std::optional<PropertyLine> parse_property_line(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  const std::string_view text = trimmed(line);
  if (text.starts_with('#')) return std::nullopt;
  if (const auto printed = parse_getprop_line(text)) return printed;
  const size_t equals = line.find('=');
  if (equals == line.npos) return std::nullopt;
  const std::string_view name = trimmed(line.substr(0, equals));
  return name.empty() ? std::nullopt : std::optional(PropertyLine{name, line.substr(equals + 1)});
}

std::map<std::string, std::string> parse_properties(std::string_view text) {
  std::map<std::string, std::string> properties;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    if (const auto line = parse_property_line(text.substr(0, end))) {
      properties.insert_or_assign(std::string(line->name), std::string(line->value));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return properties;
}

}  // namespace phone
