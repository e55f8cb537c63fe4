#pragma once
// The dialogs of the Image and Layers menus' size and turn commands, and
// Color Depth: each asks, checks and then runs the command, which records
// its own history step. True when the command ran. Windows only.
#include <windows.h>

#include <cstdint>

#include "document/document.h"

namespace tavora {

bool RunResizeImageDialog(HWND owner, Document& doc);
// The new-area colour starts at `background` (the secondary colour).
bool RunCanvasSizeDialog(HWND owner, Document& doc, uint32_t background);
bool RunFreeRotateDialog(HWND owner, Document& doc);
// "Free Rotate Layer (clockwise)" through the single-value prompt.
bool RunFreeRotateLayerPrompt(HWND owner, Document& doc);
// Nothing opens when the active layer cannot be resized.
bool RunResizeLayerDialog(HWND owner, Document& doc);
bool RunColorDepthDialog(HWND owner, Document& doc);

}  // namespace tavora
