#include "tools/selection_tool.h"

#include <algorithm>
#include <cmath>

#include "document/document_events.h"
#include "document/history.h"
#include "tools/fill.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

// A drag shorter than this on both axes is a click.
constexpr double kClickDistance = 2.0;

int32_t FloorToInt(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9))); }
int32_t CeilToInt(double v) { return static_cast<int32_t>(std::ceil(std::clamp(v, -1e9, 1e9))); }

// Everything a pen of one pixel drawn along this box can touch.
Rect PenArea(double x0, double y0, double x1, double y1) {
  return {FloorToInt(std::min(x0, x1)) - 1, FloorToInt(std::min(y0, y1)) - 1,
          CeilToInt(std::max(x0, x1)) + 1, CeilToInt(std::max(y0, y1)) + 1};
}
Rect PenArea(const ShapePoint& a, const ShapePoint& b) { return PenArea(a.x, a.y, b.x, b.y); }

}  // namespace

bool IsSelectionTool(int32_t toolId) {
  return toolId == kToolRectSelect || toolId == kToolEllipseSelect || toolId == kToolLasso ||
         toolId == kToolPolygonSelect || toolId == kToolMagicWand;
}

void SelectionTool::Press(Document& doc, int32_t toolId, double x, double y, int button, int modifiers,
                          const SelectionToolOptions& options) {
  if (button != 1 || !IsSelectionTool(toolId)) return;
  // A polygon under way takes every click as its next point.
  if (phase_ == Phase::Polygon && tool_ == toolId) {
    AddPoint(x, y);
    return;
  }
  Cancel(doc);  // a press without a release, or another tool's polygon
  tool_ = toolId;
  modifiers_ = modifiers;
  options_ = options;
  start_ = pointer_ = {x, y};
  const int32_t px = FloorToInt(x), py = FloorToInt(y);
  if (!(modifiers & (kModCtrl | kModAlt | kModShift)) && doc.selection &&
      Intersect(doc.Bounds(), {0, 0, doc.selection->Width(), doc.selection->Height()}).Contains(px, py) &&
      doc.selection->At(px, py) > 0) {
    phase_ = Phase::MoveOutline;
    moveSource_ = *doc.selection;
    return;
  }
  Begin(x, y);
}

void SelectionTool::Begin(double x, double y) {
  if (tool_ == kToolMagicWand) {
    phase_ = Phase::Wand;  // selects on release
  } else if (tool_ == kToolRectSelect || tool_ == kToolEllipseSelect) {
    phase_ = Phase::Band;
  } else {
    phase_ = tool_ == kToolLasso ? Phase::Lasso : Phase::Polygon;
    points_.assign(1, {x, y});
    pointer_ = {x, y};
  }
  Damage(OverlayBounds());
}

void SelectionTool::AddPoint(double x, double y) {
  Damage(PenArea(points_.back(), pointer_));
  Damage(PenArea(points_.back(), {x, y}));
  points_.push_back({x, y});
  pointer_ = {x, y};
}

void SelectionTool::Move(Document& doc, double x, double y) {
  switch (phase_) {
    case Phase::Band:
      Damage(OverlayBounds());
      pointer_ = {x, y};
      Damage(OverlayBounds());
      break;
    case Phase::Lasso:
      if (points_.back() == ShapePoint{x, y}) break;
      Damage(PenArea(points_.back(), {x, y}));
      points_.push_back({x, y});
      break;
    case Phase::Polygon:
      Damage(PenArea(points_.back(), pointer_));
      pointer_ = {x, y};
      Damage(PenArea(points_.back(), pointer_));
      break;
    case Phase::MoveOutline:
      MoveOutlineTo(doc, x, y);
      break;
    case Phase::Wand:
    case Phase::Idle:
      break;
  }
}

void SelectionTool::Release(Document& doc, double x, double y) {
  switch (phase_) {
    case Phase::Band: {
      Move(doc, x, y);
      if (std::abs(pointer_.x - start_.x) < kClickDistance && std::abs(pointer_.y - start_.y) < kClickDistance) {
        Click(doc);
      } else {
        double x0, y0, x1, y1;
        BandBox(x0, y0, x1, y1);
        const ShapePoint corners[2] = {{x0, y0}, {x1, y1}};
        Commit(doc, tool_ == kToolRectSelect ? ShapeKind::Rectangle : ShapeKind::Ellipse, corners);
      }
      Reset();
      break;
    }
    case Phase::Lasso:
      Move(doc, x, y);
      if (points_.size() >= 3) Commit(doc, ShapeKind::Polygon, points_);
      Reset();
      break;
    case Phase::MoveOutline:
      MoveOutlineTo(doc, x, y);
      if (moved_) {
        FinishOutline(doc);
        Reset();
      } else if (tool_ == kToolPolygonSelect) {
        Reset();
        Begin(start_.x, start_.y);  // the press was the polygon's first point
        Move(doc, x, y);
      } else if (tool_ == kToolMagicWand) {
        Reset();
        WandClick(doc, 0);
      } else {
        // A press inside the selection that never moved is a plain click,
        // whatever the mode: it drops the selection.
        Reset();
        Deselect(doc);
      }
      break;
    case Phase::Wand:
      Reset();
      WandClick(doc, modifiers_);
      break;
    case Phase::Polygon:
    case Phase::Idle:
      break;
  }
}

