#include "base/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

#include "base/fatal_message.h"

namespace tavora {
namespace {

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

// Inside a death test the message goes to standard error instead of a
// message box, so the expectation can read it.
void PrintMessage(std::u16string_view text) {
  for (char16_t c : text) std::fputc(static_cast<char>(c), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

TEST(CheckedAllocation, ZeroSizesGiveUsableBlocksAndContentsSurvive) {
  // A size of 0 still gives at least one writable byte (realloc to 0 may
  // otherwise free the block and return null).
  for (void* p : {CheckedAlloc(0), CheckedAllocZeroed(0, 16), CheckedAllocZeroed(16, 0),
                  CheckedRealloc(CheckedAlloc(8), 0)}) {
    ASSERT_NE(p, nullptr);
    static_cast<char*>(p)[0] = 1;
    std::free(p);
  }
  auto* z = static_cast<uint8_t*>(CheckedAllocZeroed(4096, 3));
  for (int i = 0; i < 4096 * 3; ++i) ASSERT_EQ(z[i], 0) << i;
  for (int i = 0; i < 100; ++i) z[i] = static_cast<uint8_t>(i);
  for (std::size_t size : {std::size_t{1} << 20, std::size_t{10}}) {
    z = static_cast<uint8_t*>(CheckedRealloc(z, size));
    for (int i = 0; i < 10; ++i) ASSERT_EQ(z[i], i) << "after realloc to " << size;
  }
  std::free(z);
}

using CheckedAllocationDeathTest = testing::Test;

TEST_F(CheckedAllocationDeathTest, EveryExhaustionEndsWithCodeThreeAndTheMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ASSERT_NE(std::get_new_handler(), nullptr);
  struct Case {
    const char* what;
    void* (*allocate)();
  };
  const Case cases[] = {
      {"CheckedAlloc", [] { return CheckedAlloc(kMax / 2); }},
      // A count x size that overflows must not wrap to a small block (here 8 bytes).
      {"CheckedAllocZeroed overflowing", [] { return CheckedAllocZeroed(kMax / 8 + 2, 8); }},
      {"CheckedRealloc", [] { return CheckedRealloc(CheckedAlloc(16), kMax / 2); }},
      // The installed handler, called as operator new calls it when the heap is exhausted.
      {"new-handler", []() -> void* { std::get_new_handler()(); return nullptr; }},
#if !defined(__SANITIZE_ADDRESS__)
      // Without the sanitizer's own allocator, a real failing new goes there too.
      {"operator new", []() -> void* {
         volatile std::size_t n = kMax / 8;
         return new char[n];
       }},
#endif
  };
  for (const Case& c : cases) {
    EXPECT_EXIT(
        {
          SetFatalMessageSink(&PrintMessage);
          std::printf("%p", c.allocate());
        },
        testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.")
        << c.what;
  }
}

}  // namespace
}  // namespace tavora
