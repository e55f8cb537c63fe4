#include "tools/brush_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "base/memory.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"
#include "tools/healing.h"

namespace tavora {
namespace {

// The squared-distance shortcuts of a tip (rows out of reach, the solid
// core) use this relative margin so that rounding never puts a pixel on the
// wrong side: whatever they cannot decide for certain takes the formula.
constexpr double kMargin = 1e-9;

// Far enough outside any canvas that a dab there touches nothing, small
// enough that the box arithmetic stays within 32 bits.
constexpr double kFarAway = 1 << 29;

// The weight of a pixel by its distance from the dab centre.
class Tip {
 public:
  Tip() = default;
  Tip(int32_t size, int32_t hardness) : r_(size / 2.0), h_(hardness / 100.0), hard_(h_ >= 0.97) {
    outer2_ = (r_ + 0.5) * (r_ + 0.5) * (1 + kMargin);
    // Hard tips are capped at 1 from r - 0.5 inwards, soft ones from r x h.
    const double core = hard_ ? r_ - 0.5 : r_ * h_;
    core2_ = core > 0 ? core * core * (1 - kMargin) : 0;
  }

  // The weights of pixels x0 .. x0 + n - 1 of a row. Pixels a whole pixel
  // inside the solid core are 1 without a root; the rest take the formula.
  void Row(int32_t x0, int32_t n, double cx, double dy2, double* out) const {
    int32_t c0 = n, c1 = n;
    if (dy2 < core2_) {
      const double half = std::sqrt(core2_ - dy2);
      c0 = std::clamp(static_cast<int32_t>(std::ceil(cx - half + 0.5)) - x0, 0, n);
      c1 = std::clamp(static_cast<int32_t>(std::floor(cx + half - 0.5)) - x0, c0, n);
    }
    Exact(x0, 0, c0, cx, dy2, out);
    std::fill(out + c0, out + c1, 1.0);
    Exact(x0, c1, n, cx, dy2, out);
  }

  // The columns of row dy2 that may have weight, widened by a pixel so that
  // rounding never cuts one off; false when the row has none.
  bool Span(double cx, double dy2, int32_t& x0, int32_t& x1) const {
    if (dy2 > outer2_) return false;
    const double half = std::sqrt(outer2_ - dy2);
    x0 = static_cast<int32_t>(std::floor(cx - half - 0.5)) - 1;
    x1 = static_cast<int32_t>(std::ceil(cx + half - 0.5)) + 2;
    return true;
  }

 private:
  // The formulas themselves, pixel by pixel.
  void Exact(int32_t x0, int32_t i0, int32_t i1, double cx, double dy2, double* out) const {
    if (hard_) {
      for (int32_t i = i0; i < i1; ++i) {
        const double dx = (x0 + i) + 0.5 - cx;
        const double w = r_ + 0.5 - std::sqrt(dx * dx + dy2);
        out[i] = w < 0 ? 0 : w > 1 ? 1 : w;
      }
      return;
    }
    const double core = r_ * h_, band = r_ - r_ * h_ + 0.5, edge = r_ + 0.5;
    for (int32_t i = i0; i < i1; ++i) {
      const double dx = (x0 + i) + 0.5 - cx;
      const double d = std::sqrt(dx * dx + dy2);
      const double t = (d - core) / band, u = 1 - t;
      out[i] = d <= core ? 1 : d >= edge ? 0 : u * u * (3 - 2 * u);
    }
  }

  double r_ = 0, h_ = 0;
  bool hard_ = true;
  double outer2_ = 0, core2_ = 0;
};

// Walks the pixels of a clipped dab box that have weight, row by row.
template <typename PixelFn>
void ForEachWeighted(const Tip& tip, const Rect& box, double cx, double cy, PixelFn&& fn) {
  constexpr int32_t kChunk = 512;
  double weights[kChunk];
  for (int32_t y = box.y0; y < box.y1; ++y) {
    const double dy = y + 0.5 - cy, dy2 = dy * dy;
    int32_t x0, x1;
    if (!tip.Span(cx, dy2, x0, x1)) continue;
    x1 = std::min(x1, box.x1);
    for (int32_t x = std::max(x0, box.x0); x < x1; x += kChunk) {
      const int32_t n = std::min(kChunk, x1 - x);
      tip.Row(x, n, cx, dy2, weights);
      for (int32_t i = 0; i < n; ++i)
        if (weights[i] > 0) fn(x + i, y, weights[i]);
    }
  }
}

struct Stroke {
  bool active = false;
  Document* doc = nullptr;
  int32_t layer = -1;
  const PendingTileRecord* record = nullptr;
  uint64_t serial = 0;  // the record's, so a new record at the same address is not taken for it
  BrushParams params;
  uint32_t paint = 0;
  Tip tip;
  double step = 1, remaining = 1;
  double lastX = 0, lastY = 0, pressX = 0, pressY = 0;
  Rect dirty;

