#include "tools/fill.h"

#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "document/history.h"
#include "tool_helpers.h"
#include "tools/selection_tool.h"
#include "tools/tool_table.h"

namespace tavora {
namespace {

// The area by a plain breadth-first search over 4-neighbours.
SelectionMask ReferenceFlood(const Surface& s, int32_t sx, int32_t sy, int32_t t, bool contiguous) {
  SelectionMask m(s.Width(), s.Height());
  const uint32_t seed = s.At(sx, sy);
  if (!contiguous) {
    for (int32_t y = 0; y < s.Height(); ++y)
      for (int32_t x = 0; x < s.Width(); ++x) m.At(x, y) = ColourMatches(s.At(x, y), seed, t) ? 255 : 0;
    return m;
  }
  std::deque<std::pair<int32_t, int32_t>> queue{{sx, sy}};
  m.At(sx, sy) = 255;
  while (!queue.empty()) {
    const auto [x, y] = queue.front();
    queue.pop_front();
    const int32_t next[4][2] = {{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}};
    for (const auto& n : next) {
      if (n[0] < 0 || n[1] < 0 || n[0] >= s.Width() || n[1] >= s.Height() || m.At(n[0], n[1])) continue;
      if (!ColourMatches(s.At(n[0], n[1]), seed, t)) continue;
      m.At(n[0], n[1]) = 255;
      queue.emplace_back(n[0], n[1]);
    }
  }
  return m;
}

TEST(FloodArea, MatchesABreadthFirstSearchOnRandomPictures) {
  std::mt19937 rng(3);
  for (int round = 0; round < 40; ++round) {
    Surface s(1 + rng() % 40, 1 + rng() % 30);
    // Few colours, some transparent with stray colour bytes, so areas form.
    const uint32_t palette[] = {0xFF102030, 0xFF112131, 0xFF804020, 0x00FFFFFF, 0x00000000, 0x40102030};
    for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = palette[rng() % 6];
    const int32_t x = rng() % s.Width(), y = rng() % s.Height(), t = ToleranceThreshold(rng() % 101);
    for (bool contiguous : {true, false}) {
      const auto got = FloodArea(s, x, y, t, contiguous);
      ASSERT_TRUE(got);
      const SelectionMask want = ReferenceFlood(s, x, y, t, contiguous);
      Rect bounds;
      for (int32_t py = 0; py < s.Height(); ++py)
        for (int32_t px = 0; px < s.Width(); ++px) {
          ASSERT_EQ(got->mask.At(px, py), want.At(px, py)) << round << " " << contiguous << " " << px << "," << py;
          if (want.At(px, py)) bounds = Union(bounds, {px, py, px + 1, py + 1});
        }
      EXPECT_EQ(got->rect, bounds);
    }
  }
}

TEST(FloodArea, ToleranceCurveAlphaRuleAndFourNeighbours) {
  for (auto [t, want] : {std::pair{0, 0}, {10, 3}, {32, 26}, {50, 64}, {100, 255}, {-5, 0}, {150, 255}})
    EXPECT_EQ(ToleranceThreshold(t), want) << t;
  EXPECT_TRUE(ColourMatches(0x00FF0000, 0x0000FF00, 0));   // both transparent
  EXPECT_FALSE(ColourMatches(0x01FF0000, 0x0000FF00, 254));
  EXPECT_TRUE(ColourMatches(0xFF102030, 0xFF0F1F2F, 1));
  EXPECT_FALSE(ColourMatches(0xFE102030, 0xFF102030, 0));  // alpha counts
  // Two areas touching only at a corner stay apart.
  Surface s(2, 2);
  s.At(0, 0) = s.At(1, 1) = 0xFF000000;
  s.At(1, 0) = s.At(0, 1) = 0xFFFFFFFF;
  const auto a = FloodArea(s, 0, 0, 0, true);
  EXPECT_EQ(a->rect, (Rect{0, 0, 1, 1}));
  EXPECT_EQ(FloodArea(s, 0, 0, 0, false)->rect, (Rect{0, 0, 2, 2}));
  EXPECT_EQ(FloodArea(s, 0, 0, 255, true)->rect, (Rect{0, 0, 2, 2}));
  EXPECT_FALSE(FloodArea(s, 2, 0, 0, true));
  EXPECT_FALSE(FloodArea(s, 0, -1, 0, true));
}

TEST(FillTool, ComposesTheFoundAreaWeightedByTheSelectionAsOneStep) {
  auto doc = testing_support::WithLayer(8, 4);
  Surface& p = doc->layers[1].pixels;
  for (int32_t x = 0; x < 8; ++x) p.At(x, 0) = 0x00123456u * (x & 1);  // stray bytes under alpha 0
  p.At(4, 2) = 0xFF00FF00;  // an island
  doc->selection.emplace(8, 4);
  std::fill(doc->selection->Data(), doc->selection->Data() + 32, uint8_t{128});
  doc->selection->At(0, 0) = 0;
  doc->selectionBounds = doc->Bounds();
  FillOptions o;
  o.tolerance = 0;
  o.opacity = 50;
  ASSERT_TRUE(FillAt(*doc, 1.7, 0.2, 0xFFFF0000, o));
  EXPECT_EQ(UndoLabel(*doc), u"Flood Fill");
  EXPECT_EQ(p.At(1, 0), 0x3FFF0000u);  // alpha (127 x 128) / 255 = 63
  EXPECT_EQ(p.At(7, 3), 0x3FFF0000u);  // every transparent pixel is one area
  EXPECT_EQ(p.At(0, 0), 0u);           // unselected
  EXPECT_EQ(p.At(4, 2), 0xFF00FF00u);  // not in the area
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(p.At(1, 0), 0x00123456u);
  EXPECT_FALSE(FillAt(*doc, 8.5, 1, 0xFFFF0000, o));  // outside: nothing recorded
  EXPECT_EQ(RedoLabel(*doc), u"Flood Fill");
}

// A Background white on the left half and black on the right.
std::unique_ptr<Document> TwoHalves() {
  auto doc = CreateDocument(10, 10, 72, 0xFFFFFFFF, 0);
  for (int32_t y = 0; y < 10; ++y)
    for (int32_t x = 5; x < 10; ++x) doc->layers[0].pixels.At(x, y) = 0xFF000000;
  return doc;
}

TEST(MagicWand, SelectsTheAreaOfTheLayerOrOfAllLayersByMode) {
  auto doc = TwoHalves();
  doc->layers.emplace_back(10, 10, u"Layer 2");  // transparent: one area alone
  doc->active = 1;
  WandOptions o;
  ASSERT_TRUE(MagicWandAt(*doc, 1, 1, kSelectNew, o));
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 10, 10}));
  o.allLayers = true;  // the flattened picture has a white and a black half
  ASSERT_TRUE(MagicWandAt(*doc, 1, 1, kSelectNew, o));
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 5, 10}));  // the modes: the tool's test below
  // Feathered: the edge softens on both sides of the boundary.
  o.feather = 2;
  ASSERT_TRUE(MagicWandAt(*doc, 1, 1, kSelectNew, o));
  EXPECT_GT(doc->selection->At(5, 5), 0);
  EXPECT_LT(doc->selection->At(4, 5), 255);
  EXPECT_EQ(doc->selection->At(0, 5), 255);
}

TEST(MagicWand, TheToolSelectsOnReleaseAndAStillPressInsideIsAWandClick) {
  auto doc = TwoHalves();
  SelectionTool t;
  SelectionToolOptions o;
  auto click = [&](double x, double y, int modifiers) {
    t.Press(*doc, kToolMagicWand, x, y, 1, modifiers, o);
    t.Release(*doc, x, y);
  };
  click(1, 1, 0);
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 5, 10}));
  click(7, 7, kModCtrl);  // adds
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 10, 10}));
  o.selmode = kSelectSubtract;
  click(7, 7, 0);  // inside the selection, never moved: the wand acts, by its mode
  EXPECT_EQ(doc->selectionBounds, (Rect{0, 0, 5, 10}));
  EXPECT_EQ(UndoLabel(*doc), u"Selection");
  // A drag from inside still moves the outline.
  t.Press(*doc, kToolMagicWand, 2, 2, 1, 0, o);
  t.Move(*doc, 4, 2);
  t.Release(*doc, 4, 2);
  EXPECT_EQ(UndoLabel(*doc), u"Move Selection Outline");
}

}  // namespace
}  // namespace tavora
