#include <gtest/gtest.h>

#include "base/memory.h"

#if defined(__SANITIZE_ADDRESS__)
// The out-of-memory tests ask for impossible sizes: the sanitizer must hand
// back null as the system would, instead of ending the run itself.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
#endif

int main(int argc, char** argv) {
  tavora::InstallMemoryGuards();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
