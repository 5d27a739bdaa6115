#include "text/terminal.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "text/printable.h"

namespace awbcal {

namespace {

bool wants_colour() {
  const char* terminal = std::getenv("TERM");
  return std::getenv("NO_COLOR") == nullptr && terminal != nullptr && std::string_view(terminal) != "dumb";
}

const char* escape_code(Style style) {
  switch (style) {
    case Style::heading:
      return "\033[1m";
    case Style::good:
      return "\033[32m";
    case Style::bad:
      return "\033[1;31m";
    case Style::quiet:
      return "\033[2m";
    case Style::plain:
      break;
  }
  return "";
}

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

std::vector<std::string> wrap(std::string_view text, size_t width) {
  std::vector<std::string> lines;
  while (text.size() > width) {
    size_t end = text.rfind(' ', width);
    if (end == 0 || end == std::string_view::npos) end = width;
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(text[end] == ' ' ? end + 1 : end);
  }
  lines.emplace_back(text);
  return lines;
}

Terminal::Terminal()
    : out_(fdopen(dup(STDOUT_FILENO), "w")),
      interactive_(isatty(STDOUT_FILENO) == 1),
      coloured_(interactive_ && wants_colour()) {
  if (out_ == nullptr) fail("cannot open standard output");
}

Terminal::~Terminal() {
  std::fclose(out_);
}

std::string Terminal::styled(std::string_view text, Style style) const {
  if (!coloured_ || style == Style::plain) return printable(text);
  return fmt::format("{}{}\033[0m", escape_code(style), printable(text));
}

void Terminal::line(std::string_view text) {
  clear_progress();
  fmt::print(out_, "{}\n", text);
}

void Terminal::heading(std::string_view text) {
  line();
  const size_t used = std::min(text.size() + 4, kColumns);
  line(styled(fmt::format("== {} {}", text, std::string(kColumns - used, '=')), Style::heading));
}

void Terminal::paragraph(std::string_view text, size_t indent) {
  for (const std::string& part : wrap(printable(text), kColumns - indent))
    line(std::string(indent, ' ') + part);
}

void Terminal::quote(std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    for (const std::string& part : wrap(printable(text.substr(0, end)), kColumns - 6)) {
      const std::string quoted = "    | " + part;
      line(styled(quoted.substr(0, quoted.find_last_not_of(' ') + 1), Style::quiet));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void Terminal::progress(std::string_view text) {
  if (!interactive_) return;
  fmt::print(out_, "\r\033[K{}", text.substr(0, kColumns - 1));
  std::fflush(out_);
  has_progress_ = true;
}

void Terminal::clear_progress() {
  if (has_progress_) fmt::print(out_, "\r\033[K");
  has_progress_ = false;
}

bool Terminal::finish() {
  clear_progress();
  return std::fflush(out_) == 0 && std::ferror(out_) == 0;
}

ConsoleCapture::ConsoleCapture() : file_(std::tmpfile()), saved_stdout_(dup(STDOUT_FILENO)) {
  if (file_ == nullptr || saved_stdout_ < 0) fail("cannot capture the console");
  std::fflush(stdout);
  if (dup2(fileno(file_), STDOUT_FILENO) < 0) fail("cannot capture the console");
}

ConsoleCapture::~ConsoleCapture() {
  std::fflush(stdout);
  dup2(saved_stdout_, STDOUT_FILENO);
  close(saved_stdout_);
  std::fclose(file_);
}

std::string ConsoleCapture::take() {
  std::fflush(stdout);
  const int fd = fileno(file_);
  const off_t end = lseek(fd, 0, SEEK_END);
  std::string text(static_cast<size_t>(std::max<off_t>(end - taken_, 0)), '\0');
  const ssize_t count = pread(fd, text.data(), text.size(), taken_);
  text.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  taken_ = end;
  return text;
}

}  // namespace awbcal
