#include "tools/selection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/row_workers.h"
#include "document/document_events.h"
#include "document/history.h"
#include "processing/filters.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr std::u16string_view kSelectionLabel = u"Selection";

// A byte product with rounding: exactly round(a x b / 255).
uint32_t Mul(uint32_t a, uint32_t b) { return ((a * b + 128) * 257) >> 16; }

// Pointer positions can lie far outside the canvas; keep them in int range.
int32_t FloorToInt(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9))); }
int32_t CeilToInt(double v) { return static_cast<int32_t>(std::ceil(std::clamp(v, -1e9, 1e9))); }
int32_t RoundToInt(double v) { return FloorToInt(v + 0.5); }

void FillEllipse(double x0, double y0, double x1, double y1, const Rect& rect, SelectionMask& mask) {
  const double cx = (x0 + x1) / 2, cy = (y0 + y1) / 2;
  const double rx = std::max((x1 - x0) / 2, 0.5), ry = std::max((y1 - y0) / 2, 0.5);
  for (int32_t y = rect.y0; y < rect.y1; ++y) {
    uint8_t* out = mask.Row(y - rect.y0);
    const double v = (y + 0.5 - cy) / ry;
    for (int32_t x = rect.x0; x < rect.x1; ++x) {
      const double u = (x + 0.5 - cx) / rx;
      const double d = std::sqrt(u * u + v * v);
      double coverage = 1.0;  // the very centre, where the distance has no direction
      if (d > 0) {
        // The distance to the rim in pixels, from the first-order expansion of d.
        const double gradient = std::sqrt((u / rx) * (u / rx) + (v / ry) * (v / ry)) / d;
        coverage = std::clamp(0.5 - (d - 1) / gradient, 0.0, 1.0);
      }
      out[x - rect.x0] = static_cast<uint8_t>(coverage * 255 + 0.5);
    }
  }
}

// One span [a, b) of a sub-scanline, weighed a quarter, in row coordinates.
void AddSpan(std::vector<double>& cover, double a, double b) {
  const int32_t w = static_cast<int32_t>(cover.size());
  a = std::max(a, 0.0);
  b = std::min(b, double(w));
  if (a >= b) return;
  const int32_t ia = static_cast<int32_t>(a), ib = static_cast<int32_t>(b);
  if (ia == ib) {
    cover[ia] += (b - a) * 0.25;
    return;
  }
  cover[ia] += (ia + 1 - a) * 0.25;
  for (int32_t i = ia + 1; i < ib; ++i) cover[i] += 0.25;
  if (ib < w) cover[ib] += (b - ib) * 0.25;
}

void FillPolygon(std::span<const ShapePoint> p, const Rect& rect, SelectionMask& mask) {
  // Each edge top to bottom, half-open in y, so a vertex shared by two edges
  // is crossed once; flat edges never cross.
  struct Edge {
    double x0, y0, x1, y1;
  };
  std::vector<Edge> edges;
  for (std::size_t i = 0; i < p.size(); ++i) {
    const ShapePoint& a = p[i == 0 ? p.size() - 1 : i - 1];
    const ShapePoint& b = p[i];
    if (a.y < b.y) edges.push_back({a.x, a.y, b.x, b.y});
    if (b.y < a.y) edges.push_back({b.x, b.y, a.x, a.y});
  }
  std::sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) { return a.y0 < b.y0; });
  // Only the edges spanning the row are looked at: a long lasso has many.
  std::vector<Edge> active;
  std::size_t next = 0;
  std::vector<double> cover(std::size_t(rect.Width()));
  std::vector<double> xs;
  for (int32_t y = rect.y0; y < rect.y1; ++y) {
    while (next < edges.size() && edges[next].y0 < y + 1) active.push_back(edges[next++]);
    std::erase_if(active, [y](const Edge& e) { return e.y1 <= y; });
    std::fill(cover.begin(), cover.end(), 0.0);
    for (int k = 0; k < 4; ++k) {
      const double sy = y + (k + 0.5) * 0.25;
      xs.clear();
      for (const Edge& e : active)
        if (e.y0 <= sy && sy < e.y1) xs.push_back(e.x0 + (sy - e.y0) * (e.x1 - e.x0) / (e.y1 - e.y0));
      // Few crossings per line, usually already nearly in order.
      for (std::size_t i = 1; i < xs.size(); ++i)
        for (std::size_t j = i; j > 0 && xs[j - 1] > xs[j]; --j) std::swap(xs[j - 1], xs[j]);
      for (std::size_t i = 0; i + 1 < xs.size(); i += 2) AddSpan(cover, xs[i] - rect.x0, xs[i + 1] - rect.x0);
    }
    uint8_t* out = mask.Row(y - rect.y0);
    for (std::size_t x = 0; x < cover.size(); ++x)
      out[x] = static_cast<uint8_t>(std::min(255.0, std::round(cover[x] * 255)));
  }
}

