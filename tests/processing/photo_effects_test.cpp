#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "base/progress.h"
#include "document/history.h"
#include "pixels.h"
#include "processing/effect_dialogs.h"
#include "processing/hdr_tone_map.h"
#include "processing/inpaint.h"
#include "processing/lens_flare.h"
#include "processing/processing_helpers.h"
#include "processing/spiral.h"
#include "processing/whiten_area.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::Applied;
using testing_support::Channel;
using testing_support::Grey;
using testing_support::PaintedPixels;
using testing_support::Processors;
using testing_support::Px;
using testing_support::RandomPixels;

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
  return PaintedPixels(w, h, [&](int32_t, int32_t) {
    const uint32_t v = 228 + rng() % 7;
    return Px(255, v, v - 4, v - 12);
  });
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
    for (int32_t x = 0; x < w; ++x)
      if (const int d = onStroke(x, y); d <= 3)
        px[std::size_t(y) * w + x] = d < 3 ? Px(255, 30, 30, 60) : Px(255, 130, 128, 150);
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
  // A translucent mark on a yellowish wall.
  const std::vector<uint32_t> ground = PaintedPixels(w, h, [](int32_t x, int32_t y) {
    return x >= 10 && x < 70 && y >= 28 && y < 32 ? Px(200, 40, 40, 40) : Px(255, 220, 200, 150);
  });
  auto centre = [&](const WhitenAreaParams& p) {  // the mark's centre, alpha kept
    return Applied(WhitenArea, ground, w, h, p)[std::size_t(30) * w + 40];
  };
  EXPECT_EQ(centre({}), Px(200, 220, 200, 150));
  EXPECT_EQ(centre({.fillBrightness = 100}), Px(200, 255, 255, 255));
  EXPECT_EQ(centre({.fillSaturation = 0}), Px(200, 200, 200, 200));
  const uint32_t tinted = centre({.tintHue = 240, .tintIntensity = 100});
  EXPECT_GT(Channel(tinted, 0), std::max(Channel(tinted, 1), Channel(tinted, 2)));
}

TEST(WhitenArea, NegativeDetectionFillsTheWholeAreaFromItsLightPixels) {
  // Teeth: a light, uneven area; below zero every pixel takes the fill.
  constexpr int32_t w = 64, h = 40;
  std::vector<uint32_t> px =
      PaintedPixels(w, h, [](int32_t x, int32_t y) { return Px(255, 230 - x % 9, 215 - x % 9, 170 - y % 5); });
  const WhitenAreaParams p{.detection = -30, .fillBrightness = 50, .feather = 0};
  WhitenArea(px.data(), w, h, &p);
  for (uint32_t v : px) ASSERT_TRUE(Channel(v, 2) >= 240 && Channel(v, 0) >= 210) << std::hex << v;
}

// ---------------------------------------------------------------- HDR Tone Map

TEST(HdrToneMap, NeutralSettingsKeepThePictureWhetherSplitOrNot) {
  constexpr int32_t w = 90, h = 70;
  const std::vector<uint32_t> source = RandomPixels(std::size_t(w) * h, 11, true);
  EXPECT_LE(LargestDifference(Applied(HdrToneMap, source, w, h, HdrToneMapParams{0, 1, 1, 1, 1, 12}), source), 1);

  // The default look, once on one thread and once split four ways: each
  // worker owns whole grid rows, so the sums are taken in the same order.
  auto look = [&](int processors) {
    const Processors split(processors);
    return Applied(HdrToneMap, source, w, h, HdrToneMapParams{.radius = 4});
  };
  const std::vector<uint32_t> whole = look(1);
  EXPECT_EQ(whole, look(4));
  EXPECT_GT(LargestDifference(whole, source), 10);  // and it does change the picture
}

TEST(HdrToneMap, StrongStepsGetNoHaloAndShadowsOpen) {
  constexpr int32_t w = 240, h = 40;
  for (const auto& s : {std::pair{30, 220}, {220, 30}, {8, 250}, {60, 200}}) {
    const auto [left, right] = s;
    // The defaults: compression 0.55, detail 1.5.
    const std::vector<uint32_t> px = Applied(
        HdrToneMap, PaintedPixels(w, h, [&](int32_t x, int32_t) { return Grey(x < w / 2 ? left : right); }), w, h,
        HdrToneMapParams{});
    const int32_t y = h / 2;
    const int farLeft = Channel(px[std::size_t(y) * w + 2], 0),
              farRight = Channel(px[std::size_t(y) * w + w - 3], 0);
    for (int32_t x = 0; x < w; ++x) {
      const int v = Channel(px[std::size_t(y) * w + x], 0);
      // Each side stays at its own level right up to the edge: no bright or dark rim.
      const int level = x < w / 2 ? farLeft : farRight;
      EXPECT_NEAR(v, level, 1) << left << "->" << right << " at " << x;
    }
    // The dark side is lifted, the light side keeps its level.
    EXPECT_GT(std::min(farLeft, farRight), std::min(left, right) + 10) << left << "->" << right;
    EXPECT_NEAR(std::max(farLeft, farRight), std::max(left, right), 2) << left << "->" << right;
  }
}

