#include "processing/geometry.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "base/row_workers.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "document/size_limits.h"
#include "processing/resample.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tavora {
namespace {

// Square blocks for the quarter turns: a block of source rows and one of
// result rows both stay in the first-level cache while a block is copied.
constexpr int32_t kTurnBlock = 64;
// The free rotation walks the result in strips of this many columns, so the
// slanted run of source rows one strip reads stays cached for the next row.
constexpr int32_t kRotateStrip = 256;
constexpr uint32_t kOpaque = 0xFF000000u;

int32_t ClampToInt(double v) {
  return static_cast<int32_t>(std::clamp(v, double(std::numeric_limits<int32_t>::min()),
                                         double(std::numeric_limits<int32_t>::max())));
}

// `from` laid into `to` with its top-left corner at (x, y), cut to `to`.
void Blit(const Surface& from, Surface& to, int64_t x, int64_t y) {
  const int64_t x0 = std::max<int64_t>(x, 0), y0 = std::max<int64_t>(y, 0);
  const int64_t x1 = std::min<int64_t>(x + from.Width(), to.Width());
  const int64_t y1 = std::min<int64_t>(y + from.Height(), to.Height());
  if (x1 <= x0 || y1 <= y0) return;
  const std::size_t bytes = std::size_t(x1 - x0) * sizeof(uint32_t);
  auto body = [&](int first, int end) {
    for (int64_t ty = y0 + first; ty < y0 + end; ++ty)
      std::memcpy(to.Row(int32_t(ty)) + x0, from.Row(int32_t(ty - y)) + (x0 - x), bytes);
  };
  RowWorkers::Run(int(y1 - y0), body);
}

template <typename T>
void FlipRowsOf(T* data, int32_t width, int32_t height) {
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y)
      std::swap_ranges(data + std::size_t(y) * width, data + std::size_t(y + 1) * width,
                       data + std::size_t(height - 1 - y) * width);
  };
  RowWorkers::Run(height / 2, body);
}

template <typename T>
void MirrorRowsOf(T* data, int32_t width, int32_t height) {
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y)
      std::reverse(data + std::size_t(y) * width, data + std::size_t(y + 1) * width);
  };
  RowWorkers::Run(height, body);
}

// ---------------------------------------------------------------- free rotation
// Bytes as doubles: a load is cheaper than a conversion in the inner loop.
struct ByteTable {
  double value[256];
  constexpr ByteTable() : value() {
    for (int i = 0; i < 256; ++i) value[i] = i;
  }
};
constexpr ByteTable kBytes;

inline uint32_t RoundChannel(double v) {
  const int32_t n = static_cast<int32_t>(v + 0.5);
  return uint32_t(std::clamp(n, 0, 255));
}

// The running sums of one result pixel. A neighbour of alpha 0 adds exact
// zeros, so it is skipped without changing a bit of the result.
struct Sums {
  double a = 0, r = 0, g = 0, b = 0;

  void Add(uint32_t p, double w) {
    const uint32_t alpha = p >> 24;
    if (alpha == 0) return;
    const double wa = w * kBytes.value[alpha];
    a += wa;
    r += kBytes.value[(p >> 16) & 255] * wa;
    g += kBytes.value[(p >> 8) & 255] * wa;
    b += kBytes.value[p & 255] * wa;
  }

  uint32_t Pixel() const {
    if (!(a > 0.001)) return 0;
    return RoundChannel(a) << 24 | RoundChannel(r / a) << 16 | RoundChannel(g / a) << 8 |
           RoundChannel(b / a);
  }
};

// Narrows first .. last to the x where lo <= slope x + at0 <= hi.
void Within(double slope, double at0, double lo, double hi, double& first, double& last) {
  if (std::abs(slope) < 1e-12) {
    if (at0 < lo - 1e-6 || at0 > hi + 1e-6) last = -1e300;  // never, along this row
    return;
  }
  double a = (lo - at0) / slope, b = (hi - at0) / slope;
  if (a > b) std::swap(a, b);
  first = std::max(first, a);
  last = std::min(last, b);
}

struct FreeRotation {
  const Surface* source = nullptr;
  Surface* result = nullptr;
  double c = 1, s = 0;
  uint32_t fill = 0;

