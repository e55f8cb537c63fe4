#include "document/document.h"

#include <gtest/gtest.h>

#include "document/size_limits.h"

namespace tavora {
namespace {

std::unique_ptr<Document> MakeDoc(int w = 8, int h = 6, uint32_t fill = 0xFFFFFFFF) {
  return CreateDocument(w, h, 96, fill, 0);
}

void AddLayer(Document& doc, std::u16string_view name) {
  doc.layers.emplace_back(doc.width, doc.height, name);
}

TEST(DocumentCreation, BackgroundLayerAndDefaults) {
  auto doc = CreateDocument(5, 4, 0, 0xFF102030, -7);
  EXPECT_EQ(doc->width, 5);
  EXPECT_EQ(doc->height, 4);
  EXPECT_EQ(doc->dpi, 72);
  EXPECT_EQ(doc->colorCount, 16777216);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(doc->active, 0);
  const Layer& bg = doc->layers[0];
  EXPECT_EQ(bg.Name(), u"Background");
  EXPECT_TRUE(bg.opaqueBackground);
  EXPECT_TRUE(bg.visible);
  EXPECT_EQ(bg.opacity, 255);
  EXPECT_EQ(bg.blendMode, 0);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) ASSERT_EQ(bg.pixels.At(x, y), 0xFF102030u);
  EXPECT_FALSE(doc->selection.has_value());
  EXPECT_EQ(doc->compositeDirty, (Rect{0, 0, 5, 4}));
  EXPECT_EQ(doc->zoom, 1.0);
  EXPECT_EQ(doc->fitMode, 1);
  EXPECT_FALSE(doc->modified);