  // Highest coverage each canvas pixel reached in this stroke; only the
  // last stroke's dirty rectangle is ever non-zero between strokes.
  std::unique_ptr<uint8_t[], FreeDeleter> coverage;
  int32_t coverageW = 0, coverageH = 0;

  std::vector<uint32_t> copy;     // the area a blur or sharpen dab reads
  std::vector<uint32_t> carried;  // the colour a smudge drags along
  int32_t carriedOrigin = 0, carriedSide = 0;
  bool carriedFilled = false;

  uint32_t random = 0x2545F491u;  // sharpen's dither, kept across dabs
};

Stroke g;

struct CloneSource {
  double x = 0, y = 0;
  bool set = false;
  bool offsetKnown = false;
  int32_t offsetX = 0, offsetY = 0;
};
CloneSource g_clone;

bool CopiesTexture(BrushTool tool) { return tool == BrushTool::Clone || tool == BrushTool::Heal; }
bool Heals(BrushTool tool) { return tool == BrushTool::SpotHeal || tool == BrushTool::Heal; }

BrushParams Clamped(BrushParams p) {
  p.size = std::clamp(p.size, 1, 500);
  p.hardness = std::clamp(p.hardness, 0, 100);
  p.opacity = std::clamp(p.opacity, 1, 100);
  p.spacing = std::clamp(p.spacing, 1, 200);
  p.strength = std::clamp(p.strength, 0, 100);
  p.range = std::clamp(p.range, kRangeAll, kRangeHighlights);
  p.exposure = std::clamp(p.exposure, 1, 100);
  return p;
}

int32_t ToPixel(double v) { return static_cast<int32_t>(std::clamp(v, -kFarAway, kFarAway)); }

// A stroke ends when another history step has closed its record (an undo,
// a layer change): painting on could not be undone.
bool Owns(const Document& doc) {
  if (!g.active || g.doc != &doc) return false;
  if (!doc.pendingStroke || doc.pendingStroke.get() != g.record ||
      doc.pendingStroke->serial != g.serial) {
    g.active = false;
    g.doc = nullptr;
    return false;
  }
  return true;
}

// Zero coverage for a new stroke. The buffer is replaced only when the
// canvas area changes; otherwise clearing what the last stroke wrote is
// enough.
void PrepareCoverage(const Document& doc) {
  const std::size_t area = std::size_t(doc.width) * std::size_t(doc.height);
  if (!g.coverage || area != std::size_t(g.coverageW) * std::size_t(g.coverageH)) {
    g.coverage.reset(static_cast<uint8_t*>(CheckedAllocZeroed(area, 1)));
  } else if (doc.width != g.coverageW) {
    std::memset(g.coverage.get(), 0, area);
  } else {
    const Rect r = Intersect(g.dirty, doc.Bounds());
    for (int32_t y = r.y0; y < r.y1; ++y)
      std::memset(g.coverage.get() + std::size_t(y) * std::size_t(doc.width) + r.x0, 0,
                  std::size_t(r.Width()));
  }
  g.coverageW = doc.width;
  g.coverageH = doc.height;
}

uint8_t* CoverageRow(int32_t y) { return g.coverage.get() + std::size_t(y) * std::size_t(g.coverageW); }

// Mixes q into p with weight m / 255, colours weighted by alpha so that a
// transparent pixel's hidden colour never bleeds in.
uint32_t Mix(uint32_t p, uint32_t q, uint32_t m) {
  if (m == 0) return p;
  const uint32_t pa = p >> 24, qa = q >> 24;
  uint32_t out = 0;
  if ((pa & qa) == 255) {
    out = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) {
      const uint32_t c = ((p >> shift) & 255) * (255 - m) + ((q >> shift) & 255) * m;
      out |= (((c + 128) * 257) >> 16) << shift;
    }
    return out;
  }
  const uint32_t wp = pa * (255 - m), wq = qa * m, sum = wp + wq;
  if (sum == 0) return p & 0x00FFFFFFu;
  out = ((sum + 127) / 255) << 24;
  for (int shift = 0; shift < 24; shift += 8) {
    const uint32_t c = (((p >> shift) & 255) * wp + ((q >> shift) & 255) * wq + sum / 2) / sum;
    out |= c << shift;
  }
  return out;
}

// Alpha-weighted sums of the 3 x 3 neighbourhood of (x, y) in the copy,
// neighbours clamped at its edge.
struct Neighbourhood {
  uint32_t a = 0, r = 0, g = 0, b = 0;
};
Neighbourhood Gather(const uint32_t* copy, const Rect& area, int32_t x, int32_t y) {
  Neighbourhood n;
  const int32_t w = area.Width();
  const int32_t xs[3] = {std::max(x - 1, area.x0) - area.x0, x - area.x0,
                         std::min(x + 1, area.x1 - 1) - area.x0};
  for (int32_t yy : {std::max(y - 1, area.y0), y, std::min(y + 1, area.y1 - 1)}) {
    const uint32_t* row = copy + std::size_t(yy - area.y0) * std::size_t(w);
    for (int32_t xx : xs) {
      const uint32_t p = row[xx], a = p >> 24;
      n.a += a;
      n.r += ((p >> 16) & 255) * a;
      n.g += ((p >> 8) & 255) * a;
      n.b += (p & 255) * a;
    }
  }
  return n;
}

// The dab box grown by one pixel within the layer, copied before the dab.
Rect CopyArea(const Surface& pixels, const Rect& box) {
  const Rect area = Intersect({box.x0 - 1, box.y0 - 1, box.x1 + 1, box.y1 + 1},
                              {0, 0, pixels.Width(), pixels.Height()});
  g.copy.resize(std::size_t(area.Width()) * std::size_t(area.Height()));
  for (int32_t y = area.y0; y < area.y1; ++y)
    std::memcpy(g.copy.data() + std::size_t(y - area.y0) * std::size_t(area.Width()),
                pixels.Row(y) + area.x0, std::size_t(area.Width()) * 4);
  return area;
}

uint8_t MaskAt(const Document& doc, int32_t x, int32_t y) {
  return doc.selection ? doc.selection->At(x, y) : 255;
}

// The dabs that work from the stroke-start pixels: fn(x, y, coverage, mask)
// for each selected pixel whose coverage rises above the highest this
// stroke has given it so far.
template <typename Fn>
void ForEachRaisedCoverage(const Document& doc, const Rect& box, double cx, double cy, Fn&& fn) {
  ForEachWeighted(g.tip, box, cx, cy, [&](int32_t x, int32_t y, double w) {
    const uint32_t c = CoverageByte(w);
    uint8_t& reached = CoverageRow(y)[x];
    if (c <= reached) return;
    reached = static_cast<uint8_t>(c);
    const uint32_t mask = MaskAt(doc, x, y);
    if (mask == 0) return;
    fn(x, y, c, mask);
  });
}

// ---- Brush and Eraser: every pixel is recomputed from its stroke-start
// value at the highest coverage the stroke has given it, so overlapping dabs
// never build up.
void PaintDab(Document& doc, Surface& pixels, bool opaqueLayer, const Rect& box, double cx,
              double cy) {
  const bool erase = g.params.tool == BrushTool::Eraser;
  const uint32_t opacity = uint32_t(g.params.opacity);
  const uint32_t paintAlpha = g.paint >> 24, paintRgb = g.paint & 0x00FFFFFFu;
  const uint32_t matte = g.params.secondary | 0xFF000000u;
  ForEachRaisedCoverage(doc, box, cx, cy, [&](int32_t x, int32_t y, uint32_t c, uint32_t mask) {
    const uint32_t a = (c * opacity / 100) * mask / 255;
    const uint32_t start = PixelBeforeStroke(doc, x, y);
    uint32_t out;
    if (!erase) {
      out = Over(start, Mul(a, paintAlpha) << 24 | paintRgb);
    } else if (!opaqueLayer) {
      out = (start & 0x00FFFFFFu) | Mul(start >> 24, 255 - a) << 24;
    } else {
      out = 0;
      for (int shift = 0; shift < 32; shift += 8)
        out |= ((((start >> shift) & 255) * (255 - a) + ((matte >> shift) & 255) * a) / 255) << shift;
    }
    pixels.At(x, y) = out;
  });
}

// ---- Sponge and Burn.
// Both scale each channel's distance from the pixel's luminance
// Y = 0.299 R + 0.587 G + 0.114 B, which keeps hue and brightness and leaves
// greys alone: Sponge by 1 - t (t = 1 turns the pixel grey), Burn by 1 + t,
// limited so that no channel clips and the hue cannot shift. Per stroke,
// t = exposure x coverage x selection x band(Y), recomputed from the
// stroke-start pixel like the paint dabs, so a stroke is one pass of the
// exposure however often it crosses a pixel. The bands fade smoothly:
// Shadows is full up to Y = 64 and gone from 128, Highlights mirrors it
// (gone up to 128, full from 192), Midtones is full over 96..160 and gone
// below 32 and above 224.
double Smoothstep(double e0, double e1, double v) {
  const double t = std::clamp((v - e0) / (e1 - e0), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

double BandWeight(int32_t range, double luma) {
  switch (range) {
    case kRangeShadows: return 1 - Smoothstep(64, 128, luma);
    case kRangeMidtones: return Smoothstep(32, 96, luma) * (1 - Smoothstep(160, 224, luma));
    case kRangeHighlights: return Smoothstep(128, 192, luma);
    default: return 1;
  }
}

uint32_t Saturate(uint32_t pixel, double amount, int32_t range, bool more) {
  const int32_t ch[3] = {int32_t(pixel >> 16) & 255, int32_t(pixel >> 8) & 255, int32_t(pixel) & 255};
  // Integer weights: a grey's luminance is exactly its level.
  const double luma = (299 * ch[0] + 587 * ch[1] + 114 * ch[2]) / 1000.0;
  const double t = amount * BandWeight(range, luma);
  if (t <= 0) return pixel;
  double f = more ? 1 + t : 1 - t;
  if (more) {
    for (int32_t c : ch) {
      if (c > luma) f = std::min(f, (255 - luma) / (c - luma));
      else if (c < luma) f = std::min(f, luma / (luma - c));
    }
  }
  uint32_t out = pixel & 0xFF000000u;
  for (int i = 0; i < 3; ++i) {
    const double v = std::clamp(luma + (ch[i] - luma) * f, 0.0, 255.0);
    out |= uint32_t(v + 0.5) << (16 - 8 * i);
  }
  return out;
}

void ToneDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  const bool burn = g.params.tool == BrushTool::Burn;
  const double exposure = g.params.exposure / 100.0;
  ForEachRaisedCoverage(doc, box, cx, cy, [&](int32_t x, int32_t y, uint32_t c, uint32_t mask) {
    const double amount = exposure * (c / 255.0) * (mask / 255.0);
    pixels.At(x, y) = Saturate(PixelBeforeStroke(doc, x, y), amount, g.params.range, burn);
  });
}

// ---- Blur: the 3 x 3 alpha-weighted average of the pixels before the dab,
// mixed in by weight; blur dabs accumulate.
void BlurDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  const Rect area = CopyArea(pixels, box);
  const double k = g.params.strength / 100.0 * 0.5;
  ForEachWeighted(g.tip, box, cx, cy, [&](int32_t x, int32_t y, double w) {
    const uint32_t mask = MaskAt(doc, x, y);
    if (mask == 0) return;
    const uint32_t m = std::min(static_cast<uint32_t>(w * k * mask), 255u);
    if (m == 0) return;
    const Neighbourhood n = Gather(g.copy.data(), area, x, y);
    uint32_t mean = 0;
    if (n.a > 0) {
      mean = n.a / 9 << 24 | (n.r + n.a / 2) / n.a << 16 | (n.g + n.a / 2) / n.a << 8 |
             (n.b + n.a / 2) / n.a;
    }
    uint32_t& p = pixels.At(x, y);
    p = Mix(p, mean, m);
  });
}

// ---- Smudge: a patch of colour travels with the brush. Each dab lays the
// patch down (weight strength x 0.8 x footprint x selection) and then picks
// up the pixels it passed over, keeping the same share of what it carried,
// so a smear fades out over a few brush widths.
void SmudgeDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  const double carry = g.params.strength / 100.0 * 0.8;
  const int32_t fx = static_cast<int32_t>(std::floor(cx)), fy = static_cast<int32_t>(std::floor(cy));
  const int32_t side = g.carriedSide, o = g.carriedOrigin;
  if (!g.carriedFilled) {
    // The first dab picks up what lies under it, the layer's edge repeated.
    g.carried.resize(std::size_t(side) * std::size_t(side));
    for (int32_t j = 0; j < side; ++j)
      for (int32_t i = 0; i < side; ++i)
        g.carried[std::size_t(j) * side + i] =
            pixels.At(std::clamp(fx + i - o, 0, pixels.Width() - 1),
                      std::clamp(fy + j - o, 0, pixels.Height() - 1));
    g.carriedFilled = true;
  }
  ForEachWeighted(g.tip, box, cx, cy, [&](int32_t x, int32_t y, double w) {
    uint32_t& q = g.carried[std::size_t(y - fy + o) * side + std::size_t(x - fx + o)];
    uint32_t& p = pixels.At(x, y);
    const uint32_t under = p;
    const uint32_t mask = MaskAt(doc, x, y);
    if (mask > 0) p = Mix(p, q, std::min(static_cast<uint32_t>(w * carry * mask), 255u));
    q = Mix(q, under, static_cast<uint32_t>(w * (1 - carry) * 255));
  });
}

