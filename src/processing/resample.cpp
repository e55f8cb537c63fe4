#include "processing/resample.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TAVORA_AVX2_RESAMPLE 1
#endif

#include "base/memory.h"
#include "base/row_workers.h"
#include "document/composite.h"
#include "document/history.h"
#include "processing/filters.h"
#include "processing/upscale.h"

namespace tavora {
namespace {

constexpr double kPi = 3.14159265358979323846;

std::atomic<bool> g_avx2Allowed{true};
#if defined(TAVORA_AVX2_RESAMPLE)
bool UseAvx2() {
  static const bool supported = __builtin_cpu_supports("avx2");
  return supported && g_avx2Allowed.load(std::memory_order_relaxed);
}
#endif

double Triangle(double x) {
  x = std::abs(x);
  return x < 1.0 ? 1.0 - x : 0.0;
}

// Cubic convolution with a = -0.5.
double CubicConvolution(double x) {
  x = std::abs(x);
  if (x < 1.0) return (1.5 * x - 2.5) * x * x + 1.0;
  if (x < 2.0) return ((-0.5 * x + 2.5) * x - 4.0) * x + 2.0;
  return 0.0;
}

double Sinc(double t) {
  if (std::abs(t) < 1e-6) return 1.0;
  return std::sin(kPi * t) / (kPi * t);
}

double Lanczos3(double x) {
  if (std::abs(x) < 1e-6) return 1.0;
  if (std::abs(x) >= 3.0) return 0.0;
  return Sinc(x) * Sinc(x / 3.0);
}

// The cubic B-spline: no negative lobes, so it never rings.
double CubicBSpline(double x) {
  x = std::abs(x);
  if (x < 1.0) return (4.0 + 3.0 * x * x * x - 6.0 * x * x) / 6.0;
  if (x < 2.0) return (2.0 - x) * (2.0 - x) * (2.0 - x) / 6.0;
  return 0.0;
}

double Box(double x) { return std::abs(x) <= 0.5 ? 1.0 : 0.0; }

using PixelBuffer = std::unique_ptr<uint32_t[], FreeDeleter>;

PixelBuffer NewPixels(std::size_t count) {
  return PixelBuffer(static_cast<uint32_t*>(CheckedAlloc(count * sizeof(uint32_t))));
}

template <typename T>
PackedWeights<T> Pack(const WeightTable& table, const T* values, T one) {
  const int32_t length = table.sourceLength, count = table.targetLength, taps = table.taps;
  PackedWeights<T> packed;
  packed.first.resize(std::size_t(count));
  // Pass 1: fold and trim each row, keeping its window.
  std::vector<T> folded(std::size_t(count) * std::size_t(taps), T(0));
  std::vector<int32_t> span(static_cast<std::size_t>(count));
  std::vector<double> sum(static_cast<std::size_t>(taps));
  for (int32_t i = 0; i < count; ++i) {
    const int32_t first = table.first[std::size_t(i)];
    const int32_t lo = std::clamp(first, 0, length - 1);
    const int32_t hi = std::clamp(first + taps - 1, 0, length - 1);
    std::fill(sum.begin(), sum.end(), 0.0);
    for (int32_t k = 0; k < taps; ++k)
      sum[std::size_t(std::clamp(first + k, 0, length - 1) - lo)] +=
          double(values[std::size_t(i) * std::size_t(taps) + std::size_t(k)]);
    int32_t a = 0, b = hi - lo;
    while (a < b && sum[std::size_t(a)] == 0.0) ++a;
    while (b > a && sum[std::size_t(b)] == 0.0) --b;
    packed.first[std::size_t(i)] = lo + a;
    span[std::size_t(i)] = b - a + 1;
    for (int32_t k = a; k <= b; ++k)
      folded[std::size_t(i) * std::size_t(taps) + std::size_t(k - a)] = T(sum[std::size_t(k)]);
    packed.taps = std::max(packed.taps, b - a + 1);
  }
  // Pass 2: one window length for all, shifted left where it would run
  // past the last source pixel.
  const int32_t k = packed.taps;
  packed.weights.assign(std::size_t(count) * std::size_t(k), T(0));
  packed.identity = length == count && k == 1;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t start = std::min(packed.first[std::size_t(i)], length - k);
    const int32_t offset = packed.first[std::size_t(i)] - start;
    for (int32_t t = 0; t < span[std::size_t(i)]; ++t)
      packed.weights[std::size_t(i) * std::size_t(k) + std::size_t(offset + t)] =
          folded[std::size_t(i) * std::size_t(taps) + std::size_t(t)];
    packed.first[std::size_t(i)] = start;
    if (packed.identity && (start != i || packed.weights[std::size_t(i)] != one)) packed.identity = false;
  }
  return packed;
}

// ---------------------------------------------------------------- inner loops
// Channel sums in fixed point, rounded and clamped into a pixel.
inline uint32_t RoundPack(const int32_t (&acc)[4]) {
  uint32_t out = 0;
  for (int c = 0; c < 4; ++c) {
    const int32_t v = (acc[c] + (1 << (kWeightBits - 1))) >> kWeightBits;
    out |= uint32_t(std::clamp(v, 0, 255)) << (8 * c);
  }
  return out;
}

// Columns [x, end) of one target row from `taps` source rows.
void VerticalScalar(const uint32_t* const* rows, const int16_t* w, int32_t taps, int32_t x, int32_t end,
                    uint32_t* out) {
  for (; x < end; ++x) {
    int32_t acc[4] = {0, 0, 0, 0};
    for (int32_t k = 0; k < taps; ++k) {
      const uint32_t p = rows[k][x];
      for (int c = 0; c < 4; ++c) acc[c] += int32_t(w[k]) * int32_t((p >> (8 * c)) & 255);
    }
    out[x] = RoundPack(acc);
  }
}

#if defined(__SSE2__)
// Two adjacent 16-bit weights in every 32-bit lane, for pmaddwd.
inline __m128i WeightPair(const int16_t* w) {
  int32_t pair;
  std::memcpy(&pair, w, 4);
  return _mm_set1_epi32(pair);
}
inline __m128i WeightSingle(int16_t w) { return _mm_set1_epi32(int32_t(uint16_t(w))); }

inline __m128i RoundShift(__m128i acc) {
  return _mm_srai_epi32(_mm_add_epi32(acc, _mm_set1_epi32(1 << (kWeightBits - 1))), kWeightBits);
}

// The channels of two pixels are interleaved byte by byte (p0 c0, p1 c0,
// p0 c1, ...) so that one pmaddwd weighs both taps of every channel.
uint32_t HorizontalPixel(const uint32_t* px, const int16_t* w, int32_t taps) {
  const __m128i zero = _mm_setzero_si128();
  __m128i acc = zero;
  int32_t k = 0;
  for (; k + 4 <= taps; k += 4) {
    const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + k));
    const __m128i s = _mm_shuffle_epi32(p, _MM_SHUFFLE(3, 1, 2, 0));  // p0 p2 p1 p3
    const __m128i t = _mm_unpacklo_epi8(s, _mm_unpackhi_epi64(s, s));  // p0|p1, then p2|p3
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi8(t, zero), WeightPair(w + k)));
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpackhi_epi8(t, zero), WeightPair(w + k + 2)));
  }
  if (k + 2 <= taps) {
    const __m128i p = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(px + k));
    const __m128i t = _mm_unpacklo_epi8(p, _mm_srli_si128(p, 4));
    acc = _mm_add_epi32(acc, _mm_madd_epi16(_mm_unpacklo_epi8(t, zero), WeightPair(w + k)));
    k += 2;
  }
  if (k < taps) {
    const __m128i p = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(int32_t(px[k])), zero), zero);
    acc = _mm_add_epi32(acc, _mm_madd_epi16(p, WeightSingle(w[k])));
  }
  const __m128i v = _mm_packs_epi32(RoundShift(acc), zero);
  return uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(v, zero)));
}