TEST(HdrToneMap, DetailGainsLocalContrastAndAlphaStays) {
  constexpr int32_t w = 96, h = 64;
  // A gentle grey ripple, with alpha varying.
  const std::vector<uint32_t> source = PaintedPixels(w, h, [](int32_t x, int32_t y) {
    const uint32_t v = x % 6 < 3 ? 126 : 114;
    return Px(x == 5 ? 0 : 40 + y, v, v, v);
  });
  auto ripple = [&](float detail) {
    const std::vector<uint32_t> px = Applied(HdrToneMap, source, w, h, HdrToneMapParams{0, 1, detail, 1, 1, 20});
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
  const std::vector<uint32_t> source = PaintedPixels(w, h, [](int32_t x, int32_t) { return Grey(uint32_t(x) * 5); });
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
  for (const LensFlareParams p : {LensFlareParams{40, 30, 50, 100, 0}, {150, 100, 50, 100, 1}, {100, 75, 50, 100, 2},
                                   {20, 120, 50, 100, 3}, {173, 12, 50, 100, 0}}) {
    const auto px = Applied(LensFlare, std::vector<uint32_t>(std::size_t(w) * h, Grey(0)), w, h, p);
    const auto brightest =
        std::max_element(px.begin(), px.end(), [](uint32_t a, uint32_t b) { return Lum(a) < Lum(b); });
    const int32_t i = int32_t(brightest - px.begin());
    EXPECT_NEAR(i % w, p.centerX, 1) << "lens " << p.lens;
    EXPECT_NEAR(i / w, p.centerY, 1) << "lens " << p.lens;
    EXPECT_GT(Lum(*brightest), 100);
  }
}

TEST(LensFlare, KeepsAlphaAndDoesNothingAtBrightnessZero) {
  constexpr int32_t w = 120, h = 90;
  const std::vector<uint32_t> source = RandomPixels(std::size_t(w) * h, 4);
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
  const LensFlareParams off{-400, -300, 100, 100, 0};
  const auto px = Applied(LensFlare, std::vector<uint32_t>(std::size_t(w) * h, Grey(0)), w, h, off);
  EXPECT_GT(std::count_if(px.begin(), px.end(), [](uint32_t v) { return v != Grey(0); }), 0);
}

TEST(LensFlare, DialogDescriptionPacksTheRowsAndStartsAtTheCentre) {
  EffectValues v = LensFlareDefaultValues(301, 200);
  v.choice = 3;
  alignas(8) unsigned char block[64] = {};
  LensFlareEffect().packer(v, block);
  const auto& p = *reinterpret_cast<const LensFlareParams*>(block);
  EXPECT_EQ(std::tuple(p.centerX, p.centerY, p.brightness, p.size, p.lens),
            std::tuple(150.0f, 100.0f, 100, 100, int32_t(LensType::MoviePrime)));
}

// ---------------------------------------------------------------- Fill from Surroundings

// A periodic weave: stripes of 12 across, 9 down and a diagonal ramp.
uint32_t Weave(int32_t x, int32_t y) {
  const uint32_t a = x % 12 < 6 ? 200 : 60, b = y % 9 < 4 ? 40 : 0, c = uint32_t((x + y) % 12) * 10;
  return Px(255, a, a / 2 + b, c + 50);
}

std::unique_ptr<Document> WeaveDocument(int32_t w, int32_t h) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  doc->layers[0].pixels = testing_support::Painted(w, h, Weave);
  return doc;
}

