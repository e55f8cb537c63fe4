#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "auxiliary/capture.h"
#include "auxiliary/full_view.h"
#include "auxiliary/slideshow.h"
#include "document/blend.h"
#include "document/document.h"
#include "pixels.h"
#include "processing/processing_helpers.h"
#include "temp_dir.h"

namespace tavora {
namespace {

// A step as (tab, direction, animated); (-1, 0, false) for none.
std::tuple<int32_t, int32_t, bool> Fields(const std::optional<FullViewTimeline::Step>& s) {
  return s ? std::tuple(s->tab, s->direction, s->animated) : std::tuple(-1, 0, false);
}

// Every channel value at every brightness against the compositor's rounded
// product, on one row (unsplit) and on many rows split over four workers.
TEST(FullViewFade, EveryChannelAndBrightnessMatchesTheRoundedProduct) {
  Surface source(256, 64);
  for (int32_t y = 0; y < 64; ++y)
    for (uint32_t c = 0; c < 256; ++c)
      source.At(c, y) = (uint32_t(y) << 24) | (c << 16) | ((255 - c) << 8) | (c ^ 0x5Au);
  const testing_support::Processors split(4);
  Surface target(256, 64);
  for (uint32_t b = 0; b < 256; ++b) {
    FadeCopy(source, static_cast<int32_t>(b), target);
    for (int32_t y : {0, 37, 63})
      for (uint32_t c = 0; c < 256; ++c) {
        const uint32_t want = 0xFF000000u | (Mul(c, b) << 16) | (Mul(255 - c, b) << 8) | Mul(c ^ 0x5Au, b);
        ASSERT_EQ(target.At(c, y), want) << "channel " << c << " brightness " << b << " row " << y;
      }
  }
  Surface other(10, 10);
  other.Fill(0x12345678);
  FadeCopy(source, 255, other);  // a target of another size is left alone
  EXPECT_EQ(other.At(9, 9), 0x12345678u);
}

TEST(FullViewFit, PlacementSizeAndFlattening) {
  Surface flat(100, 50);
  flat.Fill(0xFF3080C0);
  // A flat picture stays flat, enlarged or reduced, at the size of its place.
  for (auto [w, h, place] : {std::tuple{1920, 1080, Rect{0, 60, 1920, 1020}}, {40, 40, Rect{0, 10, 40, 30}},
                             {100, 50, Rect{0, 0, 100, 50}}}) {
    const FittedPicture fit = FitPicture(flat, w, h);
    EXPECT_EQ(fit.place, place);
    Surface want(place.Width(), place.Height());
    want.Fill(0xFF3080C0);
    EXPECT_TRUE(testing_support::SamePixels(fit.pixels, want)) << w;
  }
  EXPECT_TRUE(FitPicture(Surface(), 100, 100).Empty());
  EXPECT_TRUE(FitPicture(flat, 0, 100).Empty());

  // Half-transparent red lies on black.
  auto doc = CreateDocument(4, 2, 72, 0x80FF0000, 0);
  const FittedPicture shown = FitDocument(*doc, 4, 2);
  ASSERT_FALSE(shown.Empty());
  EXPECT_EQ(shown.pixels.At(3, 1), 0xFF800000u);
}

TEST(FullViewSlide, TheIncomingPicturePushesTheOldOneOut) {
  const Rect old{0, 60, 1920, 1020}, next{460, 0, 1460, 1080};
  const struct { int32_t offset, direction; Rect outgoing, incoming; } rows[] = {
      {1920, 1, old, {2380, 0, 3380, 1080}},                 // start: the new one waits at the right
      {0, 1, {-1920, 60, 0, 1020}, next},                    // end: the old one has left to the left
      {960, 1, {-960, 60, 960, 1020}, {1420, 0, 2420, 1080}},
      {1920, -1, old, {-1460, 0, -460, 1080}},               // stepping back: from the left
      {0, -1, {1920, 60, 3840, 1020}, next},
  };
  for (const auto& r : rows) {
    const SlidePlaces p = SlideFrame(old, next, 1920, r.offset, r.direction);
    EXPECT_EQ(p.outgoing, r.outgoing) << r.offset << " " << r.direction;
    EXPECT_EQ(p.incoming, r.incoming) << r.offset << " " << r.direction;
  }
}

TEST(FullViewTimeline, KeysTimerTransitionsAndWaits) {
  // Outside a slideshow: no time-out, steps only by key and never animated.
  FullViewTimeline still(1, 3, false, 10, SlideTransition::Fade, 0);
  EXPECT_EQ(still.WaitMs(0), -1);
  EXPECT_FALSE(still.Due(100000));
  still.Request(-1);
  auto step = still.Due(5);
  ASSERT_EQ(Fields(step), std::tuple(0, -1, false));
  still.Shown(*step, 5);
  EXPECT_FALSE(still.Progress(6));
  still.Request(-1);
  EXPECT_EQ(Fields(still.Due(7)), std::tuple(2, -1, false));  // before the first is the last

  // A slideshow with a fade: due after the interval, wrapping to the first.
  FullViewTimeline show(2, 3, true, 2, SlideTransition::Fade, 0);
  EXPECT_EQ(show.WaitMs(500), 1500);
  EXPECT_FALSE(show.Due(1999));
  step = show.Due(2000);
  ASSERT_EQ(Fields(step), std::tuple(0, 1, true));
  show.Shown(*step, 2000);
  EXPECT_EQ(show.WaitMs(2100), 8);
  EXPECT_DOUBLE_EQ(*show.Progress(2500), 0.5);
  EXPECT_FALSE(show.Due(4000));  // no timed step while a transition runs
  EXPECT_DOUBLE_EQ(*show.Progress(3200), 1.0);
  EXPECT_FALSE(show.Progress(3300));
  // The next slide is due an interval after this one was fully shown.
  EXPECT_EQ(show.WaitMs(3000), 2000);
  // A key shows a tab at once and restarts the timer.
  show.Request(-1);
  step = show.Due(3500);
  ASSERT_EQ(Fields(step), std::tuple(2, -1, true));
  show.Shown(*step, 3500);
  EXPECT_DOUBLE_EQ(*show.Progress(4500), 1.0);
  EXPECT_EQ(show.WaitMs(4500), 2000);

  // One tab: nothing to step to, the timer only restarts.
  FullViewTimeline alone(0, 1, true, 1, SlideTransition::Slide, 0);
  EXPECT_FALSE(alone.Due(1000));
  EXPECT_EQ(alone.WaitMs(1000), 1000);
  // The slide transition takes its own time.
  FullViewTimeline slide(0, 2, true, 1, SlideTransition::Slide, 0);
  step = slide.Due(1000);
  ASSERT_TRUE(step);
  slide.Shown(*step, 1000);
  EXPECT_DOUBLE_EQ(*slide.Progress(1300), 0.5);
}

// ---------------------------------------------------------------- slideshow settings and screen capture

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
  EXPECT_EQ(std::tuple(back.seconds, back.startOnFirst, back.transition), std::tuple(42, true, SlideTransition::Slide));

