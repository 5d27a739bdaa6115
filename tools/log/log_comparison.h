// A log beside a phone: are the module and the records that the log tells of the ones that are in the phone now?
#ifndef LOG_LOG_COMPARISON_H
#define LOG_LOG_COMPARISON_H

#include <string>
#include <vector>

#include "log/log_story.h"

namespace awbcal {

struct LogComparison {
  std::optional<calib::Camera> camera;
  const RecordSpec* spec;  ///< null: it is about the module
  bool is_same;
  std::string sentence;
};

/// Of every camera and kind, what the log told last.
std::vector<LogComparison> compare_with_phone(const LogStory& story, const Phone& phone);

}  // namespace awbcal

#endif