// Four pixels at a time; rows are paired so each pmaddwd weighs two taps.
#if defined(TAVORA_AVX2_RESAMPLE)
// Two target pixels at once: each 128-bit lane does exactly what
// HorizontalPixel does for its pixel, so the sums are the same.
__attribute__((target("avx2"))) inline __m256i Both(__m128i a, __m128i b) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(a), b, 1);
}

__attribute__((target("avx2"))) void HorizontalRowAvx2(const uint32_t* row, const int32_t* firsts,
                                                       const int16_t* w, int32_t taps, int32_t width,
                                                       uint32_t* out) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i half = _mm256_set1_epi32(1 << (kWeightBits - 1));
  int32_t x = 0;
  for (; x + 2 <= width; x += 2) {
    const uint32_t* pa = row + firsts[x];
    const uint32_t* pb = row + firsts[x + 1];
    const int16_t* wa = w + std::size_t(x) * std::size_t(taps);
    const int16_t* wb = wa + taps;
    __m256i acc = zero;
    int32_t k = 0;
    for (; k + 4 <= taps; k += 4) {
      const __m256i p = Both(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pa + k)),
                             _mm_loadu_si128(reinterpret_cast<const __m128i*>(pb + k)));
      const __m256i s = _mm256_shuffle_epi32(p, _MM_SHUFFLE(3, 1, 2, 0));
      const __m256i t = _mm256_unpacklo_epi8(s, _mm256_unpackhi_epi64(s, s));
      acc = _mm256_add_epi32(acc, _mm256_madd_epi16(_mm256_unpacklo_epi8(t, zero),
                                                    Both(WeightPair(wa + k), WeightPair(wb + k))));
      acc = _mm256_add_epi32(acc, _mm256_madd_epi16(_mm256_unpackhi_epi8(t, zero),
                                                    Both(WeightPair(wa + k + 2), WeightPair(wb + k + 2))));
    }
    if (k + 2 <= taps) {
      const __m256i p = Both(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pa + k)),
                             _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pb + k)));
      const __m256i t = _mm256_unpacklo_epi8(p, _mm256_srli_si256(p, 4));
      acc = _mm256_add_epi32(acc, _mm256_madd_epi16(_mm256_unpacklo_epi8(t, zero),
                                                    Both(WeightPair(wa + k), WeightPair(wb + k))));
      k += 2;
    }
    if (k < taps) {
      const __m256i p = Both(_mm_cvtsi32_si128(int32_t(pa[k])), _mm_cvtsi32_si128(int32_t(pb[k])));
      acc = _mm256_add_epi32(acc, _mm256_madd_epi16(_mm256_unpacklo_epi16(_mm256_unpacklo_epi8(p, zero), zero),
                                                    Both(WeightSingle(wa[k]), WeightSingle(wb[k]))));
    }
    const __m256i v = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(acc, half), kWeightBits), zero);
    const __m256i bytes = _mm256_packus_epi16(v, zero);
    out[x] = uint32_t(_mm256_extract_epi32(bytes, 0));
    out[x + 1] = uint32_t(_mm256_extract_epi32(bytes, 4));
  }
  for (; x < width; ++x) out[x] = HorizontalPixel(row + firsts[x], w + std::size_t(x) * std::size_t(taps), taps);
}

