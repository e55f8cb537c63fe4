#pragma once
// The "KZCanvas" window: shows the active document and turns the mouse
// into image coordinates. Windows only.
#include <windows.h>

#include "document/document.h"

namespace tavora {

struct CanvasSettings {
  bool smooth = true;
  bool grid = false;
  bool dark = true;
};

void RegisterCanvasClasses(HINSTANCE instance);
// The canvas and its two "KZScrollBar" siblings (horizontal, vertical).
HWND CreateCanvas(HWND parent, HINSTANCE instance);
// Places the canvas and its scroll bars in an area of the parent.
void PlaceCanvas(HWND canvas, const RECT& area);
// The document shown, or null for the empty state; a switch redraws all.
// Place the canvas again afterwards: the scroll bars come and go with it.
void SetCanvasDocument(HWND canvas, Document* doc);
void SetCanvasSettings(HWND canvas, const CanvasSettings& settings);
// Fits a newly shown document (mode 1) once the canvas has its size.
void FitCanvasDocument(HWND canvas, bool neverEnlarge);
// Zoom commands: +1 in, -1 out about the centre; 100 % and actual pixels.
void ZoomCanvas(HWND canvas, int direction);
void ZoomCanvasTo(HWND canvas, bool actualPixels);
// Any zoom (held to 1 % .. 6400 %), about the centre.
void SetCanvasZoom(HWND canvas, double zoom);
// Repaints the image area that changed (image coordinates), or everything.
void InvalidateCanvasImage(HWND canvas, const Rect& imageRect);
void InvalidateCanvas(HWND canvas);

// Tools draw their overlays (brush cursor, rubber bands, handles) over the
// picture on every paint, clipped to the image.
struct CanvasLayout;
using CanvasOverlay = void (*)(HDC dc, const CanvasLayout& layout, void* context);
void SetCanvasOverlay(HWND canvas, CanvasOverlay overlay, void* context);
// The mouse goes to the current tool: the canvas pans for the Pan tool and
// zooms for the Zoom tool itself, and hands every other press, move and
// release to `input` in image coordinates (pixel centres). `colorsChanged`
// runs when a tool changed the colour boxes. Both must outlive the canvas.
class ToolInput;
class ToolSettings;
void SetCanvasTools(HWND canvas, ToolSettings* settings, ToolInput* input,
                    void (*colorsChanged)());
// What the status bar and the toolbar follow: the document shown and the
// image pixel under the pointer while it is over the picture. A listener's
// `changed` runs when the pointer moves to another pixel or leaves the
// picture, that pixel is repainted, the zoom changes or another document is
// shown; it should only note that what it shows is stale, as it runs on
// every such mouse move. Up to four listeners, told apart by `context`.
Document* CanvasDocument(HWND canvas);
bool CanvasPointerPixel(HWND canvas, int32_t& x, int32_t& y);
void AddCanvasViewListener(HWND canvas, void (*changed)(void* context), void* context);
void RemoveCanvasViewListener(HWND canvas, void* context);
// The tool or its brush size changed: redraw the cursor and overlays.
void RefreshCanvasTool(HWND canvas);
// Draws the brush cursor rings at a client position.
void DrawBrushCursor(HDC dc, int32_t cx, int32_t cy, double brushSize, double scale);

}  // namespace tavora
