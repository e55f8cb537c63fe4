#include "tools/shapes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "document/blend.h"
#include "document/composite.h"
#include "document/history.h"
#include "document/size_limits.h"

namespace tavora {
namespace {

// Points further out than this are taken as this far: far beyond any
// canvas, and still whole pixels in 32 bits with the margin added.
constexpr double kFarAway = 1e9;

Rect ContentRect(const Layer& l) {
  return {l.extended->x, l.extended->y, l.extended->x + l.extended->pixels.Width(),
          l.extended->y + l.extended->pixels.Height()};
}

bool Within(const Rect& inner, const Rect& outer) { return Intersect(inner, outer) == inner; }

bool Fits(const Rect& r) { return CanvasSizeAllowed(r.Width(), r.Height()); }

// Extended content holding at least `need`, with what the layer shows kept.
void GrowContent(Layer& layer, const Rect& need) {
  if (!layer.extended) {
    layer.extended = std::make_unique<ExtendedContent>();
    layer.extended->pixels = layer.pixels;
  }
  const Rect have = ContentRect(layer);
  const Rect want = Union(have, need);
  if (want == have) return;
  Surface grown(want.Width(), want.Height());
  for (int32_t y = have.y0; y < have.y1; ++y)
    std::memcpy(grown.Row(y - want.y0) + (have.x0 - want.x0), layer.extended->pixels.Row(y - have.y0),
                std::size_t(have.Width()) * 4);
  layer.extended->pixels = std::move(grown);
  layer.extended->x = want.x0;
  layer.extended->y = want.y0;
}

// The canvas pixels of `area` copied again from the extended content.
void RebuildArea(Layer& layer, const Rect& area) {
  const Rect content = ContentRect(layer);
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = layer.pixels.Row(y);
    std::fill(row + area.x0, row + area.x1, 0u);
    const Rect span = Intersect({area.x0, y, area.x1, y + 1}, content);
    if (span.Empty()) continue;
    std::memcpy(row + span.x0, layer.extended->pixels.Row(y - content.y0) + (span.x0 - content.x0),
                std::size_t(span.Width()) * 4);
  }
  layer.rebuildEffects = true;
}

// Lays the buffer's part over `area` on `store`, whose top-left is at
// (sx, sy) in image coordinates and which covers `area`.
void Lay(const Document& doc, Surface& store, int32_t sx, int32_t sy, const Surface& buffer, int32_t bx,
         int32_t by, const Rect& area, int32_t opacity) {
  const SelectionMask* selection = doc.selection ? &*doc.selection : nullptr;
  const Rect selected = selection ? Rect{0, 0, selection->Width(), selection->Height()} : Rect{};
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = store.Row(y - sy) - sx;
    const uint32_t* src = buffer.Row(y - by) - bx;
    const uint8_t* mask = selection && y >= selected.y0 && y < selected.y1 ? selection->Row(y) : nullptr;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      const uint32_t s = src[x];
      if ((s >> 24) == 0) continue;
      const uint32_t m = !selection ? 255u : (mask && x >= selected.x0 && x < selected.x1) ? mask[x] : 0u;
      const uint32_t a = LayAlpha(s >> 24, opacity, m);
      if (a) row[x] = Over(row[x], (s & 0x00FFFFFFu) | a << 24);
    }
  }
}

double Far(double v) { return std::clamp(v, -kFarAway, kFarAway); }

// The part of the segment within `box` (Liang-Barsky); false when none.
bool ClipSegment(double& x0, double& y0, double& x1, double& y1, double bx0, double by0, double bx1,
                 double by1) {
  double t0 = 0, t1 = 1;
  const double dx = x1 - x0, dy = y1 - y0;
  const auto clip = [&](double p, double q) {
    if (p == 0) return q >= 0;
    const double t = q / p;
    if (p < 0) t0 = std::max(t0, t);
    else t1 = std::min(t1, t);
    return t0 <= t1;
  };
  if (!clip(-dx, x0 - bx0) || !clip(dx, bx1 - x0) || !clip(-dy, y0 - by0) || !clip(dy, by1 - y0))
    return false;
  const double sx = x0, sy = y0;
  x0 = sx + t0 * dx;
  y0 = sy + t0 * dy;
  x1 = sx + t1 * dx;
  y1 = sy + t1 * dy;
  return true;
}

}  // namespace

std::optional<ShapeType> ShapeTypeFor(int32_t toolId) {
  switch (toolId) {
    case kToolLine: return ShapeType::Line;
    case kToolRectangle: return ShapeType::Rectangle;
    case kToolEllipse: return ShapeType::Ellipse;
    case kToolRoundedRect: return ShapeType::RoundedRectangle;
    default: return std::nullopt;
  }
}

ShapeGeometry ShapeGeometryFor(ShapeType type, const ToolOptions& o, uint32_t outline, uint32_t fill) {
  ShapeGeometry s;
  s.type = type;
  s.style = std::clamp(o.shapefill, int32_t{kShapeOutline}, int32_t{kShapeOutlineFill});
  s.lineWidth = std::clamp(o.linewidth, 1, 400);
  s.cornerRadius = std::clamp(o.cornerradius, 0, 400);
  s.opacity = std::clamp(o.opacity, 1, 100);
  s.antialias = o.aa != 0;
  s.outline = outline;
  s.fill = fill;
  return s;
}

int32_t ShapeMargin(int32_t lineWidth) { return (std::max(lineWidth, 1) + 1) / 2 + 2; }

