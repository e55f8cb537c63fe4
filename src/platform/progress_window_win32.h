#pragma once
// A long operation with a progress bar and Cancel: the work runs on a
// worker thread while a small modal window over the owner shows how far it
// got. Quick work finishes before the window appears. Windows only.
#include <windows.h>

#include <functional>
#include <string>

#include "base/progress.h"

namespace tavora {

// Runs `work` on a worker with `progress` installed for it (operations read
// CurrentProgress()), and returns once it has ended. The window, titled
// `title`, appears only when the work takes longer than a moment; Cancel
// (or Esc, or closing it) cancels the progress and waits for the work to
// stop. The owner is disabled meanwhile. True unless cancelled.
bool RunWithProgress(HWND owner, const std::wstring& title, const std::function<void()>& work);

}  // namespace tavora
