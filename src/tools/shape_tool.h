#pragma once
// The drag of Line, Rectangle, Ellipse and Rounded Rectangle: the canvas
// hands it pointer positions in image coordinates; while the button is held
// it describes the shape for the canvas to draw over the image, and the
// release draws the shape on the active layer as one history step.
#include <cstdint>

#include "document/document.h"
#include "document/rect.h"
#include "tools/selection.h"
#include "tools/shapes.h"
#include "tools/tool_table.h"

namespace tavora {

// With Shift: a line turns to the nearest multiple of 45° (the pointer
// projected onto that direction), a box becomes a square on the longer
// side, towards the pointer.
ShapePoint ConstrainShapePoint(ShapeType type, ShapePoint from, ShapePoint to);

// What the canvas draws while a shape is dragged: the shape as the release
// would draw it, points in image coordinates. Nothing shown while the
// pointer is still on the press point.
struct ShapeOverlay {
  bool shown = false;
  ShapeGeometry shape;
};

class ShapeTool {
 public:
  // Button 1 outlines in the primary colour and fills with the secondary,
  // button 2 the other way round. Tools other than the four shapes, and
  // other buttons, start nothing.
  void Press(int32_t toolId, double x, double y, int button, int modifiers, const ToolOptions& options,
             const ColorBoxes& colors);
  // Pointer moves while the button is down; the modifiers as they are now.
  void Move(double x, double y, int modifiers);
  // Shift pressed or let go without a move.
  void SetModifiers(int modifiers);
  // Draws the shape from the press to (x, y) on the active layer: "Line"
  // or "Shape". A click without a drag draws nothing. Whether it drew.
  bool Release(Document& doc, double x, double y, int modifiers);
  // A tool or document change: the drag is dropped, nothing is drawn.
  void Cancel();

  bool Busy() const { return busy_; }
  ShapeOverlay Overlay() const;
  // The image area the overlay covers (the shape's buffer rectangle);
  // empty when nothing is shown.
  Rect OverlayBounds() const;
  // The image area whose overlay changed since the last call.
  Rect TakeOverlayDamage();

 private:
  void Update(double x, double y, int modifiers);

  bool busy_ = false;
  ShapeGeometry shape_;
  ShapePoint press_, pointer_;
  Rect damage_;
};

}  // namespace tavora
