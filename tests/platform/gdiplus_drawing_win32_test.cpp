#include "platform/gdiplus_drawing_win32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <windows.h>

#include "pixels.h"
#include "platform/gdiplus_codecs_win32.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

constexpr uint32_t kRed = 0xFFF00000, kBlue = 0xFF0000F0;

uint32_t Alpha(uint32_t p) { return p >> 24; }
uint32_t Red(uint32_t p) { return (p >> 16) & 255; }

class GdiplusDrawingTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(StartGdiplusCodecs()); }
  static void TearDownTestSuite() { StopGdiplusCodecs(); }

  static Surface Draw(int32_t w, int32_t h, const ShapeDrawing& s) {
    Surface out(w, h);
    EXPECT_TRUE(GdiplusDrawing().drawShape(out, s));
    return out;
  }
  static ShapeDrawing Shape(ShapeType type, double x0, double y0, double x1, double y1, int32_t style,
                            double width, bool aa = true) {
    return {.type = type, .x0 = x0, .y0 = y0, .x1 = x1, .y1 = y1, .style = style, .lineWidth = width,
            .antialias = aa, .outline = kRed, .fill = kBlue};
  }
};

int PartialPixels(const Surface& s) {
  int partial = 0;
  for (int32_t y = 0; y < s.Height(); ++y)
    for (int32_t x = 0; x < s.Width(); ++x) partial += Alpha(s.At(x, y)) > 0 && Alpha(s.At(x, y)) < 255;
  return partial;
}

// Wine's GDI+ draws shapes without smoothing whatever the mode (its text
// is smoothed).
bool RunningUnderWine() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

TEST_F(GdiplusDrawingTest, AntialiasOffGivesHardOnePixelStepsAndOnSoftEdges) {
  const Surface aliased = Draw(34, 34, Shape(ShapeType::Line, 2.5, 2.5, 30.5, 30.5, kShapeOutline, 1, false));
  EXPECT_EQ(PartialPixels(aliased), 0);
  // Away from the caps each row holds one pixel, one column on from the last.
  for (int32_t y = 5; y < 28; ++y) {
    int32_t count = 0, at = -1;
    for (int32_t x = 0; x < 34; ++x)
      if (Alpha(aliased.At(x, y))) ++count, at = x;
    EXPECT_EQ(count, 1) << "row " << y;
    EXPECT_EQ(at, y) << "row " << y;
  }
  const auto ellipse = [&](bool aa) {
    return PartialPixels(Draw(34, 34, Shape(ShapeType::Ellipse, 3.3, 4.1, 30.7, 25.2, kShapeOutlineFill, 3, aa)));
  };
  EXPECT_EQ(ellipse(false), 0);
  if (RunningUnderWine()) GTEST_SKIP() << "Wine's GDI+ does not smooth shapes";
  EXPECT_GT(PartialPixels(Draw(34, 34, Shape(ShapeType::Line, 2.5, 2.5, 30.5, 30.5, kShapeOutline, 1, true))), 20);
  EXPECT_GT(ellipse(true), 20);
}

TEST_F(GdiplusDrawingTest, FilledHasNoOutlineAndOutlinePlusFillDrawsTheOutlineOverTheFill) {
  for (ShapeType type : {ShapeType::Rectangle, ShapeType::Ellipse, ShapeType::RoundedRectangle}) {
    ShapeDrawing s = Shape(type, 5, 5, 35, 35, kShapeFilled, 6);
    s.cornerRadius = 8;
    const Surface filled = Draw(40, 40, s);
    for (int32_t y = 0; y < 40; ++y)
      for (int32_t x = 0; x < 40; ++x)
        if (Alpha(filled.At(x, y))) {
          ASSERT_LT(Red(filled.At(x, y)), 8u) << int(type) << " " << x << "," << y;
        }
    EXPECT_EQ(filled.At(20, 20), kBlue);
    EXPECT_EQ(Alpha(filled.At(2, 20)), 0u);  // no stroke reaching out

    s.style = kShapeOutlineFill;
    const Surface both = Draw(40, 40, s);
    EXPECT_EQ(both.At(20, 20), kBlue) << int(type);
    // The stroke's inner half lies over the fill, and shows.
    EXPECT_EQ(both.At(6, 20), kRed) << int(type);
    EXPECT_EQ(both.At(3, 20), kRed) << int(type);
    s.style = kShapeOutline;
    const Surface outline = Draw(40, 40, s);
    EXPECT_EQ(Alpha(outline.At(20, 20)), 0u) << int(type);
    EXPECT_EQ(outline.At(6, 20), kRed) << int(type);
  }
}

