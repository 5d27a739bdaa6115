// A log as text, whatever it came in: logcat's forms brief, time, threadtime and long, mixed with lines of the
// kernel or of a station, or a bug report with its sections. Bytes of a stranger: nothing in them costs memory.
#ifndef LOG_LOG_READER_H
#define LOG_LOG_READER_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace awbcal {

/// One line of a message that was logged under one of the library's tags. The views are valid in the call alone.
struct LogEntry {
  uint64_t line;     ///< of the text, from 1
  uint32_t section;  ///< of a bug report: LogReader::sections()
  int64_t pid;
  std::string_view time;  ///< as it stands there; empty: the form has none
  char priority;
  std::string_view tag;
  std::string_view text;
};

class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void take(const LogEntry& entry) = 0;
  /// The phone's log lost this many lines of a process before anyone read them.
  virtual void take_dropped(uint32_t section, int64_t pid, uint64_t lines) = 0;
};

class LogReader {
 public:
  explicit LogReader(LogSink& sink) : sink_(sink) {}

  /// In pieces of any size.
  void feed(std::string_view bytes);
  /// The end of a file; another may follow, as a section of its own.
  void finish_file();
  void begin_file(std::string_view name);

  uint64_t lines() const { return line_; }
  uint64_t cut_lines() const { return cut_lines_; }  ///< longer than any log has, and only begun
  bool is_bug_report() const { return is_bug_report_; }
  /// By their numbers; the first has no name.
  const std::vector<std::string>& sections() const { return sections_; }
  /// The properties that say something of cameras, as getprop printed them.
  const std::map<std::string, std::string>& properties() const { return properties_; }

 private:
  struct Header {
    char priority;
    std::string_view tag;
    int64_t pid;
    std::string_view text;
    std::string_view time;
  };

  void end_line();
  void take_line(std::string_view line);
  bool take_section(std::string_view line);
  bool take_property(std::string_view line);
  bool take_long_header(std::string_view line);
  void take_entry(const Header& header);
  void begin_section(std::string_view name);
  static bool parse_header(std::string_view line, std::string_view tag, size_t at, Header& header);

  LogSink& sink_;
  std::string pending_;  ///< a line whose end has not come
  bool is_too_long_ = false;
  bool is_utf16_ = false;
  uint64_t file_bytes_ = 0;
  uint64_t line_ = 0;
  uint64_t cut_lines_ = 0;
  bool is_bug_report_ = false;
  bool is_in_properties_ = false;
  std::vector<std::string> sections_ = {""};
  std::map<std::string, std::string> properties_;

  // Of the form "long": the message under its header.
  bool is_in_message_ = false;
  Header message_{};
  std::string message_tag_;
  std::string message_time_;
};

}  // namespace awbcal

#endif