void SelectionTool::DoubleClick(Document& doc, int32_t toolId, double x, double y, int modifiers,
                                const SelectionToolOptions& options) {
  if (phase_ != Phase::Polygon || tool_ != toolId) {
    Press(doc, toolId, x, y, 1, modifiers, options);
    return;
  }
  // The first click of the pair already placed the closing point.
  if (points_.size() >= 3) Commit(doc, ShapeKind::Polygon, points_);
  Reset();
}

bool SelectionTool::Key(SelectionKey key) {
  if (key == SelectionKey::Backspace) {
    if (phase_ != Phase::Polygon) return false;
    Damage(OverlayBounds());
    points_.pop_back();
    if (points_.empty()) Reset();
    return true;
  }
  if (phase_ == Phase::Idle || phase_ == Phase::MoveOutline) return false;
  Reset();
  return true;
}

void SelectionTool::Cancel(Document& doc) {
  if (phase_ == Phase::MoveOutline) FinishOutline(doc);
  Reset();
}

void SelectionTool::Reset() {
  Damage(OverlayBounds());
  phase_ = Phase::Idle;
  points_.clear();
  moveSource_ = SelectionMask();
  moveDx_ = moveDy_ = 0;
  moved_ = false;
}

void SelectionTool::Commit(Document& doc, ShapeKind kind, std::span<const ShapePoint> points) {
  if (auto region = RasterizeShape(doc, kind, points, options_.feather))
    CommitRegion(doc, *region, EffectiveMode(modifiers_, options_.selmode));
}

void SelectionTool::WandClick(Document& doc, int modifiers) {
  WandOptions wand;
  wand.tolerance = options_.wandTolerance;
  wand.contiguous = options_.wandContiguous;
  wand.allLayers = options_.wandAllLayers;
  wand.feather = options_.feather;
  MagicWandAt(doc, start_.x, start_.y, EffectiveMode(modifiers, options_.selmode), wand);
}

// A click drops the selection only when the tool would start a new one.
void SelectionTool::Click(Document& doc) {
  if (!(modifiers_ & (kModCtrl | kModAlt)) && options_.selmode == kSelectNew) Deselect(doc);
}

void SelectionTool::MoveOutlineTo(Document& doc, double x, double y) {
  const int32_t dx = FloorToInt(x - start_.x + 0.5), dy = FloorToInt(y - start_.y + 0.5);
  if (dx == moveDx_ && dy == moveDy_) return;
  // Gone or resized under the drag (an undo meanwhile): leave it be.
  if (!doc.selection || doc.selection->Width() != moveSource_.Width() ||
      doc.selection->Height() != moveSource_.Height())
    return;
  if (!moved_) PushSelection(doc, u"Move Selection Outline");
  moved_ = true;
  moveDx_ = dx;
  moveDy_ = dy;
  ShiftMask(moveSource_, dx, dy, *doc.selection);
  // Scanning for the true bounds on every move would cost more than the move.
  doc.selectionBounds = doc.Bounds();
  NotifySelectionChanged(doc);
}

void SelectionTool::FinishOutline(Document& doc) {
  if (!moved_) return;
  RecomputeSelectionBounds(doc);
  NotifySelectionChanged(doc);
}

void SelectionTool::BandBox(double& x0, double& y0, double& x1, double& y1) const {
  double ax = start_.x, ay = start_.y, bx = pointer_.x, by = pointer_.y;
  if (tool_ == kToolRectSelect) {
    // Snapped before squaring, so a square stays square in whole pixels.
    ax = std::floor(ax + 0.5), ay = std::floor(ay + 0.5);
    bx = std::floor(bx + 0.5), by = std::floor(by + 0.5);
  }
  if (modifiers_ & kModShift) {
    const double side = std::max(std::abs(bx - ax), std::abs(by - ay));
    bx = bx < ax ? ax - side : ax + side;
    by = by < ay ? ay - side : ay + side;
  }
  x0 = std::min(ax, bx), y0 = std::min(ay, by), x1 = std::max(ax, bx), y1 = std::max(ay, by);
}

SelectionOverlay SelectionTool::Overlay() const {
  SelectionOverlay o;
  switch (phase_) {
    case Phase::Band:
      o.shape = tool_ == kToolRectSelect ? SelectionOverlay::Shape::Rectangle : SelectionOverlay::Shape::Ellipse;
      BandBox(o.x0, o.y0, o.x1, o.y1);
      break;
    case Phase::Lasso:
    case Phase::Polygon:
      o.shape = SelectionOverlay::Shape::Path;
      o.points = points_;
      o.toPointer = phase_ == Phase::Polygon;
      o.pointer = pointer_;
      break;
    case Phase::MoveOutline:
    case Phase::Wand:
    case Phase::Idle:
      break;
  }
  return o;
}

Rect SelectionTool::OverlayBounds() const {
  const SelectionOverlay o = Overlay();
  if (o.shape == SelectionOverlay::Shape::None) return {};
  if (o.shape != SelectionOverlay::Shape::Path) return PenArea(o.x0, o.y0, o.x1, o.y1);
  Rect area = o.toPointer ? PenArea(o.pointer, o.pointer) : Rect{};
  for (const ShapePoint& p : o.points) area = Union(area, PenArea(p, p));
  return area;
}

Rect SelectionTool::TakeOverlayDamage() {
  const Rect d = damage_;
  damage_ = {};
  return d;
}

}  // namespace tavora
