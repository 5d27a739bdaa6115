// Where the tool prints: as wide as the terminal, and 80 columns into a file; a progress line only on a terminal.
#ifndef TEXT_TERMINAL_H
#define TEXT_TERMINAL_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace awbcal {

/// The width of what is no terminal, and the narrowest and widest that is used of one.
inline constexpr size_t kColumns = 80;
inline constexpr size_t kFewestColumns = 40;
inline constexpr size_t kMostColumns = 200;

/// By itself a terminal has colour unless NO_COLOR is set to something, and nothing else has.
enum class Colour { by_itself, always, never };

enum class Style { plain, heading, good, bad, quiet };

/// The text in lines of at most `width` characters, broken at spaces where there are any.
std::vector<std::string> wrap(std::string_view text, size_t width);

/// Standard output as it was when this was made: what the library prints later can be captured beside it.
class Terminal {
 public:
  explicit Terminal(Colour colour = Colour::by_itself);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool is_interactive() const { return interactive_; }
  size_t width() const { return width_; }
  // Text may be of others: its control characters are shown, not sent. Only line() takes what styled() made.
  std::string styled(std::string_view text, Style style) const;
  void line(std::string_view text = {});  ///< of our own words
  void heading(std::string_view text);
  void paragraph(std::string_view text, size_t indent = 2);  ///< wrapped
  void quote(std::string_view text);                         ///< text of others, behind a bar
  void log_line(std::string_view text);  ///< the same; unbroken where it can be searched for
  void progress(std::string_view text);  ///< replaces the progress line

  /// Flushes; false when something could not be written.
  bool finish();

 private:
  void clear_progress();
  void quote_line(std::string_view text, size_t width);

  std::FILE* out_;
  bool interactive_;
  bool coloured_;
  size_t width_;
  bool has_progress_ = false;
};

/// Takes what this process prints on standard output, until its end.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  std::string take();  ///< what was printed since the last take

 private:
  std::FILE* file_;
  int saved_stdout_;
  long taken_ = 0;
};

}  // namespace awbcal

#endif
