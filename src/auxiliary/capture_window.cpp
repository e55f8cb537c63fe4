// Screen capture on Windows: the wait after minimising, the copy of the
// virtual screen (with the cursor when asked), the foreground window's
// frame, and the "KZCapture" overlay on which a region is dragged.
#include "auxiliary/capture_window.h"

#include <dwmapi.h>
#include <windowsx.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/settings_store.h"
#include "platform/dpi_win32.h"
#include "platform/form_dialog_win32.h"
#include "platform/theme_win32.h"
#include "processing/effect_dialogs.h"

namespace tavora {
namespace {

std::wstring Wide(std::u16string_view s) { return std::wstring(s.begin(), s.end()); }

// ---------------------------------------------------------------- the shot

// A 32-bit top-down DIB section of the given size, selected into `mem`.
HBITMAP MakeDib(HDC reference, int32_t w, int32_t h, void** bits) {
  BITMAPINFO bmi{};
  bmi.bmiHeader = {sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB};
  return CreateDIBSection(reference, &bmi, DIB_RGB_COLORS, bits, nullptr, 0);
}

// The virtual screen from (x, y), with layered windows, and the cursor's
// icon at its place when asked and showing.
Surface GrabScreen(int32_t x, int32_t y, int32_t w, int32_t h, bool includeCursor) {
  Surface shot;
  HDC screen = GetDC(nullptr);
  HDC mem = CreateCompatibleDC(screen);
  void* bits = nullptr;
  HBITMAP dib = MakeDib(screen, w, h, &bits);
  if (mem && dib && bits) {
    HGDIOBJ old = SelectObject(mem, dib);
    BitBlt(mem, 0, 0, w, h, screen, x, y, SRCCOPY | CAPTUREBLT);
    CURSORINFO cursor{sizeof cursor};
    if (includeCursor && GetCursorInfo(&cursor) && (cursor.flags & CURSOR_SHOWING) && cursor.hCursor) {
      ICONINFO icon{};
      if (GetIconInfo(cursor.hCursor, &icon)) {
        DrawIconEx(mem, cursor.ptScreenPos.x - x - static_cast<int>(icon.xHotspot),
                   cursor.ptScreenPos.y - y - static_cast<int>(icon.yHotspot), cursor.hCursor, 0, 0, 0, nullptr,
                   DI_NORMAL);
        if (icon.hbmMask) DeleteObject(icon.hbmMask);
        if (icon.hbmColor) DeleteObject(icon.hbmColor);
      }
    }
    GdiFlush();
    shot = Surface(w, h);
    std::memcpy(shot.Data(), bits, shot.PixelCount() * 4);
    SelectObject(mem, old);
  }
  if (dib) DeleteObject(dib);
  if (mem) DeleteDC(mem);
  ReleaseDC(nullptr, screen);
  return shot;
}

// The foreground window's frame as the compositor draws it (its window
// rectangle where that is not known), in screen coordinates; empty when
// there is no other window in front.
RECT ForegroundFrame(HWND main) {
  RECT r{};
  HWND front = GetForegroundWindow();
  if (!front || front == main || IsIconic(front)) return r;
  if (FAILED(DwmGetWindowAttribute(front, DWMWA_EXTENDED_FRAME_BOUNDS, &r, sizeof r))) GetWindowRect(front, &r);
  return r;
}

// Waits, keeping the program's windows answering; false when the program
// is asked to quit meanwhile (the request is passed on).
bool WaitDispatching(int32_t ms) {
  const ULONGLONG end = GetTickCount64() + static_cast<ULONGLONG>(ms);
  while (GetTickCount64() < end) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      if (msg.message == WM_QUIT) {
        PostQuitMessage(static_cast<int>(msg.wParam));
        return false;
      }
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    Sleep(10);
  }
  return true;
}

void BringBack(HWND main) {
  ShowWindow(main, SW_RESTORE);
  SetForegroundWindow(main);
}

// ---------------------------------------------------------------- the overlay

constexpr int kFrameWidth = 2, kHintWidthDip = 220, kHintHeightDip = 36, kLabelPadDip = 5, kFontDip = 12;

struct Overlay {
  HDC bright = nullptr, dim = nullptr;  // memory DCs holding the shot and its dimmed copy
  int32_t width = 0, height = 0;
  UINT dpi = 96;
  HFONT font = nullptr;
  COLORREF accent = RGB(0x4C, 0x8D, 0xE8);
  RECT hint{};                 // the hint box, client coordinates
  POINT start{}, corner{};
  bool dragging = false, dragged = false, done = false;
  Rect chosen;
};
Overlay* g_overlay = nullptr;  // one overlay at a time

int Scaled(int dip) { return MulDiv(dip, static_cast<int>(g_overlay->dpi), 96); }

Rect DragRect(const Overlay& o) {
  return {std::min(o.start.x, o.corner.x), std::min(o.start.y, o.corner.y), std::max(o.start.x, o.corner.x),
          std::max(o.start.y, o.corner.y)};
}

// The size label's box: below the rectangle's left corner, above it when
// the screen ends there, inside it when neither fits.
RECT LabelBox(HDC dc, const Overlay& o, const Rect& r, std::wstring& text) {
  text = Wide(CaptureSizeLabel(r));
  SIZE size{};
  HGDIOBJ old = SelectObject(dc, o.font);
  GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
  SelectObject(dc, old);
  const int pad = Scaled(kLabelPadDip), w = size.cx + 2 * pad, h = size.cy + 2 * pad;
  const int gap = kFrameWidth + Scaled(4);
  int x = std::clamp<int>(r.x0, 0, std::max(0, o.width - w)), y = r.y1 + gap;
  if (y + h > o.height) y = r.y0 - gap - h;
  if (y < 0) y = r.y0 + gap;
  return {x, y, x + w, y + h};
}

// Everything a drag rectangle draws: the rectangle, its frame, its label.
RECT Decorated(HDC dc, const Overlay& o, const Rect& r) {
  std::wstring text;
  const RECT label = LabelBox(dc, o, r, text);
  RECT all{r.x0 - kFrameWidth, r.y0 - kFrameWidth, r.x1 + kFrameWidth, r.y1 + kFrameWidth};
  UnionRect(&all, &all, &label);
  return all;
}

void PaintOverlay(HWND hwnd) {
  Overlay& o = *g_overlay;
  PAINTSTRUCT ps;
  HDC dc = BeginPaint(hwnd, &ps);
  const RECT& area = ps.rcPaint;
  const int w = area.right - area.left, h = area.bottom - area.top;
  HDC back = CreateCompatibleDC(dc);
  HBITMAP buffer = w > 0 && h > 0 ? CreateCompatibleBitmap(dc, w, h) : nullptr;
  if (!back || !buffer) {
    if (buffer) DeleteObject(buffer);
    if (back) DeleteDC(back);
    EndPaint(hwnd, &ps);
    return;
  }
  HGDIOBJ oldBitmap = SelectObject(back, buffer);
  SetViewportOrgEx(back, -area.left, -area.top, nullptr);  // draw in client coordinates
  BitBlt(back, area.left, area.top, w, h, o.dim, area.left, area.top, SRCCOPY);
  HGDIOBJ oldFont = SelectObject(back, o.font);
  SetBkMode(back, TRANSPARENT);
  HBRUSH box = CreateSolidBrush(RGB(0x20, 0x21, 0x24));
  const Rect r = DragRect(o);
  if (o.dragged && !r.Empty()) {
    BitBlt(back, r.x0, r.y0, r.Width(), r.Height(), o.bright, r.x0, r.y0, SRCCOPY);
    HPEN pen = CreatePen(PS_INSIDEFRAME, kFrameWidth, o.accent);
    HGDIOBJ oldPen = SelectObject(back, pen);
    HGDIOBJ oldBrush = SelectObject(back, GetStockObject(NULL_BRUSH));
    Rectangle(back, r.x0 - kFrameWidth, r.y0 - kFrameWidth, r.x1 + kFrameWidth, r.y1 + kFrameWidth);
    SelectObject(back, oldBrush);
    SelectObject(back, oldPen);
    DeleteObject(pen);
    std::wstring text;
    RECT label = LabelBox(back, o, r, text);
    FillRect(back, &label, box);
    SetTextColor(back, RGB(0xF2, 0xF2, 0xF2));
    DrawTextW(back, text.c_str(), -1, &label, DT_CENTER | DT_VCENTER | DT_SINGLELINE | DT_NOPREFIX);
  }
  if (!o.dragged) {
    FillRect(back, &o.hint, box);
    HBRUSH frame = CreateSolidBrush(o.accent);
    FrameRect(back, &o.hint, frame);
    DeleteObject(frame);
    SetTextColor(back, RGB(0xF2, 0xF2, 0xF2));
    RECT text = o.hint;
    DrawTextW(back, L"Drag to select a region", -1, &text, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  }
  DeleteObject(box);
  SelectObject(back, oldFont);
  BitBlt(dc, area.left, area.top, w, h, back, area.left, area.top, SRCCOPY);
  SelectObject(back, oldBitmap);
  DeleteObject(buffer);
  DeleteDC(back);
  EndPaint(hwnd, &ps);
}

// The rectangle moved: what it drew before and what it draws now.
void MoveCorner(HWND hwnd, POINT to) {
  Overlay& o = *g_overlay;
  HDC dc = GetDC(hwnd);
  RECT before = Decorated(dc, o, DragRect(o));
  o.corner = to;
  RECT after = Decorated(dc, o, DragRect(o));
  ReleaseDC(hwnd, dc);
  InvalidateRect(hwnd, &before, FALSE);
  InvalidateRect(hwnd, &after, FALSE);
}

void Finish(HWND hwnd, bool cancelled) {
  Overlay& o = *g_overlay;
  if (GetCapture() == hwnd) ReleaseCapture();
  o.dragging = false;
  o.done = true;
  if (cancelled) o.chosen = {};
}

LRESULT CALLBACK OverlayProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (!g_overlay) return DefWindowProcW(hwnd, msg, wp, lp);
  Overlay& o = *g_overlay;
  const POINT at{GET_X_LPARAM(lp), GET_Y_LPARAM(lp)};
  switch (msg) {
    case WM_PAINT:
      PaintOverlay(hwnd);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_LBUTTONDOWN:
      if (!o.dragged) InvalidateRect(hwnd, &o.hint, FALSE);
      o.dragged = o.dragging = true;
      o.start = o.corner = at;
      SetCapture(hwnd);
      MoveCorner(hwnd, at);
      return 0;
    case WM_MOUSEMOVE:
      if (o.dragging) MoveCorner(hwnd, at);
      return 0;
    case WM_LBUTTONUP:
      if (!o.dragging) return 0;
      MoveCorner(hwnd, at);
      o.chosen = CaptureRegion(o.start.x, o.start.y, at.x, at.y, o.width, o.height);
      Finish(hwnd, false);
      return 0;
    case WM_RBUTTONDOWN:
      Finish(hwnd, true);
      return 0;
    case WM_KEYDOWN:
      if (wp == VK_ESCAPE) Finish(hwnd, true);
      return 0;
    case WM_CLOSE:
      Finish(hwnd, true);
      return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

void RegisterOverlayClass(HINSTANCE instance) {
  static bool registered = false;
  if (registered) return;
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = OverlayProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_CROSS);
  wc.lpszClassName = L"KZCapture";
  registered = RegisterClassExW(&wc) != 0;
}

// Shows the frozen screen dimmed and runs until a region is dragged or the
// choice is cancelled; the region in shot coordinates, empty when none.
Rect ChooseRegion(HWND main, const Surface& shot, int32_t x, int32_t y) {
  const HINSTANCE instance = reinterpret_cast<HINSTANCE>(GetWindowLongPtrW(main, GWLP_HINSTANCE));
  RegisterOverlayClass(instance);
  const Surface dimmed = DimmedCopy(shot);
  HDC screen = GetDC(nullptr);
  Overlay o;
  o.width = shot.Width();
  o.height = shot.Height();
  void* brightBits = nullptr;
  void* dimBits = nullptr;
  HBITMAP brightDib = MakeDib(screen, o.width, o.height, &brightBits);
  HBITMAP dimDib = MakeDib(screen, o.width, o.height, &dimBits);
  o.bright = CreateCompatibleDC(screen);
  o.dim = CreateCompatibleDC(screen);
  ReleaseDC(nullptr, screen);
  Rect chosen;
  if (brightDib && dimDib && brightBits && dimBits && o.bright && o.dim) {
    std::memcpy(brightBits, shot.Data(), shot.PixelCount() * 4);
    std::memcpy(dimBits, dimmed.Data(), dimmed.PixelCount() * 4);
    HGDIOBJ oldBright = SelectObject(o.bright, brightDib);
    HGDIOBJ oldDim = SelectObject(o.dim, dimDib);
    g_overlay = &o;
    HWND hwnd = CreateWindowExW(WS_EX_TOPMOST | WS_EX_TOOLWINDOW, L"KZCapture", L"Screen Capture", WS_POPUP, x, y,
                                o.width, o.height, nullptr, nullptr, instance, nullptr);
    if (hwnd) {
      o.dpi = WindowDpi(hwnd);
      o.font = CreateFontW(-Scaled(kFontDip), 0, 0, 0, FW_NORMAL, 0, 0, 0, DEFAULT_CHARSET, 0, 0, CLEARTYPE_QUALITY,
                           0, L"Segoe UI");
      o.accent = DialogThemeColors().accent;
      // The hint sits in the middle of the primary monitor, at (0, 0) on
      // the screen.
      const int hw = Scaled(kHintWidthDip), hh = Scaled(kHintHeightDip);
      const int cx = -x + GetSystemMetrics(SM_CXSCREEN) / 2, cy = -y + GetSystemMetrics(SM_CYSCREEN) / 2;
      o.hint = {cx - hw / 2, cy - hh / 2, cx - hw / 2 + hw, cy - hh / 2 + hh};
      ShowWindow(hwnd, SW_SHOW);
      SetForegroundWindow(hwnd);
      SetFocus(hwnd);
      UpdateWindow(hwnd);
      MSG msg;
      while (!o.done) {
        const BOOL got = GetMessageW(&msg, nullptr, 0, 0);
        if (got <= 0) {
          if (got == 0) PostQuitMessage(static_cast<int>(msg.wParam));
          o.chosen = {};
          break;
        }
        TranslateMessage(&msg);
        DispatchMessageW(&msg);
      }
      chosen = o.chosen;
      DestroyWindow(hwnd);
      if (o.font) DeleteObject(o.font);
    }
    g_overlay = nullptr;
    SelectObject(o.bright, oldBright);
    SelectObject(o.dim, oldDim);
  }
  if (o.bright) DeleteDC(o.bright);
  if (o.dim) DeleteDC(o.dim);
  if (brightDib) DeleteObject(brightDib);
  if (dimDib) DeleteObject(dimDib);
  return chosen;
}

// ---------------------------------------------------------------- the dialog

constexpr std::u16string_view kDialogSection = u"Dlg Screen Capture";
constexpr ParamRow kDelayRow{u"Delay (s):", 0, 60, 3, 1, RowKind::Edit};

}  // namespace

std::optional<CaptureRequest> AskCaptureRequest(HWND owner) {
  SettingsStore& settings = AppSettings();
  const std::u16string section(kDialogSection);
  const double delay = ParseRemembered(settings.GetString(section, u"c1"), kDelayRow).value_or(kDelayRow.fallback);
  const int32_t kind = ParseRememberedIndex(settings.GetString(section, u"c22"), 2).value_or(0);
  const bool cursor = ParseRememberedIndex(settings.GetString(section, u"c51"), 1).value_or(0) == 1;

  FormDialog form(L"Screen Capture", 400);
  const int what = form.AddChoice(L"Capture:", {L"Full screen", L"Region", L"Foreground window"}, kind);
  const int seconds = form.AddNumber(L"Delay (s):", delay, kDelayRow.decimals);
  const int withCursor = form.AddCheck(L"Include mouse cursor", cursor);
  form.AddText(L"Tavora minimizes itself before capturing, then opens the shot in a new tab.");
  form.validate = [&](FormDialog& f) -> std::wstring {
    const auto v = f.Number(seconds);
    if (v && *v >= kDelayRow.minimum && *v <= kDelayRow.maximum) return {};
    return Wide(RangeMessage(kDelayRow.minimum, kDelayRow.maximum));
  };
  if (!form.Run(owner, L"Capture")) return std::nullopt;

  CaptureRequest request;
  request.kind = static_cast<CaptureKind>(std::clamp(form.Choice(what), 0, 2));
  const double chosen = std::clamp(*form.Number(seconds), kDelayRow.minimum, kDelayRow.maximum);
  request.delayMs = static_cast<int32_t>(chosen * 1000 + 0.5);
  request.includeCursor = form.Checked(withCursor);
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"c1", FormatNumber(chosen)},
      {u"c22", std::u16string(1, static_cast<char16_t>(u'0' + static_cast<int32_t>(request.kind)))},
      {u"c51", request.includeCursor ? u"1" : u"0"}};
  settings.SetStrings(section, values);
  return request;
}

