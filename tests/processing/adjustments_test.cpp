#include "processing/adjustments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "document/history.h"

namespace tavora {
namespace {

uint32_t Px(uint32_t a, uint32_t r, uint32_t g, uint32_t b) { return a << 24 | r << 16 | g << 8 | b; }

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
  // 0.5 % of 1000 is 5: the sum must exceed 5, so bins 10 and 240 are cut.
  ClipRange r = PercentileClip(h, 1000, 0.5);
  EXPECT_EQ(r.low, 20);
  EXPECT_EQ(r.high, 20);
  r = PercentileClip(h, 1000, 0.1);  // cut 1: the outer bins already exceed it
  EXPECT_EQ(r.low, 10);
  EXPECT_EQ(r.high, 240);
  uint64_t empty[256] = {};
  r = PercentileClip(empty, 0, 0.5);
  EXPECT_EQ(r.low, 0);
  EXPECT_EQ(r.high, 255);
}

TEST(ToneRoutines, StretchTablesAndTheirIdentityCases) {
  uint8_t t[256];
  StretchLut(t, 50, 51);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
  StretchLut(t, 100, 100);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
  StretchLut(t, 50, 200);
  EXPECT_EQ(t[0], 0);
  EXPECT_EQ(t[50], 0);
  EXPECT_EQ(t[200], 255);
  EXPECT_EQ(t[255], 255);
  EXPECT_EQ(t[125], 128);  // 75 * 255 / 150 = 127.5 rounds up
  for (int i = 51; i < 200; ++i) ASSERT_LE(t[i - 1], t[i]);
}

TEST(ToneRoutines, HsvRoundTripsEveryColourOfAGrid) {
  for (int r = 0; r < 256; r += 15)
    for (int g = 0; g < 256; g += 15)
      for (int b = 0; b < 256; b += 15) {
        const Hsv hsv = RgbToHsv(r, g, b);
        int32_t r2, g2, b2;
        HsvToRgb(hsv.h, hsv.s, hsv.v, r2, g2, b2);
        ASSERT_EQ(r2, r);
        ASSERT_EQ(g2, g);
        ASSERT_EQ(b2, b);
      }
  const Hsv red = RgbToHsv(255, 0, 0);
  EXPECT_EQ(red.h, 0);
  EXPECT_EQ(RgbToHsv(0, 0, 255).h, 240);
  EXPECT_EQ(RgbToHsv(255, 0, 255).h, 300);  // a negative hue gets 360 added
  int32_t r, g, b;
  HsvToRgb(-120, 1, 1, r, g, b);  // wraps to 240: blue
  EXPECT_EQ(b, 255);
  EXPECT_EQ(r, 0);
}

TEST(Adjustments, BrightnessContrastTables) {
  uint8_t t[256];
  BrightnessContrastTable(0, 0, t);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
  for (int c : {-100, -37, 55, 100}) {
    for (int b : {-100, 0, 40}) {
      BrightnessContrastTable(b, c, t);
      const float f = float((2 * c + 255) * 259) / float((259 - 2 * c) * 255);
      for (int i = 0; i < 256; ++i) {
        const float v = float(i - 128) * f + 128.0f + float(2 * b);
        const int want = v < 0 ? 0 : v > 255 ? 255 : int(v + 0.5f);
        ASSERT_EQ(t[i], want) << b << " " << c << " " << i;
      }
    }
  }
  BrightnessContrastTable(0, -100, t);  // f about 0.12: almost flat grey
  EXPECT_EQ(t[0], 112);
  EXPECT_EQ(t[255], 143);
  BrightnessContrastTable(0, 100, t);  // f about 7.8: nearly a threshold
  EXPECT_EQ(t[120], 65);
  EXPECT_EQ(t[140], 222);
}

TEST(Adjustments, GammaShiftsDoubleOrHalveTheChannelGamma) {
  uint8_t t[256];
  GammaTable(1.0f, 0, t);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(t[i], i);
  GammaTable(0.3f, -100, t);  // g = 0.15, exponent 6.67
  EXPECT_EQ(t[128], static_cast<int>(std::pow(128 / 255.0, 1 / 0.15) * 255 + 0.5));
  EXPECT_EQ(t[255], 255);
  GammaTable(0.01f, 0, t);  // below 0.05: the fixed exponent 20
  EXPECT_EQ(t[250], static_cast<int>(std::pow(250 / 255.0, 20.0) * 255 + 0.5));
  GammaTable(1.0f, 100, t);  // gamma 2: brighter mid-tones
  EXPECT_EQ(t[64], static_cast<int>(std::sqrt(64 / 255.0) * 255 + 0.5));
}

TEST(Adjustments, PosterizeThresholdInvertGrayscaleAndSepia) {
  uint8_t t[256];
  PosterizeTable(2, t);
  EXPECT_EQ(t[127], 0);
  EXPECT_EQ(t[128], 255);
  PosterizeTable(4, t);
  std::vector<int> outs(t, t + 256);
  std::sort(outs.begin(), outs.end());
  outs.erase(std::unique(outs.begin(), outs.end()), outs.end());
  EXPECT_EQ(outs, (std::vector<int>{0, 85, 170, 255}));
  PosterizeTable(1000, t);  // clamped to 64 levels
  EXPECT_EQ(t[4], 4);

  std::vector<uint32_t> px{Px(9, 255, 255, 255), Px(255, 254, 255, 255), Px(7, 0, 0, 0)};
  ThresholdParams zero{0}, top{255};
  auto copy = px;
  Threshold(copy.data(), 3, 1, &zero);
  EXPECT_EQ(copy, (std::vector<uint32_t>{Px(9, 255, 255, 255), Px(255, 255, 255, 255), Px(7, 255, 255, 255)}));
  copy = px;
  Threshold(copy.data(), 3, 1, &top);  // only luminance 255 stays white
  EXPECT_EQ(copy, (std::vector<uint32_t>{Px(9, 255, 255, 255), Px(255, 0, 0, 0), Px(7, 0, 0, 0)}));

  std::mt19937 rng(2);
  std::vector<uint32_t> noise(500);
  for (auto& p : noise) p = rng();
  auto twice = noise;
  Invert(twice.data(), 500, 1, nullptr);
  EXPECT_NE(twice, noise);
  Invert(twice.data(), 500, 1, nullptr);
  EXPECT_EQ(twice, noise);
  auto grey = noise;
  Grayscale(grey.data(), 500, 1, nullptr);
  auto grey2 = grey;
  Grayscale(grey2.data(), 500, 1, nullptr);
  EXPECT_EQ(grey, grey2);
  for (std::size_t i = 0; i < noise.size(); ++i) {
    const uint32_t p = noise[i];
    const uint32_t y = (77 * ((p >> 16) & 255) + 150 * ((p >> 8) & 255) + 29 * (p & 255)) >> 8;
    ASSERT_EQ(grey[i], (p & 0xFF000000u) | y << 16 | y << 8 | y);
  }
  std::vector<uint32_t> sepia{Px(255, 255, 255, 255), Px(128, 100, 50, 20)};
  Sepia(sepia.data(), 2, 1, nullptr);
  EXPECT_EQ(sepia[0], Px(255, 255, 255, 238));
  EXPECT_EQ(sepia[1], Px(128, (39300 + 38450 + 3780) / 1000, (34900 + 34300 + 3360) / 1000,
                         (27200 + 26700 + 2620) / 1000));
}

TEST(Adjustments, HueSaturationAndColorize) {
  std::mt19937 rng(4);
  std::vector<uint32_t> px(300);
  for (auto& p : px) p = rng();
  auto same = px;
  HueSaturationParams none{0, 0, 0};
  HueSaturation(same.data(), 300, 1, &none);
  EXPECT_EQ(same, px);
  std::vector<uint32_t> red{Px(255, 255, 0, 0)};
  HueSaturationParams turn{120, 0, 0};
  HueSaturation(red.data(), 1, 1, &turn);
  EXPECT_EQ(red[0], Px(255, 0, 255, 0));
  HueSaturationParams grey{0, -100, 0};
  red = {Px(10, 255, 0, 0)};
  HueSaturation(red.data(), 1, 1, &grey);
  EXPECT_EQ(red[0], Px(10, 255, 255, 255));  // HSV keeps V: full red goes white
  HueSaturationParams lighter{0, 0, 50}, darker{0, 0, -50};
  std::vector<uint32_t> mid{Px(255, 100, 100, 100)};
  HueSaturation(mid.data(), 1, 1, &lighter);
  EXPECT_EQ(mid[0], Px(255, 177, 177, 177));  // 100 + 155 * 50 / 100
  mid = {Px(255, 101, 101, 101)};
  HueSaturation(mid.data(), 1, 1, &darker);
  EXPECT_EQ(mid[0], Px(255, 50, 50, 50));

  std::vector<uint32_t> bw{Px(255, 255, 255, 255), Px(255, 0, 0, 0), Px(3, 128, 128, 128)};
  ColorizeParams tint{200, 60, 0};
  Colorize(bw.data(), 3, 1, &tint);
  EXPECT_EQ(bw[0], Px(255, 255, 255, 255));
  EXPECT_EQ(bw[1], Px(255, 0, 0, 0));
  int32_t tr, tg, tb;
  HsvToRgb(200, 0.6, 1.0, tr, tg, tb);
  const double l = 128 / 255.0;  // the light half: t = 2 (l - 0.5)
  EXPECT_EQ(bw[2], Px(3, int((255 - tr) * 2 * (l - 0.5) + tr), int((255 - tg) * 2 * (l - 0.5) + tg),
                      int((255 - tb) * 2 * (l - 0.5) + tb)));
  ColorizeParams dark{200, 60, -100};
  std::vector<uint32_t> black{Px(255, 60, 60, 60)};
  Colorize(black.data(), 1, 1, &dark);  // l below 0
  EXPECT_EQ(black[0], Px(255, 0, 0, 0));
}

TEST(AutoAdjustments, StretchCraftedHistogramsAndLeaveFlatChannels) {
  // Red spans 50..200, green is one value, blue spans the full range.
  std::vector<uint32_t> px;
  for (int i = 0; i < 151; ++i) px.push_back(Px(255, 50 + i, 77, i * 255 / 150));
  px.push_back(Px(0, 0, 0, 0));  // transparent pixels take no part
  AutoTone(px.data(), static_cast<int32_t>(px.size()), 1, nullptr);
  EXPECT_EQ((px[0] >> 16) & 255, 0u);
  EXPECT_EQ((px[150] >> 16) & 255, 255u);
  EXPECT_EQ((px[75] >> 8) & 255, 77u);  // one value: identity
  EXPECT_EQ(px.back(), Px(0, 0, 0, 0));

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
  EXPECT_EQ(ramp.front() & 0xFFFFFF, 0u);
  EXPECT_EQ(ramp.back() & 0xFFFFFF, 0xFFFFFFu);
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

TEST(ApplyToSelectionDriver, FeatheredMasksBlendAndUndoRestoresTheBits) {
  auto doc = CreateDocument(8, 2, 72, 0xFF000000, 0);
  for (int x = 0; x < 8; ++x) doc->layers[0].pixels.At(x, 0) = Px(255, 10 * x, 0, 0);
  const Surface before = doc->layers[0].pixels;
  doc->selection.emplace(8, 2);
  doc->selection->At(2, 0) = 255;
  doc->selection->At(3, 0) = 128;
  doc->selection->At(4, 0) = 0;  // inside the bounds, not selected
  doc->selectionBounds = {2, 0, 5, 1};
  ApplyToSelection(*doc, u"Invert", &Invert, nullptr, 0);
  const Surface& after = doc->layers[0].pixels;
  EXPECT_EQ(after.At(2, 0), before.At(2, 0) ^ 0x00FFFFFFu);
  EXPECT_EQ(after.At(3, 0), LerpPixel(before.At(3, 0), before.At(3, 0) ^ 0x00FFFFFFu, 128));
  EXPECT_EQ(after.At(4, 0), before.At(4, 0));
  EXPECT_EQ(after.At(1, 0), before.At(1, 0));
  EXPECT_EQ(UndoLabel(*doc), u"Invert");
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(std::memcmp(doc->layers[0].pixels.Data(), before.Data(), before.PixelCount() * 4), 0);
}

TEST(ApplyToSelectionDriver, TheMarginLetsAnOperationSeeOutsideTheSelection) {
  auto doc = CreateDocument(6, 1, 72, 0xFF000000, 0);
  for (int x = 0; x < 6; ++x) doc->layers[0].pixels.At(x, 0) = Px(255, x, x, x);
  doc->selection.emplace(6, 1);
  for (int x = 2; x < 4; ++x) doc->selection->At(x, 0) = 255;
  doc->selectionBounds = {2, 0, 4, 1};
  ApplyToSelection(*doc, u"Shift", &ShiftRight, nullptr, 1);
  EXPECT_EQ(doc->layers[0].pixels.At(2, 0), Px(255, 1, 1, 1));  // came from outside
  EXPECT_EQ(doc->layers[0].pixels.At(3, 0), Px(255, 2, 2, 2));
  EXPECT_EQ(doc->layers[0].pixels.At(4, 0), Px(255, 4, 4, 4));  // margin not written
  auto noMargin = CreateDocument(6, 1, 72, 0xFF000000, 0);
  for (int x = 0; x < 6; ++x) noMargin->layers[0].pixels.At(x, 0) = Px(255, x, x, x);
  noMargin->selection = doc->selection;
  noMargin->selectionBounds = doc->selectionBounds;
  ApplyToSelection(*noMargin, u"Shift", &ShiftRight, nullptr, 0);
  EXPECT_EQ(noMargin->layers[0].pixels.At(2, 0), Px(255, 2, 2, 2));  // saw only itself
  // No layer, or a selection off the layer: nothing is recorded.
  noMargin->selectionBounds = {};
  const auto states = noMargin->history.states.size();
  ApplyToSelection(*noMargin, u"Shift", &ShiftRight, nullptr, 0);
  EXPECT_EQ(noMargin->history.states.size(), states);
}

}  // namespace
}  // namespace tavora
