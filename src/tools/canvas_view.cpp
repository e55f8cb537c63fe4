#include "tools/canvas_view.h"

#include <emmintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "base/row_workers.h"

namespace tavora {
namespace {

int32_t Trunc(double v) { return static_cast<int32_t>(v); }

int32_t AxisOrigin(int32_t client, int32_t image, double scale, int32_t scroll) {
  const double extent = image * scale;
  if (client >= extent) return static_cast<int32_t>(std::lround((client - extent) / 2));
  return -scroll;
}

int32_t MaxScroll(int32_t client, int32_t image, double scale) {
  const double over = image * scale - client;
  return over > 0 ? Trunc(over) : 0;
}

// The checkerboard cell under device pixel (x, y): fixed to the window.
uint32_t CheckerGrey(int32_t x, int32_t y, int32_t cell) {
  return ((x / cell + y / cell) & 1) ? 153 : 204;
}

uint32_t OverGrey(uint32_t c, uint32_t grey) {
  const uint32_t a = c >> 24;
  if (a == 255) return c;
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    const uint32_t v = ((c >> shift) & 255) * a + grey * (255 - a);
    out |= (v / 255) << shift;
  }
  return out;
}

uint32_t OverCheckerboard(uint32_t c, int32_t x, int32_t y, int32_t cell) {
  return OverGrey(c, CheckerGrey(x, y, cell));
}

// Where a device column or row samples the image: the nearest pixel, and
// the two bilinear neighbours with the 8-bit weight of the second.
struct AxisSample {
  int32_t nearest = -1;  // -1 outside the image
  int32_t lo = 0, hi = 0;
  uint32_t weight = 0;
};

AxisSample SampleAxis(int32_t device, int32_t origin, double scale, int32_t extent) {
  AxisSample a;
  const double i = (device + 0.5 - origin) / scale;
  if (i < 0 || i >= extent) return a;
  a.nearest = std::min(static_cast<int32_t>(std::floor(i)), extent - 1);
  const double f = i - 0.5;
  const double fl = std::floor(f);
  a.weight = static_cast<uint32_t>((f - fl) * 256);
  a.lo = std::clamp(static_cast<int32_t>(fl), 0, extent - 1);
  a.hi = std::clamp(static_cast<int32_t>(fl) + 1, 0, extent - 1);
  return a;
}

uint32_t SampleBilinear(const Surface& img, const AxisSample& ax, const AxisSample& ay, bool& empty) {
  const uint32_t wx = ax.weight, wy = ay.weight;
  const uint32_t p[4] = {img.At(ax.lo, ay.lo), img.At(ax.hi, ay.lo), img.At(ax.lo, ay.hi),
                         img.At(ax.hi, ay.hi)};
  const uint32_t wt[4] = {(256 - wx) * (256 - wy), wx * (256 - wy), (256 - wx) * wy, wx * wy};
  if ((p[0] & p[1] & p[2] & p[3]) >> 24 == 255) {
    uint32_t out = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) {
      uint64_t sum = 0;
      for (int i = 0; i < 4; ++i) sum += uint64_t((p[i] >> shift) & 255) * wt[i];
      out |= static_cast<uint32_t>(std::min<uint64_t>(sum >> 16, 255)) << shift;
    }
    return out;
  }
  uint64_t total = 0;
  for (int i = 0; i < 4; ++i) total += uint64_t(p[i] >> 24) * wt[i];
  if (total == 0) {
    empty = true;
    return 0;
  }
  uint32_t out = static_cast<uint32_t>(std::min<uint64_t>(total >> 16, 255)) << 24;
  for (int shift = 0; shift < 24; shift += 8) {
    uint64_t sum = 0;
    for (int i = 0; i < 4; ++i) sum += uint64_t((p[i] >> shift) & 255) * (p[i] >> 24) * wt[i];
    out |= static_cast<uint32_t>(std::min<uint64_t>(sum / total, 255)) << shift;
  }
  return out;
}

// The source box a device column or row averages when zoomed out, and the
// stride that keeps it to about three samples.
struct AreaSpan {
  int32_t from = 0, to = 0, stride = 1;
};

AreaSpan AreaAxis(double device, double scale, int32_t extent) {
  AreaSpan a;
  a.from = std::clamp(static_cast<int32_t>(std::floor(device / scale)), 0, extent - 1);
  a.to = std::clamp(static_cast<int32_t>(std::ceil((device + 1) / scale)), a.from + 1, extent);
  a.stride = std::max((a.to - a.from) / 3, 1);
  return a;
}

uint32_t SampleArea(const Surface& img, const AreaSpan& ax, const AreaSpan& ay) {
  uint32_t sumA = 0, count = 0;
  uint64_t sumC[3] = {0, 0, 0};
  for (int32_t y = ay.from; y < ay.to; y += ay.stride) {
    const uint32_t* row = img.Row(y);
    for (int32_t x = ax.from; x < ax.to; x += ax.stride) {
      const uint32_t p = row[x], a = p >> 24;
      sumA += a;
      sumC[0] += (p & 255) * a;
      sumC[1] += ((p >> 8) & 255) * a;
      sumC[2] += ((p >> 16) & 255) * a;
      ++count;
    }
  }
  if (sumA == 0) return 0;
  // Colours weighted by alpha; alpha itself is the plain mean.
  return (sumA / count) << 24 | static_cast<uint32_t>(sumC[2] / sumA) << 16 |
         static_cast<uint32_t>(sumC[1] / sumA) << 8 | static_cast<uint32_t>(sumC[0] / sumA);
}

struct RenderJob {
  const CanvasRender* render;
  Rect area;
  SampleMode mode;
  std::vector<AxisSample> columns;  // one per device column of the area
  std::vector<AreaSpan> areaColumns;  // the same, when zoomed out
};

