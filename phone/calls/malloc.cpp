// Lets "malloc" fail for the library under test, and for nobody else in the process.
#include <link.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "phone/calls/faults.h"

// Found without dlsym(), which may itself ask for memory: the sanitizer's allocator if there is one, else the
// C library's.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
__attribute__((weak)) void* __interceptor_malloc(size_t size);
__attribute__((weak)) void* __interceptor_calloc(size_t count, size_t size);
}

namespace phone {
namespace {

struct Caller {
  uintptr_t address;
  bool in_library;
};

int look_in_object(dl_phdr_info* object, size_t, void* argument) {
  auto* caller = static_cast<Caller*>(argument);
  if (std::strstr(object->dlpi_name, "libawb_calibration.so") == nullptr) return 0;
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& part = object->dlpi_phdr[i];
    const uintptr_t start = object->dlpi_addr + part.p_vaddr;
    if (part.p_type == PT_LOAD && caller->address >= start && caller->address < start + part.p_memsz) {
      caller->in_library = true;
    }
  }
  return 1;
}

bool allocation_fails(void* return_address) {
  if (!__atomic_load_n(&any_fault_armed, __ATOMIC_ACQUIRE)) return false;
  Caller caller{reinterpret_cast<uintptr_t>(return_address), false};
  dl_iterate_phdr(look_in_object, &caller);
  if (!caller.in_library || effect_on_service_call("malloc", "").error == 0) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace
}  // namespace phone

extern "C" __attribute__((visibility("default"))) void* malloc(size_t size) {
  if (phone::allocation_fails(__builtin_return_address(0))) return nullptr;
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

extern "C" __attribute__((visibility("default"))) void* calloc(size_t count, size_t size) {
  if (phone::allocation_fails(__builtin_return_address(0))) return nullptr;
  return __interceptor_calloc != nullptr ? __interceptor_calloc(count, size) : __libc_calloc(count, size);
}
