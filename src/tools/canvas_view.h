#pragma once
// The canvas view's portable half: the layout of a document in the client
// area, zooming and fitting, the dirty rectangle, and the render pass that
// fills the back buffer (checkerboard, sampling, selection outline).
#include <cstdint>
#include <vector>

#include "document/document.h"
#include "document/rect.h"

namespace tavora {

inline constexpr double kMinZoom = 0.01, kMaxZoom = 64.0;
inline constexpr double kZoomSteps[24] = {0.02,   0.03,   0.05, 0.0625, 0.0833, 0.125,
                                          0.1667, 0.25,   0.3333, 0.5,  0.6667, 1.0,
                                          1.5,    2.0,    3.0,  4.0,    6.0,    8.0,
                                          12.0,   16.0,   24.0, 32.0,   48.0,   64.0};

struct ClientArea {
  int32_t width = 0, height = 0;
  double dpiScale = 1.0;  // monitor dpi / 96
};

struct CanvasLayout {
  double scale = 1.0;  // device pixels per image pixel: zoom x dpiScale
  int32_t originX = 0, originY = 0;
  int32_t clientW = 0, clientH = 0;
};

// Centres an axis that fits, else places it at minus the scroll offset.
CanvasLayout ComputeLayout(const Document& doc, const ClientArea& client);
// Clamps the scroll offsets into [0, image x scale - client].
void ClampScroll(Document& doc, const ClientArea& client);

// The next table step in a direction (+1 in, -1 out) from any zoom.
double ZoomStepFrom(double zoom, int direction);
// Explicit zoom about an anchor in client coordinates (fit mode 0).
void SetZoom(Document& doc, double zoom, double anchorX, double anchorY, const ClientArea& client);
// Fits the image with a 24-DIP margin; does nothing on a client below
// 20 x 20. Returns whether it fitted.
bool FitToWindow(Document& doc, bool neverEnlarge, const ClientArea& client);
// Re-fits a document in fit mode after a resize, else clamps its scroll.
void KeepFitted(Document& doc, const ClientArea& client);

// Accumulates what must be re-rendered, clipped to the client.
class DirtyArea {
 public:
  void Add(const Rect& r, int32_t clientW, int32_t clientH);
  void AddAll(int32_t clientW, int32_t clientH) { Add({0, 0, clientW, clientH}, clientW, clientH); }
  bool Any() const { return any_; }
  const Rect& Area() const { return area_; }
  void Clear() { any_ = false; area_ = {}; }

 private:
  bool any_ = false;
  Rect area_;
};

// The device rectangle that shows an image rectangle, padded for
// resampling and widened for the selection outline.
Rect ImageRectToDevice(const CanvasLayout& layout, const Rect& image, bool hasSelection);

// Maps a client position to image coordinates.
struct ImagePoint {
  double x = 0, y = 0;
  bool inside = false;
};
ImagePoint ScreenToImage(const CanvasLayout& layout, const Document& doc, double x, double y);

struct CanvasRender {
  const Surface* image = nullptr;              // the composite
  const SelectionMask* selection = nullptr;    // null without a selection
  CanvasLayout layout;
  double dpiScale = 1.0;
  bool smooth = true;
  uint32_t background = 0xFF1E1F22;            // outside the image
  uint32_t* target = nullptr;                  // the back buffer, top-down
  int32_t targetStride = 0;                    // pixels per row
};
// Renders the rows [area.y0, area.y1) over [area.x0, area.x1) of the back
// buffer, split over the row workers.
void RenderCanvas(const CanvasRender& render, const Rect& area);
// Off makes RenderCanvas use its plain per-pixel pass, so tests can compare
// the two; on by default.
void AllowFastCanvasRenderForTesting(bool allowed);

// The pixel grid: device x and y of every image column and row boundary
// within the visible image, shown only from 8 device pixels per image pixel.
// The part of the client the image covers: the pixel grid and the tools'
// overlays are clipped to it, so they never draw over the surround.
Rect ImageArea(const CanvasLayout& layout, const Document& doc);

struct GridLines {
  std::vector<int32_t> xs, ys;
  Rect clip;  // the visible image area
};
GridLines PixelGridLines(const CanvasLayout& layout, const Document& doc);

// The brush cursor of the painting tools: a white circle outside a black
// one, in device pixels around the cursor, and the square to repaint when
// it moves.
struct BrushCursorShape {
  Rect white, black, repaint;
};
BrushCursorShape BrushCursorFor(int32_t cx, int32_t cy, double brushSize, double scale);

// The canvas's own scroll bars: content and page in device pixels.
struct ScrollMetrics {
  int32_t content = 0;   // the scaled image extent
  int32_t page = 0;      // the client extent
  int32_t position = 0;  // the scroll offset
};
ScrollMetrics ScrollMetricsFor(const Document& doc, const ClientArea& client, bool vertical);
struct ThumbSpan {
  int32_t start = 0, length = 0;  // along the track; the whole track when all fits
};
ThumbSpan ThumbFor(const ScrollMetrics& m, int32_t track, int32_t minThumb);
// The scroll offset that puts the thumb's start at `thumbStart`.
int32_t PositionForThumb(const ScrollMetrics& m, int32_t track, int32_t minThumb, int32_t thumbStart);
// A line is 40 device-independent pixels; a page nine tenths of the page.
int32_t ScrollLineStep(double dpiScale);
int32_t ScrollPageStep(int32_t page);

enum class SampleMode { Nearest, Bilinear, AreaAverage };
SampleMode SampleModeFor(double scale, double dpiScale, bool smooth);

}  // namespace tavora
