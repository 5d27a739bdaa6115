// Allocates, under the library's file name: "malloc" faults are meant for the library alone.
#include <cstdlib>

extern "C" __attribute__((visibility("default"))) void* stand_in_allocate(bool cleared);

extern "C" void* stand_in_allocate(bool cleared) {
  void* volatile memory = cleared ? std::calloc(4, 4) : std::malloc(16);
  return memory;
}
