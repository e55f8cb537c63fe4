#pragma once
// The current tool's side of the canvas: presses, drags, releases and keys
// in image coordinates go to the selection tools, the brush engine or the
// colour picker. Zoom and Pan stay with the canvas, which owns the view.
// Tools whose behaviour has not landed yet take no input.
#include <cstdint>
#include <optional>

#include "document/document.h"
#include "tools/brush_engine.h"
#include "tools/crop_tool.h"
#include "tools/layer_transform_tool.h"
#include "tools/move_tool.h"
#include "tools/selection_tool.h"
#include "tools/shape_tool.h"
#include "tools/text_layers.h"
#include "tools/tool_table.h"

namespace tavora {

// The brush engine's tool for a tool id, or nothing.
std::optional<BrushTool> BrushToolFor(int32_t toolId);
// The stroke parameters from the tool's options and the colour boxes.
BrushParams BrushParamsFor(BrushTool tool, const ToolOptions& options, const ColorBoxes& colors);

// The average colour of a sample x sample square of the composite around
// (x, y), weighted by alpha and made opaque; nothing where the square is
// outside the image or wholly transparent.
std::optional<uint32_t> PickColor(Document& doc, double x, double y, int32_t sample);

// Rubber-band tools see only the latest of several queued moves.
bool CoalescesMoves(int32_t toolId);

enum class ToolKey { Backspace, Escape, Enter, Left, Right, Up, Down };

// The Text tool's dialog, run by the window side: true with the values
// chosen, false when cancelled.
using TextDialogRunner = bool (*)(void* context, Document& doc, const TextClick& click, TextValues& values);

class ToolInput {
 public:
  // How far from a handle a press still takes it, in device pixels.
  static constexpr double kHandleReach = 6;

  explicit ToolInput(ToolSettings& tools) : tools_(tools) {}

  // Device pixels per image pixel on screen, for the reach of handles.
  void SetViewScale(double scale) { viewScale_ = scale > 0 ? scale : 1.0; }
  void SetTextDialog(TextDialogRunner runner, void* context) {
    textDialog_ = runner;
    textContext_ = context;
  }

  // Button 1 left, 2 right; modifiers kModShift, kModCtrl, kModAlt.
  void Press(Document& doc, double x, double y, int button, int modifiers);
  // In place of the second press of a double-click.
  void DoubleClick(Document& doc, double x, double y, int button, int modifiers);
  // Every pointer move over the canvas, with or without a button down; the
  // modifiers as they are now (Shift constrains shapes and crops).
  void Move(Document& doc, double x, double y, int modifiers = 0);
  void Release(Document& doc, double x, double y, int modifiers = 0);
  // Whether the tool used the key; modifiers as for a press (Shift makes
  // an arrow move ten pixels).
  bool Key(Document& doc, ToolKey key, int modifiers = 0);
  // A tool change, a switch to another document or any command: work under
  // way ends; a stroke keeps what it painted as its step, a move its result.
  void Finish(Document& doc);
  // A tool operation is pending (a move not yet committed, a crop
  // rectangle shown).
  bool Pending() const { return move_.Pending() || crop_.Shown() || transform_.Active(); }
  // A layer transform has changed its layer and waits for Apply or Cancel:
  // until then the menus' commands wait too.
  bool TransformInProgress() const { return transform_.Active() && transform_.Changed(); }
  // The document is closing: nothing may refer to it afterwards.
  void Forget(Document& doc);

  // A press is being followed by moves until the release.
  bool Dragging() const { return dragging_; }
  bool SelectionBusy() const { return selection_.Busy(); }
  SelectionOverlay Overlay() const { return selection_.Overlay(); }
  // The crop rectangle shown, if any, and the shape being dragged.
  std::optional<Rect> CropArea() const { return crop_.Shown() ? std::optional<Rect>(crop_.Area()) : std::nullopt; }
  ShapeOverlay ShapeDrag() const { return shape_.Overlay(); }
  // The Layer Rotate and Layer Resize tools' box and dots.
  TransformOverlay TransformHandles() const { return transform_.Overlay(kHandleReach / viewScale_); }
  // The Apply and Cancel buttons of the options bar (and Enter, Esc).
  void ApplyTransform(Document& doc);
  void CancelTransform(Document& doc);
  Rect OverlayBounds() const { return Union(selection_.OverlayBounds(), shape_.OverlayBounds()); }
  Rect TakeOverlayDamage() {
    return Union(Union(Union(selection_.TakeOverlayDamage(), crop_.TakeDamage()), shape_.TakeOverlayDamage()),
                 transform_.TakeDamage());
  }
  // The colour boxes changed (the colour picker).
  bool TakeColorsChanged() {
    const bool changed = colorsChanged_;
    colorsChanged_ = false;
    return changed;
  }

 private:
  void Pick(Document& doc, double x, double y);
  void ApplyCrop(Document& doc);
  void TextClickAt(Document& doc, double x, double y);

  ToolSettings& tools_;
  SelectionTool selection_;
  MoveTool move_;
  CropTool crop_;
  LayerTransformTool transform_;
  ShapeTool shape_;
  double viewScale_ = 1.0;
  TextDialogRunner textDialog_ = nullptr;
  void* textContext_ = nullptr;
  bool dragging_ = false;
  int button_ = 0;
  bool colorsChanged_ = false;
};

}  // namespace tavora
