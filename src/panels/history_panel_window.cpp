// "KZHistory": draws the rows of the portable history model and turns a
// click into Undo or Redo commands sent to the main window.
#include <windows.h>
#include <windowsx.h>

#include <string>

#include "base/command_ids.h"
#include "document/history.h"
#include "panels/history_panel.h"
#include "platform/dpi_win32.h"

namespace tavora {
namespace {

constexpr int kHeaderDip = 28, kRowDip = 24, kWidthDip = 220;

struct PanelState {
  const Document* doc = nullptr;
  bool dark = true;
};
PanelState g_panel;  // there is one History panel

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
  const int header = MulDiv(kHeaderDip, dpi, 96), row = MulDiv(kRowDip, dpi, 96);
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
    const auto rows = HistoryRows(*g_panel.doc);
    const int32_t current = g_panel.doc->history.current;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      RECT line{r.left, r.top + header + row * static_cast<int>(i), r.right,
                r.top + header + row * static_cast<int>(i + 1)};
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

LRESULT CALLBACK PanelProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_LBUTTONDOWN: {
      if (!g_panel.doc) return 0;
      const UINT dpi = WindowDpi(hwnd);
      const int y = GET_Y_LPARAM(lp) - MulDiv(kHeaderDip, dpi, 96);
      if (y < 0) return 0;
      const int32_t row = y / MulDiv(kRowDip, dpi, 96);
      if (row > static_cast<int32_t>(g_panel.doc->history.states.size()) ||
          row == g_panel.doc->history.current)
        return 0;
      HWND main = GetAncestor(hwnd, GA_ROOT);
      JumpToHistoryRow(*g_panel.doc, row, &SendHistoryCommand, main);
      // The keyboard belongs to the canvas again.
      if (HWND canvas = FindWindowExW(main, nullptr, L"KZCanvas", nullptr)) SetFocus(canvas);
      InvalidateRect(hwnd, nullptr, FALSE);
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
  return CreateWindowExW(0, L"KZHistory", L"History", WS_CHILD | WS_CLIPSIBLINGS, 0, 0, 100, 100,
                         parent, nullptr, instance, nullptr);
}

void SetHistoryPanelDocument(HWND panel, const Document* doc) {
  g_panel.doc = doc;
  InvalidateRect(panel, nullptr, FALSE);
}

void SetHistoryPanelTheme(HWND panel, bool dark) {
  g_panel.dark = dark;
  InvalidateRect(panel, nullptr, FALSE);
}

void RefreshHistoryPanel(HWND panel) { InvalidateRect(panel, nullptr, FALSE); }

int HistoryPanelWidth(UINT dpi) { return MulDiv(kWidthDip, dpi, 96); }

}  // namespace tavora
