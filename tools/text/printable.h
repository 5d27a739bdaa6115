// Text of others on a terminal: file names, property values, messages.
#ifndef TEXT_PRINTABLE_H
#define TEXT_PRINTABLE_H

#include <string>
#include <string_view>

namespace awbcal {

/// The text with everything escaped that would command a terminal or mislead its reader: control characters,
/// marks that turn the writing direction, and bytes that are not UTF-8.
std::string printable(std::string_view text);

}  // namespace awbcal

#endif