bool SameSelection(const std::optional<SelectionMask>& a, const std::optional<SelectionMask>& b) {
  if (!a || !b) return !a && !b;
  return a->Width() == b->Width() && a->Height() == b->Height() &&
         std::memcmp(a->Data(), b->Data(), a->ByteCount()) == 0;
}

// Runs a change of the selection and records it as one state, or leaves no
// trace when the mask came out as it was.
template <typename Change>
bool RecordIfChanged(Document& doc, std::u16string_view label, Change change) {
  std::optional<SelectionMask> before = doc.selection;
  Rect beforeBounds = doc.selectionBounds;
  change();
  if (SameSelection(before, doc.selection)) return false;
  // The state must hold the old selection: put it back while it is taken.
  std::swap(before, doc.selection);
  std::swap(beforeBounds, doc.selectionBounds);
  PushSelection(doc, label);
  std::swap(before, doc.selection);
  std::swap(beforeBounds, doc.selectionBounds);
  NotifySelectionChanged(doc);
  return true;
}

// ---- the disc morphology
struct DiscJob {
  const uint8_t* from;
  uint8_t* to;
  int32_t width, height, radius;
  std::vector<int32_t> halfWidth;  // per |dy|: the chord is [x - w, x + w]
  std::vector<int32_t> level;      // per |dy|: the largest power of two within the chord
};

// Every chord of a disc is a window of a row, and the extreme of a window is
// the extreme of two overlapping power-of-two windows. So each source row
// gets a table of power-of-two extremes once, and each of the 2r + 1 output
// rows it reaches folds in one chord with two reads per pixel, in loops the
// compiler turns into vector code.
template <bool erode>
void DiscRows(int first, int end, void* context) {
  const DiscJob& j = *static_cast<const DiscJob*>(context);
  const int32_t w = j.width, r = j.radius, padded = w + 2 * r;
  const uint8_t outside = erode ? 255 : 0;  // also the op's identity
  auto op = [](uint8_t a, uint8_t b) { return erode ? std::min(a, b) : std::max(a, b); };
  const int32_t levels = j.level[0] + 1;
  std::vector<uint8_t> table(std::size_t(levels) * std::size_t(padded));
  for (int32_t y = first; y < end; ++y) std::memset(j.to + std::size_t(y) * w, outside, std::size_t(w));
  const int32_t srcEnd = std::min(j.height, end + r);
  for (int32_t src = std::max(0, first - r); src < srcEnd; ++src) {
    uint8_t* t = table.data();
    std::memset(t, outside, std::size_t(r));
    std::memcpy(t + r, j.from + std::size_t(src) * w, std::size_t(w));
    std::memset(t + r + w, outside, std::size_t(r));
    for (int32_t k = 1; k < levels; ++k) {
      const uint8_t* prev = t + std::size_t(k - 1) * padded;
      uint8_t* cur = t + std::size_t(k) * padded;
      const int32_t half = 1 << (k - 1), count = padded - (1 << k) + 1;
      for (int32_t i = 0; i < count; ++i) cur[i] = op(prev[i], prev[i + half]);
    }
    const int32_t yEnd = std::min(end, src + r + 1);
    for (int32_t y = std::max(first, src - r); y < yEnd; ++y) {
      const int32_t dy = std::abs(src - y), hw = j.halfWidth[dy], k = j.level[dy];
      const uint8_t* a = t + std::size_t(k) * padded + (r - hw);
      const uint8_t* b = t + std::size_t(k) * padded + (r + hw + 1 - (1 << k));
      uint8_t* out = j.to + std::size_t(y) * w;
      for (int32_t x = 0; x < w; ++x) out[x] = op(out[x], op(a[x], b[x]));
    }
  }
}

