#include "document/blend_rows.h"

#include <atomic>

#include "document/blend.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#define TAVORA_WIDE_COMPOSITE 1
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TAVORA_AVX2_COMPOSITE 1
#endif

namespace tavora {
namespace {

std::atomic<bool> g_wideAllowed{true};
std::atomic<bool> g_avx2Allowed{true};

inline uint32_t ScaleAlpha(uint32_t p, uint32_t opacity) {
  if (opacity == 255) return p;
  return (p & 0x00FFFFFFu) | (Mul(p >> 24, opacity) << 24);
}

inline uint32_t LayNormalPixel(uint32_t d, uint32_t s, uint32_t opacity) {
  if ((s >> 24) == 0) return d;
  const uint32_t p = ScaleAlpha(s, opacity);
  return p >> 24 ? Over(d, p) : d;
}

inline uint32_t LayBlendPixel(uint32_t r, uint32_t s, uint32_t opacity, const uint8_t* table) {
  uint32_t p = ScaleAlpha(s, opacity);
  const uint32_t a = p >> 24;
  if (a == 0) return r;
  const uint32_t ar = r >> 24;
  if (ar > 0) {
    // Mix the blended colour in by how much backdrop is there: over a
    // transparent area a blended layer shows its own colours.
    uint32_t mixed = a << 24;
    for (int shift = 0; shift < 24; shift += 8) {
      const uint32_t sc = (p >> shift) & 255;
      const uint32_t rc = (r >> shift) & 255;
      const uint32_t bc = table[rc * 256 + sc];
      mixed |= (((sc * (255 - ar) + bc * ar + 128) * 257) >> 16) << shift;
    }
    p = mixed;
  }
  return Over(r, p);
}

void LayRowPlain(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity, int32_t mode) {
  if (mode == kBlendNormal) {
    for (int32_t i = 0; i < n; ++i) out[i] = LayNormalPixel(out[i], src[i], opacity);
    return;
  }
  const uint8_t* table = BlendTable(mode);
  for (int32_t i = 0; i < n; ++i) out[i] = LayBlendPixel(out[i], src[i], opacity, table);
}

// The blended colour of one pixel over an opaque backdrop, from the mode's table.
inline uint32_t TableBlend(const uint8_t* table, uint32_t r, uint32_t s) {
  return uint32_t{table[(r & 255) * 256 + (s & 255)]} |
         uint32_t{table[((r >> 8) & 255) * 256 + ((s >> 8) & 255)]} << 8 |
         uint32_t{table[((r >> 16) & 255) * 256 + ((s >> 16) & 255)]} << 16;
}

// The modes whose formula is exact integer arithmetic on 16-bit lanes; the
// rest (Soft Light, the dodges and burns, Exclusion) use the mode's table.
inline bool HasWideFormula(int32_t mode) {
  switch (mode) {
    case kBlendMultiply: case kBlendScreen: case kBlendOverlay: case kBlendDarken:
    case kBlendLighten: case kBlendDifference: case kBlendHardLight:
    case kBlendLinearDodge: case kBlendLinearBurn:
      return true;
    default:
      return false;
  }
}

#if defined(TAVORA_WIDE_COMPOSITE)
namespace sse2 {
using V = __m128i;
constexpr int kLanes = 4;
inline V Load(const uint32_t* p) { return _mm_loadu_si128(reinterpret_cast<const V*>(p)); }
inline void Store(uint32_t* p, V v) { _mm_storeu_si128(reinterpret_cast<V*>(p), v); }
inline V Zero() { return _mm_setzero_si128(); }
inline V Set16(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
inline V Set32(uint32_t v) { return _mm_set1_epi32(static_cast<int>(v)); }
inline V Add16(V a, V b) { return _mm_add_epi16(a, b); }
inline V Sub16(V a, V b) { return _mm_sub_epi16(a, b); }
inline V SubSat16(V a, V b) { return _mm_subs_epu16(a, b); }
inline V MulLo16(V a, V b) { return _mm_mullo_epi16(a, b); }
inline V MulHi16(V a, V b) { return _mm_mulhi_epu16(a, b); }
inline V Min16(V a, V b) { return _mm_min_epi16(a, b); }
inline V Max16(V a, V b) { return _mm_max_epi16(a, b); }
inline V CmpGt16(V a, V b) { return _mm_cmpgt_epi16(a, b); }
inline V CmpEq32(V a, V b) { return _mm_cmpeq_epi32(a, b); }
inline V And(V a, V b) { return _mm_and_si128(a, b); }
inline V AndNot(V a, V b) { return _mm_andnot_si128(a, b); }
inline V Or(V a, V b) { return _mm_or_si128(a, b); }
inline V Alpha(V p) { return _mm_srli_epi32(p, 24); }
inline V AlphaUp(V a) { return _mm_slli_epi32(a, 24); }
inline V Dup16(V a) { return _mm_or_si128(a, _mm_slli_epi32(a, 16)); }
inline V Twice16(V a) { return _mm_slli_epi16(a, 1); }
inline V UnpackLo8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
inline V UnpackHi8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
inline V UnpackLo32(V a, V b) { return _mm_unpacklo_epi32(a, b); }
inline V UnpackHi32(V a, V b) { return _mm_unpackhi_epi32(a, b); }
inline V PackUs16(V a, V b) { return _mm_packus_epi16(a, b); }
inline bool AllEqual(V v, V value) { return _mm_movemask_epi8(_mm_cmpeq_epi32(v, value)) == 0xFFFF; }
#include "document/blend_rows_wide.inc"
}  // namespace sse2
#endif

#if defined(TAVORA_AVX2_COMPOSITE)
// The same loop eight pixels wide. Every operation stays within 128-bit
// lanes (the unpacks and the pack alike), so each half does what the
// four-pixel loop does.
#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif
namespace avx2 {
using V = __m256i;
constexpr int kLanes = 8;
inline V Load(const uint32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
inline void Store(uint32_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
inline V Zero() { return _mm256_setzero_si256(); }
inline V Set16(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
inline V Set32(uint32_t v) { return _mm256_set1_epi32(static_cast<int>(v)); }
inline V Add16(V a, V b) { return _mm256_add_epi16(a, b); }
inline V Sub16(V a, V b) { return _mm256_sub_epi16(a, b); }
inline V SubSat16(V a, V b) { return _mm256_subs_epu16(a, b); }
inline V MulLo16(V a, V b) { return _mm256_mullo_epi16(a, b); }
inline V MulHi16(V a, V b) { return _mm256_mulhi_epu16(a, b); }
inline V Min16(V a, V b) { return _mm256_min_epi16(a, b); }
inline V Max16(V a, V b) { return _mm256_max_epi16(a, b); }
inline V CmpGt16(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
inline V CmpEq32(V a, V b) { return _mm256_cmpeq_epi32(a, b); }
inline V And(V a, V b) { return _mm256_and_si256(a, b); }
inline V AndNot(V a, V b) { return _mm256_andnot_si256(a, b); }
inline V Or(V a, V b) { return _mm256_or_si256(a, b); }
inline V Alpha(V p) { return _mm256_srli_epi32(p, 24); }
inline V AlphaUp(V a) { return _mm256_slli_epi32(a, 24); }
inline V Dup16(V a) { return _mm256_or_si256(a, _mm256_slli_epi32(a, 16)); }
inline V Twice16(V a) { return _mm256_slli_epi16(a, 1); }
inline V UnpackLo8(V a, V b) { return _mm256_unpacklo_epi8(a, b); }
inline V UnpackHi8(V a, V b) { return _mm256_unpackhi_epi8(a, b); }
inline V UnpackLo32(V a, V b) { return _mm256_unpacklo_epi32(a, b); }
inline V UnpackHi32(V a, V b) { return _mm256_unpackhi_epi32(a, b); }
inline V PackUs16(V a, V b) { return _mm256_packus_epi16(a, b); }
inline bool AllEqual(V v, V value) { return _mm256_movemask_epi8(_mm256_cmpeq_epi32(v, value)) == -1; }
#include "document/blend_rows_wide.inc"
}  // namespace avx2
#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

bool UseAvx2() {
  static const bool supported = __builtin_cpu_supports("avx2");
  return supported;
}
#endif

}  // namespace

void LayRow(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity, int32_t mode) {
  if (mode < 0 || mode >= kBlendModeCount) mode = kBlendNormal;
#if defined(TAVORA_WIDE_COMPOSITE)
  if (g_wideAllowed.load(std::memory_order_relaxed)) {
#if defined(TAVORA_AVX2_COMPOSITE)
    if (g_avx2Allowed.load(std::memory_order_relaxed) && UseAvx2()) {
      avx2::LayRowWide(out, src, n, opacity, mode);
      return;
    }
#endif
    sse2::LayRowWide(out, src, n, opacity, mode);
    return;
  }
#endif
  LayRowPlain(out, src, n, opacity, mode);
}

void AllowWideCompositingForTesting(bool allowed, bool avx2) {
  g_wideAllowed.store(allowed);
  g_avx2Allowed.store(avx2);
}

}  // namespace tavora
