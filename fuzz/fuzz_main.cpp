// One libFuzzer program per target, chosen at build time by TAVORA_FUZZ_TARGET.
#include <cstdlib>

#include "fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!tavora::fuzz::TAVORA_FUZZ_TARGET(data, size)) std::abort();
  return 0;
}
