#include "log/log_reader.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "log/library_lines.h"
#include "phone/services/properties_file.h"

namespace awbcal {

namespace {

/// Longer than a line of the platform's log can be, with what a station puts in front of it.
constexpr size_t kLongestLine = 8192;
constexpr size_t kMostSections = 1000;
constexpr size_t kLongestName = 80;
constexpr size_t kMostProperties = 256;

constexpr std::string_view kLogLossTag = "chatty";

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_priority(char c) {
  return std::string_view("VDIWEF").find(c) != std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// A whole text of decimal digits.
std::optional<int64_t> number_of(std::string_view text) {
  int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end && !text.empty() && is_digit(text[0]) ? std::optional(value)
                                                                                   : std::nullopt;
}

/// Takes the last word off `text`.
std::string_view take_last_word(std::string_view& text) {
  text = text.substr(0, text.find_last_not_of(' ') + 1);
  const size_t blank = text.find_last_of(' ');
  const std::string_view word = blank == text.npos ? text : text.substr(blank + 1);
  text.remove_suffix(word.size());
  return word;
}

/// "11-21 20:15:00.123", with a year or without, wherever it stands.
std::string_view time_in(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == text.npos || colon < 8 || text[colon - 3] != ' ' || text[colon - 6] != '-') return {};
  size_t begin = colon - 8;
  while (begin > 0 && (is_digit(text[begin - 1]) || text[begin - 1] == '-')) --begin;
  size_t end = colon;
  while (end < text.size() && (is_digit(text[end]) || text[end] == ':' || text[end] == '.')) ++end;
  return text.substr(begin, std::min(end - begin, size_t{40}));
}

/// Where the tag's name ends: it is followed by blanks and the rest of the header.
std::string_view tag_at(std::string_view line, size_t at) {
  const size_t end = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at);
  return line.substr(at, end == line.npos ? end : end - at);
}

bool matters(std::string_view property) {
  return property.starts_with("qor.camera.") || property == "ro.pagesize";
}

/// What follows a colon and a blank.
std::string_view text_behind(std::string_view rest) {
  if (rest.starts_with(' ')) rest.remove_prefix(1);
  return rest;
}

}  // namespace

void LogReader::begin_file(std::string_view name) {
  if (line_ > 0) begin_section(name);
  file_bytes_ = 0;
  is_utf16_ = false;
}

void LogReader::finish_file() {
  if (!pending_.empty() || is_too_long_) end_line();
  is_in_message_ = is_in_properties_ = false;
}

void LogReader::feed(std::string_view bytes) {
  for (const char c : bytes) {
    ++file_bytes_;
    if (c == '\n') {
      end_line();
    } else if (is_utf16_ && c == '\0') {
      continue;
    } else if (pending_.size() < kLongestLine) {
      pending_ += c;
    } else {
      is_too_long_ = true;
    }
    // What Windows writes has two bytes a character; in a log the second is 0.
    if (file_bytes_ == 2 && pending_ == "\xFF\xFE") {
      is_utf16_ = true;
      pending_.clear();
    }
  }
}

void LogReader::end_line() {
  ++line_;
  if (is_too_long_) ++cut_lines_;
  std::string_view line = pending_;
  if (line.ends_with('\r')) line.remove_suffix(1);
  take_line(line);
  pending_.clear();
  is_too_long_ = false;
}

void LogReader::take_line(std::string_view line) {
  if (take_section(line) || take_property(line) || take_long_header(line)) return;
  for (const std::string_view prefix : {kCalibrationTag, kLogLossTag}) {
    // The first that is a header: what a message quotes stands behind its own.
    for (size_t at = line.find(prefix); at != line.npos; at = line.find(prefix, at + 1)) {
      Header header;
      if (!parse_header(line, tag_at(line, at), at, header)) continue;
      is_in_message_ = false;
      return take_entry(header);
    }
  }
  if (!is_in_message_) return;
  if (line.empty()) {
    is_in_message_ = false;
    return;
  }
  message_.tag = message_tag_;
  message_.time = message_time_;
  message_.text = line;
  take_entry(message_);
}

