#pragma once
// Screen and per-monitor dpi, and the theme colours of the frame. The newer
// per-monitor calls are looked up at run time so that older systems, which
// lack them, still run.
#include <windows.h>

namespace tavora {

UINT SystemDpi();
UINT WindowDpi(HWND hwnd);
// True when the system's apps use the dark theme.
bool SystemUsesDarkTheme();
// Asks the window manager for a dark or light title bar.
void ApplyFrameTheme(HWND hwnd, bool dark);

}  // namespace tavora
