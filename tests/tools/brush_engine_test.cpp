#include "tools/brush_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <set>

#include "document/blend.h"
#include "document/document_events.h"
#include "document/history.h"
#include "pixels.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::Params;
using testing_support::SamePixels;
using testing_support::Stroke;

std::unique_ptr<Document> Doc(int w = 128, int h = 128) { return testing_support::WithLayer(w, h); }

// The footprint straight from its definition.
double RefWeight(int size, int hardness, double cx, double cy, int x, int y) {
  const double r = size / 2.0, h = hardness / 100.0;
  const double dx = x + 0.5 - cx, dy = y + 0.5 - cy, d = std::sqrt(dx * dx + dy * dy);
  if (h >= 0.97) return std::clamp(r + 0.5 - d, 0.0, 1.0);
  if (d <= r * h) return 1;
  if (d >= r + 0.5) return 0;
  const double t = (d - r * h) / (r - r * h + 0.5), u = 1 - t;
  return u * u * (3 - 2 * u);
}

void Noise(Surface& s, uint32_t seed, uint32_t alphaBits = 0) {
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = rng() | alphaBits;
}

// One channel's sum over the 3 x 3 neighbourhood, edges repeated.
int Sum3x3(const Surface& s, int x, int y, int shift) {
  int sum = 0;
  for (int j = -1; j <= 1; ++j)
    for (int i = -1; i <= 1; ++i)
      sum += (s.At(std::clamp(x + i, 0, s.Width() - 1), std::clamp(y + j, 0, s.Height() - 1)) >> shift) & 255;
  return sum;
}

TEST(BrushFootprint, MatchesTheFormulasPixelByPixel) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> pos(-3.0, 40.0);
  for (int size : {1, 2, 3, 7, 14, 33, 100, 257, 500}) {
    for (int hardness : {0, 1, 50, 85, 96, 97, 100}) {
      const double cx = pos(rng), cy = pos(rng), r = size / 2.0;
      const Footprint f = DabFootprint(size, hardness, cx, cy);
      ASSERT_EQ(f.box, (Rect{int(std::floor(cx - r - 1)), int(std::floor(cy - r - 1)),
                             int(std::ceil(cx + r + 1)), int(std::ceil(cy + r + 1))}));
      // One pixel beyond the box on every side must be out of reach too.
      for (int y = f.box.y0 - 1; y <= f.box.y1; ++y)
        for (int x = f.box.x0 - 1; x <= f.box.x1; ++x)
          ASSERT_EQ(f.box.Contains(x, y) ? f.At(x, y) : 0.0, RefWeight(size, hardness, cx, cy, x, y))
              << size << " h" << hardness << " " << x << "," << y;
    }
  }
  // Size 1, hard: full only with the centre on the pixel's centre.
  EXPECT_EQ(CoverageByte(DabFootprint(1, 100, 10.5, 10.5).At(10, 10)), 255);
  EXPECT_EQ(DabFootprint(1, 100, 10.5, 10.5).At(11, 10), 0.0);
  EXPECT_EQ(CoverageByte(DabFootprint(1, 100, 10.25, 10.5).At(10, 10)), 191);  // w = 0.75
  EXPECT_EQ(CoverageByte(DabFootprint(1, 100, 10.25, 10.5).At(9, 10)), 64);    // w = 0.25
}

// The x of every dab centre, read back from the rectangles the dabs
// invalidate (exact for centres on half pixels).
std::vector<double> g_centres;