// The plain pass: every device pixel on its own, straight from the sampling
// rules. It serves the images the fast pass does not take.
void RenderRowsPlain(int first, int end, void* context) {
  const RenderJob& job = *static_cast<const RenderJob*>(context);
  const CanvasRender& r = *job.render;
  const Rect& area = job.area;
  const Surface& img = *r.image;
  const CanvasLayout& L = r.layout;
  const double s = L.scale;
  const int32_t w = img.Width(), h = img.Height();
  const int32_t cell = std::max(1, static_cast<int32_t>(8 * r.dpiScale));
  const SelectionMask* sel = r.selection;
  auto imageX = [&](double x) { return static_cast<int32_t>(std::floor((x - L.originX) / s)); };
  auto imageY = [&](double y) { return static_cast<int32_t>(std::floor((y - L.originY) / s)); };
  auto selected = [&](int32_t ix, int32_t iy) { return sel->At(ix, iy) >= 128; };
  for (int row = first; row < end; ++row) {
    const int32_t y = area.y0 + row;
    uint32_t* out = r.target + std::size_t(y) * std::size_t(r.targetStride);
    const AxisSample ay = SampleAxis(y, L.originY, s, h);
    const AreaSpan areaY =
        job.mode == SampleMode::AreaAverage ? AreaAxis(y - L.originY, s, h) : AreaSpan{};
    const int32_t py = ay.nearest;
    const int32_t by = sel ? imageY(y + 1.5) : 0;
    const int32_t ty = sel ? imageY(y - 0.5) : 0;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const AxisSample& ax = job.columns[std::size_t(x - area.x0)];
      const int32_t px = ax.nearest;
      if (px < 0 || py < 0) {
        out[x] = r.background;
        continue;
      }
      uint32_t c;
      bool empty = false;
      switch (job.mode) {
        case SampleMode::Nearest: c = img.Row(py)[px]; break;
        case SampleMode::Bilinear: c = SampleBilinear(img, ax, ay, empty); break;
        default: c = SampleArea(img, job.areaColumns[std::size_t(x - area.x0)], areaY); break;
      }
      out[x] = OverCheckerboard(empty ? 0 : c, x, y, cell);
      if (sel) {
        // Static 4-pixel dashes where the selection bit changes to the right
        // or below, or where a selected pixel meets any edge of the image
        // (the left and top edges too, so a selection of everything shows
        // all four sides).
        const bool here = selected(px, py);
        const int32_t rx = imageX(x + 1.5);
        const bool rightInside = rx < w, belowInside = by < h;
        const bool edge = (rightInside ? selected(rx, py) != here : here) ||
                          (belowInside ? selected(px, by) != here : here) ||
                          (here && (imageX(x - 0.5) < 0 || ty < 0));
        if (edge) out[x] = ((x + y) & 4) ? 0xFF000000u : 0xFFFFFFFFu;
      }
    }
  }
}


// ------------------------------------------------------------ the fast pass
//
// The same integer sums as the plain pass, organised per row: each column's
// sampling comes from tables built once per frame, the surround is filled in
// runs, and SSE2 works on the four channels side by side.

std::atomic<bool> g_fastAllowed{true};

// A bilinear column as two adjacent source pixels from `base` with weights
// w0 + w1 = 256. Where both neighbours clamp to the same edge pixel, that
// pixel takes the whole 256 and its neighbour 0: the sums are unchanged and
// two pixels can always be read at once (so the image is at least 2 wide).
struct PairColumn {
  int32_t base = 0;
  uint16_t w0 = 256, w1 = 0;
};

PairColumn PairFor(const AxisSample& a, int32_t extent) {
  if (a.hi == a.lo + 1)
    return {a.lo, static_cast<uint16_t>(256 - a.weight), static_cast<uint16_t>(a.weight)};
  if (a.lo + 1 < extent) return {a.lo, 256, 0};
  return {a.lo - 1, 0, 256};
}

// An area-average column: its box, and the first four pixels it samples in
// a row as offsets (unused ones repeat the first), read at once when they
// are four neighbours; a box five wide has its fifth pixel next to them.
struct AreaColumn {
  AreaSpan span;
  int32_t samples = 0;      // pixels sampled per row
  int32_t at[4] = {};
  bool contiguous = false;  // at[0] .. at[0] + 3 all lie in the row
  bool vector = false;      // the shapes above cover the box
};

struct FastJob {
  const CanvasRender* render = nullptr;
  Rect area;
  SampleMode mode = SampleMode::Nearest;
  int32_t inX0 = 0, inX1 = 0;  // the device columns that show the image
  bool oneToOne = false;       // they show consecutive image columns
  // Per column of [inX0, inX1):
  std::vector<int32_t> nearest;
  std::vector<PairColumn> pairs;           // bilinear
  std::vector<AreaColumn> spans;           // area average
  std::vector<uint32_t> greys[2];          // checkerboard, rows of even and odd cell
  std::vector<int32_t> leftOf, rightOf;    // selection: image x half a pixel either side
};

inline __m128i Widen(__m128i v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }

// Colours times alpha, and alpha itself (times 1) in the last lane, for
// pixels widened to 16-bit lanes; every product fits 16 bits.
inline __m128i TimesAlpha(__m128i p) {
  const __m128i colourLanes = _mm_set_epi16(0, -1, -1, -1, 0, -1, -1, -1);
  const __m128i alphaOne = _mm_set_epi16(1, 0, 0, 0, 1, 0, 0, 0);
  const __m128i a = _mm_shufflehi_epi16(_mm_shufflelo_epi16(p, 0xFF), 0xFF);
  return _mm_mullo_epi16(p, _mm_or_si128(_mm_and_si128(a, colourLanes), alphaOne));
}

