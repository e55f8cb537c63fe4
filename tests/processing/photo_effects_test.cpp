#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "base/progress.h"
#include "base/row_workers.h"
#include "document/history.h"
#include "pixels.h"
#include "processing/effect_dialogs.h"
#include "processing/hdr_tone_map.h"
#include "processing/inpaint.h"
#include "processing/lens_flare.h"
#include "processing/whiten_area.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::Grey;
using testing_support::Px;

int Channel(uint32_t p, int c) { return int((p >> (8 * c)) & 255); }
int Lum(uint32_t p) { return int(Luminance(Channel(p, 2), Channel(p, 1), Channel(p, 0))); }

// The largest difference of any colour channel between two pictures.
int LargestDifference(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
  int most = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (int c = 0; c < 3; ++c) most = std::max(most, std::abs(Channel(a[i], c) - Channel(b[i], c)));
  return most;
}

// Paper: a light ground with a little grain.
std::vector<uint32_t> Paper(int32_t w, int32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint32_t> px(std::size_t(w) * h);
  for (uint32_t& p : px) {
    const uint32_t v = 228 + rng() % 7;
    p = Px(255, v, v - 4, v - 12);
  }
  return px;
}

// ---------------------------------------------------------------- Whiten Area

TEST(WhitenArea, LeavesAWhiteAreaAloneAndLiftsADarkStroke) {
  constexpr int32_t w = 120, h = 90;
  const std::vector<uint32_t> paper = Paper(w, h, 3);
  std::vector<uint32_t> px = paper;
  WhitenAreaParams p;
  WhitenArea(px.data(), w, h, &p);
  EXPECT_EQ(px, paper);  // nothing darker than the ground: not one pixel changes

  // A pen stroke, 4 pixels wide with a softer pixel on each side, across the sheet.
  auto onStroke = [](int32_t x, int32_t y) { return std::abs(y - 45 - (x - 60) / 4); };
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const int d = onStroke(x, y);
      if (d <= 2) px[std::size_t(y) * w + x] = Px(255, 30, 30, 60);
      else if (d == 3) px[std::size_t(y) * w + x] = Px(255, 130, 128, 150);
    }
  WhitenArea(px.data(), w, h, &p);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const std::size_t i = std::size_t(y) * w + x;
      if (onStroke(x, y) <= 3) {
        EXPECT_NEAR(Lum(px[i]), Lum(paper[i]), 8) << x << "," << y;        // the ground's colour again
        EXPECT_GT(Channel(px[i], 2), Channel(px[i], 0)) << x << "," << y;  // with its warm tint
      } else if (onStroke(x, y) > 3 + 2 * p.feather + 2) {
        EXPECT_EQ(px[i], paper[i]) << x << "," << y;  // beyond the feather
      }
    }
}

TEST(WhitenArea, FillBrightnessSaturationAndTintShapeTheFill) {
  constexpr int32_t w = 80, h = 60;
  std::vector<uint32_t> ground(std::size_t(w) * h, Px(255, 220, 200, 150));  // a yellowish wall
  for (int32_t y = 28; y < 32; ++y)
    for (int32_t x = 10; x < 70; ++x)
      ground[std::size_t(y) * w + x] = Px(200, 40, 40, 40);  // translucent mark
  struct Case {
    WhitenAreaParams params;
    uint32_t want;  // at the mark's centre, alpha kept
  };
  WhitenAreaParams lifted, grey, blue;
  lifted.fillBrightness = 100;
  grey.fillSaturation = 0;
  blue.tintHue = 240;
  blue.tintIntensity = 100;
  for (const Case& c : {Case{WhitenAreaParams{}, Px(200, 220, 200, 150)},
                        Case{lifted, Px(200, 255, 255, 255)}, Case{grey, Px(200, 200, 200, 200)}}) {
    std::vector<uint32_t> px = ground;
    WhitenArea(px.data(), w, h, &c.params);
    EXPECT_EQ(px[std::size_t(30) * w + 40], c.want) << std::hex << c.want;
  }
  std::vector<uint32_t> px = ground;
  WhitenArea(px.data(), w, h, &blue);
  const uint32_t tinted = px[std::size_t(30) * w + 40];
  EXPECT_GT(Channel(tinted, 0), Channel(tinted, 1));
  EXPECT_GT(Channel(tinted, 0), Channel(tinted, 2));
}

