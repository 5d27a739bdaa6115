// What is said of a phone to people, on a terminal and on a page.
#ifndef INSPECT_PHRASES_H
#define INSPECT_PHRASES_H

#include <string>
#include <vector>

#include "inspect/phone.h"

namespace awbcal {

/// "2 records", "1 record".
std::string counted(size_t count, const char* noun);

/// "main camera, AWB record"
std::string record_title(const RecordSpec& spec, std::optional<calib::Camera> camera);

/// Where the record stands.
std::string place_text(const Phone& phone, const FoundRecord& record);

/// What the input is, what was found in it that is not as expected, and which record area was taken; a line each.
std::vector<std::string> input_lines(const Phone& phone);

/// Which modules are fitted, and where that is only assumed.
std::vector<std::string> module_lines(const Modules& modules, const Modules& assumed);

}  // namespace awbcal

#endif
