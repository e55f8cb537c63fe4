#include "panels/toolbox_layout.h"
#include "panels/toolbar_layout.h"

#include <gtest/gtest.h>

#include <set>

namespace tavora {
namespace {

TEST(ToolboxLayout, EveryToolHasItsOwnButtonAndClicksFindIt) {
  std::set<int32_t> listed(ToolboxOrder().begin(), ToolboxOrder().end());
  EXPECT_EQ(listed.size(), std::size_t(kToolCount));
  // A short window gets more columns, so the colour boxes stay in view.
  const ToolboxLayout tall = ComputeToolboxLayout(1.5, 2000);
  EXPECT_EQ(tall.width, ComputeToolboxLayout(1.5).width);
  EXPECT_EQ(ComputeToolboxLayout(2.0).width, 2 * ComputeToolboxLayout(1.0).width);  // scaled with the dpi
  for (auto [scale, height] : {std::pair{1.0, 0}, {1.25, 0}, {2.0, 0}, {1.5, 700}, {1.5, 500}, {1.5, 300}}) {
    const ToolboxLayout layout = height ? ComputeToolboxLayout(scale, height) : ComputeToolboxLayout(scale);
    if (height) {
      EXPECT_LE(layout.height, height) << height;
      EXPECT_GT(layout.width, tall.width) << height;
    }
    for (int32_t a = 0; a < kToolCount; ++a) {
      const Rect& r = layout.buttons[std::size_t(a)];
      ASSERT_FALSE(r.Empty());
      EXPECT_LE(r.x1, layout.width);
      EXPECT_LE(r.y1, layout.height);
      for (int32_t b = a + 1; b < kToolCount; ++b)
        EXPECT_TRUE(Intersect(r, layout.buttons[std::size_t(b)]).Empty()) << a << " " << b;
      const ToolboxHit hit = HitToolbox(layout, (r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2);
      EXPECT_EQ(hit.part, ToolboxPart::Tool);
      EXPECT_EQ(hit.tool, a);
      EXPECT_NE(HitToolbox(layout, r.x1, r.y1 - 1).tool, a);  // the right edge is outside
    }
    for (auto [r, part] : {std::pair{layout.leftBox, ToolboxPart::LeftColor},
                           {layout.rightBox, ToolboxPart::RightColor}, {layout.swap, ToolboxPart::Swap},
                           {layout.reset, ToolboxPart::Reset}}) {
      EXPECT_EQ(HitToolbox(layout, (r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2).part, part) << scale << " " << height;
      EXPECT_LE(r.y1, layout.height);
    }
    EXPECT_EQ(HitToolbox(layout, 0, 0).part, ToolboxPart::None);
  }
}

TEST(Glyphs, EveryToolAndToolbarIconIsWellFormedOnItsGrid) {
  using K = GlyphStroke::Kind;
  std::vector<std::vector<GlyphStroke>> icons;
  for (int32_t id = 0; id < kToolCount; ++id) icons.push_back(ToolGlyph(id));
  for (const ToolbarItem& item : ToolbarItems())
    if (item.kind == ToolbarItem::Kind::Button) icons.push_back(ParseGlyph(item.glyph));
  for (std::size_t id = 0; id < icons.size(); ++id) {
    const std::vector<GlyphStroke>& strokes = icons[id];
    ASSERT_FALSE(strokes.empty()) << id;
    for (const GlyphStroke& s : strokes) {
      const std::size_t n = s.points.size();
      ASSERT_EQ(n % 2, 0u) << id;
      for (int32_t v : s.points) EXPECT_TRUE(v >= 0 && v <= 16) << id;
      EXPECT_TRUE(s.width >= 1 && s.width <= 3) << id;
      // Boxes and ellipses take two corners, lines two points, outlines three.
      const bool corners = s.kind != K::Lines && s.kind != K::Closed && s.kind != K::Filled;
      EXPECT_TRUE(corners ? n == 4 : n >= (s.kind == K::Lines ? 4u : 6u)) << id << ": " << n << " numbers";
    }
  }
}

}  // namespace
}  // namespace tavora
