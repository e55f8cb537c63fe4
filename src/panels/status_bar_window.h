#pragma once
// The status bar "KZStatus" along the bottom of the main window: the shown
// document's zoom, size, resolution and colour depth, the pointer's pixel
// while it is over the picture, and the selection's size; without a
// document the status message, or "Ready". Its window text is the same
// fields, for tests and screen readers. Windows only.
#include <windows.h>

#include <string_view>

namespace tavora {

void RegisterStatusBarClass(HINSTANCE instance);
// The bar follows `canvas`: its document, the pointer over it and its zoom.
HWND CreateStatusBar(HWND parent, HINSTANCE instance, HWND canvas);
// Something the bar shows may have changed (size, dpi, colour depth,
// selection, the document shown). It is drawn again once the thread is
// idle, so calling it often costs little.
void RefreshStatusBar(HWND bar);
// The text shown while no document is; empty shows "Ready".
void SetStatusBarMessage(HWND bar, std::u16string_view message);
void SetStatusBarTheme(HWND bar, bool dark);
int StatusBarHeight(UINT dpi);

}  // namespace tavora