// The bilinear weights of a column pair for 16-bit lanes: w0 for the four
// channels of the left pixel, w1 for the right.
inline __m128i PairWeights(PairColumn c) {
  const __m128i w = _mm_shufflelo_epi16(_mm_cvtsi32_si128(c.w0 | c.w1 << 16), 0x50);  // w0 w0 w1 w1
  return _mm_unpacklo_epi16(w, w);
}

// One row of the general bilinear sum: colour x alpha x weight per channel,
// alpha x weight in the last lane, both pixels added (each below 2^24).
inline __m128i MixedRowSums(__m128i pair, __m128i weights) {
  const __m128i ca = TimesAlpha(Widen(pair));
  const __m128i lo = _mm_mullo_epi16(ca, weights), hi = _mm_mulhi_epu16(ca, weights);
  return _mm_add_epi32(_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi));
}

// The general bilinear sum for neighbours that are not all opaque: each
// row's pair weighted and added in 32-bit lanes, then the row weights and
// the division in double, where every sum (below 2^32) is exact and a
// quotient that is not a whole number stays at least 1 / total (> 2^-24)
// away from one, far more than the rounding; so truncation gives exactly
// the integer division.
uint32_t BilinearMixed(__m128i top, __m128i bottom, PairColumn c, uint32_t wy) {
  const __m128i weights = PairWeights(c);
  const __m128i t = MixedRowSums(top, weights), b = MixedRowSums(bottom, weights);
  const __m128d wt = _mm_set1_pd(256.0 - wy), wb = _mm_set1_pd(wy);
  // Lanes: blue and green, then red and the total of alpha x weight.
  const __m128d bg = _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(t), wt), _mm_mul_pd(_mm_cvtepi32_pd(b), wb));
  const __m128d ra = _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(t, 0x0E)), wt),
                                _mm_mul_pd(_mm_cvtepi32_pd(_mm_shuffle_epi32(b, 0x0E)), wb));
  const __m128d total = _mm_unpackhi_pd(ra, ra);
  if (_mm_cvtsd_f64(total) == 0) return 0;
  const __m128i qbg = _mm_cvttpd_epi32(_mm_div_pd(bg, total));
  const __m128i qra = _mm_cvttpd_epi32(_mm_div_pd(ra, _mm_unpacklo_pd(total, _mm_set_sd(65536.0))));
  __m128i v = _mm_unpacklo_epi64(qbg, qra);
  v = _mm_packs_epi32(v, v);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
}

// Opaque neighbours are mixed rows first, then columns: 16-bit lanes up to
// the column products, which take 32. The sums are exact integers, so the
// order does not change them; the result is below 256 without clamping.
void BilinearSpan(const uint32_t* row0, const uint32_t* row1, uint32_t wy, const PairColumn* cols,
                  int32_t n, uint32_t* out) {
  const __m128i wTop = _mm_set1_epi16(static_cast<int16_t>(256 - wy));
  const __m128i wBottom = _mm_set1_epi16(static_cast<int16_t>(wy));
  const __m128i ones = _mm_set1_epi8(-1), zero = _mm_setzero_si128();
  for (int32_t i = 0; i < n; ++i) {
    const PairColumn c = cols[i];
    const __m128i top = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row0 + c.base));
    const __m128i bottom = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row1 + c.base));
    // Bytes 3 and 7 are the alphas of the two columns.
    if ((_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(top, bottom), ones)) & 0x88) != 0x88) {
      // All four clear: no weight at all, the checkerboard shows.
      const bool clear = (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_or_si128(top, bottom), zero)) & 0x88) == 0x88;
      out[i] = clear ? 0 : BilinearMixed(top, bottom, c, wy);
      continue;
    }
    const __m128i v = _mm_add_epi16(_mm_mullo_epi16(Widen(top), wTop), _mm_mullo_epi16(Widen(bottom), wBottom));
    const __m128i w = PairWeights(c);
    const __m128i lo = _mm_mullo_epi16(v, w), hi = _mm_mulhi_epu16(v, w);
    __m128i sum = _mm_add_epi32(_mm_unpacklo_epi16(lo, hi), _mm_unpackhi_epi16(lo, hi));
    sum = _mm_srli_epi32(sum, 16);
    sum = _mm_packs_epi32(sum, sum);
    out[i] = static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(sum, sum)));
  }
}

// The general area result from the sums of colour x alpha and of alpha. The
// divisions are done in float as (n + 0.5) / d: n < 2^23 and d < 2^15 here
// (at most 5 x 5 samples), so the rounding error stays far below the 0.5 / d
// gap to the next integer and truncation gives exactly n / d.
// The alpha sum must not be 0. The divisors stay in vector registers, as
// this ends a long chain of dependent steps per pixel.
uint32_t AreaFinish(__m128i sums, int32_t count) {
  const __m128i colourLanes = _mm_set_epi32(0, -1, -1, -1);
  const __m128i divisors = _mm_or_si128(_mm_and_si128(_mm_shuffle_epi32(sums, 0xFF), colourLanes),
                                        _mm_slli_si128(_mm_cvtsi32_si128(count), 12));
  const __m128 q = _mm_div_ps(_mm_add_ps(_mm_cvtepi32_ps(sums), _mm_set1_ps(0.5f)), _mm_cvtepi32_ps(divisors));
  __m128i v = _mm_cvttps_epi32(q);
  v = _mm_packs_epi32(v, v);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
}

