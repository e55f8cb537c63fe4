// "KZCanvas": presents the back buffer that the portable render pass fills.
#include <windows.h>
#include <windowsx.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <unordered_map>

#include "base/command_ids.h"
#include "document/composite.h"
#include "platform/dpi_win32.h"
#include "platform/modal_win32.h"
#include "tools/canvas.h"
#include "tools/canvas_view.h"
#include "tools/tool_input.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

constexpr int kBarDip = 14, kMinThumbDip = 16;
constexpr UINT kScrollTo = WM_APP + 1;  // wParam: 1 vertical; lParam: the new offset

struct CanvasState {
  Document* doc = nullptr;
  HWND bars[2] = {nullptr, nullptr};  // horizontal, vertical
  CanvasSettings settings;
  HBITMAP buffer = nullptr;
  uint32_t* bits = nullptr;
  int32_t bufferW = 0, bufferH = 0;
  DirtyArea dirty;
  bool panning = false;
  CanvasOverlay overlay = nullptr;
  void* overlayContext = nullptr;
  POINT panStart{};
  int32_t scrollStartX = 0, scrollStartY = 0;
  ToolSettings* tools = nullptr;
  ToolInput* input = nullptr;
  void (*colorsChanged)() = nullptr;
  int toolButton = 0;     // the button of the tool drag under way, 0 for none
  POINT cursor{};         // last client position of the pointer
  bool inside = false;    // the pointer is over the canvas
  // What the status bar was last told: the image pixel under the pointer
  // (while over the picture) and the zoom.
  struct ViewListener {
    void (*changed)(void* context) = nullptr;
    void* context = nullptr;
  };
  ViewListener listeners[4];  // the status bar and the toolbar
  bool hoverInside = false;
  int32_t hoverX = 0, hoverY = 0;
  double reportedZoom = 0;
};

// One state per canvas window, owned here for the window's lifetime.
std::unordered_map<HWND, std::unique_ptr<CanvasState>> g_states;

CanvasState* State(HWND hwnd) {
  auto it = g_states.find(hwnd);
  return it == g_states.end() ? nullptr : it->second.get();
}

ClientArea Client(HWND hwnd) {
  RECT r;
  GetClientRect(hwnd, &r);
  return {r.right - r.left, r.bottom - r.top, WindowDpi(hwnd) / 96.0};
}

uint32_t BackgroundColor(const CanvasState& s) {
  return s.settings.dark ? 0xFF2A2B2F : 0xFFDADCE0;
}

void EnsureBuffer(HWND hwnd, CanvasState& s) {
  const ClientArea c = Client(hwnd);
  if (s.buffer && s.bufferW == c.width && s.bufferH == c.height) return;
  if (s.buffer) DeleteObject(s.buffer);
  s.buffer = nullptr;
  s.bits = nullptr;
  s.bufferW = c.width;
  s.bufferH = c.height;
  if (c.width <= 0 || c.height <= 0) return;
  BITMAPINFO bi{};
  bi.bmiHeader.biSize = sizeof bi.bmiHeader;
  bi.bmiHeader.biWidth = c.width;
  bi.bmiHeader.biHeight = -c.height;  // top-down
  bi.bmiHeader.biPlanes = 1;
  bi.bmiHeader.biBitCount = 32;
  bi.bmiHeader.biCompression = BI_RGB;
  void* bits = nullptr;
  s.buffer = CreateDIBSection(nullptr, &bi, DIB_RGB_COLORS, &bits, nullptr, 0);
  s.bits = static_cast<uint32_t*>(bits);
  // A new buffer: all of it and nothing beyond it is to be drawn.
  s.dirty.Clear();
  s.dirty.AddAll(c.width, c.height);
}