TEST_F(GdiplusDrawingTest, ARoundedRectangleWithTooLargeARadiusStillDraws) {
  ShapeDrawing s = Shape(ShapeType::RoundedRectangle, 4, 4, 36, 24, kShapeOutlineFill, 2);
  s.cornerRadius = 400;
  const Surface r = Draw(40, 28, s);
  EXPECT_EQ(r.At(20, 14), kBlue);
  EXPECT_EQ(Alpha(r.At(5, 5)), 0u);  // the corners are round: a stadium
  EXPECT_GT(Alpha(r.At(20, 4)), 0u);
  EXPECT_GT(Alpha(r.At(4, 14)), 0u);
}

TEST_F(GdiplusDrawingTest, TextRendersInItsColourWithinItsMeasuredBuffer) {
  const auto families = GdiplusDrawing().fontFamilies();
  ASSERT_FALSE(families.empty());
  EXPECT_TRUE(std::is_sorted(families.begin(), families.end()));
  for (int italic : {0, 1}) {
    TextRecord t;
    t.text = u"Hello\nWorld fj";
    t.fontName = std::find(families.begin(), families.end(), u"DejaVu Sans") != families.end() ? u"DejaVu Sans"
                                                                                                : families.front();
    t.fontSize = 30;
    t.italic = italic;
    t.color = 0xFF2060A0;
    const auto extent = GdiplusDrawing().measureText(t);
    const auto pixels = GdiplusDrawing().renderText(t);
    ASSERT_TRUE(extent && pixels);
    EXPECT_EQ(pixels->Width(), extent->width);
    EXPECT_EQ(pixels->Height(), extent->height);
    EXPECT_GT(pixels->Height(), 2 * 30);  // two lines
    int solid = 0;
    for (int32_t y = 0; y < pixels->Height(); ++y)
      for (int32_t x = 0; x < pixels->Width(); ++x) {
        const uint32_t p = pixels->At(x, y);
        if (Alpha(p) == 255) {
          ++solid;
          EXPECT_EQ(p, t.color);
        }
        // Nothing reaches the right or bottom edge: no glyph was cut.
        if (x == pixels->Width() - 1 || y == pixels->Height() - 1) {
          EXPECT_EQ(Alpha(p), 0u) << x << "," << y;
        }
      }
    EXPECT_GT(solid, 50) << italic;
    EXPECT_GT(PartialPixels(*pixels), 20) << italic;  // smoothed glyph edges
  }
  // A family that is not installed is drawn in a stand-in.
  TextRecord missing;
  missing.text = u"x";
  missing.fontName = u"No Such Family Anywhere";
  EXPECT_TRUE(GdiplusDrawing().renderText(missing));
}

TEST_F(GdiplusDrawingTest, AFailingCallChangesNothing) {
  Surface empty;
  EXPECT_FALSE(GdiplusDrawing().drawShape(empty, Shape(ShapeType::Line, 0, 0, 5, 5, 0, 1)));
  Surface filled(8, 8);
  filled.Fill(0x80402010);
  const Surface before = filled;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(GdiplusDrawing().drawShape(filled, Shape(ShapeType::Ellipse, 0, nan, 5, 5, 0, 1)));
  EXPECT_FALSE(GdiplusDrawing().drawShape(filled, Shape(ShapeType::Rectangle, 0, 0, 1e30, 5, 0, 1)));
  EXPECT_FALSE(GdiplusDrawing().drawShape(filled, Shape(ShapeType::Rectangle, 0, 0, 5, 5, 7, 1)));
  EXPECT_TRUE(SamePixels(filled, before));
  TextRecord t;
  EXPECT_FALSE(GdiplusDrawing().renderText(t));  // no text
  t.text = u"x";
  t.fontSize = 3;
  EXPECT_FALSE(GdiplusDrawing().measureText(t));
  // A buffer past the canvas size limits is refused, not allocated.
  t.text = std::u16string(2000, u'W');
  t.fontSize = 2000;
  EXPECT_FALSE(GdiplusDrawing().renderText(t));
}

}  // namespace
}  // namespace tavora
