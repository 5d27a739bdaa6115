// Every line that the library can log, and what a line of a log says by it.
//
// The table is made from the library's sources by script/record-log-lines. Who needs a certain line names it by its
// whole text, in library_line(): where the library says it otherwise by now, that does not compile.
#ifndef LOG_LIBRARY_LINES_H
#define LOG_LIBRARY_LINES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace awbcal {

struct LibraryLine {
  std::string_view tag;
  char priority;  ///< 'D', 'I' or 'E'
  std::string_view format;
};

inline constexpr LibraryLine kLibraryLines[] = {
#define X(tag, priority, format) {tag, priority, format},
#include "log/library_lines.inc"
#undef X
};
inline constexpr size_t kLibraryLineCount = std::size(kLibraryLines);

/// The format itself, of a line that the library has.
consteval std::string_view library_line(std::string_view format) {
  for (const LibraryLine& line : kLibraryLines) {
    if (line.format == format) return line.format;
  }
  throw "no such line: the library logs something else by now";
}

/// The four tags begin with this.
inline constexpr std::string_view kCalibrationTag = "camera_calibration";
bool is_library_tag(std::string_view tag);

/// A line of a log by the library's format of it, with the arguments that it was printed with.
class LineMatch {
 public:
  static constexpr size_t kMostValues = 13;

  const LibraryLine& line() const { return kLibraryLines[index_]; }
  size_t index() const { return index_; }  ///< in the table; of lines with the same text, the first

  /// The text of argument `i`, from 0; empty: there is none.
  std::string_view text(size_t i) const { return i < count_ ? values_[i] : std::string_view(); }
  int64_t number(size_t i) const;  ///< %d: cut to what fits
  uint64_t hex(size_t i) const;    ///< %x
  double real(size_t i) const;     ///< %f

 private:
  friend std::optional<LineMatch> match_line(std::string_view, char, std::string_view);
  friend bool scan(std::string_view, std::string_view, LineMatch&);

  size_t index_ = 0;
  size_t count_ = 0;
  std::array<std::string_view, kMostValues> values_{};
};

/// Which line of the library this is. `text` is one line of a message. Nothing: none.
std::optional<LineMatch> match_line(std::string_view tag, char priority, std::string_view text);

}  // namespace awbcal

#endif
