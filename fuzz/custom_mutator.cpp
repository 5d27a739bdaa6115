#include "fuzz/custom_mutator.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t most);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed);

size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed) {
  const size_t mutated = LLVMFuzzerMutate(data, size, most);
  // One in sixteen stays as it is.
  if (mutated >= 2 && seed % 16 != 0) fuzz::make_fast(data, mutated);
  return mutated;
}
