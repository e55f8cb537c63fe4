// "KZToolbar": buttons drawn from the portable layout, each issuing its menu
// command on release, and a real combo box for the zoom.
#include <windows.h>
#include <windowsx.h>
#include <commctrl.h>

#include <algorithm>
#include <cwchar>
#include <string>

#include "base/command_ids.h"
#include "panels/glyph_win32.h"
#include "panels/toolbar.h"
#include "panels/toolbar_layout.h"
#include "platform/buffered_paint_win32.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/theme_win32.h"
#include "tools/canvas.h"

namespace tavora {
namespace {

constexpr int kComboId = 10;
constexpr std::size_t kMaxItems = 32;

struct BarState {
  HWND canvas = nullptr;
  ToolbarEvents events;
  bool dark = true;
  int32_t hover = -1, pressed = -1;  // item indices
  bool tracking = false;              // the pointer is over the toolbar
  bool edited = false;                // the zoom box holds typed text
  bool enabled[kMaxItems] = {};
  HWND tips = nullptr, combo = nullptr;
  UINT builtDpi = 0;
  HFONT font = nullptr;
  HBRUSH background = nullptr, field = nullptr;
  std::wstring zoomText;  // what the box shows while it is not being typed in
};
BarState g_bar;  // there is one toolbar

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }
RECT Win(const Rect& r) { return {r.x0, r.y0, r.x1, r.y1}; }
ToolbarLayout LayoutOf(HWND hwnd) { return ComputeToolbarLayout(WindowDpi(hwnd) / 96.0); }

std::size_t ZoomBoxIndex() {
  const auto items = ToolbarItems();
  for (std::size_t i = 0; i < items.size(); ++i)
    if (items[i].kind == ToolbarItem::Kind::ZoomBox) return i;
  return 0;
}

// The canvas takes the keys again after a choice; the main window hands its
// focus to the canvas.
void BackToCanvas(HWND bar) { SetFocus(GetAncestor(bar, GA_ROOT)); }

void Paint(HWND hwnd) {
  BufferedPaint paint(hwnd);
  HDC dc = paint.Dc();
  const RECT& client = paint.Client();
  const bool dark = g_bar.dark;
  FillRect(dc, &client, g_bar.background);
  const double scale = WindowDpi(hwnd) / 96.0;
  const ToolbarLayout layout = LayoutOf(hwnd);
  const COLORREF ink = dark ? RGB(0xE6, 0xE7, 0xEA) : RGB(0x26, 0x27, 0x2B);
  const COLORREF grey = dark ? RGB(0x5E, 0x61, 0x67) : RGB(0xA8, 0xAA, 0xAF);
  const COLORREF rule = dark ? RGB(0x44, 0x46, 0x4C) : RGB(0xD0, 0xD2, 0xD6);
  const auto items = ToolbarItems();
  for (std::size_t i = 0; i < items.size() && i < kMaxItems; ++i) {
    const Rect& b = layout.items[i];
    if (items[i].kind == ToolbarItem::Kind::Separator) {
      RECT line{(b.x0 + b.x1) / 2, b.y0 + b.Height() / 6, (b.x0 + b.x1) / 2 + 1, b.y1 - b.Height() / 6};
      HBRUSH brush = CreateSolidBrush(rule);
      FillRect(dc, &line, brush);
      DeleteObject(brush);
      continue;
    }
    if (items[i].kind != ToolbarItem::Kind::Button) continue;
    const bool on = g_bar.enabled[i];
    const int32_t index = static_cast<int32_t>(i);
    if (on && (index == g_bar.hover || index == g_bar.pressed)) {
      RECT r = Win(b);
      HBRUSH hi = CreateSolidBrush(index == g_bar.pressed && index == g_bar.hover
                                       ? (dark ? RGB(0x4A, 0x4D, 0x55) : RGB(0xC8, 0xCB, 0xD1))
                                       : (dark ? RGB(0x3A, 0x3C, 0x42) : RGB(0xDD, 0xDF, 0xE3)));
      FillRect(dc, &r, hi);
      DeleteObject(hi);
    }
    DrawGlyph(dc, b, ParseGlyph(items[i].glyph), on ? ink : grey, scale);
  }
  // A hairline along the bottom parts the toolbar from the options bar.
  RECT bottom{0, client.bottom - 1, client.right, client.bottom};
  HBRUSH brush = CreateSolidBrush(rule);
  FillRect(dc, &bottom, brush);
  DeleteObject(brush);
}

// The tooltips and the zoom box's place and font, again whenever the dpi
// moves them.
void Build(HWND hwnd) {
  const UINT dpi = WindowDpi(hwnd);
  if (dpi == g_bar.builtDpi) return;
  g_bar.builtDpi = dpi;
  const ToolbarLayout layout = LayoutOf(hwnd);
  if (g_bar.font) DeleteObject(g_bar.font);
  g_bar.font = CreateFontW(-MulDiv(12, static_cast<int>(dpi), 96), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET,
                           0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  if (g_bar.combo) {
    const Rect& box = layout.items[ZoomBoxIndex()];
    SendMessageW(g_bar.combo, WM_SETFONT, reinterpret_cast<WPARAM>(g_bar.font), FALSE);
    SetWindowPos(g_bar.combo, nullptr, box.x0, box.y0, box.Width(), MulDiv(300, static_cast<int>(dpi), 96),
                 SWP_NOZORDER | SWP_NOACTIVATE);
    FitDroppedWidth(g_bar.combo);
  }
  if (!g_bar.tips) return;
  static std::wstring texts[kMaxItems];
  const auto items = ToolbarItems();
  for (std::size_t i = 0; i < items.size() && i < kMaxItems; ++i) {
    if (items[i].kind != ToolbarItem::Kind::Button) continue;
    texts[i] = Wide(items[i].tip);
    TTTOOLINFOW info{};
    info.cbSize = sizeof info;
    info.uFlags = TTF_SUBCLASS;
    info.hwnd = hwnd;
    info.uId = i;
    info.rect = Win(layout.items[i]);
    info.lpszText = texts[i].data();
    SendMessageW(g_bar.tips, TTM_DELTOOLW, 0, reinterpret_cast<LPARAM>(&info));
    SendMessageW(g_bar.tips, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
  }
}

// The zoom box shows the zoom of the document in view, unless something
// has been typed in it and not yet entered.
void ShowZoom() {
  if (!g_bar.combo) return;
  const Document* doc = g_bar.canvas ? CanvasDocument(g_bar.canvas) : nullptr;
  const std::wstring text = doc ? Wide(ZoomPercentText(doc->zoom)) : L"";
  if (g_bar.edited) return;
  if (text == g_bar.zoomText) return;
  g_bar.zoomText = text;
  SetWindowTextW(g_bar.combo, text.c_str());
}

void ViewChanged(void*) { ShowZoom(); }

void ApplyChoice(HWND bar, std::size_t index) {
  const ZoomChoice choice = ZoomChoiceAt(index);
  g_bar.edited = false;
  BackToCanvas(bar);
  switch (choice.kind) {
    case ZoomChoice::Kind::Fit:
      if (g_bar.events.command) g_bar.events.command(kCmdFit);
      break;
    case ZoomChoice::Kind::ActualPixels:
      if (g_bar.events.command) g_bar.events.command(kCmdActualPixels);
      break;
    case ZoomChoice::Kind::Zoom:
      SetCanvasZoom(g_bar.canvas, choice.zoom);
      break;
  }
  // The box shows the zoom that came of it, once the list has put the
  // choice's own text there.
  PostMessageW(bar, WM_APP, 0, 0);
}

// Enter applies a typed percent; Esc or anything unreadable puts the shown
// zoom back.
// While the list is open, the keys are the list's.
LRESULT CALLBACK ZoomEditKeys(HWND edit, UINT msg, WPARAM wp, LPARAM lp, UINT_PTR, DWORD_PTR) {
  if (msg == WM_NCDESTROY) RemoveWindowSubclass(edit, &ZoomEditKeys, 1);
  if ((msg == WM_KEYDOWN || msg == WM_CHAR) && (wp == VK_RETURN || wp == VK_ESCAPE) &&
      !SendMessageW(GetParent(edit), CB_GETDROPPEDSTATE, 0, 0)) {
    if (msg == WM_KEYDOWN) {
      wchar_t text[64] = {};
      GetWindowTextW(edit, text, 64);
      const std::wstring w(text);
      const std::u16string typed(w.begin(), w.end());
      HWND bar = GetParent(GetParent(edit));
      // An entry of the list typed out does what choosing it does.
      const LRESULT entry = wp == VK_RETURN ? SendMessageW(GetParent(edit), CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                                                           reinterpret_cast<LPARAM>(text))
                                            : CB_ERR;
      if (entry != CB_ERR) {
        ApplyChoice(bar, static_cast<std::size_t>(entry));
        return 0;
      }
      const auto zoom = wp == VK_RETURN ? ParseZoomPercent(typed) : std::nullopt;
      BackToCanvas(bar);
      if (zoom) SetCanvasZoom(g_bar.canvas, *zoom);
      g_bar.edited = false;
      g_bar.zoomText.clear();
      ShowZoom();
    }
    return 0;  // no beep
  }
  return DefSubclassProc(edit, msg, wp, lp);
}

void MakeBrushes() {
  for (HBRUSH* b : {&g_bar.background, &g_bar.field})
    if (*b) DeleteObject(*b);
  g_bar.background = CreateSolidBrush(g_bar.dark ? RGB(0x2E, 0x2F, 0x34) : RGB(0xF0, 0xF1, 0xF3));
  g_bar.field = CreateSolidBrush(g_bar.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xFF, 0xFF, 0xFF));
}

void Track(HWND hwnd, int32_t hover) {
  if (!g_bar.tracking) {
    g_bar.tracking = true;
    TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, hwnd, 0};
    TrackMouseEvent(&track);
    if (g_bar.events.refresh) g_bar.events.refresh();
  }
  if (hover == g_bar.hover) return;
  g_bar.hover = hover;
  InvalidateRect(hwnd, nullptr, FALSE);
}

LRESULT CALLBACK ToolbarProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_CREATE: {
      MakeBrushes();
      g_bar.tips = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP | TTS_NOPREFIX,
                                   0, 0, 0, 0, hwnd, nullptr, nullptr, nullptr);
      SetTooltipTheme(g_bar.tips, g_bar.dark);
      g_bar.combo = CreateWindowExW(0, L"COMBOBOX", L"",
                                    WS_CHILD | WS_VISIBLE | WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWN | CBS_AUTOHSCROLL,
                                    0, 0, 10, 10, hwnd, reinterpret_cast<HMENU>(static_cast<INT_PTR>(kComboId)),
                                    nullptr, nullptr);
      for (std::u16string_view choice : ZoomChoices())
        SendMessageW(g_bar.combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Wide(choice).c_str()));
      if (HWND edit = FindWindowExW(g_bar.combo, nullptr, L"Edit", nullptr))
        SetWindowSubclass(edit, &ZoomEditKeys, 1, 0);
      Build(hwnd);
      return 0;
    }
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_APP:
      SendMessageW(g_bar.combo, CB_SETCURSEL, static_cast<WPARAM>(-1), 0);
      g_bar.edited = false;
      g_bar.zoomText.clear();
      ShowZoom();
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      Build(hwnd);
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_LBUTTONDOWN: {
      const int32_t hit = HitToolbar(LayoutOf(hwnd), GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      if (hit >= 0 && g_bar.enabled[hit]) {
        g_bar.pressed = hit;
        SetCapture(hwnd);
        InvalidateRect(hwnd, nullptr, FALSE);
      }
      return 0;
    }
    case WM_LBUTTONUP: {
      const int32_t pressed = g_bar.pressed;
      if (pressed < 0) return 0;
      g_bar.pressed = -1;
      ReleaseCapture();
      InvalidateRect(hwnd, nullptr, FALSE);
      // Like any button: released elsewhere, nothing happens.
      if (HitToolbar(LayoutOf(hwnd), GET_X_LPARAM(lp), GET_Y_LPARAM(lp)) == pressed && g_bar.events.command)
        g_bar.events.command(ToolbarItems()[static_cast<std::size_t>(pressed)].command);
      return 0;
    }
    case WM_CAPTURECHANGED:
      if (g_bar.pressed >= 0 && reinterpret_cast<HWND>(lp) != hwnd) {
        g_bar.pressed = -1;
        InvalidateRect(hwnd, nullptr, FALSE);
      }
      return 0;
    case WM_MOUSEMOVE:
      Track(hwnd, HitToolbar(LayoutOf(hwnd), GET_X_LPARAM(lp), GET_Y_LPARAM(lp)));
      return 0;
    case WM_MOUSELEAVE:
      g_bar.tracking = false;
      g_bar.hover = -1;
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_COMMAND:
      if (LOWORD(wp) == kComboId && HIWORD(wp) == CBN_SELENDOK) {
        const LRESULT index = SendMessageW(g_bar.combo, CB_GETCURSEL, 0, 0);
        if (index >= 0) ApplyChoice(hwnd, static_cast<std::size_t>(index));
      }
      if (LOWORD(wp) == kComboId && HIWORD(wp) == CBN_EDITCHANGE) g_bar.edited = true;
      if (LOWORD(wp) == kComboId && HIWORD(wp) == CBN_KILLFOCUS) {
        g_bar.edited = false;  // an unfinished typed value gives way to the zoom
        g_bar.zoomText.clear();
        ShowZoom();
      }
      return 0;
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORSTATIC: {  // the box's edit, greyed, asks as a static would
      HDC dc = reinterpret_cast<HDC>(wp);
      const bool greyed = msg == WM_CTLCOLORSTATIC;
      SetTextColor(dc, g_bar.dark ? (greyed ? RGB(0x7A, 0x7D, 0x83) : RGB(0xE6, 0xE7, 0xEA))
                                  : (greyed ? RGB(0x90, 0x93, 0x99) : RGB(0x20, 0x21, 0x24)));
      SetBkColor(dc, g_bar.dark ? RGB(0x1E, 0x1F, 0x22) : RGB(0xFF, 0xFF, 0xFF));
      return reinterpret_cast<LRESULT>(g_bar.field);
    }
    case WM_GETTEXTLENGTH:
    case WM_GETTEXT: {
      wchar_t text[64] = {};
      if (g_bar.combo) GetWindowTextW(g_bar.combo, text, 64);
      if (msg == WM_GETTEXTLENGTH) return static_cast<LRESULT>(std::wcslen(text));
      return AnswerGetText(text, wp, lp);
    }
    case WM_DESTROY:
      if (g_bar.canvas) RemoveCanvasViewListener(g_bar.canvas, hwnd);
      if (g_bar.tips) DestroyWindow(g_bar.tips);
      if (g_bar.font) DeleteObject(g_bar.font);
      for (HBRUSH b : {g_bar.background, g_bar.field})
        if (b) DeleteObject(b);
      g_bar = BarState{};
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterToolbarClass(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = ToolbarProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZToolbar";
  RegisterClassExW(&wc);
}

HWND CreateToolbar(HWND parent, HINSTANCE instance, HWND canvas, const ToolbarEvents& events) {
  g_bar.canvas = canvas;
  g_bar.events = events;
  HWND bar = CreateWindowExW(0, L"KZToolbar", L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, 0, 0,
                             10, 10, parent, nullptr, instance, nullptr);
  if (bar && canvas) AddCanvasViewListener(canvas, &ViewChanged, bar);
  RefreshToolbar(bar);
  return bar;
}

int ToolbarHeight(UINT dpi) { return ComputeToolbarLayout(dpi / 96.0).height; }

void SetToolbarTheme(HWND bar, bool dark) {
  if (!bar) return;
  g_bar.dark = dark;
  SetTooltipTheme(g_bar.tips, dark);
  MakeBrushes();
  InvalidateRect(bar, nullptr, TRUE);
  if (g_bar.combo) InvalidateRect(g_bar.combo, nullptr, TRUE);
}

void RefreshToolbar(HWND bar) {
  if (!bar) return;
  const auto items = ToolbarItems();
  bool changed = false;
  for (std::size_t i = 0; i < items.size() && i < kMaxItems; ++i) {
    if (items[i].kind != ToolbarItem::Kind::Button) continue;
    const bool on = g_bar.events.available && g_bar.events.available(items[i].command);
    changed |= on != g_bar.enabled[i];
    g_bar.enabled[i] = on;
  }
  if (changed) InvalidateRect(bar, nullptr, FALSE);
  // The zoom box works on the document in view, as the zoom commands do.
  if (g_bar.combo) EnableWindow(g_bar.combo, g_bar.events.available && g_bar.events.available(kCmdFit));
  ShowZoom();
}

}  // namespace tavora