TEST(BrushSpacing, DabsFollowTheStepAlongThePath) {
  DocumentObserver observer;
  observer.areaChanged = [](Document&, const Rect& r) { g_centres.push_back((r.x0 + r.x1) / 2.0); };
  testing_support::Path fine{{20.5, 30.5}};  // moves of a quarter pixel
  for (double x = 20.75; x <= 120.5; x += 0.25) fine.push_back({x, 30.5});
  std::vector<double> everyPixel, everyTwenty;
  for (int i = 0; i <= 100; ++i) everyPixel.push_back(20.5 + i);
  for (double x = 20.5; x <= 200.5; x += 20) everyTwenty.push_back(x);
  // The retouching tools step a fixed 8 % of the size (4 px), but the second
  // dab follows the press by the record's spacing (10 px), as the Brush's does.
  const std::vector<double> retouch{40.5, 50.5, 54.5, 58.5, 62.5, 66.5, 70.5};
  const testing_support::Path across{{40.5, 30.5}, {70.5, 30.5}};
  struct Case {
    BrushTool tool;
    int size, spacing;
    testing_support::Path path;
    std::vector<double> want;
  };
  std::vector<Case> cases = {
      {BrushTool::Brush, 10, 200, {{20.5, 30.5}, {200.5, 30.5}}, everyTwenty},
      {BrushTool::Brush, 14, 1, fine, everyPixel},  // 1 % of 14 is below a pixel: one dab per pixel
  };
  for (BrushTool t : {BrushTool::Blur, BrushTool::Smudge, BrushTool::Sharpen, BrushTool::Sponge, BrushTool::Burn})
    cases.push_back({t, 50, 20, across, retouch});
  for (const auto& c : cases) {
    auto doc = Doc(256, 64);
    BrushParams p = Params(c.tool, c.size, c.tool == BrushTool::Brush ? 100 : 50);
    p.spacing = c.spacing;
    g_centres.clear();
    SetDocumentObserver(&observer);
    Stroke(*doc, p, c.path);
    SetDocumentObserver(nullptr);
    EXPECT_EQ(g_centres, c.want) << int(c.tool) << " spacing " << c.spacing;
    if (c.spacing > 100) {
      EXPECT_EQ(doc->layers[1].pixels.At(30, 30), 0u);  // halfway between two dabs
    }
  }
}

TEST(BrushSpacing, ManySmallMovesGiveTheSamePixelsAsOneBigMove) {
  auto one = Doc(200, 160), many = Doc(200, 160);
  const BrushParams p = Params(BrushTool::Brush, 50, 40);  // a step of 6
  Stroke(*one, p, {{10, 60}, {150, 60}, {150, 140}});
  const double pieces[] = {0.5, 1.25, 3, 0.75, 7.5};
  BeginStroke(*many, 10, 60, 1, p);
  double at = 10;
  for (int i = 0; at < 150; ++i) ContinueStroke(*many, at = std::min(at + pieces[i % 5], 150.0), 60);
  for (at = 60; at < 140; at += 0.5) ContinueStroke(*many, 150, at + 0.5);
  EndStroke(*many);
  EXPECT_TRUE(SamePixels(one->layers[1].pixels, many->layers[1].pixels));
}

// Every pixel is its stroke-start value under the paint at the highest
// coverage any of the dabs at xs (on row cy) gave it.
void ExpectPeakCoverage(const Surface& start, const Surface& out, const BrushParams& p,
                        const std::vector<double>& xs, double cy) {
  for (int y = 0; y < out.Height(); ++y)
    for (int x = 0; x < out.Width(); ++x) {
      int c = 0;
      for (double cx : xs) c = std::max<int>(c, CoverageByte(RefWeight(p.size, p.hardness, cx, cy, x, y)));
      const uint32_t paint = uint32_t(c * p.opacity / 100) << 24 | (p.primary & 0xFFFFFF);
      ASSERT_EQ(out.At(x, y), c ? Over(start.At(x, y), paint) : start.At(x, y)) << x << "," << y;
    }
}

