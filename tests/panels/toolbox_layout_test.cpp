#include "panels/toolbox_layout.h"

#include <gtest/gtest.h>

#include <set>

namespace tavora {
namespace {

TEST(ToolboxLayout, EveryToolHasItsOwnButtonAndClicksFindIt) {
  for (double scale : {1.0, 1.25, 2.0}) {
    const ToolboxLayout layout = ComputeToolboxLayout(scale);
    std::set<int32_t> listed(ToolboxOrder().begin(), ToolboxOrder().end());
    EXPECT_EQ(listed.size(), std::size_t(kToolCount));
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
    const auto centre = [](const Rect& r) { return std::pair{(r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2}; };
    for (auto [rect, part] : {std::pair{layout.leftBox, ToolboxPart::LeftColor},
                              std::pair{layout.rightBox, ToolboxPart::RightColor},
                              std::pair{layout.swap, ToolboxPart::Swap},
                              std::pair{layout.reset, ToolboxPart::Reset}}) {
      auto [x, y] = centre(rect);
      EXPECT_EQ(HitToolbox(layout, x, y).part, part);
      EXPECT_LE(rect.y1, layout.height);
    }
    EXPECT_EQ(HitToolbox(layout, 0, 0).part, ToolboxPart::None);
  }
  // Scaled with the dpi.
  EXPECT_EQ(ComputeToolboxLayout(2.0).width, 2 * ComputeToolboxLayout(1.0).width);
  // A short window gets more columns, so the colour boxes stay in view.
  const ToolboxLayout tall = ComputeToolboxLayout(1.5, 2000);
  EXPECT_EQ(tall.width, ComputeToolboxLayout(1.5).width);
  for (int32_t height : {700, 500, 300}) {
    const ToolboxLayout fit = ComputeToolboxLayout(1.5, height);
    EXPECT_LE(fit.height, height) << height;
    EXPECT_GT(fit.width, tall.width) << height;
    for (int32_t id = 0; id < kToolCount; ++id) {
      const Rect& r = fit.buttons[std::size_t(id)];
      EXPECT_EQ(HitToolbox(fit, (r.x0 + r.x1) / 2, (r.y0 + r.y1) / 2).tool, id);
    }
  }
}

TEST(ToolboxGlyphs, EveryIconIsWellFormedOnItsGrid) {
  for (int32_t id = 0; id < kToolCount; ++id) {
    const std::vector<GlyphStroke> strokes = ToolGlyph(id);
    ASSERT_FALSE(strokes.empty()) << id;
    for (const GlyphStroke& s : strokes) {
      ASSERT_EQ(s.points.size() % 2, 0u) << id;
      for (int32_t v : s.points) EXPECT_TRUE(v >= 0 && v <= 16) << id;
      EXPECT_TRUE(s.width >= 1 && s.width <= 3) << id;
      using K = GlyphStroke::Kind;
      switch (s.kind) {
        case K::Ellipse: case K::FilledEllipse: case K::Box: case K::RoundBox:
          EXPECT_EQ(s.points.size(), 4u) << id;
          break;
        case K::Lines:
          EXPECT_GE(s.points.size(), 4u) << id;
          break;
        case K::Closed: case K::Filled:
          EXPECT_GE(s.points.size(), 6u) << id;
          break;
      }
    }
  }
}

}  // namespace
}  // namespace tavora