// ---- Sharpen: pushes each channel away from the neighbourhood mean, at
// most 6 levels per dab so that halos cannot build up quickly; a dither
// gives small corrections the right average instead of rounding them away.
double NextRandom() {
  g.random = g.random * 1664525u + 1013904223u;
  return (g.random >> 8) * (1.0 / 16777216.0);
}

void SharpenDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  const Rect area = CopyArea(pixels, box);
  const double s = g.params.strength / 100.0, k = s * s * 0.12;
  ForEachWeighted(g.tip, box, cx, cy, [&](int32_t x, int32_t y, double w) {
    const uint32_t mask = MaskAt(doc, x, y);
    if (mask == 0) return;
    const Neighbourhood n = Gather(g.copy.data(), area, x, y);
    uint32_t& p = pixels.At(x, y);
    const uint32_t sums[3] = {n.r, n.g, n.b};
    uint32_t out = p & 0xFF000000u;
    for (int i = 0; i < 3; ++i) {
      const int32_t shift = 16 - 8 * i;
      const int32_t v = int32_t(p >> shift) & 255;
      const double mean = n.a > 0 ? double(sums[i]) / n.a : v;
      const double delta = std::clamp((v - mean) * k * w * mask / 255, -6.0, 6.0);
      const int32_t moved = v + static_cast<int32_t>(std::floor(delta + NextRandom()));
      out |= uint32_t(std::clamp(moved, 0, 255)) << shift;
    }
    p = out;
  });
}