  // One result pixel, from anywhere: the definition, step by step. Kept
  // out of the paired loop, which needs every register it has.
  [[gnu::noinline]] uint32_t Pixel(double sx, double sy) const {
    const int32_t w = source->Width(), h = source->Height();
    if (sx < -1 || sy < -1 || sx > w || sy > h) return fill;
    // Truncation is the floor from -1 up once a step down is allowed for.
    int32_t ix = static_cast<int32_t>(sx), iy = static_cast<int32_t>(sy);
    if (ix > sx) --ix;
    if (iy > sy) --iy;
    const double fx = sx - ix, fy = sy - iy;
    const double gx = 1 - fx, gy = 1 - fy;
    const uint32_t* pixels = source->Data();
    auto at = [&](int32_t px, int32_t py) {
      return px >= 0 && py >= 0 && px < w && py < h ? pixels[std::size_t(py) * w + px] : fill;
    };
    Sums sums;
    sums.Add(at(ix, iy), gx * gy);
    sums.Add(at(ix + 1, iy), fx * gy);
    sums.Add(at(ix, iy + 1), gx * fy);
    sums.Add(at(ix + 1, iy + 1), fx * fy);
    return sums.Pixel();
  }

  // Result columns x0 .. x1 - 1 of row y.
  void Span(int32_t y, int32_t x0, int32_t x1) const {
    const int32_t w = source->Width(), h = source->Height();
    const double halfW = w / 2.0, halfH = h / 2.0;
    const double dy = y + 0.5 - result->Height() / 2.0;
    const double sdy = s * dy, cdy = c * dy;
    const double outHalfW = result->Width() / 2.0;
    uint32_t* out = result->Row(y);

    // Columns well outside the reach of the source take the fill without
    // a look; the margin covers the rounding of this estimate, and the
    // pixels inside it are still decided one by one.
    double first = x0, last = x1;
    const double d0 = 0.5 - outHalfW;
    Within(c, c * d0 + sdy + halfW - 0.5, -1, w, first, last);
    Within(-s, cdy - s * d0 + halfH - 0.5, -1, h, first, last);
    const int32_t begin = first > last ? x1 : std::clamp(int32_t(std::floor(first)) - 2, x0, x1);
    const int32_t end = first > last ? x1 : std::clamp(int32_t(std::ceil(last)) + 3, begin, x1);
    std::fill(out + x0, out + begin, fill);
    std::fill(out + end, out + x1, fill);

    auto sourceX = [&](double dx) { return c * dx + sdy + halfW - 0.5; };
    auto sourceY = [&](double dx) { return cdy - s * dx + halfH - 0.5; };
    int32_t x = begin;
#if defined(__SSE2__)
    // Two result pixels side by side, one per lane: each lane does the
    // scalar arithmetic in the same order, so the results are the same to
    // the bit. Pairs with a neighbour off the source go the scalar way.
    const uint32_t* pixels = source->Data();
    const std::size_t stride = std::size_t(w);
    const __m128d vc = _mm_set1_pd(c), vs = _mm_set1_pd(s), vsdy = _mm_set1_pd(sdy);
    const __m128d vcdy = _mm_set1_pd(cdy), vhw = _mm_set1_pd(halfW), vhh = _mm_set1_pd(halfH);
    const __m128d half = _mm_set1_pd(0.5), one = _mm_set1_pd(1.0), zero = _mm_setzero_pd();
    const __m128d lastX = _mm_set1_pd(w - 1), lastY = _mm_set1_pd(h - 1), least = _mm_set1_pd(0.001);
    const __m128i byte = _mm_set1_epi32(255);
    // In two passes over up to kPairs pairs: first where each pair reads
    // and with what weights, then the blends. The blends' loads then wait
    // on nothing, and the processor overlaps more of them.
    constexpr int32_t kPairs = 64;
    struct Plan {
      std::size_t at0, at1;
      __m128d w00, w10, w01, w11;
    } plans[kPairs];
    bool inside[kPairs];
    const __m128d two = _mm_set1_pd(2.0);
    while (x + 1 < end) {
      const int32_t pairs = std::min<int32_t>((end - x) / 2, kPairs);
      // Offsets from the centre are whole or half numbers: stepping them is exact.
      __m128d dx = _mm_set_pd(x + 1.5 - outHalfW, x + 0.5 - outHalfW);
      for (int32_t k = 0; k < pairs; ++k, dx = _mm_add_pd(dx, two)) {
        const __m128d sx = _mm_sub_pd(_mm_add_pd(_mm_add_pd(_mm_mul_pd(vc, dx), vsdy), vhw), half);
        const __m128d sy = _mm_sub_pd(_mm_add_pd(_mm_sub_pd(vcdy, _mm_mul_pd(vs, dx)), vhh), half);
        const __m128d inner = _mm_and_pd(_mm_and_pd(_mm_cmpge_pd(sx, zero), _mm_cmplt_pd(sx, lastX)),
                                         _mm_and_pd(_mm_cmpge_pd(sy, zero), _mm_cmplt_pd(sy, lastY)));
        inside[k] = _mm_movemask_pd(inner) == 3;
        if (!inside[k]) continue;
        // Both points lie on the source, so truncation is the floor.
        const __m128i ix = _mm_cvttpd_epi32(sx), iy = _mm_cvttpd_epi32(sy);
        const __m128d fx = _mm_sub_pd(sx, _mm_cvtepi32_pd(ix)), fy = _mm_sub_pd(sy, _mm_cvtepi32_pd(iy));
        const __m128d gx = _mm_sub_pd(one, fx), gy = _mm_sub_pd(one, fy);
        Plan& plan = plans[k];
        plan.at0 = std::size_t(_mm_cvtsi128_si32(iy)) * stride + std::size_t(_mm_cvtsi128_si32(ix));
        plan.at1 = std::size_t(_mm_cvtsi128_si32(_mm_srli_si128(iy, 4))) * stride +
                   std::size_t(_mm_cvtsi128_si32(_mm_srli_si128(ix, 4)));
        plan.w00 = _mm_mul_pd(gx, gy);
        plan.w10 = _mm_mul_pd(fx, gy);
        plan.w01 = _mm_mul_pd(gx, fy);
        plan.w11 = _mm_mul_pd(fx, fy);
      }
      for (int32_t k = 0; k < pairs; ++k, x += 2) {
        if (!inside[k]) {
          const double dx0 = x + 0.5 - outHalfW, dx1 = x + 1.5 - outHalfW;
          out[x] = Pixel(sourceX(dx0), sourceY(dx0));
          out[x + 1] = Pixel(sourceX(dx1), sourceY(dx1));
          continue;
        }
        const Plan& plan = plans[k];
        const uint32_t* p0 = pixels + plan.at0;
        const uint32_t* p1 = pixels + plan.at1;
        __m128d sa = zero, sr = zero, sg = zero, sb = zero;
        auto add = [&](std::size_t offset, __m128d weight) {
          const __m128i n = _mm_unpacklo_epi32(_mm_cvtsi32_si128(int32_t(p0[offset])),
                                               _mm_cvtsi32_si128(int32_t(p1[offset])));
          const __m128d wa = _mm_mul_pd(weight, _mm_cvtepi32_pd(_mm_srli_epi32(n, 24)));
          sa = _mm_add_pd(sa, wa);
          sr = _mm_add_pd(sr, _mm_mul_pd(_mm_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(n, 16), byte)), wa));
          sg = _mm_add_pd(sg, _mm_mul_pd(_mm_cvtepi32_pd(_mm_and_si128(_mm_srli_epi32(n, 8), byte)), wa));
          sb = _mm_add_pd(sb, _mm_mul_pd(_mm_cvtepi32_pd(_mm_and_si128(n, byte)), wa));
        };
        add(0, plan.w00);
        add(1, plan.w10);
        add(stride, plan.w01);
        add(stride + 1, plan.w11);
        const __m128i a = _mm_cvttpd_epi32(_mm_add_pd(sa, half));
        const __m128i r = _mm_cvttpd_epi32(_mm_add_pd(_mm_div_pd(sr, sa), half));
        const __m128i g = _mm_cvttpd_epi32(_mm_add_pd(_mm_div_pd(sg, sa), half));
        const __m128i b = _mm_cvttpd_epi32(_mm_add_pd(_mm_div_pd(sb, sa), half));
        const __m128i bg = _mm_unpacklo_epi32(b, g), ra = _mm_unpacklo_epi32(r, a);
        // Saturating packs clamp each channel to 0..255 as RoundChannel does.
        __m128i pair = _mm_packus_epi16(
            _mm_packs_epi32(_mm_unpacklo_epi64(bg, ra), _mm_unpackhi_epi64(bg, ra)), _mm_setzero_si128());
        const __m128i keep =
            _mm_shuffle_epi32(_mm_castpd_si128(_mm_cmpgt_pd(sa, least)), _MM_SHUFFLE(3, 3, 2, 0));
        pair = _mm_and_si128(pair, keep);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x), pair);
      }
    }
