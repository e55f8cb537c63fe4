#include <gtest/gtest.h>

#include "auxiliary/full_view.h"
#include "base/row_workers.h"
#include "document/blend.h"
#include "document/document.h"

namespace tavora {
namespace {

// Every channel value at every brightness against the compositor's rounded
// product, on one row (unsplit) and on many rows split over four workers.
TEST(FullViewFade, EveryChannelAndBrightnessMatchesTheRoundedProduct) {
  Surface source(256, 64);
  for (int32_t y = 0; y < 64; ++y)
    for (uint32_t c = 0; c < 256; ++c)
      source.At(c, y) = (uint32_t(y) << 24) | (c << 16) | ((255 - c) << 8) | (c ^ 0x5Au);
  RowWorkers::OverrideProcessorCountForTesting(4);
  Surface target(256, 64);
  for (uint32_t b = 0; b < 256; ++b) {
    FadeCopy(source, static_cast<int32_t>(b), target);
    for (int32_t y : {0, 37, 63})
      for (uint32_t c = 0; c < 256; ++c) {
        const uint32_t want = 0xFF000000u | (Mul(c, b) << 16) | (Mul(255 - c, b) << 8) | Mul(c ^ 0x5Au, b);
        ASSERT_EQ(target.At(c, y), want) << "channel " << c << " brightness " << b << " row " << y;
      }
  }
  RowWorkers::OverrideProcessorCountForTesting(0);
  Surface other(10, 10);
  other.Fill(0x12345678);
  FadeCopy(source, 255, other);  // a target of another size is left alone
  EXPECT_EQ(other.At(9, 9), 0x12345678u);
}

TEST(FullViewFit, PlacementSizeAndFlattening) {
  Surface flat(100, 50);
  flat.Fill(0xFF3080C0);
  const FittedPicture up = FitPicture(flat, 1920, 1080);
  EXPECT_EQ(up.place, (Rect{0, 60, 1920, 1020}));
  ASSERT_EQ(up.pixels.Width(), 1920);
  ASSERT_EQ(up.pixels.Height(), 960);
  EXPECT_EQ(up.pixels.At(0, 0), 0xFF3080C0u);  // a flat picture stays flat, enlarged or reduced
  const FittedPicture down = FitPicture(flat, 40, 40);
  EXPECT_EQ(down.place, (Rect{0, 10, 40, 30}));
  EXPECT_EQ(down.pixels.At(39, 19), 0xFF3080C0u);
  const FittedPicture same = FitPicture(flat, 100, 50);
  EXPECT_EQ(same.place, (Rect{0, 0, 100, 50}));
  EXPECT_EQ(same.pixels.Width(), 100);
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
  const struct {
    int32_t offset, direction;
    Rect outgoing, incoming;
  } rows[] = {
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
  ASSERT_TRUE(step);
  EXPECT_EQ(step->tab, 0);
  EXPECT_FALSE(step->animated);
  still.Shown(*step, 5);
  EXPECT_FALSE(still.Progress(6));
  still.Request(-1);
  EXPECT_EQ(still.Due(7)->tab, 2);  // before the first is the last

  // A slideshow with a fade: due after the interval, wrapping to the first.
  FullViewTimeline show(2, 3, true, 2, SlideTransition::Fade, 0);
  EXPECT_EQ(show.WaitMs(500), 1500);
  EXPECT_FALSE(show.Due(1999));
  step = show.Due(2000);
  ASSERT_TRUE(step);
  EXPECT_EQ(step->tab, 0);
  EXPECT_TRUE(step->animated);
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
  ASSERT_TRUE(step);
  EXPECT_EQ(step->tab, 2);
  EXPECT_EQ(step->direction, -1);
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

}  // namespace
}  // namespace tavora
