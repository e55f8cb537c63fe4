#include "app/view_settings.h"

#include <algorithm>
#include <climits>

namespace tavora {

ViewSettings ReadViewSettings(SettingsStore& settings) {
  ViewSettings v;
  v.smooth = settings.GetInt(u"View", u"Smooth", 1) != 0;
  v.grid = settings.GetInt(u"View", u"Grid", 0) != 0;
  const int32_t stored = settings.GetInt(u"View", u"Theme", INT32_MIN);
  const int32_t theme = stored == INT32_MIN ? 2 : std::clamp(stored, 0, 2);
  if (theme != stored) settings.SetInt(u"View", u"Theme", theme);
  v.theme = static_cast<Theme>(theme);
  v.lastDir = settings.GetString(u"Paths", u"LastDir", u"", 260);
  return v;
}

}  // namespace tavora