// Eight columns at a time: integer sums, so the wider grouping gives the
// same totals as the four-column loop below.
__attribute__((target("avx2"))) int32_t VerticalRowAvx2(const uint32_t* const* rows, const int16_t* w,
                                                        int32_t taps, int32_t width, uint32_t* out) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i half = _mm256_set1_epi32(1 << (kWeightBits - 1));
  int32_t x = 0;
  for (; x + 8 <= width; x += 8) {
    __m256i a0 = zero, a1 = zero, a2 = zero, a3 = zero;
    auto add = [&](__m256i r0, __m256i r1, __m256i wp) __attribute__((target("avx2"))) {
      const __m256i lo = _mm256_unpacklo_epi8(r0, r1), hi = _mm256_unpackhi_epi8(r0, r1);
      a0 = _mm256_add_epi32(a0, _mm256_madd_epi16(_mm256_unpacklo_epi8(lo, zero), wp));
      a1 = _mm256_add_epi32(a1, _mm256_madd_epi16(_mm256_unpackhi_epi8(lo, zero), wp));
      a2 = _mm256_add_epi32(a2, _mm256_madd_epi16(_mm256_unpacklo_epi8(hi, zero), wp));
      a3 = _mm256_add_epi32(a3, _mm256_madd_epi16(_mm256_unpackhi_epi8(hi, zero), wp));
    };
    int32_t k = 0;
    for (; k + 2 <= taps; k += 2) {
      int32_t pair;
      std::memcpy(&pair, w + k, 4);
      add(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k] + x)),
          _mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k + 1] + x)), _mm256_set1_epi32(pair));
    }
    if (k < taps)
      add(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(rows[k] + x)), zero,
          _mm256_set1_epi32(int32_t(uint16_t(w[k]))));
    auto round = [&](__m256i acc) __attribute__((target("avx2"))) {
      return _mm256_srai_epi32(_mm256_add_epi32(acc, half), kWeightBits);
    };
    // The unpacks work within 128-bit lanes, so each lane packs back its own
    // four pixels in order.
    const __m256i p01 = _mm256_packs_epi32(round(a0), round(a1));
    const __m256i p23 = _mm256_packs_epi32(round(a2), round(a3));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), _mm256_packus_epi16(p01, p23));
  }
  return x;
}
#endif