void ReplaceByDisc(Document& doc, int32_t pixels, Morphology op) {
  if (pixels <= 0 || !doc.selection) return;
  RecordIfChanged(doc, kSelectionLabel, [&] {
    SelectionMask out(doc.selection->Width(), doc.selection->Height());
    DiscFilter(doc.selection->Data(), out.Data(), out.Width(), out.Height(), pixels, op);
    doc.selection = std::move(out);
    RecomputeSelectionBounds(doc);
  });
}

}  // namespace

int32_t EffectiveMode(int modifiers, int32_t toolMode) {
  const bool ctrl = modifiers & kModCtrl, alt = modifiers & kModAlt;
  if (ctrl && alt) return kSelectIntersect;
  if (ctrl) return kSelectAdd;
  if (alt) return kSelectSubtract;
  return toolMode;
}

std::optional<SelectionRegion> RasterizeShape(const Document& doc, ShapeKind kind,
                                              std::span<const ShapePoint> points, double feather) {
  if (points.empty() || (kind != ShapeKind::Polygon && points.size() < 2)) return std::nullopt;
  const ShapePoint a = points[0], b = kind == ShapeKind::Polygon ? points[0] : points[1];
  double x0 = std::min(a.x, b.x), y0 = std::min(a.y, b.y), x1 = std::max(a.x, b.x), y1 = std::max(a.y, b.y);
  Rect shape;
  switch (kind) {
    case ShapeKind::Rectangle:
      shape = {RoundToInt(x0), RoundToInt(y0), RoundToInt(x1), RoundToInt(y1)};
      break;
    case ShapeKind::Ellipse: {
      const double cx = (x0 + x1) / 2, cy = (y0 + y1) / 2;
      const double rx = std::max((x1 - x0) / 2, 0.5), ry = std::max((y1 - y0) / 2, 0.5);
      // A pixel centre within half a pixel outside the rim still gets coverage.
      shape = {FloorToInt(cx - rx), FloorToInt(cy - ry), CeilToInt(cx + rx), CeilToInt(cy + ry)};
      break;
    }
    case ShapeKind::Polygon:
      for (const ShapePoint& p : points) {
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
      }
      shape = {FloorToInt(x0), FloorToInt(y0), CeilToInt(x1), CeilToInt(y1)};
      break;
  }
  const int32_t g = feather > 0 ? static_cast<int32_t>(feather * 2.6) + 2 : 0;
  const Rect grown{shape.x0 - g, shape.y0 - g, shape.x1 + g, shape.y1 + g};
  SelectionRegion region;
  region.rect = Intersect(grown, doc.Bounds());
  if (region.rect.Empty()) return std::nullopt;
  // The shape is drawn and feathered with its part beyond the canvas (as far
  // as the blur can carry it back in), so a shape cut by the edge or lying
  // just outside fades in exactly as it would inside.
  const Rect reach{-g, -g, doc.width + g, doc.height + g};
  const Rect r = feather > 0 ? Intersect(grown, reach) : region.rect;
  SelectionMask work(r.Width(), r.Height());
  switch (kind) {
    case ShapeKind::Rectangle: {
      const Rect inside = Intersect(shape, r);
      for (int32_t y = inside.y0; y < inside.y1; ++y)
        std::memset(work.Row(y - r.y0) + (inside.x0 - r.x0), 255, std::size_t(inside.Width()));
      break;
    }
    case ShapeKind::Ellipse:
      FillEllipse(x0, y0, x1, y1, r, work);
      break;
    case ShapeKind::Polygon:
      FillPolygon(points, r, work);
      break;
  }
  if (feather > 0) GaussianBlurBytes(work.Data(), r.Width(), r.Height(), static_cast<float>(feather * 1.5));
  if (r == region.rect) {
    region.mask = std::move(work);
    return region;
  }
  region.mask = SelectionMask(region.rect.Width(), region.rect.Height());
  for (int32_t y = region.rect.y0; y < region.rect.y1; ++y)
    std::memcpy(region.mask.Row(y - region.rect.y0), work.Row(y - r.y0) + (region.rect.x0 - r.x0),
                std::size_t(region.rect.Width()));
  return region;
}

