#include "processing/filters.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#define TAVORA_FAST_FILTERS 1
#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define TAVORA_AVX2_FILTERS 1
#endif
#endif

#include "base/memory.h"
#include "base/progress.h"
#include "base/row_workers.h"
#include "processing/adjustments.h"

namespace tavora {
namespace {

using PixelBuffer = std::unique_ptr<uint32_t[], FreeDeleter>;

PixelBuffer NewPixels(std::size_t count) {
  return PixelBuffer(static_cast<uint32_t*>(CheckedAlloc(count * sizeof(uint32_t))));
}

// One moving average along `count` values read and written with a stride;
// T is the element type, `channels` how many byte channels each holds.
template <typename T, int channels>
void BoxLine(const T* in, T* out, int32_t count, std::ptrdiff_t stride, int32_t r) {
  const int32_t n = 2 * r + 1;
  for (int c = 0; c < channels; ++c) {
    const int shift = 8 * c;
    auto at = [&](int32_t i) -> uint32_t { return (uint32_t(in[std::ptrdiff_t(i) * stride]) >> shift) & 255; };
    uint32_t sum = uint32_t(r + 1) * at(0);
    for (int32_t i = 1; i <= r; ++i) sum += at(std::min(i, count - 1));
    for (int32_t x = 0; x < count; ++x) {
      const uint32_t v = (sum + uint32_t(r)) / uint32_t(n);
      T& o = out[std::ptrdiff_t(x) * stride];
      if (c == 0) o = T(v);
      else o = T(o | (v << shift));
      sum += at(std::min(x + r + 1, count - 1));
      sum -= at(std::max(x - r, 0));
    }
  }
}

template <typename T, int channels>
struct BoxJob {
  T* pixels;
  T* temp;
  int32_t width, height, radius;
};

template <typename T, int channels>
void BoxRows(int first, int end, void* context) {
  auto& job = *static_cast<BoxJob<T, channels>*>(context);
  for (int y = first; y < end; ++y)
    BoxLine<T, channels>(job.pixels + std::size_t(y) * job.width, job.temp + std::size_t(y) * job.width,
                         job.width, 1, job.radius);
}

// The vertical pass walks down the rows with one running sum per column
// and channel, so memory is read row by row rather than column by column.
template <typename T, int channels>
void BoxColumns(int first, int end, void* context) {
  auto& job = *static_cast<BoxJob<T, channels>*>(context);
  const int32_t w = job.width, h = job.height, r = job.radius, n = 2 * r + 1;
  const int32_t span = end - first;
  std::vector<uint32_t> sums(std::size_t(span) * channels, 0);
  auto row = [&](int32_t y) { return job.temp + std::size_t(std::clamp(y, 0, h - 1)) * w + first; };
  auto add = [&](const T* src, int32_t times, int sign) {
    for (int32_t x = 0; x < span; ++x)
      for (int c = 0; c < channels; ++c) {
        const uint32_t v = (uint32_t(src[x]) >> (8 * c)) & 255;
        uint32_t& s = sums[std::size_t(x) * channels + c];
        s = sign > 0 ? s + v * uint32_t(times) : s - v;
      }
  };
  add(row(0), r + 1, 1);
  for (int32_t i = 1; i <= r; ++i) add(row(i), 1, 1);
  for (int32_t y = 0; y < h; ++y) {
    T* out = job.pixels + std::size_t(y) * w + first;
    for (int32_t x = 0; x < span; ++x) {
      uint32_t v = 0;
      for (int c = 0; c < channels; ++c)
        v |= ((sums[std::size_t(x) * channels + c] + uint32_t(r)) / uint32_t(n)) << (8 * c);
      out[x] = T(v);
    }
    add(row(y + r + 1), 1, 1);
    add(row(y - r), 1, -1);
  }
}

template <typename T, int channels>
void BoxPass(T* pixels, int32_t width, int32_t height, int32_t radius) {
  if (radius < 1 || width < 1 || height < 1) return;
  std::unique_ptr<T[], FreeDeleter> temp(
      static_cast<T*>(CheckedAlloc(std::size_t(width) * std::size_t(height) * sizeof(T))));
  BoxJob<T, channels> job{pixels, temp.get(), width, height, radius};
  RowWorkers::Run(height, &BoxRows<T, channels>, &job);
  RowWorkers::Run(width, &BoxColumns<T, channels>, &job);
}

// The three box widths that approximate a Gaussian of this radius.
std::vector<int32_t> GaussianBoxes(float radius) {
  if (radius < 0.5f) return {};
  const float sigma = std::max(0.4f, radius * 0.5f);
  int32_t w = static_cast<int32_t>(std::floor(std::sqrt(12.0f * sigma * sigma / 3.0f + 1.0f)));
  if (w % 2 == 0) --w;
  w = std::max(w, 1);
  const int32_t u = w + 2;
  const int32_t m = static_cast<int32_t>(
      (12.0f * sigma * sigma - 3.0f * w * w - 12.0f * w - 9.0f) / (-4.0f * w - 4.0f) + 0.5f);
  if (m >= 3) return {w, w, w};
  if (m == 2) return {w, w, u};
  if (m == 1) return {w, u, u};
  return {u, u, u};
}

uint32_t Lum(uint32_t p) { return Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255); }

std::atomic<bool> g_fastAllowed{true};

bool FastAllowed() { return g_fastAllowed.load(std::memory_order_relaxed); }

std::atomic<bool> g_avx2Allowed{true};
#if defined(TAVORA_AVX2_FILTERS)
bool UseAvx2() {
  static const bool supported = __builtin_cpu_supports("avx2");
  return supported && g_avx2Allowed.load(std::memory_order_relaxed);
}
#endif

void PremultiplyOne(uint32_t& p) {
  const uint32_t a = p >> 24;
  uint32_t out = a << 24;
  for (int shift = 0; shift < 24; shift += 8) out |= ((((p >> shift) & 255) * a + 128) * 257 >> 16) << shift;
  p = out;
}

void UnpremultiplyOne(uint32_t& p) {
  const uint32_t a = p >> 24;
  if (a == 0) {
    p = 0;
    return;
  }
  uint32_t out = a << 24;
  for (int shift = 0; shift < 24; shift += 8) out |= std::min(255u, ((p >> shift) & 255) * 255 / a) << shift;
  p = out;
}

#if defined(TAVORA_FAST_FILTERS)
// Whether all four pixels at p are opaque, which both conversions leave alone.
bool FourOpaque(const uint32_t* p) {
  const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  return _mm_movemask_epi8(_mm_cmpeq_epi32(_mm_and_si128(v, alpha), alpha)) == 0xFFFF;
}
#endif

}  // namespace

namespace {

// Applies one of the conversions to every pixel that is not opaque; opaque
// pixels are the same either way, and whole opaque groups are passed over.
void ForEachTranslucent(uint32_t* p, std::size_t count, void (*convert)(uint32_t&)) {
  std::size_t i = 0;
#if defined(TAVORA_FAST_FILTERS)
  for (; i + 4 <= count; i += 4)
    if (!FourOpaque(p + i))
      for (std::size_t k = i; k < i + 4; ++k)
        if (p[k] >> 24 != 255) convert(p[k]);
#endif
  for (; i < count; ++i)
    if (p[i] >> 24 != 255) convert(p[i]);
}

}  // namespace

void Premultiply(uint32_t* p, std::size_t count) { ForEachTranslucent(p, count, &PremultiplyOne); }

void Unpremultiply(uint32_t* p, std::size_t count) { ForEachTranslucent(p, count, &UnpremultiplyOne); }

