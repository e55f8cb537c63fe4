#include "auxiliary/slideshow.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace tavora {

SlideshowSettings LoadSlideshowSettings(const SettingsStore& settings) {
  SlideshowSettings s;
  s.seconds = std::clamp(settings.GetInt(u"Slideshow", u"Seconds", 10), 1, 3600);
  s.startOnFirst = settings.GetInt(u"Slideshow", u"StartOnFirst", 0) == 1;
  s.transition = static_cast<SlideTransition>(std::clamp(settings.GetInt(u"Slideshow", u"Transition", 0), 0, 2));
  return s;
}

void SaveSlideshowSettings(SettingsStore& settings, const SlideshowSettings& s) {
  auto text = [](int32_t v) {
    const std::string t = std::to_string(v);
    return std::u16string(t.begin(), t.end());
  };
  const std::pair<std::u16string, std::u16string> values[] = {
      {u"Seconds", text(std::clamp(s.seconds, 1, 3600))},
      {u"StartOnFirst", s.startOnFirst ? u"1" : u"0"},
      {u"Transition", text(static_cast<int32_t>(s.transition))}};
  settings.SetStrings(u"Slideshow", values);
}

Rect FullScreenPlacement(int32_t imageW, int32_t imageH, int32_t monitorW, int32_t monitorH) {
  if (imageW < 1 || imageH < 1 || monitorW < 1 || monitorH < 1) return {};
  const double k = std::min(double(monitorW) / imageW, double(monitorH) / imageH);
  const int32_t w = std::clamp(static_cast<int32_t>(std::lround(imageW * k)), 1, monitorW);
  const int32_t h = std::clamp(static_cast<int32_t>(std::lround(imageH * k)), 1, monitorH);
  const int32_t x = (monitorW - w) / 2, y = (monitorH - h) / 2;
  return {x, y, x + w, y + h};
}

int32_t SlideOffset(int32_t width, double u) {
  u = std::clamp(u, 0.0, 1.0);
  return static_cast<int32_t>(std::lround(width * (1 - u * u * (3 - 2 * u))));
}

int32_t FadeBrightness(double u, bool newImage) {
  u = std::clamp(u, 0.0, 1.0);
  const double b = newImage ? (2 * u - 1) * 255 : (1 - 2 * u) * 255;
  return std::clamp(static_cast<int32_t>(std::lround(b)), 0, 255);
}

int32_t StepTab(int32_t current, int32_t direction, int32_t count) {
  if (count <= 0) return -1;
  return ((current + direction) % count + count) % count;
}

}  // namespace tavora
