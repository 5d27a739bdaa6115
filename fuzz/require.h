#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the program with a message where a condition does not hold.
inline void require(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "not so: %s\n", what);
  abort();
}

}  // namespace fuzz

#endif
