#include "tools/fill.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"
#include "processing/filters.h"
#include "tools/selection.h"

namespace tavora {
namespace {

int32_t FloorToPixel(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9))); }

void ScanlineFlood(const Surface& image, int32_t seedX, int32_t seedY, uint32_t seed, int32_t threshold,
                   FloodResult& out) {
  const int32_t w = image.Width(), h = image.Height();
  auto open = [&](int32_t x, int32_t y) {
    return out.mask.At(x, y) == 0 && ColourMatches(image.At(x, y), seed, threshold);
  };
  std::vector<std::pair<int32_t, int32_t>> stack;
  stack.reserve(4096);
  stack.emplace_back(seedX, seedY);
  while (!stack.empty()) {
    const auto [x, y] = stack.back();
    stack.pop_back();
    if (out.mask.At(x, y)) continue;
    int32_t left = x, right = x;
    while (left > 0 && open(left - 1, y)) --left;
    while (right + 1 < w && open(right + 1, y)) ++right;
    std::memset(out.mask.Row(y) + left, 255, std::size_t(right - left + 1));
    out.rect = Union(out.rect, {left, y, right + 1, y + 1});
    // One seed for each run of open pixels above and below the span.
    for (const int32_t ny : {y - 1, y + 1}) {
      if (ny < 0 || ny >= h) continue;
      bool inRun = false;
      for (int32_t nx = left; nx <= right; ++nx) {
        const bool o = open(nx, ny);
        if (o && !inRun) stack.emplace_back(nx, ny);
        inRun = o;
      }
    }
  }
}

}  // namespace

int32_t ToleranceThreshold(int32_t tolerance) {
  const int32_t t = std::clamp(tolerance, 0, 100);
  return static_cast<int32_t>(std::floor(255.0 * t * t / 10000.0 + 0.5));
}

std::optional<FloodResult> FloodArea(const Surface& image, int32_t seedX, int32_t seedY, int32_t threshold,
                                     bool contiguous) {
  if (seedX < 0 || seedY < 0 || seedX >= image.Width() || seedY >= image.Height()) return std::nullopt;
  FloodResult out;
  out.mask = SelectionMask(image.Width(), image.Height());
  const uint32_t seed = image.At(seedX, seedY);
  if (contiguous) {
    ScanlineFlood(image, seedX, seedY, seed, threshold, out);
    return out;
  }
  for (int32_t y = 0; y < image.Height(); ++y) {
    const uint32_t* row = image.Row(y);
    uint8_t* m = out.mask.Row(y);
    int32_t first = -1, last = -1;
    for (int32_t x = 0; x < image.Width(); ++x) {
      if (!ColourMatches(row[x], seed, threshold)) continue;
      m[x] = 255;
      if (first < 0) first = x;
      last = x;
    }
    if (first >= 0) out.rect = Union(out.rect, {first, y, last + 1, y + 1});
  }
  return out;
}

bool FillAt(Document& doc, double x, double y, uint32_t color, const FillOptions& options) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  const auto area = FloodArea(layer->pixels, FloorToPixel(x), FloorToPixel(y),
                              ToleranceThreshold(options.tolerance), options.contiguous);
  if (!area) return false;
  const Rect r = area->rect;
  BeginTiles(doc, doc.active, u"Flood Fill");
  SaveTiles(doc, r);
  const uint32_t strength = static_cast<uint32_t>(std::clamp(options.opacity, 1, 100)) * 255 / 100;
  const uint32_t rgb = color & 0x00FFFFFFu;
  for (int32_t py = r.y0; py < r.y1; ++py) {
    uint32_t* row = layer->pixels.Row(py);
    const uint8_t* found = area->mask.Row(py);
    const uint8_t* sel = doc.selection ? doc.selection->Row(py) : nullptr;
    for (int32_t px = r.x0; px < r.x1; ++px) {
      if (!found[px]) continue;
      const uint32_t a = strength * (sel ? sel[px] : 255u) / 255;
      if (a) row[px] = Over(row[px], rgb | a << 24);
    }
  }
  CommitTiles(doc);
  Invalidate(doc, doc.active, r);
  return true;
}

bool MagicWandAt(Document& doc, double x, double y, int32_t mode, const WandOptions& options) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  const Surface* image = &layer->pixels;
  if (options.allLayers) {
    Composite(doc);
    image = &CompositeSource(doc);
  }
  const auto area = FloodArea(*image, FloorToPixel(x), FloorToPixel(y), ToleranceThreshold(options.tolerance),
                              options.contiguous);
  if (!area) return false;
  // The region is the area's rectangle, widened to let a feather spread.
  const int32_t g = options.feather > 0 ? static_cast<int32_t>(options.feather * 2.6) + 2 : 0;
  const Rect& a = area->rect;
  SelectionRegion region;
  region.rect = Intersect({a.x0 - g, a.y0 - g, a.x1 + g, a.y1 + g}, doc.Bounds());
  region.mask = SelectionMask(region.rect.Width(), region.rect.Height());
  for (int32_t py = a.y0; py < a.y1; ++py)
    std::memcpy(region.mask.Row(py - region.rect.y0) + (a.x0 - region.rect.x0), area->mask.Row(py) + a.x0,
                std::size_t(a.Width()));
  if (options.feather > 0)
    GaussianBlurBytes(region.mask.Data(), region.rect.Width(), region.rect.Height(),
                      static_cast<float>(options.feather * 1.5));
  return CommitRegion(doc, region, mode);
}

}  // namespace tavora
