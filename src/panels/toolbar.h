#pragma once
// The toolbar "KZToolbar" across the top of the main window: buttons for the
// file, undo, zoom, capture and full-screen commands, and the zoom box with
// its list of zooms, where a percent may also be typed. Its window text is
// the zoom box's, for tests. Windows only.
#include <windows.h>

#include <cstdint>

namespace tavora {

struct ToolbarEvents {
  void (*command)(int32_t id) = nullptr;    // issues a menu command
  bool (*available)(int32_t id) = nullptr;  // whether the menus offer it now
  // Asks for the menus' refresh (which refreshes the toolbar): the pointer
  // came onto the toolbar, and a tool may have changed what is offered.
  void (*refresh)() = nullptr;
};

void RegisterToolbarClass(HINSTANCE instance);
// The zoom box follows the document shown in `canvas` and zooms it.
HWND CreateToolbar(HWND parent, HINSTANCE instance, HWND canvas, const ToolbarEvents& events);
int ToolbarHeight(UINT dpi);
void SetToolbarTheme(HWND bar, bool dark);
// What is available may have changed (the menus were refreshed).
void RefreshToolbar(HWND bar);

}  // namespace tavora
