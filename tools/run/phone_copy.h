// A copy of what the tool was given, as a phone that the library can run on.
#ifndef RUN_PHONE_COPY_H
#define RUN_PHONE_COPY_H

#include "inspect/verdict.h"
#include "run/scratch_phone.h"

namespace awbcal {

/// Of a camera whose module is not known, the fuse ID that its first good record bears.
Modules assumed_modules(const Phone& phone, const Modules& known);

/// Only what the input has: a node or file that is absent there is absent in the copy. With `reboots`, or when the
/// input is a partition alone, the kernel reads the partition anew.
class PhoneCopy {
 public:
  PhoneCopy(const Phone& phone, const Modules& modules, bool reboots);

  phone::VirtualPhone& phone() { return copy_.phone(); }

 private:
  PhoneCopy(const Phone& phone, const Modules& modules, bool reboots, const Bytes& partition);

  ScratchPhone copy_;
};

}  // namespace awbcal

#endif
