#include "tools/crop_tool.h"

#include <algorithm>
#include <cmath>

#include "tools/tool_table.h"

namespace tavora {
namespace {

int32_t Snap(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9) + 0.5)); }

// The rectangle with its corners in order, within the canvas.
Rect Normalised(int32_t ax, int32_t ay, int32_t bx, int32_t by, const Rect& canvas) {
  return Intersect({std::min(ax, bx), std::min(ay, by), std::max(ax, bx), std::max(ay, by)}, canvas);
}

}  // namespace

CropHandle CropTool::HandleAt(double x, double y, double reach) const {
  if (area_.Empty()) return CropHandle::None;
  const bool left = std::abs(x - area_.x0) <= reach, right = std::abs(x - area_.x1) <= reach;
  const bool top = std::abs(y - area_.y0) <= reach, bottom = std::abs(y - area_.y1) <= reach;
  const double cx = (area_.x0 + area_.x1) / 2.0, cy = (area_.y0 + area_.y1) / 2.0;
  const bool midX = std::abs(x - cx) <= reach, midY = std::abs(y - cy) <= reach;
  if (top && left) return CropHandle::TopLeft;
  if (top && right) return CropHandle::TopRight;
  if (bottom && left) return CropHandle::BottomLeft;
  if (bottom && right) return CropHandle::BottomRight;
  if (left && midY) return CropHandle::Left;
  if (right && midY) return CropHandle::Right;
  if (top && midX) return CropHandle::Top;
  if (bottom && midX) return CropHandle::Bottom;
  if (x >= area_.x0 && x < area_.x1 && y >= area_.y0 && y < area_.y1) return CropHandle::Inside;
  return CropHandle::None;
}

void CropTool::Press(const Document& doc, double x, double y, double reach) {
  pressX_ = x;
  pressY_ = y;
  startArea_ = area_;
  held_ = HandleAt(x, y, reach);
  newRect_ = held_ == CropHandle::None;
  if (newRect_) SetArea({});
  (void)doc;
}

void CropTool::Drag(const Document& doc, double x, double y, int modifiers) {
  modifiers_ = modifiers;
  const Rect canvas = doc.Bounds();
  if (newRect_) {
    const int32_t ax = Snap(pressX_), ay = Snap(pressY_);
    int32_t bx = Snap(x), by = Snap(y);
    if (modifiers & kModShift) {
      const int32_t side = std::max(std::abs(bx - ax), std::abs(by - ay));
      bx = bx < ax ? ax - side : ax + side;
      by = by < ay ? ay - side : ay + side;
    }
    SetArea(Normalised(ax, ay, bx, by, canvas));
    return;
  }
  const int32_t dx = Snap(x - pressX_), dy = Snap(y - pressY_);
  Rect r = startArea_;
  if (held_ == CropHandle::Inside) {
    // The whole rectangle moves, kept within the canvas.
    const int32_t mx = std::clamp(dx, canvas.x0 - r.x0, canvas.x1 - r.x1);
    const int32_t my = std::clamp(dy, canvas.y0 - r.y0, canvas.y1 - r.y1);
    SetArea({r.x0 + mx, r.y0 + my, r.x1 + mx, r.y1 + my});
    return;
  }
  int32_t x0 = r.x0, y0 = r.y0, x1 = r.x1, y1 = r.y1;
  switch (held_) {
    case CropHandle::Left: x0 += dx; break;
    case CropHandle::Right: x1 += dx; break;
    case CropHandle::Top: y0 += dy; break;
    case CropHandle::Bottom: y1 += dy; break;
    case CropHandle::TopLeft: x0 += dx, y0 += dy; break;
    case CropHandle::TopRight: x1 += dx, y0 += dy; break;
    case CropHandle::BottomLeft: x0 += dx, y1 += dy; break;
    case CropHandle::BottomRight: x1 += dx, y1 += dy; break;
    default: return;
  }
  // A handle dragged past the opposite side turns the rectangle over.
  SetArea(Normalised(x0, y0, x1, y1, canvas));
}

void CropTool::Release(const Document& doc, double x, double y) {
  if (held_ == CropHandle::None && !newRect_) return;
  Drag(doc, x, y, modifiers_);
  held_ = CropHandle::None;
  newRect_ = false;
}

std::optional<Rect> CropTool::Take() {
  if (area_.Empty()) return std::nullopt;
  const Rect area = area_;
  SetArea({});
  return area;
}

void CropTool::Cancel() {
  SetArea({});
  held_ = CropHandle::None;
  newRect_ = false;
}

void CropTool::SetArea(const Rect& area) {
  // The dimmed outside reaches to the canvas edges: any change repaints all.
  if (area != area_) damage_ = {-(1 << 30), -(1 << 30), 1 << 30, 1 << 30};
  area_ = area;
}

Rect CropTool::TakeDamage() {
  const Rect d = damage_;
  damage_ = {};
  return d;
}

}  // namespace tavora
