#pragma once
// Rectangle Select, Ellipse Select, Lasso and Polygon Select: one state
// machine the canvas window drives with pointer positions in image
// coordinates. It keeps what the window draws over the image (rubber band,
// point list) and turns finished gestures into selection changes, each one
// history step.
#include <cstdint>
#include <span>
#include <vector>

#include "document/document.h"
#include "document/rect.h"
#include "tools/selection.h"

namespace tavora {

// Rectangle Select, Ellipse Select, Lasso, Polygon Select and Magic Wand.
bool IsSelectionTool(int32_t toolId);

struct SelectionToolOptions {
  int32_t selmode = kSelectNew;
  double feather = 0;
  // The Magic Wand's own options.
  int32_t wandTolerance = 32;
  bool wandContiguous = true;
  bool wandAllLayers = false;
};

enum class SelectionKey { Backspace, Escape };

// What the window draws over the image, in image coordinates: a box as a
// rectangle or an ellipse, or the points so far as an open polyline (the
// polygon's with one more edge to the pointer).
struct SelectionOverlay {
  enum class Shape { None, Rectangle, Ellipse, Path };
  Shape shape = Shape::None;
  double x0 = 0, y0 = 0, x1 = 0, y1 = 0;  // the box; x0 <= x1, y0 <= y1
  std::span<const ShapePoint> points;     // valid until the next call on the tool
  bool toPointer = false;
  ShapePoint pointer;
};

class SelectionTool {
 public:
  // Only the left button (1) acts. Modifiers are kModShift, kModCtrl and
  // kModAlt; they and the options count as they were at the press (for a
  // polygon, at its first point).
  void Press(Document& doc, int32_t toolId, double x, double y, int button, int modifiers,
             const SelectionToolOptions& options);
  // Every pointer move, with the button down or not: the polygon's last
  // edge follows the pointer between clicks.
  void Move(Document& doc, double x, double y);
  void Release(Document& doc, double x, double y);
  // In place of the second press of a double-click: closes a polygon, and
  // is a plain press for the other tools.
  void DoubleClick(Document& doc, int32_t toolId, double x, double y, int modifiers,
                   const SelectionToolOptions& options);
  // Backspace takes back the polygon's last point, Esc abandons a polygon or
  // a drag. Whether the key was used.
  bool Key(SelectionKey key);
  // A tool or document change: what is in progress is dropped; an outline
  // already moved stays where it is.
  void Cancel(Document& doc);

  // Dragging, moving the outline, or a polygon under way.
  bool Busy() const { return phase_ != Phase::Idle; }
  SelectionOverlay Overlay() const;
  // The image area the overlay covers, a pixel wider for the pens; empty
  // when nothing is drawn.
  Rect OverlayBounds() const;
  // The image area whose overlay changed since the last call: repaint it.
  Rect TakeOverlayDamage();

 private:
  enum class Phase { Idle, Band, Lasso, Polygon, MoveOutline, Wand };

  void Reset();
  void Begin(double x, double y);
  void AddPoint(double x, double y);
  void Commit(Document& doc, ShapeKind kind, std::span<const ShapePoint> points);
  void Click(Document& doc);
  void WandClick(Document& doc, int modifiers);
  void MoveOutlineTo(Document& doc, double x, double y);
  void FinishOutline(Document& doc);
  void Damage(const Rect& area) { damage_ = Union(damage_, area); }
  // The box dragged so far, squared with Shift, the rectangle's on whole pixels.
  void BandBox(double& x0, double& y0, double& x1, double& y1) const;

  Phase phase_ = Phase::Idle;
  int32_t tool_ = -1;
  int modifiers_ = 0;
  SelectionToolOptions options_;
  ShapePoint start_, pointer_;
  std::vector<ShapePoint> points_;
  SelectionMask moveSource_;  // the mask as it was when the outline move began
  int32_t moveDx_ = 0, moveDy_ = 0;
  bool moved_ = false;
  Rect damage_;
};

}  // namespace tavora
