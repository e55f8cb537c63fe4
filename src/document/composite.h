#pragma once
// Turns a document's layer stack into the flat image the canvas shows and
// flat formats save, recomputing only what was invalidated.
#include <cstdint>

#include "document/document.h"
#include "document/rect.h"

namespace tavora {

// Marks a changed area of layer layerIndex (any index is accepted; an
// invalid one marks the composite only). A layer with effects on grows the
// area by its effect margin. The observer is told of the grown area.
void Invalidate(Document& doc, int32_t layerIndex, const Rect& rect);

// After a command gave every layer new canvas-sized pixels and the document
// its new width and height (resize, canvas size, crop, rotation): the
// selection is dropped, the composite and every layer's effects are redone,
// the document is marked modified and the views hear of the new size.
void FinishCanvasChange(Document& doc);

// Brings the composite up to date.
void Composite(Document& doc);

// The buffer that holds the composite after Composite(): a layer's own
// pixels on the single-layer fast path, else the composite buffer.
const Surface& CompositeSource(const Document& doc);

// 0 outside the canvas.
uint32_t CompositePixel(Document& doc, int32_t x, int32_t y);

enum class Matte { None, Use };
// A copy of the composite owned by the caller; with Matte::Use every pixel
// is laid on the opaque matte colour, for formats without transparency.
[[nodiscard]] Surface FlatCopy(Document& doc, uint32_t matteColor, Matte matte);

// What the row callback needs: the layers, the output and the rectangle.
struct CompositeRowsContext {
  const Layer* layers = nullptr;
  int32_t layerCount = 0;
  uint32_t* output = nullptr;
  int32_t outputStride = 0;  // pixels per output row
  int32_t x0 = 0, y0 = 0, x1 = 0;
};
// Composites rows y0 + first .. y0 + end - 1 of the rectangle; a RowCallback.
void CompositeRows(int first, int end, void* context);

}  // namespace tavora
