#include "tools/move_tool.h"

#include <gtest/gtest.h>

#include <random>

#include "document/blend.h"
#include "document/history.h"
#include "pixels.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::MaskBytes;
using testing_support::SamePixels;
using testing_support::SelectRect;

// A Background of noise and, above it, an active layer of opaque noise.
std::unique_ptr<Document> Doc(int w = 20, int h = 12) {
  auto doc = testing_support::WithLayer(w, h);
  std::mt19937 rng(7);
  for (Layer& l : doc->layers)
    for (std::size_t i = 0; i < l.pixels.PixelCount(); ++i) l.pixels.Data()[i] = rng() | 0xFF000000u;
  return doc;
}

void Drag(MoveTool& t, Document& doc, double x0, double y0, double x1, double y1, uint32_t fill = 0) {
  t.Press(doc, x0, y0, fill);
  t.Drag(doc, (x0 + x1) / 2, (y0 + y1) / 2);
  t.Release(doc, x1, y1);
}

TEST(MoveTool, ALayerMovesWholeAndKeepsWhatLeftTheCanvasAsOneStep) {
  auto doc = Doc();
  const Surface before = doc->layers[1].pixels;
  const std::size_t states = doc->history.states.size();
  MoveTool t;
  Drag(t, *doc, 5.2, 5, 8.6, 3.9);  // rounds to (+3, -1)
  EXPECT_TRUE(t.Pending());
  const Layer& l = doc->layers[1];
  for (int32_t y = 0; y < 12; ++y)
    for (int32_t x = 0; x < 20; ++x) {
      const bool from = x - 3 >= 0 && y + 1 < 12;
      ASSERT_EQ(l.pixels.At(x, y), from ? before.At(x - 3, y + 1) : 0u) << x << "," << y;
    }
  // A second drag and the arrow keys join the same step; moving back
  // brings back what had left the canvas.
  Drag(t, *doc, 0, 0, -2, 0);
  t.Nudge(*doc, -1, 1, 0);
  EXPECT_EQ(doc->history.states.size(), states + 1);
  EXPECT_EQ(UndoLabel(*doc), u"Move");
  EXPECT_TRUE(SamePixels(l.pixels, before));
  t.Commit(*doc);
  EXPECT_FALSE(t.Pending());
  EXPECT_FALSE(l.extended);  // back within the canvas: no extra copy kept

  t.Nudge(*doc, 0, -30, 0);  // wholly off the canvas, then a new step
  t.Commit(*doc);
  EXPECT_EQ(doc->history.states.size(), states + 2);
  ASSERT_TRUE(l.extended);
  EXPECT_EQ(l.pixels.At(4, 4), 0u);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  EXPECT_FALSE(doc->layers[1].extended);
  // A press without a move records nothing.
  Drag(t, *doc, 3, 3, 3.2, 3.3);
  EXPECT_FALSE(t.Pending());
}

TEST(MoveTool, SelectedPixelsMoveWithTheirOutlineAndUndoBringsBothBack) {
  auto doc = Doc();
  SelectRect(*doc, 2, 2, 6, 5);
  doc->selection->At(5, 4) = 128;  // a half-selected corner
  const Surface before = doc->layers[1].pixels;
  const SelectionMask mask = *doc->selection;
  MoveTool t;
  Drag(t, *doc, 3, 3, 13, 4);  // (+10, +1)
  const Layer& l = doc->layers[1];
  EXPECT_EQ(l.pixels.At(12, 3), before.At(2, 2));  // the piece at its new place
  EXPECT_EQ(l.pixels.At(2, 2), 0u);                // a hole where it was
  EXPECT_EQ(l.pixels.At(8, 8), before.At(8, 8));   // the rest untouched
  EXPECT_EQ(l.pixels.At(5, 4) >> 24, 127u);        // half stays behind
  EXPECT_EQ(l.pixels.At(15, 5), Over(before.At(15, 5), (before.At(5, 4) & 0xFFFFFFu) | 128u << 24));
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selection->At(12, 3), 255);
  EXPECT_EQ(doc->selection->At(2, 2), 0);
  EXPECT_EQ(doc->selectionBounds, (Rect{12, 3, 16, 6}));
  // Past the edge and back within the move: nothing is lost.
  Drag(t, *doc, 0, 0, 10, 0);
  Drag(t, *doc, 0, 0, -10, 0);
  EXPECT_EQ(l.pixels.At(12, 3), before.At(2, 2));
  t.Commit(*doc);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(SamePixels(doc->layers[1].pixels, before));
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(MaskBytes(*doc->selection), MaskBytes(mask));
}

TEST(MoveTool, PixelsPushedPastTheEdgeStayAsExtendedContent) {
  auto doc = Doc();
  SelectRect(*doc, 14, 2, 20, 6);
  const uint32_t corner = doc->layers[1].pixels.At(19, 2);
  MoveTool t;
  Drag(t, *doc, 15, 3, 20, 3);  // five pixels past the right edge
  t.Commit(*doc);
  const Layer& l = doc->layers[1];
  ASSERT_TRUE(l.extended);
  EXPECT_EQ(l.extended->x, 0);
  EXPECT_EQ(l.extended->pixels.Width(), 25);
  EXPECT_EQ(l.extended->pixels.At(24, 2), corner);
  Deselect(*doc);
  t.Nudge(*doc, -5, 0, 0);  // the whole layer back: the corner shows again
  EXPECT_EQ(doc->layers[1].pixels.At(19, 2), corner);
}

TEST(MoveTool, TheBackgroundFillsWhatAMoveUncovers) {
  auto doc = Doc();
  doc->active = 0;
  const Surface before = doc->layers[0].pixels;
  MoveTool t;
  Drag(t, *doc, 4, 4, 6, 4, 0x00123456);
  const Surface& p = doc->layers[0].pixels;
  EXPECT_EQ(p.At(0, 5), 0xFF123456u);
  EXPECT_EQ(p.At(1, 5), 0xFF123456u);
  EXPECT_EQ(p.At(2, 5), before.At(0, 5));
  t.Commit(*doc);
  EXPECT_FALSE(doc->layers[0].extended);
  // Selected pixels of the Background leave the fill colour behind.
  SelectRect(*doc, 10, 0, 12, 2);
  Drag(t, *doc, 10, 0, 10, 5, 0x00FF0000);
  EXPECT_EQ(p.At(10, 0), 0xFFFF0000u);
  EXPECT_EQ(p.At(11, 6), before.At(9, 1));
}

}  // namespace
}  // namespace tavora
