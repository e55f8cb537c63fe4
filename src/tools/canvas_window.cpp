// "KZCanvas": presents the back buffer that the portable render pass fills.
#include <windows.h>
#include <windowsx.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <unordered_map>

#include "app/commands.h"
#include "document/composite.h"
#include "platform/dpi_win32.h"
#include "tools/canvas.h"
#include "tools/canvas_view.h"

namespace tavora {
namespace {

struct CanvasState {
  Document* doc = nullptr;
  CanvasSettings settings;
  HBITMAP buffer = nullptr;
  uint32_t* bits = nullptr;
  int32_t bufferW = 0, bufferH = 0;
  DirtyArea dirty;
  bool panning = false;
  POINT panStart{};
  int32_t scrollStartX = 0, scrollStartY = 0;
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
    RenderCanvas(render, s.dirty.Area());
    s.dirty.Clear();
  }
  HDC mem = CreateCompatibleDC(dc);
  HGDIOBJ old = SelectObject(mem, s.buffer);
  BitBlt(dc, ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right - ps.rcPaint.left,
         ps.rcPaint.bottom - ps.rcPaint.top, mem, ps.rcPaint.left, ps.rcPaint.top, SRCCOPY);
  SelectObject(mem, old);
  DeleteDC(mem);
  if (s.settings.grid) DrawPixelGrid(dc, hwnd, s);
  EndPaint(hwnd, &ps);
}

void MarkAll(HWND hwnd, CanvasState& s) {
  const ClientArea c = Client(hwnd);
  s.dirty.AddAll(c.width, c.height);
  InvalidateRect(hwnd, nullptr, FALSE);
}

void ScrollBy(HWND hwnd, CanvasState& s, int32_t dx, int32_t dy) {
  if (!s.doc) return;
  s.doc->scrollX += dx;
  s.doc->scrollY += dy;
  ClampScroll(*s.doc, Client(hwnd));
  MarkAll(hwnd, s);
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
      SetFocus(hwnd);
      // The empty canvas opens a file, as "Open image (Ctrl+O)" does.
      if (s && !s->doc) PostMessageW(GetAncestor(hwnd, GA_ROOT), WM_COMMAND, kCmdOpen, 0);
      return 0;
    case WM_MBUTTONDOWN:
      if (s && s->doc) {
        s->panning = true;
        s->panStart = {GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
        s->scrollStartX = s->doc->scrollX;
        s->scrollStartY = s->doc->scrollY;
        SetCapture(hwnd);
      }
      return 0;
    case WM_MOUSEMOVE:
      if (s && s->panning && s->doc) {
        s->doc->scrollX = s->scrollStartX - (GET_X_LPARAM(lp) - s->panStart.x);
        s->doc->scrollY = s->scrollStartY - (GET_Y_LPARAM(lp) - s->panStart.y);
        ClampScroll(*s->doc, Client(hwnd));
        MarkAll(hwnd, *s);
      }
      return 0;
    case WM_MBUTTONUP:
      if (s && s->panning) {
        s->panning = false;
        ReleaseCapture();
      }
      return 0;
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
}

HWND CreateCanvas(HWND parent, HINSTANCE instance) {
  return CreateWindowExW(0, L"KZCanvas", L"", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN | WS_CLIPSIBLINGS,
                         0, 0, 100, 100, parent, nullptr, instance, nullptr);
}

void SetCanvasDocument(HWND canvas, Document* doc) {
  if (CanvasState* s = State(canvas)) {
    s->doc = doc;
    if (doc) KeepFitted(*doc, Client(canvas));
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
  CanvasState* s = State(canvas);
  if (!s || !s->doc) return;
  const ClientArea c = Client(canvas);
  SetZoom(*s->doc, actualPixels ? 1.0 / c.dpiScale : 1.0, c.width / 2.0, c.height / 2.0, c);
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
}

void InvalidateCanvas(HWND canvas) {
  if (CanvasState* s = State(canvas)) MarkAll(canvas, *s);
}

}  // namespace tavora