void VerticalRow(const uint32_t* const* rows, const int16_t* w, int32_t taps, int32_t width, uint32_t* out) {
  const __m128i zero = _mm_setzero_si128();
  int32_t x = 0;
#if defined(TAVORA_AVX2_RESAMPLE)
  if (UseAvx2()) x = VerticalRowAvx2(rows, w, taps, width, out);
#endif
  for (; x + 4 <= width; x += 4) {
    __m128i a0 = zero, a1 = zero, a2 = zero, a3 = zero;
    auto add = [&](__m128i r0, __m128i r1, __m128i wp) {
      const __m128i lo = _mm_unpacklo_epi8(r0, r1), hi = _mm_unpackhi_epi8(r0, r1);
      a0 = _mm_add_epi32(a0, _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), wp));
      a1 = _mm_add_epi32(a1, _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), wp));
      a2 = _mm_add_epi32(a2, _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), wp));
      a3 = _mm_add_epi32(a3, _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), wp));
    };
    int32_t k = 0;
    for (; k + 2 <= taps; k += 2)
      add(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + x)),
          _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k + 1] + x)), WeightPair(w + k));
    if (k < taps) add(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[k] + x)), zero, WeightSingle(w[k]));
    const __m128i p01 = _mm_packs_epi32(RoundShift(a0), RoundShift(a1));
    const __m128i p23 = _mm_packs_epi32(RoundShift(a2), RoundShift(a3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_packus_epi16(p01, p23));
  }
  VerticalScalar(rows, w, taps, x, width, out);
}
#else
uint32_t HorizontalPixel(const uint32_t* px, const int16_t* w, int32_t taps) {
  int32_t acc[4] = {0, 0, 0, 0};
  for (int32_t k = 0; k < taps; ++k)
    for (int c = 0; c < 4; ++c) acc[c] += int32_t(w[k]) * int32_t((px[k] >> (8 * c)) & 255);
  return RoundPack(acc);
}

void VerticalRow(const uint32_t* const* rows, const int16_t* w, int32_t taps, int32_t width, uint32_t* out) {
  VerticalScalar(rows, w, taps, 0, width, out);
}
#endif

struct SeparableJob {
  const Surface* source;
  uint32_t* middle;  // target width x source height, premultiplied
  Surface* out;
  const PackedWeights<int16_t>* wx;
  const PackedWeights<int16_t>* wy;
};

