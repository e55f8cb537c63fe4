#pragma once
// The Image menu's geometry (canvas size, crop, rotations, flips), the
// Layers menu's transforms of the active layer, and the picture-level
// transforms they are built on. Each command is one history step, or none
// when it would change nothing; each returns whether the document changed.
#include <array>
#include <cstdint>
#include <string_view>

#include "document/document.h"
#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

// ---------------------------------------------------------------- pictures
enum class Turn { CounterClockwise, Clockwise };

// Clockwise: source (x, y) goes to (H - 1 - y, x) of the H x W result;
// counter-clockwise: to (y, W - 1 - x).
[[nodiscard]] Surface Rotate90(const Surface& source, Turn turn);
// Index i goes to W x H - 1 - i.
[[nodiscard]] Surface Rotate180(const Surface& source);
// Reverses the order of the rows (Flip) or each row (Mirror), in place.
void FlipRows(Surface& pixels);
void MirrorRows(Surface& pixels);
void FlipRows(SelectionMask& mask);
void MirrorRows(SelectionMask& mask);

// The radians the free rotation uses for an angle in degrees.
double RotationRadians(double angleDegrees);

struct PictureSize {
  int32_t width = 0, height = 0;
  bool operator==(const PictureSize&) const = default;
};
// The size a free rotation gives: with expand, the bounding box of the
// turned picture, ceil(|W c| + |H s|) x ceil(|W s| + |H c|), where a sum
// within 1e-9 of a whole number counts as that number (cos 90 degrees is
// not quite 0 in doubles, and a quarter turn must not grow the canvas);
// each side at least 1. Without expand, the picture's own size.
PictureSize FreeRotationSize(int32_t width, int32_t height, double angleDegrees, bool expand);

// The picture turned by the angle (positive turns clockwise on screen)
// about its centre into a width x height result centred on it: each result
// pixel is the bilinear blend of the four source pixels around its source
// point, colours weighted by alpha. Source points more than a pixel off
// the picture, and neighbours outside it, count as `fill`.
[[nodiscard]] Surface RotateFree(const Surface& source, double angleDegrees, int32_t width,
                                 int32_t height, uint32_t fill);

// ---------------------------------------------------------------- image commands
// Canvas Size's anchor choices, index = anchor; column anchor % 3, row anchor / 3.
inline constexpr std::array<std::u16string_view, 9> kCanvasAnchorNames = {
    u"Top left",    u"Top",    u"Top right",    u"Left",        u"Center",
    u"Right",       u"Bottom left", u"Bottom",  u"Bottom right"};
inline constexpr int32_t kCanvasAnchorCenter = 4;
// The largest side Canvas Size takes; larger values are clamped.
inline constexpr int32_t kMaxGeometrySide = 32768;

// "Canvas Size": the layers placed on a width x height canvas by the anchor;
// what is uncovered is transparent, or `color` made opaque on an
// opaque-background layer.
bool CanvasSize(Document& doc, int32_t width, int32_t height, int32_t anchor, uint32_t color);
// "Crop": to the selection's bounding rectangle.
bool CropToSelection(Document& doc);
// "Crop" to a rectangle (the Crop tool's), clipped to the canvas; nothing
// when it is empty or the whole canvas.
bool CropToRect(Document& doc, const Rect& rect);
// "Rotate Right" / "Rotate Left", and "Rotate 180".
bool RotateImage90(Document& doc, bool clockwise);
bool RotateImage180(Document& doc);
// "Rotate": every layer by RotateFree; the corners are `cornerColor` made
// opaque on an opaque-background layer and transparent on the others.
// Refused when an expanded canvas would pass the canvas limits, for a
// whole turn (nothing would change) and for an angle that is not a number.
bool FreeRotateImage(Document& doc, double angleDegrees, bool expand, uint32_t cornerColor);
// "Flip" (rows reversed) and "Mirror" (each row reversed); the selection
// turns with the image.
bool FlipImage(Document& doc);
bool MirrorImage(Document& doc);

// ---------------------------------------------------------------- layer commands
// The box Resize Layer and the layer rotations work on: the layer's
// non-transparent pixels, past the canvas included, in canvas coordinates
// (the canvas itself for an opaque-background layer); empty when the layer
// shows nothing.
Rect LayerContentBox(const Layer& layer);

// The Resize Layer dialog's methods, in its list order.
struct ResizeLayerMethod {
  std::u16string_view name;
  int32_t algorithm;  // ResampleAlgorithm's number
};
inline constexpr std::array<ResizeLayerMethod, 5> kResizeLayerMethods = {{
    {u"Automatic (smooth)", 7},
    {u"Bilinear", 1},
    {u"Bicubic", 2},
    {u"Lanczos (high quality)", 3},
    {u"Nearest neighbor (hard pixels)", 0},
}};
inline constexpr int64_t kMaxResizeLayerPixels = 150'000'000;
// The dialog's check: empty when both sides are 1..30000 and the product
// is at most 150 megapixels, else the message to show.
std::u16string_view CheckResizeLayerSize(int32_t width, int32_t height);

// "Resize Layer": the content box resampled to width x height about its
// centre. Refused without an active layer, on an opaque-background layer,
// for a side below 1, above 150 megapixels, or when the layer shows nothing.
bool ResizeLayer(Document& doc, int32_t width, int32_t height, int32_t algorithm);
// The same to a given place and size on the canvas (the Layer Resize tool's
// handles may move the content's centre).
bool ResizeLayerTo(Document& doc, const Rect& target, int32_t algorithm);
// "Flip Layer" / "Mirror Layer": about the canvas's centre line, content
// past the canvas included.
bool FlipLayer(Document& doc);
bool MirrorLayer(Document& doc);
// "Rotate Layer Right" / "Rotate Layer Left", "Rotate Layer 180" and
// "Rotate Layer": the content box turned about its centre, kept whole past
// the canvas. An opaque-background layer turns within the canvas instead,
// about the canvas's centre, and what it uncovers is opaque black.
bool RotateLayer90(Document& doc, bool clockwise);
bool RotateLayer180(Document& doc);
bool FreeRotateLayer(Document& doc, double angleDegrees);

// What the layer transforms do to a layer, without a history step, from its
// content taken before (LayerContent of LayerContentBox): for the transform
// tools' live previews, which then apply the command itself.
[[nodiscard]] Surface LayerContent(const Layer& layer, const Rect& box);
void PlaceRotatedContent(Layer& layer, const Surface& content, const Rect& box, double angleDegrees);
void PlaceResizedContent(Layer& layer, const Surface& content, const Rect& target, int32_t algorithm);

// "Layer from Selection": a new layer above the active one holding the
// active layer's pixels with alpha x selection / 255; the selection stays.
bool LayerFromSelection(Document& doc);

}  // namespace tavora