bool AllOpaque(const uint32_t* p, std::size_t count) {
  std::size_t i = 0;
#if defined(TAVORA_FAST_FILTERS)
  for (; i + 4 <= count; i += 4)
    if (!FourOpaque(p + i)) return false;
#endif
  for (; i < count; ++i)
    if (p[i] >> 24 != 255) return false;
  return true;
}

void AllowFastFiltersForTesting(bool allowed) { g_fastAllowed.store(allowed); }

void AllowAvx2FiltersForTesting(bool allowed) { g_avx2Allowed.store(allowed); }

namespace {

// A chain of up to three box passes (horizontal, then vertical, each
// rounded to bytes as BoxBlurPass rounds them) made in one sweep down the
// image: every source row is read once, each horizontal pass runs on a row
// as it arrives, and each vertical pass keeps only the 2r + 2 rows its
// moving sum still needs, so the passes meet in the cache instead of in
// memory. The sums are whole numbers, so taking them in another order
// changes no pixel. Bands of rows go to the row workers; each band also
// makes the rows its vertical passes reach into above and below it.
struct BoxChain;
// Writes the finished row y: `blurred` is the chain's output (premultiplied
// when the chain premultiplies), `out` where the row goes; `scratch` holds
// 2 width words for the function's own use.
using FinishRow = void (*)(const BoxChain& chain, int32_t y, const uint32_t* blurred, uint32_t* out,
                           uint32_t* scratch);

struct HeldRows {
  int32_t first, topEnd, bottomStart, end;
  std::vector<uint32_t> pixels;
};

struct BoxChain {
  const uint32_t* source;
  uint32_t* destination;
  int32_t width, height;
  int32_t passes;  // 0 to 3
  int32_t radius[3];
  bool premultiply;
  FinishRow finish;
  const void* extra;  // for `finish`
  // When the destination is the source, a band may not write the rows
  // its neighbours still read; it holds them until every band is done.
  std::mutex mutex;
  std::vector<HeldRows> held;
};

void FinishPlain(const BoxChain& chain, int32_t, const uint32_t* blurred, uint32_t* out, uint32_t*) {
  std::memcpy(out, blurred, std::size_t(chain.width) * 4);
  if (chain.premultiply) Unpremultiply(out, std::size_t(chain.width));
}

#if defined(TAVORA_FAST_FILTERS)

// A window of n = 2r + 1 <= 255 byte values plus r stays below 2^16, so the
// sums fit 16-bit lanes: eight channels, two pixels, to a register.
constexpr int32_t kLaneMaxRadius = 127;
constexpr uint32_t kLaneMaxDivisor = 256;

// floor(x / n) in each 16-bit lane, for x < 2^16 and n <= 256. With
// m = floor(2^16 / n), (x m) >> 16 falls short of x / n by less than
// x / 2^16 < 1, so it is the quotient or one less, and the remainder tells.
struct LaneDivisor {
  __m128i magic, n, nMinus1;
  explicit LaneDivisor(uint32_t d)
      : magic(_mm_set1_epi16(int16_t(65536u / d))),
        n(_mm_set1_epi16(int16_t(d))),
        nMinus1(_mm_set1_epi16(int16_t(d - 1))) {}
  __m128i operator()(__m128i x) const {
    const __m128i q = _mm_mulhi_epu16(x, magic);
    const __m128i rem = _mm_sub_epi16(x, _mm_mullo_epi16(q, n));
    return _mm_sub_epi16(q, _mm_cmpgt_epi16(rem, nMinus1));
  }
};

inline __m128i Low16(__m128i bytes) { return _mm_unpacklo_epi8(bytes, _mm_setzero_si128()); }
inline __m128i High16(__m128i bytes) { return _mm_unpackhi_epi8(bytes, _mm_setzero_si128()); }
inline __m128i LoadTwo(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline __m128i LoadFour(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void StoreTwo(void* p, __m128i v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }
inline void StoreFour(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// One horizontal box pass of radius r over the w pixels at padded + r + 1,
// into out. Writes r + 1 copies of the edge pixels on both sides first, so
// the window for pixel x is padded[x + 1 .. x + 2r + 1] without clamping.
void HorizontalBox(uint32_t* padded, int32_t w, int32_t r, uint32_t* out) {
  const LaneDivisor divide(uint32_t(2 * r + 1));
  uint32_t* row = padded + r + 1;
  std::fill(padded, row, row[0]);
  std::fill(row + w, row + w + r + 1, row[w - 1]);
  // `sum` holds the window of pixel x (plus r for the rounding) in both halves.
  __m128i sum = _mm_set1_epi16(int16_t(r));
  for (int32_t j = 1; j <= 2 * r + 1; ++j) sum = _mm_add_epi16(sum, Low16(_mm_set1_epi32(int32_t(padded[j]))));
  const uint32_t* drop = padded + 1;
  const uint32_t* add = padded + 2 * r + 2;
  int32_t x = 0;
  for (; x + 1 < w; x += 2) {
    // d = (change into x + 1, change into x + 2).
    const __m128i d = _mm_sub_epi16(Low16(LoadTwo(add + x)), Low16(LoadTwo(drop + x)));
    const __m128i pair = _mm_add_epi16(sum, _mm_slli_si128(d, 8));
    sum = _mm_shuffle_epi32(_mm_add_epi16(pair, d), _MM_SHUFFLE(3, 2, 3, 2));
    const __m128i q = divide(pair);
    StoreTwo(out + x, _mm_packus_epi16(q, q));
  }
  if (x < w) {
    const __m128i q = divide(sum);
    out[x] = uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(q, q)));
  }
}

// One output row of a vertical pass, pixels from .. w - 1: with `rows`
// (count of them) the sums start afresh as r + their total; otherwise they
// move on by add - drop.
void VerticalRow(uint16_t* sums, const uint32_t* const* rows, int32_t count, const uint32_t* add,
                 const uint32_t* drop, int32_t w, int32_t r, uint32_t* out, int32_t from) {
  const LaneDivisor divide(uint32_t(2 * r + 1));
  const __m128i start = _mm_set1_epi16(int16_t(r));
  int32_t x = from;
  for (; x + 4 <= w; x += 4) {
    __m128i lo, hi;
    if (rows) {
      lo = hi = start;
      for (int32_t i = 0; i < count; ++i) {
        const __m128i v = LoadFour(rows[i] + x);
        lo = _mm_add_epi16(lo, Low16(v));
        hi = _mm_add_epi16(hi, High16(v));
      }
    } else {
      const __m128i a = LoadFour(add + x), b = LoadFour(drop + x);
      lo = _mm_sub_epi16(_mm_add_epi16(LoadFour(sums + 4 * x), Low16(a)), Low16(b));
      hi = _mm_sub_epi16(_mm_add_epi16(LoadFour(sums + 4 * x + 8), High16(a)), High16(b));
    }
    StoreFour(sums + 4 * x, lo);
    StoreFour(sums + 4 * x + 8, hi);
    StoreFour(out + x, _mm_packus_epi16(divide(lo), divide(hi)));
  }
  for (; x < w; ++x) {
    __m128i s;
    if (rows) {
      s = start;
      for (int32_t i = 0; i < count; ++i) s = _mm_add_epi16(s, Low16(_mm_cvtsi32_si128(int32_t(rows[i][x]))));
    } else {
      s = _mm_sub_epi16(_mm_add_epi16(LoadTwo(sums + 4 * x), Low16(_mm_cvtsi32_si128(int32_t(add[x])))),
                        Low16(_mm_cvtsi32_si128(int32_t(drop[x]))));
    }
    StoreTwo(sums + 4 * x, s);
    const __m128i q = divide(s);
    out[x] = uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(q, q)));
  }
}

