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
  for (int i = 0; i < 8; ++i) {
    const std::u16string key = u"r" + std::u16string(1, char16_t(u'0' + i));
    std::u16string path = settings.GetString(u"Recent", key, u"", 260);
    if (!path.empty()) v.recent.push_back(std::move(path));
  }
  return v;
}

}  // namespace tavora
