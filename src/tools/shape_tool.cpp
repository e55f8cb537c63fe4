#include "tools/shape_tool.h"

#include <cmath>
#include <numbers>

namespace tavora {

ShapePoint ConstrainShapePoint(ShapeType type, ShapePoint from, ShapePoint to) {
  const double dx = to.x - from.x, dy = to.y - from.y;
  if (!std::isfinite(dx) || !std::isfinite(dy)) return to;
  if (type != ShapeType::Line) {
    const double side = std::max(std::fabs(dx), std::fabs(dy));
    return {from.x + (dx < 0 ? -side : side), from.y + (dy < 0 ? -side : side)};
  }
  // The nearest of the eight directions, then the pointer's projection on it.
  static constexpr int kDirections[8][2] = {{1, 0}, {1, 1}, {0, 1}, {-1, 1}, {-1, 0}, {-1, -1}, {0, -1}, {1, -1}};
  const int k = (static_cast<int>(std::lround(std::atan2(dy, dx) / (std::numbers::pi / 4))) + 8) % 8;
  const int sx = kDirections[k][0], sy = kDirections[k][1];
  if (sx == 0) return {from.x, to.y};
  if (sy == 0) return {to.x, from.y};
  const double t = (dx * sx + dy * sy) / 2;
  return {from.x + t * sx, from.y + t * sy};
}

void ShapeTool::Press(int32_t toolId, double x, double y, int button, int modifiers, const ToolOptions& options,
                      const ColorBoxes& colors) {
  const auto type = ShapeTypeFor(toolId);
  if (!type || (button != 1 && button != 2) || !std::isfinite(x) || !std::isfinite(y)) return;
  Cancel();
  const uint32_t primary = colors.Primary(), secondary = colors.Secondary();
  shape_ = button == 1 ? ShapeGeometryFor(*type, options, primary, secondary)
                      : ShapeGeometryFor(*type, options, secondary, primary);
  press_ = pointer_ = {x, y};
  shape_.x0 = shape_.x1 = x;
  shape_.y0 = shape_.y1 = y;
  busy_ = true;
  Update(x, y, modifiers);
}

void ShapeTool::Move(double x, double y, int modifiers) {
  if (busy_) Update(x, y, modifiers);
}

void ShapeTool::SetModifiers(int modifiers) {
  if (busy_) Update(pointer_.x, pointer_.y, modifiers);
}

bool ShapeTool::Release(Document& doc, double x, double y, int modifiers) {
  if (!busy_) return false;
  Update(x, y, modifiers);
  const ShapeGeometry shape = shape_;
  Cancel();
  return DrawShapeOnLayer(doc, shape);
}

void ShapeTool::Cancel() {
  damage_ = Union(damage_, OverlayBounds());
  busy_ = false;
}

ShapeOverlay ShapeTool::Overlay() const {
  ShapeOverlay o;
  o.shown = busy_ && (shape_.x0 != shape_.x1 || shape_.y0 != shape_.y1);
  o.shape = shape_;
  return o;
}

Rect ShapeTool::OverlayBounds() const { return Overlay().shown ? ShapeBufferRect(shape_) : Rect{}; }

Rect ShapeTool::TakeOverlayDamage() {
  const Rect d = damage_;
  damage_ = {};
  return d;
}

void ShapeTool::Update(double x, double y, int modifiers) {
  if (!std::isfinite(x) || !std::isfinite(y)) return;
  const Rect before = OverlayBounds();
  pointer_ = {x, y};
  const ShapePoint end = (modifiers & kModShift) ? ConstrainShapePoint(shape_.type, press_, pointer_) : pointer_;
  shape_.x1 = end.x;
  shape_.y1 = end.y;
  damage_ = Union(damage_, Union(before, OverlayBounds()));
}

}  // namespace tavora
