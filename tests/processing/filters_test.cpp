#include "processing/filters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "base/progress.h"
#include "pixels.h"
#include "processing/adjustments.h"
#include "processing/processing_helpers.h"

namespace tavora {
namespace {

using testing_support::Applied;
using testing_support::Processors;
using testing_support::Px;
constexpr auto Noise = testing_support::RandomPixels;

// The moving average written the slow way: every window summed afresh.
std::vector<uint32_t> ReferenceBox(const std::vector<uint32_t>& in, int w, int h, int r) {
  auto pass = [&](const std::vector<uint32_t>& src, bool vertical) {
    std::vector<uint32_t> out(src.size());
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        uint32_t o = 0;
        for (int c = 0; c < 4; ++c) {
          uint32_t sum = 0;
          for (int k = -r; k <= r; ++k) {
            const int xx = vertical ? x : std::clamp(x + k, 0, w - 1);
            const int yy = vertical ? std::clamp(y + k, 0, h - 1) : y;
            sum += (src[yy * w + xx] >> (8 * c)) & 255;
          }
          o |= ((sum + r) / (2 * r + 1)) << (8 * c);
        }
        out[y * w + x] = o;
      }
    return out;
  };
  return pass(pass(in, false), true);
}

TEST(BoxBlur, MatchesTheSlowAverageForManyRadii) {
  for (int r : {1, 2, 5, 40}) {
    auto px = Noise(37 * 41, r, false);
    const auto want = ReferenceBox(px, 37, 41, r);
    BoxBlurPass(px.data(), 37, 41, r);
    ASSERT_EQ(px, want) << "radius " << r;
  }
}

TEST(GaussianBlurFilter, PreservesEnergyIsSymmetricAndThreadsAgree) {
  // An impulse on black spreads symmetrically and keeps its brightness.
  std::vector<uint32_t> img(41 * 41, 0xFF000000u);
  img[20 * 41 + 20] = 0xFFFFFFFFu;
  GaussianBlur(img.data(), 41, 41, 4.0f);
  uint64_t total = 0;
  for (int y = 0; y < 41; ++y)
    for (int x = 0; x < 41; ++x) {
      const uint32_t v = img[y * 41 + x] & 255;
      total += v;
      // Rows are rounded before columns, so the transpose may differ by one.
      ASSERT_LE(std::abs(int(v) - int(img[x * 41 + y] & 255)), 1);
      ASSERT_EQ(v, img[y * 41 + (40 - x)] & 255);   // mirror
    }
  EXPECT_NEAR(double(total), 255.0, 40.0);  // rounding in three passes
  EXPECT_GT(img[20 * 41 + 20] & 255, img[20 * 41 + 23] & 255);

  auto blurred = [](int processors) {
    const Processors split(processors);
    auto px = Noise(300 * 200, 9, false);
    GaussianBlur(px.data(), 300, 200, 3.5f);
    return px;
  };
  EXPECT_EQ(blurred(1), blurred(16));

  auto same = Noise(100, 4, false), orig = same;
  GaussianBlur(same.data(), 10, 10, 0.3f);  // below 0.5: nothing
  EXPECT_EQ(same, orig);
}

TEST(BlurFilter, AveragesNeighbourhoodsWithoutDarkFringes) {
  // A transparent pixel between opaque red ones takes their colour.
  const BlurParams one{1.0f};
  // Alpha (255 + 0 + 255 + 1) / 3.
  EXPECT_EQ(Applied(Blur, {Px(255, 255, 0, 0), 0, Px(255, 255, 0, 0)}, 3, 1, one)[1], Px(170, 255, 0, 0));
  std::vector<uint32_t> grey(9, Px(255, 90, 90, 90));
  grey[4] = Px(255, 0, 0, 0);
  EXPECT_EQ(Applied(Blur, grey, 3, 3, one)[4], Px(255, 80, 80, 80));  // (8 x 90 + 0 + 4) / 9
}

TEST(SharpenFilter, ThresholdProtectsSmallDifferences) {
  std::vector<uint32_t> step;
  for (int x = 0; x < 20; ++x) step.push_back(x < 10 ? Px(255, 100, 100, 100) : Px(255, 130, 130, 130));
  const auto sharp = Applied(Sharpen, step, 20, 1, SharpenParams{2.0f, 100, 0});
  EXPECT_LT(sharp[9] & 255, 100u);   // darker before the edge
  EXPECT_GT(sharp[10] & 255, 130u);  // brighter after it
  // A 30-level edge is under half of 60 everywhere.
  EXPECT_EQ(Applied(Sharpen, step, 20, 1, SharpenParams{2.0f, 100, 60}), step);
}

TEST(NoiseFilter, RepeatableSkipsTransparencyAndStaysInRange) {
  auto a = Noise(2000, 11, true), b = a;
  a[5] = b[5] = 0x00123456;
  AddNoiseParams p{40, false, true};
  AddNoise(a.data(), 2000, 1, &p);
  AddNoise(b.data(), 2000, 1, &p);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a[5], 0x00123456u);
  auto original = Noise(2000, 11, true);
  int changed = 0;
  for (int i = 0; i < 2000; ++i) changed += a[i] != original[i];
  EXPECT_GT(changed, 1500);
  for (uint32_t g : Applied(AddNoise, std::vector<uint32_t>(500, Px(255, 128, 128, 128)), 500, 1,
                            AddNoiseParams{100, true, false})) {
    ASSERT_EQ((g >> 16) & 255, g & 255);  // one value for all three channels
    ASSERT_LE(std::abs(int((g & 255)) - 128), 153);
  }
}