#endif
    for (; x < end; ++x) {
      const double dx = x + 0.5 - outHalfW;
      out[x] = Pixel(sourceX(dx), sourceY(dx));
    }
  }
};

// ---------------------------------------------------------------- layers
// Widens lo .. hi - 1 to hold every pixel of alpha above 0 in columns
// x0 .. x1 - 1 of the row.
void WidenByRow(const uint32_t* row, int32_t x0, int32_t x1, int32_t& lo, int32_t& hi) {
  int32_t a = x0;
  while (a < x1 && (row[a] >> 24) == 0) ++a;
  if (a == x1) return;
  int32_t b = x1;
  while ((row[b - 1] >> 24) == 0) --b;
  lo = std::min(lo, a);
  hi = std::max(hi, b);
}

// The smallest rectangle holding every pixel of alpha above 0, leaving out
// `hole` (in the picture's coordinates).
Rect ShownBounds(const Surface& pixels, const Rect& hole) {
  std::mutex lock;
  Rect found;
  const int32_t w = pixels.Width();
  const int32_t holeX0 = std::clamp(hole.x0, 0, w), holeX1 = std::clamp(hole.x1, holeX0, w);
  auto body = [&](int first, int end) {
    Rect part;
    for (int32_t y = first; y < end; ++y) {
      int32_t lo = w, hi = 0;
      const uint32_t* row = pixels.Row(y);
      if (!hole.Empty() && y >= hole.y0 && y < hole.y1) {
        WidenByRow(row, 0, holeX0, lo, hi);
        WidenByRow(row, holeX1, w, lo, hi);
      } else {
        WidenByRow(row, 0, w, lo, hi);
      }
      if (lo < hi) part = Union(part, {lo, y, hi, y + 1});
    }
    std::lock_guard<std::mutex> hold(lock);
    found = Union(found, part);
  };
  RowWorkers::Run(pixels.Height(), body);
  return found;
}

