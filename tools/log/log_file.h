// The text of a log, out of a file, an archive (a bug report is a zip) or standard input, a piece at a time.
#ifndef LOG_LOG_FILE_H
#define LOG_LOG_FILE_H

#include <span>
#include <string>
#include <vector>

#include "log/log_reader.h"

namespace awbcal {

/// What was read of an input, and what could not be.
struct LogInput {
  std::string name;                       ///< as it was given
  std::vector<std::string> files = {};    ///< of an archive: those that were read
  std::vector<std::string> unknown = {};  ///< why the rest was not; a line each
};

/// Feeds the reader with the file, with all texts of an archive, or with standard input for "-". Throws InputError
/// for what cannot be opened at all; damage further on ends the log and is told.
LogInput read_log(const std::string& path, LogReader& reader);

/// The same of bytes in memory.
LogInput read_log_bytes(const std::string& name, std::span<const uint8_t> bytes, LogReader& reader);

}  // namespace awbcal

#endif
