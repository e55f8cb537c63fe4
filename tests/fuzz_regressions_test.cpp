// Every input that once made a reader fail under the fuzzer stays a test.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz_targets.h"

namespace tavora {
namespace {

TEST(FuzzRegressions, EveryKeptInputPassesItsTarget) {
  const std::filesystem::path root = std::filesystem::path(TAVORA_SOURCE_DIR) / "fuzz";
  int inputs = 0;
  for (const fuzz::Target& target : fuzz::kTargets)
    for (const char* kind : {"regressions", "corpus"}) {
      const auto dir = root / kind / target.name;
      if (!std::filesystem::exists(dir)) continue;
      for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        EXPECT_TRUE(target.run(bytes.data(), bytes.size())) << entry.path();
        ++inputs;
      }
    }
  EXPECT_GE(inputs, 8);  // the seeds at least
}

}  // namespace
}  // namespace tavora
