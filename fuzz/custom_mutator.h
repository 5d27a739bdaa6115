// For fuzzers that have slow inputs: of most that libFuzzer makes from others, a fast one is made.
#ifndef FUZZ_CUSTOM_MUTATOR_H
#define FUZZ_CUSTOM_MUTATOR_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

/// Each such fuzzer's own: takes out of an input of two bytes or more what makes it slow.
void make_fast(uint8_t* data, size_t size);

}  // namespace fuzz

#endif
