#include "tools/selection_tool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "document/history.h"
#include "tool_helpers.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

std::unique_ptr<Document> Doc() { return CreateDocument(100, 80, 72, 0xFFFFFFFF, 0); }

SelectionToolOptions Mode(int32_t selmode, double feather = 0) { return {selmode, feather}; }

std::size_t States(const Document& doc) { return doc.history.states.size(); }

std::vector<uint8_t> Bytes(const Document& doc) { return testing_support::MaskBytes(*doc.selection); }

// Press, two moves on the way, release.
void Drag(SelectionTool& t, Document& doc, int32_t tool, double x0, double y0, double x1, double y1,
          int modifiers = 0, SelectionToolOptions options = {}) {
  t.Press(doc, tool, x0, y0, 1, modifiers, options);
  t.Move(doc, (x0 + x1) / 2, (y0 + y1) / 2);
  t.Move(doc, x1, y1);
  t.Release(doc, x1, y1);
}

void Click(SelectionTool& t, Document& doc, int32_t tool, double x, double y, int modifiers = 0,
           SelectionToolOptions options = {}) {
  t.Press(doc, tool, x, y, 1, modifiers, options);
  t.Release(doc, x, y);
}

// Every pixel in `r` at 255 and none outside.
void ExpectBox(const Document& doc, const Rect& r) {
  ASSERT_TRUE(doc.selection);
  EXPECT_EQ(doc.selectionBounds, r);
  for (int y = 0; y < doc.height; ++y)
    for (int x = 0; x < doc.width; ++x) ASSERT_EQ(doc.selection->At(x, y), r.Contains(x, y) ? 255 : 0);
}

// A fresh document and tool for every test.
class SelectionToolTest : public ::testing::Test {
 protected:
  std::unique_ptr<Document> doc = Doc();
  SelectionTool t;
};
using SelectionToolBand = SelectionToolTest;
using SelectionToolOutline = SelectionToolTest;
using SelectionToolPath = SelectionToolTest;

TEST_F(SelectionToolBand, ARectangleDragSelectsWholePixelsAsOneStep) {
  t.Press(*doc, kToolRectSelect, 10.3, 20.6, 1, 0, {});
  t.TakeOverlayDamage();
  t.Move(*doc, 30, 25);
  const Rect first = t.TakeOverlayDamage();
  t.Move(*doc, 40.4, 30.2);
  const SelectionOverlay o = t.Overlay();
  EXPECT_EQ(o.shape, SelectionOverlay::Shape::Rectangle);
  EXPECT_EQ((std::vector<double>{o.x0, o.y0, o.x1, o.y1}), (std::vector<double>{10, 21, 40, 30}));
  const Rect damage = t.TakeOverlayDamage();  // the band before and after the move
  EXPECT_EQ(damage, Union(first, t.OverlayBounds()));
  EXPECT_TRUE(Intersect(damage, {10, 21, 40, 30}) == (Rect{10, 21, 40, 30}));
  EXPECT_EQ(States(*doc), 0u);
  t.Release(*doc, 40.4, 30.2);
  ExpectBox(*doc, {10, 21, 40, 30});
  EXPECT_EQ(States(*doc), 1u);
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
  EXPECT_FALSE(t.Busy());
  EXPECT_EQ(t.Overlay().shape, SelectionOverlay::Shape::None);
  EXPECT_TRUE(t.OverlayBounds().Empty());
  EXPECT_FALSE(t.TakeOverlayDamage().Empty());  // the band must be wiped
}

TEST_F(SelectionToolBand, ShiftMakesSquaresAndCirclesInEveryDirection) {
  Drag(t, *doc, kToolRectSelect, 10, 10, 30, 18, kModShift);
  ExpectBox(*doc, {10, 10, 30, 30});
  Drag(t, *doc, kToolRectSelect, 50.2, 50, 35, 45.4, kModShift);
  ExpectBox(*doc, {35, 35, 50, 50});
  Drag(t, *doc, kToolEllipseSelect, 60, 20, 80, 30, kModShift);
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selectionBounds, (Rect{60, 20, 80, 40}));
  for (int i = 0; i < 20; ++i) EXPECT_EQ(doc->selection->At(60 + i, 30), doc->selection->At(70, 20 + i));
}

TEST_F(SelectionToolBand, AClickDeselectsOnlyWhenTheToolWouldStartANewSelection) {
  Drag(t, *doc, kToolRectSelect, 10, 10, 20, 20);
  ASSERT_EQ(States(*doc), 1u);
  Click(t, *doc, kToolRectSelect, 50, 50, 0, Mode(kSelectAdd));
  Click(t, *doc, kToolEllipseSelect, 50, 50, kModCtrl);
  Drag(t, *doc, kToolRectSelect, 50, 50, 51.9, 48.1, kModAlt);  // under 2 px: a click
  EXPECT_TRUE(doc->selection);
  EXPECT_EQ(States(*doc), 1u);
  Drag(t, *doc, kToolEllipseSelect, 50, 50, 51.5, 51.5);
  EXPECT_FALSE(doc->selection);
  EXPECT_EQ(UndoLabel(*doc), u"Deselect");
  Click(t, *doc, kToolRectSelect, 50, 50);  // nothing left to deselect
  EXPECT_EQ(States(*doc), 2u);
}

