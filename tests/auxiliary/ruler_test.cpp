#include "auxiliary/ruler.h"

#include <gtest/gtest.h>

#include <vector>

#include "auxiliary/ruler_strip.h"

namespace tavora {
namespace {

TEST(Ruler, StepsSubdivisionsAndUnits) {
  const struct { RulerUnit unit; double canvasScale; int32_t dpi; double major; int32_t subdivisions; } cases[] = {
      {RulerUnit::Pixels, 1.0, 96, 100, 10},    // 50 would be 50 DIP, below 60
      {RulerUnit::Pixels, 64.0, 96, 1, 1},      // one pixel, no minor ticks
      {RulerUnit::Pixels, 20.0, 96, 5, 1},      // a tenth below a pixel, m = 5
      {RulerUnit::Pixels, 40.0, 96, 2, 2},      // a tenth below a pixel, m = 2: halves
      {RulerUnit::Inches, 1.0, 0, 1, 10},       // dpi 0 measures against 96
      {RulerUnit::Centimetres, 1.0, 300, 1, 10},  // half a centimetre is 59 px
      {RulerUnit::Centimetres, 2.0, 300, 0.5, 10},
      {RulerUnit::Pixels, 0.001, 96, 100000, 10},
  };
  for (const auto& c : cases) {
    const RulerStep s = ChooseRulerStep(c.unit, RulerUnitScale(c.unit, c.canvasScale, c.dpi), 1.0);
    EXPECT_DOUBLE_EQ(s.major, c.major) << c.canvasScale << " " << int(c.unit);
    EXPECT_EQ(s.subdivisions, c.subdivisions) << c.canvasScale << " " << int(c.unit);
  }
  EXPECT_EQ(std::pair(RulerUnitFromSetting(7), RulerUnitFromSetting(-3)),
            std::pair(RulerUnit::Centimetres, RulerUnit::Pixels));
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

// ---------------------------------------------------------------- the drawn strip
constexpr RulerColors kColors{0xFF202020, 0xFFE0E0E0, 0xFF0080FF, 0xFF404040};

struct Drawn {
  std::vector<uint32_t> pixels;
  std::vector<RulerLabel> labels;
  int32_t stride = 0;
  bool vertical = false;
  // Along and across the strip, whichever way it runs.
  uint32_t At(int32_t along, int32_t across) const {
    return vertical ? pixels[along * stride + across] : pixels[across * stride + along];
  }
};

Drawn Draw(const RulerStripInput& in) {
  Drawn d;
  d.vertical = in.vertical;
  d.stride = in.vertical ? in.thickness : in.length;
  d.pixels.assign(std::size_t(in.length) * in.thickness, 0);
  d.labels = DrawRulerStrip(in, kColors, d.pixels.data(), d.stride);
  return d;
}

// A 300-pixel image at zoom 1 whose edge is 10 pixels into a canvas that
// starts 20 pixels along a 400 x 20 strip.
RulerStripInput Input(bool vertical) {
  return {.vertical = vertical, .length = 400, .thickness = 20, .canvasOffset = 20, .hasDocument = true,
          .imageOrigin = 10, .imageLength = 300, .dpi = 0};
}

TEST(RulerStrip, TicksBandLabelsAndMarkerEitherWay) {
  const uint32_t band = RulerImageBand(kColors);
  EXPECT_NE(band, kColors.background);
  for (bool vertical : {false, true}) {
    RulerStripInput in = Input(vertical);
    in.cursor = 100;
    const Drawn d = Draw(in);
    // Pixels: majors every 100 (50 would be below 60 DIP), labelled from
    // the image's edge; none in the corner.
    ASSERT_EQ(d.labels.size(), 4u) << vertical;
    const char16_t* texts[] = {u"0", u"100", u"200", u"300"};
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(std::pair(d.labels[i].position, d.labels[i].text), std::pair(30 + 100 * i, std::u16string(texts[i])));
    const struct { int32_t along, across; uint32_t color; } probes[] = {
        {5, 19, kColors.background},   // the corner: not even the edge
        {25, 19, kColors.edge},        // the edge along the canvas, outside the image
        {25, 5, kColors.background},   // before the image
        {30, 0, kColors.text},         // a major tick: the full thickness
        {80, 9, kColors.text},         // the middle tick: 55 %
        {80, 8, band},
        {40, 14, kColors.text},        // other minor ticks: 30 %
        {40, 13, band},
        {45, 5, band},                 // between ticks over the image
        {335, 5, kColors.background},  // past the image
        {120, 0, kColors.marker},      // the pointer, across the whole strip
        {120, 19, kColors.marker},
    };
    for (const auto& p : probes) EXPECT_EQ(d.At(p.along, p.across), p.color) << vertical << " " << p.along << "," << p.across;
  }
}

TEST(RulerStrip, UnitsAndEmptyState) {
  // Inches of an image without a dpi count 96 pixels to the inch.
  RulerStripInput in = Input(false);
  in.unit = RulerUnit::Inches;
  Drawn d = Draw(in);
  ASSERT_EQ(d.labels.size(), 4u);
  EXPECT_EQ(std::pair(d.labels[1].position, d.labels[1].text), std::pair(126, std::u16string(u"1")));
  // Centimetres at 254 dpi: 100 pixels to the centimetre.
  in.unit = RulerUnit::Centimetres;
  in.dpi = 254;
  d = Draw(in);
  ASSERT_GE(d.labels.size(), 3u);
  EXPECT_EQ(std::pair(d.labels[2].position, d.labels[2].text), std::pair(230, std::u16string(u"2")));
  // Zoom 64: every pixel is a labelled major tick, no minor ones.
  in.unit = RulerUnit::Pixels;
  in.canvasScale = 64;
  d = Draw(in);
  ASSERT_GE(d.labels.size(), 2u);
  EXPECT_EQ(d.labels[1].position - d.labels[0].position, 64);
  EXPECT_EQ(d.At(d.labels[0].position + 32, 19), kColors.edge);
  // No document: the background and the edge only.
  in.hasDocument = false;
  d = Draw(in);
  EXPECT_TRUE(d.labels.empty());
  for (int32_t along : {5, 30, 130, 399}) EXPECT_EQ(d.At(along, 10), kColors.background);
}

}  // namespace
}  // namespace tavora
