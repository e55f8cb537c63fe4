#include "document/document.h"

#include <gtest/gtest.h>

#include <cmath>

#include "document/size_limits.h"

namespace tavora {
namespace {

// A document whose layers above the Background carry the names given.
std::unique_ptr<Document> DocWith(std::initializer_list<std::u16string_view> names) {
  auto doc = CreateDocument(8, 6, 96, 0xFFFFFFFF, 0);
  for (auto name : names) doc->layers.emplace_back(8, 6, name);
  return doc;
}

TEST(DocumentCreation, BackgroundLayerAndDefaultsForMissingValues) {
  auto doc = CreateDocument(5, 4, 0, 0xFF102030, -7);
  ASSERT_EQ(doc->LayerCount(), 1);
  EXPECT_EQ(std::tuple(doc->dpi, doc->colorCount, doc->active), std::tuple(72, 16777216, 0));
  const Layer& bg = doc->layers[0];
  EXPECT_EQ(std::tuple(bg.Name(), bg.Width(), bg.Height()), std::tuple(u"Background", 5, 4));
  EXPECT_FALSE(doc->selection.has_value());
  EXPECT_EQ(doc->compositeDirty, (Rect{0, 0, 5, 4}));
  EXPECT_FALSE(doc->modified);

  auto kept = CreateDocument(3, 3, 300, 0x00FFFFFF, 256);
  EXPECT_EQ(std::tuple(kept->dpi, kept->colorCount), std::tuple(300, 256));
  // Only a fully opaque fill makes an opaque Background; others keep their alpha.
  for (auto [fill, opaque] : {std::pair{0xFF102030u, true}, {0x00FFFFFFu, false}, {0xFE000000u, false}}) {
    auto d = CreateDocument(3, 3, 72, fill, 0);
    EXPECT_EQ(d->layers[0].opaqueBackground, opaque) << std::hex << fill;
    EXPECT_EQ(d->layers[0].pixels.At(2, 2), fill) << std::hex << fill;
  }
}

TEST(DocumentTitles, UntitledNumbersRiseAndFileNamesAreCutTo95) {
  auto first = DocWith({});
  const int n = first->untitledNumber;
  EXPECT_GE(n, 1);
  const std::string digits = std::to_string(n);
  EXPECT_EQ(first->title, u"Untitled-" + std::u16string(digits.begin(), digits.end()));
  first.reset();  // closing the first does not free its number
  auto doc = DocWith({});
  EXPECT_EQ(doc->untitledNumber, n + 1);

  // The file name after either separator.
  using Row = std::pair<std::u16string, std::u16string>;
  for (const auto& [path, want] : {Row{u"C:\\pictures\\holiday/beach.png", u"beach.png"}, {u"/tmp/a\\b.tvl", u"b.tvl"},
                                   {u"plain.jpg", u"plain.jpg"},
                                   {u"C:\\" + std::u16string(120, u'x') + u".png", std::u16string(95, u'x')}}) {
    doc->path = path;
    SetTitle(*doc);
    EXPECT_EQ(doc->title, want) << std::string(path.begin(), path.end());
  }
  doc->path.clear();
  doc->untitledNumber = 0;
  SetTitle(*doc);
  EXPECT_EQ(doc->title, u"Untitled-1");
}

TEST(ActiveLayerIndex, IsClampedAndStoredBack) {
  auto doc = DocWith({u"A", u"B"});
  for (auto [stored, clamped] : {std::pair{-1, 0}, {7, 2}, {1, 1}}) {
    doc->active = stored;
    EXPECT_EQ(ActiveLayer(doc.get()), &doc->layers[clamped]) << stored;
    EXPECT_EQ(doc->active, clamped) << stored;
  }
  EXPECT_EQ(ActiveLayer(nullptr), nullptr);
  doc->layers.clear();
  EXPECT_EQ(ActiveLayer(doc.get()), nullptr);
}

TEST(LayerNames, NewUniqueAndDuplicateNamesFollowTheNamingRules) {
  const std::u16string longName(60, u'n');
  const struct {
    const char* what;
    std::u16string got, want;
  } table[] = {
      {"new: after the Background", NewLayerName(*DocWith({})), u"Layer 2"},
      {"new: skips taken numbers", NewLayerName(*DocWith({u"Layer 3"})), u"Layer 4"},
      {"unique: counts from two", UniqueLayerName(*DocWith({u"Sky"}), -1, u"Sky"), u"Sky 2"},
      {"unique: renaming a layer to its own name",
       UniqueLayerName(*DocWith({u"Sky"}), 1, u"Sky"), u"Sky"},
      {"unique: case matters", UniqueLayerName(*DocWith({u"Sky"}), -1, u"sky"), u"sky"},
      {"unique: next free number", UniqueLayerName(*DocWith({u"Sky", u"Sky 2"}), -1, u"Sky"),
       u"Sky 3"},
      {"unique: base cut to 55 before numbering", UniqueLayerName(*DocWith({}), -1, longName),
       std::u16string(55, u'n')},
      {"duplicate", DuplicateLayerName(*DocWith({u"Layer 1"}), u"Layer 1"), u"Layer 1 copy"},
      {"duplicate of a copy",
       DuplicateLayerName(*DocWith({u"Layer 1", u"Layer 1 copy"}), u"Layer 1 copy"),
       u"Layer 1 copy 2"},
      {"duplicate drops an existing copy suffix",
       DuplicateLayerName(*DocWith({u"A copy"}), u"A copy"), u"A copy 2"},
      // " copy" alone loses its suffix like any other name, and gets it back.
      {"duplicate of the bare suffix", DuplicateLayerName(*DocWith({}), u" copy"), u" copy"},
      {"duplicate: base cut to 50", DuplicateLayerName(*DocWith({}), std::u16string(70, u'z')),
       std::u16string(50, u'z') + u" copy"},
  };
  for (const auto& row : table)
    EXPECT_EQ(row.got, row.want) << row.what;
}

TEST(LayerNames, NamesAreCutWithoutSplittingSurrogates) {
  Layer layer(1, 1, std::u16string(70, u'a'));
  EXPECT_EQ(layer.Name().size(), 63u);
  std::u16string emoji(62, u'b');
  emoji += u"\U0001F600";  // a pair at units 62 and 63
  layer.SetName(emoji);
  EXPECT_EQ(layer.Name(), std::u16string(62, u'b'));
}

TEST(SizeLimits, SidesAndPixelCountAfterRounding) {
  const std::u16string_view standard =
      u"Size must be between 1 and 30000 pixels per side (max 250 megapixels).";
  const struct {
    double width, height;
    bool ok;
    std::u16string_view message = {};
    SizeRule rule = SizeRule::Standard;
  } table[] = {
      {30000, 8333, true},           {30000, 8334, false, standard}, {0, 10, false, standard},
      {10, 30001, false, standard},  {-5, 10, false, standard},      {NAN, 10, false, standard},
      {0.5, 30000.4, true},  // rounded to 1 x 30000
      {0.4, 10, false, standard},    {10, 0.4, false, standard},
      {0, 1, false, u"Width and height must be between 1 and 30000 pixels (max 250 megapixels).", SizeRule::NewImage},
      {15000, 10000, true, {}, SizeRule::Strict},
      {15000, 10001, false, u"Size must be between 1 and 30000 pixels per side.", SizeRule::Strict},
  };
  for (const auto& row : table) {
    const SizeCheck check = CheckCanvasSize(row.width, row.height, row.rule);
    EXPECT_EQ(check.ok, row.ok) << row.width << " x " << row.height;
    EXPECT_EQ(check.message, row.message) << row.width << " x " << row.height;
  }
  const SizeCheck rounded = CheckCanvasSize(0.5, 30000.4);
  EXPECT_EQ(std::tuple(rounded.width, rounded.height), std::tuple(1, 30000));
  // Readers' whole-pixel sizes.
  EXPECT_TRUE(CanvasSizeAllowed(30000, 8333));
  EXPECT_FALSE(CanvasSizeAllowed(30000, 8334) || CanvasSizeAllowed(int64_t{1} << 40, 1) || CanvasSizeAllowed(0, 0));
}

}  // namespace
}  // namespace tavora
