#include "text/terminal.h"

#include <fmt/color.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "text/printable.h"

namespace awbcal {

namespace {

std::string_view variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

bool wants_colour(Colour colour, bool is_interactive) {
  if (colour != Colour::by_itself) return colour == Colour::always;
  const std::string_view terminal = variable("TERM");
  return is_interactive && variable("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb";
}

size_t width_of_output(bool is_interactive) {
  winsize size{};
  if (!is_interactive || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kColumns;
  return std::clamp<size_t>(size.ws_col, kFewestColumns, kMostColumns);
}

fmt::text_style look_of(Style style) {
  switch (style) {
    case Style::heading:
      return fmt::emphasis::bold;
    case Style::good:
      return fmt::fg(fmt::terminal_color::green);
    case Style::bad:
      return fmt::emphasis::bold | fmt::fg(fmt::terminal_color::red);
    case Style::quiet:
      return fmt::emphasis::faint;
    case Style::plain:
      break;
  }
  return {};
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

Terminal::Terminal(Colour colour)
    : out_(fdopen(dup(STDOUT_FILENO), "w")),
      interactive_(isatty(STDOUT_FILENO) == 1),
      coloured_(wants_colour(colour, interactive_)),
      width_(width_of_output(interactive_)) {
  if (out_ == nullptr) fail("cannot open standard output");
}

Terminal::~Terminal() {
  std::fclose(out_);
}

std::string Terminal::styled(std::string_view text, Style style) const {
  if (!coloured_ || style == Style::plain) return printable(text);
  return fmt::format(look_of(style), "{}", printable(text));
}

void Terminal::line(std::string_view text) {
  clear_progress();
  fmt::print(out_, "{}\n", text);
}

void Terminal::heading(std::string_view text) {
  line();
  const size_t used = std::min(text.size() + 4, width_);
  line(styled(fmt::format("== {} {}", text, std::string(width_ - used, '=')), Style::heading));
}

void Terminal::paragraph(std::string_view text, size_t indent) {
  for (const std::string& part : wrap(printable(text), width_ - indent))
    line(std::string(indent, ' ') + part);
}

void Terminal::quote_line(std::string_view text, size_t width) {
  for (const std::string& part : wrap(printable(text), width)) {
    const std::string quoted = "    | " + part;
    line(styled(quoted.substr(0, quoted.find_last_not_of(' ') + 1), Style::quiet));
  }
}

void Terminal::quote(std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    quote_line(text.substr(0, end), width_ - 6);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void Terminal::log_line(std::string_view text) {
  quote_line(text.substr(0, text.find_last_not_of('\n') + 1), interactive_ ? width_ - 6 : text.npos);
}

void Terminal::progress(std::string_view text) {
  if (!interactive_) return;
  fmt::print(out_, "\r\033[K{}", text.substr(0, width_ - 1));
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