std::unique_ptr<Document> CaptureScreen(HWND main, CaptureKind kind, int32_t delayMs, bool includeCursor) {
  ShowWindow(main, SW_MINIMIZE);
  // Long enough for the window to be gone from the screen.
  if (!WaitDispatching(CaptureWaitMs(delayMs))) {
    BringBack(main);
    return nullptr;
  }
  const int32_t x = GetSystemMetrics(SM_XVIRTUALSCREEN), y = GetSystemMetrics(SM_YVIRTUALSCREEN);
  const int32_t w = GetSystemMetrics(SM_CXVIRTUALSCREEN), h = GetSystemMetrics(SM_CYVIRTUALSCREEN);
  if (w < 1 || h < 1) {
    BringBack(main);
    return nullptr;
  }
  Rect area{0, 0, w, h};
  if (kind == CaptureKind::ForegroundWindow) {
    const RECT frame = ForegroundFrame(main);
    const Rect window = CaptureRegion(frame.left - x, frame.top - y, frame.right - x, frame.bottom - y, w, h);
    if (!window.Empty()) area = window;  // no window in front: the whole screen
  }
  const Surface shot = GrabScreen(x, y, w, h, includeCursor);
  if (shot.Empty()) {
    BringBack(main);
    return nullptr;
  }
  if (kind == CaptureKind::Region) area = ChooseRegion(main, shot, x, y);
  if (area.Empty()) {
    BringBack(main);
    return nullptr;
  }
  Surface pixels = CropOpaque(shot, area);
  BringBack(main);
  if (pixels.Empty()) return nullptr;
  auto doc = DocumentFromPicture(std::move(pixels), 96);
  doc->title = NextCaptureName();
  doc->modified = true;
  return doc;
}

}  // namespace tavora