// 1 / d in float for every alpha sum of a box of at most 5 x 5 samples.
inline constexpr int32_t kMaxAlphaSum = 25 * 255;
struct Reciprocals {
  float of[kMaxAlphaSum + 1] = {};
  constexpr Reciprocals() {
    for (int32_t d = 1; d <= kMaxAlphaSum; ++d) of[d] = 1.0f / static_cast<float>(d);
  }
};
inline constexpr Reciprocals kReciprocals;

// AreaFinish for boxes of at most 5 x 5 samples, with the divisions as
// (n + 0.5) x (1 / d): both roundings together stay below 2^-23 of a
// quotient of at most 255.5, so below 3.1e-5, while (n + 0.5) / d lies at
// least 0.5 / d >= 7.8e-5 from an integer; truncation gives n / d exactly
// (also checked for every n <= 255 d). sumA is the alpha lane, not 0.
uint32_t AreaFinishSmall(__m128i sums, int32_t sumA, int32_t count) {
  const float r = kReciprocals.of[sumA];
  const __m128 q = _mm_mul_ps(_mm_add_ps(_mm_cvtepi32_ps(sums), _mm_set1_ps(0.5f)),
                              _mm_set_ps(kReciprocals.of[count], r, r, r));
  __m128i v = _mm_cvttps_epi32(q);
  v = _mm_packs_epi32(v, v);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
}

// The general area sum over any box, one sample at a time.
uint32_t AreaMixed(const Surface& img, const AreaSpan& ry, const AreaSpan& c, int32_t count) {
  const __m128i zero = _mm_setzero_si128();
  __m128i acc = zero;
  for (int32_t y = ry.from; y < ry.to; y += ry.stride) {
    const uint32_t* row = img.Row(y);
    for (int32_t x = c.from; x < c.to; x += c.stride)
      acc = _mm_add_epi32(acc, _mm_unpacklo_epi16(TimesAlpha(Widen(_mm_cvtsi32_si128(static_cast<int32_t>(row[x])))), zero));
  }
  return _mm_cvtsi128_si32(_mm_shuffle_epi32(acc, 0xFF)) == 0 ? 0 : AreaFinish(acc, count);
}

inline constexpr int32_t kPackedRows = 5;  // the most rows (and columns) a box samples

// Up to four sampled pixels of a column in one row as a vector, the unused
// lanes cleared.
inline __m128i RowPixels(const uint32_t* row, const AreaColumn& c) {
  alignas(16) static constexpr uint32_t kMasks[5][4] = {
      {0, 0, 0, 0}, {~0u, 0, 0, 0}, {~0u, ~0u, 0, 0}, {~0u, ~0u, ~0u, 0}, {~0u, ~0u, ~0u, ~0u}};
  const __m128i v = c.contiguous ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + c.at[0]))
                                 : _mm_set_epi32(static_cast<int32_t>(row[c.at[3]]), static_cast<int32_t>(row[c.at[2]]),
                                                 static_cast<int32_t>(row[c.at[1]]), static_cast<int32_t>(row[c.at[0]]));
  return _mm_and_si128(v, _mm_load_si128(reinterpret_cast<const __m128i*>(kMasks[std::min(c.samples, 4)])));
}

// Colour x alpha per channel (in 32-bit lanes) of four pixels: each
// channel of two pixels side by side, so one multiply-add gives
// c0 a0 + c1 a1. Cleared lanes add 0; the alpha lane is left to the caller.
inline __m128i WeightedSums(__m128i px) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i pe = _mm_shuffle_epi32(px, _MM_SHUFFLE(3, 1, 2, 0));  // pixels 0 2 1 3
  const __m128i pairs = _mm_unpacklo_epi8(pe, _mm_srli_si128(pe, 8));  // 0 1 by channel, then 2 3
  const __m128i lo = _mm_unpacklo_epi8(pairs, zero), hi = _mm_unpackhi_epi8(pairs, zero);
  return _mm_add_epi32(_mm_madd_epi16(lo, _mm_shuffle_epi32(lo, 0xFF)),
                       _mm_madd_epi16(hi, _mm_shuffle_epi32(hi, 0xFF)));
}

// m = ceil(65536 / count) where (sum x m) >> 16 is exact (see AreaSpanRow).
inline constexpr uint16_t kAreaMagic[26] = {0,    0,    32768, 21846, 16384, 13108, 10923, 9363, 8192,
                                            7282, 6554, 5958,  5462,  5042,  4682,  4370,  4096, 0,
                                            3641, 0,    3277,  3121,  2979,  0,     2731,  0};

// The mean of opaque pixels from their channel sums (the low four lanes).
inline uint32_t AreaOpaqueMean(__m128i acc, int32_t count) {
  __m128i v;
  if (kAreaMagic[count]) {
    v = _mm_mulhi_epu16(acc, _mm_set1_epi16(static_cast<int16_t>(kAreaMagic[count])));
  } else {
    const __m128 sums = _mm_cvtepi32_ps(_mm_unpacklo_epi16(acc, _mm_setzero_si128()));
    const __m128 q = _mm_mul_ps(_mm_add_ps(sums, _mm_set1_ps(0.5f)), _mm_set1_ps(1.0f / static_cast<float>(count)));
    v = _mm_cvttps_epi32(q);
    v = _mm_packs_epi32(v, v);
  }
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(v, v)));
}