TEST(FillFromSurroundings, ContinuesATextureAndTouchesNothingOutside) {
  constexpr int32_t w = 140, h = 120;
  for (const auto& [grow, feather] : {std::pair{0, 0.0}, {3, 0.0}, {0, 3.0}}) {
    auto doc = WeaveDocument(w, h);
    Surface& layer = doc->layers[0].pixels;
    for (int32_t y = 50; y < 76; ++y)  // the hole's old content must not come back
      for (int32_t x = 55; x < 85; ++x) layer.At(x, y) = 0xFFFF00FFu;
    const Surface before = layer;
    const ShapePoint corners[] = {{55, 50}, {85, 76}};
    CommitRegion(*doc, *RasterizeShape(*doc, ShapeKind::Rectangle, corners, feather), kSelectNew);
    // What the command fills: the selection grown as Grow would.
    SelectionMask cover = *doc->selection;
    if (grow) DiscFilter(doc->selection->Data(), cover.Data(), w, h, grow, Morphology::Dilate);

    ASSERT_TRUE(FillFromSurroundings(*doc, grow)) << grow;
    EXPECT_EQ(UndoLabel(*doc), u"Fill from Surroundings");
    double error = 0;
    int counted = 0;
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) {
        if (!cover.At(x, y)) {
          ASSERT_EQ(layer.At(x, y), before.At(x, y)) << x << "," << y << " grow " << grow;
        } else if (cover.At(x, y) == 255) {
          for (int k = 0; k < 3; ++k) error += std::abs(Channel(layer.At(x, y), k) - Channel(Weave(x, y), k));
          counted += 3;
        }
      }
    // The weave comes back almost exactly (a grey or a blur would be off by tens).
    EXPECT_LT(error / counted, 3.0) << "grow " << grow << " feather " << feather;
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
  std::vector<uint32_t> truth(std::size_t(w) * h), px(truth.size());
  std::vector<uint8_t> hole(truth.size(), 0);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const std::size_t i = std::size_t(y) * w + x;
      truth[i] = (Weave(x, y) & 0x00FFFFFF) | 0xC0000000u;
      hole[i] = x < 14 && y < 12 ? 255 : 0;
      px[i] = hole[i] ? 0 : truth[i];
    }
  ASSERT_TRUE(InpaintPixels(px.data(), hole.data(), w, h, nullptr));
  int off = 0;
  for (std::size_t i = 0; i < px.size(); ++i) {
    if (hole[i]) {
      off += LargestDifference({px[i]}, {truth[i]}) > 8 || (px[i] >> 24) != 0xC0;
    } else {
      ASSERT_EQ(px[i], truth[i]);
    }
  }
  EXPECT_LT(off, 14 * 12 / 10);
}

// ---------------------------------------------------------------- Spiral

constexpr uint32_t kRed = 0xFFFF0000, kBlue = 0xFF0000FF, kGrey = 0xFF808080;

TEST(Spiral, LineAndGapAlternateOutwardsAtTheThickness) {
  SpiralParams p{.thickness = 10, .softness = 0, .color1 = kRed, .color2 = kBlue};
  // Along the ray to the right (angle 0) the phase is r / 20: line for the
  // first 10 pixels of each 20, gap for the rest.
  for (double r : {2.0, 7.0, 22.0, 27.0, 45.0})
    EXPECT_EQ(SpiralLineWeight(r, 0, p), 1.0) << r;
  for (double r : {12.0, 17.0, 33.0, 55.0}) EXPECT_EQ(SpiralLineWeight(r, 0, p), 0.0) << r;
  // A quarter turn clockwise on screen (straight down) shifts the bands out
  // by a quarter of the pitch; counter-clockwise shifts them in.
  // Phases 0.1 and 0.35 less 0.25: the first wraps into the gap.
  EXPECT_EQ(std::pair(SpiralLineWeight(0, 2, p), SpiralLineWeight(0, 7, p)), std::pair(0.0, 1.0));
  p.counterClockwise = true;  // plus 0.25
  EXPECT_EQ(std::pair(SpiralLineWeight(0, 2, p), SpiralLineWeight(0, 7, p)), std::pair(1.0, 0.0));
  // On an edge the colours meet half and half.
  EXPECT_DOUBLE_EQ(SpiralLineWeight(10, 0, p), 0.5);
}

struct Drawn { int red = 0, blue = 0, mixed = 0; };

// Draws over grey in 100 x 100 and counts the pixels of each colour and the
// mixed ones; nothing farther than `reach` from the centre may change.
Drawn Draw(const SpiralParams& p, double reach) {
  std::vector<uint32_t> pixels(100 * 100, kGrey);
  Spiral(pixels.data(), 100, 100, &p);
  Drawn d;
  for (int32_t y = 0; y < 100; ++y)
    for (int32_t x = 0; x < 100; ++x) {
      const double dx = x + 0.5 - 50, dy = y + 0.5 - 50;
      const uint32_t px = pixels[std::size_t(y) * 100 + std::size_t(x)];
      if (dx * dx + dy * dy > reach * reach) {
        EXPECT_EQ(px, kGrey) << x << "," << y;
      }
      d.red += px == kRed;
      d.blue += px == kBlue;
      d.mixed += px != kRed && px != kBlue && px != kGrey;
    }
  return d;
}

TEST(Spiral, DrawsInsideTheRadiusOnlyWithSoftEdges) {
  // A radius of 25 in a 100 x 100 area.
  SpiralParams p{.thickness = 4, .radiusPercent = 50, .softness = 0, .color1 = kRed, .color2 = kBlue};
  const Drawn hard = Draw(p, 26);
  // Line and gap are equally wide; only the pixels on an edge are mixed.
  EXPECT_NEAR(hard.red, hard.blue, (hard.red + hard.blue) / 10);
  EXPECT_GT(hard.red, 600);
  EXPECT_LT(hard.mixed, hard.red);
  // A wider softness mixes more pixels and never reaches past the radius
  // by more than itself.
  p.softness = 6;
  EXPECT_GT(Draw(p, 29).mixed, 2 * hard.mixed);
}

}  // namespace
}  // namespace tavora
