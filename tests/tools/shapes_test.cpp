#include "tools/shapes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <tuple>
#include <vector>

#include "document/blend.h"
#include "document/history.h"
#include "pixels.h"
#include "tools/shape_tool.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

// Stands in for GDI+: fills the pixels whose centres lie in the shape's
// box (a line's too) with the outline colour at a chosen alpha, and keeps
// what it was asked to draw.
struct FakeDrawer {
  static inline uint32_t alpha = 255;
  static inline bool fail = false;
  static inline int calls = 0;
  static inline ShapeDrawing last;
  static inline int32_t bufferWidth = 0, bufferHeight = 0;

  static bool Draw(Surface& target, const ShapeDrawing& s) {
    ++calls;
    last = s;
    bufferWidth = target.Width();
    bufferHeight = target.Height();
    if (fail || target.Empty()) return false;
    for (int32_t y = 0; y < target.Height(); ++y)
      for (int32_t x = 0; x < target.Width(); ++x)
        if (x + 0.5 >= std::min(s.x0, s.x1) && x + 0.5 <= std::max(s.x0, s.x1) && y + 0.5 >= std::min(s.y0, s.y1) &&
            y + 0.5 <= std::max(s.y0, s.y1))
          target.At(x, y) = (s.outline & 0x00FFFFFFu) | alpha << 24;
    return true;
  }
};
const SystemDrawing kFake{&FakeDrawer::Draw, nullptr, nullptr, nullptr};

class Shapes : public ::testing::Test {
 protected:
  void SetUp() override {
    FakeDrawer::alpha = 255;
    FakeDrawer::fail = false;
    FakeDrawer::calls = 0;
    SetSystemDrawing(&kFake);
  }
  void TearDown() override { SetSystemDrawing(nullptr); }

  // A Background and an active transparent-free layer of one colour.
  static std::unique_ptr<Document> Doc(int w = 20, int h = 16, uint32_t fill = 0x80336699) {
    auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
    doc->layers.emplace_back(w, h, u"Layer 2");
    doc->layers[1].pixels.Fill(fill);
    doc->active = 1;
    return doc;
  }
  static ShapeGeometry Geometry(ShapeType type, double x0, double y0, double x1, double y1, int32_t opacity = 100) {
    ToolOptions o;
    o.linewidth = 2;
    o.opacity = opacity;
    ShapeGeometry s = ShapeGeometryFor(type, o, 0xFFCC2211, 0xFF1122CC);
    s.x0 = x0;
    s.y0 = y0;
    s.x1 = x1;
    s.y1 = y1;
    return s;
  }
};

TEST_F(Shapes, EachPixelIsLaidAtAlphaTimesOpacityThenTimesTheSelectionByteTruncated) {
  struct Case {
    uint32_t a;
    int32_t opacity;
    int mask;  // -1: no selection
    uint32_t laid;
  };
  // Worked out by hand; 255 x 33 / 100 = 84, then 84 x 200 / 255 = 65
  // (rounding once would give 66).
  const Case cases[] = {{255, 100, -1, 255}, {255, 33, 200, 65}, {200, 50, 128, 50}, {255, 100, 0, 0},
                        {1, 100, 254, 0},    {128, 1, -1, 1},    {99, 100, 255, 99}, {0, 100, -1, 0}};
  for (const Case& c : cases) {
    auto doc = Doc();
    if (c.mask >= 0) {
      doc->selection.emplace(doc->width, doc->height);
      std::fill(doc->selection->Data(), doc->selection->Data() + doc->selection->ByteCount(), uint8_t(c.mask));
      doc->selectionBounds = doc->Bounds();
    }
    FakeDrawer::alpha = c.a;
    const uint32_t before = doc->layers[1].pixels.At(7, 7);
    ASSERT_TRUE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Rectangle, 5, 5, 10, 10, c.opacity)));
    const uint32_t want = c.laid ? Over(before, 0xCC2211u | c.laid << 24) : before;
    EXPECT_EQ(doc->layers[1].pixels.At(7, 7), want) << c.a << " " << c.opacity << " " << c.mask;
    EXPECT_EQ(doc->layers[1].pixels.At(2, 2), before) << "outside the shape";
    EXPECT_EQ(UndoLabel(*doc), u"Shape");
  }
}

