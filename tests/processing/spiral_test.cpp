#include "processing/spiral.h"

#include <gtest/gtest.h>

#include <vector>

namespace tavora {
namespace {

constexpr uint32_t kRed = 0xFFFF0000, kBlue = 0xFF0000FF, kGrey = 0xFF808080;

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

struct Drawn {
  int red = 0, blue = 0, mixed = 0;
};

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
      if (dx * dx + dy * dy > reach * reach) EXPECT_EQ(px, kGrey) << x << "," << y;
      d.red += px == kRed;
      d.blue += px == kBlue;
      d.mixed += px != kRed && px != kBlue && px != kGrey;
    }
  return d;
}

TEST(Spiral, DrawsInsideTheRadiusOnlyWithSoftEdges) {
  SpiralParams p;
  p.thickness = 4;
  p.radiusPercent = 50;  // a radius of 25 in a 100 x 100 area
  p.softness = 0;
  p.color1 = kRed;
  p.color2 = kBlue;
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