Rect ShapeBufferRect(const ShapeGeometry& shape) {
  if (!std::isfinite(shape.x0) || !std::isfinite(shape.y0) || !std::isfinite(shape.x1) || !std::isfinite(shape.y1))
    return {};
  const int32_t m = ShapeMargin(shape.lineWidth);
  const auto lo = [m](double a, double b) { return static_cast<int32_t>(std::floor(Far(std::min(a, b)))) - m; };
  const auto hi = [m](double a, double b) { return static_cast<int32_t>(std::ceil(Far(std::max(a, b)))) + m; };
  return {lo(shape.x0, shape.x1), lo(shape.y0, shape.y1), hi(shape.x0, shape.x1), hi(shape.y0, shape.y1)};
}

Rect LayerReach(const Document& doc, int32_t layerIndex, const Rect& want) {
  if (layerIndex < 0 || layerIndex >= doc.LayerCount()) return {};
  const Layer& layer = doc.layers[layerIndex];
  const Rect canvas = Intersect(doc.Bounds(), {0, 0, layer.Width(), layer.Height()});
  // Past the canvas nothing is selected, and a Background keeps nothing there.
  if (layer.opaqueBackground || doc.selection) return Intersect(want, canvas);
  const Rect have = layer.extended ? ContentRect(layer) : canvas;
  if (Fits(Union(have, want))) return want;
  if (Fits(Union(have, canvas))) return Intersect(want, Union(have, canvas));
  return Intersect(want, have);
}

bool LayBuffer(Document& doc, int32_t layerIndex, const Surface& buffer, int32_t x, int32_t y, int32_t opacity,
               std::u16string_view label) {
  if (layerIndex < 0 || layerIndex >= doc.LayerCount() || buffer.Empty()) return false;
  constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
  if (int64_t{x} + buffer.Width() > kMax || int64_t{y} + buffer.Height() > kMax) return false;
  const Rect placed{x, y, x + buffer.Width(), y + buffer.Height()};
  const Rect area = LayerReach(doc, layerIndex, placed);
  if (area.Empty()) return false;
  opacity = std::clamp(opacity, 1, 100);
  Layer& layer = doc.layers[layerIndex];
  const Rect canvas = Intersect(doc.Bounds(), {0, 0, layer.Width(), layer.Height()});
  // Extended content is the layer's whole content: once there is any, it
  // changes with every drawing, and the step keeps the whole layer.
  const bool extended = !layer.opaqueBackground && (layer.extended || !Within(area, canvas));
  const bool wholeLayer = extended || layer.text;
  if (wholeLayer) {
    PushLayer(doc, layerIndex, label);
    layer.text.reset();  // its pixels are no longer its text's rendering
  } else {
    BeginTiles(doc, layerIndex, label);
    SaveTiles(doc, area);
  }
  if (extended) {
    GrowContent(layer, area);
    Lay(doc, layer.extended->pixels, layer.extended->x, layer.extended->y, buffer, x, y, area, opacity);
    RebuildArea(layer, Intersect(area, canvas));
  } else {
    Lay(doc, layer.pixels, 0, 0, buffer, x, y, area, opacity);
  }
  if (!wholeLayer) CommitTiles(doc);
  Invalidate(doc, layerIndex, area);
  return true;
}

bool DrawShapeOnLayer(Document& doc, const ShapeGeometry& shape) {
  const SystemDrawing* drawing = CurrentSystemDrawing();
  if (!ActiveLayer(&doc) || !drawing || !drawing->drawShape) return false;
  if (shape.x0 == shape.x1 && shape.y0 == shape.y1) return false;  // a click draws nothing
  const Rect want = ShapeBufferRect(shape);
  const Rect area = LayerReach(doc, doc.active, want);
  if (want.Empty() || area.Empty()) return false;

  ShapeDrawing d;
  d.type = shape.type;
  d.style = shape.type == ShapeType::Line ? kShapeOutline : std::clamp(shape.style, 0, 2);
  d.lineWidth = std::clamp(shape.lineWidth, 1, 400);
  d.cornerRadius = std::clamp(shape.cornerRadius, 0, 400);
  d.antialias = shape.antialias;
  d.outline = shape.outline;
  d.fill = shape.fill;
  double x0 = Far(shape.x0), y0 = Far(shape.y0), x1 = Far(shape.x1), y1 = Far(shape.y1);
  // Only the part near the buffer is handed over: GDI+ works in floats.
  // Cut lines and rectangle sides stay outside the buffer, so nothing seen
  // changes; an ellipse is handed over whole.
  const double reach = ShapeMargin(shape.lineWidth) + 2.0 * d.cornerRadius + 4;
  const double bx0 = area.x0 - reach, by0 = area.y0 - reach, bx1 = area.x1 + reach, by1 = area.y1 + reach;
  if (shape.type == ShapeType::Line) {
    if (!ClipSegment(x0, y0, x1, y1, bx0, by0, bx1, by1)) return false;
  } else if (shape.type != ShapeType::Ellipse) {
    x0 = std::clamp(x0, bx0, bx1);
    x1 = std::clamp(x1, bx0, bx1);
    y0 = std::clamp(y0, by0, by1);
    y1 = std::clamp(y1, by0, by1);
  }
  d.x0 = x0 - area.x0;
  d.y0 = y0 - area.y0;
  d.x1 = x1 - area.x0;
  d.y1 = y1 - area.y0;
  Surface buffer(area.Width(), area.Height());
  if (!drawing->drawShape(buffer, d)) return false;
  return LayBuffer(doc, doc.active, buffer, area.x0, area.y0, shape.opacity,
                   shape.type == ShapeType::Line ? u"Line" : u"Shape");
}

}  // namespace tavora
