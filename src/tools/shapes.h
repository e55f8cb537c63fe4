#pragma once
// Line, Rectangle, Ellipse and Rounded Rectangle: a shape from two points
// and the tool's options is drawn by the system drawing into a buffer of
// its own, which is then laid on the active layer as one history step. The
// laying-on is shared with the Text tool.
#include <cstdint>
#include <optional>
#include <string_view>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"
#include "platform/drawing_bridge.h"
#include "tools/tool_table.h"

namespace tavora {

// The shape of a drawing tool; nothing for the other tools.
std::optional<ShapeType> ShapeTypeFor(int32_t toolId);

// What a release draws: the two points in image coordinates (a line's ends,
// or opposite corners of the box) and the options.
struct ShapeGeometry {
  ShapeType type = ShapeType::Line;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  int32_t style = kShapeOutline;  // `shapefill`, 0..2
  int32_t lineWidth = 4;          // 1..400
  int32_t cornerRadius = 14;      // 0..400
  int32_t opacity = 100;          // 1..100
  bool antialias = true;
  uint32_t outline = 0xFF000000, fill = 0xFFFFFFFF;  // 0xAARRGGBB
};
// The shape of a tool's options with the outline and fill colours, the
// options clamped into their ranges; the points are left at 0.
ShapeGeometry ShapeGeometryFor(ShapeType type, const ToolOptions& options, uint32_t outline, uint32_t fill);

// How far the buffer reaches past the points' box: half the line width,
// rounded up, and 2 pixels more for round caps and the antialiased edge.
int32_t ShapeMargin(int32_t lineWidth);
// The points' box grown by the margin, on whole pixels; empty when a point
// is not finite.
Rect ShapeBufferRect(const ShapeGeometry& shape);

// Draws the shape on the active layer as one step, "Line" for a line and
// "Shape" for the others. False, recording nothing, when the points are
// equal (a click), there is no layer or no system drawing, the shape is
// out of the layer's reach, or the drawing failed.
bool DrawShapeOnLayer(Document& doc, const ShapeGeometry& shape);

// ---- laying a buffer on a layer
// The alpha a buffer pixel of alpha `a` is laid on with: a × opacity / 100,
// then × mask / 255, each division truncating.
inline uint32_t LayAlpha(uint32_t a, int32_t opacity, uint32_t mask) {
  return a * static_cast<uint32_t>(opacity) / 100 * mask / 255;
}

// Where the layer can take pixels of `want` (image coordinates): anything
// when it can keep content past the canvas (not a Background layer, no
// selection, and it all stays within the canvas size limits together with
// what the layer holds), else the part on the canvas.
Rect LayerReach(const Document& doc, int32_t layerIndex, const Rect& want);

// Lays the straight-alpha `buffer`, its top-left at (x, y) in image
// coordinates, on the layer by source-over (Over) at LayAlpha: the mask is
// 255 without a selection, else the selection's byte (0 past the canvas),
// and a byte of 0 leaves the pixel alone. What lies past the canvas is kept
// as extended content within LayerReach. One history step `label`: the
// whole layer when its extended content changes or it is a text layer
// (which becomes an ordinary layer), else the tiles touched. False,
// recording nothing, when no part of the buffer reaches the layer.
bool LayBuffer(Document& doc, int32_t layerIndex, const Surface& buffer, int32_t x, int32_t y,
               int32_t opacity, std::u16string_view label);

}  // namespace tavora