TEST(BrushStroke, OverlappingDabsNeverBuildUpButASecondStrokeDoes) {
  auto doc = Doc(100, 60);
  Surface& pixels = doc->layers[1].pixels;
  Noise(pixels, 3);
  const Surface start = pixels;
  BrushParams p = Params(BrushTool::Brush, 20, 0);  // soft, 100 %, a step of 5
  p.spacing = 25;
  p.primary = 0xFF20C040;
  // Back and forth: the way back and the second way out are out of phase.
  Stroke(*doc, p, {{20.5, 30.25}, {80.5, 30.25}, {22.5, 30.25}, {80.5, 30.25}});
  std::vector<double> xs;
  for (int k = 0; k <= 12; ++k) xs.push_back(20.5 + 5 * k);
  for (int k = 0; k <= 10; ++k) xs.push_back(75.5 - 5 * k);
  for (int k = 0; k <= 11; ++k) xs.push_back(24.5 + 5 * k);
  ExpectPeakCoverage(start, pixels, p, xs, 30.25);

  pixels.Fill(0);  // at half opacity a stroke stops at alpha 127
  p.opacity = 50;
  Stroke(*doc, p, {{20.5, 30.5}, {80.5, 30.5}, {20.5, 30.5}});
  EXPECT_EQ(pixels.At(50, 30) >> 24, 127u);
  Stroke(*doc, p, {{20.5, 30.5}, {80.5, 30.5}});
  EXPECT_EQ(pixels.At(50, 30) >> 24, 127u + Mul(128, 127));

  // Coverage left by earlier strokes, on canvases of the same size, area or
  // neither, never holds the next one back.
  for (auto [w, h] : {std::pair{100, 60}, {60, 100}, {64, 64}}) {
    auto next = Doc(w, h);
    Stroke(*next, p, {{30.5, 30.5}});
    ExpectPeakCoverage(Surface(w, h), next->layers[1].pixels, p, {30.5}, 30.5);
  }
}

TEST(BrushStroke, SelectionScalesTheEffectAndGuardsUnselectedPixels) {
  auto doc = Doc(64, 64);
  doc->selection.emplace(64, 64);
  for (int y = 0; y < 64; ++y) std::memset(doc->selection->Row(y), 128, 32);
  doc->selectionBounds = {0, 0, 48, 64};  // loose: the mask decides
  Surface& px = doc->layers[1].pixels;
  px.Fill(0x00FFFFFF);
  BrushParams p = Params(BrushTool::Brush, 40, 100);
  p.primary = 0xFF0000FF;
  Stroke(*doc, p, {{32, 32}});
  EXPECT_EQ(px.At(20, 32), 0x800000FFu);  // half coverage
  for (int y = 0; y < 64; ++y)
    for (int x = 32; x < 64; ++x) ASSERT_EQ(px.At(x, y), 0x00FFFFFFu);
  // Neither do the retouching tools, whose dabs read beyond the edge.
  for (int tool = 2; tool < 7; ++tool) {
    Noise(px, 5, 0xFF000000);
    const Surface before = px;
    BrushParams t = Params(BrushTool(tool), 40, 0);
    t.strength = 100;
    Stroke(*doc, t, {{32, 32}, {32, 40}});
    for (int y = 0; y < 64; ++y) ASSERT_EQ(std::memcmp(px.Row(y) + 32, before.Row(y) + 32, 32 * 4), 0) << tool;
    EXPECT_NE(std::memcmp(px.Row(32), before.Row(32), 32 * 4), 0) << tool;
  }
}

TEST(BrushStroke, EraserLowersAlphaOrPaintsTheBackgroundColour) {
  auto doc = Doc(64, 64);
  doc->layers[1].pixels.Fill(0xFF336699);
  BrushParams p = Params(BrushTool::Eraser, 20, 100);
  p.secondary = 0x00AA5500;  // its alpha is ignored on the Background
  Stroke(*doc, p, {{32, 32}});
  EXPECT_EQ(doc->layers[1].pixels.At(32, 32), 0x00336699u);
  p.opacity = 50;  // a = 127
  Stroke(*doc, p, {{10, 10}});
  EXPECT_EQ(doc->layers[1].pixels.At(10, 10), 0x80336699u);

  doc->active = 0;  // the Background cannot hold transparency
  ASSERT_TRUE(doc->layers[0].opaqueBackground);
  Stroke(*doc, p, {{32.5, 32.5}});
  const Footprint f = DabFootprint(20, 100, 32.5, 32.5);
  for (int x = 30; x < f.box.x1; ++x) {
    const uint32_t a = CoverageByte(f.At(x, 32)) * 50 / 100, to[4] = {0x00, 0x55, 0xAA, 0xFF};
    uint32_t expected = 0;
    for (int i = 0; i < 4; ++i) expected |= ((255 * (255 - a) + to[i] * a) / 255) << (8 * i);
    EXPECT_EQ(doc->layers[0].pixels.At(x, 32), expected) << x;
  }
  // The right button paints the secondary colour.
  BrushParams b = Params(BrushTool::Brush, 5, 100);
  b.secondary = 0xFF123456;
  Stroke(*doc, b, {{5.5, 5.5}}, 2);
  EXPECT_EQ(doc->layers[0].pixels.At(5, 5), 0xFF123456u);
}

