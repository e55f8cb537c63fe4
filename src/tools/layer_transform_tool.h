#pragma once
// The Layer Rotate and Layer Resize tools: the active layer's content box
// with handles (a dot above it to turn it, eight dots to size it), the
// layer previewed live as the handles move, and Enter (or the Apply
// button, a tool change, any command) applying it as one history step
// through the same commands as the Layers menu; Esc puts it back.
#include <cstdint>
#include <optional>
#include <vector>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"
#include "tools/selection.h"

namespace tavora {

enum class LayerTransform { Rotate, Resize };

enum class ResizeHandle { None, Left, Top, Right, Bottom, TopLeft, TopRight, BottomLeft, BottomRight };

struct TransformOverlay {
  bool shown = false;
  ShapePoint corners[4];              // the box as turned, clockwise from top left
  std::vector<ShapePoint> handles;    // the white dots, image coordinates
};

class LayerTransformTool {
 public:
  // A press: on a handle it starts a drag (Shift held keeps the proportions
  // of a resize); the first press shows the handles of the active layer.
  // `reach` is how far from a dot, in image pixels, a press still takes it.
  // False when the layer has nothing to transform (or a Background resize).
  bool Press(Document& doc, LayerTransform kind, double x, double y, int modifiers, double reach);
  void Drag(Document& doc, double x, double y, int modifiers);
  void Release(Document& doc, double x, double y);
  // One history step ("Rotate Layer", "Resize Layer"); nothing when the
  // layer was left as it was.
  void Apply(Document& doc);
  // Back as it was, no step.
  void Cancel(Document& doc);
  // The document is closing.
  void Forget(const Document& doc);

  bool Active() const { return doc_ != nullptr; }
  bool Changed() const;
  TransformOverlay Overlay(double reach) const;
  Rect TakeDamage();

  // The current transform, for tests and the options bar.
  double Angle() const { return angle_; }
  const Rect& Target() const { return target_; }

 private:
  bool Start(Document& doc, LayerTransform kind);
  void Preview(Document& doc);
  void Restore(Document& doc);
  void Reset();
  ShapePoint RotationDot(double reach) const;

  Document* doc_ = nullptr;
  int32_t layer_ = -1;
  LayerTransform kind_ = LayerTransform::Rotate;
  Rect box_;           // the content box when the tool started
  Surface content_;    // the content within it
  Layer original_;     // the layer as it was, for Esc
  double angle_ = 0;   // degrees, clockwise
  Rect target_;        // the resize's box
  // The drag.
  bool dragging_ = false;
  ResizeHandle handle_ = ResizeHandle::None;
  bool keepRatio_ = false;
  double pressAngle_ = 0, startAngle_ = 0;
  double pressX_ = 0, pressY_ = 0;
  Rect startTarget_;
  Rect damage_;
};

}  // namespace tavora
