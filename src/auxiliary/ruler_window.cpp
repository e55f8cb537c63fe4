// "KZRuler": the two strips along the canvas. What a strip shows is drawn
// by the portable DrawRulerStrip into a DIB section; only the labels are
// written here, with the UI font (rotated for the left strip).
#include "auxiliary/ruler_window.h"

#include <commctrl.h>
#include <windowsx.h>

#include <algorithm>
#include <string>

#include "auxiliary/ruler.h"
#include "auxiliary/ruler_strip.h"
#include "base/settings_store.h"
#include "platform/dpi_win32.h"
#include "platform/modal_win32.h"
#include "platform/theme_win32.h"
#include "tools/canvas_view.h"

namespace tavora {
namespace {

constexpr int kThicknessDip = 20, kLabelFontDip = 9;
constexpr UINT_PTR kWatchId = 0x52554C;  // the canvas subclass

// What a strip was last drawn from: when the canvas repaints and any of it
// differs, the strips are redrawn.
struct ViewKey {
  const Document* doc = nullptr;
  int32_t width = 0, height = 0, dpi = 0;
  CanvasLayout layout;
  UINT windowDpi = 0;
  bool dark = false;
  bool operator==(const ViewKey& o) const {
    return doc == o.doc && width == o.width && height == o.height && dpi == o.dpi &&
           layout.scale == o.layout.scale && layout.originX == o.layout.originX &&
           layout.originY == o.layout.originY && layout.clientW == o.layout.clientW &&
           layout.clientH == o.layout.clientH && windowDpi == o.windowDpi && dark == o.dark;
  }
};

struct Rulers {
  HWND strips[2] = {nullptr, nullptr};  // top, left
  HWND canvas = nullptr;
  Document* (*shownDocument)() = nullptr;
  bool shown = false;
  RulerUnit unit = RulerUnit::Pixels;
  POINT cursor{-1, -1};
  ViewKey drawn;
  HFONT font = nullptr, rotated = nullptr;
  UINT fontDpi = 0;
};
Rulers g_rulers;

bool IsVertical(HWND strip) { return strip == g_rulers.strips[1]; }

UINT Dpi(HWND hwnd) { return WindowDpi(hwnd); }

void RedrawStrips() {
  for (HWND s : g_rulers.strips)
    if (s) InvalidateRect(s, nullptr, FALSE);
}

ViewKey CurrentKey() {
  ViewKey key;
  key.dark = DialogThemeDark();
  key.windowDpi = g_rulers.canvas ? Dpi(g_rulers.canvas) : 96;
  Document* doc = g_rulers.shownDocument ? g_rulers.shownDocument() : nullptr;
  if (!doc || !g_rulers.canvas) return key;
  RECT r;
  GetClientRect(g_rulers.canvas, &r);
  key.doc = doc;
  key.width = doc->width;
  key.height = doc->height;
  key.dpi = doc->dpi;
  key.layout = ComputeLayout(*doc, {r.right - r.left, r.bottom - r.top, key.windowDpi / 96.0});
  return key;
}

// The canvas repainted: the strips follow when the view moved.
LRESULT CALLBACK CanvasWatch(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR, DWORD_PTR) {
  switch (msg) {
    case WM_PAINT: {
      const LRESULT result = DefSubclassProc(hwnd, msg, wp, lp);
      if (g_rulers.shown && !(CurrentKey() == g_rulers.drawn)) RedrawStrips();
      return result;
    }
    case WM_MOUSEMOVE:
      RulerCursor(GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      break;
    case WM_MOUSELEAVE:
      RulerCursor(-1, -1);
      break;
    case WM_NCDESTROY:
      RemoveWindowSubclass(hwnd, &CanvasWatch, kWatchId);
      break;
  }
  return DefSubclassProc(hwnd, msg, wp, lp);
}

RulerColors Colors(bool dark) {
  const COLORREF accent = DialogThemeColors().accent;
  const uint32_t marker = 0xFF000000u | (uint32_t(GetRValue(accent)) << 16) | (uint32_t(GetGValue(accent)) << 8) |
                          GetBValue(accent);
  if (dark) return {0xFF25262A, 0xFFC8CACF, marker, 0xFF3A3B41};
  return {0xFFFAFAFA, 0xFF404246, marker, 0xFFD0D1D4};
}

void EnsureFonts(UINT dpi) {
  if (g_rulers.font && g_rulers.fontDpi == dpi) return;
  if (g_rulers.font) DeleteObject(g_rulers.font);
  if (g_rulers.rotated) DeleteObject(g_rulers.rotated);
  const int height = -MulDiv(kLabelFontDip, static_cast<int>(dpi), 96);
  g_rulers.font = CreateFontW(height, 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0,
                              L"Segoe UI");
  g_rulers.rotated = CreateFontW(height, 0, 2700, 2700, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                                 CLEARTYPE_QUALITY, 0, L"Segoe UI");
  g_rulers.fontDpi = dpi;
}

// The strip, double-buffered: the portable drawing into a DIB section, the
// labels over it, then one copy to the screen.
void Paint(HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT r;
  GetClientRect(hwnd, &r);
  const int w = r.right, h = r.bottom;
  if (w < 1 || h < 1) {
    EndPaint(hwnd, &ps);
    return;
  }
  const bool vertical = IsVertical(hwnd);
  const UINT dpi = Dpi(hwnd);
  const ViewKey key = CurrentKey();
  g_rulers.drawn = key;

  BITMAPINFO bmi{};
  bmi.bmiHeader = {sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB};
  void* bits = nullptr;
  HDC mem = CreateCompatibleDC(dc);
  HBITMAP buffer = CreateDIBSection(dc, &bmi, DIB_RGB_COLORS, &bits, nullptr, 0);
  if (!mem || !buffer || !bits) {
    if (buffer) DeleteObject(buffer);
    if (mem) DeleteDC(mem);
    EndPaint(hwnd, &ps);
    return;
  }
  HGDIOBJ oldBitmap = SelectObject(mem, buffer);

  // Where the canvas's client starts along this strip.
  POINT canvasAt{0, 0};
  if (g_rulers.canvas) MapWindowPoints(g_rulers.canvas, hwnd, &canvasAt, 1);
  RulerStripInput in;
  in.vertical = vertical;
  in.length = vertical ? h : w;
  in.thickness = vertical ? w : h;
  in.canvasOffset = vertical ? canvasAt.y : canvasAt.x;
  in.dpiScale = dpi / 96.0;
  in.unit = g_rulers.unit;
  if (key.doc) {
    in.hasDocument = true;
    in.canvasScale = key.layout.scale;
    in.imageOrigin = vertical ? key.layout.originY : key.layout.originX;
    in.imageLength = vertical ? key.height : key.width;
    in.dpi = key.dpi;
    in.cursor = vertical ? g_rulers.cursor.y : g_rulers.cursor.x;
  }
  const RulerColors colors = Colors(key.dark);
  GdiFlush();
  const auto labels = DrawRulerStrip(in, colors, static_cast<uint32_t*>(bits), w);

  EnsureFonts(dpi);
  HGDIOBJ oldFont = SelectObject(mem, vertical ? g_rulers.rotated : g_rulers.font);
  SetBkMode(mem, TRANSPARENT);
  const COLORREF text = RGB((colors.text >> 16) & 255, (colors.text >> 8) & 255, colors.text & 255);
  SetTextColor(mem, text);
  const int gap = MulDiv(2, static_cast<int>(dpi), 96);
  TEXTMETRICW tm{};
  GetTextMetricsW(mem, &tm);
  // Beside each major tick, away from the canvas edge; the left strip's
  // text runs downwards, its tops toward the canvas.
  IntersectClipRect(mem, vertical ? 0 : in.canvasOffset, vertical ? in.canvasOffset : 0, w, h);
  for (const RulerLabel& label : labels) {
    const std::wstring s(label.text.begin(), label.text.end());
    if (vertical) {
      TextOutW(mem, std::min<int>(w - 1, gap / 2 + tm.tmHeight), label.position + gap, s.c_str(),
               static_cast<int>(s.size()));
    } else {
      TextOutW(mem, label.position + gap, 0, s.c_str(), static_cast<int>(s.size()));
    }
  }
  SelectClipRgn(mem, nullptr);
  // The corner of the top strip names the unit.
  if (!vertical && in.canvasOffset > 0) {
    static constexpr const wchar_t* kUnits[] = {L"px", L"in", L"cm"};
    RECT corner{0, 0, in.canvasOffset, h};
    SelectObject(mem, g_rulers.font);
    DrawTextW(mem, kUnits[static_cast<int>(g_rulers.unit)], -1, &corner, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  }
  SelectObject(mem, oldFont);
  BitBlt(dc, ps.rcPaint.left, ps.rcPaint.top, ps.rcPaint.right - ps.rcPaint.left, ps.rcPaint.bottom - ps.rcPaint.top,
         mem, ps.rcPaint.left, ps.rcPaint.top, SRCCOPY);
  SelectObject(mem, oldBitmap);
  DeleteObject(buffer);
  DeleteDC(mem);
  EndPaint(hwnd, &ps);
}

void ShowUnitMenu(HWND hwnd, LPARAM lp) {
  POINT p{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
  if (lp == -1) {  // the context-menu key: at the strip's corner
    p = {0, 0};
    ClientToScreen(hwnd, &p);
  }
  HMENU menu = CreatePopupMenu();
  static constexpr const wchar_t* kItems[] = {L"Pixels", L"Inches (from the image's dpi)",
                                              L"Centimetres (from the image's dpi)"};
  for (int i = 0; i < 3; ++i)
    AppendMenuW(menu, MF_STRING | (static_cast<int>(g_rulers.unit) == i ? MF_CHECKED : 0), i + 1, kItems[i]);
  int chosen = 0;
  {
    SystemModalWatch watch;
    chosen = TrackPopupMenu(menu, TPM_RETURNCMD | TPM_NONOTIFY | TPM_RIGHTBUTTON, p.x, p.y, 0, hwnd, nullptr);
  }
  DestroyMenu(menu);
  if (chosen < 1) return;
  g_rulers.unit = RulerUnitFromSetting(chosen - 1);
  AppSettings().SetInt(u"View", u"RulerUnit", chosen - 1);
  RedrawStrips();
}

LRESULT CALLBACK RulerProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_CONTEXTMENU:
      ShowUnitMenu(hwnd, lp);
      return 0;
    case WM_MOUSEWHEEL:
    case WM_MOUSEHWHEEL:
      if (g_rulers.canvas) return SendMessageW(g_rulers.canvas, msg, wp, lp);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void CreateRulers(HWND parent, HWND canvas, Document* (*shownDocument)()) {
  const HINSTANCE instance = reinterpret_cast<HINSTANCE>(GetWindowLongPtrW(parent, GWLP_HINSTANCE));
  static bool registered = false;
  if (!registered) {
    WNDCLASSEXW wc{sizeof wc};
    wc.lpfnWndProc = RulerProc;
    wc.hInstance = instance;
    wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    wc.lpszClassName = L"KZRuler";
    registered = RegisterClassExW(&wc) != 0;
  }
  g_rulers.canvas = canvas;
  g_rulers.shownDocument = shownDocument;
  g_rulers.shown = AppSettings().GetInt(u"View", u"Ruler", 0) == 1;
  g_rulers.unit = RulerUnitFromSetting(AppSettings().GetInt(u"View", u"RulerUnit", 0));
  for (HWND& strip : g_rulers.strips)
    strip = CreateWindowExW(0, L"KZRuler", L"", WS_CHILD | WS_CLIPSIBLINGS, 0, 0, 10, 10, parent, nullptr, instance,
                            nullptr);
  if (canvas) SetWindowSubclass(canvas, &CanvasWatch, kWatchId, 0);
}

RECT PlaceRulers(const RECT& area) {
  const bool shown = g_rulers.shown && g_rulers.strips[0] && g_rulers.strips[1];
  for (HWND s : g_rulers.strips)
    if (s && !shown) ShowWindow(s, SW_HIDE);
  if (!shown) return area;
  const int t = std::min<int>({MulDiv(kThicknessDip, static_cast<int>(Dpi(g_rulers.strips[0])), 96),
                               static_cast<int>(area.right - area.left), static_cast<int>(area.bottom - area.top)});
  const int width = std::max<int>(0, area.right - area.left), height = std::max<int>(0, area.bottom - area.top);
  MoveWindow(g_rulers.strips[0], area.left, area.top, width, t, TRUE);
  MoveWindow(g_rulers.strips[1], area.left, area.top + t, t, std::max(0, height - t), TRUE);
  for (HWND s : g_rulers.strips) ShowWindow(s, SW_SHOWNA);
  RedrawStrips();
  return {area.left + t, area.top + t, std::max<LONG>(area.left + t, area.right),
          std::max<LONG>(area.top + t, area.bottom)};
}

bool RulersShown() { return g_rulers.shown; }

void SetRulersShown(bool shown) { g_rulers.shown = shown; }

void ResetRulerUnit() {
  g_rulers.unit = RulerUnit::Pixels;
  RedrawStrips();
}

void RulerCursor(int32_t x, int32_t y) {
  if (x < 0 || y < 0) x = y = -1;
  if (x == g_rulers.cursor.x && y == g_rulers.cursor.y) return;
  if (g_rulers.shown) {
    // Only the old and the new marker lines are drawn again.
    for (int i = 0; i < 2; ++i) {
      HWND strip = g_rulers.strips[i];
      if (!strip) continue;
      POINT at{0, 0};
      if (g_rulers.canvas) MapWindowPoints(g_rulers.canvas, strip, &at, 1);
      RECT r;
      GetClientRect(strip, &r);
      const int32_t before = i == 0 ? g_rulers.cursor.x : g_rulers.cursor.y, after = i == 0 ? x : y;
      for (int32_t v : {before, after}) {
        if (v < 0) continue;
        RECT line = i == 0 ? RECT{at.x + v, 0, at.x + v + 1, r.bottom} : RECT{0, at.y + v, r.right, at.y + v + 1};
        InvalidateRect(strip, &line, FALSE);
      }
    }
  }
  g_rulers.cursor = {x, y};
}

}  // namespace tavora