TEST_F(SelectionToolBand, ModifiersChooseTheModeFeatherSoftensAndAShapeOffTheCanvasDoesNothing) {
  // Both modifier bits reach the mode (the mapping and the combining have their own tests).
  Drag(t, *doc, kToolRectSelect, 10, 10, 40, 40);
  Drag(t, *doc, kToolRectSelect, 30, 30, 60, 60, kModCtrl | kModAlt);  // intersect
  EXPECT_EQ(doc->selectionBounds, (Rect{30, 30, 40, 40}));
  EXPECT_EQ(States(*doc), 2u);
  Drag(t, *doc, kToolRectSelect, -50, -50, -10, -10);
  EXPECT_EQ(States(*doc), 2u);
  t.Press(*doc, kToolRectSelect, 70, 70, 2, 0, {});  // the right button is not the tool's
  EXPECT_FALSE(t.Busy());
  // The feather option reaches the shape; how far it softens is the selection tests' concern.
  SelectNone(*doc);
  Drag(t, *doc, kToolRectSelect, 30, 20, 70, 60, 0, Mode(kSelectNew, 4));
  EXPECT_TRUE(doc->selection->At(30, 40) > 0 && doc->selection->At(30, 40) < 255);
}

TEST_F(SelectionToolOutline, DraggingInsideMovesTheMaskAsOneStepAndUndoPutsItBack) {
  Drag(t, *doc, kToolEllipseSelect, 10, 10, 30, 30);
  const SelectionMask mask = *doc->selection;
  const std::vector<uint8_t> before = Bytes(*doc);
  const Rect beforeBounds = doc->selectionBounds;
  t.Press(*doc, kToolLasso, 15.2, 15.2, 1, 0, {});
  t.Move(*doc, 15.4, 14.9);  // still (0, 0)
  EXPECT_EQ(States(*doc), 1u);
  t.Move(*doc, 17.6, 14.0);
  EXPECT_EQ(States(*doc), 2u);
  EXPECT_EQ(UndoLabel(*doc), u"Move Selection Outline");
  EXPECT_EQ(doc->selectionBounds, doc->Bounds());  // while dragging
  t.Move(*doc, 30, 30);
  t.Release(*doc, 20.7, 12.1);  // (6, -3)
  EXPECT_EQ(States(*doc), 2u);
  EXPECT_EQ(t.Overlay().shape, SelectionOverlay::Shape::None);
  EXPECT_EQ(doc->selectionBounds,
            (Rect{beforeBounds.x0 + 6, beforeBounds.y0 - 3, beforeBounds.x1 + 6, beforeBounds.y1 - 3}));
  SelectionMask moved(doc->width, doc->height);
  ShiftMask(mask, 6, -3, moved);
  EXPECT_EQ(Bytes(*doc), testing_support::MaskBytes(moved));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(Bytes(*doc), before);
  EXPECT_EQ(doc->selectionBounds, beforeBounds);
}

TEST_F(SelectionToolOutline, APressInsideThatNeverMovesIsAClick) {
  // Rectangle, ellipse and lasso deselect in every mode.
  for (int32_t tool : {kToolRectSelect, kToolEllipseSelect, kToolLasso})
    for (int32_t mode : {kSelectNew, kSelectAdd, kSelectSubtract, kSelectIntersect}) {
      Drag(t, *doc, kToolRectSelect, 10, 10, 40, 40);
      Click(t, *doc, tool, 20, 20, 0, Mode(mode));
      EXPECT_FALSE(doc->selection) << tool << " " << mode;
      EXPECT_EQ(UndoLabel(*doc), u"Deselect");
    }
  Drag(t, *doc, kToolRectSelect, 10, 10, 40, 40);
  const std::size_t states = States(*doc);
  Click(t, *doc, kToolPolygonSelect, 20, 20);  // the polygon's first point
  EXPECT_TRUE(doc->selection);
  EXPECT_TRUE(t.Busy());
  SelectionOverlay o = t.Overlay();
  ASSERT_EQ(o.points.size(), 1u);
  EXPECT_EQ(o.points[0], (ShapePoint{20, 20}));
  EXPECT_TRUE(t.Key(SelectionKey::Escape));
  EXPECT_EQ(States(*doc), states);
  // Shift inside starts a shape rather than a move.
  Drag(t, *doc, kToolRectSelect, 20, 20, 25, 22, kModShift);
  ExpectBox(*doc, {20, 20, 25, 25});
}

