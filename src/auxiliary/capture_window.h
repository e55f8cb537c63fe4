#pragma once
// Screen capture: the whole virtual screen, the foreground window, or a
// region dragged on the "KZCapture" overlay (a frozen, dimmed picture of
// the screen). Windows only.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "auxiliary/capture.h"
#include "document/document.h"

namespace tavora {

struct CaptureRequest {
  CaptureKind kind = CaptureKind::FullScreen;
  int32_t delayMs = 0;
  bool includeCursor = false;
};

// "Screen Capture": what to capture, the delay and the cursor, remembered
// in "Dlg Screen Capture". Nothing when cancelled.
std::optional<CaptureRequest> AskCaptureRequest(HWND owner);

// The whole capture. `main` is minimised first and, whatever happens,
// restored and brought to the front before this returns. The shot is a new
// modified document named "Capture-%d" at 96 dpi, for the caller to open in
// a tab; null when the screen has no size or the region was cancelled or
// empty.
[[nodiscard]] std::unique_ptr<Document> CaptureScreen(HWND main, CaptureKind kind, int32_t delayMs,
                                                      bool includeCursor);

}  // namespace tavora
