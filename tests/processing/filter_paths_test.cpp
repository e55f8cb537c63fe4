// The faster paths of the filters and adjustments (box-pass chains in 16-bit
// lanes, tables, bands of rows on several workers) against the plain
// pixel-by-pixel code, bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/row_workers.h"
#include "processing/adjustments.h"
#include "processing/filters.h"

namespace tavora {
namespace {

struct Size {
  int32_t w, h;
};

// Edges and odd shapes: single pixels, single rows and columns, widths that
// are not a multiple of 4 or 8, and heights that split into bands thinner
// than a blur's reach.
constexpr Size kSizes[] = {{1, 1}, {1, 37}, {53, 1}, {7, 5}, {13, 40}, {67, 45}, {9, 100}, {130, 33}};

// Random pixels, a third of them with random alpha (some fully
// transparent), with flat patches so that equal neighbours occur too.
std::vector<uint32_t> Image(Size s, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint32_t> px(std::size_t(s.w) * s.h);
  for (std::size_t i = 0; i < px.size(); ++i) {
    if (i > 0 && rng() % 4 == 0) {
      px[i] = px[i - 1];
      continue;
    }
    const uint32_t kind = rng() % 6;
    px[i] = rng();
    if (kind < 3) px[i] |= 0xFF000000u;
    else if (kind == 3) px[i] &= 0x00FFFFFFu;
  }
  return px;
}

struct Case {
  std::string name;
  std::function<void(uint32_t*, int32_t, int32_t)> run;
};

std::vector<Case> FilterCases() {
  std::vector<Case> cases;
  auto add = [&](std::string name, PixelOp op, auto params) {
    cases.push_back({std::move(name), [op, params](uint32_t* p, int32_t w, int32_t h) { op(p, w, h, &params); }});
  };
  for (float r : {0.3f, 0.7f, 1.0f, 2.5f, 10.0f, 31.0f}) add("gaussian " + std::to_string(r), &GaussianBlurOp, GaussianBlurParams{r});
  for (float s : {1.0f, 4.0f}) add("blur " + std::to_string(s), &Blur, BlurParams{s});
  for (int32_t r : {1, 6})
    cases.push_back({"box " + std::to_string(r), [r](uint32_t* p, int32_t w, int32_t h) { BoxBlurPass(p, w, h, r); }});
  const MotionBlurParams motions[] = {{1, 0}, {20, 30}, {7, 90}, {12, -135}, {300, 10}};
  for (const auto& m : motions) add("motion " + std::to_string(m.distance) + "/" + std::to_string(m.angle), &MotionBlur, m);
  const SharpenParams sharpens[] = {{0.3f, 100, 0}, {1.5f, 100, 0}, {1.5f, 250, 20}, {5.0f, 500, 60}};
  for (const auto& s : sharpens) add("sharpen " + std::to_string(s.radius) + "/" + std::to_string(s.threshold), &Sharpen, s);
  for (const auto& n : {AddNoiseParams{30, false, false}, AddNoiseParams{100, true, false}, AddNoiseParams{20, false, true}})
    add("noise " + std::to_string(n.amount), &AddNoise, n);
  add("pixelate", &Pixelate, PixelateParams{3});
  add("emboss", &Emboss, 0);
  add("edges", &EdgeDetect, 0);
  return cases;
}

std::vector<Case> AdjustmentCases() {
  std::vector<Case> cases;
  auto add = [&](std::string name, PixelOp op, auto params) {
    cases.push_back({std::move(name), [op, params](uint32_t* p, int32_t w, int32_t h) { op(p, w, h, &params); }});
  };
  const HueSaturationParams hues[] = {{0, 0, 0},     {30, 20, 10},   {-180, -100, -100}, {180, 100, 100},
                                      {45, -50, 0},  {-90, 60, -30}, {400, 0, 0},        {-500, 5, 0}};
  for (const auto& h : hues)
    add("hue " + std::to_string(h.hue) + "/" + std::to_string(h.saturation) + "/" + std::to_string(h.lightness),
        &HueSaturation, h);
  add("brightness", &BrightnessContrast, BrightnessContrastParams{20, -30});
  add("posterize", &Posterize, PosterizeParams{5});
  add("colorize", &Colorize, ColorizeParams{200, 60, -20});
  add("threshold", &Threshold, ThresholdParams{100});
  for (PixelOp op : {&Grayscale, &Sepia, &Invert, &AutoTone, &AutoContrast, &AutoColor}) add("immediate", op, 0);
  return cases;
}

// Each case on each size, with the fast paths (with and without AVX2 where
// the processor has it) on several worker counts against the plain paths
// on one.
void ExpectSameAsPlain(const std::vector<Case>& cases) {
  for (const Case& c : cases)
    for (Size s : kSizes) {
      const std::vector<uint32_t> source = Image(s, uint32_t(s.w * 131 + s.h));
      std::vector<uint32_t> want = source;
      AllowFastFiltersForTesting(false);
      AllowFastAdjustmentsForTesting(false);
      RowWorkers::OverrideProcessorCountForTesting(1);
      c.run(want.data(), s.w, s.h);
      AllowFastFiltersForTesting(true);
      AllowFastAdjustmentsForTesting(true);
      for (bool avx2 : {false, true})
        for (int workers : {1, 2, 7}) {
          AllowAvx2FiltersForTesting(avx2);
          RowWorkers::OverrideProcessorCountForTesting(workers);
          std::vector<uint32_t> got = source;
          c.run(got.data(), s.w, s.h);
          ASSERT_EQ(got, want) << c.name << " on " << s.w << " x " << s.h << " with " << workers << " workers"
                               << (avx2 ? ", AVX2" : "");
        }
      AllowAvx2FiltersForTesting(true);
      RowWorkers::OverrideProcessorCountForTesting(0);
    }
}

TEST(FilterPaths, FastPathsGiveThePlainPathsPixels) { ExpectSameAsPlain(FilterCases()); }

TEST(FilterPaths, AdjustmentsGiveThePlainPathsPixels) { ExpectSameAsPlain(AdjustmentCases()); }

// Every colour with channels on a grid of 18 levels (ties and greys
// included, and both ends) through Hue / Saturation / Lightness.
TEST(FilterPaths, HueSaturationTablesMatchOnAColourGrid) {
  std::vector<uint32_t> grid;
  const int levels[] = {0, 1, 2, 15, 16, 63, 64, 100, 127, 128, 129, 170, 200, 240, 253, 254, 255, 77};
  for (int r : levels)
    for (int g : levels)
      for (int b : levels) grid.push_back(0xFF000000u | uint32_t(r) << 16 | uint32_t(g) << 8 | uint32_t(b));
  for (const HueSaturationParams& p : {HueSaturationParams{0, 0, 0}, HueSaturationParams{120, 40, 25},
                                       HueSaturationParams{-179, -60, -70}, HueSaturationParams{180, 100, 0}}) {
    std::vector<uint32_t> want = grid, got = grid;
    AllowFastAdjustmentsForTesting(false);
    HueSaturation(want.data(), int32_t(want.size()), 1, &p);
    AllowFastAdjustmentsForTesting(true);
    HueSaturation(got.data(), int32_t(got.size()), 1, &p);
    ASSERT_EQ(got, want) << p.hue << " " << p.saturation << " " << p.lightness;
  }
}

// Colorize looks its colour up by luminance; the definition computes it
// per pixel.
TEST(FilterPaths, ColorizeTableFollowsThePerPixelDefinition) {
  const ColorizeParams p{330, 80, 35};
  std::vector<uint32_t> px = Image({64, 8}, 5);
  std::vector<uint32_t> want = px;
  int32_t tint[3];
  HsvToRgb(p.hue, p.saturation / 100.0, 1.0, tint[0], tint[1], tint[2]);
  for (uint32_t& q : want) {
    const double l = Luminance((q >> 16) & 255, (q >> 8) & 255, q & 255) / 255.0 + p.lightness / 200.0;
    uint32_t out = q & 0xFF000000u;
    for (int k = 0; k < 3; ++k) {
      const double v = l < 0 ? 0 : l > 1 ? 255 : l < 0.5 ? std::floor(tint[k] * (2 * l))
                                                         : std::floor((255 - tint[k]) * (2 * (l - 0.5)) + tint[k]);
      out |= uint32_t(std::clamp(v, 0.0, 255.0)) << (16 - 8 * k);
    }
    q = out;
  }
  Colorize(px.data(), 64, 8, &p);
  EXPECT_EQ(px, want);
}

}  // namespace
}  // namespace tavora
