#pragma once
// The Text tool's dialog: the text in a multi-line box, the font family
// (from the system's list), its size, Bold, Italic and Underline, the
// colour, OK and Cancel; the caller previews the text as it is typed.
#include <windows.h>

#include "tools/text_layers.h"

namespace tavora {

// Called a moment after the values on screen change, when they are whole
// and valid (the text may be empty); with null when the dialog ends, so
// the caller can take its preview away.
using TextPreviewCallback = void (*)(const TextValues* values, void* context);

// Modal over `owner`, starting from `values`. True on OK, with `values`
// replaced by the valid values chosen (line breaks as '\n'); false on
// Cancel with `values` untouched. `preview` may be null.
bool RunTextDialog(HWND owner, TextValues& values, TextPreviewCallback preview, void* context);

// The Text tool's click: the dialog over `owner`, previewing the text on
// `canvas` at the place the click gives it until the dialog ends.
bool RunTextToolDialog(HWND owner, HWND canvas, const Document& doc, const TextClick& click,
                       TextValues& values);

}  // namespace tavora
