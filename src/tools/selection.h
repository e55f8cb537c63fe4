#pragma once
// The operations on a document's selection mask: shapes rasterised for the
// selection tools, combining them with the selection by mode, feathering,
// the bounds kept beside the mask, and the Select menu's commands. Every
// command is one history step, or none when the selection would not change.
#include <cstdint>
#include <optional>
#include <span>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// The `selmode` option: how a new shape joins the selection.
enum SelectionMode : int32_t { kSelectNew = 0, kSelectAdd = 1, kSelectSubtract = 2, kSelectIntersect = 3 };

// Ctrl+Alt intersects, Ctrl adds, Alt subtracts (kModCtrl and kModAlt of the
// tool table); otherwise the tool's own mode.
int32_t EffectiveMode(int modifiers, int32_t toolMode);

enum class ShapeKind { Rectangle = 0, Ellipse = 1, Polygon = 2 };

struct ShapePoint {
  double x = 0, y = 0;
  bool operator==(const ShapePoint&) const = default;
};

// A shape's coverage over `rect` (canvas coordinates, inside the canvas):
// mask is rect-sized, its byte (0, 0) is canvas pixel (rect.x0, rect.y0).
struct SelectionRegion {
  Rect rect;
  SelectionMask mask;
};

// Rectangle and Ellipse take two opposite corners (the rectangle's rounded
// to whole pixels), Polygon the closed outline, filled even-odd. A feather
// above 0 widens the rect by trunc(feather x 2.6) + 2 and blurs the shape.
// Nothing when the shape is empty or wholly outside the canvas.
[[nodiscard]] std::optional<SelectionRegion> RasterizeShape(const Document& doc, ShapeKind kind,
                                                            std::span<const ShapePoint> points,
                                                            double feather);

// The byte rules of the modes, o the selection's byte, n the region's.
uint8_t CombineBytes(uint8_t o, uint8_t n, int32_t mode);

// Merges a region mask covering `rect` into the selection (a mask is made
// when there is none), recomputes the bounds and tells the canvas. Records
// nothing: the callers below do.
void CombineSelection(Document& doc, const SelectionMask& region, const Rect& rect, int32_t mode);
// Sets the bounds to the smallest rectangle holding every non-zero byte; an
// all-zero mask is freed (no selection, empty bounds).
void RecomputeSelectionBounds(Document& doc);
// Blurs the whole mask by radius x 1.5; nothing for a radius <= 0 or without
// a selection. Records nothing.
void FeatherSelection(Document& doc, double radius);
// `to` (the same size as `from`) gets `from` moved by whole pixels; bytes
// moved past the edge are lost and uncovered ones are 0.
void ShiftMask(const SelectionMask& from, int32_t dx, int32_t dy, SelectionMask& to);

// ---- commands: one history step each, none when nothing would change
// The region combined by mode as "Selection". Returns whether it recorded.
bool CommitRegion(Document& doc, const SelectionRegion& region, int32_t mode);
// "Deselect": removes the selection.
void Deselect(Document& doc);
// "Move Selection Outline": the mask moved by whole pixels, pixels untouched.
void MoveSelectionOutline(Document& doc, int32_t dx, int32_t dy);
// The rest are "Selection", except Select None, which is Deselect.
void SelectAll(Document& doc);
void SelectNone(Document& doc);
// 255 - mask; without a selection everything becomes selected.
void InvertSelection(Document& doc);
void FeatherSelectionCommand(Document& doc, double radius);
// Grayscale dilation and erosion by a disc of the radius (offsets with
// dx² + dy² <= r²), so soft edges stay soft. Outside the canvas counts as
// unselected for Grow and as selected for Shrink: an edge the selection
// shares with the canvas stays where it is, as a Select All shrunk stays whole.
void GrowSelection(Document& doc, int32_t pixels);
void ShrinkSelection(Document& doc, int32_t pixels);
// The active layer's alpha becomes the selection.
void SelectionFromLayerAlpha(Document& doc);

// The morphology on its own, `from` and `to` distinct, both width x height.
enum class Morphology { Dilate, Erode };
void DiscFilter(const uint8_t* from, uint8_t* to, int32_t width, int32_t height, int32_t radius,
                Morphology op);

}  // namespace tavora
