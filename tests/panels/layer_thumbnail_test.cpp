#include "panels/layer_thumbnail.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(LayerThumbnails, KeepTheAspectRatioOverACheckerboard) {
  Layer wide(200, 100, u"wide");
  for (int y = 0; y < 100; ++y)
    for (int x = 0; x < 200; ++x) wide.pixels.At(x, y) = x < 100 ? 0xFFFF0000u : 0xFF0000FFu;
  const auto t = LayerThumbnail(wide, 32);
  ASSERT_EQ(t.size(), 32u * 32u);
  // 32 x 16, centred: rows 8..23 hold the picture, red left and blue right.
  EXPECT_EQ(t[16 * 32 + 2], 0xFFFF0000u);
  EXPECT_EQ(t[16 * 32 + 29], 0xFF0000FFu);
  EXPECT_EQ(t[2 * 32 + 2], 0xFFCCCCCCu);  // the margin shows the light cell
  EXPECT_EQ(t[2 * 32 + 6], 0xFF999999u);  // and the dark one next to it
  Layer clear(10, 10, u"clear");
  const auto c = LayerThumbnail(clear, 16);
  for (uint32_t p : c) ASSERT_TRUE(p == 0xFFCCCCCCu || p == 0xFF999999u);
}

}  // namespace
}  // namespace tavora