#if defined(TAVORA_AVX2_FILTERS)
// The same passes four pixels to a register where the processor has AVX2.

// LaneDivisor's division in sixteen lanes; d holds (2^16 / n, n, n - 1).
__attribute__((target("avx2"))) inline __m256i Divide16(__m256i x, const __m256i (&d)[3]) {
  const __m256i q = _mm256_mulhi_epu16(x, d[0]);
  const __m256i rem = _mm256_sub_epi16(x, _mm256_mullo_epi16(q, d[1]));
  return _mm256_sub_epi16(q, _mm256_cmpgt_epi16(rem, d[2]));
}

__attribute__((target("avx2"))) inline void SetDivisor16(uint32_t n, __m256i (&d)[3]) {
  d[0] = _mm256_set1_epi16(int16_t(65536u / n));
  d[1] = _mm256_set1_epi16(int16_t(n));
  d[2] = _mm256_set1_epi16(int16_t(n - 1));
}

__attribute__((target("avx2"))) inline __m256i Load8(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}

__attribute__((target("avx2"))) inline void Store8(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}

__attribute__((target("avx2"))) inline __m256i Widen4(const uint32_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

__attribute__((target("avx2"))) void HorizontalBoxAvx2(uint32_t* padded, int32_t w, int32_t r, uint32_t* out) {
  const LaneDivisor divide(uint32_t(2 * r + 1));
  __m256i divisor[3];
  SetDivisor16(uint32_t(2 * r + 1), divisor);
  uint32_t* row = padded + r + 1;
  std::fill(padded, row, row[0]);
  std::fill(row + w, row + w + r + 1, row[w - 1]);
  __m128i sum = _mm_set1_epi16(int16_t(r));
  for (int32_t j = 1; j <= 2 * r + 1; ++j) sum = _mm_add_epi16(sum, Low16(_mm_set1_epi32(int32_t(padded[j]))));
  const uint32_t* drop = padded + 1;
  const uint32_t* add = padded + 2 * r + 2;
  const __m256i zero = _mm256_setzero_si256();
  __m256i window = _mm256_broadcastsi128_si256(sum);  // the window of pixel x in all four places
  int32_t x = 0;
  for (; x + 4 <= w; x += 4) {
    // The changes into x + 1 .. x + 4, summed up along the four pixels.
    const __m256i d = _mm256_sub_epi16(Widen4(add + x), Widen4(drop + x));
    __m256i p = _mm256_add_epi16(d, _mm256_slli_si256(d, 8));
    p = _mm256_add_epi16(p, _mm256_blend_epi32(zero, _mm256_permute4x64_epi64(p, _MM_SHUFFLE(1, 1, 1, 1)), 0xF0));
    const __m256i through = _mm256_add_epi16(window, p);  // windows of x + 1 .. x + 4
    const __m256i q = Divide16(_mm256_sub_epi16(through, d), divisor);
    window = _mm256_permute4x64_epi64(through, _MM_SHUFFLE(3, 3, 3, 3));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(q, q), _MM_SHUFFLE(3, 1, 2, 0));
    StoreFour(out + x, _mm256_castsi256_si128(packed));
  }
  sum = _mm256_castsi256_si128(window);
  for (; x < w; ++x) {
    const __m128i q = divide(sum);
    out[x] = uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(q, q)));
    sum = _mm_sub_epi16(_mm_add_epi16(sum, Low16(_mm_cvtsi32_si128(int32_t(add[x])))),
                        Low16(_mm_cvtsi32_si128(int32_t(drop[x]))));
  }
}

// Eight pixels at a time; the sums of one group of eight are kept in the
// order the in-lane unpacking gives, which only this function reads.
__attribute__((target("avx2"))) void VerticalRowAvx2(uint16_t* sums, const uint32_t* const* rows, int32_t count,
                                                     const uint32_t* add, const uint32_t* drop, int32_t w, int32_t r,
                                                     uint32_t* out, int32_t from) {
  __m256i divisor[3];
  SetDivisor16(uint32_t(2 * r + 1), divisor);
  const __m256i start = _mm256_set1_epi16(int16_t(r)), zero = _mm256_setzero_si256();
  int32_t x = from;
  for (; x + 8 <= w; x += 8) {
    __m256i lo, hi;
    if (rows) {
      lo = hi = start;
      for (int32_t i = 0; i < count; ++i) {
        const __m256i v = Load8(rows[i] + x);
        lo = _mm256_add_epi16(lo, _mm256_unpacklo_epi8(v, zero));
        hi = _mm256_add_epi16(hi, _mm256_unpackhi_epi8(v, zero));
      }
    } else {
      const __m256i a = Load8(add + x), b = Load8(drop + x);
      lo = _mm256_sub_epi16(_mm256_add_epi16(Load8(sums + 4 * x), _mm256_unpacklo_epi8(a, zero)),
                            _mm256_unpacklo_epi8(b, zero));
      hi = _mm256_sub_epi16(_mm256_add_epi16(Load8(sums + 4 * x + 16), _mm256_unpackhi_epi8(a, zero)),
                            _mm256_unpackhi_epi8(b, zero));
    }
    Store8(sums + 4 * x, lo);
    Store8(sums + 4 * x + 16, hi);
    Store8(out + x, _mm256_packus_epi16(Divide16(lo, divisor), Divide16(hi, divisor)));
  }
  if (x < w) VerticalRow(sums, rows, count, add, drop, w, r, out, x);
}
#endif  // TAVORA_AVX2_FILTERS

