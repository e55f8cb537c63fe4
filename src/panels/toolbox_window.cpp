// "KZToolbox": drawn from the portable layout; tools are picked here or by
// their keys, which the shell routes to the same place.
#include <windows.h>
#include <windowsx.h>
#include <commctrl.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "panels/toolbox.h"
#include "panels/glyph_win32.h"
#include "panels/toolbox_layout.h"
#include "platform/buffered_paint_win32.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

struct ToolboxState {
  ToolSettings* tools = nullptr;
  ToolboxEvents events;
  bool dark = true;
  int32_t hover = -1;  // tool under the pointer
  HWND tips = nullptr;
  UINT tipsDpi = 0;
  LONG tipsHeight = -1;
};
ToolboxState g_box;  // there is one toolbox

double Scale(HWND hwnd) { return WindowDpi(hwnd) / 96.0; }

ToolboxLayout LayoutOf(HWND hwnd) {
  RECT r;
  GetClientRect(hwnd, &r);
  return ComputeToolboxLayout(Scale(hwnd), r.bottom - r.top);
}

COLORREF Ref(uint32_t argb) { return RGB((argb >> 16) & 255, (argb >> 8) & 255, argb & 255); }
RECT Win(const Rect& r) { return {r.x0, r.y0, r.x1, r.y1}; }

void DrawColorBox(HDC dc, const Rect& box, uint32_t color, bool selected, bool dark,
                  double scale) {
  RECT r = Win(box);
  HBRUSH brush = CreateSolidBrush(Ref(color));
  FillRect(dc, &r, brush);
  DeleteObject(brush);
  // The selected box (the primary colour) wears a bold accent ring.
  const int ring = selected ? std::max(2, static_cast<int>(std::lround(2 * scale))) : 1;
  HPEN pen = CreatePen(PS_INSIDEFRAME, ring,
                       selected ? RGB(0xF4, 0x8C, 0x2E) : (dark ? RGB(0x80, 0x83, 0x89) : RGB(0x70, 0x73, 0x79)));
  HGDIOBJ oldPen = SelectObject(dc, pen);
  HGDIOBJ oldBrush = SelectObject(dc, GetStockObject(NULL_BRUSH));
  Rectangle(dc, r.left, r.top, r.right, r.bottom);
  SelectObject(dc, oldBrush);
  SelectObject(dc, oldPen);
  DeleteObject(pen);
}

