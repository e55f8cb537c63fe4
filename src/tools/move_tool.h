#pragma once
// The Move tool: drags and arrow keys move the active layer, or only the
// selected pixels (with their outline) when there is a selection. The moves
// made with the tool form one pending operation and one history step
// "Move"; it ends on a tool change, Enter, a switch of document or any
// command. Content pushed past the canvas edge is kept as the layer's
// extended content and comes back when moved back. A Background layer
// cannot hold transparency: what a move uncovers there takes the fill
// colour (the secondary colour), and it keeps nothing past the edge.
#include <cstdint>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

class MoveTool {
 public:
  // `fill` (0xAARRGGBB, made opaque) is what a Background layer shows where
  // its pixels moved away.
  void Press(Document& doc, double x, double y, uint32_t fill);
  void Drag(Document& doc, double x, double y);
  void Release(Document& doc, double x, double y);
  // The arrow keys: one pixel, ten with Shift.
  void Nudge(Document& doc, int32_t dx, int32_t dy, uint32_t fill);
  // Ends the pending move; what the layer shows stays as the step's result.
  void Commit(Document& doc);
  // The document is closing: nothing may refer to it afterwards.
  void Forget(const Document& doc);
  bool Pending() const { return doc_ != nullptr; }
  bool Dragging() const { return dragging_; }

 private:
  bool Begin(Document& doc, uint32_t fill);
  void MoveTo(Document& doc, int32_t dx, int32_t dy);
  void MoveLayer(Document& doc, Layer& layer, int32_t dx, int32_t dy);
  void MovePiece(Document& doc, Layer& layer, int32_t dx, int32_t dy);
  void ShowPiece(Layer& layer, const Rect& at);
  void HidePiece(Layer& layer);
  void Reset();

  Document* doc_ = nullptr;  // the document of the pending move
  int32_t layer_ = -1;
  bool floating_ = false;    // the selected pixels move, not the layer
  bool background_ = false;  // the layer keeps nothing past the canvas
  uint32_t fill_ = 0;
  int32_t dx_ = 0, dy_ = 0;  // the offset so far
  // Whole-layer moves: where the content's top-left corner started.
  int32_t originX_ = 0, originY_ = 0;
  // Selected-pixel moves: the lifted pixels, where they came from, what
  // lies under them where they are now, and the outline as it was.
  Surface piece_, under_;
  Rect pieceFrom_, pieceAt_;
  SelectionMask mask_;
  Rect maskBounds_;
  // The drag: press point and the offset when it began.
  bool dragging_ = false;
  double pressX_ = 0, pressY_ = 0;
  int32_t dragStartX_ = 0, dragStartY_ = 0;
};

}  // namespace tavora