void PaintEmpty(HDC dc, const RECT& r, const CanvasState& s, UINT dpi) {
  HBRUSH back = CreateSolidBrush(s.settings.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xF3, 0xF3, 0xF3));
  FillRect(dc, &r, back);
  DeleteObject(back);
  SetBkMode(dc, TRANSPARENT);
  HFONT title = CreateFontW(-MulDiv(28, dpi, 96), 0, 0, 0, FW_SEMIBOLD, 0, 0, 0, DEFAULT_CHARSET,
                            0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HFONT body = CreateFontW(-MulDiv(14, dpi, 96), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0,
                           0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  const int mid = (r.top + r.bottom) / 2;
  RECT top{r.left, mid - MulDiv(110, dpi, 96), r.right, mid - MulDiv(60, dpi, 96)};
  HGDIOBJ old = SelectObject(dc, title);
  SetTextColor(dc, RGB(0xF4, 0x8C, 0x2E));
  DrawTextW(dc, L"Tavora", -1, &top, DT_CENTER | DT_SINGLELINE | DT_VCENTER);
  SelectObject(dc, body);
  SetTextColor(dc, s.settings.dark ? RGB(0xB0, 0xB3, 0xB8) : RGB(0x50, 0x53, 0x58));
  RECT hint{r.left, mid - MulDiv(40, dpi, 96), r.right, r.bottom};
  DrawTextW(dc, L"Ctrl+N  New image\nCtrl+O  Open image\nCtrl+B  Browse folders\nCtrl+Shift+F  Capture screen",
            -1, &hint, DT_CENTER | DT_NOPREFIX);
  SelectObject(dc, old);
  DeleteObject(title);
  DeleteObject(body);
}

// Lines that invert what is under them, so they show on any picture.
void DrawPixelGrid(HDC dc, HWND hwnd, const CanvasState& s) {
  const GridLines grid = PixelGridLines(ComputeLayout(*s.doc, Client(hwnd)), *s.doc);
  if (grid.xs.empty() && grid.ys.empty()) return;
  const int saved = SaveDC(dc);
  IntersectClipRect(dc, grid.clip.x0, grid.clip.y0, grid.clip.x1, grid.clip.y1);
  HPEN pen = CreatePen(PS_SOLID, 1, RGB(0x30, 0x30, 0x30));
  SelectObject(dc, pen);
  SetROP2(dc, R2_XORPEN);
  for (int32_t x : grid.xs) {
    MoveToEx(dc, x, grid.clip.y0, nullptr);
    LineTo(dc, x, grid.clip.y1);
  }
  for (int32_t y : grid.ys) {
    MoveToEx(dc, grid.clip.x0, y, nullptr);
    LineTo(dc, grid.clip.x1, y);
  }
  RestoreDC(dc, saved);
  DeleteObject(pen);
}

POINT ToClient(const CanvasLayout& layout, double x, double y) {
  return {static_cast<LONG>(std::lround(layout.originX + x * layout.scale)),
          static_cast<LONG>(std::lround(layout.originY + y * layout.scale))};
}

// The selection tools' rubber band and point list: a solid black line with
// a white dotted one over it, so it shows on any picture.
void DrawSelectionOverlay(HDC dc, const CanvasLayout& layout, const SelectionOverlay& o) {
  if (o.shape == SelectionOverlay::Shape::None) return;
  std::vector<POINT> path;
  for (const ShapePoint& p : o.points) path.push_back(ToClient(layout, p.x, p.y));
  if (o.shape == SelectionOverlay::Shape::Path && o.toPointer)
    path.push_back(ToClient(layout, o.pointer.x, o.pointer.y));
  const POINT a = ToClient(layout, o.x0, o.y0), b = ToClient(layout, o.x1, o.y1);
  HPEN black = CreatePen(PS_SOLID, 1, RGB(0, 0, 0));
  HPEN white = CreatePen(PS_DOT, 1, RGB(255, 255, 255));
  HGDIOBJ oldPen = SelectObject(dc, black);
  HGDIOBJ oldBrush = SelectObject(dc, GetStockObject(NULL_BRUSH));
  SetBkMode(dc, TRANSPARENT);
  for (HPEN pen : {black, white}) {
    SelectObject(dc, pen);
    switch (o.shape) {
      case SelectionOverlay::Shape::Rectangle: Rectangle(dc, a.x, a.y, b.x + 1, b.y + 1); break;
      case SelectionOverlay::Shape::Ellipse: Ellipse(dc, a.x, a.y, b.x + 1, b.y + 1); break;
      case SelectionOverlay::Shape::Path:
        if (path.size() >= 2) Polyline(dc, path.data(), static_cast<int>(path.size()));
        break;
      case SelectionOverlay::Shape::None: break;
    }
  }
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(black);
  DeleteObject(white);
}

bool ShowsBrushCursor(const CanvasState& s) {
  return s.tools && s.inside && !s.panning && IsBrushCursorTool(s.tools->CurrentTool());
}

// The crop rectangle: the rest of the picture dimmed, the rectangle framed
// and its eight handles.
void DrawCropOverlay(HDC dc, const CanvasLayout& layout, const Rect& area, const Rect& image) {
  const POINT a = ToClient(layout, area.x0, area.y0), b = ToClient(layout, area.x1, area.y1);
  // Dimmed by a half-transparent black over everything outside the area.
  HDC mem = CreateCompatibleDC(dc);
  HBITMAP one = CreateCompatibleBitmap(dc, 1, 1);
  HGDIOBJ old = SelectObject(mem, one);
  SetPixel(mem, 0, 0, RGB(0, 0, 0));
  const BLENDFUNCTION half{AC_SRC_OVER, 0, 110, 0};
  const RECT parts[4] = {{image.x0, image.y0, image.x1, a.y},
                         {image.x0, b.y, image.x1, image.y1},
                         {image.x0, a.y, a.x, b.y},
                         {b.x, a.y, image.x1, b.y}};
  for (const RECT& r : parts)
    if (r.right > r.left && r.bottom > r.top)
      AlphaBlend(dc, r.left, r.top, r.right - r.left, r.bottom - r.top, mem, 0, 0, 1, 1, half);
  SelectObject(mem, old);
  DeleteObject(one);
  DeleteDC(mem);
  HPEN pen = CreatePen(PS_SOLID, 1, RGB(255, 255, 255));
  HGDIOBJ oldPen = SelectObject(dc, pen);
  HGDIOBJ oldBrush = SelectObject(dc, GetStockObject(NULL_BRUSH));
  Rectangle(dc, a.x, a.y, b.x, b.y);
  SelectObject(dc, GetStockObject(WHITE_BRUSH));
  const int h = 3;
  for (const int x : {a.x, (a.x + b.x) / 2, b.x})
    for (const int y : {a.y, (a.y + b.y) / 2, b.y})
      if (x != (a.x + b.x) / 2 || y != (a.y + b.y) / 2) Rectangle(dc, x - h, y - h, x + h + 1, y + h + 1);
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(pen);
}

// The shape being dragged, as an outline in its colour.
void DrawShapeOverlay(HDC dc, const CanvasLayout& layout, const ShapeOverlay& o) {
  if (!o.shown) return;
  const ShapeGeometry& shape = o.shape;
  const POINT a = ToClient(layout, shape.x0, shape.y0), b = ToClient(layout, shape.x1, shape.y1);
  const uint32_t c = shape.style == kShapeFilled ? shape.fill : shape.outline;
  const int width = std::max(1, static_cast<int>(std::lround(shape.lineWidth * layout.scale)));
  HPEN pen = CreatePen(PS_SOLID, shape.type == ShapeType::Line || shape.style != kShapeFilled ? width : 1,
                       RGB((c >> 16) & 255, (c >> 8) & 255, c & 255));
  HBRUSH fill = CreateSolidBrush(RGB((shape.fill >> 16) & 255, (shape.fill >> 8) & 255, shape.fill & 255));
  HGDIOBJ oldPen = SelectObject(dc, pen);
  HGDIOBJ oldBrush = SelectObject(dc, shape.style == kShapeOutline ? GetStockObject(NULL_BRUSH) : fill);
  const int x0 = std::min(a.x, b.x), y0 = std::min(a.y, b.y), x1 = std::max(a.x, b.x), y1 = std::max(a.y, b.y);
  switch (shape.type) {
    case ShapeType::Line:
      MoveToEx(dc, a.x, a.y, nullptr);
      LineTo(dc, b.x, b.y);
      break;
    case ShapeType::Rectangle: Rectangle(dc, x0, y0, x1, y1); break;
    case ShapeType::Ellipse: Ellipse(dc, x0, y0, x1, y1); break;
    case ShapeType::RoundedRectangle: {
      const int r = static_cast<int>(std::lround(2 * shape.cornerRadius * layout.scale));
      RoundRect(dc, x0, y0, x1, y1, r, r);
      break;
    }
  }
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(pen);
  DeleteObject(fill);
}

// The Layer Rotate and Layer Resize tools' box and white dots.
void DrawTransformOverlay(HDC dc, const CanvasLayout& layout, const TransformOverlay& o) {
  if (!o.shown) return;
  POINT corners[5];
  for (int i = 0; i < 4; ++i) corners[i] = ToClient(layout, o.corners[i].x, o.corners[i].y);
  corners[4] = corners[0];
  HPEN black = CreatePen(PS_SOLID, 1, RGB(0, 0, 0));
  HPEN white = CreatePen(PS_DOT, 1, RGB(255, 255, 255));
  HGDIOBJ oldPen = SelectObject(dc, black);
  SetBkMode(dc, TRANSPARENT);
  Polyline(dc, corners, 5);
  SelectObject(dc, white);
  Polyline(dc, corners, 5);
  SelectObject(dc, black);
  HGDIOBJ oldBrush = SelectObject(dc, GetStockObject(WHITE_BRUSH));
  for (const ShapePoint& p : o.handles) {
    const POINT c = ToClient(layout, p.x, p.y);
    Ellipse(dc, c.x - 5, c.y - 5, c.x + 6, c.y + 6);
  }
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(black);
  DeleteObject(white);
}

void DrawToolOverlays(HDC dc, const CanvasLayout& layout, const CanvasState& s) {
  if (!s.input || s.panning) return;
  // Overlays belong to the picture: never over the grey around it.
  const Rect image = ImageArea(layout, *s.doc);
  const int saved = SaveDC(dc);
  IntersectClipRect(dc, image.x0, image.y0, image.x1, image.y1);
  DrawSelectionOverlay(dc, layout, s.input->Overlay());
  if (const auto crop = s.input->CropArea()) DrawCropOverlay(dc, layout, *crop, image);
  DrawShapeOverlay(dc, layout, s.input->ShapeDrag());
  DrawTransformOverlay(dc, layout, s.input->TransformHandles());
  if (ShowsBrushCursor(s))
    DrawBrushCursor(dc, s.cursor.x, s.cursor.y, s.tools->Current().size, layout.scale);
  RestoreDC(dc, saved);
}

void Paint(HWND hwnd, CanvasState& s) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT client;
  GetClientRect(hwnd, &client);
  if (!s.doc) {
    PaintEmpty(dc, client, s, WindowDpi(hwnd));
    EndPaint(hwnd, &ps);
    return;
  }
  EnsureBuffer(hwnd, s);
  if (!s.buffer) {
    EndPaint(hwnd, &ps);
    return;
  }
  if (s.dirty.Any()) {
    Composite(*s.doc);
    CanvasRender render;
    render.image = &CompositeSource(*s.doc);
    render.selection = s.doc->selection ? &*s.doc->selection : nullptr;
    const ClientArea c = Client(hwnd);
    render.layout = ComputeLayout(*s.doc, c);
    render.dpiScale = c.dpiScale;
    render.smooth = s.settings.smooth;
    render.background = BackgroundColor(s);
    render.target = s.bits;
    render.targetStride = s.bufferW;
    GdiFlush();
    RenderCanvas(render, Intersect(s.dirty.Area(), {0, 0, s.bufferW, s.bufferH}));
    s.dirty.Clear();
  }
  HDC mem = CreateCompatibleDC(dc);
  HGDIOBJ old = SelectObject(mem, s.buffer);
  BitBlt(dc, ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right - ps.rcPaint.left,
         ps.rcPaint.bottom - ps.rcPaint.top, mem, ps.rcPaint.left, ps.rcPaint.top, SRCCOPY);
  SelectObject(mem, old);
  DeleteDC(mem);
  if (s.settings.grid) DrawPixelGrid(dc, hwnd, s);
  const CanvasLayout layout = ComputeLayout(*s.doc, Client(hwnd));
  if (s.overlay && !s.panning) {
    const Rect image = ImageArea(layout, *s.doc);
    const int saved = SaveDC(dc);
    IntersectClipRect(dc, image.x0, image.y0, image.x1, image.y1);
    s.overlay(dc, layout, s.overlayContext);
    RestoreDC(dc, saved);
  }
  DrawToolOverlays(dc, layout, s);
  EndPaint(hwnd, &ps);
}

