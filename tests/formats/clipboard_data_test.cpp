#include "formats/clipboard_data.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "document/history.h"
#include "pixels.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

TEST(ClipboardData, CopiedAlphaFollowsTheSelectionAndTheBlockRoundTrips) {
  auto doc = CreateDocument(6, 4, 96, 0xFF102030, 0);
  doc->layers[0].pixels.At(3, 2) = 0xFFAABBCC;
  doc->selection.emplace(6, 4);
  doc->selection->At(2, 1) = 255;
  doc->selection->At(3, 2) = 128;
  doc->selectionBounds = {2, 1, 4, 3};
  const auto copy = CopySelectedPixels(*doc);
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->from, (Rect{2, 1, 4, 3}));
  EXPECT_EQ(copy->pixels.At(0, 0), 0xFF102030u);
  EXPECT_EQ(copy->pixels.At(1, 1), 0x80AABBCCu);  // half selected, half the alpha
  EXPECT_EQ(copy->pixels.At(1, 0), 0x00102030u);  // unselected within the bounds

  const std::vector<uint8_t> block = BuildDibV5(copy->pixels, 96);
  ASSERT_EQ(block.size(), 124u + 2 * 2 * 4);
  uint32_t header[8];
  std::memcpy(header, block.data(), sizeof header);
  // Size, width, a positive height (bottom-up), bit fields, 96 dpi in pixels per metre.
  EXPECT_EQ(std::tuple(header[0], header[1], header[2], header[4], header[6]), std::tuple(124u, 2u, 2u, 3u, 3779u));
  EXPECT_EQ(std::memcmp(&block[56], "BGRs", 4), 0);
  uint32_t firstStored;
  std::memcpy(&firstStored, &block[124], 4);
  EXPECT_EQ(firstStored, copy->pixels.At(0, 1));  // the bottom row comes first
  const auto back = ParseDibV5(block);
  ASSERT_TRUE(back);
  EXPECT_TRUE(SamePixels(*back, copy->pixels));
}

TEST(ClipboardData, BlocksFromOtherProgramsAreCheckedAndMadeVisible) {
  Surface picture(3, 2);
  picture.Fill(0x00405060);  // alpha never set, as many programs leave it
  std::vector<uint8_t> block = BuildDibV5(picture, 72);
  const auto opaque = ParseDibV5(block);
  ASSERT_TRUE(opaque);
  EXPECT_EQ(opaque->At(2, 1), 0xFF405060u);
  // Top-down rows (negative height).
  picture.At(0, 0) = 0xFF000001;
  block = BuildDibV5(picture, 72);
  const int32_t negative = -2;
  std::memcpy(&block[8], &negative, 4);
  EXPECT_EQ(ParseDibV5(block)->At(0, 1), 0xFF000001u);
  auto spoil = [&](std::size_t at, uint32_t v, int bytes) {
    std::vector<uint8_t> b = BuildDibV5(picture, 72);
    std::memcpy(&b[at], &v, std::size_t(bytes));
    return ParseDibV5(b);
  };
  EXPECT_FALSE(spoil(0, 40, 4));          // an older, shorter header
  EXPECT_FALSE(spoil(14, 24, 2));         // 24 bits
  EXPECT_FALSE(spoil(4, 0, 4));           // no width
  EXPECT_FALSE(spoil(8, 0, 4));           // no height
  EXPECT_FALSE(spoil(16, 1, 4));          // run-length coded
  EXPECT_FALSE(spoil(4, 20000, 4));       // more pixels than the block holds
  EXPECT_FALSE(spoil(4, 0x7FFFFFFF, 4));  // far too many
  EXPECT_FALSE(ParseDibV5(std::span<const uint8_t>(block.data(), 100)));
}

