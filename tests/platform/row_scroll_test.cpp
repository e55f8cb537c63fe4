#include "platform/row_scroll.h"

#include <gtest/gtest.h>

#include <tuple>

namespace tavora {
namespace {

// 16 rows of 24 pixels (384) in a view of 280: up to 104 pixels can scroll.
constexpr RowView kHistory{16, 24, 280};

TEST(RowScroll, OffsetsStayInRange) {
  EXPECT_EQ(MaxRowOffset(kHistory), 104);
  EXPECT_EQ(MaxRowOffset({11, 24, 280}), 0);  // all fit
  EXPECT_EQ(MaxRowOffset({0, 24, 280}), 0);
  EXPECT_EQ(ClampRowOffset(kHistory, -5), 0);
  EXPECT_EQ(ClampRowOffset(kHistory, 500), 104);
  EXPECT_EQ(ClampRowOffset({16, 24, 0}, 500), 384);  // a panel with no room
}

TEST(RowScroll, ARowIsBroughtWhollyIntoViewByTheSmallestMove) {
  struct Case {
    RowView view;
    int32_t offset, row, expected;
  };
  const Case cases[] = {
      {kHistory, 0, 15, 104},    // the last row: scrolled to the end
      {kHistory, 0, 11, 8},      // just below the view: its bottom meets the view's
      {kHistory, 0, 10, 0},      // already whole in view: no move
      {kHistory, 104, 0, 0},     // above the view: to its top
      {kHistory, 104, 5, 104},   // in view
      {kHistory, 50, 2, 48},     // partly above: its top
      {kHistory, 0, 99, 104},    // past the end counts as the last row
      {{16, 24, 10}, 0, 3, 72},  // a view shorter than a row shows the row's top
      {{0, 24, 280}, 30, 0, 0},
  };
  for (const Case& c : cases)
    EXPECT_EQ(OffsetShowingRow(c.view, c.offset, c.row), c.expected) << c.offset << " " << c.row;
}

TEST(RowScroll, PointsMapToTheRowsUnderThem) {
  // The last row at the bottom; -1 for the header, below the view and below the last row.
  for (auto [view, offset, y, row] : {std::tuple{kHistory, 0, 0, 0}, {kHistory, 0, 23, 0}, {kHistory, 0, 24, 1},
                                      {kHistory, 104, 279, 15}, {kHistory, 10, 14, 1}, {kHistory, 0, -1, -1},
                                      {kHistory, 0, 280, -1}, {RowView{3, 24, 280}, 0, 100, -1}})
    EXPECT_EQ(RowAtY(view, offset, y), row) << offset << " " << y;
}

TEST(RowScroll, TheWheelMovesByRowsAndStopsAtTheEnds) {
  EXPECT_EQ(WheelRowOffset(kHistory, 0, -120, 3), 72);    // towards the user: down the list
  EXPECT_EQ(WheelRowOffset(kHistory, 72, -120, 3), 104);  // not past the end
  EXPECT_EQ(WheelRowOffset(kHistory, 104, 120, 1), 80);
  EXPECT_EQ(WheelRowOffset(kHistory, 20, 240, 3), 0);
  EXPECT_EQ(WheelRowOffset(kHistory, 0, -60, 2), 24);     // half a notch of a fine wheel
}

}  // namespace
}  // namespace tavora