TEST(PixelateFilter, BlocksStartAtTheRegionCorner) {
  auto doc = CreateDocument(24, 1, 72, 0, 0);
  for (int x = 0; x < 24; ++x) doc->layers[0].pixels.At(x, 0) = Px(255, x * 10, 0, 0);
  doc->selection.emplace(24, 1);
  for (int x = 3; x < 24; ++x) doc->selection->At(x, 0) = 255;
  doc->selectionBounds = {3, 0, 24, 1};
  PixelateParams eight{8};
  ApplyToSelection(*doc, u"Pixelate", &Pixelate, &eight, 0);
  const Surface& p = doc->layers[0].pixels;
  EXPECT_EQ(p.At(2, 0), Px(255, 20, 0, 0));      // outside the selection
  EXPECT_EQ(p.At(3, 0), p.At(10, 0));            // one block: x 3..10
  EXPECT_NE(p.At(10, 0), p.At(11, 0));           // the next starts at 11
  EXPECT_EQ(p.At(3, 0), Px(255, 65, 0, 0));      // mean of 30..100
  EXPECT_EQ(p.At(19, 0), p.At(23, 0));           // the last block is cut short
  EXPECT_EQ(Applied(Pixelate, std::vector<uint32_t>(4, 0), 2, 2, eight), std::vector<uint32_t>(4, 0));
}

TEST(LuminanceFilters, FlatAreasGiveTheirDocumentedValues) {
  std::vector<uint32_t> emboss(25, Px(200, 0, 0, 0)), edges = emboss;
  Emboss(emboss.data(), 5, 5, nullptr);
  EdgeDetect(edges.data(), 5, 5, nullptr);
  EXPECT_EQ(std::pair(emboss[12], edges[12]), std::pair(Px(200, 128, 128, 128), Px(200, 0, 0, 0)));
  // A vertical edge: Sobel finds it, at full strength clamped to 255.
  std::vector<uint32_t> edge;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) edge.push_back(x < 2 ? Px(255, 0, 0, 0) : Px(255, 255, 255, 255));
  EdgeDetect(edge.data(), 4, 3, nullptr);
  EXPECT_EQ(std::pair(edge[4 + 0], edge[4 + 1]), std::pair(Px(255, 0, 0, 0), Px(255, 255, 255, 255)));
}

// Lens Blur by its definition, every disc summed afresh: offsets with
// dx² + dy² <= r², clamp-to-edge, weight round(256 (1 + glow l³)) of the
// premultiplied luminance, each channel (S + T / 2) / T.
std::vector<uint32_t> ReferenceLens(std::vector<uint32_t> px, int w, int h, int r, double glow) {
  Premultiply(px.data(), px.size());
  std::vector<uint32_t> out(px.size());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint64_t sum[4] = {0, 0, 0, 0}, total = 0;
      for (int dy = -r; dy <= r; ++dy)
        for (int dx = -r; dx <= r; ++dx) {
          if (dx * dx + dy * dy > r * r) continue;
          const uint32_t p = px[std::clamp(y + dy, 0, h - 1) * w + std::clamp(x + dx, 0, w - 1)];
          const double l = Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255) / 255.0;
          const uint64_t weight = uint64_t(std::llround(256.0 * (1.0 + glow * l * l * l)));
          for (int c = 0; c < 4; ++c) sum[c] += ((p >> (8 * c)) & 255) * weight;
          total += weight;
        }
      uint32_t v = 0;
      for (int c = 0; c < 4; ++c) v |= uint32_t((sum[c] + total / 2) / total) << (8 * c);
      out[y * w + x] = v;
    }
  Unpremultiply(out.data(), out.size());
  return out;
}