TEST(BrushHistory, AStrokeIsOneStepHoldingExactlyTheTilesItTouched) {
  auto doc = Doc(256, 256);
  Noise(doc->layers[1].pixels, 9);
  const Surface before = doc->layers[1].pixels;
  BrushParams p = Params(BrushTool::Brush, 10, 100);
  p.spacing = 100;
  Stroke(*doc, p, {{60.5, 20.5}, {60.5, 100.5}});
  const Surface after = doc->layers[1].pixels;
  ASSERT_EQ(doc->history.states.size(), 1u);
  std::set<int> tiles;
  for (const SavedTile& t : doc->history.states[0].tiles) tiles.insert(t.index);
  // Dab boxes span x 54..66 and y 14..106: columns 0 and 1, rows 0 and 1.
  EXPECT_EQ(tiles, (std::set<int>{0, 1, 4, 5}));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  ASSERT_TRUE(Redo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, after));

  // Every tool names its step; a stroke that changed nothing still has one.
  const char16_t* names[] = {u"Brush", u"Erase", u"Blur", u"Smudge", u"Sharpen", u"Sponge", u"Burn"};
  for (int i = 0; i < 7; ++i) {
    Stroke(*doc, Params(BrushTool(i), 8, 50), {{-100, -100}, {-90, -100}});  // wholly off the layer
    EXPECT_EQ(UndoLabel(*doc), names[i]);
  }
  EXPECT_EQ(doc->history.states.size(), 8u);
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, after));
}

TEST(BrushHistory, StrokesBelongToTheirDocument) {
  auto a = Doc(), b = Doc();
  BeginStroke(*a, 10, 10, 1, Params(BrushTool::Brush, 5, 100));
  EndStroke(*b);  // another document's button-up
  ContinueStroke(*b, 50, 50);
  EXPECT_TRUE(StrokeActive());
  EXPECT_TRUE(b->history.states.empty());
  EXPECT_EQ(b->layers[1].pixels.At(50, 50), 0u);
  EndStroke(*a);
  EXPECT_FALSE(StrokeActive());
  EXPECT_EQ(a->history.states.size(), 1u);

  BeginStroke(*a, 10, 10, 1, Params(BrushTool::Brush, 5, 100));
  ForgetStroke(*a);  // the document closes
  EXPECT_FALSE(StrokeActive());
  ContinueStroke(*a, 60, 60);
  EXPECT_EQ(a->layers[1].pixels.At(60, 60), 0u);

  // An undo in the middle of a stroke closes its record: the stroke is
  // over, and nothing more is painted that could not be undone.
  BeginStroke(*a, 10, 10, 1, Params(BrushTool::Brush, 5, 100));
  ASSERT_TRUE(Undo(*a));
  ContinueStroke(*a, 40, 40);
  EXPECT_FALSE(StrokeActive());
  EXPECT_EQ(a->layers[1].pixels.At(40, 40), 0u);
  EndStroke(*a);
  EXPECT_FALSE(a->pendingStroke);
}