// Plain 32-bit bitmaps (a 40-byte header) from other programs: rows start
// after the header, or after its three masks with bit fields.
TEST(ClipboardData, PlainBitmapsAreReadWithOrWithoutMasks) {
  Surface picture(2, 2);
  picture.At(0, 0) = 0x00000001;
  picture.At(1, 1) = 0x00000004;
  auto plain = [&](uint32_t compression, int32_t height, bool masks, uint32_t redMask) {
    std::vector<uint8_t> b(40 + (masks ? 12 : 0), 0);
    const int32_t fields[] = {40, 2, height};
    std::memcpy(b.data(), fields, sizeof fields);
    b[12] = 1;
    b[14] = 32;
    std::memcpy(&b[16], &compression, 4);
    if (masks) {
      const uint32_t m[] = {redMask, 0x0000FF00, 0x000000FF};
      std::memcpy(&b[40], m, sizeof m);
    }
    for (int32_t y = 0; y < 2; ++y) {  // bottom-up for a positive height
      const uint32_t* row = picture.Row(height > 0 ? 1 - y : y);
      b.insert(b.end(), reinterpret_cast<const uint8_t*>(row), reinterpret_cast<const uint8_t*>(row + 2));
    }
    return b;
  };
  const struct {
    const char* name;
    std::vector<uint8_t> block;
    bool read;
  } table[] = {
      {"no compression, bottom-up", plain(0, 2, false, 0), true},
      {"no compression, top-down", plain(0, -2, false, 0), true},
      {"bit fields in the usual order", plain(3, 2, true, 0x00FF0000), true},
      {"bit fields in another order", plain(3, 2, true, 0x000000FF), false},
      {"bit fields without room for the masks", plain(3, 2, false, 0), false},
  };
  for (const auto& row : table) {
    const auto got = ParseDib32(row.block);
    EXPECT_EQ(got.has_value(), row.read) << row.name;
    if (!got || !row.read) continue;
    EXPECT_EQ(got->At(0, 0), 0xFF000001u) << row.name;  // alpha all 0: opaque
    EXPECT_EQ(got->At(1, 1), 0xFF000004u) << row.name;
  }
  EXPECT_FALSE(ParseDibV5(plain(0, 2, false, 0)));  // too short a header for this format
  // The version-5 block reads here too, its masks inside the header.
  picture.At(1, 0) = 0x80FFFFFF;
  EXPECT_TRUE(SamePixels(*ParseDib32(BuildDibV5(picture, 72)), picture));
}

TEST(ClipboardData, PastedLayersLandWhereTheyCameFromOrCentredKeepingTheRest) {
  auto doc = CreateDocument(10, 8, 72, 0xFFFFFFFF, 0);
  doc->selection.emplace(10, 8);
  doc->selection->At(1, 1) = 255;
  doc->selectionBounds = {1, 1, 2, 2};
  Surface small(2, 2);
  small.Fill(0xFF0000FF);
  PasteAsLayer(*doc, small, Rect{7, 5, 9, 7});
  ASSERT_EQ(doc->LayerCount(), 2);
  EXPECT_FALSE(doc->selection);
  EXPECT_EQ(HistoryRows(*doc), (std::vector<std::u16string>{u"Original", u"Deselect", u"Paste"}));
  EXPECT_EQ(doc->layers[1].Name(), u"Pasted");
  EXPECT_EQ(doc->active, 1);
  EXPECT_EQ(doc->layers[1].pixels.At(7, 5), 0xFF0000FFu);
  // Bigger than the canvas: centred, the rest kept past the edges.
  Surface big(14, 8);
  big.Fill(0xFF00FF00);
  big.At(0, 0) = 0xFFFF0000;
  PasteAsLayer(*doc, big, std::nullopt);
  const Layer& l = doc->layers[2];
  ASSERT_TRUE(l.extended);
  EXPECT_EQ(l.extended->x, -2);
  EXPECT_EQ(l.extended->pixels.At(0, 0), 0xFFFF0000u);
  EXPECT_EQ(l.pixels.At(0, 0), 0xFF00FF00u);
  ASSERT_TRUE(Undo(*doc));
  EXPECT_EQ(doc->LayerCount(), 2);
}

}  // namespace
}  // namespace tavora