void BoxChainRows(int first, int end, void* context) {
  auto& chain = *static_cast<BoxChain*>(context);
  const int32_t w = chain.width, h = chain.height, k = chain.passes;
  const int32_t* r = chain.radius;
  // Stage i makes rows lo[i + 1] .. hi[i + 1] - 1 of its vertical pass from
  // rows lo[i] .. hi[i] - 1 of the one before (stage -1: the source).
  int32_t lo[4], hi[4], reach = 0, widest = 0;
  lo[k] = first;
  hi[k] = end;
  for (int32_t i = k - 1; i >= 0; --i) {
    lo[i] = std::max(0, lo[i + 1] - r[i]);
    hi[i] = std::min(h, hi[i + 1] + r[i]);
    reach += r[i];
    widest = std::max(widest, r[i]);
  }
  const bool inPlace = chain.destination == chain.source;
  HeldRows held{first, first, end, end, {}};
  if (inPlace && first > 0) held.topEnd = std::min(first + reach, end);
  if (inPlace && end < h) held.bottomStart = std::max(end - reach, held.topEnd);
  held.pixels.resize(std::size_t(held.topEnd - first + end - held.bottomStart) * w);
  auto outRow = [&](int32_t y) {
    if (y < held.topEnd) return held.pixels.data() + std::size_t(y - first) * w;
    if (y >= held.bottomStart) return held.pixels.data() + std::size_t(held.topEnd - first + y - held.bottomStart) * w;
    return chain.destination + std::size_t(y) * w;
  };

  std::vector<uint32_t> padded(std::size_t(w) + 2 * std::size_t(widest) + 2), last(w), scratch(2 * std::size_t(w));
  std::vector<uint32_t> rings[3];
  std::vector<uint16_t> sums[3];
  std::vector<const uint32_t*> window(2 * std::size_t(widest) + 1);
  int32_t slots[3] = {}, next[3] = {};
#if defined(TAVORA_AVX2_FILTERS)
  const bool avx2 = UseAvx2();
  auto horizontal = avx2 ? &HorizontalBoxAvx2 : &HorizontalBox;
  auto vertical = avx2 ? &VerticalRowAvx2 : &VerticalRow;
#else
  auto horizontal = &HorizontalBox;
  auto vertical = &VerticalRow;
#endif
  for (int32_t i = 0; i < k; ++i) {
    slots[i] = 2 * r[i] + 2;
    rings[i].resize(std::size_t(slots[i]) * w);
    sums[i].resize(4 * std::size_t(w));
    next[i] = lo[i + 1];
  }
  auto ringRow = [&](int32_t i, int32_t t) { return rings[i].data() + std::size_t(t % slots[i]) * w; };

  // After a row arrives, each stage makes every row its ring allows, and
  // each row goes on through the later stages before the next one is made,
  // so no ring ever has to hold more than its 2r + 2 rows.
  int32_t arrived[3] = {-1, -1, -1};
  auto drain = [&]() {
    int32_t i = 0;
    while (i >= 0) {
      if (next[i] >= hi[i + 1] || std::min(next[i] + r[i], h - 1) > arrived[i]) {
        --i;
        continue;
      }
      const int32_t y = next[i]++;
      const bool lastStage = i + 1 == k;
      uint32_t* out = lastStage ? last.data() : padded.data() + r[i + 1] + 1;
      if (y == lo[i + 1]) {
        for (int32_t j = -r[i]; j <= r[i]; ++j) window[j + r[i]] = ringRow(i, std::clamp(y + j, 0, h - 1));
        vertical(sums[i].data(), window.data(), 2 * r[i] + 1, nullptr, nullptr, w, r[i], out, 0);
      } else {
        vertical(sums[i].data(), nullptr, 0, ringRow(i, std::min(y + r[i], h - 1)),
                 ringRow(i, std::max(y - r[i] - 1, 0)), w, r[i], out, 0);
      }
      if (lastStage) {
        chain.finish(chain, y, last.data(), outRow(y), scratch.data());
      } else {
        ++i;
        horizontal(padded.data(), w, r[i], ringRow(i, y));
        arrived[i] = y;
      }
    }
  };
  for (int32_t t = lo[0]; t < hi[0]; ++t) {
    uint32_t* row = k > 0 ? padded.data() + r[0] + 1 : last.data();
    std::memcpy(row, chain.source + std::size_t(t) * w, std::size_t(w) * 4);
    if (chain.premultiply) Premultiply(row, std::size_t(w));
    if (k == 0) {
      chain.finish(chain, t, row, outRow(t), scratch.data());
      continue;
    }
    horizontal(padded.data(), w, r[0], ringRow(0, t));
    arrived[0] = t;
    drain();
  }
  if (!held.pixels.empty()) {
    std::lock_guard<std::mutex> lock(chain.mutex);
    chain.held.push_back(std::move(held));
  }
}

#endif  // TAVORA_FAST_FILTERS

// Runs the chain of box passes with the given radii over the image, or
// returns false when it cannot (a radius beyond the 16-bit sums, or no
// SIMD), leaving the image untouched for the plain passes.
bool RunBoxChain(const uint32_t* source, uint32_t* destination, int32_t width, int32_t height,
                 const std::vector<int32_t>& radii, bool premultiply, FinishRow finish, const void* extra) {
#if defined(TAVORA_FAST_FILTERS)
  if (!FastAllowed() || radii.size() > 3) return false;
  for (int32_t r : radii)
    if (r < 1 || r > kLaneMaxRadius) return false;
  if (width < 1 || height < 1) return true;
  BoxChain chain{source, destination, width, height, int32_t(radii.size()), {}, premultiply, finish, extra, {}, {}};
  std::copy(radii.begin(), radii.end(), chain.radius);
  RowWorkers::Run(height, &BoxChainRows, &chain);
  for (const HeldRows& held : chain.held) {
    const uint32_t* from = held.pixels.data();
    for (int32_t y = held.first; y < held.end; ++y) {
      if (y == held.topEnd) y = held.bottomStart;
      if (y >= held.end) break;
      std::memcpy(destination + std::size_t(y) * width, from, std::size_t(width) * 4);
      from += width;
    }
  }
  return true;
#else
  (void)source, (void)destination, (void)width, (void)height, (void)radii, (void)premultiply, (void)finish,
      (void)extra;
  return false;
#endif
}

// The box radii GaussianBlur runs for this radius, in order.
std::vector<int32_t> GaussianRadii(float radius) {
  std::vector<int32_t> radii;
  for (int32_t box : GaussianBoxes(radius))
    if (box > 2) radii.push_back((box - 1) / 2);
  return radii;
}

}  // namespace

void BoxBlurPass(uint32_t* pixels, int32_t width, int32_t height, int32_t radius) {
  if (radius < 1 || width < 1 || height < 1) return;
  if (RunBoxChain(pixels, pixels, width, height, {radius}, false, &FinishPlain, nullptr)) return;
  BoxPass<uint32_t, 4>(pixels, width, height, radius);
}

void GaussianBlur(uint32_t* pixels, int32_t width, int32_t height, float radius) {
  if (GaussianBoxes(radius).empty()) return;
  const std::vector<int32_t> radii = GaussianRadii(radius);
  if (RunBoxChain(pixels, pixels, width, height, radii, true, &FinishPlain, nullptr)) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  for (int32_t r : radii) BoxPass<uint32_t, 4>(pixels, width, height, r);
  Unpremultiply(pixels, n);
}

void GaussianBlurBytes(uint8_t* bytes, int32_t width, int32_t height, float radius) {
  for (int32_t r : GaussianRadii(radius)) BoxPass<uint8_t, 1>(bytes, width, height, r);
}

int32_t BlurMargin(float firstValue) {
  return static_cast<int32_t>(std::ceil(3.0f * std::max(firstValue, 0.0f))) + 2;
}

void Blur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const int32_t r = static_cast<int32_t>(static_cast<const BlurParams*>(params)->strength + 0.5f);
  if (r <= 0) return;
  if (width < 1 || height < 1) return;
  if (RunBoxChain(pixels, pixels, width, height, {r}, true, &FinishPlain, nullptr)) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  BoxPass<uint32_t, 4>(pixels, width, height, r);
  Unpremultiply(pixels, n);
}

void GaussianBlurOp(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  GaussianBlur(pixels, width, height, static_cast<const GaussianBlurParams*>(params)->radius);
}