void HorizontalRows(int first, int end, void* context) {
  const auto& j = *static_cast<const SeparableJob*>(context);
  const int32_t sw = j.source->Width(), tw = j.out->Width(), taps = j.wx->taps;
  // Each source row is premultiplied in a row of its own, so the source
  // is never copied whole.
  PixelBuffer row = NewPixels(std::size_t(sw));
  for (int y = first; y < end; ++y) {
    uint32_t* mid = j.middle + std::size_t(y) * std::size_t(tw);
    if (j.wx->identity) {
      std::memcpy(mid, j.source->Row(y), std::size_t(sw) * 4);
      Premultiply(mid, std::size_t(sw));
      continue;
    }
    // An opaque row is its own premultiplied form: read it in place.
    const uint32_t* premultiplied = j.source->Row(y);
    if (!AllOpaque(premultiplied, std::size_t(sw))) {
      std::memcpy(row.get(), premultiplied, std::size_t(sw) * 4);
      Premultiply(row.get(), std::size_t(sw));
      premultiplied = row.get();
    }
    const int32_t* firsts = j.wx->first.data();
    const int16_t* w = j.wx->weights.data();
#if defined(TAVORA_AVX2_RESAMPLE)
    if (UseAvx2()) {
      HorizontalRowAvx2(premultiplied, firsts, w, taps, tw, mid);
      continue;
    }
#endif
    for (int32_t x = 0; x < tw; ++x)
      mid[x] = HorizontalPixel(premultiplied + firsts[x], w + std::size_t(x) * std::size_t(taps), taps);
  }
}

void VerticalRows(int first, int end, void* context) {
  const auto& j = *static_cast<const SeparableJob*>(context);
  const int32_t tw = j.out->Width(), taps = j.wy->taps;
  std::vector<const uint32_t*> rows(static_cast<std::size_t>(taps));
  for (int y = first; y < end; ++y) {
    uint32_t* out = j.out->Row(y);
    const int32_t top = j.wy->first[std::size_t(y)];
    for (int32_t k = 0; k < taps; ++k) rows[std::size_t(k)] = j.middle + std::size_t(top + k) * std::size_t(tw);
    if (j.wy->identity) std::memcpy(out, rows[0], std::size_t(tw) * 4);
    else VerticalRow(rows.data(), j.wy->weights.data() + std::size_t(y) * std::size_t(taps), taps, tw, out);
    if (!AllOpaque(out, std::size_t(tw))) Unpremultiply(out, std::size_t(tw));
  }
}

// Each target pixel takes the source pixel at floor((i + 0.5) x source / target).
Surface ResampleNearest(const Surface& source, int32_t width, int32_t height) {
  Surface out(width, height);
  if (source.Empty()) return out;
  std::vector<int32_t> xs(static_cast<std::size_t>(width));
  const int64_t sw = source.Width(), sh = source.Height();
  for (int32_t x = 0; x < width; ++x) xs[std::size_t(x)] = int32_t((2 * int64_t(x) + 1) * sw / (2 * int64_t(width)));
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      const uint32_t* in = source.Row(int32_t((2 * int64_t(y) + 1) * sh / (2 * int64_t(height))));
      uint32_t* o = out.Row(y);
      for (int32_t x = 0; x < width; ++x) o[x] = in[xs[std::size_t(x)]];
    }
  };
  RowWorkers::Run(height, body);
  return out;
}

constexpr float kSharperRadius = 0.8f, kSharperAmount = 0.45f;

}  // namespace

ResampleKernel KernelFor(ResampleAlgorithm algorithm) {
  switch (algorithm) {
    case ResampleAlgorithm::Bilinear: return {&Triangle, 1.0};
    case ResampleAlgorithm::Bicubic:
    case ResampleAlgorithm::BicubicSharper: return {&CubicConvolution, 2.0};
    case ResampleAlgorithm::BicubicSmoother: return {&CubicBSpline, 2.0};
    case ResampleAlgorithm::AreaAverage: return {&Box, 0.5};
    default: return {&Lanczos3, 3.0};
  }
}

