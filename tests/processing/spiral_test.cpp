#include "processing/spiral.h"

#include <gtest/gtest.h>

#include <vector>

namespace tavora {
namespace {

constexpr uint32_t kRed = 0xFFFF0000, kBlue = 0xFF0000FF, kGrey = 0xFF808080;

std::vector<uint32_t> Draw(int32_t w, int32_t h, const SpiralParams& p) {
  std::vector<uint32_t> pixels(std::size_t(w) * std::size_t(h), kGrey);
  Spiral(pixels.data(), w, h, &p);
  return pixels;
}

TEST(Spiral, LineAndGapAlternateOutwardsAtTheThickness) {
  SpiralParams p;
  p.thickness = 10;
  p.softness = 0;
  p.color1 = kRed;
  p.color2 = kBlue;
  // Along the ray to the right (angle 0) the phase is r / 20: line for the
  // first 10 pixels of each 20, gap for the rest.
  for (double r : {2.0, 7.0, 22.0, 27.0, 45.0})
    EXPECT_EQ(SpiralLineWeight(r, 0, p), 1.0) << r;
  for (double r : {12.0, 17.0, 33.0, 55.0}) EXPECT_EQ(SpiralLineWeight(r, 0, p), 0.0) << r;
  // A quarter turn clockwise on screen (straight down) shifts the bands out
  // by a quarter of the pitch; counter-clockwise shifts them in.
  EXPECT_EQ(SpiralLineWeight(0, 2, p), 0.0);   // phase 0.1 - 0.25 wraps into the gap
  EXPECT_EQ(SpiralLineWeight(0, 7, p), 1.0);   // 0.35 - 0.25 = 0.1
  p.counterClockwise = true;
  EXPECT_EQ(SpiralLineWeight(0, 2, p), 1.0);   // 0.1 + 0.25
  EXPECT_EQ(SpiralLineWeight(0, 7, p), 0.0);   // 0.35 + 0.25
  // On an edge the colours meet half and half.
  EXPECT_DOUBLE_EQ(SpiralLineWeight(10, 0, p), 0.5);
}

TEST(Spiral, DrawsInsideTheRadiusOnlyWithSoftEdges) {
  SpiralParams p;
  p.thickness = 4;
  p.radiusPercent = 50;  // a radius of 25 in a 100 x 100 area
  p.softness = 0;
  p.color1 = kRed;
  p.color2 = kBlue;
  const std::vector<uint32_t> hard = Draw(100, 100, p);
  int red = 0, blue = 0, other = 0;
  for (int32_t y = 0; y < 100; ++y) {
    for (int32_t x = 0; x < 100; ++x) {
      const double dx = x + 0.5 - 50, dy = y + 0.5 - 50;
      const uint32_t px = hard[std::size_t(y) * 100 + std::size_t(x)];
      if (dx * dx + dy * dy > 26 * 26) {
        EXPECT_EQ(px, kGrey) << x << "," << y;
      }
      red += px == kRed;
      blue += px == kBlue;
      other += px != kRed && px != kBlue && px != kGrey;
    }
  }
  // Line and gap are equally wide; only the pixels on an edge are mixed.
  EXPECT_NEAR(red, blue, (red + blue) / 10);
  EXPECT_GT(red, 600);
  EXPECT_LT(other, red);
  // A wider softness mixes more pixels and never reaches past the radius
  // by more than itself.
  p.softness = 6;
  const std::vector<uint32_t> soft = Draw(100, 100, p);
  int softOther = 0;
  for (int32_t y = 0; y < 100; ++y) {
    for (int32_t x = 0; x < 100; ++x) {
      const uint32_t px = soft[std::size_t(y) * 100 + std::size_t(x)];
      softOther += px != kRed && px != kBlue && px != kGrey;
      const double dx = x + 0.5 - 50, dy = y + 0.5 - 50;
      if (dx * dx + dy * dy > 29 * 29) {
        EXPECT_EQ(px, kGrey);
      }
    }
  }
  EXPECT_GT(softOther, 2 * other);
}

}  // namespace
}  // namespace tavora