uint8_t CombineBytes(uint8_t o, uint8_t n, int32_t mode) {
  switch (mode) {
    case kSelectAdd: return static_cast<uint8_t>(n + o - Mul(o, n));
    case kSelectSubtract: return static_cast<uint8_t>(Mul(o, 255u - n));
    case kSelectIntersect: return std::min(o, n);
    default: return n;
  }
}

void CombineSelection(Document& doc, const SelectionMask& region, const Rect& rect, int32_t mode) {
  if (mode < kSelectNew || mode > kSelectIntersect) mode = kSelectNew;
  if (!doc.selection) {
    doc.selection.emplace(doc.width, doc.height);  // all zero: New needs no clearing
    if (mode == kSelectIntersect) mode = kSelectNew;
  } else if (mode == kSelectNew) {
    std::memset(doc.selection->Data(), 0, doc.selection->ByteCount());
  }
  SelectionMask& sel = *doc.selection;
  const Rect r = Intersect(Intersect(rect, doc.Bounds()), {0, 0, sel.Width(), sel.Height()});
  if (mode == kSelectIntersect) {
    for (int32_t y = 0; y < sel.Height(); ++y) {
      uint8_t* row = sel.Row(y);
      if (y < r.y0 || y >= r.y1 || r.Empty()) {
        std::memset(row, 0, std::size_t(sel.Width()));
        continue;
      }
      std::memset(row, 0, std::size_t(r.x0));
      std::memset(row + r.x1, 0, std::size_t(sel.Width() - r.x1));
    }
  }
  for (int32_t y = r.y0; y < r.y1; ++y) {
    uint8_t* o = sel.Row(y) + r.x0;
    const uint8_t* n = region.Row(y - rect.y0) + (r.x0 - rect.x0);
    if (mode == kSelectNew) {
      std::memcpy(o, n, std::size_t(r.Width()));
      continue;
    }
    for (int32_t x = 0; x < r.Width(); ++x) o[x] = CombineBytes(o[x], n[x], mode);
  }
  RecomputeSelectionBounds(doc);
  NotifySelectionChanged(doc);
}

void RecomputeSelectionBounds(Document& doc) {
  Rect bounds;
  if (doc.selection) {
    const SelectionMask& sel = *doc.selection;
    const int32_t w = sel.Width();
    for (int32_t y = 0; y < sel.Height(); ++y) {
      const uint8_t* row = sel.Row(y);
      int32_t first = 0;
      while (first < w && row[first] == 0) ++first;
      if (first == w) continue;
      int32_t last = w - 1;
      while (row[last] == 0) --last;
      bounds = Union(bounds, {first, y, last + 1, y + 1});
    }
    if (bounds.Empty()) doc.selection.reset();
  }
  doc.selectionBounds = bounds;
}

void FeatherSelection(Document& doc, double radius) {
  if (radius <= 0 || !doc.selection) return;
  SelectionMask& sel = *doc.selection;
  GaussianBlurBytes(sel.Data(), sel.Width(), sel.Height(), static_cast<float>(radius * 1.5));
  RecomputeSelectionBounds(doc);
  NotifySelectionChanged(doc);
}

void ShiftMask(const SelectionMask& from, int32_t dx, int32_t dy, SelectionMask& to) {
  std::memset(to.Data(), 0, to.ByteCount());
  const int32_t w = from.Width(), h = from.Height();
  if (dx <= -w || dx >= w || dy <= -h || dy >= h) return;
  const int32_t x0 = std::max(0, dx), x1 = std::min(w, w + dx);
  for (int32_t y = std::max(0, dy); y < std::min(h, h + dy); ++y)
    std::memcpy(to.Row(y) + x0, from.Row(y - dy) + (x0 - dx), std::size_t(x1 - x0));
}

bool CommitRegion(Document& doc, const SelectionRegion& region, int32_t mode) {
  return RecordIfChanged(doc, kSelectionLabel,
                         [&] { CombineSelection(doc, region.mask, region.rect, mode); });
}

void Deselect(Document& doc) {
  if (!doc.selection) return;
  PushSelection(doc, u"Deselect");
  doc.selection.reset();
  doc.selectionBounds = {};
  NotifySelectionChanged(doc);
}