// ---- Clone, Healing Brush and Spot Healing: coverage builds up by union,
// acc' = acc + (255 - acc) x c / 255, so overlapping dabs fill solid; a
// pixel is redone only when its coverage grew.
template <typename Fn>
void ForEachGrownCoverage(const Document& doc, const Rect& box, double cx, double cy, Fn&& fn) {
  ForEachWeighted(g.tip, box, cx, cy, [&](int32_t x, int32_t y, double w) {
    const uint32_t c = CoverageByte(w);
    if (c == 0) return;
    uint8_t& acc = CoverageRow(y)[x];
    const uint32_t grown = acc + ((255 - acc) * c + 127) / 255;
    if (grown <= acc) return;
    acc = static_cast<uint8_t>(grown);
    const uint32_t mask = MaskAt(doc, x, y);
    if (mask == 0) return;
    fn(x, y, grown, mask);
  });
}

// The stroke-start pixel at the offset laid over the stroke-start pixel;
// pixels painted in this stroke are never cloned again.
void CloneDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  const uint32_t opacity = uint32_t(g.params.opacity);
  ForEachGrownCoverage(doc, box, cx, cy, [&](int32_t x, int32_t y, uint32_t acc, uint32_t mask) {
    const int32_t sx = x + g_clone.offsetX, sy = y + g_clone.offsetY;
    if (sx < 0 || sy < 0 || sx >= pixels.Width() || sy >= pixels.Height()) return;
    const uint32_t source = PixelBeforeStroke(doc, sx, sy);
    const uint32_t a = (acc * opacity / 100) * mask / 255;
    if (a * (source >> 24) <= 254) return;
    const uint32_t alpha = a * (source >> 24) / 255;
    pixels.At(x, y) = Over(PixelBeforeStroke(doc, x, y), (source & 0x00FFFFFFu) | alpha << 24);
  });
}