// The area average of a box's `count` pixels held in kVectors vectors, the
// unused lanes cleared; see AreaSpanRow for the sums.
template <int kVectors>
[[gnu::always_inline]] inline uint32_t AreaOfVectors(const __m128i (&px)[kVectors], int32_t count) {
  const __m128i zero = _mm_setzero_si128();
  __m128i acc = zero;
  for (const __m128i& p : px)
    acc = _mm_add_epi16(acc, _mm_add_epi16(_mm_unpacklo_epi8(p, zero), _mm_unpackhi_epi8(p, zero)));
  acc = _mm_add_epi16(acc, _mm_srli_si128(acc, 8));
  const int32_t sumA = _mm_extract_epi16(acc, 3);
  if (sumA == 0) return 0;  // all clear: the checkerboard shows
  if (sumA == 255 * count) return AreaOpaqueMean(acc, count);
  __m128i sums = zero;
  for (const __m128i& p : px) sums = _mm_add_epi32(sums, WeightedSums(p));
  const __m128i alphaLane = _mm_set_epi32(-1, 0, 0, 0);
  sums = _mm_or_si128(_mm_andnot_si128(alphaLane, sums),
                      _mm_and_si128(alphaLane, _mm_unpacklo_epi16(acc, zero)));
  return AreaFinishSmall(sums, sumA, count);
}

// Boxes of two or three rows by two or three neighbours (every box from zoom
// 1/2 to 1), in as few vectors as they fill: two rows side by side when two
// wide. Three wide needs the four pixels readable.
[[gnu::always_inline]] inline uint32_t AreaSmallBox(const uint32_t* const* rows, int32_t rowCount,
                                                    const AreaColumn& c) {
  const int32_t x = c.at[0], count = rowCount * c.samples;
  auto two = [&](int r) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(rows[r] + x)); };
  auto three = [&](int r) {
    const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rows[r] + x));
    return _mm_and_si128(four, _mm_set_epi32(0, -1, -1, -1));
  };
  if (c.samples == 2) {
    const __m128i pair = _mm_unpacklo_epi64(two(0), two(1));
    if (rowCount == 2) return AreaOfVectors<1>({pair}, count);
    return AreaOfVectors<2>({pair, two(2)}, count);
  }
  if (rowCount == 2) return AreaOfVectors<2>({three(0), three(1)}, count);
  return AreaOfVectors<3>({three(0), three(1), three(2)}, count);
}

// The area average of a row of columns whose boxes sample at most five rows
// by five columns (every box does; anything else takes AreaMixed). Over
// opaque pixels the alpha-weighted means are plain means (255 sum /
// (255 count)), so the channels are summed in 16-bit lanes (at most
// 25 x 255) and divided by the count as (sum x m) >> 16 with m = ceil(65536 /
// count), which is exact for every sum up to 255 x count for the counts with
// an m below (checked for each), or else as (sum + 0.5) x (1 / count) in
// float, whose error (below 2^-23 relative) stays far inside the 0.5 / count
// gap to the next integer. Anything not opaque takes the weighted sums.
void AreaSpanRow(const Surface& img, const AreaSpan& ry, const AreaColumn* cols, int32_t n, uint32_t* out) {
  const __m128i zero = _mm_setzero_si128();
  const int32_t rowSamples = (ry.to - ry.from + ry.stride - 1) / ry.stride;
  const uint32_t* rows[kPackedRows] = {};
  const bool packedRows = rowSamples <= kPackedRows;
  if (packedRows)
    for (int32_t i = 0; i < rowSamples; ++i) rows[i] = img.Row(ry.from + i * ry.stride);
  const bool smallRows = rowSamples == 2 || rowSamples == 3;
  for (int32_t i = 0; i < n; ++i) {
    const AreaColumn& c = cols[i];
    if (smallRows && c.span.stride == 1 && (c.samples == 2 || (c.samples == 3 && c.contiguous))) {
      out[i] = AreaSmallBox(rows, rowSamples, c);
      continue;
    }
    const int32_t count = rowSamples * c.samples;
    if (!c.vector || !packedRows) {
      out[i] = AreaMixed(img, ry, c.span, count);
      continue;
    }
    const bool fifth = c.samples == 5;
    __m128i acc = zero, px[kPackedRows], extra[kPackedRows];
    for (int32_t r = 0; r < rowSamples; ++r) {
      px[r] = RowPixels(rows[r], c);
      acc = _mm_add_epi16(acc, _mm_add_epi16(_mm_unpacklo_epi8(px[r], zero), _mm_unpackhi_epi8(px[r], zero)));
      if (fifth) {
        extra[r] = Widen(_mm_cvtsi32_si128(static_cast<int32_t>(rows[r][c.at[0] + 4])));
        acc = _mm_add_epi16(acc, extra[r]);
      }
    }
    acc = _mm_add_epi16(acc, _mm_srli_si128(acc, 8));
    const int32_t sumA = _mm_extract_epi16(acc, 3);
    if (sumA == 0) {
      out[i] = 0;  // all clear: the checkerboard shows
      continue;
    }
    if (sumA != 255 * count) {
      __m128i sums = zero;
      for (int32_t r = 0; r < rowSamples; ++r) {
        sums = _mm_add_epi32(sums, WeightedSums(px[r]));
        if (fifth) sums = _mm_add_epi32(sums, _mm_unpacklo_epi16(TimesAlpha(extra[r]), zero));
      }
      // The alpha lane: the plain sum of alpha from above.
      const __m128i alphaLane = _mm_set_epi32(-1, 0, 0, 0);
      sums = _mm_or_si128(_mm_andnot_si128(alphaLane, sums),
                          _mm_and_si128(alphaLane, _mm_unpacklo_epi16(acc, zero)));
      out[i] = AreaFinishSmall(sums, sumA, count);
      continue;
    }
    out[i] = AreaOpaqueMean(acc, count);
  }
}

