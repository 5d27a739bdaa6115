#include "log/library_lines.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <tuple>
#include <vector>

namespace awbcal {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view without_end(std::string_view text) {
  const size_t last = text.find_last_not_of(kBlanks);
  return last == text.npos ? std::string_view() : text.substr(0, last + 1);
}

template <class Test>
size_t count_while(std::string_view text, const Test& test) {
  return static_cast<size_t>(std::find_if_not(text.begin(), text.end(), test) - text.begin());
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_hex_digit(char c) {
  return is_digit(c) || (c >= 'a' && c <= 'f');
}

bool is_name_character(char c) {
  return is_digit(c) || c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

size_t decimal_size(std::string_view text) {
  const size_t blanks = count_while(text, [](char c) { return c == ' '; });
  const size_t sign = text.substr(blanks).starts_with('-') ? 1 : 0;
  const size_t digits = count_while(text.substr(blanks + sign), is_digit);
  return digits == 0 ? 0 : blanks + sign + digits;
}

size_t real_size(std::string_view text) {
  const size_t sign = text.starts_with('-') ? 1 : 0;
  for (const std::string_view word : {"inf", "nan"}) {
    if (text.substr(sign).starts_with(word)) return sign + word.size();
  }
  const size_t digits = count_while(text.substr(sign), [](char c) { return is_digit(c) || c == '.'; });
  return digits == 0 ? 0 : sign + digits;
}

/// A conversion of a format.
struct Conversion {
  size_t size;  ///< in the format, with its '%'
  char letter;
};

Conversion conversion_at(std::string_view format) {
  const size_t end = format.find_first_of("dufxspc%", 1);
  return {end + 1, format[end]};
}

/// The literal text from here to the next conversion.
std::string_view literal_at(std::string_view format) {
  return format.substr(0, std::min(format.find('%'), format.size()));
}

/// How much of `text` the argument takes; `rest` is the format behind it. Nothing: it is none.
std::optional<size_t> argument_size(char letter, bool is_first, std::string_view text,
                                    std::string_view rest) {
  size_t size = 0;
  switch (letter) {
    case 'd':
    case 'u':
      size = decimal_size(text);
      break;
    case 'x':
      size = count_while(text, is_hex_digit);
      break;
    case 'f':
      size = real_size(text);
      break;
    case 's':
      // A line begins with no other text than the name of a function.
      if (is_first) {
        size = count_while(text, is_name_character);
        break;
      }
      [[fallthrough]];
    default: {
      const std::string_view literal = literal_at(rest);
      const size_t end = literal.empty() ? text.size() : text.find(literal);
      return end == text.npos ? std::nullopt : std::optional(end);
    }
  }
  return size == 0 ? std::nullopt : std::optional(size);
}

}  // namespace

/// Whether `text` is what `format` prints; takes the arguments.
bool scan(std::string_view format, std::string_view text, LineMatch& match) {
  match.count_ = 0;
  for (bool is_first = true; !format.empty(); is_first = false) {
    const std::string_view literal = literal_at(format);
    if (!text.starts_with(literal)) return false;
    text.remove_prefix(literal.size());
    format.remove_prefix(literal.size());
    if (format.empty()) break;
    const Conversion conversion = conversion_at(format);
    format.remove_prefix(conversion.size);
    if (conversion.letter == '%') {
      if (!text.starts_with('%')) return false;
      text.remove_prefix(1);
      continue;
    }
    const auto size = argument_size(conversion.letter, is_first && literal.empty(), text, format);
    if (!size || match.count_ == LineMatch::kMostValues) return false;
    match.values_[match.count_++] = text.substr(0, *size);
    text.remove_prefix(*size);
  }
  return text.empty();
}

namespace {

/// A line of one of the library's messages: few have more than one.
struct Pattern {
  size_t index;  ///< in the table
  size_t first;  ///< of those with the same text
  std::string_view format;
  size_t literals;  ///< characters that are no arguments
};

size_t literals_of(std::string_view format) {
  size_t count = 0;
  while (!format.empty()) {
    const size_t literal = literal_at(format).size();
    count += literal;
    format.remove_prefix(literal);
    if (!format.empty()) format.remove_prefix(conversion_at(format).size);
  }
  return count;
}

size_t first_with_format(size_t index) {
  const auto* const found =
      std::find_if(std::begin(kLibraryLines), std::end(kLibraryLines),
                   [index](const LibraryLine& line) { return line.format == kLibraryLines[index].format; });
  return static_cast<size_t>(found - kLibraryLines);
}

/// What tells most lines apart: the priority, whether a name comes first, and the character there or behind it.
using Mark = std::tuple<char, bool, char>;
using Patterns = std::map<Mark, std::vector<Pattern>>;

Mark mark_of(char priority, bool is_named, std::string_view text, size_t at) {
  return {priority, is_named, at < text.size() ? text[at] : '\0'};
}

void add_pattern(Patterns& patterns, size_t i, std::string_view format) {
  const bool is_named = format.starts_with("%s");
  patterns[mark_of(kLibraryLines[i].priority, is_named, format, is_named ? 2 : 0)].push_back(
      {i, first_with_format(i), format, literals_of(format)});
}

/// What says most of itself comes first.
Patterns make_patterns() {
  Patterns patterns;
  for (size_t i = 0; i < kLibraryLineCount; ++i) {
    std::string_view format = without_end(kLibraryLines[i].format);
    while (!format.empty()) {
      const size_t end = std::min(format.find('\n'), format.size());
      const std::string_view part = without_end(format.substr(0, end));
      if (!part.empty()) add_pattern(patterns, i, part);
      format.remove_prefix(std::min(end + 1, format.size()));
    }
  }
  for (auto& [mark, alike] : patterns) {
    std::stable_sort(alike.begin(), alike.end(),
                     [](const Pattern& a, const Pattern& b) { return a.literals > b.literals; });
  }
  return patterns;
}

std::set<std::string_view> library_tags() {
  std::set<std::string_view> tags;
  for (const LibraryLine& line : kLibraryLines) tags.insert(line.tag);
  return tags;
}

}  // namespace

bool is_library_tag(std::string_view tag) {
  static const std::set<std::string_view> kTags = library_tags();
  return kTags.contains(tag);
}

int64_t LineMatch::number(size_t i) const {
  std::string_view digits = text(i);
  digits.remove_prefix(count_while(digits, [](char c) { return c == ' '; }));
  int64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc::result_out_of_range) return value;
  return digits.starts_with('-') ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
}

uint64_t LineMatch::hex(size_t i) const {
  const std::string_view digits = text(i);
  uint64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
  return value;
}

double LineMatch::real(size_t i) const {
  const std::string_view digits = text(i);
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return error == std::errc() ? value : std::nan("");
}

std::optional<LineMatch> match_line(std::string_view tag, char priority, std::string_view text) {
  static const Patterns kPatterns = make_patterns();
  text = without_end(text);
  const size_t name = count_while(text, is_name_character);
  std::optional<LineMatch> best;
  size_t most = 0;
  LineMatch match;
  for (const bool is_named : {false, true}) {
    const auto alike = kPatterns.find(mark_of(priority, is_named, text, is_named ? name : 0));
    if (alike == kPatterns.end()) continue;
    for (const Pattern& pattern : alike->second) {
      if (best && pattern.literals <= most) break;
      if (kLibraryLines[pattern.index].tag != tag || !scan(pattern.format, text, match)) continue;
      match.index_ = pattern.first;
      best = match;
      most = pattern.literals;
      break;
    }
  }
  return best;
}

}  // namespace awbcal