// Spot Healing marks the blemish, shown darkened until the release heals it.
void MarkDab(Document& doc, Surface& pixels, const Rect& box, double cx, double cy) {
  ForEachGrownCoverage(doc, box, cx, cy, [&](int32_t x, int32_t y, uint32_t acc, uint32_t) {
    const uint32_t start = PixelBeforeStroke(doc, x, y);
    const uint32_t keep = 255 - acc * 2 / 5;
    uint32_t out = start & 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8) out |= Mul((start >> shift) & 255, keep) << shift;
    pixels.At(x, y) = out;
  });
}

uint32_t StartPixel(const void* context, int32_t x, int32_t y) {
  return PixelBeforeStroke(*static_cast<const Document*>(context), x, y);
}

// The release of a healing stroke: the painted area, weighted by the
// selection, is healed from the stroke-start pixels.
void HealStroke(Document& doc) {
  Surface& pixels = doc.layers[g.layer].pixels;
  HealJob job;
  job.image = {&StartPixel, &doc, pixels.Width(), pixels.Height()};
  job.rect = Intersect(g.dirty, {0, 0, pixels.Width(), pixels.Height()});
  if (job.rect.Empty()) return;
  job.paint.resize(std::size_t(job.rect.Width()) * std::size_t(job.rect.Height()));
  for (int32_t y = job.rect.y0; y < job.rect.y1; ++y)
    for (int32_t x = job.rect.x0; x < job.rect.x1; ++x)
      job.paint[std::size_t(y - job.rect.y0) * job.rect.Width() + (x - job.rect.x0)] =
          static_cast<uint8_t>(CoverageRow(y)[x] * uint32_t(MaskAt(doc, x, y)) / 255);
  job.useOffset = g.params.tool == BrushTool::Heal;
  job.offsetX = g_clone.offsetX;
  job.offsetY = g_clone.offsetY;
  job.amount = g.params.opacity;
  const std::vector<uint32_t> healed = HealRegion(job);
  for (int32_t y = job.rect.y0; y < job.rect.y1; ++y)
    std::copy_n(healed.data() + std::size_t(y - job.rect.y0) * job.rect.Width(), job.rect.Width(),
                pixels.Row(y) + job.rect.x0);
  Invalidate(doc, g.layer, job.rect);
}

}  // namespace