TEST(BrushSpacing, MovesFarOffTheCanvasPaintOnlyWhereTheyCross) {
  auto doc = Doc(64, 64);
  const BrushParams p = Params(BrushTool::Brush, 4, 100);
  // A move across the whole number range would be 1e300 dabs; only those
  // that can reach the layer are placed.
  BeginStroke(*doc, 5.5, 20.5, 1, p);
  ContinueStroke(*doc, -1e300, 20.5);
  ContinueStroke(*doc, 1e300, 20.5);
  ContinueStroke(*doc, std::nan(""), 3);
  EndStroke(*doc);
  const Surface& px = doc->layers[1].pixels;
  for (int x = 0; x < 64; ++x) EXPECT_EQ(px.At(x, 20) >> 24, 255u) << x;
  EXPECT_EQ(px.At(30, 40), 0u);
  BeginStroke(*doc, std::nan(""), 1, 1, p);  // no stroke at all
  EXPECT_FALSE(StrokeActive());
}

TEST(RetouchDabs, OneBlurDabMixesInTheNeighbourhoodAverageAndAlphaByThePlainSumOverNine) {
  auto doc = Doc(40, 40);
  Surface& px = doc->layers[1].pixels;
  Noise(px, 11, 0xFF000000);
  BrushParams p = Params(BrushTool::Blur, 12, 30);
  p.strength = 100;
  // The mix of a dab's pixel with its 3 x 3 mean.
  const auto mix = [&](double cx, double cy, int x, int y) {
    return uint32_t(std::min(std::trunc(RefWeight(p.size, p.hardness, cx, cy, x, y) * 0.5 * 255), 255.0));
  };
  for (auto [cx, cy] : {std::pair{3.3, 2.6}, {20.0, 21.5}}) {  // at the corner, then inside
    const Surface start = px;
    Stroke(*doc, p, {{cx, cy}});
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 40; ++x)
        for (int shift = 0; shift < 24; shift += 8) {
          const double m = mix(cx, cy, x, y);
          const int v = (start.At(x, y) >> shift) & 255, mean = (Sum3x3(start, x, y, shift) + 4) / 9;
          ASSERT_EQ(int(px.At(x, y) >> shift) & 255, std::lround((v * (255 - m) + mean * m) / 255)) << x << "," << y;
        }
  }
  Noise(px, 5);  // random alpha too
  p.hardness = 100;
  const Surface start = px;
  Stroke(*doc, p, {{12.0, 12.0}});
  int checked = 0;
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 40; ++x) {
      const uint32_t m = mix(12, 12, x, y), a = start.At(x, y) >> 24, mean = uint32_t(Sum3x3(start, x, y, 24)) / 9;
      if (m == 0 || a * (255 - m) + mean * m == 0) continue;
      ASSERT_EQ(px.At(x, y) >> 24, (a * (255 - m) + mean * m + 127) / 255) << x << "," << y;
      ++checked;
    }
  EXPECT_GT(checked, 50);
}

TEST(RetouchDabs, SharpenMovesAChannelAtMostSixLevelsPerDabWithUnbiasedDither) {
  auto doc = Doc(48, 48);
  Surface& px = doc->layers[1].pixels;
  Noise(px, 13, 0xFF000000);
  for (int strength : {100, 40}) {
    const Surface start = px;
    BrushParams p = Params(BrushTool::Sharpen, 40, 60);
    p.strength = strength;
    const double k = (strength / 100.0) * (strength / 100.0) * 0.12;
    Stroke(*doc, p, {{24, 24}});
    double bias = 0;
    int n = 0, atLimit = 0;
    for (int y = 0; y < 48; ++y)
      for (int x = 0; x < 48; ++x) {
        const double w = RefWeight(40, 60, 24, 24, x, y);
        ASSERT_EQ(px.At(x, y) >> 24, 255u);
        for (int shift = 0; shift < 24; shift += 8) {
          const int v = (start.At(x, y) >> shift) & 255, moved = int(px.At(x, y) >> shift & 255) - v;
          const double delta = std::clamp((v - Sum3x3(start, x, y, shift) / 9.0) * k * w, -6.0, 6.0);
          // floor(delta + a random number in [0, 1)), within the channel.
          const int lo = std::clamp(v + int(std::floor(delta)), 0, 255) - v;
          const int hi = std::clamp(v + int(std::floor(delta)) + 1, 0, 255) - v;
          ASSERT_TRUE(moved == lo || (moved == hi && w > 0)) << x << "," << y << " " << moved << " " << delta;
          if (w > 0 && v > 6 && v < 249) {
            bias += moved - delta;
            ++n;
            atLimit += std::abs(moved) == 6;
          }
        }
      }
    EXPECT_LT(std::abs(bias / n), 0.05);
    if (strength == 100) {
      EXPECT_GT(atLimit, 100);  // the clamp is really reached
    }
  }
}

