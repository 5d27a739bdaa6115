// Do "malloc" faults strike the library's allocations and no other ones?
// Guards against sweeps over failed allocations that kill the test program, or that fail nothing at all.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "phone/virtual_phone.h"

extern "C" void* stand_in_allocate(bool cleared);

TEST(VirtualPhoneMalloc, FailsForTheLibraryAlone) {
  char name[] = "/tmp/virtual_phone_malloc_XXXXXX";
  const std::filesystem::path dir = mkdtemp(name);
  {
    auto phone = phone::VirtualPhone::create(dir / "phone");
    phone.add_fault({.call = "malloc", .nth = 2, .from_then_on = true});
    phone.add_fault({.call = "*"});  // means file calls: it must not count as an allocation's fault
    void* const first = stand_in_allocate(false);
    EXPECT_NE(first, nullptr);
    for (const bool cleared : {false, true}) {
      errno = 0;
      EXPECT_EQ(stand_in_allocate(cleared), nullptr);
      EXPECT_EQ(errno, ENOMEM);
    }
    void* volatile own = std::malloc(16);
    EXPECT_NE(own, nullptr);
    EXPECT_EQ(phone.struck_faults(), 2u);
    std::free(own);
    std::free(first);
  }
  void* const after = stand_in_allocate(true);
  EXPECT_NE(after, nullptr);
  std::free(after);
  std::filesystem::remove_all(dir);
}