TEST_F(Shapes, TheBufferHoldsTheLineWidthAndAClickDrawsNothing) {
  for (int32_t width : {1, 2, 7, 40, 400}) {
    auto doc = Doc(900, 900);
    ShapeGeometry s = Geometry(ShapeType::Line, 400.5, 420.25, 460.5, 430.75);
    s.lineWidth = width;
    ASSERT_TRUE(DrawShapeOnLayer(*doc, s));
    const ShapeDrawing& d = FakeDrawer::last;
    const double room = std::min({std::min(d.x0, d.x1), std::min(d.y0, d.y1),
                                  FakeDrawer::bufferWidth - std::max(d.x0, d.x1),
                                  FakeDrawer::bufferHeight - std::max(d.y0, d.y1)});
    EXPECT_GE(room, width / 2.0) << width;  // on every side
    EXPECT_EQ(d.lineWidth, width);
  }
  auto doc = Doc();
  const Surface before = doc->layers[1].pixels;
  FakeDrawer::calls = 0;
  EXPECT_FALSE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Ellipse, 4, 4, 4, 4)));
  FakeDrawer::fail = true;
  EXPECT_FALSE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Ellipse, 4, 4, 9, 9)));
  SetSystemDrawing(nullptr);
  EXPECT_FALSE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Ellipse, 4, 4, 9, 9)));
  EXPECT_EQ(FakeDrawer::calls, 1);
  EXPECT_TRUE(doc->history.states.empty());
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
}

TEST_F(Shapes, PastTheCanvasALayerKeepsExtendedContentAndUndoIsExact) {
  auto doc = Doc(20, 16, 0xFF445566);
  const Surface before = doc->layers[1].pixels;
  // From inside to 10 pixels past the right edge: a whole-layer step.
  ASSERT_TRUE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Rectangle, 12, 4, 30, 8)));
  const Layer& l = doc->layers[1];
  ASSERT_TRUE(l.extended);
  EXPECT_EQ(l.extended->x, 0);
  EXPECT_GE(l.extended->pixels.Width(), 30);
  const auto beyond = [&](int32_t x, int32_t y) { return l.extended->pixels.At(x - l.extended->x, y - l.extended->y); };
  EXPECT_EQ((std::vector{beyond(28, 6), beyond(5, 6), l.pixels.At(19, 6)}),
            (std::vector{0xFFCC2211u, 0xFF445566u, 0xFFCC2211u}));
  EXPECT_EQ(doc->history.states.back().kind, HistoryKind::OneLayer);
  EXPECT_EQ(UndoLabel(*doc), u"Shape");
  // A second shape inside the canvas changes the extended content too.
  ASSERT_TRUE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Line, 2, 11, 6, 12)));
  EXPECT_EQ(UndoLabel(*doc), u"Line");
  EXPECT_EQ(beyond(4, 11), 0xFFCC2211u);
  const Layer after = doc->layers[1];
  ASSERT_TRUE(Undo(*doc));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_FALSE(doc->layers[1].extended);
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  ASSERT_TRUE(Redo(*doc));
  ASSERT_TRUE(Redo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].extended->pixels, after.extended->pixels));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, after.pixels));

  // A Background keeps only the canvas part, with a tile step.
  doc->active = 0;
  ASSERT_TRUE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Rectangle, -8, 4, 3, 8)));
  EXPECT_FALSE(doc->layers[0].extended);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 6), 0xFFCC2211u);
  EXPECT_EQ(doc->history.states.back().kind, HistoryKind::Tiles);
  // Wholly outside: nothing to draw, nothing recorded.
  const std::size_t states = doc->history.states.size();
  EXPECT_FALSE(DrawShapeOnLayer(*doc, Geometry(ShapeType::Rectangle, -30, 4, -20, 8)));
  EXPECT_EQ(doc->history.states.size(), states);
}

