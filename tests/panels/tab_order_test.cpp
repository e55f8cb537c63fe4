#include "panels/tab_order.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

// Browse 100 wide, then documents 0..2 of widths 100, 200 and 100.
TabStrip Strip() {
  TabStrip s;
  int32_t x = 0;
  for (int32_t w : {100, 100, 200, 100}) {
    TabBox t;
    t.box = {x, 0, x + w, 30};
    s.tabs.push_back(t);
    x += w;
  }
  s.total = x;
  return s;
}

TEST(TabOrder, DraggedTabMovesOnlyWhereThePointerStaysOnIt) {
  const std::vector<TabEntry> tabs = {{kBrowseTab, u"Browse"}, {0, u"a"}, {1, u"b"}, {2, u"c"}};
  const TabStrip s = Strip();
  struct Case {
    int32_t dragged, x, target;
  } cases[] = {
      {1, 150, -1},   // still on itself
      {1, 250, -1},   // narrow onto wide: its new place would be 300..400
      {1, 320, 2},    // far enough into the wide tab
      {2, 150, 1},    // wide onto narrow: new place 100..300 holds the pointer
      {2, 420, 3},    // wide moving right: new place 300..500
      {1, 450, 3},    // several places at once
      {1, 50, -1},    // onto Browse: nothing
      {0, 150, -1},   // Browse is never dragged
      {3, 700, -1},   // beside the last tab
      {7, 150, -1},   // no such entry
  };
  for (const Case& c : cases)
    EXPECT_EQ(DragTarget(tabs, s, c.dragged, c.x), c.target) << "dragged " << c.dragged << " to " << c.x;
}

TEST(TabOrder, NewOrderKeepsTheActiveDocumentAndRejectsBadOrders) {
  std::vector<std::unique_ptr<Document>> docs;
  for (int i = 0; i < 3; ++i) {
    docs.push_back(std::make_unique<Document>());
    docs.back()->title = std::u16string(1, static_cast<char16_t>(u'a' + i));
  }
  int32_t active = 0;
  ASSERT_TRUE(ApplyTabOrder(docs, std::vector<int32_t>{1, 2, 0}, active));
  EXPECT_EQ(docs[0]->title + docs[1]->title + docs[2]->title, u"bca");
  EXPECT_EQ(active, 2);  // "a" is still the active one
  for (const std::vector<int32_t>& bad : {std::vector<int32_t>{0, 1}, {0, 0, 1}, {0, 1, 3}, {-1, 0, 1}}) {
    EXPECT_FALSE(ApplyTabOrder(docs, bad, active));
    EXPECT_EQ(docs[0]->title + docs[1]->title + docs[2]->title, u"bca");
    EXPECT_EQ(active, 2);
  }
  active = -1;  // no active tab stays none
  ASSERT_TRUE(ApplyTabOrder(docs, std::vector<int32_t>{2, 0, 1}, active));
  EXPECT_EQ(active, -1);
  EXPECT_EQ(docs[0]->title, u"a");
}

}  // namespace
}  // namespace tavora