void SetCloneSource(double x, double y) {
  g_clone = {x, y, true, false, 0, 0};
}

bool CloneSourceSet() { return g_clone.set; }

void ClearCloneSource() { g_clone = {}; }

std::u16string_view BrushHistoryName(BrushTool tool) {
  switch (tool) {
    case BrushTool::Brush: return u"Brush";
    case BrushTool::Eraser: return u"Erase";
    case BrushTool::Blur: return u"Blur";
    case BrushTool::Smudge: return u"Smudge";
    case BrushTool::Sharpen: return u"Sharpen";
    case BrushTool::Sponge: return u"Sponge";
    case BrushTool::Burn: return u"Burn";
    case BrushTool::Clone: return u"Clone";
    case BrushTool::SpotHeal: return u"Spot Healing";
    case BrushTool::Heal: return u"Healing Brush";
  }
  return u"Brush";
}

double DabStep(const BrushParams& params) {
  const bool spaced = params.tool == BrushTool::Brush || params.tool == BrushTool::Eraser ||
                      CopiesTexture(params.tool);
  return std::max(spaced ? params.size * params.spacing / 100.0 : params.size * 0.08, 1.0);
}

Rect DabBox(int32_t size, double cx, double cy) {
  if (!std::isfinite(cx) || !std::isfinite(cy)) return {};
  const double r = size / 2.0;
  return {ToPixel(std::floor(cx - r - 1)), ToPixel(std::floor(cy - r - 1)),
          ToPixel(std::ceil(cx + r + 1)), ToPixel(std::ceil(cy + r + 1))};
}

