// The property service, on a file that people edit too: what programs ask for is in <cutils/properties.h> and
// <sys/system_properties.h>, what tests and tools set in VirtualPhone.
#ifndef PHONE_SERVICES_PROPERTIES_H
#define PHONE_SERVICES_PROPERTIES_H

#include <filesystem>

namespace phone {

/// The file is read again whenever it was changed behind the service's back.
void serve_properties_from(const std::filesystem::path& file);
void stop_serving_properties();

}  // namespace phone

#endif
