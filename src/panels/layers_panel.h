#pragma once
// The Layers panel "KZLayers": one row per layer, top layer first, with a
// thumbnail, the name, a visibility eye and an effects ("fx") switch; the
// active layer's opacity and blend mode; buttons for new, duplicate and
// delete. Windows only.
#include <windows.h>

#include "document/document.h"

namespace tavora {

void RegisterLayersPanelClass(HINSTANCE instance);
HWND CreateLayersPanel(HWND parent, HINSTANCE instance);
void SetLayersPanelDocument(HWND panel, Document* doc);
void SetLayersPanelTheme(HWND panel, bool dark);
// Redraws the rows and the active layer's controls.
void RefreshLayersPanel(HWND panel);

}  // namespace tavora