Footprint DabFootprint(int32_t size, int32_t hardness, double cx, double cy) {
  Footprint f;
  f.box = DabBox(size, cx, cy);
  if (f.box.Empty()) return f;
  f.weight.assign(std::size_t(f.box.Width()) * std::size_t(f.box.Height()), 0.0);
  ForEachWeighted(Tip(size, hardness), f.box, cx, cy, [&](int32_t x, int32_t y, double w) {
    f.weight[std::size_t(y - f.box.y0) * std::size_t(f.box.Width()) + std::size_t(x - f.box.x0)] = w;
  });
  return f;
}

void BeginStroke(Document& doc, double x, double y, int button, const BrushParams& params) {
  if (g.active) EndStroke(*g.doc);
  if (!ActiveLayer(&doc) || !std::isfinite(x) || !std::isfinite(y)) return;
  x = std::clamp(x, -kFarAway, kFarAway);
  y = std::clamp(y, -kFarAway, kFarAway);
  if (CopiesTexture(params.tool)) {
    if (!g_clone.set) return;  // nothing to copy from yet
    if (!params.keepOffset || !g_clone.offsetKnown) {
      g_clone.offsetX = static_cast<int32_t>(std::floor(g_clone.x - x + 0.5));
      g_clone.offsetY = static_cast<int32_t>(std::floor(g_clone.y - y + 0.5));
      g_clone.offsetKnown = true;
    }
  }
  g.params = Clamped(params);
  g.paint = button == 2 ? g.params.secondary : g.params.primary;
  g.tip = Tip(g.params.size, g.params.hardness);
  g.step = DabStep(g.params);
  PrepareCoverage(doc);
  g.dirty = {};
  g.layer = doc.active;
  BeginTiles(doc, g.layer, BrushHistoryName(g.params.tool));
  g.record = doc.pendingStroke.get();
  g.serial = g.record ? g.record->serial : 0;
  g.carriedOrigin = static_cast<int32_t>(std::ceil(g.params.size / 2.0)) + 2;
  g.carriedSide = 2 * g.carriedOrigin + 1;
  g.carriedFilled = false;
  g.active = true;
  g.doc = &doc;
  g.pressX = g.lastX = x;
  g.pressY = g.lastY = y;
  Dab(doc, x, y);
  // The second dab follows the press by the spacing for every tool; the
  // retouching tools then go on at their fixed step.
  g.remaining = std::max(g.params.size * g.params.spacing / 100.0, 1.0);
}

void ContinueStroke(Document& doc, double x, double y) {
  if (!Owns(doc) || !std::isfinite(x) || !std::isfinite(y)) return;
  // Far beyond any canvas a position only sets the direction; keeping it
  // within reach keeps the arithmetic of the spacing exact.
  x = std::clamp(x, -kFarAway, kFarAway);
  y = std::clamp(y, -kFarAway, kFarAway);
  const double dx = x - g.lastX, dy = y - g.lastY;
  const double length = std::sqrt(dx * dx + dy * dy);
  if (!(length >= 1e-6) || !std::isfinite(length)) return;
  if (length >= g.remaining) {
    // Dabs lie at path distances remaining + k x step. Only those that can
    // reach the layer are placed, so a move far off the canvas costs
    // nothing however long it is; the spacing carries on all the same.
    const double lastK = std::floor((length - g.remaining) / g.step);
    const double reach = g.params.size / 2.0 + 2;
    double t0 = 0, t1 = 1;
    const auto clip = [&](double p, double q) {  // Liang-Barsky: keep p t <= q
      if (p == 0) {
        if (q < 0) t1 = -1;
      } else if (p < 0) {
        t0 = std::max(t0, q / p);
      } else {
        t1 = std::min(t1, q / p);
      }
    };
    clip(-dx, g.lastX + reach);
    clip(dx, doc.width + reach - g.lastX);
    clip(-dy, g.lastY + reach);
    clip(dy, doc.height + reach - g.lastY);
    if (t0 <= t1) {
      const double first = std::max(0.0, std::ceil((t0 * length - g.remaining) / g.step));
      const double last = std::min(lastK, std::floor((t1 * length - g.remaining) / g.step));
      for (double k = first; k <= last; ++k) {
        const double at = g.remaining + k * g.step;
        Dab(doc, g.lastX + dx * at / length, g.lastY + dy * at / length);
      }
    }
    g.remaining = g.step - (length - (g.remaining + lastK * g.step));
  } else {
    g.remaining -= length;
  }
  g.lastX = x;
  g.lastY = y;
}