Rect Shifted(const Rect& r, int32_t dx, int32_t dy) {
  if (r.Empty()) return r;
  return {r.x0 + dx, r.y0 + dy, r.x1 + dx, r.y1 + dy};
}

// The layer's pixels within `box` (canvas coordinates): its extended
// content past the canvas and its canvas pixels on it. The canvas pixels
// are what was painted on; the extended content is trusted only past them.
Surface TakeContent(const Layer& layer, const Rect& box) {
  Surface out(box.Width(), box.Height());
  if (layer.extended && !layer.opaqueBackground)
    Blit(layer.extended->pixels, out, int64_t{layer.extended->x} - box.x0,
         int64_t{layer.extended->y} - box.y0);
  Blit(layer.pixels, out, -int64_t{box.x0}, -int64_t{box.y0});
  return out;
}

void MarkLayerChanged(Layer& layer) {
  layer.DropEffectCaches();
  layer.effectsDirty = {0, 0, layer.Width(), layer.Height()};
  layer.rebuildEffects = true;
}

// The layer's new content, placed at (x, y) in canvas coordinates; the
// canvas pixels are rebuilt from it and what lies past the canvas is kept.
void SetContent(Layer& layer, Surface content, int32_t x, int32_t y) {
  auto extended = std::make_unique<ExtendedContent>();
  extended->x = x;
  extended->y = y;
  extended->pixels = std::move(content);
  layer.extended = std::move(extended);
  layer.RebuildFromExtended();
  // The text's rendering no longer matches the pixels: only undo brings
  // the editable text back.
  layer.text.reset();
  MarkLayerChanged(layer);
}

// A picture laid on an opaque black canvas-sized one at (x, y): the
// Background layer cannot keep anything past the canvas or show through.
Surface OnBlackCanvas(const Surface& picture, int32_t width, int32_t height, int32_t x, int32_t y) {
  Surface canvas(width, height);
  canvas.Fill(kOpaque);
  Blit(picture, canvas, x, y);
  return canvas;
}

// A quarter turn keeps the box's centre; when it falls between pixels the
// clockwise turn rounds half up and the counter-clockwise one half down, so
// the one undoes the other to the pixel.
void QuarterTurnPlace(const Rect& box, bool clockwise, int32_t& x, int32_t& y) {
  const double cx = box.x0 + box.Width() / 2.0, cy = box.y0 + box.Height() / 2.0;
  const double left = cx - box.Height() / 2.0, top = cy - box.Width() / 2.0;
  x = ClampToInt(clockwise ? std::floor(left + 0.5) : std::ceil(left - 0.5));
  y = ClampToInt(clockwise ? std::floor(top + 0.5) : std::ceil(top - 0.5));
}