void MoveSelectionOutline(Document& doc, int32_t dx, int32_t dy) {
  if (!doc.selection || (dx == 0 && dy == 0)) return;
  PushSelection(doc, u"Move Selection Outline");
  SelectionMask moved(doc.selection->Width(), doc.selection->Height());
  ShiftMask(*doc.selection, dx, dy, moved);
  doc.selection = std::move(moved);
  RecomputeSelectionBounds(doc);
  NotifySelectionChanged(doc);
}

void SelectAll(Document& doc) {
  if (doc.Bounds().Empty()) return;
  RecordIfChanged(doc, kSelectionLabel, [&] {
    doc.selection.emplace(doc.width, doc.height);
    std::memset(doc.selection->Data(), 255, doc.selection->ByteCount());
    doc.selectionBounds = doc.Bounds();
  });
}

void SelectNone(Document& doc) { Deselect(doc); }

void InvertSelection(Document& doc) {
  if (doc.Bounds().Empty()) return;
  RecordIfChanged(doc, kSelectionLabel, [&] {
    if (!doc.selection) {
      doc.selection.emplace(doc.width, doc.height);
      std::memset(doc.selection->Data(), 255, doc.selection->ByteCount());
    } else {
      uint8_t* p = doc.selection->Data();
      for (std::size_t i = 0, n = doc.selection->ByteCount(); i < n; ++i) p[i] = uint8_t(255 - p[i]);
    }
    RecomputeSelectionBounds(doc);
  });
}

void FeatherSelectionCommand(Document& doc, double radius) {
  if (radius <= 0 || !doc.selection) return;
  RecordIfChanged(doc, kSelectionLabel, [&] { FeatherSelection(doc, radius); });
}

void GrowSelection(Document& doc, int32_t pixels) { ReplaceByDisc(doc, pixels, Morphology::Dilate); }
void ShrinkSelection(Document& doc, int32_t pixels) { ReplaceByDisc(doc, pixels, Morphology::Erode); }

void SelectionFromLayerAlpha(Document& doc) {
  const Layer* layer = ActiveLayer(&doc);
  if (!layer || doc.Bounds().Empty()) return;
  RecordIfChanged(doc, kSelectionLabel, [&] {
    doc.selection.emplace(doc.width, doc.height);
    const int32_t w = std::min(doc.width, layer->Width()), h = std::min(doc.height, layer->Height());
    for (int32_t y = 0; y < h; ++y) {
      const uint32_t* in = layer->pixels.Row(y);
      uint8_t* out = doc.selection->Row(y);
      for (int32_t x = 0; x < w; ++x) out[x] = static_cast<uint8_t>(in[x] >> 24);
    }
    RecomputeSelectionBounds(doc);
  });
}

void DiscFilter(const uint8_t* from, uint8_t* to, int32_t width, int32_t height, int32_t radius,
                Morphology op) {
  if (width <= 0 || height <= 0) return;
  const std::size_t count = std::size_t(width) * std::size_t(height);
  if (radius <= 0) {
    std::memcpy(to, from, count);
    return;
  }
  // A disc reaching from any pixel to every other gives one value everywhere
  // (outside the canvas never wins: it is the op's identity).
  const int64_t r = radius, far = int64_t(width - 1) * (width - 1) + int64_t(height - 1) * (height - 1);
  if (r * r >= far) {
    const uint8_t v = op == Morphology::Erode ? *std::min_element(from, from + count)
                                              : *std::max_element(from, from + count);
    std::memset(to, v, count);
    return;
  }
  DiscJob job{from, to, width, height, radius, {}, {}};
  job.halfWidth.resize(std::size_t(radius) + 1);
  job.level.resize(std::size_t(radius) + 1);
  for (int32_t dy = 0; dy <= radius; ++dy) {
    const int64_t room = r * r - int64_t(dy) * dy;
    int64_t hw = static_cast<int64_t>(std::sqrt(static_cast<double>(room)));
    while (hw * hw > room) --hw;
    while ((hw + 1) * (hw + 1) <= room) ++hw;
    int32_t k = 0;
    while ((int64_t(2) << k) <= 2 * hw + 1) ++k;
    job.halfWidth[dy] = static_cast<int32_t>(hw);
    job.level[dy] = k;
  }
  RowWorkers::Run(height, op == Morphology::Erode ? &DiscRows<true> : &DiscRows<false>, &job);
}

}  // namespace tavora
