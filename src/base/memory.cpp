#include "base/memory.h"

#include <cstdlib>
#include <new>

#include "base/fatal_message.h"

namespace tavora {

void* CheckedAlloc(std::size_t size) {
  void* block = std::malloc(size == 0 ? 1 : size);
  if (!block) FailOutOfMemory();
  return block;
}

void* CheckedAllocZeroed(std::size_t count, std::size_t size) {
  // calloc itself refuses a count x size that overflows.
  void* block = std::calloc(count == 0 ? 1 : count, size == 0 ? 1 : size);
  if (!block) FailOutOfMemory();
  return block;
}

void* CheckedRealloc(void* block, std::size_t size) {
  void* grown = std::realloc(block, size == 0 ? 1 : size);
  if (!grown) FailOutOfMemory();
  return grown;
}

void FreeDeleter::operator()(void* block) const noexcept { std::free(block); }

void FailOutOfMemory() {
  ShowFatalMessage(u"Out of memory.", u"Tavora");
  std::_Exit(kOutOfMemoryExitCode);
}

void InstallMemoryGuards() { std::set_new_handler(&FailOutOfMemory); }

}  // namespace tavora
