#include "base/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "base/fatal_message.h"

namespace tavora {
namespace {

// Inside a death test the message goes to standard error instead of a
// message box, so the expectation can read it.
void PrintMessage(std::u16string_view text) {
  for (char16_t c : text) std::fputc(static_cast<char>(c), stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

TEST(CheckedAllocation, ZeroSizesGiveUsableBlocks) {
  void* a = CheckedAlloc(0);
  void* b = CheckedAllocZeroed(0, 16);
  void* c = CheckedAllocZeroed(16, 0);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  ASSERT_NE(c, nullptr);
  static_cast<char*>(a)[0] = 1;  // at least one byte each
  static_cast<char*>(b)[0] = 1;
  static_cast<char*>(c)[0] = 1;
  void* d = CheckedRealloc(a, 0);
  ASSERT_NE(d, nullptr);
  std::free(b);
  std::free(c);
  std::free(d);
}

TEST(CheckedAllocation, ZeroedBlocksAreZeroAndReallocKeepsContents) {
  auto* z = static_cast<uint8_t*>(CheckedAllocZeroed(4096, 3));
  for (int i = 0; i < 4096 * 3; ++i) ASSERT_EQ(z[i], 0) << i;
  for (int i = 0; i < 100; ++i) z[i] = static_cast<uint8_t>(i);
  z = static_cast<uint8_t*>(CheckedRealloc(z, 1 << 20));
  for (int i = 0; i < 100; ++i) ASSERT_EQ(z[i], i);
  z = static_cast<uint8_t*>(CheckedRealloc(z, 10));
  for (int i = 0; i < 10; ++i) ASSERT_EQ(z[i], i);
  std::free(z);
}

using CheckedAllocationDeathTest = testing::Test;

TEST_F(CheckedAllocationDeathTest, ExhaustionEndsWithCodeThreeAndTheMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::size_t huge = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_EXIT(
      {
        SetFatalMessageSink(&PrintMessage);
        void* p = CheckedAlloc(huge);
        std::printf("%p", p);
      },
      testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.");
  // A count x size that overflows must not wrap to a small block.
  EXPECT_EXIT(
      {
        SetFatalMessageSink(&PrintMessage);
        void* p = CheckedAllocZeroed(std::numeric_limits<std::size_t>::max() / 4, 8);
        std::printf("%p", p);
      },
      testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.");
  EXPECT_EXIT(
      {
        SetFatalMessageSink(&PrintMessage);
        void* p = CheckedRealloc(CheckedAlloc(16), huge);
        std::printf("%p", p);
      },
      testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.");
}

TEST_F(CheckedAllocationDeathTest, FailedNewTakesTheSamePath) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // The handler the program installs, called as operator new calls it when
  // the heap is exhausted.
  std::new_handler handler = std::get_new_handler();
  ASSERT_NE(handler, nullptr);
  EXPECT_EXIT(
      {
        SetFatalMessageSink(&PrintMessage);
        handler();
      },
      testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.");
#if !defined(__SANITIZE_ADDRESS__)
  // Without the sanitizer's own allocator, a real failing new goes there too.
  EXPECT_EXIT(
      {
        SetFatalMessageSink(&PrintMessage);
        volatile std::size_t n = std::numeric_limits<std::size_t>::max() / 8;
        char* p = new char[n];
        std::printf("%p", static_cast<void*>(p));
      },
      testing::ExitedWithCode(kOutOfMemoryExitCode), "Out of memory\\.");
#endif
}

}  // namespace
}  // namespace tavora
