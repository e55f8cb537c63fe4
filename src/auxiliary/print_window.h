#pragma once
// "KZPrint": File > Print. The sheet with the picture on it beside the
// choices (printer, page setup, orientation, fit or scale, position,
// margins, copies, print to a file); Print sends the flattened picture to
// the system's spooler in bands at the printer's resolution.
#include <windows.h>

#include "document/document.h"

namespace tavora {

// Modal over `owner` until closed or printed; the choices are remembered.
void RunPrintWindow(HWND owner, Document& doc);

}  // namespace tavora