WeightTable BuildWeightTable(int32_t sourceLength, int32_t targetLength, const ResampleKernel& kernel) {
  WeightTable t;
  t.sourceLength = sourceLength;
  t.targetLength = targetLength;
  if (sourceLength < 1 || targetLength < 1) return t;
  const double scale = double(sourceLength) / double(targetLength);
  // Reducing widens the kernel by the scale: a low-pass filter against aliasing.
  const double stretch = std::max(scale, 1.0);
  const double support = kernel.support * stretch;
  t.taps = int32_t(std::ceil(2.0 * support)) + 2;
  t.first.resize(std::size_t(targetLength));
  t.weights.assign(std::size_t(targetLength) * std::size_t(t.taps), 0.0);
  for (int32_t i = 0; i < targetLength; ++i) {
    const double centre = (i + 0.5) * scale;
    const int32_t lo = int32_t(std::floor(centre - support));
    const int32_t hi = int32_t(std::ceil(centre + support));
    const int32_t n = std::min(hi - lo + 1, t.taps);
    double* row = t.weights.data() + std::size_t(i) * std::size_t(t.taps);
    double sum = 0;
    for (int32_t k = 0; k < n; ++k) {
      row[k] = kernel.function((lo + k + 0.5 - centre) / stretch);
      sum += row[k];
    }
    if (std::abs(sum) < 1e-8) {
      std::fill(row, row + n, 0.0);
      row[0] = 1.0;
    } else {
      for (int32_t k = 0; k < n; ++k) row[k] /= sum;
    }
    t.first[std::size_t(i)] = lo;
  }
  return t;
}

std::vector<int16_t> QuantiseWeights(const WeightTable& table) {
  const std::size_t taps = std::size_t(table.taps);
  std::vector<int16_t> q(table.weights.size());
  for (std::size_t i = 0; i < std::size_t(table.targetLength); ++i) {
    const double* w = table.weights.data() + i * taps;
    int32_t sum = 0;
    std::size_t largest = 0;
    for (std::size_t k = 0; k < taps; ++k) {
      q[i * taps + k] = int16_t(std::lround(w[k] * (1 << kWeightBits)));
      sum += q[i * taps + k];
      if (std::abs(w[k]) > std::abs(w[largest])) largest = k;
    }
    q[i * taps + largest] = int16_t(q[i * taps + largest] + ((1 << kWeightBits) - sum));
  }
  return q;
}

PackedWeights<int16_t> PackFixedWeights(const WeightTable& table) {
  const std::vector<int16_t> q = QuantiseWeights(table);
  return Pack<int16_t>(table, q.data(), int16_t(1 << kWeightBits));
}

PackedWeights<float> PackFloatWeights(const WeightTable& table) {
  const std::vector<float> f(table.weights.begin(), table.weights.end());
  return Pack<float>(table, f.data(), 1.0f);
}

Surface ResampleSeparable(const Surface& source, int32_t width, int32_t height, const ResampleKernel& kernel) {
  Surface out(width, height);
  if (source.Empty() || out.Empty()) return out;
  const PackedWeights<int16_t> wx = PackFixedWeights(BuildWeightTable(source.Width(), width, kernel));
  const PackedWeights<int16_t> wy = PackFixedWeights(BuildWeightTable(source.Height(), height, kernel));
  PixelBuffer middle = NewPixels(std::size_t(width) * std::size_t(source.Height()));
  SeparableJob job{&source, middle.get(), &out, &wx, &wy};
  RowWorkers::Run(source.Height(), &HorizontalRows, &job);
  RowWorkers::Run(height, &VerticalRows, &job);
  return out;
}

Surface Resample(const Surface& source, int32_t width, int32_t height, ResampleAlgorithm algorithm) {
  if (source.Width() == width && source.Height() == height) return source;
  switch (algorithm) {
    case ResampleAlgorithm::Nearest: return ResampleNearest(source, width, height);
    case ResampleAlgorithm::Automatic:
      if (int64_t(width) * height > int64_t(source.Width()) * source.Height())
        return ResampleSeparable(source, width, height, KernelFor(ResampleAlgorithm::BicubicSmoother));
      [[fallthrough]];
    case ResampleAlgorithm::BicubicSharper: {
      Surface out = ResampleSeparable(source, width, height, KernelFor(ResampleAlgorithm::Bicubic));
      SharpenPass(out, kSharperRadius, kSharperAmount);
      return out;
    }
    default: return ResampleSeparable(source, width, height, KernelFor(algorithm));
  }
}