TEST(RetouchDabs, SmudgeDragsColourAlongThePath) {
  auto doc = Doc(100, 40);
  Surface& px = doc->layers[1].pixels;
  px.Fill(0xFFFFFFFF);
  for (int y = 0; y < 40; ++y) std::fill(px.Row(y), px.Row(y) + 30, 0xFFFF0000);
  const Surface before = px;
  BrushParams p = Params(BrushTool::Smudge, 16, 50);
  p.strength = 0;
  Stroke(*doc, p, {{20, 20}, {70, 20}});
  EXPECT_TRUE(SamePixels(px, before));
  p.strength = 80;
  Stroke(*doc, p, {{20, 20}, {70, 20}});
  EXPECT_LT(px.At(40, 20) & 255, 200u);  // red carried into the white
  EXPECT_EQ(px.At(40, 20) >> 16 & 255, 255u);
  EXPECT_GT(px.At(40, 20) & 255, px.At(32, 20) & 255);  // fading as it goes
  EXPECT_EQ(px.At(40, 2), 0xFFFFFFFFu);  // beyond the brush
}

int Saturation(uint32_t p) {
  const int r = p >> 16 & 255, g = p >> 8 & 255, b = p & 255;
  return std::max({r, g, b}) - std::min({r, g, b});
}

TEST(RetouchDabs, SpongeAndBurnChangeSaturationByBandOncePerStroke) {
  auto doc = Doc(64, 16);
  Surface& px = doc->layers[1].pixels;
  const uint32_t colours[] = {0xFF808080, 0xFF204060, 0xFFC03020, 0xFFF0E0A0, 0xFF00FF00};
  auto fill = [&] {
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 64; ++x) px.At(x, y) = colours[x / 13];
  };
  fill();
  BrushParams burn = Params(BrushTool::Burn, 200, 100);
  burn.exposure = 60;
  Stroke(*doc, burn, {{32, 8}, {33, 8}, {32, 8}});  // one pass however often
  const Surface once = px;
  for (int i = 0; i < 5; ++i) {
    const uint32_t q = px.At(i * 13, 8);
    if (Saturation(colours[i]) == 0 || Saturation(colours[i]) == 255) {
      EXPECT_EQ(q, colours[i]) << i;  // grey, or already as far from grey as it goes
    } else {
      EXPECT_GT(Saturation(q), Saturation(colours[i])) << i;
    }
  }
  Stroke(*doc, burn, {{32, 8}});
  EXPECT_GT(Saturation(px.At(20, 8)), Saturation(once.At(20, 8)));  // a new stroke builds up

  fill();
  BrushParams sponge = Params(BrushTool::Sponge, 200, 100);
  sponge.exposure = 100;
  Stroke(*doc, sponge, {{32, 8}});
  for (int i = 0; i < 5; ++i) EXPECT_LE(Saturation(px.At(i * 13, 8)), 1) << i;  // grey
  // Bands: Shadows leaves the light yellow alone, Highlights the dark blue.
  for (auto [range, kept, changed] : {std::tuple{kRangeShadows, 3, 1}, {kRangeHighlights, 1, 3}}) {
    fill();
    sponge.range = range;
    sponge.exposure = 50;
    Stroke(*doc, sponge, {{32, 8}});
    EXPECT_EQ(px.At(kept * 13, 8), colours[kept]);
    EXPECT_LT(Saturation(px.At(changed * 13, 8)), Saturation(colours[changed]));
  }
}

}  // namespace
}  // namespace tavora
