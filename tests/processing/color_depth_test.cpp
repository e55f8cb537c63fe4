#include "processing/color_depth.h"

#include <gtest/gtest.h>

#include <set>

#include "document/history.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::Grey;

TEST(MedianCut, SplitsAlongTheWidestWeightedAxisAtThePixelMedian) {
  // A grey ramp: equal ranges weigh 3, 4, 2, so green leads; the halves
  // meet at the median pixel count.
  std::vector<uint32_t> ramp;
  for (uint32_t v = 0; v < 256; ++v) ramp.push_back(Grey(v));
  // 32 cells of 8 values each; the first 16 cells hold values 0..127, whose
  // cell means 3, 11, ..., 123 average 63.
  EXPECT_EQ(MedianCutPalette(ramp.data(), ramp.size(), 2), (std::vector<uint32_t>{Grey(63), Grey(191)}));
  // Four distinct colours each in its own cell come back exactly, and a
  // larger count than occupied cells gives a smaller palette.
  const std::vector<uint32_t> four = {0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFF000000, 0xFFFF0000};
  auto palette = MedianCutPalette(four.data(), four.size(), 16);
  std::set<uint32_t> got(palette.begin(), palette.end());
  EXPECT_EQ(got, (std::set<uint32_t>{0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFF000000}));
}

TEST(MedianCut, TheInverseTableTakesTheNearestAndTheLowerIndexOnATie) {
  const std::vector<uint32_t> palette = {Grey(0), Grey(255), Grey(0)};
  const auto table = InversePaletteTable(palette);
  ASSERT_EQ(table.size(), 32768u);
  // Centre 4,4,4 is black, not its later copy; centre 252 white. The
  // channels weigh 3, 4, 2: the centre (124, 132, 128) is nearer white
  // (144,257) than black (148,592).
  EXPECT_EQ(std::tuple(table[0], table[32767], table[(15u << 10) | (16u << 5) | 15u]), std::tuple(0, 1, 1));
}

TEST(ColorDepth, GridsHitEvenlySpacedLevelsAndDitheringKeepsTheAverage) {
  std::vector<uint32_t> px;
  for (uint32_t v = 0; v < 256; ++v) px.push_back(0x80000000u | v << 16 | v << 8 | v);
  ColorDepthParams p{65536, false, DepthMode::Grid565};
  std::vector<uint32_t> out = px;
  ReduceColors(out.data(), 256, 1, &p);
  std::set<uint32_t> reds, greens;
  for (uint32_t q : out) {
    reds.insert((q >> 16) & 255);
    greens.insert((q >> 8) & 255);
    EXPECT_EQ(q >> 24, 0x80u);  // alpha kept
  }
  EXPECT_EQ(reds.size(), 32u);
  EXPECT_EQ(greens.size(), 64u);
  EXPECT_TRUE(reds.count(0) && reds.count(255) && greens.count(0) && greens.count(255));
  for (uint32_t r : reds) EXPECT_EQ(r, ((r * 31 + 127) / 255) * 255 / 31) << r;
  // A flat mid grey dithered to black and white comes out about half white.
  for (bool grid : {true, false}) {
    std::vector<uint32_t> flat(64 * 64, Grey(128));
    ColorDepthParams d = grid ? ColorDepthParams{32768, true, DepthMode::Grid555}
                              : ColorDepthParams{2, true, DepthMode::Palette};
    if (!grid) flat[0] = Grey(0), flat[1] = Grey(255);  // a palette of black and white
    ReduceColors(flat.data(), 64, 64, &d);
    uint64_t sum = 0;
    for (uint32_t q : flat) sum += q & 255;
    EXPECT_NEAR(double(sum) / flat.size(), 128.0, 2.0) << grid;
  }
}

TEST(ColorDepth, TheCommandFlattensRecordsTheCountAndKeepsToTheSelection) {
  auto doc = CreateDocument(4, 4, 72, Grey(100), 0);
  ApplyColorDepth(*doc, 16777216, true, DepthMode::Palette);  // true colour, one layer
  EXPECT_TRUE(doc->history.states.empty());
  EXPECT_EQ(doc->colorCount, 16777216);
  doc->layers.emplace_back(4, 4, u"Layer 2");
  doc->layers[1].pixels.Fill(0x80FF0000);
  doc->selection.emplace(4, 4);
  doc->selection->At(0, 0) = 255;
  doc->selectionBounds = {0, 0, 1, 1};
  ApplyColorDepth(*doc, 32768, false, DepthMode::Grid555);
  EXPECT_EQ(doc->LayerCount(), 1);
  ASSERT_EQ(doc->history.states.size(), 2u);
  EXPECT_EQ(std::pair(doc->history.states[0].label, doc->history.states[1].label),
            std::pair(std::u16string(u"Flatten"), std::u16string(u"Color Depth")));
  EXPECT_EQ(doc->colorCount, 32768);
  const Surface& p = doc->layers[0].pixels;
  EXPECT_EQ(p.At(1, 1), p.At(3, 3));  // outside the selection: as flattened
  EXPECT_EQ(ColorDepthRow(32768, DepthMode::Grid555), 2);
  EXPECT_EQ(ColorDepthRow(100, DepthMode::Palette), 3);
  // Undo gives the count back with the pixels (a save would otherwise write
  // a palette), and redo takes it again.
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->colorCount, 16777216);
  ASSERT_TRUE(Redo(*doc) && Undo(*doc) && Undo(*doc));
  EXPECT_EQ(doc->LayerCount(), 2);
  EXPECT_EQ(doc->colorCount, 16777216);
  ASSERT_TRUE(Redo(*doc) && Redo(*doc));
  EXPECT_EQ(doc->colorCount, 32768);
}

}  // namespace
}  // namespace tavora
