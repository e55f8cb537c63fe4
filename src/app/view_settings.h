#pragma once
// What the shell reads from the settings at start-up.
#include <cstdint>
#include <string>

#include "base/settings_store.h"

namespace tavora {

enum class Theme : int32_t { FollowSystem = 0, Light = 1, Dark = 2 };

struct ViewSettings {
  bool smooth = true;
  bool grid = false;
  Theme theme = Theme::Dark;
  std::u16string lastDir;
};

// "View" / "Theme" is clamped to 0..2 and written back whenever the stored
// value differs, so a first start stores 2 (dark).
ViewSettings ReadViewSettings(SettingsStore& settings);

}  // namespace tavora
