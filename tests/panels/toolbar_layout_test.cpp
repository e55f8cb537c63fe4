#include "panels/toolbar_layout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>

namespace tavora {
namespace {

using Kind = ToolbarItem::Kind;

TEST(ToolbarLayout, ItemsSitInOrderAndClicksFindTheButtons) {
  std::set<int32_t> commands;
  for (const ToolbarItem& item : ToolbarItems())
    if (item.kind == Kind::Button) {
      EXPECT_TRUE(commands.insert(item.command).second) << item.command;
    }
  for (double scale : {1.0, 1.25, 2.0}) {
    const ToolbarLayout layout = ComputeToolbarLayout(scale);
    ASSERT_EQ(layout.items.size(), ToolbarItems().size());
    int32_t left = 0;
    for (std::size_t i = 0; i < layout.items.size(); ++i) {
      const Rect& r = layout.items[i];
      ASSERT_FALSE(r.Empty()) << i;
      EXPECT_GE(r.x0, left) << i;  // left to right, never overlapping
      EXPECT_TRUE(r.y0 >= 0 && r.y1 <= layout.height && r.x1 <= layout.width) << i;
      left = r.x1;
      const int32_t hit = HitToolbar(layout, (r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2);
      EXPECT_EQ(hit, ToolbarItems()[i].kind == Kind::Button ? int32_t(i) : -1) << i;
      EXPECT_NE(HitToolbar(layout, r.x1, r.y0), int32_t(i));  // the right edge is outside
    }
    EXPECT_EQ(HitToolbar(layout, 0, 0), -1);
  }
  EXPECT_EQ(ComputeToolbarLayout(2.0).width, 2 * ComputeToolbarLayout(1.0).width);
}

TEST(ToolbarZoom, ChoicesMeanWhatTheySay) {
  const auto choices = ZoomChoices();
  ASSERT_GE(choices.size(), 3u);
  EXPECT_EQ(ZoomChoiceAt(0).kind, ZoomChoice::Kind::Fit);
  EXPECT_EQ(ZoomChoiceAt(choices.size() - 1).kind, ZoomChoice::Kind::ActualPixels);
  // Each percent entry reads back as its own zoom, and that zoom is shown
  // with the entry's text.
  for (std::size_t i = 1; i + 1 < choices.size(); ++i) {
    const ZoomChoice c = ZoomChoiceAt(i);
    EXPECT_EQ(c.kind, ZoomChoice::Kind::Zoom);
    EXPECT_EQ(ParseZoomPercent(choices[i]), c.zoom) << i;
    EXPECT_EQ(ZoomPercentText(c.zoom), choices[i]) << i;
  }
}

TEST(ToolbarZoom, TypedPercentsAndShownText) {
  const std::pair<std::u16string_view, std::optional<double>> typed[] = {
      {u"150", 1.5},     {u" 33.3 % ", 0.333}, {u"12.5%", 0.125}, {u"0.5", 0.01},  // held to 1 %
      {u"99999", 64.0},  {u"", std::nullopt},  {u"%", std::nullopt}, {u"abc", std::nullopt},
      {u"-5", std::nullopt}, {u"0", std::nullopt}, {u"1e3", std::nullopt}, {u"nan", std::nullopt},
      {u"inf", std::nullopt}, {u"1.2.3", std::nullopt}, {u"12 5", std::nullopt},
      {u"99999999999999999999", std::nullopt},
  };
  for (const auto& [text, zoom] : typed) {
    const std::optional<double> got = ParseZoomPercent(text);
    ASSERT_EQ(got.has_value(), zoom.has_value()) << std::string(text.begin(), text.end());
    if (zoom) {
      EXPECT_NEAR(*got, *zoom, 1e-12) << std::string(text.begin(), text.end());
    }
  }
  const std::pair<double, std::u16string_view> shown[] = {
      {0.6667, u"66.7%"}, {0.0833, u"8.3%"}, {1.0 / 3, u"33.3%"}, {0.02, u"2%"}, {64.0, u"6400%"}, {1.5, u"150%"}};
  for (const auto& [zoom, text] : shown) EXPECT_EQ(ZoomPercentText(zoom), text) << zoom;
}

}  // namespace
}  // namespace tavora