void DrawSmallButton(HDC dc, const Rect& area, const wchar_t* text, COLORREF color, HFONT font) {
  RECT r = Win(area);
  HGDIOBJ old = SelectObject(dc, font);
  SetTextColor(dc, color);
  DrawTextW(dc, text, -1, &r, DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
  SelectObject(dc, old);
}

void Paint(HWND hwnd) {
  BufferedPaint paint(hwnd);
  HDC dc = paint.Dc();
  const RECT& client = paint.Client();
  const bool dark = g_box.dark;
  HBRUSH back = CreateSolidBrush(dark ? RGB(0x25, 0x26, 0x2A) : RGB(0xF0, 0xF1, 0xF3));
  FillRect(dc, &client, back);
  DeleteObject(back);
  const double scale = Scale(hwnd);
  const ToolboxLayout layout = LayoutOf(hwnd);
  const COLORREF ink = dark ? RGB(0xE6, 0xE7, 0xEA) : RGB(0x26, 0x27, 0x2B);
  const int32_t current = g_box.tools ? g_box.tools->CurrentTool() : -1;
  for (int32_t id = 0; id < kToolCount; ++id) {
    const Rect& b = layout.buttons[static_cast<std::size_t>(id)];
    RECT r = Win(b);
    if (id == current || id == g_box.hover) {
      HBRUSH hi = CreateSolidBrush(id == current ? RGB(0xF4, 0x8C, 0x2E)
                                                 : (dark ? RGB(0x3A, 0x3C, 0x42) : RGB(0xDD, 0xDF, 0xE3)));
      FillRect(dc, &r, hi);
      DeleteObject(hi);
    }
    DrawGlyph(dc, b, ToolGlyph(id), id == current ? RGB(0x1A, 0x1A, 0x1A) : ink, scale);
  }
  if (g_box.tools) {
    const ColorBoxes& c = g_box.tools->colors;
    DrawColorBox(dc, layout.leftBox, c.left, c.selected == 0, dark, scale);
    DrawColorBox(dc, layout.rightBox, c.right, c.selected == 1, dark, scale);
  }
  HFONT font = CreateFontW(-static_cast<int>(std::lround(13 * scale)), 0, 0, 0, FW_SEMIBOLD, 0, 0, 0,
                           DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  SetBkMode(dc, TRANSPARENT);
  DrawSmallButton(dc, layout.swap, L"\u21C4", ink, font);
  DrawSmallButton(dc, layout.reset, L"\u25A0", ink, font);
  DeleteObject(font);
}

// One tooltip per button, rebuilt when the dpi moves the buttons.
void UpdateTips(HWND hwnd) {
  RECT client;
  GetClientRect(hwnd, &client);
  if (!g_box.tips || (g_box.tipsDpi == WindowDpi(hwnd) && g_box.tipsHeight == client.bottom)) return;
  g_box.tipsDpi = WindowDpi(hwnd);
  g_box.tipsHeight = client.bottom;
  // Long tips wrap instead of running across the screen.
  SendMessageW(g_box.tips, TTM_SETMAXTIPWIDTH, 0, MulDiv(360, static_cast<int>(g_box.tipsDpi), 96));
  const ToolboxLayout layout = LayoutOf(hwnd);
  static std::wstring texts[kToolCount + 4];
  const auto add = [&](UINT id, const Rect& r, std::wstring text) {
    texts[id] = std::move(text);
    TTTOOLINFOW info{};
    info.cbSize = sizeof info;
    info.uFlags = TTF_SUBCLASS;
    info.hwnd = hwnd;
    info.uId = id;
    info.rect = Win(r);
    info.lpszText = texts[id].data();
    SendMessageW(g_box.tips, TTM_DELTOOLW, 0, reinterpret_cast<LPARAM>(&info));
    SendMessageW(g_box.tips, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&info));
  };
  for (int32_t id = 0; id < kToolCount; ++id) {
    const std::u16string_view tip = Tool(id).tip;
    add(static_cast<UINT>(id), layout.buttons[static_cast<std::size_t>(id)], std::wstring(tip.begin(), tip.end()));
  }
  add(kToolCount, layout.leftBox, L"Left color: click to make it the primary color, click again to choose it");
  add(kToolCount + 1, layout.rightBox, L"Right color: click to make it the primary color, click again to choose it");
  add(kToolCount + 2, layout.swap, L"Swap colors (X)");
  add(kToolCount + 3, layout.reset, L"Black and white (D)");
}

void ColorsChanged(HWND hwnd) {
  InvalidateRect(hwnd, nullptr, FALSE);
  if (g_box.events.colorsChanged) g_box.events.colorsChanged();
}

void Click(HWND hwnd, int x, int y, bool doubleClick) {
  if (!g_box.tools) return;
  const ToolboxHit hit = HitToolbox(LayoutOf(hwnd), x, y);
  ColorBoxes& c = g_box.tools->colors;
  switch (hit.part) {
    case ToolboxPart::Tool:
      if (g_box.events.toolChosen) g_box.events.toolChosen(hit.tool);
      InvalidateRect(hwnd, nullptr, FALSE);
      break;
    case ToolboxPart::LeftColor:
    case ToolboxPart::RightColor: {
      const int32_t box = hit.part == ToolboxPart::LeftColor ? 0 : 1;
      // A click picks the box; a click on the picked box chooses its colour.
      if (c.selected == box || doubleClick) ChooseBoxColor(GetAncestor(hwnd, GA_ROOT), *g_box.tools, box);
      c.selected = box;
      ColorsChanged(hwnd);
      break;
    }
    case ToolboxPart::Swap:
      std::swap(c.left, c.right);
      ColorsChanged(hwnd);
      break;
    case ToolboxPart::Reset:
      c = ColorBoxes{};
      ColorsChanged(hwnd);
      break;
    case ToolboxPart::None:
      break;
  }
}

LRESULT CALLBACK ToolboxProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_CREATE:
      g_box.tips = CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP,
                                   0, 0, 0, 0, hwnd, nullptr, nullptr, nullptr);
      g_box.tipsDpi = 0;
      SetTooltipTheme(g_box.tips, g_box.dark);
      UpdateTips(hwnd);
      return 0;
    case WM_PAINT:
      UpdateTips(hwnd);
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      InvalidateRect(hwnd, nullptr, FALSE);  // the columns follow the height
      return 0;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
      Click(hwnd, GET_X_LPARAM(lp), GET_Y_LPARAM(lp), msg == WM_LBUTTONDBLCLK);
      return 0;
    case WM_MOUSEMOVE: {
      const ToolboxHit hit = HitToolbox(LayoutOf(hwnd), GET_X_LPARAM(lp), GET_Y_LPARAM(lp));
      const int32_t hover = hit.part == ToolboxPart::Tool ? hit.tool : -1;
      if (hover != g_box.hover) {
        g_box.hover = hover;
        InvalidateRect(hwnd, nullptr, FALSE);
        TRACKMOUSEEVENT track{sizeof track, TME_LEAVE, hwnd, 0};
        TrackMouseEvent(&track);
      }
      return 0;
    }
    case WM_MOUSELEAVE:
      g_box.hover = -1;
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    case WM_DESTROY:
      if (g_box.tips) DestroyWindow(g_box.tips);
      g_box.tips = nullptr;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterToolboxClass(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.style = CS_DBLCLKS;
  wc.lpfnWndProc = ToolboxProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZToolbox";
  RegisterClassExW(&wc);
}

HWND CreateToolbox(HWND parent, HINSTANCE instance, ToolSettings* tools,
                   const ToolboxEvents& events) {
  g_box.tools = tools;
  g_box.events = events;
  return CreateWindowExW(0, L"KZToolbox", L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 10,
                         10, parent, nullptr, instance, nullptr);
}

int ToolboxWidth(UINT dpi, int height) { return ComputeToolboxLayout(dpi / 96.0, height).width; }

void SetToolboxTheme(HWND toolbox, bool dark) {
  g_box.dark = dark;
  SetTooltipTheme(g_box.tips, dark);
  InvalidateRect(toolbox, nullptr, FALSE);
}

void RefreshToolbox(HWND toolbox) { InvalidateRect(toolbox, nullptr, FALSE); }

bool ChooseBoxColor(HWND owner, ToolSettings& tools, int32_t box) {
  return ChooseColorDialog(owner, box == 0 ? tools.colors.left : tools.colors.right);
}

}  // namespace tavora
