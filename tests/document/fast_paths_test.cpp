// The wide compositing paths against the per-pixel one, on rows that mix
// every case the wide paths tell apart: transparent, opaque and partly
// covered backdrops and sources, in blocks and alone, at every mode.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "document/blend.h"
#include "document/blend_rows.h"

namespace tavora {
namespace {

// Alpha drawn so that whole 4- and 8-pixel blocks of 0 or 255 are common.
uint32_t RandomPixel(std::mt19937& rng, int kind) {
  const uint32_t colour = rng() & 0xFFFFFFu;
  switch (kind) {
    case 0: return colour;
    case 1: return colour | 0xFF000000u;
    default: return colour | (rng() & 0xFF000000u);
  }
}

std::vector<uint32_t> RandomRow(std::mt19937& rng, int n) {
  std::vector<uint32_t> row(n);
  int kind = 0;
  for (int i = 0; i < n; ++i) {
    if (i % 4 == 0 || rng() % 7 == 0) kind = static_cast<int>(rng() % 3);
    row[i] = RandomPixel(rng, kind);
  }
  return row;
}

// The row laid by the plain per-pixel path, then by the four-pixel and the
// eight-pixel (AVX2, where the processor has it) loops: all must agree.
void ExpectWideEqualsPlain(const std::vector<uint32_t>& src, const std::vector<uint32_t>& backdrop,
                           uint32_t opacity, int mode, const char* what) {
  const int32_t n = static_cast<int32_t>(src.size());
  std::vector<uint32_t> plain = backdrop;
  AllowWideCompositingForTesting(false);
  LayRow(plain.data(), src.data(), n, opacity, mode);
  for (bool avx2 : {false, true}) {
    std::vector<uint32_t> wide = backdrop;
    AllowWideCompositingForTesting(true, avx2);
    LayRow(wide.data(), src.data(), n, opacity, mode);
    EXPECT_EQ(wide, plain) << what << ": mode " << mode << ", opacity " << opacity << (avx2 ? ", AVX2" : "");
  }
  AllowWideCompositingForTesting(true);
}

TEST(WideCompositing, EqualsThePerPixelPathForEveryModeAndOpacity) {
  std::mt19937 rng(11);
  const uint32_t opacities[] = {0, 1, 127, 128, 254, 255};
  for (int mode = -1; mode <= kBlendModeCount; ++mode) {
    for (uint32_t opacity : opacities) {
      for (int trial = 0; trial < 40; ++trial) {
        const int n = static_cast<int>(rng() % 40);
        ExpectWideEqualsPlain(RandomRow(rng, n), RandomRow(rng, n), opacity, mode, "random row");
      }
    }
  }
}

// Every backdrop and source channel pair over an opaque backdrop, where the
// arithmetic modes use their 16-bit formulas instead of the tables.
TEST(WideCompositing, OpaqueBackdropFormulasMatchTheTablesOnEveryChannelPair) {
  std::vector<uint32_t> src(256 * 256), base(256 * 256);
  for (uint32_t b = 0; b < 256; ++b)
    for (uint32_t s = 0; s < 256; ++s) {
      base[b * 256 + s] = 0xFF000000u | b << 16 | (255 - b) << 8 | b;
      src[b * 256 + s] = (s == 0 ? 0x80000000u : 0xFF000000u) | s << 16 | s << 8 | (255 - s);
    }
  for (int mode = 0; mode < kBlendModeCount; ++mode) ExpectWideEqualsPlain(src, base, 255, mode, "channel pairs");
}

}  // namespace
}  // namespace tavora