void SharpenPass(Surface& pixels, float radius, float amount) {
  if (pixels.Empty() || amount <= 0.0f) return;
  const int32_t w = pixels.Width(), h = pixels.Height();
  Surface blurred(pixels);
  // GaussianBlur's radius is twice its standard deviation.
  GaussianBlur(blurred.Data(), w, h, 2.0f * radius);
  const int32_t k = int32_t(std::lround(double(amount) * 65536.0));
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      uint32_t* p = pixels.Row(y);
      const uint32_t* b = blurred.Row(y);
      for (int32_t x = 0; x < w; ++x) {
        const uint32_t c = p[x];
        if (!(c >> 24)) continue;
        uint32_t out = c & 0xFF000000u;
        for (int s = 0; s < 24; s += 8) {
          const int32_t v = int32_t((c >> s) & 255);
          const int32_t d = v - int32_t((b[x] >> s) & 255);
          out |= uint32_t(std::clamp(v + ((d * k + 32768) >> 16), 0, 255)) << s;
        }
        p[x] = out;
      }
    }
  };
  RowWorkers::Run(h, body);
}

ResampleAlgorithm AlgorithmAtPosition(int32_t position) {
  static constexpr ResampleAlgorithm kOrder[8] = {
      ResampleAlgorithm::Automatic,       ResampleAlgorithm::Bilinear,       ResampleAlgorithm::Bicubic,
      ResampleAlgorithm::BicubicSmoother, ResampleAlgorithm::BicubicSharper, ResampleAlgorithm::Lanczos,
      ResampleAlgorithm::AreaAverage,     ResampleAlgorithm::Nearest};
  return position >= 0 && position < 8 ? kOrder[position] : kOrder[0];
}

std::u16string_view ResizeMethodName(ResizeMethod method) {
  switch (method) {
    case ResizeMethod::Resize: return u"Resize";
    case ResizeMethod::Upscale: return u"Upscale";
    default: return u"Resample";
  }
}

Surface ResizeSurface(const Surface& source, int32_t width, int32_t height, const ResizeOptions& options) {
  switch (options.method) {
    case ResizeMethod::Resize: return Resample(source, width, height, ResampleAlgorithm::Nearest);
    case ResizeMethod::Upscale:
      if (int64_t(width) * height <= int64_t(source.Width()) * source.Height())
        return Resample(source, width, height, ResampleAlgorithm::Automatic);
      return Enlarge(source, width, height, options);
    default: {
      Surface out = Resample(source, width, height, AlgorithmAtPosition(options.algorithmPosition));
      const int32_t sharpen = std::clamp(options.sharpen, 0, 100);
      if (sharpen > 0 && (width != source.Width() || height != source.Height()))
        SharpenPass(out, 0.9f, float(sharpen) / 100.0f * 1.2f);
      return out;
    }
  }
}

bool ResizeImage(Document& doc, int32_t width, int32_t height, const ResizeOptions& options) {
  width = std::clamp(width, 1, kMaxResizeSide);
  height = std::clamp(height, 1, kMaxResizeSide);
  if (doc.layers.empty() || (width == doc.width && height == doc.height)) return false;
  // Content beyond the canvas is dropped with the push: it would need a
  // resample of its own and a new offset, and no one expects it kept.
  PushWholeDocument(doc, ResizeMethodName(options.method));
  const double fx = double(width) / std::max(doc.width, 1), fy = double(height) / std::max(doc.height, 1);
  for (Layer& layer : doc.layers) {
    layer.pixels = ResizeSurface(layer.pixels, width, height, options);
    layer.DropEffectCaches();
    // The text stays editable, set where and as large as its pixels went.
    if (layer.text) {
      layer.text->x = int32_t(std::lround(layer.text->x * fx));
      layer.text->y = int32_t(std::lround(layer.text->y * fy));
      layer.text->fontSize = int32_t(std::clamp(std::lround(layer.text->fontSize * fy), 4L, 2000L));
    }
  }
  doc.width = width;
  doc.height = height;
  FinishCanvasChange(doc);
  return true;
}

void AllowAvx2ResamplingForTesting(bool allowed) { g_avx2Allowed.store(allowed); }

}  // namespace tavora
