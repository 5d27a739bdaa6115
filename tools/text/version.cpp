#include "text/version.h"

#include <awbcal_version.h>

namespace awbcal {

std::string version_text() {
  const std::string commit = AWBCAL_COMMIT;
  return commit.empty() ? AWBCAL_VERSION : AWBCAL_VERSION " (" + commit + ")";
}

}  // namespace awbcal