// Composes a span over the checkerboard, four pixels at a time, skipping
// groups that are all opaque and filling those all clear (0) with their grey.
// (c a + grey (255 - a)) / 255 is at most 65025, and (v + 1 + (v >> 8)) >> 8
// equals v / 255 for every v below 65535.
void OverCheckerSpan(uint32_t* px, const uint32_t* greys, int32_t n) {
  const __m128i zero = _mm_setzero_si128(), ones = _mm_set1_epi32(-1);
  const __m128i alphaBits = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
  const __m128i colourBits = _mm_set1_epi32(0x00FFFFFF);
  const __m128i full = _mm_set1_epi16(255), one = _mm_set1_epi16(1);
  auto mix = [&](__m128i c, __m128i g) {
    const __m128i a = _mm_shufflehi_epi16(_mm_shufflelo_epi16(c, 0xFF), 0xFF);
    const __m128i v = _mm_add_epi16(_mm_mullo_epi16(c, a), _mm_mullo_epi16(g, _mm_sub_epi16(full, a)));
    return _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(v, one), _mm_srli_epi16(v, 8)), 8);
  };
  int32_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + i));
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(_mm_or_si128(c, colourBits), ones)) == 0xFFFF) continue;
    const __m128i g = _mm_loadu_si128(reinterpret_cast<const __m128i*>(greys + i));
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(c, zero)) == 0xFFFF) {  // all clear: the grey itself
      _mm_storeu_si128(reinterpret_cast<__m128i*>(px + i), _mm_or_si128(g, alphaBits));
      continue;
    }
    const __m128i lo = mix(_mm_unpacklo_epi8(c, zero), _mm_unpacklo_epi8(g, zero));
    const __m128i hi = mix(_mm_unpackhi_epi8(c, zero), _mm_unpackhi_epi8(g, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(px + i), _mm_or_si128(_mm_packus_epi16(lo, hi), alphaBits));
  }
  for (; i < n; ++i) px[i] = OverGrey(px[i], greys[i] & 255);
}

void RenderRowsFast(int first, int end, void* context) {
  const FastJob& job = *static_cast<const FastJob*>(context);
  const CanvasRender& r = *job.render;
  const Rect& area = job.area;
  const Surface& img = *r.image;
  const CanvasLayout& L = r.layout;
  const double s = L.scale;
  const int32_t w = img.Width(), h = img.Height();
  const int32_t cell = std::max(1, static_cast<int32_t>(8 * r.dpiScale));
  const int32_t n = job.inX1 - job.inX0;
  const SelectionMask* sel = r.selection;
  auto imageY = [&](double y) { return static_cast<int32_t>(std::floor((y - L.originY) / s)); };
  auto selected = [&](int32_t ix, int32_t iy) { return sel->At(ix, iy) >= 128; };
  for (int row = first; row < end; ++row) {
    const int32_t y = area.y0 + row;
    uint32_t* out = r.target + std::size_t(y) * std::size_t(r.targetStride);
    const AxisSample ay = SampleAxis(y, L.originY, s, h);
    if (ay.nearest < 0 || n <= 0) {
      std::fill(out + area.x0, out + area.x1, r.background);
      continue;
    }
    std::fill(out + area.x0, out + job.inX0, r.background);
    std::fill(out + job.inX1, out + area.x1, r.background);
    uint32_t* span = out + job.inX0;
    switch (job.mode) {
      case SampleMode::Nearest: {
        const uint32_t* src = img.Row(ay.nearest);
        const int32_t* xs = job.nearest.data();
        if (job.oneToOne) std::memcpy(span, src + xs[0], std::size_t(n) * sizeof(uint32_t));
        else
          for (int32_t i = 0; i < n; ++i) span[i] = src[xs[i]];
        break;
      }
      case SampleMode::Bilinear:
        BilinearSpan(img.Row(ay.lo), img.Row(ay.hi), ay.weight, job.pairs.data(), n, span);
        break;
      default:
        AreaSpanRow(img, AreaAxis(y - L.originY, s, h), job.spans.data(), n, span);
        break;
    }
    OverCheckerSpan(span, job.greys[(y / cell) & 1].data(), n);
    if (!sel) continue;
    // The outline, as in the plain pass, from the per-column tables.
    const int32_t py = ay.nearest, by = imageY(y + 1.5), ty = imageY(y - 0.5);
    const bool belowInside = by < h;
    for (int32_t i = 0; i < n; ++i) {
      const int32_t px = job.nearest[std::size_t(i)], rx = job.rightOf[std::size_t(i)];
      const bool here = selected(px, py);
      const bool edge = (rx < w ? selected(rx, py) != here : here) ||
                        (belowInside ? selected(px, by) != here : here) ||
                        (here && (job.leftOf[std::size_t(i)] < 0 || ty < 0));
      if (edge) {
        const int32_t x = job.inX0 + i;
        span[i] = ((x + y) & 4) ? 0xFF000000u : 0xFFFFFFFFu;
      }
    }
  }
}

