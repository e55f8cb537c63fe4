// "TavoraSplash": a small borderless window shown while the program starts.
#include <windows.h>

#include "app/shell.h"
#include "platform/dpi_win32.h"

namespace tavora {
namespace {

LRESULT CALLBACK SplashProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg == WM_PAINT) {
    PAINTSTRUCT ps;
    HDC dc = BeginPaint(hwnd, &ps);
    RECT r;
    GetClientRect(hwnd, &r);
    HBRUSH back = CreateSolidBrush(RGB(0x20, 0x22, 0x27));
    FillRect(dc, &r, back);
    DeleteObject(back);
    const int height = r.bottom / 5;
    HFONT font = CreateFontW(-height, 0, 0, 0, FW_SEMIBOLD, 0, 0, 0, DEFAULT_CHARSET, 0, 0,
                             CLEARTYPE_QUALITY, 0, L"Segoe UI");
    HGDIOBJ old = SelectObject(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, RGB(0xF4, 0x8C, 0x2E));
    DrawTextW(dc, L"Tavora", -1, &r, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    SelectObject(dc, old);
    DeleteObject(font);
    EndPaint(hwnd, &ps);
    return 0;
  }
  return DefWindowProcW(hwnd, msg, wp, lp);
}

}  // namespace

HWND ShowSplash(HINSTANCE instance) {
  WNDCLASSEXW wc{sizeof wc};
  wc.lpfnWndProc = SplashProc;
  wc.hInstance = instance;
  wc.hCursor = LoadCursorW(nullptr, IDC_APPSTARTING);
  wc.lpszClassName = L"TavoraSplash";
  RegisterClassExW(&wc);
  const UINT dpi = SystemDpi();
  const int w = MulDiv(420, dpi, 96), h = MulDiv(220, dpi, 96);
  const int x = (GetSystemMetrics(SM_CXSCREEN) - w) / 2, y = (GetSystemMetrics(SM_CYSCREEN) - h) / 2;
  HWND splash = CreateWindowExW(WS_EX_TOOLWINDOW | WS_EX_TOPMOST, L"TavoraSplash", L"Tavora",
                                WS_POPUP | WS_VISIBLE, x, y, w, h, nullptr, nullptr, instance, nullptr);
  if (splash) UpdateWindow(splash);
  return splash;
}

}  // namespace tavora