  auto kept = CreateDocument(3, 3, 300, 0x00FFFFFF, 256);
  EXPECT_EQ(kept->dpi, 300);
  EXPECT_EQ(kept->colorCount, 256);
}

TEST(DocumentCreation, TranslucentFillsKeepTheirAlphaAndNoOpaqueFlag) {
  auto clear = MakeDoc(3, 3, 0x00FFFFFF);
  EXPECT_FALSE(clear->layers[0].opaqueBackground);
  EXPECT_EQ(clear->layers[0].pixels.At(2, 2), 0x00FFFFFFu);
  auto almost = MakeDoc(3, 3, 0xFE000000);
  EXPECT_FALSE(almost->layers[0].opaqueBackground);
}

TEST(DocumentTitles, UntitledNumbersRiseAndAreNeverReused) {
  auto first = MakeDoc();
  const int n = first->untitledNumber;
  EXPECT_GE(n, 1);
  const std::string digits = std::to_string(n);
  EXPECT_EQ(first->title, u"Untitled-" + std::u16string(digits.begin(), digits.end()));
  first.reset();  // closing the first does not free its number
  auto second = MakeDoc();
  EXPECT_EQ(second->untitledNumber, n + 1);
}

TEST(DocumentTitles, FileNameAfterEitherSeparator) {
  auto doc = MakeDoc();
  doc->path = u"C:\\pictures\\holiday/beach.png";
  SetTitle(*doc);
  EXPECT_EQ(doc->title, u"beach.png");
  doc->path = u"/tmp/a\\b.tvl";
  SetTitle(*doc);
  EXPECT_EQ(doc->title, u"b.tvl");
  doc->path = u"plain.jpg";
  SetTitle(*doc);
  EXPECT_EQ(doc->title, u"plain.jpg");
  doc->path = u"C:\\" + std::u16string(120, u'x') + u".png";
  SetTitle(*doc);
  EXPECT_EQ(doc->title.size(), 95u);
  doc->path.clear();
  doc->untitledNumber = 0;
  SetTitle(*doc);
  EXPECT_EQ(doc->title, u"Untitled-1");
}

TEST(ActiveLayerIndex, IsClampedAndStoredBack) {
  auto doc = MakeDoc();
  AddLayer(*doc, u"A");
  AddLayer(*doc, u"B");
  doc->active = -1;
  EXPECT_EQ(ActiveLayer(doc.get()), &doc->layers[0]);
  EXPECT_EQ(doc->active, 0);
  doc->active = 7;
  EXPECT_EQ(ActiveLayer(doc.get()), &doc->layers[2]);
  EXPECT_EQ(doc->active, 2);
  EXPECT_EQ(ActiveLayer(nullptr), nullptr);
  doc->layers.clear();
  EXPECT_EQ(ActiveLayer(doc.get()), nullptr);
}

TEST(LayerNames, NewLayerSkipsTakenNumbers) {
  auto doc = MakeDoc();
  AddLayer(*doc, u"Layer 3");
  EXPECT_EQ(NewLayerName(*doc), u"Layer 4");
  auto fresh = MakeDoc();
  EXPECT_EQ(NewLayerName(*fresh), u"Layer 2");
}

TEST(LayerNames, UniqueNamesCountFromTwoAndHonourTheIgnoredLayer) {
  auto doc = MakeDoc();
  AddLayer(*doc, u"Sky");
  EXPECT_EQ(UniqueLayerName(*doc, -1, u"Sky"), u"Sky 2");
  EXPECT_EQ(UniqueLayerName(*doc, 1, u"Sky"), u"Sky");  // renaming a layer to its own name
  EXPECT_EQ(UniqueLayerName(*doc, -1, u"sky"), u"sky");  // case matters
  AddLayer(*doc, u"Sky 2");
  EXPECT_EQ(UniqueLayerName(*doc, -1, u"Sky"), u"Sky 3");
  // The base is cut to 55 characters before numbering.
  const std::u16string longName(60, u'n');
  EXPECT_EQ(UniqueLayerName(*doc, -1, longName), std::u16string(55, u'n'));
}

TEST(LayerNames, DuplicateDropsAnExistingCopySuffix) {
  auto doc = MakeDoc();
  AddLayer(*doc, u"Layer 1");
  EXPECT_EQ(DuplicateLayerName(*doc, u"Layer 1"), u"Layer 1 copy");
  AddLayer(*doc, u"Layer 1 copy");
  EXPECT_EQ(DuplicateLayerName(*doc, u"Layer 1 copy"), u"Layer 1 copy 2");
  AddLayer(*doc, u"A copy");
  EXPECT_EQ(DuplicateLayerName(*doc, u"A copy"), u"A copy 2");
  // " copy" alone is longer than 4 characters, so its suffix goes too.
  EXPECT_EQ(DuplicateLayerName(*doc, u" copy"), u" copy");
  EXPECT_EQ(DuplicateLayerName(*doc, std::u16string(70, u'z')), std::u16string(50, u'z') + u" copy");
}

TEST(LayerNames, NamesAreCutWithoutSplittingSurrogates) {
  Layer layer(1, 1, std::u16string(70, u'a'));
  EXPECT_EQ(layer.Name().size(), 63u);
  std::u16string emoji(62, u'b');
  emoji += u"\U0001F600";  // a pair at units 62 and 63
  layer.SetName(emoji);
  EXPECT_EQ(layer.Name(), std::u16string(62, u'b'));
}

TEST(SizeLimits, SidesAndPixelCount) {
  EXPECT_TRUE(CheckCanvasSize(30000, 8333).ok);
  const SizeCheck over = CheckCanvasSize(30000, 8334);
  EXPECT_FALSE(over.ok);
  EXPECT_EQ(over.message, u"Size must be between 1 and 30000 pixels per side (max 250 megapixels).");
  EXPECT_FALSE(CheckCanvasSize(0, 10).ok);
  EXPECT_FALSE(CheckCanvasSize(10, 30001).ok);
  EXPECT_FALSE(CheckCanvasSize(-5, 10).ok);
  EXPECT_FALSE(CheckCanvasSize(0.0 / 0.0, 10).ok);
  // Entered values are rounded first: 0.5 becomes 1 and 30000.4 becomes 30000.
  const SizeCheck rounded = CheckCanvasSize(0.5, 30000.4);
  EXPECT_TRUE(rounded.ok);
  EXPECT_EQ(rounded.width, 1);
  EXPECT_EQ(rounded.height, 30000);
  EXPECT_FALSE(CheckCanvasSize(0.4, 10).ok);
  EXPECT_EQ(CheckCanvasSize(0, 1, SizeRule::NewImage).message,
            u"Width and height must be between 1 and 30000 pixels (max 250 megapixels).");
  EXPECT_FALSE(CheckCanvasSize(15000, 10001, SizeRule::Strict).ok);
  EXPECT_TRUE(CheckCanvasSize(15000, 10000, SizeRule::Strict).ok);
  EXPECT_EQ(CheckCanvasSize(15000, 10001, SizeRule::Strict).message,
            u"Size must be between 1 and 30000 pixels per side.");
  EXPECT_TRUE(CanvasSizeAllowed(30000, 8333));
  EXPECT_FALSE(CanvasSizeAllowed(30000, 8334));
  EXPECT_FALSE(CanvasSizeAllowed(int64_t{1} << 40, 1));
  EXPECT_FALSE(CanvasSizeAllowed(0, 0));
}

}  // namespace
}  // namespace tavora
