#include "processing/adjustments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "document/history.h"
#include "pixels.h"

namespace tavora {
namespace {

using testing_support::Px;
using testing_support::SamePixels;

bool IsIdentity(const uint8_t* table) {
  for (int i = 0; i < 256; ++i)
    if (table[i] != i) return false;
  return true;
}

TEST(ToneRoutines, LerpPixelIsExactlyRoundedOnEveryChannel) {
  for (uint32_t a = 0; a < 256; a += 5)
    for (uint32_t b = 0; b < 256; b += 3)
      for (uint32_t m = 0; m < 256; m += 7) {
        const uint32_t want = (2 * (a * (255 - m) + b * m) + 255) / 510;
        ASSERT_EQ(LerpPixel(Px(a, a, b, 0), Px(b, b, a, 255), m),
                  Px(want, want, (2 * (b * (255 - m) + a * m) + 255) / 510, (2 * 255 * m + 255) / 510));
      }
}

TEST(ToneRoutines, PercentileClipFindsTheFirstBinsPastTheCut) {
  uint64_t h[256] = {};
  h[10] = 5;
  h[20] = 990;
  h[240] = 5;
  const uint64_t empty[256] = {};
  const auto clip = [](const uint64_t* histogram, uint64_t total, double percent) {
    const ClipRange r = PercentileClip(histogram, total, percent);
    return std::pair{r.low, r.high};
  };
  // 0.5 % of 1000 is 5: the sum must exceed 5, so bins 10 and 240 are cut.
  EXPECT_EQ(clip(h, 1000, 0.5), std::pair(20, 20));
  EXPECT_EQ(clip(h, 1000, 0.1), std::pair(10, 240));  // cut 1: the outer bins already exceed it
  EXPECT_EQ(clip(empty, 0, 0.5), std::pair(0, 255));
}

TEST(ToneRoutines, StretchTablesAndTheirIdentityCases) {
  uint8_t t[256];
  for (auto [low, high] : {std::pair{50, 51}, {100, 100}}) {
    StretchLut(t, low, high);
    EXPECT_TRUE(IsIdentity(t)) << low << ".." << high;
  }
  StretchLut(t, 50, 200);
  // 75 * 255 / 150 = 127.5 rounds up.
  EXPECT_EQ(std::tuple(t[0], t[50], t[125], t[200], t[255]), std::tuple(0, 0, 128, 255, 255));
  for (int i = 51; i < 200; ++i) ASSERT_LE(t[i - 1], t[i]);
}

TEST(ToneRoutines, HsvRoundTripsEveryColourOfAGrid) {
  for (int r = 0; r < 256; r += 15)
    for (int g = 0; g < 256; g += 15)
      for (int b = 0; b < 256; b += 15) {
        const Hsv hsv = RgbToHsv(r, g, b);
        int32_t r2, g2, b2;
        HsvToRgb(hsv.h, hsv.s, hsv.v, r2, g2, b2);
        ASSERT_EQ((std::array{r2, g2, b2}), (std::array{r, g, b}));
      }
  // Magenta's negative hue gets 360 added; -120 wraps to 240, blue.
  EXPECT_EQ(std::tuple(RgbToHsv(255, 0, 0).h, RgbToHsv(0, 0, 255).h, RgbToHsv(255, 0, 255).h), std::tuple(0, 240, 300));
  int32_t r, g, b;
  HsvToRgb(-120, 1, 1, r, g, b);
  EXPECT_EQ((std::array{r, g, b}), (std::array{0, 0, 255}));
}

TEST(Adjustments, ToneTablesAtTheirLimitsAndIdentities) {
  uint8_t t[256];
  BrightnessContrastTable(0, 0, t);
  EXPECT_TRUE(IsIdentity(t));
  GammaTable(1.0f, 0, t);
  EXPECT_TRUE(IsIdentity(t));
  // Contrast scales about 128 by f = (2c + 255) 259 / ((259 - 2c) 255), then
  // brightness adds 2b; rounded and clamped.
  const struct { int brightness, contrast, in, want; } bc[] = {
      {0, -100, 0, 112}, {0, -100, 255, 143},  // f about 0.12: almost flat grey
      {0, 100, 120, 65},  {0, 100, 140, 222},  // f about 7.8: nearly a threshold (221.99 rounds up)
      {40, 0, 0, 80},     {40, 0, 176, 255},   {-100, 0, 199, 0}, {-100, 0, 255, 55},
      {40, 55, 100, 138},                      // -28 f + 208, f about 2.488
  };
  for (const auto& c : bc) {
    BrightnessContrastTable(c.brightness, c.contrast, t);
    EXPECT_EQ(t[c.in], c.want) << c.brightness << " " << c.contrast << " at " << c.in;
  }
  // Gamma: value^(1 / g) with g = gamma x 2^(shift / 100), and the fixed
  // exponent 20 below g 0.05.
  const struct { float gamma; int shift, in, want; } gamma[] = {
      {0.3f, -100, 128, 3},  // g 0.15: (128 / 255)^6.67 x 255 = 2.6
      {0.3f, -100, 255, 255},
      {0.01f, 0, 250, 172},  // (250 / 255)^20 x 255
      {1.0f, 100, 64, 128},  // g 2: the square root, brighter mid-tones
  };
  for (const auto& g : gamma) {
    GammaTable(g.gamma, g.shift, t);
    EXPECT_EQ(t[g.in], g.want) << g.gamma << " " << g.shift << " at " << g.in;
  }
  PosterizeTable(2, t);
  EXPECT_EQ(std::tuple(t[127], t[128]), std::tuple(0, 255));
  PosterizeTable(4, t);
  std::vector<int> outs(t, t + 256);
  std::sort(outs.begin(), outs.end());
  outs.erase(std::unique(outs.begin(), outs.end()), outs.end());
  EXPECT_EQ(outs, (std::vector<int>{0, 85, 170, 255}));
  PosterizeTable(1000, t);  // clamped to 64 levels
  EXPECT_EQ(t[4], 4);
}

TEST(Adjustments, PixelOperationsOnChosenColours) {
  const ThresholdParams zero{0}, top{255};
  const HueSaturationParams turn{120, 0, 0}, grey{0, -100, 0}, lighter{0, 0, 50}, darker{0, 0, -50};
  const ColorizeParams tint{200, 60, 0}, dark{200, 60, -100};  // hue 200 at 60 % is (102, 204, 255)
  const struct { const char* what; PixelOp op; const void* params; uint32_t in, want; } rows[] = {
      {"invert keeps alpha", &Invert, nullptr, Px(9, 1, 2, 3), Px(9, 254, 253, 252)},
      {"grey of red", &Grayscale, nullptr, Px(10, 255, 0, 0), Px(10, 76, 76, 76)},
      {"grey of green", &Grayscale, nullptr, Px(255, 0, 255, 0), Px(255, 149, 149, 149)},
      {"a grey stays", &Grayscale, nullptr, Px(255, 77, 77, 77), Px(255, 77, 77, 77)},
      {"sepia of white", &Sepia, nullptr, Px(255, 255, 255, 255), Px(255, 255, 255, 238)},
      {"sepia truncates", &Sepia, nullptr, Px(128, 100, 50, 20), Px(128, 81, 72, 56)},
      {"threshold 0", &Threshold, &zero, Px(7, 0, 0, 0), Px(7, 255, 255, 255)},
      {"threshold 255, white", &Threshold, &top, Px(9, 255, 255, 255), Px(9, 255, 255, 255)},
      {"threshold 255, luminance 254", &Threshold, &top, Px(255, 254, 255, 255), Px(255, 0, 0, 0)},
      {"hue +120", &HueSaturation, &turn, Px(255, 255, 0, 0), Px(255, 0, 255, 0)},
      {"HSV keeps V: full red goes white", &HueSaturation, &grey, Px(10, 255, 0, 0), Px(10, 255, 255, 255)},
      {"lighter: 100 + 155 x 50 / 100", &HueSaturation, &lighter, Px(255, 100, 100, 100), Px(255, 177, 177, 177)},
      {"darker: 101 x 0.5 truncates", &HueSaturation, &darker, Px(255, 101, 101, 101), Px(255, 50, 50, 50)},
      {"colorize white", &Colorize, &tint, Px(255, 255, 255, 255), Px(255, 255, 255, 255)},
      {"colorize black", &Colorize, &tint, Px(255, 0, 0, 0), Px(255, 0, 0, 0)},
      {"the light half: tint + (255 - tint) 2 (l - 0.5)", &Colorize, &tint, Px(3, 128, 128, 128), Px(3, 102, 204, 255)},
      {"l below 0", &Colorize, &dark, Px(255, 60, 60, 60), Px(255, 0, 0, 0)},
  };
  for (const auto& r : rows) {
    uint32_t p = r.in;
    r.op(&p, 1, 1, r.params);
    EXPECT_EQ(p, r.want) << r.what << std::hex << ": got " << p;
  }
  std::mt19937 rng(4);
  std::vector<uint32_t> px(300);
  for (auto& p : px) p = rng();
  auto same = px;
  const HueSaturationParams none{0, 0, 0};
  HueSaturation(same.data(), 300, 1, &none);
  EXPECT_EQ(same, px);
}

TEST(AutoAdjustments, StretchCraftedHistogramsAndLeaveFlatChannels) {
  // Red spans 50..200, green is one value, blue spans the full range.
  std::vector<uint32_t> px;
  for (int i = 0; i < 151; ++i) px.push_back(Px(255, 50 + i, 77, i * 255 / 150));
  px.push_back(Px(0, 0, 0, 0));  // transparent pixels take no part
  AutoTone(px.data(), static_cast<int32_t>(px.size()), 1, nullptr);
  // Red stretched to 0..255, green's one value kept, the transparent pixel alone.
  EXPECT_EQ(std::tuple(px[0] >> 16 & 255, px[150] >> 16 & 255, px[75] >> 8 & 255, px.back()),
            std::tuple(0u, 255u, 77u, 0u));

  std::vector<uint32_t> clear(10, 0x00123456);
  auto unchanged = clear;
  AutoTone(clear.data(), 10, 1, nullptr);
  AutoContrast(clear.data(), 10, 1, nullptr);
  AutoColor(clear.data(), 10, 1, nullptr);
  EXPECT_EQ(clear, unchanged);

  // Auto Contrast stretches all channels with one table: a grey ramp from
  // 64 to 191 becomes 0..255 and stays grey.
  std::vector<uint32_t> ramp;
  for (int i = 64; i < 192; ++i) ramp.push_back(Px(255, i, i, i));
  AutoContrast(ramp.data(), static_cast<int32_t>(ramp.size()), 1, nullptr);
  EXPECT_EQ(std::pair(ramp.front(), ramp.back()), std::pair(0xFF000000u, 0xFFFFFFFFu));
  for (uint32_t p : ramp) ASSERT_TRUE(((p >> 16) & 255) == (p & 255) && ((p >> 8) & 255) == (p & 255));
}

TEST(AutoAdjustments, AutoColorNeutralisesACast) {
  // A warm-tinted grey ramp: Auto Color pulls the mid-tones back to grey.
  std::vector<uint32_t> px;
  for (int i = 0; i < 256; ++i)
    px.push_back(Px(255, std::min(255, i + 30), i, std::max(0, i - 30)));
  AutoColor(px.data(), 256, 1, nullptr);
  const uint32_t mid = px[128];
  const int r = (mid >> 16) & 255, g = (mid >> 8) & 255, b = mid & 255;
  EXPECT_LT(std::abs(r - b), 20) << r << " " << g << " " << b;  // was 60 apart

  // The grey-balance means keep their fractions: the near-neutral pixels
  // average 100.45 in red and green but exactly 100 in blue, so a dark grey
  // of 50 comes out 76 in red and green and 77 in blue (an integer mean
  // would give 77 everywhere). Black and white make the first tables plain.
  std::vector<uint32_t> balance = {Px(255, 0, 0, 0), Px(255, 255, 255, 255), Px(255, 50, 50, 50)};
  for (int i = 0; i < 2; ++i) balance.push_back(Px(255, 100, 100, 100));
  for (int i = 0; i < 9; ++i) balance.push_back(Px(255, 101, 100, 100));
  for (int i = 0; i < 9; ++i) balance.push_back(Px(255, 100, 101, 100));
  AutoColor(balance.data(), static_cast<int32_t>(balance.size()), 1, nullptr);
  EXPECT_EQ(balance[2], Px(255, 76, 76, 77));
}

// A stand-in filter: each pixel takes its left neighbour's colour, so the
// margin decides what the first column sees.
void ShiftRight(uint32_t* p, int32_t w, int32_t h, const void*) {
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = w - 1; x > 0; --x) p[y * w + x] = p[y * w + x - 1];
}

// One row of greys (x times step at x) and a selection of these bytes
// within `bounds`.
std::unique_ptr<Document> GreyRow(uint32_t step, const std::vector<uint8_t>& selected, const Rect& bounds) {
  const int32_t w = int32_t(selected.size());
  auto doc = CreateDocument(w, 1, 72, 0xFF000000, 0);
  doc->selection.emplace(w, 1);
  for (int32_t x = 0; x < w; ++x) {
    doc->layers[0].pixels.At(x, 0) = Px(255, step * x, step * x, step * x);
    doc->selection->At(x, 0) = selected[x];
  }
  doc->selectionBounds = bounds;
  return doc;
}

TEST(ApplyToSelectionDriver, FeatheredMasksBlendAndUndoRestoresTheBits) {
  auto doc = GreyRow(10, {0, 0, 255, 128, 0, 0, 0, 0}, {2, 0, 5, 1});  // x 4: inside the bounds, not selected
  const Surface before = doc->layers[0].pixels;
  ApplyToSelection(*doc, u"Invert", &Invert, nullptr, 0);
  Surface want = before;
  want.At(2, 0) ^= 0x00FFFFFFu;
  want.At(3, 0) = LerpPixel(before.At(3, 0), before.At(3, 0) ^ 0x00FFFFFFu, 128);
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, want));
  EXPECT_EQ(UndoLabel(*doc), u"Invert");
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, before));
}

