#include "document/blend_rows.h"

#include <atomic>

#include "document/blend.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#define TAVORA_WIDE_COMPOSITE 1
#endif

namespace tavora {
namespace {

std::atomic<bool> g_wideAllowed{true};

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

#if defined(TAVORA_WIDE_COMPOSITE)

// Over an opaque backdrop, Over is c = (s·a + d·(255 − a) + 128)·257 >> 16
// per channel with alpha 255, for every a from 0 to 255; and with an opaque
// backdrop the blended colour is mixed in whole (its weight ar is 255, and
// (x·255 + 128)·257 >> 16 is x). Both fit 16-bit lanes: the sum is at most
// 65153, and mulhi by 257 is the >> 16.
inline __m128i MixPair(__m128i d16, __m128i s16, __m128i a16) {
  const __m128i inv = _mm_sub_epi16(_mm_set1_epi16(255), a16);
  const __m128i sum = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(s16, a16), _mm_mullo_epi16(d16, inv)),
                                    _mm_set1_epi16(128));
  return _mm_mulhi_epu16(sum, _mm_set1_epi16(257));
}

// Four pixels of colour s with alphas a (0..255 in each 32-bit lane) over
// the opaque backdrop d.
inline __m128i OverOpaque4(__m128i d, __m128i s, __m128i a) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i aa = _mm_or_si128(a, _mm_slli_epi32(a, 16));
  const __m128i lo = MixPair(_mm_unpacklo_epi8(d, zero), _mm_unpacklo_epi8(s, zero), _mm_unpacklo_epi32(aa, aa));
  const __m128i hi = MixPair(_mm_unpackhi_epi8(d, zero), _mm_unpackhi_epi8(s, zero), _mm_unpackhi_epi32(aa, aa));
  return _mm_or_si128(_mm_packus_epi16(lo, hi), _mm_set1_epi32(static_cast<int>(0xFF000000u)));
}

// Mul(a, opacity) in each 32-bit lane (a and opacity at most 255).
inline __m128i ScaleAlpha4(__m128i a, uint32_t opacity) {
  if (opacity == 255) return a;
  const __m128i product = _mm_add_epi16(_mm_mullo_epi16(a, _mm_set1_epi32(static_cast<int>(opacity))),
                                        _mm_set1_epi32(128));
  return _mm_mulhi_epu16(product, _mm_set1_epi32(257));
}

inline bool AllEqual(__m128i v, __m128i value) {
  return _mm_movemask_epi8(_mm_cmpeq_epi32(v, value)) == 0xFFFF;
}