// Tells the listener when the pixel under the pointer or the zoom is no
// longer what it was last told (always with `force`).
void UpdateHover(HWND hwnd, CanvasState& s, bool force) {
  bool inside = false;
  int32_t x = 0, y = 0;
  if (s.inside && s.doc) {
    const ImagePoint p =
        ScreenToImage(ComputeLayout(*s.doc, Client(hwnd)), *s.doc, s.cursor.x + 0.5, s.cursor.y + 0.5);
    x = static_cast<int32_t>(std::floor(p.x));
    y = static_cast<int32_t>(std::floor(p.y));
    inside = p.x >= 0 && p.y >= 0 && s.doc->Bounds().Contains(x, y);
  }
  const double zoom = s.doc ? s.doc->zoom : 0;
  if (!force && inside == s.hoverInside && (!inside || (x == s.hoverX && y == s.hoverY)) &&
      zoom == s.reportedZoom)
    return;
  s.hoverInside = inside;
  s.hoverX = x;
  s.hoverY = y;
  s.reportedZoom = zoom;
  for (const auto& l : s.listeners)
    if (l.changed) l.changed(l.context);
}

void MarkAll(HWND hwnd, CanvasState& s) {
  UpdateHover(hwnd, s, false);  // zoom and scroll move the picture under the pointer
  const ClientArea c = Client(hwnd);
  s.dirty.AddAll(c.width, c.height);
  InvalidateRect(hwnd, nullptr, FALSE);
  for (HWND bar : s.bars)
    if (bar) InvalidateRect(bar, nullptr, FALSE);
}

