#pragma once
// The toolbox "KZToolbox": a button per tool and the two colour boxes with
// swap and reset. Windows only.
#include <windows.h>

#include "tools/tool_table.h"

namespace tavora {

struct ToolboxEvents {
  void (*toolChosen)(int32_t id) = nullptr;
  void (*colorsChanged)() = nullptr;
};

void RegisterToolboxClass(HINSTANCE instance);
// The toolbox shows and edits `tools`, which must outlive it.
HWND CreateToolbox(HWND parent, HINSTANCE instance, ToolSettings* tools,
                   const ToolboxEvents& events);
// The width the toolbox needs at a height.
int ToolboxWidth(UINT dpi, int height);
void SetToolboxTheme(HWND toolbox, bool dark);
// Redraws after the tool or the colours changed elsewhere.
void RefreshToolbox(HWND toolbox);
// Opens the system colour chooser for the left (0) or right (1) box.
bool ChooseBoxColor(HWND owner, ToolSettings& tools, int32_t box);

}  // namespace tavora
