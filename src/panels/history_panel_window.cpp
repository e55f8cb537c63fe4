// "KZHistory": draws the rows of the portable history model and turns a
// click into Undo or Redo commands sent to the main window. The rows scroll
// (bar and wheel), and the current state's row is kept in view.
#include <windows.h>
#include <windowsx.h>

#include <algorithm>
#include <string>

#include "base/command_ids.h"
#include "document/history.h"
#include "panels/history_panel.h"
#include "platform/dpi_win32.h"
#include "platform/row_scroll.h"
#include "platform/theme_win32.h"

namespace tavora {
namespace {

constexpr int kHeaderDip = 28, kRowDip = 24, kWidthDip = 220;

struct PanelState {
  const Document* doc = nullptr;
  bool dark = true;
  HWND bar = nullptr;    // the rows' scroll bar, shown while they do not fit
  int barWidth = 0;      // 0 while it is hidden
  int32_t offset = 0;    // pixels of the rows scrolled above the view
};
PanelState g_panel;  // there is one History panel

int Header(HWND hwnd) { return MulDiv(kHeaderDip, static_cast<int>(WindowDpi(hwnd)), 96); }

RowView View(HWND hwnd) {
  RECT r;
  GetClientRect(hwnd, &r);
  RowView v;
  v.rows = g_panel.doc ? static_cast<int32_t>(g_panel.doc->history.states.size()) + 1 : 0;
  v.rowHeight = MulDiv(kRowDip, static_cast<int>(WindowDpi(hwnd)), 96);
  v.viewHeight = std::max(0, static_cast<int>(r.bottom) - Header(hwnd));
  return v;
}

// Places and sets the scroll bar for the rows as they are now.
void UpdateBar(HWND hwnd) {
  const RowView v = View(hwnd);
  g_panel.offset = ClampRowOffset(v, g_panel.offset);
  if (!g_panel.bar) return;
  RECT r;
  GetClientRect(hwnd, &r);
  const int width = MulDiv(GetSystemMetrics(SM_CXVSCROLL), static_cast<int>(WindowDpi(hwnd)),
                           static_cast<int>(SystemDpi()));
  g_panel.barWidth = MaxRowOffset(v) > 0 ? width : 0;
  MoveWindow(g_panel.bar, r.right - width, Header(hwnd), width, v.viewHeight, TRUE);
  SCROLLINFO info{sizeof info, SIF_RANGE | SIF_PAGE | SIF_POS};
  info.nMax = std::max(0, v.rows * v.rowHeight - 1);
  info.nPage = static_cast<UINT>(v.viewHeight);
  info.nPos = g_panel.offset;
  SetScrollInfo(g_panel.bar, SB_CTL, &info, TRUE);
  ShowWindow(g_panel.bar, MaxRowOffset(v) > 0 ? SW_SHOWNA : SW_HIDE);
}

void ScrollTo(HWND hwnd, int32_t offset) {
  const int32_t clamped = ClampRowOffset(View(hwnd), offset);
  if (clamped == g_panel.offset) return;
  g_panel.offset = clamped;
  UpdateBar(hwnd);
  InvalidateRect(hwnd, nullptr, FALSE);
}

// After the history moved or the panel changed size: the current row in view.
void ShowCurrent(HWND hwnd) {
  const RowView v = View(hwnd);
  if (g_panel.doc) g_panel.offset = OffsetShowingRow(v, g_panel.offset, g_panel.doc->history.current);
  UpdateBar(hwnd);
  InvalidateRect(hwnd, nullptr, FALSE);
}

// Issues Undo or Redo through the main window's command path, as the menu
// does; reports whether the history moved.
bool SendHistoryCommand(void* mainWindow, bool redo) {
  const int32_t before = g_panel.doc ? g_panel.doc->history.current : 0;
  SendMessageW(static_cast<HWND>(mainWindow), WM_COMMAND, redo ? kCmdRedo : kCmdUndo, 0);
  return g_panel.doc && g_panel.doc->history.current != before;
}

void Paint(HWND hwnd) {
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  RECT r;
  GetClientRect(hwnd, &r);
  const UINT dpi = WindowDpi(hwnd);
  const int header = Header(hwnd), row = MulDiv(kRowDip, dpi, 96);
  const bool dark = g_panel.dark;
  HBRUSH back = CreateSolidBrush(dark ? RGB(0x25, 0x26, 0x2A) : RGB(0xFA, 0xFA, 0xFA));
  FillRect(dc, &r, back);
  DeleteObject(back);
  HFONT font = CreateFontW(-MulDiv(12, dpi, 96), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0,
                           0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HFONT bold = CreateFontW(-MulDiv(12, dpi, 96), 0, 0, 0, FW_SEMIBOLD, 0, 0, 0, DEFAULT_CHARSET,
                           0, 0, CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HGDIOBJ old = SelectObject(dc, bold);
  SetBkMode(dc, TRANSPARENT);
  const COLORREF text = dark ? RGB(0xE6, 0xE7, 0xEA) : RGB(0x20, 0x21, 0x24);
  const COLORREF dim = dark ? RGB(0x7A, 0x7D, 0x83) : RGB(0x9A, 0x9D, 0xA3);
  SetTextColor(dc, text);
  RECT h{r.left + MulDiv(10, dpi, 96), r.top, r.right, r.top + header};
  DrawTextW(dc, L"History", -1, &h, DT_SINGLELINE | DT_VCENTER);
  SelectObject(dc, font);
  if (!g_panel.doc) {
    RECT body{r.left, r.top + header, r.right, r.top + header + row};
    SetTextColor(dc, dim);
    DrawTextW(dc, L"No image open", -1, &body, DT_SINGLELINE | DT_VCENTER | DT_CENTER);
  } else {
    // The rows scroll under the header, beside the bar when it is shown.
    const int right = g_panel.barWidth;
    IntersectClipRect(dc, r.left, r.top + header, r.right - right, r.bottom);
    const auto rows = HistoryRows(*g_panel.doc);
    const int32_t current = g_panel.doc->history.current;
    const int32_t first = std::max(0, g_panel.offset / row);
    for (std::size_t i = static_cast<std::size_t>(first); i < rows.size(); ++i) {
      const int top = r.top + header + row * static_cast<int>(i) - g_panel.offset;
      if (top >= r.bottom) break;
      RECT line{r.left, top, r.right - right, top + row};
      if (static_cast<int32_t>(i) == current) {
        HBRUSH mark = CreateSolidBrush(dark ? RGB(0x2F, 0x5D, 0x9E) : RGB(0xCC, 0xE0, 0xFA));
        FillRect(dc, &line, mark);
        DeleteObject(mark);
      }
      // Rows after the current one are the redoable future.
      SetTextColor(dc, static_cast<int32_t>(i) > current ? dim : text);
      line.left += MulDiv(12, dpi, 96);
      const std::wstring label(rows[i].begin(), rows[i].end());
      DrawTextW(dc, label.c_str(), -1, &line, DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    }
  }
  SelectObject(dc, old);
  DeleteObject(font);
  DeleteObject(bold);
  EndPaint(hwnd, &ps);
}

void OnScroll(HWND hwnd, int code) {
  const RowView v = View(hwnd);
  SCROLLINFO info{sizeof info, SIF_TRACKPOS};
  GetScrollInfo(g_panel.bar, SB_CTL, &info);
  int32_t to = g_panel.offset;
  switch (code) {
    case SB_LINEUP: to -= v.rowHeight; break;
    case SB_LINEDOWN: to += v.rowHeight; break;
    case SB_PAGEUP: to -= std::max(v.rowHeight, v.viewHeight - v.rowHeight); break;
    case SB_PAGEDOWN: to += std::max(v.rowHeight, v.viewHeight - v.rowHeight); break;
    case SB_THUMBTRACK:
    case SB_THUMBPOSITION: to = info.nTrackPos; break;
    case SB_TOP: to = 0; break;
    case SB_BOTTOM: to = MaxRowOffset(v); break;
    default: return;
  }
  ScrollTo(hwnd, to);
}

LRESULT CALLBACK PanelProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_CREATE:
      g_panel.bar = CreateWindowExW(0, L"SCROLLBAR", L"", WS_CHILD | SBS_VERT, 0, 0, 10, 10, hwnd, nullptr,
                                    reinterpret_cast<CREATESTRUCTW*>(lp)->hInstance, nullptr);
      return 0;
    case WM_DESTROY:
      g_panel.bar = nullptr;
      return 0;
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      ShowCurrent(hwnd);
      return 0;
    case WM_VSCROLL:
      if (reinterpret_cast<HWND>(lp) == g_panel.bar) OnScroll(hwnd, LOWORD(wp));
      return 0;
    case WM_MOUSEWHEEL: {
      UINT lines = 3;
      SystemParametersInfoW(SPI_GETWHEELSCROLLLINES, 0, &lines, 0);
      const int32_t perNotch = lines == WHEEL_PAGESCROLL ? std::max(1, View(hwnd).viewHeight / View(hwnd).rowHeight)
                                                         : static_cast<int32_t>(lines);
      ScrollTo(hwnd, WheelRowOffset(View(hwnd), g_panel.offset, GET_WHEEL_DELTA_WPARAM(wp), perNotch));
      return 0;
    }
    case WM_CTLCOLORSCROLLBAR:
      if (HBRUSH brush = DialogControlColor(msg, wp)) return reinterpret_cast<LRESULT>(brush);
      break;
    case WM_LBUTTONDOWN: {
      if (!g_panel.doc) return 0;
      const int32_t row = RowAtY(View(hwnd), g_panel.offset, GET_Y_LPARAM(lp) - Header(hwnd));
      if (row < 0 || row == g_panel.doc->history.current) return 0;
      HWND main = GetAncestor(hwnd, GA_ROOT);
      JumpToHistoryRow(*g_panel.doc, row, &SendHistoryCommand, main);
      // The keyboard belongs to the canvas again.
      if (HWND canvas = FindWindowExW(main, nullptr, L"KZCanvas", nullptr)) SetFocus(canvas);
      ShowCurrent(hwnd);
      return 0;
    }
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterHistoryPanelClass(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = PanelProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZHistory";
  RegisterClassExW(&wc);
}

HWND CreateHistoryPanel(HWND parent, HINSTANCE instance) {
  return CreateWindowExW(0, L"KZHistory", L"History", WS_CHILD | WS_CLIPSIBLINGS | WS_CLIPCHILDREN, 0, 0, 100,
                         100, parent, nullptr, instance, nullptr);
}

void SetHistoryPanelDocument(HWND panel, const Document* doc) {
  if (doc != g_panel.doc) g_panel.offset = 0;
  g_panel.doc = doc;
  ShowCurrent(panel);
}

void SetHistoryPanelTheme(HWND panel, bool dark) {
  g_panel.dark = dark;
  if (g_panel.bar) SetControlDarkMode(g_panel.bar, dark);
  InvalidateRect(panel, nullptr, FALSE);
}

void RefreshHistoryPanel(HWND panel) { ShowCurrent(panel); }

int HistoryPanelWidth(UINT dpi) { return MulDiv(kWidthDip, dpi, 96); }

}  // namespace tavora
