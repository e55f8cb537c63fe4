#include "tools/crop_tool.h"

#include <gtest/gtest.h>

#include "tools/tool_table.h"

namespace tavora {
namespace {

void Drag(CropTool& t, const Document& doc, double x0, double y0, double x1, double y1, int modifiers = 0) {
  t.Press(doc, x0, y0, 2);
  t.Drag(doc, (x0 + x1) / 2, (y0 + y1) / 2, modifiers);
  t.Drag(doc, x1, y1, modifiers);
  t.Release(doc, x1, y1);
}

TEST(CropTool, ADragShowsWholePixelsWithinTheCanvasAndIsTakenOnce) {
  auto doc = CreateDocument(100, 80, 72, 0xFFFFFFFF, 0);
  CropTool t;
  Drag(t, *doc, 60.4, 50.6, 10.2, 9.7);
  EXPECT_EQ(t.Area(), (Rect{10, 10, 60, 51}));
  Drag(t, *doc, 90, 70, 130, -20);  // past the canvas: clipped
  EXPECT_EQ(t.Area(), (Rect{90, 0, 100, 70}));
  Drag(t, *doc, 5, 5, 25, 15, kModShift);  // square
  EXPECT_EQ(t.Area(), (Rect{5, 5, 25, 25}));
  EXPECT_FALSE(t.TakeDamage().Empty());
  EXPECT_TRUE(t.TakeDamage().Empty());
  EXPECT_EQ(t.HandleAt(15, 15, 2), CropHandle::Inside);
  EXPECT_EQ(t.HandleAt(40, 15, 2), CropHandle::None);
  t.Press(*doc, 70, 70, 2);  // a click away from it drops it
  t.Release(*doc, 70, 70);
  EXPECT_FALSE(t.Shown());
  EXPECT_FALSE(t.Take());
  // Take hands the rectangle over once; Cancel drops it.
  Drag(t, *doc, 20, 20, 60, 50);
  EXPECT_EQ(t.Take(), (Rect{20, 20, 60, 50}));
  EXPECT_FALSE(t.Shown());
  EXPECT_FALSE(t.Take());
  Drag(t, *doc, 20, 20, 60, 50);
  t.Cancel();
  EXPECT_FALSE(t.Take());
}

TEST(CropTool, HandlesResizeAndTheInsideMovesWithinTheCanvas) {
  auto doc = CreateDocument(100, 80, 72, 0xFFFFFFFF, 0);
  struct Case {
    double x, y, toX, toY;
    Rect want;
  } cases[] = {
      {20, 35, 12, 0, {12, 20, 60, 50}},        // left edge, middle
      {60, 35, 75, 9, {20, 20, 75, 50}},        // right edge
      {40, 20, 0, 5, {20, 5, 60, 50}},          // top edge
      {40, 50, 0, 79, {20, 20, 60, 79}},        // bottom edge
      {21, 19, 30, 30, {29, 31, 60, 50}},       // top-left corner, within reach: moved by the drag
      {60, 50, 90, 95, {20, 20, 90, 80}},       // bottom-right, past the canvas
      {60, 20, 10, 20, {10, 20, 20, 50}},       // right dragged over the left: turned over
      {40, 35, 50, 25, {30, 10, 70, 40}},       // inside: moved
      {40, 35, -70, 35, {0, 20, 40, 50}},       // inside: stopped at the edge
  };
  for (const Case& c : cases) {
    CropTool t;
    Drag(t, *doc, 20, 20, 60, 50);
    ASSERT_EQ(t.Area(), (Rect{20, 20, 60, 50}));
    Drag(t, *doc, c.x, c.y, c.toX, c.toY);
    EXPECT_EQ(t.Area(), c.want) << c.x << "," << c.y;
  }
}

}  // namespace
}  // namespace tavora