// The per-column tables of a frame. The columns that show the image form
// one run: a column's image x grows with its device x.
void PrepareFastJob(FastJob& job) {
  const CanvasRender& r = *job.render;
  const CanvasLayout& L = r.layout;
  const int32_t w = r.image->Width();
  const int32_t cell = std::max(1, static_cast<int32_t>(8 * r.dpiScale));
  job.inX0 = job.area.x1;
  job.inX1 = job.area.x0;
  for (int32_t x = job.area.x0; x < job.area.x1; ++x) {
    if (SampleAxis(x, L.originX, L.scale, w).nearest < 0) continue;
    job.inX0 = std::min(job.inX0, x);
    job.inX1 = x + 1;
  }
  if (job.inX1 <= job.inX0) return;
  const std::size_t n = std::size_t(job.inX1 - job.inX0);
  job.nearest.reserve(n);
  for (auto& g : job.greys) g.reserve(n);
  auto imageX = [&](double x) { return static_cast<int32_t>(std::floor((x - L.originX) / L.scale)); };
  for (int32_t x = job.inX0; x < job.inX1; ++x) {
    const AxisSample a = SampleAxis(x, L.originX, L.scale, w);
    job.nearest.push_back(a.nearest);
    if (job.mode == SampleMode::Bilinear) job.pairs.push_back(PairFor(a, w));
    if (job.mode == SampleMode::AreaAverage) {
      AreaColumn c;
      c.span = AreaAxis(x - L.originX, L.scale, w);
      c.samples = (c.span.to - c.span.from + c.span.stride - 1) / c.span.stride;
      for (int32_t j = 0; j < 4; ++j) c.at[j] = c.span.from + (j < c.samples ? j * c.span.stride : 0);
      c.contiguous = c.span.from + 4 <= w && (c.span.stride == 1 || c.samples == 1);
      c.vector = c.samples <= 4 || (c.samples == 5 && c.span.stride == 1 && c.contiguous);
      job.spans.push_back(c);
    }
    // The parity of x / cell + y / cell is that of x / cell plus the row's.
    for (int32_t phase = 0; phase < 2; ++phase)
      job.greys[phase].push_back((((x / cell + phase) & 1) ? 153u : 204u) * 0x010101u);
    if (r.selection) {
      job.leftOf.push_back(imageX(x - 0.5));
      job.rightOf.push_back(imageX(x + 1.5));
    }
  }
  job.oneToOne = job.nearest.back() - job.nearest.front() == job.inX1 - job.inX0 - 1;
}
}  // namespace

CanvasLayout ComputeLayout(const Document& doc, const ClientArea& client) {
  CanvasLayout L;
  L.scale = doc.zoom * client.dpiScale;
  L.clientW = client.width;
  L.clientH = client.height;
  L.originX = AxisOrigin(client.width, doc.width, L.scale, doc.scrollX);
  L.originY = AxisOrigin(client.height, doc.height, L.scale, doc.scrollY);
  return L;
}

void ClampScroll(Document& doc, const ClientArea& client) {
  const double s = doc.zoom * client.dpiScale;
  doc.scrollX = std::clamp(doc.scrollX, 0, MaxScroll(client.width, doc.width, s));
  doc.scrollY = std::clamp(doc.scrollY, 0, MaxScroll(client.height, doc.height, s));
}

double ZoomStepFrom(double zoom, int direction) {
  if (direction > 0) {
    for (double step : kZoomSteps)
      if (step > zoom * 1.001) return step;
    return kZoomSteps[23];
  }
  for (int i = 23; i >= 0; --i)
    if (kZoomSteps[i] < zoom * 0.999) return kZoomSteps[i];
  return kZoomSteps[0];
}

void SetZoom(Document& doc, double zoom, double anchorX, double anchorY, const ClientArea& client) {
  zoom = std::clamp(zoom, kMinZoom, kMaxZoom);
  const CanvasLayout old = ComputeLayout(doc, client);
  const double s = zoom * client.dpiScale;
  doc.fitMode = 0;
  doc.scrollX = doc.width * s > client.width
                    ? Trunc((anchorX - old.originX) / old.scale * s - anchorX) : 0;
  doc.scrollY = doc.height * s > client.height
                    ? Trunc((anchorY - old.originY) / old.scale * s - anchorY) : 0;
  doc.zoom = zoom;
  ClampScroll(doc, client);
}

bool FitToWindow(Document& doc, bool neverEnlarge, const ClientArea& client) {
  if (client.width < 20 || client.height < 20 || doc.width < 1 || doc.height < 1) return false;
  const int32_t margin = static_cast<int32_t>(24 * client.dpiScale);
  const double f = std::min((client.width - margin) / (doc.width * client.dpiScale),
                            (client.height - margin) / (doc.height * client.dpiScale));
  doc.zoom = neverEnlarge && f > 1.0 ? 1.0 : std::clamp(f, kMinZoom, kMaxZoom);
  doc.scrollX = doc.scrollY = 0;
  doc.fitMode = neverEnlarge ? 1 : 2;
  return true;
}

void KeepFitted(Document& doc, const ClientArea& client) {
  if (doc.fitMode == 1 || doc.fitMode == 2) {
    const int32_t mode = doc.fitMode;
    if (!FitToWindow(doc, mode == 1, client)) ClampScroll(doc, client);
    return;
  }
  ClampScroll(doc, client);
}

void DirtyArea::Add(const Rect& r, int32_t clientW, int32_t clientH) {
  const Rect clipped = Intersect(r, {0, 0, clientW, clientH});
  if (clipped.Empty()) return;
  area_ = any_ ? Union(area_, clipped) : clipped;
  any_ = true;
}

Rect ImageRectToDevice(const CanvasLayout& L, const Rect& image, bool hasSelection) {
  const double s = L.scale;
  const double pad = s < 1.0 ? std::ceil(1.0 / s) + 1 : 1.0;
  const int32_t widen = hasSelection ? 2 : 1;
  return {static_cast<int32_t>(std::floor((image.x0 - pad) * s + L.originX)) - widen,
          static_cast<int32_t>(std::floor((image.y0 - pad) * s + L.originY)) - widen,
          static_cast<int32_t>(std::ceil((image.x1 + pad) * s + L.originX)) + widen,
          static_cast<int32_t>(std::ceil((image.y1 + pad) * s + L.originY)) + widen};
}

ImagePoint ScreenToImage(const CanvasLayout& L, const Document& doc, double x, double y) {
  ImagePoint p{(x - L.originX) / L.scale, (y - L.originY) / L.scale, false};
  p.inside = p.x >= 0 && p.y >= 0 && std::floor(p.x) < doc.width && std::floor(p.y) < doc.height;
  return p;
}