void ScrollToOffset(HWND hwnd, CanvasState& s, bool vertical, int32_t offset) {
  if (!s.doc) return;
  (vertical ? s.doc->scrollY : s.doc->scrollX) = offset;
  ClampScroll(*s.doc, Client(hwnd));
  MarkAll(hwnd, s);
}

// ---------------------------------------------------------------- scroll bars

struct BarState {
  HWND canvas = nullptr;
  bool vertical = false;
  bool dragging = false;
  int32_t grabOffset = 0;  // where in the thumb the drag began
};
std::unordered_map<HWND, BarState> g_bars;

struct BarGeometry {
  ScrollMetrics metrics;
  int32_t track = 0, minThumb = 0;
  ThumbSpan thumb;
};

BarGeometry Geometry(HWND bar, const BarState& b) {
  BarGeometry g;
  CanvasState* s = State(b.canvas);
  RECT r;
  GetClientRect(bar, &r);
  g.track = b.vertical ? r.bottom - r.top : r.right - r.left;
  g.minThumb = MulDiv(kMinThumbDip, static_cast<int>(WindowDpi(bar)), 96);
  if (s && s->doc) g.metrics = ScrollMetricsFor(*s->doc, Client(b.canvas), b.vertical);
  g.thumb = ThumbFor(g.metrics, g.track, g.minThumb);
  return g;
}

void PaintBar(HWND bar, const BarState& b) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(bar, &ps);
  RECT r;
  GetClientRect(bar, &r);
  CanvasState* s = State(b.canvas);
  const bool dark = !s || s->settings.dark;
  HBRUSH track = CreateSolidBrush(dark ? RGB(0x24, 0x25, 0x29) : RGB(0xE8, 0xE9, 0xEC));
  FillRect(dc, &r, track);
  DeleteObject(track);
  const BarGeometry g = Geometry(bar, b);
  if (g.metrics.content > g.metrics.page) {
    const int inset = MulDiv(3, static_cast<int>(WindowDpi(bar)), 96);
    RECT t = b.vertical ? RECT{r.left + inset, g.thumb.start, r.right - inset, g.thumb.start + g.thumb.length}
                        : RECT{g.thumb.start, r.top + inset, g.thumb.start + g.thumb.length, r.bottom - inset};
    HBRUSH thumb = CreateSolidBrush(dark ? RGB(0x5A, 0x5D, 0x63) : RGB(0xA8, 0xAB, 0xB0));
    FillRect(dc, &t, thumb);
    DeleteObject(thumb);
  }
  EndPaint(bar, &ps);
}

