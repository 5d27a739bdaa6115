// The log-mask service. An object of its own: some phones have no such service.
#include <cerrno>

#include "phone/services/log.h"

extern "C" __attribute__((visibility("default"))) unsigned __qorlog_init_mask(const char* tag, unsigned mask,
                                                                              signed char* byte);

unsigned __qorlog_init_mask(const char* tag, unsigned mask, [[maybe_unused]] signed char* byte) {
  const unsigned answer = phone::answer_mask_question(tag) & mask;
  errno = phone::kForeignErrno;
  return answer;
}