namespace {

// Lens Blur, defined once:
// - the disc holds the offsets with dx² + dy² <= r², r the radius rounded to
//   whole pixels, and reads the image with clamp-to-edge;
// - a pixel weighs round(kLensUnit · (1 + glow · l³)), l the luminance of the
//   premultiplied pixel over 255, so highlights spread into bokeh discs;
// - each premultiplied channel is (S + T / 2) / T in whole numbers, S the
//   weighted sum over the disc and T the sum of the weights.
// Whole-number sums do not depend on the order they are taken in, so a disc
// is summed as one span of per-row prefix sums per disc row, and the rows
// can be split over threads without changing a pixel.
constexpr int64_t kLensUnit = 256;
// Far beyond the dialog's 60 and 20, these keep the band's memory modest and
// every span's sum below 2^32, so the prefix sums may wrap around in 32 bits:
// the difference of two entries is still exact.
constexpr float kLensMaxRadius = 250.0f;
constexpr float kLensMaxGlow = 100.0f;
static_assert((2 * 250 + 1) * 255 * kLensUnit * (1 + 100) < (int64_t{1} << 32));
static_assert(int64_t{2 * 250 + 1} * (2 * 250 + 1) * kLensUnit * (1 + 100) < (int64_t{1} << 33));
constexpr int kLensPlanes = 5;  // the four weighted channels, then the weight
// Output rows are made in blocks and chunks of pixels, so that a source
// row's chunk serves every row of the block while it is in the cache.
constexpr int32_t kLensBlock = 16;
constexpr int32_t kLensChunk = 128;

struct LensJob {
  const uint32_t* source;  // premultiplied
  uint32_t* out;
  int32_t width, height, radius;
  const uint32_t* weights;     // by luminance, 256 entries
  const int32_t* halfWidths;   // the disc's half-width at |dy|, r + 1 entries
  // After the span at dy (index dy + r) the 32-bit running sums are moved
  // into the 64-bit totals, before the next span could overflow them.
  const uint8_t* flushAfter;
  Progress* progress;
};

void LensRows(int first, int end, void* context) {
  const auto& j = *static_cast<const LensJob*>(context);
  const int32_t w = j.width, h = j.height, r = j.radius;
  // Each plane of a row: the prefix sums over the row padded with r copies
  // of its edge pixels on both sides.
  const std::size_t len = std::size_t(w) + 2 * std::size_t(r) + 1;
  // The source rows one block reads, kept for as long as it needs them; a
  // window this long never holds two rows with the same slot.
  const int32_t slots = std::min(2 * r + kLensBlock, h);
  std::vector<uint32_t> band(std::size_t(slots) * kLensPlanes * len);
  auto rowPlanes = [&](int32_t sy) { return band.data() + std::size_t(sy % slots) * kLensPlanes * len; };
  auto load = [&](int32_t sy) {
    const uint32_t* src = j.source + std::size_t(sy) * w;
    uint32_t* planes = rowPlanes(sy);
    uint32_t sums[kLensPlanes] = {};
    for (int c = 0; c < kLensPlanes; ++c) planes[c * len] = 0;
    for (int32_t i = 0; i < w + 2 * r; ++i) {
      const uint32_t q = src[std::clamp(i - r, 0, w - 1)];
      const uint32_t weight = j.weights[Lum(q)];
      for (int c = 0; c < 4; ++c) sums[c] += ((q >> (8 * c)) & 255) * weight;
      sums[4] += weight;
      for (int c = 0; c < kLensPlanes; ++c) planes[c * len + i + 1] = sums[c];
    }
  };
  std::vector<uint32_t> running(std::size_t(kLensBlock) * kLensPlanes * kLensChunk);
  std::vector<uint64_t> totals(running.size());
  int32_t loaded = -1;  // the last source row in the band
  for (int32_t y0 = first; y0 < end; y0 += kLensBlock) {
    if (StopRequested(j.progress)) return;
    const int32_t y1 = std::min(y0 + kLensBlock, end);
    const int32_t bottom = std::min(h - 1, y1 - 1 + r);
    for (int32_t sy = std::max(loaded + 1, std::max(0, y0 - r)); sy <= bottom; ++sy) load(sy);
    loaded = bottom;
    for (int32_t x0 = 0; x0 < w; x0 += kLensChunk) {
      const int32_t n = std::min(kLensChunk, w - x0);
      std::fill(running.begin(), running.end(), 0u);
      std::fill(totals.begin(), totals.end(), uint64_t{0});
      for (int32_t t = y0 - r; t < y1 + r; ++t) {
        const uint32_t* planes = rowPlanes(std::clamp(t, 0, h - 1)) + x0 + r;
        for (int32_t y = std::max(y0, t - r); y < std::min(y1, t + r + 1); ++y) {
          const int32_t dy = t - y, half = j.halfWidths[std::abs(dy)];
          uint32_t* sums = running.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
          for (int c = 0; c < kLensPlanes; ++c) {
            // Pixels x - half .. x + half are the padded entries
            // x - half + r .. x + half + r.
            const uint32_t* hi = planes + c * len + half + 1;
            const uint32_t* lo = planes + c * len - half;
            uint32_t* a = sums + c * kLensChunk;
            for (int32_t i = 0; i < n; ++i) a[i] += hi[i] - lo[i];
          }
          if (j.flushAfter[dy + r]) {
            uint64_t* total = totals.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
            for (int32_t i = 0; i < kLensPlanes * kLensChunk; ++i) total[i] += std::exchange(sums[i], 0u);
          }
        }
      }
      for (int32_t y = y0; y < y1; ++y) {
        const uint64_t* total = totals.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
        uint32_t* out = j.out + std::size_t(y) * w + x0;
        for (int32_t i = 0; i < n; ++i) {
          // (S + T / 2) / T with one reciprocal for the four channels
          // instead of four divisions. Exact: the product is within 2^-44
          // of the true quotient (below 256, T below 2^33), and the added
          // half keeps that at least 0.5 / T from the next whole number.
          const uint64_t weight = total[4 * kLensChunk + i];
          const double inverse = 1.0 / double(weight);
          uint32_t v = 0;
          for (int c = 0; c < 4; ++c) {
            const uint64_t s = total[c * kLensChunk + i] + weight / 2;
            v |= uint32_t((double(s) + 0.5) * inverse) << (8 * c);
          }
          out[i] = v;
        }
      }
    }
    Unpremultiply(j.out + std::size_t(y0) * w, std::size_t(y1 - y0) * w);
    if (j.progress) j.progress->Advance(y1 - y0);
  }
}

}  // namespace

void LensBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const LensBlurParams*>(params);
  if (!(p.radius >= 0.5f) || width < 1 || height < 1) return;  // also refuses NaN
  const int32_t r = static_cast<int32_t>(std::min(p.radius, kLensMaxRadius) + 0.5f);
  const double glow = p.glow > 0.0f ? std::min(p.glow, kLensMaxGlow) : 0.0;
  Progress* progress = CurrentProgress();
  if (progress) progress->AddTotal(height);

  uint32_t weights[256];
  for (int32_t lum = 0; lum < 256; ++lum) {
    const double l = lum / 255.0;
    weights[lum] = static_cast<uint32_t>(std::llround(double(kLensUnit) * (1.0 + glow * l * l * l)));
  }
  std::vector<int32_t> halfWidths(std::size_t(r) + 1);
  for (int32_t dy = 0, dx = r; dy <= r; ++dy) {
    while (dx * dx + dy * dy > r * r) --dx;
    halfWidths[dy] = dx;
  }
  // The most a disc row's span can add to a running sum decides how many
  // spans fit in 32 bits before they must move on to the totals.
  auto spanBound = [&](int32_t dy) { return (2 * uint64_t(halfWidths[std::abs(dy)]) + 1) * 255 * weights[255]; };
  std::vector<uint8_t> flushAfter(2 * std::size_t(r) + 1);
  uint64_t bound = 0;
  for (int32_t dy = -r; dy <= r; ++dy) {
    bound += spanBound(dy);
    flushAfter[dy + r] = dy == r || bound + spanBound(dy + 1) > UINT32_MAX;
    if (flushAfter[dy + r]) bound = 0;
  }

  // Only the copy is read, so the output rows can be written as they are done.
  const std::size_t n = std::size_t(width) * std::size_t(height);
  PixelBuffer source = NewPixels(n);
  std::memcpy(source.get(), pixels, n * 4);
  Premultiply(source.get(), n);
  LensJob job{source.get(), pixels, width, height, r, weights, halfWidths.data(), flushAfter.data(), progress};
  RowWorkers::Run(height, &LensRows, &job);
}

