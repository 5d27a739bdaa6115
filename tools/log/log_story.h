// What a log tells, act by act: what each correction, check, writer and calibration run came to, and why.
#ifndef LOG_LOG_STORY_H
#define LOG_LOG_STORY_H

#include <span>
#include <string>
#include <vector>

#include "inspect/phone.h"
#include "inspect/verdict.h"
#include "log/act.h"
#include "log/log_file.h"
#include "log/recogniser.h"

namespace awbcal {

enum class ActResult {
  done,        ///< corrected, handed out, passed, stored
  refused,     ///< by a test of the record; of a check or a run: failed; of a writer: not stored
  unfinished,  ///< a run without a judgement
  not_known,   ///< the lines that would tell are not there
};

struct ActStory {
  Act act;
  ActResult result = ActResult::not_known;
  int test = 0;  ///< that refused the record, from 1; 0: none, or not known
  std::string sentence = {};
};

struct LogStory {
  LogInput input;
  uint64_t lines = 0;
  uint64_t cut_lines = 0;
  uint64_t untold = 0;  ///< lines of the library that came when there was no more room
  bool is_bug_report = false;
  std::map<std::string, std::string> properties = {};  ///< of the cameras, where a bug report has them
  std::vector<std::string> sections = {};              ///< by LogProcess::section
  std::vector<LogProcess> processes = {};
  std::vector<ActStory> acts = {};

  /// False: more was logged than could be read or told.
  bool is_complete() const { return input.unknown.empty() && untold == 0; }
  uint64_t library_lines() const;
  Modules modules() const;
};

/// Whether the record that the log shows is none: zeros, or ones.
bool is_blank_act(const Act& act);

/// Throws InputError as read_log() does.
LogStory tell_log(const std::string& path);
LogStory tell_log_bytes(const std::string& name, std::span<const uint8_t> bytes);

}  // namespace awbcal

#endif
