#pragma once
// Screen capture's arithmetic: the dimmed picture the region overlay shows,
// the dragged rectangle and its label, the wait before the shot, and the
// names of the shots.
#include <cstdint>
#include <string>

#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

enum class CaptureKind : int32_t { FullScreen = 0, Region = 1, ForegroundWindow = 2 };

// Each colour channel at 40 % (c x 40 / 100), alpha 255.
Surface DimmedCopy(const Surface& screen);
// The rectangle between two corners, clipped to the shot; empty when the
// drag had no area.
Rect CaptureRegion(int32_t x0, int32_t y0, int32_t x1, int32_t y1, int32_t shotW, int32_t shotH);
// The region's pixels made opaque.
Surface CropOpaque(const Surface& shot, const Rect& region);
// The wait after minimising: the delay (never negative) plus 450 ms.
int32_t CaptureWaitMs(int32_t delayMs);
// "Capture-%d", the counter raised first: the first shot is Capture-1.
std::u16string NextCaptureName();
// The size label beside the dragged rectangle: "%d × %d".
std::u16string CaptureSizeLabel(const Rect& region);

}  // namespace tavora