TEST(LensBlurFilter, MatchesTheDiscByDefinition) {
  struct Case { int w, h; float radius, glow; int processors = 0; };  // 0: the machine's own count
  // Radius 1, radii beyond the image, single pixels and lines, glow that
  // forces the 32-bit sums into the totals often, and row splits that cut
  // through the band and the blocks of rows.
  const Case cases[] = {{1, 1, 1, 0},       {1, 1, 7, 20},          {1, 40, 5, 4},
                        {40, 1, 5, 4},      {9, 7, 1, 0},           {9, 7, 12, 20},
                        {5, 70, 3, 2.5f},   {23, 17, 40, 100},      {61, 45, 8, 20, 16},
                        {61, 45, 2.6f, 4, 3}, {33, 100, 17, 0.5f, 5}};
  uint32_t seed = 1;
  for (const Case& k : cases) {
    auto px = Noise(std::size_t(k.w) * k.h, seed++, false);
    for (std::size_t i = 0; i < px.size(); i += 5) px[i] &= 0x00FFFFFFu;  // fully transparent
    for (std::size_t i = 2; i < px.size(); i += 7) px[i] |= 0xFF000000u;  // and opaque
    const auto want = ReferenceLens(px, k.w, k.h, int(k.radius + 0.5f), k.glow);
    const Processors split(k.processors);
    ASSERT_EQ(Applied(LensBlur, px, k.w, k.h, LensBlurParams{k.radius, k.glow}), want)
        << k.w << " x " << k.h << ", radius " << k.radius << ", glow " << k.glow;
  }
}

TEST(LensBlurFilter, FlatStaysFlatAndCancelledRunsStop) {
  // White at the largest glow fills the 32-bit running sums the most.
  std::mt19937 rng(3);
  const LensBlurParams flatCases[] = {{9.0f, 0.0f}, {9.0f, 7.0f}, {40.0f, 20.0f}, {40.0f, 100.0f}};
  for (const LensBlurParams& p : flatCases) {
    const std::vector<uint32_t> flat(50 * 40, p.glow >= 100.0f ? 0xFFFFFFFFu : rng() | 0xFF000000u);
    ASSERT_EQ(Applied(LensBlur, flat, 50, 40, p), flat) << "glow " << p.glow;
  }
  // A translucent flat image may shift by the premultiply rounding, but evenly.
  const auto glass =
      Applied(LensBlur, std::vector<uint32_t>(30 * 30, Px(77, 200, 31, 140)), 30, 30, LensBlurParams{6, 3});
  EXPECT_EQ(std::count(glass.begin(), glass.end(), glass[0]), 30 * 30);

  // Every row is reported once; an already cancelled run reports none and
  // stops without touching memory it should not.
  const LensBlurParams big{30.0f, 4.0f};
  for (bool cancel : {false, true}) {
    auto px = Noise(120 * 300, 8, false);
    Progress progress;
    if (cancel) progress.Cancel();
    ScopedProgress scope(&progress);
    const Processors split(4);
    LensBlur(px.data(), 120, 300, &big);
    EXPECT_EQ(progress.Fraction(), cancel ? 0.0 : 1.0);
  }
}

TEST(OtherBlurs, MotionBlurAveragesAlongItsAngleOnlyAndKeepsFlatAreas) {
  const std::vector<uint32_t> flat(100, Px(255, 40, 80, 120));
  EXPECT_EQ(Applied(MotionBlur, flat, 10, 10, MotionBlurParams{6, 30}), flat);
  // A horizontal motion blur spreads a dot along its row only.
  std::vector<uint32_t> dot(15 * 5, Px(255, 0, 0, 0));
  dot[2 * 15 + 7] = Px(255, 255, 255, 255);
  dot = Applied(MotionBlur, dot, 15, 5, MotionBlurParams{4, 0});
  EXPECT_GT(dot[2 * 15 + 9] & 255, 0u);
  EXPECT_EQ(dot[1 * 15 + 7] & 255, 0u);
  EXPECT_EQ(BlurMargin(2.0f), 8);
}

}  // namespace
}  // namespace tavora