TEST(ApplyToSelectionDriver, TheMarginLetsAnOperationSeeOutsideTheSelection) {
  const std::vector<uint8_t> middle{0, 0, 255, 255, 0, 0};
  auto doc = GreyRow(1, middle, {2, 0, 4, 1});
  ApplyToSelection(*doc, u"Shift", &ShiftRight, nullptr, 1);
  // x 2 took its colour from outside; the margin at x 4 is not written.
  const Surface& p = doc->layers[0].pixels;
  EXPECT_EQ(std::tuple(p.At(2, 0), p.At(3, 0), p.At(4, 0)),
            std::tuple(Px(255, 1, 1, 1), Px(255, 2, 2, 2), Px(255, 4, 4, 4)));
  auto noMargin = GreyRow(1, middle, {2, 0, 4, 1});
  ApplyToSelection(*noMargin, u"Shift", &ShiftRight, nullptr, 0);
  EXPECT_EQ(noMargin->layers[0].pixels.At(2, 0), Px(255, 2, 2, 2));  // saw only itself
  // A selection off the layer: nothing is recorded.
  noMargin->selectionBounds = {};
  const auto states = noMargin->history.states.size();
  ApplyToSelection(*noMargin, u"Shift", &ShiftRight, nullptr, 0);
  EXPECT_EQ(noMargin->history.states.size(), states);
}

}  // namespace
}  // namespace tavora
