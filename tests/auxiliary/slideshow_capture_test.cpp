#include <gtest/gtest.h>

#include "auxiliary/capture.h"
#include "auxiliary/slideshow.h"
#include "temp_dir.h"

namespace tavora {
namespace {

TEST(Slideshow, SettingsPlacementTransitionsAndSteps) {
  testing_support::TempDir dir;
  SettingsStore settings;
  settings.Open(dir.path());
  settings.SetString(u"Slideshow", u"Seconds", u"0");
  settings.SetString(u"Slideshow", u"Transition", u"9");
  EXPECT_EQ(LoadSlideshowSettings(settings).seconds, 1);
  EXPECT_EQ(LoadSlideshowSettings(settings).transition, SlideTransition::Fade);
  settings.SetString(u"Slideshow", u"Seconds", u"5000");
  EXPECT_EQ(LoadSlideshowSettings(settings).seconds, 3600);
  SaveSlideshowSettings(settings, {42, true, SlideTransition::Slide});
  const SlideshowSettings back = LoadSlideshowSettings(settings);
  EXPECT_EQ(back.seconds, 42);
  EXPECT_TRUE(back.startOnFirst);
  EXPECT_EQ(back.transition, SlideTransition::Slide);

  EXPECT_EQ(FullScreenPlacement(100, 50, 1920, 1080), (Rect{0, 60, 1920, 1020}));  // enlarged, 60 rows each side
  EXPECT_EQ(FullScreenPlacement(4000, 1000, 1920, 1080), (Rect{0, 300, 1920, 780}));
  EXPECT_EQ(FullScreenPlacement(1, 100000, 1920, 1080), (Rect{959, 0, 960, 1080}));  // never below one pixel
  EXPECT_EQ(SlideOffset(1000, 0), 1000);
  EXPECT_EQ(SlideOffset(1000, 0.5), 500);
  EXPECT_EQ(SlideOffset(1000, 1), 0);
  EXPECT_EQ(FadeBrightness(0.25, false), 128);
  EXPECT_EQ(FadeBrightness(0.25, true), 0);
  EXPECT_EQ(FadeBrightness(1, true), 255);
  EXPECT_EQ(StepTab(2, 1, 3), 0);
  EXPECT_EQ(StepTab(0, -1, 3), 2);
}

TEST(Capture, DimmingRegionsCursorWaitAndNames) {
  Surface shot(4, 3);
  shot.Fill(0x00FF8040);
  EXPECT_EQ(DimmedCopy(shot).At(3, 2), 0xFF663319u);  // 255, 128, 64 at 40 %
  EXPECT_EQ(CaptureRegion(3, 2, 1, 0, 4, 3), (Rect{1, 0, 3, 2}));
  EXPECT_EQ(CaptureRegion(-5, -5, 10, 10, 4, 3), (Rect{0, 0, 4, 3}));
  EXPECT_TRUE(CaptureRegion(2, 1, 2, 3, 4, 3).Empty());
  const Surface part = CropOpaque(shot, {1, 1, 3, 3});
  EXPECT_EQ(part.Width(), 2);
  EXPECT_EQ(part.At(1, 1), 0xFFFF8040u);
  EXPECT_EQ(CaptureWaitMs(0), 450);
  EXPECT_EQ(CaptureWaitMs(-100), 450);
  EXPECT_EQ(CaptureWaitMs(2000), 2450);
  EXPECT_EQ(CaptureSizeLabel({0, 0, 10, 20}), u"10 \u00D7 20");
  const std::u16string a = NextCaptureName(), b = NextCaptureName();
  EXPECT_EQ(a.substr(0, 8), u"Capture-");
  EXPECT_EQ(std::stoi(std::string(b.begin() + 8, b.end())), std::stoi(std::string(a.begin() + 8, a.end())) + 1);
}

}  // namespace
}  // namespace tavora
