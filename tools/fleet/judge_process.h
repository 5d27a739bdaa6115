// A process of its own that judges units with the library's acceptance: the library keeps its state for a process,
// one phone at a time, and what it does with the records of a stranger must not end the run.
#ifndef FLEET_JUDGE_PROCESS_H
#define FLEET_JUDGE_PROCESS_H

#include <sys/types.h>

#include "fleet/unit.h"

namespace awbcal {

class JudgeProcess {
 public:
  /// The process is begun here, and again for the unit after one that ended it.
  explicit JudgeProcess(const UnitQuestion& question);
  JudgeProcess(const JudgeProcess&) = delete;
  JudgeProcess& operator=(const JudgeProcess&) = delete;
  ~JudgeProcess();

  /// A unit that ends the process is a broken one.
  Unit judged(const std::string& path);

 private:
  void begin();
  int end();  ///< the process's status

  const UnitQuestion& question_;
  pid_t process_ = -1;
  int socket_ = -1;
};

}  // namespace awbcal

#endif
