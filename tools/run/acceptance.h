// Which of the library's corrections and result checks would take a record: asked of the library itself, on a
// phone that has this record and no other.
#ifndef RUN_ACCEPTANCE_H
#define RUN_ACCEPTANCE_H

#include <string>
#include <vector>

#include "run/readers.h"
#include "run/scratch_phone.h"

namespace awbcal {

struct Answer {
  const char* function;
  bool accepts;
};

class AcceptanceTrial {
 public:
  /// A module that `modules` does not know is taken to be the record's own.
  std::vector<Answer> ask(const Input& input, const FoundRecord& record, const Modules& modules);

 private:
  void place(const Input& input, const FoundRecord& record);
  bool accepts(const Reader& reader);

  ScratchPhone scratch_;
};

}  // namespace awbcal

#endif
