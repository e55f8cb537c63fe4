#pragma once
// The main window's remembered rectangle ("Window" / "X", "Y", "W", "H",
// "Max") and the rules for using it.
#include <cstdint>

#include "base/settings_store.h"

namespace tavora {

struct WindowPlacement {
  bool hasPosition = false;  // a usable stored rectangle (still to be checked against the monitors)
  int32_t x = 0, y = 0, width = 0, height = 0;
  bool maximized = false;
};

inline constexpr int32_t kNoStoredX = 2147483647;

// The stored placement, or the default size (1360 x 860 scaled by dpi / 96)
// without a position when nothing usable is stored: a stored rectangle must
// be wider than 400 and at least 301 high.
WindowPlacement LoadWindowPlacement(const SettingsStore& settings, double scale);
void SaveWindowPlacement(SettingsStore& settings, const WindowPlacement& placement);

}  // namespace tavora