TEST(ShapeConstraint, ShiftTurnsLinesTo45DegreeStepsAndBoxesToSquares) {
  struct Case {
    ShapeType type;
    ShapePoint to, want;
  };
  const ShapePoint from{10, 10};
  const Case cases[] = {
      {ShapeType::Line, {30, 13}, {30, 10}},     {ShapeType::Line, {12, -20}, {10, -20}},
      {ShapeType::Line, {20, 24}, {22, 22}},     {ShapeType::Line, {0, 21}, {-0.5, 20.5}},
      {ShapeType::Line, {-10, 9}, {-10, 10}},    {ShapeType::Rectangle, {14, 30}, {30, 30}},
      {ShapeType::Ellipse, {-5, 16}, {-5, 25}},  {ShapeType::RoundedRectangle, {4, 1}, {1, 1}},
  };
  for (const Case& c : cases) {
    const ShapePoint got = ConstrainShapePoint(c.type, from, c.to);
    EXPECT_DOUBLE_EQ(got.x, c.want.x) << c.to.x << "," << c.to.y;
    EXPECT_DOUBLE_EQ(got.y, c.want.y) << c.to.x << "," << c.to.y;
  }
}

TEST_F(Shapes, TheDragShowsItsShapeAndTheReleaseDrawsIt) {
  auto doc = Doc(40, 40);
  ToolOptions o;
  o.shapefill = 2;
  o.linewidth = 3;
  ColorBoxes colors;
  colors.left = 0xFF112233;
  colors.right = 0xFF445566;
  ShapeTool tool;
  tool.Press(kToolEllipse, 5, 6, 1, 0, o, colors);
  EXPECT_TRUE(tool.Busy());
  EXPECT_FALSE(tool.Overlay().shown);  // still on the press point
  tool.Move(25, 16, 0);
  ShapeOverlay overlay = tool.Overlay();
  ASSERT_TRUE(overlay.shown);
  EXPECT_EQ(overlay.shape.type, ShapeType::Ellipse);
  EXPECT_EQ(std::tuple(overlay.shape.outline, overlay.shape.fill, overlay.shape.style),
            std::tuple(0xFF112233u, 0xFF445566u, 2));
  EXPECT_DOUBLE_EQ(overlay.shape.x1, 25);
  EXPECT_EQ(tool.OverlayBounds(), (Rect{1, 2, 29, 20}));
  EXPECT_EQ(tool.TakeOverlayDamage(), (Rect{1, 2, 29, 20}));
  // Shift held without a move squares the box at once.
  tool.SetModifiers(kModShift);
  EXPECT_DOUBLE_EQ(tool.Overlay().shape.y1, 26);
  EXPECT_EQ(tool.TakeOverlayDamage(), (Rect{1, 2, 29, 30}));
  EXPECT_TRUE(tool.Release(*doc, 25, 16, kModShift));
  EXPECT_FALSE(tool.Busy());
  EXPECT_EQ(std::pair(FakeDrawer::last.x1 - FakeDrawer::last.x0, FakeDrawer::last.y1 - FakeDrawer::last.y0),
            std::pair(20.0, 20.0));
  EXPECT_EQ(UndoLabel(*doc), u"Shape");
  EXPECT_EQ(doc->history.states.size(), 1u);

  // The right button swaps the colours; a click draws nothing; other
  // tools and Cancel start or keep nothing.
  tool.Press(kToolLine, 5, 5, 2, 0, o, colors);
  EXPECT_EQ(tool.Overlay().shape.outline, 0xFF445566u);
  EXPECT_FALSE(tool.Release(*doc, 5, 5, 0));
  tool.Press(kToolBrush, 5, 5, 1, 0, o, colors);
  EXPECT_FALSE(tool.Busy());
  tool.Press(kToolRectangle, 5, 5, 1, 0, o, colors);
  tool.Move(9, 9, 0);
  tool.Cancel();
  EXPECT_FALSE(tool.Release(*doc, 9, 9, 0));
  EXPECT_EQ(doc->history.states.size(), 1u);
}

}  // namespace
}  // namespace tavora
