#include "auxiliary/ruler.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(Ruler, StepsSubdivisionsAndUnits) {
  struct Case {
    RulerUnit unit;
    double canvasScale;
    int32_t dpi;
    double major;
    int32_t subdivisions;
  } cases[] = {
      {RulerUnit::Pixels, 1.0, 96, 100, 10},    // 50 would be 50 DIP, below 60
      {RulerUnit::Pixels, 64.0, 96, 1, 1},      // one pixel, no minor ticks
      {RulerUnit::Pixels, 20.0, 96, 5, 1},      // a tenth below a pixel, m = 5
      {RulerUnit::Pixels, 40.0, 96, 2, 2},      // a tenth below a pixel, m = 2: halves
      {RulerUnit::Inches, 1.0, 0, 1, 10},       // dpi 0 measures against 96
      {RulerUnit::Centimetres, 1.0, 300, 1, 10},  // half a centimetre is 59 px
      {RulerUnit::Centimetres, 2.0, 300, 0.5, 10},
      {RulerUnit::Pixels, 0.001, 96, 100000, 10},
  };
  for (const Case& c : cases) {
    const double unitScale = RulerUnitScale(c.unit, c.canvasScale, c.dpi);
    const RulerStep s = ChooseRulerStep(c.unit, unitScale, 1.0);
    EXPECT_DOUBLE_EQ(s.major, c.major) << c.canvasScale << " " << int(c.unit);
    EXPECT_EQ(s.subdivisions, c.subdivisions) << c.canvasScale << " " << int(c.unit);
  }
  EXPECT_EQ(RulerUnitFromSetting(7), RulerUnit::Centimetres);
  EXPECT_EQ(RulerUnitFromSetting(-3), RulerUnit::Pixels);
}

TEST(Ruler, TicksHaveTheirLengthsAndLabels) {
  const RulerStep s = ChooseRulerStep(RulerUnit::Pixels, 1.0, 1.0);  // 100 px, tenths of 10
  const auto ticks = RulerTicks(s, 1.0, 50, 0, 300);
  ASSERT_FALSE(ticks.empty());
  int labelled = 0;
  for (const RulerTick& t : ticks) {
    const int32_t value = t.position - 50;
    if (value % 100 == 0) {
      EXPECT_TRUE(t.labelled);
      EXPECT_EQ(t.length, 1.0);
      const std::string text = std::to_string(value);
      EXPECT_EQ(t.label, std::u16string(text.begin(), text.end()));
      ++labelled;
    } else {
      EXPECT_EQ(t.length, value % 50 == 0 ? 0.55 : 0.3) << value;
    }
  }
  EXPECT_EQ(labelled, 3);  // 0, 100 and 200 between the ticks just outside 0..300
  // Inches with decimals, and never more than 4000 ticks.
  const RulerStep inch = ChooseRulerStep(RulerUnit::Inches, RulerUnitScale(RulerUnit::Inches, 0.25, 96), 1.0);
  EXPECT_EQ(inch.decimals, 0);
  EXPECT_LE(RulerTicks(s, 1.0, 0, -1000000, 1000000).size(), 4000u);
}

}  // namespace
}  // namespace tavora