TEST(WhitenArea, NegativeDetectionFillsTheWholeAreaFromItsLightPixels) {
  // Teeth: a light, uneven area; below zero every pixel takes the fill.
  constexpr int32_t w = 64, h = 40;
  std::vector<uint32_t> px(std::size_t(w) * h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x)
      px[std::size_t(y) * w + x] = Px(255, 230 - x % 9, 215 - x % 9, 170 - y % 5);
  WhitenAreaParams p;
  p.detection = -30;
  p.fillBrightness = 50;
  p.feather = 0;
  WhitenArea(px.data(), w, h, &p);
  for (uint32_t v : px) {
    EXPECT_GE(Channel(v, 2), 240);
    EXPECT_GE(Channel(v, 0), 210);
  }
}

// ---------------------------------------------------------------- HDR Tone Map

TEST(HdrToneMap, NeutralSettingsKeepThePictureWhetherSplitOrNot) {
  constexpr int32_t w = 90, h = 70;
  std::mt19937 rng(11);
  std::vector<uint32_t> source(std::size_t(w) * h);
  for (uint32_t& p : source) p = 0xFF000000u | (rng() & 0xFFFFFF);
  const HdrToneMapParams neutral{0, 1, 1, 1, 1, 12};
  std::vector<uint32_t> px = source;
  HdrToneMap(px.data(), w, h, &neutral);
  EXPECT_LE(LargestDifference(px, source), 1);

  // The default look, once on one thread and once split four ways: each
  // worker owns whole grid rows, so the sums are taken in the same order.
  const HdrToneMapParams look{0, 0.55f, 1.5f, 1, 1, 4};
  std::vector<uint32_t> whole = source, split = source;
  RowWorkers::OverrideProcessorCountForTesting(1);
  HdrToneMap(whole.data(), w, h, &look);
  RowWorkers::OverrideProcessorCountForTesting(4);
  HdrToneMap(split.data(), w, h, &look);
  RowWorkers::OverrideProcessorCountForTesting(0);
  EXPECT_EQ(whole, split);
  EXPECT_GT(LargestDifference(whole, source), 10);  // and it does change the picture
}

TEST(HdrToneMap, StrongStepsGetNoHaloAndShadowsOpen) {
  constexpr int32_t w = 240, h = 40;
  struct Step {
    int left, right;
  };
  for (const Step s : {Step{30, 220}, Step{220, 30}, Step{8, 250}, Step{60, 200}}) {
    std::vector<uint32_t> px(std::size_t(w) * h);
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) px[std::size_t(y) * w + x] = Grey(x < w / 2 ? s.left : s.right);
    const HdrToneMapParams p;  // compression 0.55, detail 1.5
    HdrToneMap(px.data(), w, h, &p);
    const int32_t y = h / 2;
    const int farLeft = Channel(px[std::size_t(y) * w + 2], 0),
              farRight = Channel(px[std::size_t(y) * w + w - 3], 0);
    for (int32_t x = 0; x < w; ++x) {
      const int v = Channel(px[std::size_t(y) * w + x], 0);
      // Each side stays at its own level right up to the edge: no bright or dark rim.
      const int level = x < w / 2 ? farLeft : farRight;
      EXPECT_NEAR(v, level, 1) << s.left << "->" << s.right << " at " << x;
    }
    // The dark side is lifted, the light side keeps its level.
    const int dark = std::min(s.left, s.right), light = std::max(s.left, s.right);
    EXPECT_GT(std::min(farLeft, farRight), dark + 10) << s.left << "->" << s.right;
    EXPECT_NEAR(std::max(farLeft, farRight), light, 2) << s.left << "->" << s.right;
  }
}