// Whole-pixel placement of a width x height picture centred on the box's centre.
void CentredPlace(const Rect& box, int32_t width, int32_t height, int32_t& x, int32_t& y) {
  const double cx = box.x0 + box.Width() / 2.0, cy = box.y0 + box.Height() / 2.0;
  x = ClampToInt(std::floor(cx - width / 2.0 + 0.5));
  y = ClampToInt(std::floor(cy - height / 2.0 + 0.5));
}

// The end of every layer command: the layer's area is redrawn and the
// Layers panel hears of it.
void FinishLayerChange(Document& doc) {
  doc.modified = true;
  Invalidate(doc, doc.active, doc.Bounds());
  NotifyLayersChanged(doc);
}

// The bounds of the mask's non-zero bytes; an all-zero mask is dropped.
void RecomputeMaskBounds(Document& doc) {
  if (!doc.selection) return;
  const SelectionMask& m = *doc.selection;
  Rect r;
  for (int32_t y = 0; y < m.Height(); ++y) {
    const uint8_t* row = m.Row(y);
    int32_t a = 0, b = m.Width();
    while (a < b && row[a] == 0) ++a;
    if (a == b) continue;
    while (row[b - 1] == 0) --b;
    r = Union(r, {a, y, b, y + 1});
  }
  doc.selectionBounds = r;
  if (r.Empty()) doc.selection.reset();
}

bool WholeTurn(double angleDegrees) { return std::fmod(angleDegrees, 360.0) == 0; }

bool RotationSizeAllowed(const PictureSize& size) {
  return size.width <= kMaxGeometrySide && size.height <= kMaxGeometrySide &&
         double(size.width) * size.height <= kMaxCanvasPixels;
}

// Flip and Mirror keep the canvas size and turn the selection with the
// pixels, so they finish without FinishCanvasChange's drop of the selection.
void FinishInPlaceChange(Document& doc) {
  for (Layer& l : doc.layers) MarkLayerChanged(l);
  doc.compositeDirty = doc.Bounds();
  doc.modified = true;
  if (doc.selection) NotifySelectionChanged(doc);
  NotifyLayersChanged(doc);
  NotifyAreaChanged(doc, doc.Bounds());
}

}  // namespace

// ---------------------------------------------------------------- pictures

Surface Rotate90(const Surface& source, Turn turn) {
  const int32_t w = source.Width(), h = source.Height();
  Surface out(h, w);
  if (out.Empty()) return out;
  const bool clockwise = turn == Turn::Clockwise;
  const uint32_t* src = source.Data();
  // Result row y is source column y (clockwise, read upwards) or column
  // w - 1 - y (read downwards); blocks keep both sides cached.
  auto body = [&](int first, int end) {
    for (int32_t y0 = first; y0 < end; y0 += kTurnBlock) {
      const int32_t y1 = std::min(y0 + kTurnBlock, end);
      for (int32_t x0 = 0; x0 < h; x0 += kTurnBlock) {
        const int32_t x1 = std::min(x0 + kTurnBlock, h);
        for (int32_t y = y0; y < y1; ++y) {
          uint32_t* d = out.Row(y);
          if (clockwise) {
            const uint32_t* s = src + std::size_t(h - 1 - x0) * w + y;
            for (int32_t x = x0; x < x1; ++x, s -= w) d[x] = *s;
          } else {
            const uint32_t* s = src + std::size_t(x0) * w + (w - 1 - y);
            for (int32_t x = x0; x < x1; ++x, s += w) d[x] = *s;
          }
        }
      }
    }
  };
  RowWorkers::Run(w, body);
  return out;
}

Surface Rotate180(const Surface& source) {
  const int32_t w = source.Width(), h = source.Height();
  Surface out(w, h);
  if (out.Empty()) return out;
  auto body = [&](int first, int end) {
    for (int32_t y = first; y < end; ++y) {
      const uint32_t* s = source.Row(h - 1 - y);
      std::reverse_copy(s, s + w, out.Row(y));
    }
  };
  RowWorkers::Run(h, body);
  return out;
}

