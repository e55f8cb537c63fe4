#include "processing/effect_preview.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "document/history.h"
#include "pixels.h"
#include "processing/adjustments.h"
#include "processing/lens_flare.h"
#include "processing/processing_helpers.h"

namespace tavora {
namespace {

using testing_support::Painted;
using testing_support::Px;
using testing_support::SamePixels;

// Noise with varied alpha and a selection of partial coverage near the
// left edge, so that margins are clipped and coverage blends.
std::unique_ptr<Document> Picture(int32_t w, int32_t h) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  std::mt19937 rng(7);
  doc->layers[0].pixels =
      Painted(w, h, [&](int32_t x, int32_t) { return rng() | (x % 5 ? 0xFF000000u : 0x80000000u); });
  doc->selection = SelectionMask(w, h);
  for (int32_t y = 4; y < h - 6; ++y)
    for (int32_t x = 0; x < w / 2; ++x) doc->selection->At(x, y) = uint8_t(x * 37 % 256);
  doc->selectionBounds = {0, 4, w / 2, h - 6};
  return doc;
}

EffectResult RunToEnd(const EffectPreviewSession& session, const EffectValues& v, double scale) {
  auto result = session.Start(v, scale, nullptr)->Take();
  EXPECT_TRUE(result);
  return std::move(*result);
}

TEST(EffectPreviewSession, CancelPutsTheLayerBackBitForBitAndOkRecordsWhatApplyToSelectionDoes) {
  std::vector<const EffectDef*> defs{&LensFlareEffect()};
  for (const EffectDef& def : EffectDefs()) defs.push_back(&def);
  for (const EffectDef* def : defs) {
    SCOPED_TRACE(std::string(def->shortName.begin(), def->shortName.end()));
    auto doc = Picture(48, 40), twin = Picture(48, 40);
    const Surface original = doc->layers[0].pixels;
    EffectValues v = def == &LensFlareEffect() ? LensFlareDefaultValues(24, 30) : DefaultValues(*def);

    EffectPreviewSession session(*doc, *def);
    ASSERT_TRUE(session.Valid());
    EXPECT_EQ(session.Target(), (Rect{0, 4, 24, 34}));
    session.Show(RunToEnd(session, v, 1));
    session.Restore();
    EXPECT_TRUE(SamePixels(doc->layers[0].pixels, original));
    EXPECT_TRUE(doc->history.states.empty());

    // OK after a preview with other values: one step, the pixels ApplyToSelection gives.
    session.Show(RunToEnd(session, v, 1));
    if (def->margin == MarginKind::FromFirstValue) v.rows[0] = def->rows[0].maximum / 2;
    session.Commit(RunToEnd(session, v, 1));
    alignas(8) unsigned char block[64] = {};
    def->packer(v, block);
    ApplyToSelection(*twin, def->historyName, def->operation, block,
                     EffectDialogMargin(*def, v.rows.empty() ? 0 : v.rows[0]));
    EXPECT_TRUE(SamePixels(doc->layers[0].pixels, twin->layers[0].pixels));
    ASSERT_EQ(doc->history.states.size(), twin->history.states.size());
    EXPECT_EQ(UndoLabel(*doc), def->historyName);
    if (!doc->history.states.empty()) {
      Undo(*doc);
      EXPECT_TRUE(SamePixels(doc->layers[0].pixels, original));
    }
  }
}

TEST(EffectJob, ACancelledJobEndsOnceAndGivesNothing) {
  const EffectDef& lens = *FindEffect(u"lens-blur");
  auto doc = CreateDocument(600, 400, 72, 0xFF336699, 0);
  EffectPreviewSession session(*doc, lens);
  std::atomic<int> ends{0};
  // Stopped while it works: Lens Blur watches its progress.
  auto job = session.Start({{60, 20}}, 1, [&] { ++ends; });
  job->Cancel();
  EXPECT_FALSE(job->Take());
  EXPECT_TRUE(job->Ended());
  // Cancelled after it ran to its end: still thrown away.
  auto late = session.Start({{2, 0}}, 1, [&] { ++ends; });
  while (!late->Ended()) std::this_thread::yield();
  late->Cancel();
  EXPECT_FALSE(late->Take());
  // Dropped while it runs: the destructor stops it and waits.
  session.Start({{60, 20}}, 1, [&] { ++ends; }).reset();
  EXPECT_EQ(ends.load(), 3);
}

TEST(EffectPreview, LargeNeighbourhoodFiltersPreviewReducedAsFineAsTheCanvasShows) {
  const EffectDef& gauss = *FindEffect(u"gaussian-blur");
  EXPECT_DOUBLE_EQ(PreviewScale(gauss, 4096, 2048, 0.5), 0.5);
  EXPECT_NEAR(PreviewScale(gauss, 4096, 2048, 0.1), 0.35355, 1e-5);  // never below about a megapixel
  EXPECT_EQ(PreviewScale(gauss, 4096, 2048, 0.9), 1);                // nearly full size: exact
  EXPECT_EQ(PreviewScale(gauss, 1000, 1000, 0.1), 1);                // small areas are exact
  EXPECT_EQ(PreviewScale(*FindEffect(u"brightness-contrast"), 8000, 8000, 0.1), 1);
  EXPECT_EQ(PreviewScale(LensFlareEffect(), 8000, 8000, 0.1), 1);    // its centre is in pixels
  EXPECT_DOUBLE_EQ(ReducedValues(gauss, {{8}}, 0.25).rows[0], 2);
  EXPECT_DOUBLE_EQ(ReducedValues(*FindEffect(u"gamma"), {{2, 0, 0, 0}}, 0.25).rows[0], 2);
}

TEST(EffectPreview, AReducedPreviewKeepsARampAndLendsNoColourFromTransparentPixels) {
  const EffectDef& bc = *FindEffect(u"brightness-contrast");  // with 0, 0: the pixels as they are
  auto doc = CreateDocument(96, 64, 72, 0, 0);
  Surface& s = doc->layers[0].pixels;
  s = Painted(96, 64, [](int32_t x, int32_t y) {
    return y < 32 ? Px(255, uint32_t(x * 2), 40, 200) : (x + y) % 2 ? Px(255, 255, 0, 0) : 0;
  });
  const Surface original = s;
  EffectPreviewSession session(*doc, bc);
  const EffectResult half = RunToEnd(session, {{0, 0}}, 0.5);
  EXPECT_EQ(std::pair(half.width, half.height), std::pair(48, 32));
  session.Show(half);
  for (int32_t x = 0; x < 96; ++x) {
    const uint32_t p = s.At(x, 10);
    EXPECT_NEAR(int(p >> 16 & 255), x * 2, 2) << x;
    EXPECT_EQ(p & 0xFF00FFFFu, Px(255, 0, 40, 200)) << x;
    EXPECT_EQ(s.At(x, 50), Px(128, 255, 0, 0)) << x;  // half covered, still pure red
  }
  session.Restore();
  EXPECT_TRUE(SamePixels(s, original));
}

TEST(EffectPreview, ThumbnailClicksLandOnTheMarkedPixel) {
  EXPECT_EQ(std::pair(FitThumbnail(4000, 3000, 240).height, FitThumbnail(100, 400, 240).width), std::pair(180, 60));
  for (int32_t area : {4000, 241, 37}) {
    SCOPED_TRACE(area);
    // A click maps to an area pixel whose cross sits in the clicked thumbnail pixel.
    for (int32_t p = 0; p < 240; ++p) {
      const int32_t a = ThumbnailToArea(p, 240, area);
      const int32_t back = int32_t(AreaToThumbnail(a, area, 240));
      if (area >= 240) EXPECT_EQ(back, p);
      else EXPECT_EQ(ThumbnailToArea(back, 240, area), a);
    }
    EXPECT_EQ(std::pair(ThumbnailToArea(-20, 240, area), ThumbnailToArea(900, 240, area)), std::pair(0, area - 1));
  }
  // Opaque pixels as they are; transparent ones show the checkerboard.
  const Surface layer = Painted(40, 20, [](int32_t x, int32_t) { return x < 20 ? 0 : Px(255, 10, 20, 30); });
  std::vector<uint32_t> out(16 * 8);
  RenderThumbnail(layer, {0, 0, 40, 20}, 16, 8, out.data());
  EXPECT_EQ(std::pair(out[0], out[15]), std::pair(0xFFFFFFu, 0x0A141Eu));
}

}  // namespace
}  // namespace tavora
