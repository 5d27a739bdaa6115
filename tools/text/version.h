// Which build of the tool this is.
#ifndef TEXT_VERSION_H
#define TEXT_VERSION_H

#include <string>

namespace awbcal {

/// "0.1.0 (1a2b3c4d5e6f)"; without a commit when it was not built from a checkout.
std::string version_text();

}  // namespace awbcal

#endif