LRESULT CALLBACK BarProc(HWND bar, UINT msg, WPARAM wp, LPARAM lp) {
  auto it = g_bars.find(bar);
  if (it == g_bars.end()) return DefWindowProcW(bar, msg, wp, lp);
  BarState& b = it->second;
  switch (msg) {
    case WM_PAINT:
      PaintBar(bar, b);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_LBUTTONDOWN: {
      const BarGeometry g = Geometry(bar, b);
      if (g.metrics.content <= g.metrics.page) return 0;
      const int32_t at = b.vertical ? GET_Y_LPARAM(lp) : GET_X_LPARAM(lp);
      if (at >= g.thumb.start && at < g.thumb.start + g.thumb.length) {
        b.dragging = true;
        b.grabOffset = at - g.thumb.start;
        SetCapture(bar);
      } else {
        // A click on the track moves by a page towards it.
        const int32_t page = ScrollPageStep(g.metrics.page);
        const int32_t to = g.metrics.position + (at < g.thumb.start ? -page : page);
        SendMessageW(b.canvas, kScrollTo, b.vertical, to);
      }
      return 0;
    }
    case WM_MOUSEMOVE:
      if (b.dragging) {
        const BarGeometry g = Geometry(bar, b);
        const int32_t at = b.vertical ? GET_Y_LPARAM(lp) : GET_X_LPARAM(lp);
        SendMessageW(b.canvas, kScrollTo, b.vertical,
                     PositionForThumb(g.metrics, g.track, g.minThumb, at - b.grabOffset));
      }
      return 0;
    case WM_LBUTTONUP:
      if (b.dragging) {
        b.dragging = false;
        ReleaseCapture();
      }
      return 0;
    case WM_CAPTURECHANGED:
      b.dragging = false;
      return 0;
    case WM_NCDESTROY:
      g_bars.erase(it);
      break;
  }
  return DefWindowProcW(bar, msg, wp, lp);
}

void ScrollBy(HWND hwnd, CanvasState& s, int32_t dx, int32_t dy) {
  if (!s.doc) return;
  s.doc->scrollX += dx;
  s.doc->scrollY += dy;
  ClampScroll(*s.doc, Client(hwnd));
  MarkAll(hwnd, s);
}

// Keeps the cursor and scroll where the pan began; each move scrolls by
// how far the cursor went.
void StartPan(HWND hwnd, CanvasState& s, LPARAM lp) {
  if (!s.doc) return;
  s.panning = true;
  s.panStart = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
  s.scrollStartX = s.doc->scrollX;
  s.scrollStartY = s.doc->scrollY;
  SetCapture(hwnd);
}

int Modifiers() {
  return ((GetKeyState(VK_SHIFT) & 0x8000) ? kModShift : 0) |
         ((GetKeyState(VK_CONTROL) & 0x8000) ? kModCtrl : 0) |
         ((GetKeyState(VK_MENU) & 0x8000) ? kModAlt : 0);
}

// Image coordinates of the pointer. The selection tools take the corner
// of the client pixel, so a drag from one pixel to another spans the pixels
// between as they are drawn; the painting tools take its centre, so a dab
// at 100 % is centred on an image pixel.
ImagePoint ImageAt(HWND hwnd, const CanvasState& s, LPARAM lp) {
  const double at = s.tools && IsSelectionTool(s.tools->CurrentTool()) ? 0.0 : 0.5;
  return ScreenToImage(ComputeLayout(*s.doc, Client(hwnd)), *s.doc, GET_X_LPARAM(lp) + at,
                       GET_Y_LPARAM(lp) + at);
}

void RepaintCursor(HWND hwnd, const CanvasState& s) {
  if (!s.doc || !s.tools || !IsBrushCursorTool(s.tools->CurrentTool())) return;
  const double scale = ComputeLayout(*s.doc, Client(hwnd)).scale;
  const Rect r = BrushCursorFor(s.cursor.x, s.cursor.y, s.tools->Current().size, scale).repaint;
  RECT w{r.x0, r.y0, r.x1, r.y1};
  InvalidateRect(hwnd, &w, FALSE);
}

// What the tool's overlay covered before and covers now is drawn again.
void RepaintToolOverlay(HWND hwnd, CanvasState& s) {
  if (!s.input || !s.doc) return;
  const Rect damage = s.input->TakeOverlayDamage();
  if (damage.Empty()) return;
  const Rect device = ImageRectToDevice(ComputeLayout(*s.doc, Client(hwnd)), damage, true);
  RECT w{device.x0, device.y0, device.x1, device.y1};
  InvalidateRect(hwnd, &w, FALSE);
}

void AfterToolInput(HWND hwnd, CanvasState& s) {
  RepaintToolOverlay(hwnd, s);
  if (s.input && s.input->TakeColorsChanged() && s.colorsChanged) s.colorsChanged();
}