void FlipRows(Surface& pixels) { FlipRowsOf(pixels.Data(), pixels.Width(), pixels.Height()); }
void MirrorRows(Surface& pixels) { MirrorRowsOf(pixels.Data(), pixels.Width(), pixels.Height()); }
void FlipRows(SelectionMask& mask) { FlipRowsOf(mask.Data(), mask.Width(), mask.Height()); }
void MirrorRows(SelectionMask& mask) { MirrorRowsOf(mask.Data(), mask.Width(), mask.Height()); }

double RotationRadians(double angleDegrees) { return angleDegrees * 3.14159265358979 / 180; }

PictureSize FreeRotationSize(int32_t width, int32_t height, double angleDegrees, bool expand) {
  if (!expand) return {width, height};
  const double theta = RotationRadians(angleDegrees);
  const double c = std::cos(theta), s = std::sin(theta);
  auto side = [](double v) {
    const double whole = std::round(v);
    const double n = std::abs(v - whole) <= 1e-9 ? whole : std::ceil(v);
    return ClampToInt(std::max(n, 1.0));
  };
  return {side(std::abs(width * c) + std::abs(height * s)),
          side(std::abs(width * s) + std::abs(height * c))};
}

Surface RotateFree(const Surface& source, double angleDegrees, int32_t width, int32_t height,
                   uint32_t fill) {
  Surface out(width, height);
  if (out.Empty()) return out;
  if (source.Empty()) {
    out.Fill(fill);
    return out;
  }
  // A meaningless angle turns nothing, and never reaches the conversions below.
  if (!std::isfinite(angleDegrees)) angleDegrees = 0;
  FreeRotation job;
  job.source = &source;
  job.result = &out;
  const double theta = RotationRadians(angleDegrees);
  job.c = std::cos(theta);
  job.s = std::sin(theta);
  job.fill = fill;
  auto body = [&](int first, int end) {
    constexpr int32_t kBand = 16;
    for (int32_t y0 = first; y0 < end; y0 += kBand) {
      const int32_t y1 = std::min(y0 + kBand, end);
      for (int32_t x0 = 0; x0 < width; x0 += kRotateStrip) {
        const int32_t x1 = std::min(x0 + kRotateStrip, width);
        for (int32_t y = y0; y < y1; ++y) job.Span(y, x0, x1);
      }
    }
  };
  RowWorkers::Run(height, body);
  return out;
}

// ---------------------------------------------------------------- image commands

bool CanvasSize(Document& doc, int32_t width, int32_t height, int32_t anchor, uint32_t color) {
  width = std::clamp(width, 1, kMaxGeometrySide);
  height = std::clamp(height, 1, kMaxGeometrySide);
  if (doc.layers.empty() || (width == doc.width && height == doc.height)) return false;
  anchor = std::clamp(anchor, 0, 8);
  const int32_t dx = (width - doc.width) * (anchor % 3) / 2;
  const int32_t dy = (height - doc.height) * (anchor / 3) / 2;
  PushWholeDocument(doc, u"Canvas Size");
  for (Layer& layer : doc.layers) {
    Surface grown(width, height);
    if (layer.opaqueBackground) grown.Fill(color | kOpaque);
    Blit(layer.pixels, grown, dx, dy);
    layer.pixels = std::move(grown);
    layer.DropEffectCaches();
    if (layer.text) {
      layer.text->x += dx;
      layer.text->y += dy;
    }
  }
  doc.width = width;
  doc.height = height;
  FinishCanvasChange(doc);
  return true;
}

bool CropToSelection(Document& doc) {
  return CropToRect(doc, doc.selection ? doc.selectionBounds : doc.Bounds());
}

bool CropToRect(Document& doc, const Rect& rect) {
  const Rect area = Intersect(rect, doc.Bounds());
  if (doc.layers.empty() || area.Empty() || area == doc.Bounds()) return false;
  PushWholeDocument(doc, u"Crop");
  for (Layer& layer : doc.layers) {
    Surface kept(area.Width(), area.Height());
    Blit(layer.pixels, kept, -area.x0, -area.y0);
    layer.pixels = std::move(kept);
    layer.DropEffectCaches();
    if (layer.text) {
      layer.text->x -= area.x0;
      layer.text->y -= area.y0;
    }
  }
  doc.width = area.Width();
  doc.height = area.Height();
  FinishCanvasChange(doc);
  return true;
}

