#pragma once
// The system drawing bridge: shapes and text drawn by the platform's 2-D
// graphics. The portable code reaches it through this table, which the
// Windows build fills with its GDI+ drawing at start-up; where none is
// registered, shapes and text cannot be drawn.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "document/layer.h"
#include "document/surface.h"

namespace tavora {

enum class ShapeType : int32_t { Line = 0, Rectangle = 1, Ellipse = 2, RoundedRectangle = 3 };
// The `shapefill` option.
enum ShapeStyle : int32_t { kShapeOutline = 0, kShapeFilled = 1, kShapeOutlineFill = 2 };

// One shape in the coordinates of the buffer it is drawn into, where pixel
// (i, j) covers [i, i + 1) x [j, j + 1). A line runs from (x0, y0) to
// (x1, y1); the other shapes fill the box between the two corners.
struct ShapeDrawing {
  ShapeType type = ShapeType::Line;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  int32_t style = kShapeOutline;  // lines are always drawn as an outline
  double lineWidth = 1;
  double cornerRadius = 0;
  bool antialias = true;
  uint32_t outline = 0xFF000000, fill = 0xFFFFFFFF;  // 0xAARRGGBB
};

// The buffer size a text needs: RenderText's result has exactly this size.
struct TextExtent {
  int32_t width = 0, height = 0;
};

struct SystemDrawing {
  // Draws over the straight-alpha pixels of `target`. False on any failure,
  // with `target` as it was.
  bool (*drawShape)(Surface& target, const ShapeDrawing& shape);
  // The text of the record (its placement is not used) in a new buffer of
  // the size it needs, transparent around the glyphs; nothing on a failure
  // or when the buffer would pass the canvas size limits.
  std::optional<Surface> (*renderText)(const TextRecord& text);
  std::optional<TextExtent> (*measureText)(const TextRecord& text);
  // The installed font families, sorted, each once.
  std::vector<std::u16string> (*fontFamilies)();
};

// Null switches the bridge off.
void SetSystemDrawing(const SystemDrawing* drawing);
const SystemDrawing* CurrentSystemDrawing();

}  // namespace tavora
