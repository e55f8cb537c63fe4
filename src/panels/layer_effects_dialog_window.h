#pragma once
// "Properties and Effects": a layer's name, opacity, blend mode and
// visibility, the fx switch, and one page for each of its eight effects
// (the list at the left switches them on and off and picks the page).
// Every change shows on the canvas at once; OK is one "Layer Properties"
// step and remembers the effect values as the defaults of new layers;
// Cancel puts everything back.
#include <windows.h>

#include <cstdint>

#include "document/document.h"

namespace tavora {

// Modal over `owner`. After each change the dialog has shown (the layer
// changed and the document invalidated), redraw(context) is called for the
// caller to repaint the canvas; it may be null. `page` is the effect page
// to open at (0..7 in the order of the layer's record), or -1 for the
// first effect that is on. True when OK recorded a history step.
bool RunLayerEffectsDialog(HWND owner, Document& doc, int32_t layerIndex, void (*redraw)(void*), void* context,
                           int32_t page = -1);

}  // namespace tavora
