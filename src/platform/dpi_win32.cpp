#include "platform/dpi_win32.h"

#include <dwmapi.h>

namespace tavora {

UINT SystemDpi() {
  HDC screen = GetDC(nullptr);
  const int dpi = screen ? GetDeviceCaps(screen, LOGPIXELSY) : 96;
  if (screen) ReleaseDC(nullptr, screen);
  return dpi > 0 ? static_cast<UINT>(dpi) : 96;
}

UINT WindowDpi(HWND hwnd) {
  using GetDpiForWindowFn = UINT(WINAPI*)(HWND);
  static const auto getDpiForWindow = reinterpret_cast<GetDpiForWindowFn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
  const UINT dpi = getDpiForWindow && hwnd ? getDpiForWindow(hwnd) : 0;
  return dpi ? dpi : SystemDpi();
}

bool SystemUsesDarkTheme() {
  DWORD value = 1, size = sizeof value;
  const LSTATUS status = RegGetValueW(
      HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Themes\\Personalize",
      L"AppsUseLightTheme", RRF_RT_REG_DWORD, nullptr, &value, &size);
  return status == ERROR_SUCCESS && value == 0;
}

void ApplyFrameTheme(HWND hwnd, bool dark) {
  // DWMWA_USE_IMMERSIVE_DARK_MODE is 20 on current systems, 19 on early ones.
  const BOOL on = dark ? TRUE : FALSE;
  if (FAILED(DwmSetWindowAttribute(hwnd, 20, &on, sizeof on)))
    DwmSetWindowAttribute(hwnd, 19, &on, sizeof on);
}

}  // namespace tavora
