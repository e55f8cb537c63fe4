#pragma once
// The History panel "KZHistory": the document's states, the current one
// marked, a click jumps there by repeated Undo or Redo. The rows scroll
// (scroll bar and wheel) and the current one is kept in view. Windows only.
#include <windows.h>

#include "document/document.h"

namespace tavora {

void RegisterHistoryPanelClass(HINSTANCE instance);
HWND CreateHistoryPanel(HWND parent, HINSTANCE instance);
void SetHistoryPanelDocument(HWND panel, const Document* doc);
void SetHistoryPanelTheme(HWND panel, bool dark);
// Redraws after the history changed, with the current row scrolled into view.
void RefreshHistoryPanel(HWND panel);
// The panel's width at a dpi.
int HistoryPanelWidth(UINT dpi);

}  // namespace tavora
