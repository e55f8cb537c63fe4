// "KZStatus": draws the status texts of the portable model. Pointer moves
// over the canvas only invalidate the bar; the texts are worked out when it
// paints, so a burst of moves costs one paint and never holds up the canvas.
#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "document/composite.h"
#include "panels/status_bar_window.h"
#include "panels/status_text.h"
#include "platform/buffered_paint_win32.h"
#include "platform/dialog_win32.h"
#include "platform/dpi_win32.h"
#include "tools/canvas.h"

namespace tavora {
namespace {

constexpr int kHeightDip = 24, kPadDip = 10;
// The fields' least widths at 96 dpi, so that the pointer's numbers do not
// push the selection's size about as they grow and shrink.
constexpr int kMinWidthDip[] = {64, 240, 300, 0};

struct StatusState {
  HWND canvas = nullptr;
  std::u16string message;
  bool dark = true;
};
StatusState g_status;  // there is one status bar

std::vector<std::u16string> Fields() {
  Document* doc = g_status.canvas ? CanvasDocument(g_status.canvas) : nullptr;
  std::optional<PointerSample> pointer;
  int32_t x = 0, y = 0;
  if (doc && CanvasPointerPixel(g_status.canvas, x, y)) pointer = PointerSample{x, y, CompositePixel(*doc, x, y)};
  return StatusFields(doc, pointer, g_status.message);
}

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

std::wstring WindowText() {
  std::wstring text;
  for (const std::u16string& f : Fields()) {
    if (!text.empty()) text += L"   ";
    text += Wide(f);
  }
  return text;
}

// The slot a field goes in: zoom, size, pointer, selection. The pointer's
// field is left out while the pointer is elsewhere.
int Slot(const std::vector<std::u16string>& fields, std::size_t i) {
  if (i < 2) return static_cast<int>(i);
  return fields[i].starts_with(u"X ") ? 2 : 3;
}

void Paint(HWND hwnd) {
  BufferedPaint paint(hwnd);
  const HDC dc = paint.Dc();
  RECT r = paint.Client();
  const int dpi = static_cast<int>(WindowDpi(hwnd));
  const bool dark = g_status.dark;
  HBRUSH back = CreateSolidBrush(dark ? RGB(0x25, 0x26, 0x2A) : RGB(0xF0, 0xF1, 0xF3));
  FillRect(dc, &r, back);
  DeleteObject(back);
  const COLORREF line = dark ? RGB(0x3A, 0x3C, 0x42) : RGB(0xD4, 0xD6, 0xDA);
  HBRUSH edge = CreateSolidBrush(line);
  RECT top{r.left, r.top, r.right, r.top + std::max(1, MulDiv(1, dpi, 96))};
  FillRect(dc, &top, edge);
  HFONT font = CreateFontW(-MulDiv(12, dpi, 96), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                           CLEARTYPE_QUALITY, 0, L"Segoe UI");
  HGDIOBJ oldFont = SelectObject(dc, font);
  SetBkMode(dc, TRANSPARENT);
  SetTextColor(dc, dark ? RGB(0xC8, 0xCA, 0xCE) : RGB(0x30, 0x31, 0x35));
  const std::vector<std::u16string> fields = Fields();
  const int pad = MulDiv(kPadDip, dpi, 96);
  int x = r.left + pad;
  int slot = 0;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::wstring text = Wide(fields[i]);
    SIZE size{};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
    // An empty slot keeps its room when a later field is shown.
    for (const int target = Slot(fields, i); slot < target; ++slot) x += MulDiv(kMinWidthDip[slot], dpi, 96) + pad;
    RECT box{x, r.top, r.right, r.bottom};
    DrawTextW(dc, text.c_str(), static_cast<int>(text.size()), &box,
              DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX | DT_END_ELLIPSIS);
    const int width = fields.size() == 1 ? size.cx : std::max<int>(size.cx, MulDiv(kMinWidthDip[slot], dpi, 96));
    x += width + pad;
    ++slot;
    if (i + 1 < fields.size()) {
      // A thin divider between fields.
      RECT divider{x - pad / 2, r.top + MulDiv(5, dpi, 96), x - pad / 2 + std::max(1, dpi / 96),
                   r.bottom - MulDiv(5, dpi, 96)};
      FillRect(dc, &divider, edge);
    }
  }
  SelectObject(dc, oldFont);
  DeleteObject(font);
  DeleteObject(edge);
}

void CanvasChanged(void* bar) { InvalidateRect(static_cast<HWND>(bar), nullptr, FALSE); }

LRESULT CALLBACK StatusProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  switch (msg) {
    case WM_PAINT:
      Paint(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SIZE:
      InvalidateRect(hwnd, nullptr, FALSE);
      return 0;
    // The text is worked out when asked for, as the painting is.
    case WM_GETTEXTLENGTH:
      return static_cast<LRESULT>(WindowText().size());
    case WM_GETTEXT:
      return AnswerGetText(WindowText(), wp, lp);
    case WM_DESTROY:
      if (g_status.canvas) RemoveCanvasViewListener(g_status.canvas, hwnd);
      g_status.canvas = nullptr;
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

void RegisterStatusBarClass(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = StatusProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  wc.lpszClassName = L"KZStatus";
  RegisterClassExW(&wc);
}

HWND CreateStatusBar(HWND parent, HINSTANCE instance, HWND canvas) {
  HWND bar = CreateWindowExW(0, L"KZStatus", L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 100, 20, parent,
                             nullptr, instance, nullptr);
  if (bar) {
    g_status.canvas = canvas;
    AddCanvasViewListener(canvas, &CanvasChanged, bar);
  }
  return bar;
}

void RefreshStatusBar(HWND bar) {
  if (bar) InvalidateRect(bar, nullptr, FALSE);
}

void SetStatusBarMessage(HWND bar, std::u16string_view message) {
  g_status.message = std::u16string(message);
  RefreshStatusBar(bar);
}

void SetStatusBarTheme(HWND bar, bool dark) {
  if (!bar) return;
  g_status.dark = dark;
  RefreshStatusBar(bar);
}

int StatusBarHeight(UINT dpi) { return MulDiv(kHeightDip, static_cast<int>(dpi), 96); }

}  // namespace tavora