bool RotateImage90(Document& doc, bool clockwise) {
  if (doc.layers.empty()) return false;
  PushWholeDocument(doc, clockwise ? u"Rotate Right" : u"Rotate Left");
  for (Layer& layer : doc.layers) {
    layer.pixels = Rotate90(layer.pixels, clockwise ? Turn::Clockwise : Turn::CounterClockwise);
    layer.DropEffectCaches();
    layer.text.reset();
  }
  std::swap(doc.width, doc.height);
  FinishCanvasChange(doc);
  return true;
}

bool RotateImage180(Document& doc) {
  if (doc.layers.empty()) return false;
  PushWholeDocument(doc, u"Rotate 180");
  for (Layer& layer : doc.layers) {
    layer.pixels = Rotate180(layer.pixels);
    layer.DropEffectCaches();
    layer.text.reset();
  }
  FinishCanvasChange(doc);
  return true;
}

bool FreeRotateImage(Document& doc, double angleDegrees, bool expand, uint32_t cornerColor) {
  if (doc.layers.empty() || !std::isfinite(angleDegrees) || WholeTurn(angleDegrees)) return false;
  const PictureSize size = FreeRotationSize(doc.width, doc.height, angleDegrees, expand);
  if (!RotationSizeAllowed(size)) return false;
  PushWholeDocument(doc, u"Rotate");
  for (Layer& layer : doc.layers) {
    const uint32_t fill = layer.opaqueBackground ? cornerColor | kOpaque : 0;
    layer.pixels = RotateFree(layer.pixels, angleDegrees, size.width, size.height, fill);
    layer.DropEffectCaches();
    layer.text.reset();
  }
  doc.width = size.width;
  doc.height = size.height;
  FinishCanvasChange(doc);
  return true;
}

bool FlipImage(Document& doc) {
  if (doc.layers.empty()) return false;
  PushWholeDocument(doc, u"Flip");
  for (Layer& layer : doc.layers) {
    FlipRows(layer.pixels);
    layer.text.reset();
  }
  if (doc.selection) {
    FlipRows(*doc.selection);
    RecomputeMaskBounds(doc);
  }
  FinishInPlaceChange(doc);
  return true;
}

bool MirrorImage(Document& doc) {
  if (doc.layers.empty()) return false;
  PushWholeDocument(doc, u"Mirror");
  for (Layer& layer : doc.layers) {
    MirrorRows(layer.pixels);
    layer.text.reset();
  }
  if (doc.selection) {
    MirrorRows(*doc.selection);
    RecomputeMaskBounds(doc);
  }
  FinishInPlaceChange(doc);
  return true;
}

// ---------------------------------------------------------------- layer commands

Rect LayerContentBox(const Layer& layer) {
  const Rect canvas{0, 0, layer.Width(), layer.Height()};
  if (layer.opaqueBackground) return canvas;
  Rect box = ShownBounds(layer.pixels, {});
  if (layer.extended) {
    const ExtendedContent& e = *layer.extended;
    box = Union(box, Shifted(ShownBounds(e.pixels, Shifted(canvas, -e.x, -e.y)), e.x, e.y));
  }
  return box;
}

std::u16string_view CheckResizeLayerSize(int32_t width, int32_t height) {
  return CheckCanvasSize(width, height, SizeRule::Strict).message;
}

bool ResizeLayer(Document& doc, int32_t width, int32_t height, int32_t algorithm) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer || width < 1 || height < 1) return false;
  const Rect box = LayerContentBox(*layer);
  int32_t x = 0, y = 0;
  CentredPlace(box, width, height, x, y);
  return ResizeLayerTo(doc, {x, y, x + width, y + height}, algorithm);
}

bool ResizeLayerTo(Document& doc, const Rect& target, int32_t algorithm) {
  Layer* layer = ActiveLayer(&doc);
  const int32_t width = target.Width(), height = target.Height();
  if (!layer || layer->opaqueBackground || width < 1 || height < 1 ||
      int64_t{width} * height > kMaxResizeLayerPixels)
    return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  PushLayer(doc, doc.active, u"Resize Layer");
  const Surface content = TakeContent(*layer, box);
  PlaceResizedContent(*layer, content, target, algorithm);
  FinishLayerChange(doc);
  return true;
}

bool FlipLayer(Document& doc) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  PushLayer(doc, doc.active, u"Flip Layer");
  FlipRows(layer->pixels);
  if (layer->extended) {
    ExtendedContent& e = *layer->extended;
    FlipRows(e.pixels);
    e.y = ClampToInt(double(doc.height) - (double(e.pixels.Height()) + e.y));
  }
  layer->text.reset();
  MarkLayerChanged(*layer);
  FinishLayerChange(doc);
  return true;
}