TEST_F(SelectionToolOutline, CancelKeepsAMovedOutlineWithTrueBounds) {
  Drag(t, *doc, kToolRectSelect, 10, 10, 20, 20);
  t.Press(*doc, kToolRectSelect, 15, 15, 1, 0, {});
  t.Move(*doc, 18, 19);
  t.Cancel(*doc);
  EXPECT_FALSE(t.Busy());
  ExpectBox(*doc, {13, 14, 23, 24});
  t.Release(*doc, 30, 30);  // a stray release does nothing
  EXPECT_EQ(States(*doc), 2u);
}

TEST_F(SelectionToolPath, ALassoNeedsThreePointsAndFollowsThePointer) {
  Drag(t, *doc, kToolRectSelect, 60, 60, 70, 70);
  t.Press(*doc, kToolLasso, 10, 10, 1, 0, {});
  t.Release(*doc, 20, 20);  // two points: discarded
  EXPECT_EQ(States(*doc), 1u);
  EXPECT_TRUE(doc->selection);

  t.Press(*doc, kToolLasso, 10, 10, 1, 0, {});
  t.Move(*doc, 50, 10);
  t.Move(*doc, 50, 10);  // the same point again adds nothing
  t.Move(*doc, 10, 50);
  SelectionOverlay o = t.Overlay();
  EXPECT_EQ(o.shape, SelectionOverlay::Shape::Path);
  EXPECT_FALSE(o.toPointer);
  EXPECT_EQ(o.points.size(), 3u);
  EXPECT_EQ(t.OverlayBounds(), (Rect{9, 9, 51, 51}));
  t.Release(*doc, 10, 50);
  ASSERT_TRUE(doc->selection);
  EXPECT_EQ(doc->selectionBounds, (Rect{10, 10, 50, 50}));
  EXPECT_EQ(doc->selection->At(15, 15), 255);
  EXPECT_EQ(doc->selection->At(45, 45), 0);
  EXPECT_EQ(doc->selection->At(65, 65), 0);  // New replaced the rectangle
  EXPECT_EQ(States(*doc), 2u);
}

TEST_F(SelectionToolPath, APolygonTakesClicksUntilADoubleClickClosesIt) {
  Click(t, *doc, kToolPolygonSelect, 10, 10);
  t.Move(*doc, 50, 10);
  SelectionOverlay o = t.Overlay();
  EXPECT_TRUE(o.toPointer);
  EXPECT_EQ(o.pointer, (ShapePoint{50, 10}));
  Click(t, *doc, kToolPolygonSelect, 50, 10);
  Click(t, *doc, kToolPolygonSelect, 50, 50, kModAlt);  // modifiers count from the first point
  Click(t, *doc, kToolPolygonSelect, 30, 70);
  t.TakeOverlayDamage();
  EXPECT_TRUE(t.Key(SelectionKey::Backspace));
  EXPECT_FALSE(t.TakeOverlayDamage().Empty());
  EXPECT_EQ(t.Overlay().points.size(), 3u);
  EXPECT_EQ(States(*doc), 0u);
  // A double-click: press, release, double-click, release.
  Click(t, *doc, kToolPolygonSelect, 10, 50);
  t.DoubleClick(*doc, kToolPolygonSelect, 10, 50, 0, {});
  t.Release(*doc, 10, 50);
  EXPECT_FALSE(t.Busy());
  ExpectBox(*doc, {10, 10, 50, 50});
  EXPECT_EQ(States(*doc), 1u);
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
}

TEST_F(SelectionToolPath, KeysAndShortPolygonsLeaveNoTrace) {
  EXPECT_FALSE(t.Key(SelectionKey::Backspace));
  EXPECT_FALSE(t.Key(SelectionKey::Escape));
  Click(t, *doc, kToolPolygonSelect, 10, 10);
  Click(t, *doc, kToolPolygonSelect, 40, 10);
  Click(t, *doc, kToolPolygonSelect, 40, 40);
  EXPECT_TRUE(t.Key(SelectionKey::Escape));
  EXPECT_FALSE(t.Busy());
  Click(t, *doc, kToolPolygonSelect, 10, 10);
  EXPECT_TRUE(t.Key(SelectionKey::Backspace));  // the only point: the polygon is gone
  EXPECT_FALSE(t.Busy());
  Click(t, *doc, kToolPolygonSelect, 10, 10);
  Click(t, *doc, kToolPolygonSelect, 40, 10);
  t.DoubleClick(*doc, kToolPolygonSelect, 40, 10, 0, {});
  EXPECT_FALSE(t.Busy());
  // Another tool's press drops the polygon rather than adding to it.
  Click(t, *doc, kToolPolygonSelect, 10, 10);
  Drag(t, *doc, kToolRectSelect, 60, 60, 70, 70);
  EXPECT_FALSE(t.Busy());
  ExpectBox(*doc, {60, 60, 70, 70});
  EXPECT_EQ(States(*doc), 1u);
}

}  // namespace
}  // namespace tavora
