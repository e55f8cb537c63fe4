#pragma once
// The tool options bar "KZOptions": the current tool's title, its options
// as number boxes, lists and check boxes, and its hint. Windows only.
#include <windows.h>

#include "tools/tool_table.h"

namespace tavora {

void RegisterOptionsBarClass(HINSTANCE instance);
// `changed` runs after the user changed a value of tools->Current().
HWND CreateOptionsBar(HWND parent, HINSTANCE instance, ToolSettings* tools, void (*changed)());
int OptionsBarHeight(UINT dpi);
void SetOptionsBarTheme(HWND bar, bool dark);
// The Crop and layer transform tools' "Apply" and "Cancel" buttons call
// `finish` with true for Apply.
void SetOptionsBarFinish(void (*finish)(bool apply));
// Rebuilds the controls for the current tool (after a tool change).
void RebuildOptionsBar(HWND bar);

}  // namespace tavora
