#include "text/printable.h"

#include <fmt/format.h>

#include <cstdint>
#include <iterator>

namespace awbcal {

namespace {

struct Character {
  uint32_t code;
  size_t size;  ///< bytes; 0: not UTF-8
};

size_t size_of_lead(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  return lead >= 0xF0 && lead < 0xF5 ? 4 : 0;
}

Character first_of(std::string_view text) {
  const auto lead = static_cast<uint8_t>(text[0]);
  const size_t size = size_of_lead(lead);
  if (size == 0 || size > text.size()) return {lead, 0};
  uint32_t code = size == 1 ? lead : lead & (0x7FU >> size);
  for (size_t i = 1; i < size; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xC0) != 0x80) return {lead, 0};
    code = code << 6 | (next & 0x3FU);
  }
  const bool is_overlong = (size == 3 && code < 0x800) || (size == 4 && code < 0x10000);
  const bool is_surrogate = code >= 0xD800 && code < 0xE000;
  return is_overlong || is_surrogate || code > 0x10FFFF ? Character{lead, 0} : Character{code, size};
}

bool commands_terminal(uint32_t code) {
  const bool is_control = code < 0x20 || (code >= 0x7F && code < 0xA0);
  const bool turns_direction = code == 0x061C || code == 0x200E || code == 0x200F ||
                               (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
  return is_control || turns_direction || code == 0x2028 || code == 0x2029;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Character character = first_of(text);
    if (character.size == 0 || character.code < 0x100) {
      const bool is_plain = character.size != 0 && !commands_terminal(character.code);
      if (is_plain) {
        result += text.substr(0, character.size);
      } else {
        fmt::format_to(std::back_inserter(result), "\\x{:02x}", character.code);
      }
    } else if (commands_terminal(character.code)) {
      fmt::format_to(std::back_inserter(result), "\\u{:04x}", character.code);
    } else {
      result += text.substr(0, character.size);
    }
    text.remove_prefix(std::max<size_t>(character.size, 1));
  }
  return result;
}

}  // namespace awbcal
