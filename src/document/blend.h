#pragma once
// Blend modes and the straight-alpha arithmetic shared by compositing,
// painting, selections, effects and filters.
#include <cstdint>
#include <string_view>

namespace tavora {

enum BlendMode : int32_t {
  kBlendNormal = 0,
  kBlendMultiply,
  kBlendScreen,
  kBlendOverlay,
  kBlendDarken,
  kBlendLighten,
  kBlendDifference,
  kBlendSoftLight,
  kBlendHardLight,
  kBlendColorDodge,
  kBlendColorBurn,
  kBlendExclusion,
  kBlendLinearDodge,
  kBlendLinearBurn,
};
inline constexpr int kBlendModeCount = 14;

// The name shown for a mode; an index out of range is shown as "Normal".
std::u16string_view BlendModeName(int32_t mode);

// a x b / 255, exactly rounded.
inline uint32_t Mul(uint32_t a, uint32_t b) { return ((a * b + 128) * 257) >> 16; }
// 2 x a x b / 255, exactly rounded.
inline uint32_t Mul2(uint32_t a, uint32_t b) { return (a * b * 514 + 32896) >> 16; }

// One channel of mode applied to backdrop b and source s; modes above 13
// behave as Normal.
uint8_t BlendChannel(int32_t mode, uint8_t b, uint8_t s);

// The 256 x 256 results of one mode, indexed [b * 256 + s]; built once.
const uint8_t* BlendTable(int32_t mode);

// ceil(2^32 / d): n / d == (n x kReciprocal[d]) >> 32 exactly for every
// n < 2^24 and d in 1..255, which covers the sums Over divides.
inline constexpr struct ReciprocalTable {
  uint64_t value[256] = {};
  constexpr ReciprocalTable() {
    for (uint64_t d = 1; d < 256; ++d) value[d] = ((uint64_t{1} << 32) + d - 1) / d;
  }
} kReciprocal;

inline uint32_t DivideSmall(uint32_t n, uint32_t d) {
  return static_cast<uint32_t>((n * kReciprocal.value[d]) >> 32);
}

// Lays straight-alpha source s on destination d (both 0xAARRGGBB).
inline uint32_t Over(uint32_t d, uint32_t s) {
  const uint32_t as = s >> 24;
  if (as == 255) return s;
  if (as == 0) return d;
  const uint32_t ad = d >> 24;
  if (ad == 255) {
    const uint32_t inv = 255 - as;
    uint32_t out = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) {
      const uint32_t c = (((s >> shift) & 255) * as + ((d >> shift) & 255) * inv + 128) * 257 >> 16;
      out |= c << shift;
    }
    return out;
  }
  if (ad == 0) return s;
  const uint32_t ab = Mul(255 - as, ad);
  const uint32_t alpha = as + ab;
  uint32_t out = alpha << 24;
  for (int shift = 0; shift < 24; shift += 8) {
    const uint32_t c = DivideSmall(((s >> shift) & 255) * as + ((d >> shift) & 255) * ab, alpha);
    out |= c << shift;
  }
  return out;
}

}  // namespace tavora