inline __m128i Select(__m128i mask, __m128i yes, __m128i no) {
  return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

// Mul and Mul2 of blend.h on 16-bit lanes; Mul2 needs 2·x·y + 128 to fit,
// which holds where it is used (one factor at most 127).
inline __m128i Mul16(__m128i x, __m128i y) {
  return _mm_mulhi_epu16(_mm_add_epi16(_mm_mullo_epi16(x, y), _mm_set1_epi16(128)), _mm_set1_epi16(257));
}
inline __m128i Mul2Small16(__m128i x, __m128i y) {
  const __m128i twice = _mm_slli_epi16(_mm_mullo_epi16(x, y), 1);
  return _mm_mulhi_epu16(_mm_add_epi16(twice, _mm_set1_epi16(128)), _mm_set1_epi16(257));
}

// Overlay and Hard Light: Mul2(b, s) below the middle of `by`, else the
// screen-like 255 − Mul2(255 − b, 255 − s).
inline __m128i SplitLight16(__m128i b, __m128i s, __m128i by) {
  const __m128i full = _mm_set1_epi16(255);
  const __m128i high = _mm_cmpgt_epi16(by, _mm_set1_epi16(127));
  const __m128i x = Select(high, _mm_sub_epi16(full, b), b);
  const __m128i y = Select(high, _mm_sub_epi16(full, s), s);
  const __m128i m = Mul2Small16(x, y);
  return Select(high, _mm_sub_epi16(full, m), m);
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

inline __m128i BlendChannels16(int32_t mode, __m128i b, __m128i s) {
  switch (mode) {
    case kBlendMultiply: return Mul16(b, s);
    case kBlendScreen: return _mm_sub_epi16(_mm_add_epi16(b, s), Mul16(b, s));
    case kBlendOverlay: return SplitLight16(b, s, b);
    case kBlendDarken: return _mm_min_epi16(b, s);
    case kBlendLighten: return _mm_max_epi16(b, s);
    case kBlendDifference: return _mm_sub_epi16(_mm_max_epi16(b, s), _mm_min_epi16(b, s));
    case kBlendHardLight: return SplitLight16(b, s, s);
    case kBlendLinearDodge: return _mm_min_epi16(_mm_add_epi16(b, s), _mm_set1_epi16(255));
    default: return _mm_subs_epu16(_mm_add_epi16(b, s), _mm_set1_epi16(255));  // Linear Burn
  }
}

// Four pixels of mode laid with alphas a on the opaque backdrop d.
inline __m128i BlendOverOpaque4(int32_t mode, __m128i d, __m128i s, __m128i a) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i aa = _mm_or_si128(a, _mm_slli_epi32(a, 16));
  const __m128i dlo = _mm_unpacklo_epi8(d, zero), dhi = _mm_unpackhi_epi8(d, zero);
  const __m128i lo = MixPair(dlo, BlendChannels16(mode, dlo, _mm_unpacklo_epi8(s, zero)), _mm_unpacklo_epi32(aa, aa));
  const __m128i hi = MixPair(dhi, BlendChannels16(mode, dhi, _mm_unpackhi_epi8(s, zero)), _mm_unpackhi_epi32(aa, aa));
  return _mm_or_si128(_mm_packus_epi16(lo, hi), _mm_set1_epi32(static_cast<int>(0xFF000000u)));
}

inline __m128i TableOverOpaque4(const uint8_t* table, const uint32_t* src, const uint32_t* out, __m128i d,
                                __m128i a) {
  alignas(16) uint32_t blended[4];
  for (int k = 0; k < 4; ++k) {
    const uint32_t sp = src[k], rp = out[k];
    blended[k] = uint32_t{table[(rp & 255) * 256 + (sp & 255)]} |
                 uint32_t{table[((rp >> 8) & 255) * 256 + ((sp >> 8) & 255)]} << 8 |
                 uint32_t{table[((rp >> 16) & 255) * 256 + ((sp >> 16) & 255)]} << 16;
  }
  return OverOpaque4(d, _mm_load_si128(reinterpret_cast<const __m128i*>(blended)), a);
}

void LayRowWide(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity, int32_t mode) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i opaque = _mm_set1_epi32(255);
  const __m128i colourBits = _mm_set1_epi32(0x00FFFFFF);
  const bool normal = mode == kBlendNormal;
  const bool formula = HasWideFormula(mode);
  const uint8_t* table = normal ? nullptr : BlendTable(mode);
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128i s = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i sa = _mm_srli_epi32(s, 24);
    if (AllEqual(sa, zero)) continue;  // nothing to lay
    const __m128i a = ScaleAlpha4(sa, opacity);
    __m128i* o = reinterpret_cast<__m128i*>(out + i);
    const __m128i d = _mm_loadu_si128(o);
    const __m128i da = _mm_srli_epi32(d, 24);
    if (AllEqual(da, opaque)) {
      if (normal) _mm_storeu_si128(o, AllEqual(a, opaque) ? s : OverOpaque4(d, s, a));
      else if (formula) _mm_storeu_si128(o, BlendOverOpaque4(mode, d, s, a));
      else _mm_storeu_si128(o, TableOverOpaque4(table, src + i, out + i, d, a));
    } else if (AllEqual(da, zero)) {
      // Nothing under: every mode shows the source as it is, where it has
      // any alpha left.
      const __m128i shown = _mm_or_si128(_mm_and_si128(s, colourBits), _mm_slli_epi32(a, 24));
      _mm_storeu_si128(o, Select(_mm_cmpeq_epi32(a, zero), d, shown));
    } else {
      // A partly covered backdrop needs Over's division: one by one.
      for (int k = 0; k < 4; ++k)
        out[i + k] = normal ? LayNormalPixel(out[i + k], src[i + k], opacity)
                            : LayBlendPixel(out[i + k], src[i + k], opacity, table);
    }
  }
  if (i < n) LayRowPlain(out + i, src + i, n - i, opacity, mode);
}

#endif

}  // namespace

void LayRow(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity, int32_t mode) {
  if (mode < 0 || mode >= kBlendModeCount) mode = kBlendNormal;
#if defined(TAVORA_WIDE_COMPOSITE)
  if (g_wideAllowed.load(std::memory_order_relaxed)) {
    LayRowWide(out, src, n, opacity, mode);
    return;
  }
#endif
  LayRowPlain(out, src, n, opacity, mode);
}

void AllowWideCompositingForTesting(bool allowed) { g_wideAllowed.store(allowed); }

}  // namespace tavora
