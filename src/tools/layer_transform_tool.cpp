#include "tools/layer_transform_tool.h"

#include <algorithm>
#include <cmath>

#include "document/composite.h"
#include "document/document_events.h"
#include "processing/geometry.h"
#include "processing/resample.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr Rect kEverything{-(1 << 30), -(1 << 30), 1 << 30, 1 << 30};

int32_t Round(double v) { return static_cast<int32_t>(std::floor(std::clamp(v, -1e9, 1e9) + 0.5)); }

// The pointer's direction from the centre in degrees, 0 straight up,
// growing clockwise on screen.
double Direction(double cx, double cy, double x, double y) { return std::atan2(x - cx, cy - y) * 180 / kPi; }

double Normalised(double degrees) {
  degrees = std::fmod(degrees, 360.0);
  if (degrees > 180) degrees -= 360;
  if (degrees <= -180) degrees += 360;
  return degrees;
}

ShapePoint Turned(double x, double y, double cx, double cy, double degrees) {
  const double a = degrees * kPi / 180, c = std::cos(a), s = std::sin(a);
  return {cx + (x - cx) * c - (y - cy) * s, cy + (x - cx) * s + (y - cy) * c};
}

std::vector<std::pair<ResizeHandle, ShapePoint>> ResizeHandles(const Rect& r) {
  const double cx = (r.x0 + r.x1) / 2.0, cy = (r.y0 + r.y1) / 2.0;
  return {{ResizeHandle::TopLeft, {double(r.x0), double(r.y0)}},
          {ResizeHandle::Top, {cx, double(r.y0)}},
          {ResizeHandle::TopRight, {double(r.x1), double(r.y0)}},
          {ResizeHandle::Right, {double(r.x1), cy}},
          {ResizeHandle::BottomRight, {double(r.x1), double(r.y1)}},
          {ResizeHandle::Bottom, {cx, double(r.y1)}},
          {ResizeHandle::BottomLeft, {double(r.x0), double(r.y1)}},
          {ResizeHandle::Left, {double(r.x0), cy}}};
}

}  // namespace

bool LayerTransformTool::Start(Document& doc, LayerTransform kind) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return false;
  if (kind == LayerTransform::Resize && layer->opaqueBackground) return false;
  const Rect box = LayerContentBox(*layer);
  if (box.Empty()) return false;
  doc_ = &doc;
  layer_ = doc.active;
  kind_ = kind;
  box_ = target_ = box;
  content_ = LayerContent(*layer, box);
  original_ = *layer;
  angle_ = 0;
  damage_ = kEverything;
  return true;
}

bool LayerTransformTool::Press(Document& doc, LayerTransform kind, double x, double y, int modifiers, double reach) {
  // Another document, layer or tool: what is pending is applied first.
  if (doc_ && (doc_ != &doc || layer_ != doc.active || kind_ != kind)) Apply(*doc_);
  if (!doc_ && !Start(doc, kind)) return false;
  pressX_ = x;
  pressY_ = y;
  if (kind_ == LayerTransform::Rotate) {
    const double cx = (box_.x0 + box_.x1) / 2.0, cy = (box_.y0 + box_.y1) / 2.0;
    pressAngle_ = Direction(cx, cy, x, y);
    startAngle_ = angle_;
    dragging_ = true;
    return true;
  }
  handle_ = ResizeHandle::None;
  double best = reach;
  for (const auto& [h, p] : ResizeHandles(target_)) {
    const double d = std::max(std::abs(p.x - x), std::abs(p.y - y));
    if (d <= best) {
      best = d;
      handle_ = h;
    }
  }
  keepRatio_ = (modifiers & kModShift) != 0;
  startTarget_ = target_;
  dragging_ = handle_ != ResizeHandle::None;
  return true;
}

void LayerTransformTool::Drag(Document& doc, double x, double y, int modifiers) {
  if (!dragging_ || doc_ != &doc) return;
  if (kind_ == LayerTransform::Rotate) {
    const double cx = (box_.x0 + box_.x1) / 2.0, cy = (box_.y0 + box_.y1) / 2.0;
    double a = Normalised(startAngle_ + Direction(cx, cy, x, y) - pressAngle_);
    if (modifiers & kModShift) a = Normalised(std::round(a / 15) * 15);
    if (a == angle_) return;
    angle_ = a;
    Preview(doc);
    return;
  }
  const Rect s = startTarget_;
  const int32_t dx = Round(x - pressX_), dy = Round(y - pressY_);
  int32_t x0 = s.x0, y0 = s.y0, x1 = s.x1, y1 = s.y1;
  const bool left = handle_ == ResizeHandle::Left || handle_ == ResizeHandle::TopLeft || handle_ == ResizeHandle::BottomLeft;
  const bool right = handle_ == ResizeHandle::Right || handle_ == ResizeHandle::TopRight || handle_ == ResizeHandle::BottomRight;
  const bool top = handle_ == ResizeHandle::Top || handle_ == ResizeHandle::TopLeft || handle_ == ResizeHandle::TopRight;
  const bool bottom = handle_ == ResizeHandle::Bottom || handle_ == ResizeHandle::BottomLeft || handle_ == ResizeHandle::BottomRight;
  if (left) x0 = std::min(s.x0 + dx, s.x1 - 1);
  if (right) x1 = std::max(s.x1 + dx, s.x0 + 1);
  if (top) y0 = std::min(s.y0 + dy, s.y1 - 1);
  if (bottom) y1 = std::max(s.y1 + dy, s.y0 + 1);
  if (keepRatio_) {
    // The side that changed most leads; the other follows the proportions,
    // from the opposite corner, or about the middle for an edge handle.
    const double ratio = double(s.Width()) / s.Height();
    const double fw = double(x1 - x0) / s.Width(), fh = double(y1 - y0) / s.Height();
    const bool widthLeads = (left || right) && (!(top || bottom) || std::abs(fw - 1) >= std::abs(fh - 1));
    if (widthLeads) {
      const int32_t h = std::max(1, Round((x1 - x0) / ratio));
      if (top) y0 = y1 - h;
      else if (bottom) y1 = y0 + h;
      else y0 = Round((s.y0 + s.y1) / 2.0 - h / 2.0), y1 = y0 + h;
    } else {
      const int32_t w = std::max(1, Round((y1 - y0) * ratio));
      if (left) x0 = x1 - w;
      else if (right) x1 = x0 + w;
      else x0 = Round((s.x0 + s.x1) / 2.0 - w / 2.0), x1 = x0 + w;
    }
  }
  const Rect next{x0, y0, x1, y1};
  if (next == target_) return;
  target_ = next;
  Preview(doc);
}