void EndStroke(Document& doc) {
  if (!Owns(doc)) return;
  g.active = false;
  g.doc = nullptr;
  // Something else (an undo) may have closed the record mid-stroke.
  if (!doc.pendingStroke || doc.pendingStroke.get() != g.record) return;
  if (Heals(g.params.tool) && g.layer < doc.LayerCount() && doc.width == g.coverageW &&
      doc.height == g.coverageH)
    HealStroke(doc);
  if (doc.pendingStroke->order.empty()) {
    // Nothing was saved (every dab clipped away), yet the stroke is a step:
    // keep the tile under the press point, or the selection on a layer
    // without pixels.
    const Surface& pixels = doc.layers[g.layer].pixels;
    if (!pixels.Empty()) {
      const int32_t px = std::clamp(ToPixel(g.pressX), 0, pixels.Width() - 1);
      const int32_t py = std::clamp(ToPixel(g.pressY), 0, pixels.Height() - 1);
      SaveTiles(doc, {px, py, px + 1, py + 1});
    }
    if (doc.pendingStroke->order.empty()) SaveSelection(doc);
  }
  CommitTiles(doc);
}

void Dab(Document& doc, double x, double y) {
  if (!Owns(doc) || g.layer >= doc.LayerCount()) return;
  Layer& layer = doc.layers[g.layer];
  Surface& pixels = layer.pixels;
  Rect box = Intersect(Intersect(DabBox(g.params.size, x, y), doc.Bounds()),
                       {0, 0, pixels.Width(), pixels.Height()});
  if (doc.selection)
    box = Intersect(Intersect(box, doc.selectionBounds),
                    {0, 0, doc.selection->Width(), doc.selection->Height()});
  const bool covered = g.params.tool == BrushTool::Brush || g.params.tool == BrushTool::Eraser ||
                       g.params.tool == BrushTool::Sponge || g.params.tool == BrushTool::Burn ||
                       CopiesTexture(g.params.tool) || g.params.tool == BrushTool::SpotHeal;
  // A canvas resized under the stroke no longer matches its coverage.
  if (covered && (doc.width != g.coverageW || doc.height != g.coverageH)) return;
  if (box.Empty()) return;
  SaveTiles(doc, box);
  switch (g.params.tool) {
    case BrushTool::Brush:
    case BrushTool::Eraser: PaintDab(doc, pixels, layer.opaqueBackground, box, x, y); break;
    case BrushTool::Sponge:
    case BrushTool::Burn: ToneDab(doc, pixels, box, x, y); break;
    case BrushTool::Blur: BlurDab(doc, pixels, box, x, y); break;
    case BrushTool::Smudge: SmudgeDab(doc, pixels, box, x, y); break;
    case BrushTool::Sharpen: SharpenDab(doc, pixels, box, x, y); break;
    case BrushTool::Clone:
    case BrushTool::Heal: CloneDab(doc, pixels, box, x, y); break;
    case BrushTool::SpotHeal: MarkDab(doc, pixels, box, x, y); break;
  }
  g.dirty = Union(g.dirty, box);
  Invalidate(doc, g.layer, box);
}

bool StrokeActive() { return g.active; }

void ForgetStroke(const Document& doc) {
  if (!Owns(doc)) return;
  g.active = false;
  g.doc = nullptr;
  g.record = nullptr;
}

}  // namespace tavora
