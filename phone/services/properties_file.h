// The text of a phone's properties: what people edit, what a dump of a phone holds, what the service reads.
#ifndef PHONE_SERVICES_PROPERTIES_FILE_H
#define PHONE_SERVICES_PROPERTIES_FILE_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

struct PropertyLine {
  std::string_view name;
  std::string_view value;
};

/// A line as `name=value` or as getprop prints it, `[name]: [value]`. Blanks around the name do not count;
/// the value is what stands between "=" and the end of the line, blanks included, since the service hands
/// them out as well. Nothing for a line that starts with '#', is empty or names no property.
std::optional<PropertyLine> parse_property_line(std::string_view line);

/// All lines of a text. The last line of a name wins, as with the platform's own settings files.
std::map<std::string, std::string> parse_properties(std::string_view text);

}  // namespace phone

#endif
