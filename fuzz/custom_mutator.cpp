#include "fuzz/custom_mutator.h"

namespace {

constexpr unsigned kSlow = 16;  ///< one in so many inputs stays as it is

}  // namespace

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t most);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed);

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed) {
  const size_t mutated = LLVMFuzzerMutate(data, size, most);
  if (mutated >= 2 && seed % kSlow != 0) fuzz::make_fast(data, mutated);
  return mutated;
}
