#pragma once
// The Windows shell: start-up, the main window, command routing and
// shut-down. Only the Windows build has it.
#include <windows.h>

namespace tavora {

// Runs the program from start-up to shut-down; returns the exit code.
int RunTavora(HINSTANCE instance, int showFlag);

// The splash window "TavoraSplash".
HWND ShowSplash(HINSTANCE instance);

}  // namespace tavora
