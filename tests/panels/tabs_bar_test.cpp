#include "panels/tabs_bar.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

// Eight device pixels per character.
int32_t Measure(std::u16string_view s) { return static_cast<int32_t>(s.size()) * 8; }

TEST(TabsBar, TextsWidthsCutTextsArrowsAndHits) {
  EXPECT_EQ(TabText(u"Untitled-3", true), u"Untitled-3  \u25CF");
  EXPECT_EQ(TabText(u"a.png", false), u"a.png");
  const std::vector<TabEntry> tabs = {{kBrowseTab, u"Browse"}, {0, u"a.png"}, {1, std::u16string(40, u'x')}};
  TabStrip s = LayoutTabs(tabs, 1000, 30, 0, 1.0, Measure);
  ASSERT_EQ(s.tabs.size(), 3u);
  EXPECT_FALSE(s.arrows);
  EXPECT_EQ(s.tabs[0].box, (Rect{0, 0, 96, 30}));  // at least 96 wide
  EXPECT_EQ(s.tabs[2].box.Width(), 240);          // at most 240
  EXPECT_TRUE(s.tabs[2].cut);                      // 320 px of text in 206
  EXPECT_FALSE(s.tabs[1].cut);
  EXPECT_EQ(HitTestTabs(s, 100, 10).kind, TabHit::Kind::Tab);
  EXPECT_EQ(HitTestTabs(s, 100, 10).entry, 1);
  const Rect c = s.tabs[1].close;
  EXPECT_EQ(HitTestTabs(s, c.x0 + 2, c.y0 + 2).kind, TabHit::Kind::Close);
  EXPECT_EQ(HitTestTabs(s, 900, 10).kind, TabHit::Kind::Nothing);  // the empty bar
  // Narrow bar: arrows at the right, scrolling clamped to the strip.
  s = LayoutTabs(tabs, 300, 30, 5000, 2.0, Measure);
  EXPECT_TRUE(s.arrows);
  EXPECT_EQ(s.scroll, s.total - (300 - 88));
  EXPECT_EQ(HitTestTabs(s, 299, 5).kind, TabHit::Kind::RightArrow);
  EXPECT_EQ(HitTestTabs(s, s.left.x0 + 1, 5).kind, TabHit::Kind::LeftArrow);
  EXPECT_EQ(s.tabs.back().box.x1, 300 - 88);  // the last tab ends at the arrows
}

TEST(TabsBar, DraggingReordersDocumentsOnly) {
  const std::vector<TabEntry> tabs = {{kBrowseTab, u"Browse"}, {0, u"a"}, {1, u"b"}, {2, u"c"}};
  EXPECT_EQ(ReorderTabs(tabs, 1, 3), (std::vector<int32_t>{1, 2, 0}));
  EXPECT_EQ(ReorderTabs(tabs, 3, 1), (std::vector<int32_t>{2, 0, 1}));
  EXPECT_EQ(ReorderTabs(tabs, 2, 0), (std::vector<int32_t>{0, 1, 2}));  // onto Browse: nothing
  EXPECT_EQ(ReorderTabs(tabs, 0, 2), (std::vector<int32_t>{0, 1, 2}));  // Browse never moves
  EXPECT_EQ(ReorderTabs(tabs, 2, 2), (std::vector<int32_t>{0, 1, 2}));
}

}  // namespace
}  // namespace tavora