/// "------ SYSTEM LOG (logcat -v threadtime -d *:v) ------"
bool LogReader::take_section(std::string_view line) {
  constexpr std::string_view kRule = "------ ";
  if (!line.starts_with(kRule) || !line.ends_with(" ------")) return false;
  is_in_message_ = false;
  if (line.find("was the duration of") != line.npos) return true;
  is_bug_report_ = true;
  const std::string_view name = line.substr(kRule.size(), line.size() - 2 * kRule.size());
  begin_section(name.substr(0, std::min(name.find(" ("), name.size())));
  return true;
}

void LogReader::begin_section(std::string_view name) {
  is_in_properties_ = name == "SYSTEM PROPERTIES";
  if (sections_.size() < kMostSections) sections_.emplace_back(name.substr(0, kLongestName));
}

/// A bug report has other lists in brackets too.
bool LogReader::take_property(std::string_view line) {
  if (!line.starts_with('[') || line.find("]: [") == line.npos) return false;
  if (is_bug_report_ && !is_in_properties_) return false;
  const auto property = phone::parse_property_line(line);
  if (!property || !matters(property->name)) return property.has_value();
  if (properties_.size() < kMostProperties)
    properties_.insert_or_assign(std::string(property->name), std::string(property->value));
  return true;
}

/// "[ 11-21 20:15:00.123  1234: 1240 I/camera_calibration ]", and the message on the lines under it.
bool LogReader::take_long_header(std::string_view line) {
  if (!line.starts_with("[ ") || !line.ends_with(" ]")) return false;
  const std::string_view inside = line.substr(2, line.size() - 4);
  const size_t slash = inside.find('/');
  if (slash == inside.npos || slash < 2 || !is_priority(inside[slash - 1])) return false;
  std::string_view before = inside.substr(0, slash - 1);
  const size_t colon = before.find_last_of(':');
  if (colon == before.npos) return false;
  before = before.substr(0, colon);
  const auto pid = number_of(take_last_word(before));
  if (!pid) return false;
  message_tag_ = trimmed(inside.substr(slash + 1));
  message_time_ = time_in(inside);
  message_ = {.priority = inside[slash - 1], .tag = {}, .pid = *pid, .text = {}, .time = {}};
  is_in_message_ = is_library_tag(message_tag_) || message_tag_ == kLogLossTag;
  return true;
}

/// "I/camera_calibration( 1234): text", or "11-21 20:15:00.123  1234  1240 I camera_calibration: text".
bool LogReader::parse_header(std::string_view line, std::string_view tag, size_t at, Header& header) {
  if (at < 2 || !is_priority(line[at - 2]) || (line[at - 1] != '/' && line[at - 1] != ' ')) return false;
  std::string_view before = line.substr(0, at - 2);
  std::string_view behind = line.substr(at + tag.size());
  header.priority = line[at - 2];
  header.tag = tag;
  behind.remove_prefix(std::min(behind.find_first_not_of(' '), behind.size()));
  const std::string_view prefix = before;
  std::optional<int64_t> pid;
  if (line[at - 1] == '/') {
    const size_t end = behind.find("):");
    if (!behind.starts_with('(') || end == behind.npos) return false;
    pid = number_of(trimmed(behind.substr(1, end - 1)));
    header.text = text_behind(behind.substr(end + 2));
  } else {
    if (!behind.starts_with(':')) return false;
    const auto tid = number_of(take_last_word(before));
    pid = tid ? number_of(take_last_word(before)) : std::nullopt;
    header.text = text_behind(behind.substr(1));
  }
  if (!pid) return false;
  header.pid = *pid;
  header.time = time_in(prefix);
  return true;
}

/// "uid=1047(cameraserver) expire 12 lines"
void LogReader::take_entry(const Header& header) {
  const auto section = static_cast<uint32_t>(sections_.size() - 1);
  if (header.tag == kLogLossTag) {
    constexpr std::string_view kExpire = " expire ";
    const size_t at = header.text.find(kExpire);
    if (at == header.text.npos) return;
    const std::string_view count = header.text.substr(at + kExpire.size());
    const auto lines = number_of(count.substr(0, std::min(count.find(' '), count.size())));
    if (lines) sink_.take_dropped(section, header.pid, static_cast<uint64_t>(*lines));
    return;
  }
  if (!is_library_tag(header.tag)) return;
  sink_.take({.line = line_,
              .section = section,
              .pid = header.pid,
              .time = header.time,
              .priority = header.priority,
              .tag = header.tag,
              .text = header.text});
}

}  // namespace awbcal