  EXPECT_EQ(FullScreenPlacement(100, 50, 1920, 1080), (Rect{0, 60, 1920, 1020}));  // enlarged, 60 rows each side
  EXPECT_EQ(FullScreenPlacement(4000, 1000, 1920, 1080), (Rect{0, 300, 1920, 780}));
  EXPECT_EQ(FullScreenPlacement(1, 100000, 1920, 1080), (Rect{959, 0, 960, 1080}));  // never below one pixel
  EXPECT_EQ(std::tuple(SlideOffset(1000, 0), SlideOffset(1000, 0.5), SlideOffset(1000, 1)), std::tuple(1000, 500, 0));
  EXPECT_EQ(std::tuple(FadeBrightness(0.25, false), FadeBrightness(0.25, true), FadeBrightness(1, true)),
            std::tuple(128, 0, 255));
  EXPECT_EQ(std::pair(StepTab(2, 1, 3), StepTab(0, -1, 3)), std::pair(0, 2));
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
  EXPECT_EQ(std::tuple(CaptureWaitMs(0), CaptureWaitMs(-100), CaptureWaitMs(2000)), std::tuple(450, 450, 2450));
  EXPECT_EQ(CaptureSizeLabel({0, 0, 10, 20}), u"10 \u00D7 20");
  const std::u16string a = NextCaptureName(), b = NextCaptureName();
  EXPECT_EQ(a.substr(0, 8), u"Capture-");
  EXPECT_EQ(std::stoi(std::string(b.begin() + 8, b.end())), std::stoi(std::string(a.begin() + 8, a.end())) + 1);
}

}  // namespace
}  // namespace tavora
