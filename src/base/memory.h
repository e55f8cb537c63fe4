#pragma once
// The only way Tavora allocates raw memory. None of these return null: when
// memory runs out the user is told "Out of memory." and the process ends with
// exit code 3. No header is added, so blocks are released with std::free.
#include <cstddef>

namespace tavora {

inline constexpr int kOutOfMemoryExitCode = 3;

// Uninitialised block; a size of 0 is treated as 1.
[[nodiscard]] void* CheckedAlloc(std::size_t size);
// Zero-filled block of count x size; a count or size of 0 is treated as 1.
[[nodiscard]] void* CheckedAllocZeroed(std::size_t count, std::size_t size);
// Grows or shrinks a block, keeping its contents; a size of 0 is treated as 1.
[[nodiscard]] void* CheckedRealloc(void* block, std::size_t size);

struct FreeDeleter {
  void operator()(void* block) const noexcept;
};

// Routes failed operator new through the same message and exit.
void InstallMemoryGuards();

// Shows "Out of memory." (caption "Tavora") and ends the process with code 3,
// without clean-up: nothing is known to be safe to touch any more.
[[noreturn]] void FailOutOfMemory();

}  // namespace tavora