void LayerTransformTool::Release(Document& doc, double x, double y) {
  Drag(doc, x, y, 0);
  dragging_ = false;
  handle_ = ResizeHandle::None;
}

bool LayerTransformTool::Changed() const {
  return doc_ && (kind_ == LayerTransform::Rotate ? angle_ != 0 : target_ != box_);
}

void LayerTransformTool::Preview(Document& doc) {
  if (layer_ >= doc.LayerCount()) return;
  Layer& layer = doc.layers[layer_];
  if (!Changed()) {
    Restore(doc);
    return;
  }
  // Bilinear while dragging keeps up with the mouse; Apply resamples
  // with the command's own method.
  if (kind_ == LayerTransform::Rotate) PlaceRotatedContent(layer, content_, box_, angle_);
  else PlaceResizedContent(layer, content_, target_, static_cast<int32_t>(ResampleAlgorithm::Bilinear));
  Invalidate(doc, layer_, doc.Bounds());
  damage_ = kEverything;
}

void LayerTransformTool::Restore(Document& doc) {
  if (layer_ >= doc.LayerCount()) return;
  doc.layers[layer_] = original_;
  Invalidate(doc, layer_, doc.Bounds());
  damage_ = kEverything;
}

void LayerTransformTool::Apply(Document& doc) {
  if (doc_ != &doc) return;
  const bool changed = Changed();
  Restore(doc);
  if (changed && layer_ < doc.LayerCount()) {
    doc.active = layer_;
    if (kind_ == LayerTransform::Rotate) FreeRotateLayer(doc, angle_);
    else ResizeLayerTo(doc, target_, static_cast<int32_t>(ResampleAlgorithm::Automatic));
    NotifyLayersChanged(doc);
  }
  Reset();
}

void LayerTransformTool::Cancel(Document& doc) {
  if (doc_ != &doc) return;
  Restore(doc);
  Reset();
}

void LayerTransformTool::Forget(const Document& doc) {
  if (doc_ == &doc) Reset();
}

void LayerTransformTool::Reset() {
  doc_ = nullptr;
  layer_ = -1;
  content_ = Surface();
  original_ = Layer();
  dragging_ = false;
  angle_ = 0;
  damage_ = kEverything;
}

ShapePoint LayerTransformTool::RotationDot(double reach) const {
  const double cx = (box_.x0 + box_.x1) / 2.0, cy = (box_.y0 + box_.y1) / 2.0;
  return Turned(cx, box_.y0 - 4 * reach, cx, cy, angle_);
}

TransformOverlay LayerTransformTool::Overlay(double reach) const {
  TransformOverlay o;
  if (!doc_) return o;
  o.shown = true;
  if (kind_ == LayerTransform::Rotate) {
    const double cx = (box_.x0 + box_.x1) / 2.0, cy = (box_.y0 + box_.y1) / 2.0;
    const ShapePoint corners[4] = {{double(box_.x0), double(box_.y0)},
                                   {double(box_.x1), double(box_.y0)},
                                   {double(box_.x1), double(box_.y1)},
                                   {double(box_.x0), double(box_.y1)}};
    for (int i = 0; i < 4; ++i) o.corners[i] = Turned(corners[i].x, corners[i].y, cx, cy, angle_);
    o.handles.push_back(RotationDot(reach));
    return o;
  }
  o.corners[0] = {double(target_.x0), double(target_.y0)};
  o.corners[1] = {double(target_.x1), double(target_.y0)};
  o.corners[2] = {double(target_.x1), double(target_.y1)};
  o.corners[3] = {double(target_.x0), double(target_.y1)};
  for (const auto& h : ResizeHandles(target_)) o.handles.push_back(h.second);
  return o;
}

Rect LayerTransformTool::TakeDamage() {
  const Rect d = damage_;
  damage_ = {};
  return d;
}

}  // namespace tavora