TEST(HdrToneMap, DetailGainsLocalContrastAndAlphaStays) {
  constexpr int32_t w = 96, h = 64;
  std::vector<uint32_t> source(std::size_t(w) * h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {  // a gentle grey ripple, with alpha varying
      const uint32_t v = x % 6 < 3 ? 126 : 114;
      source[std::size_t(y) * w + x] = Px(x == 5 ? 0 : 40 + y, v, v, v);
    }
  auto ripple = [&](float detail) {
    std::vector<uint32_t> px = source;
    const HdrToneMapParams p{0, 1, detail, 1, 1, 20};
    HdrToneMap(px.data(), w, h, &p);
    for (std::size_t i = 0; i < px.size(); ++i) {
      EXPECT_EQ(px[i] >> 24, source[i] >> 24);
      if (!(source[i] >> 24)) {
        EXPECT_EQ(px[i], source[i]);  // fully transparent: untouched
      }
    }
    const std::size_t row = std::size_t(h / 2) * w;
    return Channel(px[row + 48], 2) - Channel(px[row + 51], 2);
  };
  EXPECT_NEAR(ripple(1.0f), 12, 1);
  EXPECT_GT(ripple(3.0f), 24);
  EXPECT_LT(ripple(0.5f), 9);
}

TEST(HdrToneMap, ReportsEveryRowAndStopsWhenCancelled) {
  constexpr int32_t w = 50, h = 80;
  std::vector<uint32_t> source(std::size_t(w) * h);
  for (std::size_t i = 0; i < source.size(); ++i) source[i] = Grey(uint32_t(i % w) * 5);
  for (bool cancel : {false, true}) {
    std::vector<uint32_t> px = source;
    Progress progress;
    if (cancel) progress.Cancel();
    ScopedProgress scope(&progress);
    const HdrToneMapParams p;
    HdrToneMap(px.data(), w, h, &p);
    EXPECT_EQ(progress.Fraction(), cancel ? 0.0 : 1.0);
    EXPECT_EQ(px == source, cancel);
  }
}

// ---------------------------------------------------------------- Lens Flare

TEST(LensFlare, TheSourceIsTheBrightestPointForEveryLens) {
  constexpr int32_t w = 200, h = 150;
  struct Case {
    float x, y;
    int32_t lens;
  };
  for (const Case c :
       {Case{40, 30, 0}, Case{150, 100, 1}, Case{100, 75, 2}, Case{20, 120, 3}, Case{173, 12, 0}}) {
    std::vector<uint32_t> px(std::size_t(w) * h, Grey(0));
    const LensFlareParams p{c.x, c.y, 50, 100, c.lens};
    LensFlare(px.data(), w, h, &p);
    const auto brightest =
        std::max_element(px.begin(), px.end(), [](uint32_t a, uint32_t b) { return Lum(a) < Lum(b); });
    const int32_t i = int32_t(brightest - px.begin());
    EXPECT_NEAR(i % w, c.x, 1) << "lens " << c.lens;
    EXPECT_NEAR(i / w, c.y, 1) << "lens " << c.lens;
    EXPECT_GT(Lum(*brightest), 100);
  }
}

TEST(LensFlare, KeepsAlphaAndDoesNothingAtBrightnessZero) {
  constexpr int32_t w = 120, h = 90;
  std::mt19937 rng(4);
  std::vector<uint32_t> source(std::size_t(w) * h);
  for (uint32_t& p : source) p = rng();
  for (int32_t lens = 0; lens < 4; ++lens) {
    std::vector<uint32_t> px = source;
    LensFlareParams p{30, 20, 0, 150, lens};
    LensFlare(px.data(), w, h, &p);
    EXPECT_EQ(px, source) << "lens " << lens;
    p.brightness = 200;
    LensFlare(px.data(), w, h, &p);
    int changed = 0;
    for (std::size_t i = 0; i < px.size(); ++i) {
      EXPECT_EQ(px[i] >> 24, source[i] >> 24);
      // Screen never darkens a channel.
      for (int c = 0; c < 3; ++c) EXPECT_GE(Channel(px[i], c), Channel(source[i], c));
      changed += px[i] != source[i];
    }
    EXPECT_GT(changed, w * h / 10) << "lens " << lens;
  }
  // A source far off the picture still throws its ghosts across it.
  std::vector<uint32_t> px(std::size_t(w) * h, Grey(0));
  const LensFlareParams off{-400, -300, 100, 100, 0};
  LensFlare(px.data(), w, h, &off);
  EXPECT_GT(std::count_if(px.begin(), px.end(), [](uint32_t v) { return v != Grey(0); }), 0);
}

TEST(LensFlare, DialogDescriptionPacksTheRowsAndStartsAtTheCentre) {
  const EffectDef& def = LensFlareEffect();
  EXPECT_EQ(def.shortName, u"lens-flare");
  ASSERT_EQ(def.rows.size(), 4u);
  ASSERT_EQ(def.choices.size(), 4u);
  EffectValues v = LensFlareDefaultValues(301, 200);
  EXPECT_EQ(v.rows[0], 150);
  EXPECT_EQ(v.rows[1], 100);
  v.choice = 3;
  alignas(8) unsigned char block[64] = {};
  def.packer(v, block);
  const auto& p = *reinterpret_cast<const LensFlareParams*>(block);
  EXPECT_EQ(p.centerX, 150.0f);
  EXPECT_EQ(p.centerY, 100.0f);
  EXPECT_EQ(p.brightness, 100);
  EXPECT_EQ(p.size, 100);
  EXPECT_EQ(p.lens, int32_t(LensType::MoviePrime));
}

// ---------------------------------------------------------------- Fill from Surroundings

// A periodic weave: stripes of 12 across, 9 down and a diagonal ramp.
uint32_t Weave(int32_t x, int32_t y) {
  const uint32_t a = x % 12 < 6 ? 200 : 60, b = y % 9 < 4 ? 40 : 0, c = uint32_t((x + y) % 12) * 10;
  return Px(255, a, a / 2 + b, c + 50);
}

std::unique_ptr<Document> WeaveDocument(int32_t w, int32_t h) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) doc->layers[0].pixels.At(x, y) = Weave(x, y);
  return doc;
}