namespace {

using Offset = std::pair<int32_t, int32_t>;

struct MotionJob {
  uint32_t* pixels;
  int32_t width, height;
  // The premultiplied pixels, each row with padLeft and padRight copies of
  // its edge pixels around it, so every offset's column lies in the row.
  uint32_t* source;
  std::size_t stride;
  int32_t padLeft, padRight;
  const Offset* offsets;
  int32_t count;
};

void MotionSourceRows(int first, int end, void* context) {
  const auto& j = *static_cast<const MotionJob*>(context);
  for (int32_t y = first; y < end; ++y) {
    uint32_t* row = j.source + std::size_t(y) * j.stride + j.padLeft;
    std::memcpy(row, j.pixels + std::size_t(y) * j.width, std::size_t(j.width) * 4);
    Premultiply(row, std::size_t(j.width));
    std::fill(row - j.padLeft, row, row[0]);
    std::fill(row + j.width, row + j.width + j.padRight, row[j.width - 1]);
  }
}

// Pixel by pixel, as defined: the rounded mean of the samples.
void MotionRowsPlain(int first, int end, void* context) {
  const auto& j = *static_cast<const MotionJob*>(context);
  const uint32_t count = uint32_t(j.count);
  for (int32_t y = first; y < end; ++y) {
    uint32_t* out = j.pixels + std::size_t(y) * j.width;
    for (int32_t x = 0; x < j.width; ++x) {
      uint32_t sum[4] = {0, 0, 0, 0};
      for (int32_t i = 0; i < j.count; ++i) {
        const auto [dx, dy] = j.offsets[i];
        const uint32_t q = j.source[std::size_t(std::clamp(y + dy, 0, j.height - 1)) * j.stride + j.padLeft +
                                    std::clamp(x + dx, 0, j.width - 1)];
        for (int c = 0; c < 4; ++c) sum[c] += (q >> (8 * c)) & 255;
      }
      uint32_t v = 0;
      for (int c = 0; c < 4; ++c) v |= ((sum[c] + count / 2) / count) << (8 * c);
      out[x] = v;
    }
    Unpremultiply(out, std::size_t(j.width));
  }
}

#if defined(TAVORA_FAST_FILTERS)
// Eight pixels at a time in 16-bit lanes: at most 256 samples of 255 plus
// half the count stay below 2^16.
constexpr int32_t kMotionLaneMaxSamples = 256;

void MotionRowsLanes(int first, int end, void* context) {
  const auto& j = *static_cast<const MotionJob*>(context);
  const int32_t w = j.width;
  const LaneDivisor divide(uint32_t(j.count));
  const __m128i half = _mm_set1_epi16(int16_t(j.count / 2));
  std::vector<const uint32_t*> taps(std::size_t(j.count));
  for (int32_t y = first; y < end; ++y) {
    for (int32_t i = 0; i < j.count; ++i) {
      const auto [dx, dy] = j.offsets[i];
      taps[i] = j.source + std::size_t(std::clamp(y + dy, 0, j.height - 1)) * j.stride + j.padLeft + dx;
    }
    uint32_t* out = j.pixels + std::size_t(y) * w;
    auto eight = [&](int32_t x) {
      __m128i s0 = half, s1 = half, s2 = half, s3 = half;
      for (const uint32_t* tap : taps) {
        const __m128i a = LoadFour(tap + x), b = LoadFour(tap + x + 4);
        s0 = _mm_add_epi16(s0, Low16(a));
        s1 = _mm_add_epi16(s1, High16(a));
        s2 = _mm_add_epi16(s2, Low16(b));
        s3 = _mm_add_epi16(s3, High16(b));
      }
      StoreFour(out + x, _mm_packus_epi16(divide(s0), divide(s1)));
      StoreFour(out + x + 4, _mm_packus_epi16(divide(s2), divide(s3)));
    };
    if (w >= 8) {
      int32_t x = 0;
      for (; x + 8 <= w; x += 8) eight(x);
      if (x < w) eight(w - 8);  // the last eight again, overlapping
    } else {
      for (int32_t x = 0; x < w; ++x) {
        __m128i s = half;
        for (const uint32_t* tap : taps) s = _mm_add_epi16(s, Low16(_mm_cvtsi32_si128(int32_t(tap[x]))));
        const __m128i q = divide(s);
        out[x] = uint32_t(_mm_cvtsi128_si32(_mm_packus_epi16(q, q)));
      }
    }
    Unpremultiply(out, std::size_t(w));
  }
}
#endif

#if defined(TAVORA_AVX2_FILTERS)
// Sixteen pixels at a time; rows narrower than that take the SSE2 path.
__attribute__((target("avx2"))) void MotionRowsAvx2(int first, int end, void* context) {
  const auto& j = *static_cast<const MotionJob*>(context);
  const int32_t w = j.width;
  if (w < 16) {
    MotionRowsLanes(first, end, context);
    return;
  }
  __m256i divisor[3];
  SetDivisor16(uint32_t(j.count), divisor);
  const __m256i half = _mm256_set1_epi16(int16_t(j.count / 2)), zero = _mm256_setzero_si256();
  std::vector<const uint32_t*> taps(std::size_t(j.count));
  for (int32_t y = first; y < end; ++y) {
    for (int32_t i = 0; i < j.count; ++i) {
      const auto [dx, dy] = j.offsets[i];
      taps[i] = j.source + std::size_t(std::clamp(y + dy, 0, j.height - 1)) * j.stride + j.padLeft + dx;
    }
    uint32_t* out = j.pixels + std::size_t(y) * w;
    for (int32_t x = 0;; x += 16) {
      x = std::min(x, w - 16);  // the last sixteen again, overlapping
      __m256i s0 = half, s1 = half, s2 = half, s3 = half;
      for (const uint32_t* tap : taps) {
        const __m256i a = Load8(tap + x), b = Load8(tap + x + 8);
        s0 = _mm256_add_epi16(s0, _mm256_unpacklo_epi8(a, zero));
        s1 = _mm256_add_epi16(s1, _mm256_unpackhi_epi8(a, zero));
        s2 = _mm256_add_epi16(s2, _mm256_unpacklo_epi8(b, zero));
        s3 = _mm256_add_epi16(s3, _mm256_unpackhi_epi8(b, zero));
      }
      Store8(out + x, _mm256_packus_epi16(Divide16(s0, divisor), Divide16(s1, divisor)));
      Store8(out + x + 8, _mm256_packus_epi16(Divide16(s2, divisor), Divide16(s3, divisor)));
      if (x + 16 >= w) break;
    }
    Unpremultiply(out, std::size_t(w));
  }
}
#endif

}  // namespace

void MotionBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const MotionBlurParams*>(params);
  const int32_t steps = static_cast<int32_t>(p.distance + 0.5f);
  if (steps <= 0 || width < 1 || height < 1) return;
  // Samples along a line of the given length, centred on the pixel.
  const double a = p.angle * 3.14159265358979323846 / 180.0;
  std::vector<Offset> offsets;
  int32_t minDx = 0, maxDx = 0;
  for (int32_t i = 0; i <= steps; ++i) {
    const double t = i - steps / 2.0;
    offsets.emplace_back(static_cast<int32_t>(std::lround(t * std::cos(a))),
                         static_cast<int32_t>(std::lround(-t * std::sin(a))));
    minDx = std::min(minDx, offsets.back().first);
    maxDx = std::max(maxDx, offsets.back().first);
  }
  // Samples never reach further than the image is wide.
  const int32_t padLeft = std::min(-minDx, width), padRight = std::min(maxDx, width);
  const std::size_t stride = std::size_t(width) + padLeft + padRight;
  PixelBuffer source = NewPixels(stride * std::size_t(height));
  MotionJob job{pixels, width, height, source.get(), stride, padLeft, padRight, offsets.data(),
                static_cast<int32_t>(offsets.size())};
  RowWorkers::Run(height, &MotionSourceRows, &job);
  RowCallback rows = &MotionRowsPlain;
