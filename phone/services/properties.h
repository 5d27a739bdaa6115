// The property service, on a file of name=value lines that people edit too.
#ifndef PHONE_SERVICES_PROPERTIES_H
#define PHONE_SERVICES_PROPERTIES_H

#include <filesystem>
#include <optional>
#include <string>

namespace phone {

void serve_properties_from(const std::filesystem::path& file);
void stop_serving_properties();

/// The file is read again whenever it was changed behind the service's back.
std::optional<std::string> read_property(const std::string& name);

/// False: not what a property's name or value can be, or the file cannot be written.
bool write_property(const std::string& name, const std::string& value);
void remove_property(const std::string& name);

}  // namespace phone

#endif