TEST(FillFromSurroundings, ContinuesATextureAndTouchesNothingOutside) {
  constexpr int32_t w = 140, h = 120;
  struct Case {
    int32_t grow;
    double feather;
  };
  for (const Case c : {Case{0, 0}, Case{3, 0}, Case{0, 3}}) {
    auto doc = WeaveDocument(w, h);
    Surface& layer = doc->layers[0].pixels;
    for (int32_t y = 50; y < 76; ++y)  // the hole's old content must not come back
      for (int32_t x = 55; x < 85; ++x) layer.At(x, y) = 0xFFFF00FFu;
    const Surface before = layer;
    const ShapePoint corners[] = {{55, 50}, {85, 76}};
    CommitRegion(*doc, *RasterizeShape(*doc, ShapeKind::Rectangle, corners, c.feather), kSelectNew);
    // What the command fills: the selection grown as Grow would.
    SelectionMask cover = *doc->selection;
    if (c.grow) DiscFilter(doc->selection->Data(), cover.Data(), w, h, c.grow, Morphology::Dilate);

    ASSERT_TRUE(FillFromSurroundings(*doc, c.grow)) << c.grow;
    EXPECT_EQ(UndoLabel(*doc), u"Fill from Surroundings");
    double error = 0;
    int counted = 0;
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) {
        if (!cover.At(x, y)) {
          ASSERT_EQ(layer.At(x, y), before.At(x, y)) << x << "," << y << " grow " << c.grow;
        } else if (cover.At(x, y) == 255) {
          for (int k = 0; k < 3; ++k) error += std::abs(Channel(layer.At(x, y), k) - Channel(Weave(x, y), k));
          counted += 3;
        }
      }
    // The weave comes back almost exactly (a grey or a blur would be off by tens).
    EXPECT_LT(error / counted, 3.0) << "grow " << c.grow << " feather " << c.feather;
    ASSERT_TRUE(Undo(*doc));
    EXPECT_TRUE(testing_support::SamePixels(layer, before));
  }
}

TEST(FillFromSurroundings, ChangesAndRecordsNothingWhenItCannotOrMayNotRun) {
  auto doc = WeaveDocument(80, 60);
  const Surface before = doc->layers[0].pixels;
  EXPECT_FALSE(FillFromSurroundings(*doc, 4));  // no selection
  SelectAll(*doc);
  const std::size_t steps = HistoryRows(*doc).size();
  EXPECT_FALSE(FillFromSurroundings(*doc, 0));  // nothing left to take content from
  const ShapePoint corners[] = {{30, 20}, {50, 40}};
  CommitRegion(*doc, *RasterizeShape(*doc, ShapeKind::Ellipse, corners, 0), kSelectNew);
  {
    Progress progress;
    progress.Cancel();
    ScopedProgress scope(&progress);
    EXPECT_FALSE(FillFromSurroundings(*doc, 2));
  }
  EXPECT_TRUE(testing_support::SamePixels(doc->layers[0].pixels, before));
  EXPECT_EQ(HistoryRows(*doc).size(), steps + 1);  // only the selection's own step
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
}

TEST(FillFromSurroundings, ATextureHoleAtTheEdgeOfTheBlockIsFilledToo) {
  // The synthesis on its own, with the hole against the block's corner and
  // partly transparent content around it.
  constexpr int32_t w = 90, h = 70;
  std::vector<uint32_t> truth(std::size_t(w) * h), px;
  std::vector<uint8_t> hole(truth.size(), 0);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      truth[std::size_t(y) * w + x] = (Weave(x, y) & 0x00FFFFFF) | 0xC0000000u;
      if (x < 14 && y < 12) hole[std::size_t(y) * w + x] = 255;
    }
  px = truth;
  for (std::size_t i = 0; i < px.size(); ++i)
    if (hole[i]) px[i] = 0;
  ASSERT_TRUE(InpaintPixels(px.data(), hole.data(), w, h, nullptr));
  int off = 0;
  for (std::size_t i = 0; i < px.size(); ++i) {
    if (!hole[i]) {
      ASSERT_EQ(px[i], truth[i]);
    } else {
      off += LargestDifference({px[i]}, {truth[i]}) > 8 || (px[i] >> 24) != 0xC0;
    }
  }
  EXPECT_LT(off, 14 * 12 / 10);
}

}  // namespace
}  // namespace tavora