bool MirrorLayer(Document& doc) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  PushLayer(doc, doc.active, u"Mirror Layer");
  MirrorRows(layer->pixels);
  if (layer->extended) {
    ExtendedContent& e = *layer->extended;
    MirrorRows(e.pixels);
    e.x = ClampToInt(double(doc.width) - (double(e.pixels.Width()) + e.x));
  }
  layer->text.reset();
  MarkLayerChanged(*layer);
  FinishLayerChange(doc);
  return true;
}

bool RotateLayer90(Document& doc, bool clockwise) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  PushLayer(doc, doc.active, clockwise ? u"Rotate Layer Right" : u"Rotate Layer Left");
  const Turn turn = clockwise ? Turn::Clockwise : Turn::CounterClockwise;
  int32_t x = 0, y = 0;
  QuarterTurnPlace(box, clockwise, x, y);
  if (layer->opaqueBackground) {
    layer->pixels = OnBlackCanvas(Rotate90(layer->pixels, turn), doc.width, doc.height, x, y);
    layer->extended.reset();
    layer->text.reset();
    MarkLayerChanged(*layer);
  } else {
    SetContent(*layer, Rotate90(TakeContent(*layer, box), turn), x, y);
  }
  FinishLayerChange(doc);
  return true;
}

bool RotateLayer180(Document& doc) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  PushLayer(doc, doc.active, u"Rotate Layer 180");
  if (layer->opaqueBackground) {
    layer->pixels = Rotate180(layer->pixels);
    layer->extended.reset();
    layer->text.reset();
    MarkLayerChanged(*layer);
  } else {
    SetContent(*layer, Rotate180(TakeContent(*layer, box)), box.x0, box.y0);
  }
  FinishLayerChange(doc);
  return true;
}

bool FreeRotateLayer(Document& doc, double angleDegrees) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer || !std::isfinite(angleDegrees) || WholeTurn(angleDegrees)) return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  if (!layer->opaqueBackground &&
      !RotationSizeAllowed(FreeRotationSize(box.Width(), box.Height(), angleDegrees, true)))
    return false;
  PushLayer(doc, doc.active, u"Rotate Layer");
  const Surface content = TakeContent(*layer, box);
  PlaceRotatedContent(*layer, content, box, angleDegrees);
  FinishLayerChange(doc);
  return true;
}

void PlaceRotatedContent(Layer& layer, const Surface& content, const Rect& box, double angleDegrees) {
  if (layer.opaqueBackground) {
    // Turned within the canvas about its centre; what it uncovers is black.
    layer.pixels = RotateFree(content, angleDegrees, layer.Width(), layer.Height(), kOpaque);
    layer.extended.reset();
    layer.text.reset();
    MarkLayerChanged(layer);
    return;
  }
  const PictureSize size = FreeRotationSize(box.Width(), box.Height(), angleDegrees, true);
  int32_t x = 0, y = 0;
  CentredPlace(box, size.width, size.height, x, y);
  SetContent(layer, RotateFree(content, angleDegrees, size.width, size.height, 0), x, y);
}

void PlaceResizedContent(Layer& layer, const Surface& content, const Rect& target, int32_t algorithm) {
  SetContent(layer, Resample(content, target.Width(), target.Height(), static_cast<ResampleAlgorithm>(algorithm)),
             target.x0, target.y0);
}

Surface LayerContent(const Layer& layer, const Rect& box) { return TakeContent(layer, box); }

bool LayerFromSelection(Document& doc) {
  const Layer* active = ActiveLayer(&doc);
  if (!active || !doc.selection) return false;
  PushWholeDocument(doc, u"Layer from Selection", ExtendedContentAfterPush::Keep);
  Layer piece(doc.width, doc.height, NewLayerName(doc));
  const SelectionMask& mask = *doc.selection;
  const Rect area = Intersect(doc.selectionBounds, doc.Bounds());
  for (int32_t y = area.y0; y < area.y1; ++y) {
    const uint32_t* from = active->pixels.Row(y);
    const uint8_t* m = mask.Row(y);
    uint32_t* to = piece.pixels.Row(y);
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const uint32_t alpha = Mul(from[x] >> 24, m[x]);
      to[x] = alpha ? (from[x] & 0x00FFFFFFu) | alpha << 24 : 0;
    }
  }
  InsertLayer(doc, std::move(piece), doc.active + 1);
  return true;
}

}  // namespace tavora