Rect ImageArea(const CanvasLayout& L, const Document& doc) {
  // Device pixel x shows the image when its centre x + 0.5 lies within
  // origin .. origin + extent x scale, as the render pass samples it.
  auto end = [&](int32_t origin, int32_t extent) {
    return origin + static_cast<int32_t>(std::ceil(extent * L.scale - 0.5));
  };
  return Intersect({L.originX, L.originY, end(L.originX, doc.width), end(L.originY, doc.height)},
                   {0, 0, L.clientW, L.clientH});
}

GridLines PixelGridLines(const CanvasLayout& L, const Document& doc) {
  GridLines g;
  if (L.scale < 8.0) return g;
  g.clip = ImageArea(L, doc);
  if (g.clip.Empty()) return g;
  const int32_t firstX = std::max(0, static_cast<int32_t>((g.clip.x0 - L.originX) / L.scale));
  for (int32_t i = firstX; i <= doc.width; ++i) {
    const int32_t x = L.originX + static_cast<int32_t>(std::lround(i * L.scale));
    if (x >= g.clip.x1) break;
    if (x >= g.clip.x0) g.xs.push_back(x);
  }
  const int32_t firstY = std::max(0, static_cast<int32_t>((g.clip.y0 - L.originY) / L.scale));
  for (int32_t i = firstY; i <= doc.height; ++i) {
    const int32_t y = L.originY + static_cast<int32_t>(std::lround(i * L.scale));
    if (y >= g.clip.y1) break;
    if (y >= g.clip.y0) g.ys.push_back(y);
  }
  return g;
}

BrushCursorShape BrushCursorFor(int32_t cx, int32_t cy, double brushSize, double scale) {
  const double r = std::max(brushSize / 2 * scale, 1.5);
  auto box = [&](double grow, double extra) {
    return Rect{static_cast<int32_t>(std::floor(cx - r - grow)),
                static_cast<int32_t>(std::floor(cy - r - grow)),
                static_cast<int32_t>(std::ceil(cx + r + grow + extra)),
                static_cast<int32_t>(std::ceil(cy + r + grow + extra))};
  };
  const int32_t half = static_cast<int32_t>(std::ceil(brushSize / 2 * scale + 4));
  return {box(1, 1), box(0, 1), {cx - half, cy - half, cx + half + 2, cy + half + 2}};
}

ScrollMetrics ScrollMetricsFor(const Document& doc, const ClientArea& client, bool vertical) {
  const double s = doc.zoom * client.dpiScale;
  ScrollMetrics m;
  m.content = static_cast<int32_t>(std::ceil((vertical ? doc.height : doc.width) * s));
  m.page = vertical ? client.height : client.width;
  m.position = vertical ? doc.scrollY : doc.scrollX;
  return m;
}

ThumbSpan ThumbFor(const ScrollMetrics& m, int32_t track, int32_t minThumb) {
  if (m.content <= m.page || track <= 0) return {0, std::max(track, 0)};
  const int32_t length =
      std::clamp(static_cast<int32_t>(int64_t{track} * m.page / m.content), std::min(minThumb, track), track);
  const int32_t range = m.content - m.page;
  const int32_t start = static_cast<int32_t>(int64_t{track - length} *
                                             std::clamp(m.position, 0, range) / range);
  return {start, length};
}

int32_t PositionForThumb(const ScrollMetrics& m, int32_t track, int32_t minThumb, int32_t thumbStart) {
  const ThumbSpan thumb = ThumbFor(m, track, minThumb);
  const int32_t free = track - thumb.length;
  if (m.content <= m.page || free <= 0) return 0;
  const int32_t range = m.content - m.page;
  return static_cast<int32_t>(int64_t{std::clamp(thumbStart, 0, free)} * range / free);
}

int32_t ScrollLineStep(double dpiScale) { return static_cast<int32_t>(40 * dpiScale); }
int32_t ScrollPageStep(int32_t page) { return page * 9 / 10; }

SampleMode SampleModeFor(double scale, double dpiScale, bool smooth) {
  if (!smooth || scale / dpiScale >= 4.0) return SampleMode::Nearest;
  return scale >= 1.0 ? SampleMode::Bilinear : SampleMode::AreaAverage;
}

void AllowFastCanvasRenderForTesting(bool allowed) { g_fastAllowed.store(allowed); }

void RenderCanvas(const CanvasRender& render, const Rect& area) {
  if (area.Empty() || !render.image || render.image->Empty() || !render.target) return;
  SampleMode mode = SampleModeFor(render.layout.scale, render.dpiScale, render.smooth);
  // At exactly one device pixel per image pixel every bilinear weight is 0:
  // the nearest pixel is the same result for far less work.
  if (mode == SampleMode::Bilinear && render.layout.scale == 1.0) mode = SampleMode::Nearest;
  const CanvasLayout& L = render.layout;
  const int32_t w = render.image->Width();
  // The fast pass reads bilinear neighbours in pairs, which needs two columns.
  if (g_fastAllowed.load(std::memory_order_relaxed) && (mode != SampleMode::Bilinear || w >= 2)) {
    FastJob job;
    job.render = &render;
    job.area = area;
    job.mode = mode;
    PrepareFastJob(job);
    RowWorkers::Run(area.Height(), &RenderRowsFast, &job);
    return;
  }
  RenderJob job{&render, area, mode, {}, {}};
  job.columns.reserve(std::size_t(area.Width()));
  for (int32_t x = area.x0; x < area.x1; ++x) {
    job.columns.push_back(SampleAxis(x, L.originX, L.scale, w));
    if (job.mode == SampleMode::AreaAverage) job.areaColumns.push_back(AreaAxis(x - L.originX, L.scale, w));
  }
  RowWorkers::Run(area.Height(), &RenderRowsPlain, &job);
}

}  // namespace tavora