void ButtonDown(HWND hwnd, CanvasState& s, UINT msg, LPARAM lp) {
  const bool left = msg == WM_LBUTTONDOWN || msg == WM_LBUTTONDBLCLK;
  const bool doubleClick = msg == WM_LBUTTONDBLCLK || msg == WM_RBUTTONDBLCLK;
  // Space held down turns the left button into a pan with any tool.
  const int32_t tool = s.tools ? s.tools->CurrentTool() : -1;
  // One drag at a time: a press during a pan or a stroke is ignored.
  if (s.panning || s.toolButton) return;
  if (left && ((GetKeyState(VK_SPACE) & 0x8000) || tool == kToolPan)) {
    RepaintCursor(hwnd, s);
    StartPan(hwnd, s, lp);
    return;
  }
  if (tool == kToolZoom) {
    const bool in = left && !(Modifiers() & kModAlt);
    const ClientArea c = Client(hwnd);
    SetZoom(*s.doc, ZoomStepFrom(s.doc->zoom, in ? 1 : -1), GET_X_LPARAM(lp), GET_Y_LPARAM(lp), c);
    MarkAll(hwnd, s);
    return;
  }
  if (!s.input) return;
  s.input->SetViewScale(ComputeLayout(*s.doc, Client(hwnd)).scale);
  const ImagePoint p = ImageAt(hwnd, s, lp);
  const int button = left ? 1 : 2;
  if (doubleClick) s.input->DoubleClick(*s.doc, p.x, p.y, button, Modifiers());
  else s.input->Press(*s.doc, p.x, p.y, button, Modifiers());
  if (s.input->Dragging()) {
    s.toolButton = button;
    SetCapture(hwnd);
  }
  AfterToolInput(hwnd, s);
}

void EndToolDrag(HWND hwnd, CanvasState& s, LPARAM lp) {
  s.toolButton = 0;
  if (GetCapture() == hwnd) ReleaseCapture();
  if (!s.input || !s.doc) return;
  const ImagePoint p = ImageAt(hwnd, s, lp);
  s.input->Release(*s.doc, p.x, p.y, Modifiers());
  AfterToolInput(hwnd, s);
}

void MouseMove(HWND hwnd, CanvasState& s, LPARAM lp) {
  if (!s.inside) {
    s.inside = true;
    TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, hwnd, 0};
    TrackMouseEvent(&track);
  }
  RepaintCursor(hwnd, s);
  s.cursor = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
  if (s.panning && s.doc) {
    s.doc->scrollX = s.scrollStartX - (GET_X_LPARAM(lp) - s.panStart.x);
    s.doc->scrollY = s.scrollStartY - (GET_Y_LPARAM(lp) - s.panStart.y);
    ClampScroll(*s.doc, Client(hwnd));
    MarkAll(hwnd, s);
    return;
  }
  RepaintCursor(hwnd, s);
  UpdateHover(hwnd, s, false);
  if (!s.doc || !s.input) return;
  // Rubber bands only need the latest position; paint tools see every move.
  MSG next;
  if (s.toolButton && s.tools && CoalescesMoves(s.tools->CurrentTool()) &&
      PeekMessageW(&next, hwnd, WM_MOUSEMOVE, WM_MOUSEMOVE, PM_NOREMOVE))
    return;
  const ImagePoint p = ImageAt(hwnd, s, lp);
  s.input->Move(*s.doc, p.x, p.y, Modifiers());
  AfterToolInput(hwnd, s);
}

// A press is the canvas's own only when it was made on the canvas: not
// while a modal window is up over it, nor on one that has gone since (a
// loop of the system's may hand such a click on). A release or a drag move
// whose press the canvas did not take does nothing.
bool OwnPress(HWND hwnd, UINT msg) {
  return IsWindowEnabled(GetAncestor(hwnd, GA_ROOT)) && !IsLeftoverModalClick(msg, GetMessageTime());
}

