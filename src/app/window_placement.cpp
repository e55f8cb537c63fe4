#include "app/window_placement.h"

#include <cmath>

namespace tavora {

WindowPlacement LoadWindowPlacement(const SettingsStore& settings, double scale) {
  WindowPlacement p;
  p.width = static_cast<int32_t>(std::lround(1360 * scale));
  p.height = static_cast<int32_t>(std::lround(860 * scale));
  p.maximized = settings.GetInt(u"Window", u"Max", 0) == 1;
  const int32_t x = settings.GetInt(u"Window", u"X", kNoStoredX);
  if (x == kNoStoredX) return p;
  const int32_t y = settings.GetInt(u"Window", u"Y", 0);
  const int32_t w = settings.GetInt(u"Window", u"W", p.width);
  const int32_t h = settings.GetInt(u"Window", u"H", p.height);
  if (w <= 400 || h < 301) return p;
  p.hasPosition = true;
  p.x = x;
  p.y = y;
  p.width = w;
  p.height = h;
  return p;
}

void SaveWindowPlacement(SettingsStore& settings, const WindowPlacement& p) {
  settings.SetInt(u"Window", u"X", p.x);
  settings.SetInt(u"Window", u"Y", p.y);
  settings.SetInt(u"Window", u"W", p.width);
  settings.SetInt(u"Window", u"H", p.height);
  settings.SetInt(u"Window", u"Max", p.maximized ? 1 : 0);
}

}  // namespace tavora
