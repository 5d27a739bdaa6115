// Names of before, until every verb says Phone.
#ifndef INSPECT_INPUT_H
#define INSPECT_INPUT_H

#include "inspect/open_phone.h"

namespace awbcal {

using Input = Phone;
using InputFile = PhoneFile;
using InputKind = Layout;

inline Phone open_input(const InputOptions& options) {
  return open_phone_of(options);
}

}  // namespace awbcal

#endif