#if defined(TAVORA_FAST_FILTERS)
  if (FastAllowed() && job.count <= kMotionLaneMaxSamples && -minDx <= width && maxDx <= width) {
    rows = &MotionRowsLanes;
#if defined(TAVORA_AVX2_FILTERS)
    if (UseAvx2()) rows = &MotionRowsAvx2;
#endif
  }
#endif
  RowWorkers::Run(height, rows, &job);
}

namespace {

struct SharpenTables {
  double k = 0, t = 0;
  // The sharpened channel by (channel << 8 | blurred channel) for the whole amount.
  uint8_t full[256 * 256];
  // By the sum of the three channel differences, when there is a threshold:
  // 0 leaves the pixel, 1 takes `scaled` as the amount, 2 the whole amount.
  uint8_t kind[3 * 255 + 1];
  double scaled[3 * 255 + 1];
};

uint32_t SharpenChannel(uint32_t c, uint32_t b, double kk) {
  const double v = c + (double(c) - double(b)) * kk;
  return uint32_t(v < 0 ? 0 : v > 255 ? 255 : static_cast<int32_t>(v + 0.5));
}

void FillSharpenTables(const SharpenParams& p, SharpenTables& tables) {
  tables.k = p.amount / 100.0 * 0.6;
  tables.t = p.threshold;
  for (uint32_t c = 0; c < 256; ++c)
    for (uint32_t b = 0; b < 256; ++b) tables.full[c << 8 | b] = uint8_t(SharpenChannel(c, b, tables.k));
  const double t = tables.t;
  for (int32_t sum = 0; sum <= 3 * 255; ++sum) {
    double d = sum;
    d /= 3;
    tables.kind[sum] = d <= t / 2 ? 0 : d < t ? 1 : 2;
    tables.scaled[sum] = tables.k * (d - t / 2) / (t - t / 2);
  }
}

uint32_t SharpenWhole(uint32_t c, uint32_t b, const SharpenTables& tables) {
  return (c & 0xFF000000u) | uint32_t(tables.full[(c >> 8 & 0xFF00) | (b >> 16 & 255)]) << 16 |
         uint32_t(tables.full[(c & 0xFF00) | (b >> 8 & 255)]) << 8 | tables.full[(c & 255) << 8 | (b & 255)];
}

void FinishSharpen(const BoxChain& chain, int32_t y, const uint32_t* blurred, uint32_t* out, uint32_t* scratch) {
  const auto& tables = *static_cast<const SharpenTables*>(chain.extra);
  const std::size_t w = std::size_t(chain.width);
  if (chain.premultiply) {
    std::memcpy(scratch, blurred, w * 4);
    Unpremultiply(scratch, w);
    blurred = scratch;
  }
  const uint32_t* original = chain.source + std::size_t(y) * w;
  if (tables.t <= 0) {
    for (std::size_t x = 0; x < w; ++x) out[x] = SharpenWhole(original[x], blurred[x], tables);
    return;
  }
  // With a threshold, the pixels in its soft band are done after the rest,
  // so the common cases run without hard-to-predict branches; they keep
  // their own colour in `out` until then.
  uint32_t* soft = scratch + w;
  std::size_t softCount = 0;
  for (std::size_t x = 0; x < w; ++x) {
    const uint32_t c = original[x], b = blurred[x];
    int32_t sum = 0;
    for (int s = 0; s < 24; s += 8) sum += std::abs(int32_t((c >> s) & 255) - int32_t((b >> s) & 255));
    const uint8_t kind = tables.kind[sum];
    const uint32_t whole = SharpenWhole(c, b, tables);
    out[x] = kind == 2 ? whole : c;
    soft[softCount] = uint32_t(x);
    softCount += kind == 1;
  }
  for (std::size_t i = 0; i < softCount; ++i) {
    const uint32_t x = soft[i], c = out[x], b = blurred[x];
    int32_t sum = 0;
    for (int s = 0; s < 24; s += 8) sum += std::abs(int32_t((c >> s) & 255) - int32_t((b >> s) & 255));
    uint32_t v = c & 0xFF000000u;
    for (int s = 0; s < 24; s += 8) v |= SharpenChannel((c >> s) & 255, (b >> s) & 255, tables.scaled[sum]) << s;
    out[x] = v;
  }
}

}  // namespace

void Sharpen(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const SharpenParams*>(params);
  if (width < 1 || height < 1) return;
  // The blur and the sharpening in one sweep, from tables of the same sums.
  auto tables = std::make_unique<SharpenTables>();
  FillSharpenTables(p, *tables);
  const bool blurs = !GaussianBoxes(p.radius).empty();
  if (RunBoxChain(pixels, pixels, width, height, blurs ? GaussianRadii(p.radius) : std::vector<int32_t>{}, blurs,
                  &FinishSharpen, tables.get()))
    return;

  const std::size_t n = std::size_t(width) * std::size_t(height);
  PixelBuffer blurred = NewPixels(n);
  std::memcpy(blurred.get(), pixels, n * 4);
  GaussianBlur(blurred.get(), width, height, p.radius);
  const double k = p.amount / 100.0 * 0.6;
  const double t = p.threshold;
  for (std::size_t i = 0; i < n; ++i) {
    const uint32_t c = pixels[i], b = blurred[i];
    double kk = k;
    if (t > 0) {
      double d = 0;
      for (int s = 0; s < 24; s += 8) d += std::abs(int32_t((c >> s) & 255) - int32_t((b >> s) & 255));
      d /= 3;
      if (d <= t / 2) continue;
      if (d < t) kk = k * (d - t / 2) / (t - t / 2);
    }
    uint32_t out = c & 0xFF000000u;
    for (int s = 0; s < 24; s += 8) {
      const double v = ((c >> s) & 255) + (double((c >> s) & 255) - double((b >> s) & 255)) * kk;
      const int32_t iv = v < 0 ? 0 : v > 255 ? 255 : static_cast<int32_t>(v + 0.5);
      out |= uint32_t(iv) << s;
    }
    pixels[i] = out;
  }
}

namespace {

constexpr uint32_t kNoiseStart = 0x92D68CA2u;  // the same noise on every run

uint32_t XorShift(uint32_t s) {
  s ^= s << 13;
  s ^= s >> 17;
  s ^= s << 5;
  return s;
}

// xorshift is linear on the 32 bits of its state, so k steps are one 32 x 32
// bit matrix, the step's k-th power: a band of rows can start from the state
// the single sequence would have reached by then.
struct BitMatrix {
  uint32_t column[32];  // the image of bit i
};

uint32_t Apply(const BitMatrix& m, uint32_t v) {
  uint32_t out = 0;
  for (int i = 0; i < 32; ++i)
    if (v >> i & 1) out ^= m.column[i];
  return out;
}

uint32_t SkipNoise(uint32_t state, uint64_t steps) {
  BitMatrix power;
  for (int i = 0; i < 32; ++i) power.column[i] = XorShift(1u << i);
  while (steps) {
    if (steps & 1) state = Apply(power, state);
    BitMatrix square;
    for (int i = 0; i < 32; ++i) square.column[i] = Apply(power, power.column[i]);
    power = square;
    steps >>= 1;
  }
  return state;
}

struct NoiseSource {
  uint32_t state;
  int32_t amp;
  bool gaussian;
  // v mod (2 amp + 1) by multiplication: with M = floor((2^64 - 1) / d) + 1,
  // the low 64 bits of M v times d, shifted down 64, is the remainder for
  // every 32-bit v and d (Lemire, Kaser and Kurz, 2019).
  uint64_t inverse;
  uint32_t span;

