// Finds what the library did in the lines of its log, one process after the other, with lines of others between
// them and lines lost: what is certain is told, what is not is left open.
#ifndef LOG_RECOGNISER_H
#define LOG_RECOGNISER_H

#include <map>
#include <utility>
#include <vector>

#include "log/act.h"
#include "log/library_lines.h"
#include "log/log_reader.h"

namespace awbcal {

/// More than this is no log of a phone: the rest is counted and not told.
inline constexpr size_t kMostActs = 20000;
inline constexpr size_t kMostProcesses = 2000;

/// A process that logged, and how much of it.
struct LogProcess {
  uint32_t section = 0;
  int64_t pid = 0;
  uint64_t lines = 0;
  uint64_t errors = 0;
  uint64_t unknown = 0;  ///< under the library's tags, but none of its lines
  uint64_t dropped = 0;  ///< that the phone's log lost

  /// Its log is masked, or its other lines are lost.
  bool has_only_errors() const { return lines > 0 && errors == lines; }
};

class Recogniser : public LogSink {
 public:
  void take(const LogEntry& entry) override;
  void take_dropped(uint32_t section, int64_t pid, uint64_t lines) override;

  /// After the last line: the acts in the order of their first lines.
  std::vector<Act> finish();

  const std::vector<LogProcess>& processes() const { return processes_; }
  uint64_t untold() const { return untold_; }  ///< lines that came when there was no more room

 private:
  /// What a process is at.
  struct State {
    std::optional<calib::Camera> camera;
    bool has_just_detected = false;
    std::array<std::optional<uint32_t>, 4> fresh_module = {};  ///< read by the call that comes now
    size_t last_fuse_word = 0;
    std::array<std::optional<uint32_t>, 4> module = {};  ///< of the call that is under way
    uint64_t call = 0;
    std::optional<size_t> act;
    std::optional<size_t> run;
    std::optional<size_t> last;
  };

  std::optional<uint32_t> process_of(uint32_t section, int64_t pid);
  bool take_context(State& state, const LineMatch& match);
  void take_fuse_word(State& state, size_t i, uint32_t word);
  void take_storage(const State& state, const LogEntry& entry);
  Act* open_act(State& state, const LogEntry& entry, uint32_t process, const Deeds& wanted, int order,
                bool repeats);
  Act* open_run(State& state, const LogEntry& entry, uint32_t process, const LineMatch& match);
  Act* new_act(State& state, const LogEntry& entry, uint32_t process, const Deeds& candidates);
  void keep_camera(State& state, const Act& act) const;

  std::vector<LogProcess> processes_;
  std::vector<State> states_;
  std::map<std::pair<uint32_t, int64_t>, uint32_t> by_pid_;
  std::vector<Act> acts_;
  uint64_t untold_ = 0;
  uint64_t next_call_ = 0;
};

}  // namespace awbcal

#endif