LRESULT CALLBACK CanvasProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  CanvasState* s = State(hwnd);
  switch (msg) {
    case WM_NCCREATE:
      g_states[hwnd] = std::make_unique<CanvasState>();
      break;
    case WM_NCDESTROY:
      if (s && s->buffer) DeleteObject(s->buffer);
      g_states.erase(hwnd);
      break;
    case WM_PAINT:
      if (s) Paint(hwnd, *s);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      if (s && s->doc) KeepFitted(*s->doc, Client(hwnd));
      if (s) MarkAll(hwnd, *s);
      return 0;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
    case WM_RBUTTONDOWN:
    case WM_RBUTTONDBLCLK:
      if (!OwnPress(hwnd, msg)) return 0;
      SetFocus(hwnd);
      // The empty canvas opens a file, as "Open image (Ctrl+O)" does.
      if (s && !s->doc) {
        if (msg == WM_LBUTTONDOWN || msg == WM_LBUTTONDBLCLK)
          PostMessageW(GetAncestor(hwnd, GA_ROOT), WM_COMMAND, kCmdOpen, 0);
        return 0;
      }
      if (s) ButtonDown(hwnd, *s, msg, lp);
      return 0;
    case WM_LBUTTONUP:
    case WM_RBUTTONUP:
      if (s && s->panning && msg == WM_LBUTTONUP) {
        s->panning = false;
        ReleaseCapture();
        RepaintCursor(hwnd, *s);
      }
      if (s && s->toolButton == (msg == WM_LBUTTONUP ? 1 : 2)) EndToolDrag(hwnd, *s, lp);
      return 0;
    case WM_MBUTTONDOWN:
      if (s && s->doc && !s->toolButton && OwnPress(hwnd, msg)) StartPan(hwnd, *s, lp);
      return 0;
    case WM_MOUSEMOVE:
      if (s) MouseMove(hwnd, *s, lp);
      return 0;
    case WM_MOUSELEAVE:
      if (s) {
        RepaintCursor(hwnd, *s);
        s->inside = false;
        UpdateHover(hwnd, *s, false);
      }
      return 0;
    case WM_SETCURSOR:
      // Over the picture the tools show a cross (the brush tools their ring).
      if (s && s->doc && LOWORD(lp) == HTCLIENT && s->tools) {
        const int32_t tool = s->tools->CurrentTool();
        SetCursor(LoadCursorW(nullptr, tool == kToolPan ? IDC_SIZEALL : IDC_CROSS));
        return TRUE;
      }
      break;
    case WM_CAPTURECHANGED:
      // Capture taken away mid-drag (a message box, Alt+Tab): the pan is
      // over, and a tool drag ends where the pointer last was.
      if (s) {
        s->panning = false;
        if (s->toolButton) EndToolDrag(hwnd, *s, MAKELPARAM(s->cursor.x, s->cursor.y));
      }
      return 0;
    case WM_MBUTTONUP:
      if (s && s->panning) {
        s->panning = false;
        ReleaseCapture();
        RepaintCursor(hwnd, *s);
      }
      return 0;
    case kScrollTo:
      if (s) ScrollToOffset(hwnd, *s, wp != 0, static_cast<int32_t>(lp));
      return 0;
    case WM_KEYDOWN:
      // With the Move tool the arrows nudge; otherwise they scroll.
      if (s && s->doc && s->input && s->tools && s->tools->CurrentTool() == kToolMove && wp >= VK_LEFT &&
          wp <= VK_DOWN) {
        static constexpr ToolKey kArrows[] = {ToolKey::Left, ToolKey::Up, ToolKey::Right, ToolKey::Down};
        s->input->Key(*s->doc, kArrows[wp - VK_LEFT], Modifiers());
        AfterToolInput(hwnd, *s);
        return 0;
      }
      if (s && s->doc) {
        const int32_t line = ScrollLineStep(Client(hwnd).dpiScale);
        switch (wp) {
          case VK_LEFT: ScrollBy(hwnd, *s, -line, 0); return 0;
          case VK_RIGHT: ScrollBy(hwnd, *s, line, 0); return 0;
          case VK_UP: ScrollBy(hwnd, *s, 0, -line); return 0;
          case VK_DOWN: ScrollBy(hwnd, *s, 0, line); return 0;
          case VK_PRIOR: ScrollBy(hwnd, *s, 0, -ScrollPageStep(Client(hwnd).height)); return 0;
          case VK_NEXT: ScrollBy(hwnd, *s, 0, ScrollPageStep(Client(hwnd).height)); return 0;
          case VK_HOME: ScrollToOffset(hwnd, *s, true, 0); return 0;
          case VK_END: ScrollToOffset(hwnd, *s, true, INT32_MAX); return 0;
        }
      }
      break;
    case WM_MOUSEWHEEL: {
      if (!s || !s->doc) return 0;
      const int delta = GET_WHEEL_DELTA_WPARAM(wp);
      const ClientArea c = Client(hwnd);
      if (GET_KEYSTATE_WPARAM(wp) & MK_CONTROL) {
        POINT p{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
        ScreenToClient(hwnd, &p);
        SetZoom(*s->doc, ZoomStepFrom(s->doc->zoom, delta > 0 ? 1 : -1), p.x, p.y, c);
        MarkAll(hwnd, *s);
        return 0;
      }
      const int32_t step = -delta * static_cast<int32_t>(60 * c.dpiScale) / 120;
      if (GET_KEYSTATE_WPARAM(wp) & MK_SHIFT) ScrollBy(hwnd, *s, step, 0);
      else ScrollBy(hwnd, *s, 0, step);
      return 0;
    }
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterCanvasClasses(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.style = CS_DBLCLKS;
  wc.lpfnWndProc = CanvasProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZCanvas";
  RegisterClassExW(&wc);
  WNDCLASSEXW bar{sizeof bar};
  bar.lpfnWndProc = BarProc;
  bar.hInstance = instance;
  bar.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  bar.lpszClassName = L"KZScrollBar";
  RegisterClassExW(&bar);
}

HWND CreateCanvas(HWND parent, HINSTANCE instance) {
  HWND canvas = CreateWindowExW(0, L"KZCanvas", L"",
                                WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN | WS_CLIPSIBLINGS, 0, 0,
                                100, 100, parent, nullptr, instance, nullptr);
  CanvasState* s = State(canvas);
  if (!s) return canvas;
  for (int i = 0; i < 2; ++i) {
    s->bars[i] = CreateWindowExW(0, L"KZScrollBar", L"", WS_CHILD | WS_CLIPSIBLINGS, 0, 0, 10, 10,
                                 parent, nullptr, instance, nullptr);
    g_bars[s->bars[i]] = BarState{canvas, i == 1};
  }
  return canvas;
}

void PlaceCanvas(HWND canvas, const RECT& area) {
  CanvasState* s = State(canvas);
  // The bars are shown while a document is: the empty state needs none.
  const bool bars = s && s->doc;
  const int thick = bars ? MulDiv(kBarDip, static_cast<int>(WindowDpi(canvas)), 96) : 0;
  const int w = std::max(0, static_cast<int>(area.right - area.left) - thick);
  const int h = std::max(0, static_cast<int>(area.bottom - area.top) - thick);
  MoveWindow(canvas, area.left, area.top, w, h, TRUE);
  if (!s) return;
  MoveWindow(s->bars[0], area.left, area.top + h, w, thick, TRUE);
  MoveWindow(s->bars[1], area.left + w, area.top, thick, h, TRUE);
  for (HWND bar : s->bars) ShowWindow(bar, bars ? SW_SHOWNA : SW_HIDE);
}

void SetCanvasDocument(HWND canvas, Document* doc) {
  if (CanvasState* s = State(canvas)) {
    if ((s->panning || s->toolButton) && s->doc != doc) {
      // A pan or a tool drag belongs to the document it began on; the shell
      // has already ended the tool's part.
      s->panning = false;
      s->toolButton = 0;
      ReleaseCapture();
    }
    s->doc = doc;
    if (doc) KeepFitted(*doc, Client(canvas));
    UpdateHover(canvas, *s, true);
    MarkAll(canvas, *s);
  }
}

void SetCanvasSettings(HWND canvas, const CanvasSettings& settings) {
  if (CanvasState* s = State(canvas)) {
    s->settings = settings;
    MarkAll(canvas, *s);
  }
}

void FitCanvasDocument(HWND canvas, bool neverEnlarge) {
  CanvasState* s = State(canvas);
  if (!s || !s->doc) return;
  FitToWindow(*s->doc, neverEnlarge, Client(canvas));
  MarkAll(canvas, *s);
}

void ZoomCanvas(HWND canvas, int direction) {
  CanvasState* s = State(canvas);
  if (!s || !s->doc) return;
  const ClientArea c = Client(canvas);
  SetZoom(*s->doc, ZoomStepFrom(s->doc->zoom, direction), c.width / 2.0, c.height / 2.0, c);
  MarkAll(canvas, *s);
}

void ZoomCanvasTo(HWND canvas, bool actualPixels) {
  SetCanvasZoom(canvas, actualPixels ? 1.0 / Client(canvas).dpiScale : 1.0);
}

void SetCanvasZoom(HWND canvas, double zoom) {
  CanvasState* s = State(canvas);
  if (!s || !s->doc) return;
  const ClientArea c = Client(canvas);
  SetZoom(*s->doc, zoom, c.width / 2.0, c.height / 2.0, c);
  MarkAll(canvas, *s);
}

void InvalidateCanvasImage(HWND canvas, const Rect& imageRect) {
  CanvasState* s = State(canvas);
  if (!s || !s->doc) return;
  const ClientArea c = Client(canvas);
  const Rect device =
      ImageRectToDevice(ComputeLayout(*s->doc, c), imageRect, s->doc->selection.has_value());
  s->dirty.Add(device, c.width, c.height);
  RECT r{device.x0, device.y0, device.x1, device.y1};
  InvalidateRect(canvas, &r, FALSE);
  // The pixel under the pointer may have changed its colour.
  if (s->hoverInside && imageRect.Contains(s->hoverX, s->hoverY)) UpdateHover(canvas, *s, true);
}

void InvalidateCanvas(HWND canvas) {
  if (CanvasState* s = State(canvas)) MarkAll(canvas, *s);
}

}  // namespace tavora

namespace tavora {

void SetCanvasTools(HWND canvas, ToolSettings* settings, ToolInput* input,
                    void (*colorsChanged)()) {
  if (CanvasState* s = State(canvas)) {
    s->tools = settings;
    s->input = input;
    s->colorsChanged = colorsChanged;
  }
}

Document* CanvasDocument(HWND canvas) {
  const CanvasState* s = State(canvas);
  return s ? s->doc : nullptr;
}

bool CanvasPointerPixel(HWND canvas, int32_t& x, int32_t& y) {
  const CanvasState* s = State(canvas);
  if (!s || !s->doc || !s->hoverInside) return false;
  x = s->hoverX;
  y = s->hoverY;
  return true;
}

void AddCanvasViewListener(HWND canvas, void (*changed)(void* context), void* context) {
  CanvasState* s = State(canvas);
  if (!s) return;
  for (auto& l : s->listeners)
    if (!l.changed) {
      l = {changed, context};
      return;
    }
}

void RemoveCanvasViewListener(HWND canvas, void* context) {
  if (CanvasState* s = State(canvas))
    for (auto& l : s->listeners)
      if (l.context == context) l = {};
}

void RefreshCanvasTool(HWND canvas) {
  if (State(canvas)) InvalidateRect(canvas, nullptr, FALSE);
}

void SetCanvasOverlay(HWND canvas, CanvasOverlay overlay, void* context) {
  if (CanvasState* s = State(canvas)) {
    s->overlay = overlay;
    s->overlayContext = context;
    InvalidateRect(canvas, nullptr, FALSE);
  }
}

void DrawBrushCursor(HDC dc, int32_t cx, int32_t cy, double brushSize, double scale) {
  const BrushCursorShape shape = BrushCursorFor(cx, cy, brushSize, scale);
  HGDIOBJ oldBrush = SelectObject(dc, GetStockObject(NULL_BRUSH));
  HGDIOBJ oldPen = SelectObject(dc, GetStockObject(WHITE_PEN));
  Ellipse(dc, shape.white.x0, shape.white.y0, shape.white.x1, shape.white.y1);
  SelectObject(dc, GetStockObject(BLACK_PEN));
  Ellipse(dc, shape.black.x0, shape.black.y0, shape.black.x1, shape.black.y1);
  SelectObject(dc, oldPen);
  SelectObject(dc, oldBrush);
}

}  // namespace tavora
