#pragma once
// "Batch Conversion": converts the pictures of a folder into another format
// on worker threads while the dialog stays responsive. It works on files
// only and never touches the open documents.
#include <windows.h>

namespace tavora {

// Modal over `owner` (which may be null) until closed; a run in progress
// is stopped after the files in hand before the dialog goes.
void RunBatchDialog(HWND owner);

}  // namespace tavora
