#pragma once
// The full-screen view's and slideshow's arithmetic: the remembered
// settings, the size an image is shown at on a monitor, the transitions'
// easing, and stepping between tabs.
#include <cstdint>

#include "base/settings_store.h"
#include "document/rect.h"

namespace tavora {

enum class SlideTransition : int32_t { None = 0, Slide = 1, Fade = 2 };

// "Slideshow": "Seconds" 1..3600 (10), "StartOnFirst" 0/1 (0),
// "Transition" 0..2 (0); values out of range are clamped.
struct SlideshowSettings {
  int32_t seconds = 10;
  bool startOnFirst = false;
  SlideTransition transition = SlideTransition::None;
};
SlideshowSettings LoadSlideshowSettings(const SettingsStore& settings);
void SaveSlideshowSettings(SettingsStore& settings, const SlideshowSettings& s);

// The image scaled by min(monitor / image) on both axes (enlarged too),
// rounded, at least 1, at most the monitor; centred by integer halves.
Rect FullScreenPlacement(int32_t imageW, int32_t imageH, int32_t monitorW, int32_t monitorH);

// Transition timings and shapes, u the progress 0..1.
inline constexpr int32_t kSlideMs = 600, kFadeMs = 1000;
// Slide: the new image's offset from its place, width x (1 - smoothstep(u)).
int32_t SlideOffset(int32_t width, double u);
// Fade through black: the old image's brightness falls over the first half,
// the new one's rises over the second; 0..255.
int32_t FadeBrightness(double u, bool newImage);

// The next or previous tab, wrapping around at both ends.
int32_t StepTab(int32_t current, int32_t direction, int32_t count);

}  // namespace tavora