  NoiseSource(uint32_t start, int32_t amplitude, bool isGaussian)
      : state(start), amp(amplitude), gaussian(isGaussian), span(uint32_t(2 * amplitude + 1)) {
    inverse = UINT64_MAX / span + 1;
  }
  uint32_t Next() { return state = XorShift(state); }
  int32_t Value() {
    if (!gaussian) {
      const uint64_t low = inverse * Next();
      return static_cast<int32_t>((static_cast<unsigned __int128>(low) * span) >> 64) - amp;
    }
    const double u1 = Next(), u2 = Next();
    const double g = std::sqrt(-2.0 * std::log((u1 + 1) / 4294967297.0)) *
                     std::cos(2 * 3.14159265358979323846 * (u2 + 1) / 4294967297.0);
    return static_cast<int32_t>(std::floor(g * amp * 0.5 + 0.5));
  }
};

void AddNoiseTo(uint32_t* pixels, std::size_t n, bool monochromatic, NoiseSource& noise) {
  for (std::size_t i = 0; i < n; ++i) {
    const uint32_t px = pixels[i];
    if (!(px >> 24)) continue;
    const int32_t r = noise.Value();
    const int32_t g = monochromatic ? r : noise.Value();
    const int32_t b = monochromatic ? r : noise.Value();
    const int32_t c[3] = {int32_t((px >> 16) & 255) + r, int32_t((px >> 8) & 255) + g, int32_t(px & 255) + b};
    pixels[i] = (px & 0xFF000000u) | uint32_t(std::clamp(c[0], 0, 255)) << 16 |
                uint32_t(std::clamp(c[1], 0, 255)) << 8 | uint32_t(std::clamp(c[2], 0, 255));
  }
}

}  // namespace

void AddNoise(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const AddNoiseParams*>(params);
  const int32_t amp = ((p.amount * 255 / 100) * 6) / 10;
  if (amp <= 0 || width < 1 || height < 1) return;
  if (!FastAllowed()) {
    NoiseSource noise(kNoiseStart, amp, p.gaussian);
    AddNoiseTo(pixels, std::size_t(width) * std::size_t(height), p.monochromatic, noise);
    return;
  }
  // One pixel that is not transparent draws this many states.
  const uint64_t draws = (p.monochromatic ? 1 : 3) * (p.gaussian ? 2 : 1);
  std::vector<uint32_t> drawing(std::size_t(height), 0);
  auto count = [&](int first, int end) {
    for (int32_t y = first; y < end; ++y) {
      const uint32_t* row = pixels + std::size_t(y) * width;
      for (int32_t x = 0; x < width; ++x) drawing[y] += (row[x] >> 24) != 0;
    }
  };
  RowWorkers::Run(height, count);
  auto rows = [&](int first, int end) {
    uint64_t before = 0;
    for (int32_t y = 0; y < first; ++y) before += drawing[y];
    NoiseSource noise(SkipNoise(kNoiseStart, before * draws), amp, p.gaussian);
    AddNoiseTo(pixels + std::size_t(first) * width, std::size_t(end - first) * width, p.monochromatic, noise);
  };
  RowWorkers::Run(height, rows);
}

void Pixelate(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const int32_t b = std::clamp(static_cast<const PixelateParams*>(params)->blockSize, 1, 512);
  // Each worker takes whole rows of blocks.
  auto blockRows = [&](int firstBlock, int endBlock) {
    for (int32_t by = firstBlock * b; by < std::min(height, endBlock * b); by += b) {
      for (int32_t bx = 0; bx < width; bx += b) {
        const int32_t x1 = std::min(bx + b, width), y1 = std::min(by + b, height);
        uint64_t sa = 0, sc[3] = {0, 0, 0};
        for (int32_t y = by; y < y1; ++y)
          for (int32_t x = bx; x < x1; ++x) {
            const uint32_t p = pixels[std::size_t(y) * width + x], a = p >> 24;
            sa += a;
            sc[0] += uint64_t(a) * ((p >> 16) & 255);
            sc[1] += uint64_t(a) * ((p >> 8) & 255);
            sc[2] += uint64_t(a) * (p & 255);
          }
        const uint64_t count = uint64_t(x1 - bx) * uint64_t(y1 - by);
        const uint32_t colour = sa ? uint32_t(sa / count) << 24 | uint32_t(sc[0] / sa) << 16 |
                                         uint32_t(sc[1] / sa) << 8 | uint32_t(sc[2] / sa)
                                   : 0u;
        for (int32_t y = by; y < y1; ++y) std::fill_n(pixels + std::size_t(y) * width + bx, x1 - bx, colour);
      }
    }
  };
  if (width < 1 || height < 1) return;
  RowWorkers::Run((height + b - 1) / b, blockRows);
}

namespace {

// 3 x 3 neighbourhoods of luminance with clamp-to-edge, written as grey.
template <typename Kernel>
void LuminanceFilter(uint32_t* pixels, int32_t width, int32_t height, Kernel kernel) {
  if (width < 1 || height < 1) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  std::unique_ptr<uint8_t[], FreeDeleter> lum(static_cast<uint8_t*>(CheckedAlloc(n)));
  auto luminance = [&](int first, int end) {
    for (std::size_t i = std::size_t(first) * width; i < std::size_t(end) * width; ++i)
      lum[i] = static_cast<uint8_t>(Lum(pixels[i]));
  };
  RowWorkers::Run(height, luminance);
  auto rows = [&](int first, int end) {
    for (int32_t y = first; y < end; ++y) {
      const uint8_t* above = lum.get() + std::size_t(std::max(y - 1, 0)) * width;
      const uint8_t* here = lum.get() + std::size_t(y) * width;
      const uint8_t* below = lum.get() + std::size_t(std::min(y + 1, height - 1)) * width;
      uint32_t* out = pixels + std::size_t(y) * width;
      for (int32_t x = 0; x < width; ++x) {
        const int32_t l = std::max(x - 1, 0), r = std::min(x + 1, width - 1);
        const int32_t v[3][3] = {{above[l], above[x], above[r]}, {here[l], here[x], here[r]}, {below[l], below[x], below[r]}};
        const uint32_t g = static_cast<uint32_t>(kernel(v));
        out[x] = (out[x] & 0xFF000000u) | g << 16 | g << 8 | g;
      }
    }
  };
  RowWorkers::Run(height, rows);
}

}  // namespace

void Emboss(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  LuminanceFilter(pixels, width, height, [](const int32_t (&v)[3][3]) {
    const int32_t s = -2 * v[0][0] - v[0][1] - v[1][0] + v[1][1] + v[1][2] + v[2][1] + 2 * v[2][2];
    return std::clamp(s + 128, 0, 255);
  });
}

void EdgeDetect(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  LuminanceFilter(pixels, width, height, [](const int32_t (&v)[3][3]) {
    const int32_t gx = (v[0][2] + 2 * v[1][2] + v[2][2]) - (v[0][0] + 2 * v[1][0] + v[2][0]);
    const int32_t gy = (v[2][0] + 2 * v[2][1] + v[2][2]) - (v[0][0] + 2 * v[0][1] + v[0][2]);
    return std::min(255, static_cast<int32_t>(std::sqrt(double(gx * gx + gy * gy))));
  });
}

}  // namespace tavora
