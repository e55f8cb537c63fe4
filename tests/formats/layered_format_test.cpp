#include "formats/layered_format.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "base/file_io.h"
#include "file_bytes.h"
#include "pixels.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::Bytes;
using testing_support::FilesIn;
using testing_support::ReadBytes;
using testing_support::SamePixels;
using testing_support::TempDir;
using testing_support::WriteBytes;

struct FileBytes : testing_support::LittleEndian {
  FileBytes& Magic(const char* m) { return static_cast<FileBytes&>(Raw(m)); }
  FileBytes& W(std::initializer_list<uint32_t> words) {
    for (uint32_t w : words) U32(w);
    return *this;
  }
  FileBytes& Name(std::u16string_view name) {
    for (std::size_t i = 0; i < 64; ++i) U16(i < name.size() ? name[i] : 0);
    return *this;
  }
  // The default effect blocks of a new layer, as written.
  FileBytes& DefaultShadowGlows() {
    return W({0, 6, 6, 8, 0x000000, 60, 0, 0, 0, 12, 0xFFD84A, 80, 0, 0, 0, 12, 0xFFFFFF, 80});
  }
  FileBytes& DefaultBlock18() {
    return W({0, 60, 8, 2, 135 + 720, 0, 0, 0xFF3366, 100, 0,
              0, 0xFF8800, 0x3355FF, 100, 0, 90 + 720, 0, 0});
  }
};

std::unique_ptr<Document> SmallDoc() {
  auto doc = CreateDocument(2, 1, 96, 0xFF112233, 256);
  Layer& l = doc->layers[0];
  l.SetName(u"Ab");
  l.opacity = 200;
  l.blendMode = 3;
  return doc;
}

// SmallDoc's header and first layer record up to its newer blocks.
FileBytes SmallDocStart(const char* magic, uint32_t layers, uint32_t active) {
  FileBytes f;
  f.Magic(magic).W({2, 1, 96, 256, layers, active}).Name(u"Ab").W({1, 200, 3, 1});
  f.DefaultShadowGlows().DefaultBlock18();
  return f;
}

TEST(LayeredFormatGolden, TheOldestVersionThatHoldsTheEffectsIsWrittenWordForWord) {
  const struct {
    const char* what;
    void (*change)(Document&);
    Bytes want;
  } table[] = {
      {"plain: KZL2", [](Document&) {},
       SmallDocStart("KZL2", 1, 0).W({2, 0xFF112233}).b},  // one run covers the whole layer
      {"a stroke anywhere: KZL3 with the block in every record",
       [](Document& doc) {
         Layer& s = doc.layers.emplace_back(2, 1, u"S");
         s.effects.stroke.on = true;
         s.effects.stroke.thickness = 9;
         s.pixels.At(1, 0) = 0x80FFFFFF;
         doc.active = 1;
       },
       SmallDocStart("KZL3", 2, 1).W({0, 0, 100, 3, 1, 0}).W({2, 0xFF112233})  // stroke block, off
           .Name(u"S").W({1, 255, 0, 0}).DefaultShadowGlows().DefaultBlock18()
           .W({1, 0, 100, 9, 1, 0})
           .W({1, 0, 1, 0x80FFFFFF}).b},  // runs: one transparent, one white
      {"a bloom anywhere: KZL4 with both blocks",
       [](Document& doc) {
         doc.layers[0].effects.bloom.on = true;
         doc.layers[0].effects.bloom.intensity = 250;
       },
       SmallDocStart("KZL4", 1, 0).W({0, 0, 100, 3, 1, 0}).W({1, 0x2F7CFF, 30, 250, 70, 50, 0})
           .W({2, 0xFF112233}).b},
  };
  for (const auto& row : table) {
    TempDir dir;
    auto doc = SmallDoc();
    row.change(*doc);
    ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "a.tvl")) << row.what;
    EXPECT_EQ(ReadBytes(dir / "a.tvl"), row.want) << row.what;
  }
}

TEST(LayeredFormatGolden, Kzl1FileOpensWithDefaultsForWhatItLacks) {
  TempDir dir;
  FileBytes f;
  f.Magic("KZL1").W({3, 2, 0, 16777216, 1, 7}).Name(u"Old").W({0, 999, 77, 0})
      .W({1, uint32_t(-4), 0x0001FFFE, 900, 0x123456, uint32_t(-5)})
      .W({0, 0, 0, 12, 0xFFD84A, 80, 0, 0, 0x00020000, 12, 0xFFFFFF, 80})
      .W({6, 0xFF0000FF});
  WriteBytes(dir / "old.kzl", f.b);
  auto doc = ReadLayeredDocument(dir / "old.kzl");
  ASSERT_TRUE(doc);
  // dpi 0 is below 1: 72; the active 7 in a one-layer file: 0.
  EXPECT_EQ(std::tuple(doc->width, doc->height, doc->dpi, doc->active, doc->modified), std::tuple(3, 2, 72, 0, false));
  const Layer& l = doc->layers[0];
  EXPECT_EQ(std::tuple(l.Name(), l.visible, l.opacity, l.blendMode), std::tuple(u"Old", false, 255, 13));  // clamped
  // Offsets packed in 16 bits each, the size and opacity clamped.
  EXPECT_EQ(l.effects.dropShadow, (ShadowGlowEffect{true, -4, -2, 500, 0x123456, 0, 1}));
  EXPECT_EQ(l.effects.innerGlow.option, 0);  // the flag is exactly 1 or it is off
  // What the version lacks comes from a new layer's defaults.
  LayerEffects want = Layer(1, 1, u"").effects;
  want.dropShadow = l.effects.dropShadow;
  EXPECT_TRUE(l.effects == want);
  Surface blue(3, 2);
  blue.Fill(0xFF0000FFu);
  EXPECT_TRUE(SamePixels(l.pixels, blue));
}

TEST(LayeredFormatRoundTrip, EveryFieldSurvives) {
  TempDir dir;
  auto doc = CreateDocument(37, 23, 300, 0x00000000, 32768);
  std::mt19937 rng(3);
  for (int i = 1; i < 4; ++i) {
    Layer l(37, 23, u"Layer \u00E9\u4E2D " + std::u16string(1, char16_t(u'0' + i)));
    for (std::size_t p = 0; p < l.pixels.PixelCount(); ++p) l.pixels.Data()[p] = rng() % 3 ? rng() : 0;
    l.visible = i != 2;
    l.opacity = 17 * i;
    l.blendMode = 4 * i;
    LayerEffects& e = l.effects;
    e.dropShadow = {true, -300, -32768, 499, 0xABCDEF, 1, 1};
    e.outerGlow = {true, 5, 32767, 0, 0x010203, 100, 0};
    e.innerGlow = {false, 7, -1, 250, 0xFFFFFF, 33, 1};
    e.bevel = {true, 100, 200, 0, -720, 1};
    e.colorOverlay = {true, 0x00FF00, 0, 13};
    e.gradientOverlay = {true, 0x111111, 0x222222, 55, 7, 100000, 4, true};
    e.stroke = {i == 3, 0x333333, 99, 500, 100, 2};
    e.bloom = {true, 0x444444, 1, 300, 0, 100, 2};
    doc->layers.push_back(std::move(l));
  }
  doc->active = 2;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "r.tvl"));
  auto back = ReadLayeredDocument(dir / "r.tvl");
  ASSERT_TRUE(back);
  EXPECT_EQ(std::tuple(back->width, back->dpi, back->colorCount, back->active), std::tuple(37, 300, 32768, 2));
  ASSERT_EQ(back->LayerCount(), 4);
  for (int i = 0; i < 4; ++i) {
    const Layer& a = doc->layers[i];
    const Layer& b = back->layers[i];
    EXPECT_EQ(std::tuple(a.Name(), a.visible, a.opacity, a.blendMode, a.opaqueBackground),
              std::tuple(b.Name(), b.visible, b.opacity, b.blendMode, b.opaqueBackground)) << "layer " << i;
    EXPECT_TRUE(SamePixels(b.pixels, a.pixels)) << "layer " << i;
    EXPECT_TRUE(a.effects == b.effects) << "layer " << i;
  }
}

TEST(LayeredFormatRoundTrip, DocumentedPackingsAndCuts) {
  TempDir dir;
  auto doc = SmallDoc();
  doc->layers[0].effects.dropShadow.offsetY = 40000;
  doc->layers[0].effects.bevel.angle = -30;
  doc->layers[0].SetName(std::u16string(64, u'x'));
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "p.tvl"));
  const Bytes bytes = ReadBytes(dir / "p.tvl");
  auto word = [&](std::size_t offset) {
    return uint32_t(bytes[offset]) | uint32_t(bytes[offset + 1]) << 8 |
           uint32_t(bytes[offset + 2]) << 16 | uint32_t(bytes[offset + 3]) << 24;
  };
  const std::size_t effects = 28 + 128 + 16;
  EXPECT_EQ(word(effects + 8), 40000u & 0xFFFF);
  EXPECT_EQ(word(effects + 72 + 16), 690u);  // bevel light direction + 720
  auto back = ReadLayeredDocument(dir / "p.tvl");
  ASSERT_TRUE(back);
  EXPECT_EQ(back->layers[0].effects.dropShadow.offsetY, -25536);
  EXPECT_EQ(back->layers[0].effects.bevel.angle, -30);
  EXPECT_EQ(back->layers[0].Name(), std::u16string(63, u'x'));
}

// A KZL1 file: a header for the size given, then `count` copies of a layer
// record holding `runs`.
Bytes Kzl1(uint32_t w, uint32_t h, uint32_t layers, int32_t active, std::vector<uint32_t> runs,
           uint32_t count = 1) {
  FileBytes f;
  f.Magic("KZL1").W({w, h, 72, 16777216, layers, uint32_t(active)});
  for (uint32_t i = 0; i < count; ++i) {
    f.Name(u"L").W({1, 255, 0, 0});
    for (int k = 0; k < 18; ++k) f.U32(0);
    for (uint32_t r : runs) f.U32(r);
  }
  return f.b;
}

std::unique_ptr<Document> Open(const Bytes& bytes) { return ReadLayeredDocumentBytes(bytes); }

TEST(LayeredFormatRejects, HeadersRunsAndMagics) {
  Bytes badMagic = Kzl1(1, 1, 1, 0, {1, 0});
  badMagic[3] = '5';
  Bytes lowerCase = Kzl1(1, 1, 1, 0, {1, 0});
  lowerCase[0] = 'k';
  const struct {
    const char* what;
    Bytes file;
    bool opens;
  } table[] = {
      {"one run", Kzl1(4, 1, 1, 0, {4, 0}), true},
      {"two runs", Kzl1(4, 1, 1, 0, {1, 0, 3, 5}), true},
      {"trailing bytes are ignored", Kzl1(4, 1, 1, 0, {4, 0, 9, 9}), true},
      {"a zero run", Kzl1(4, 1, 1, 0, {0, 0, 4, 0}), false},
      {"runs past the layer", Kzl1(4, 1, 1, 0, {5, 0}), false},
      {"runs short of the layer", Kzl1(4, 1, 1, 0, {3, 0}), false},
      {"zero width", Kzl1(0, 1, 1, 0, {}), false},
      {"a side over 30000", Kzl1(30001, 1, 1, 0, {30001, 0}), false},
      // 270 megapixels, with a whole layer after it: only the limit refuses it.
      {"over 250 megapixels", Kzl1(30000, 9000, 1, 0, {270000000u, 0}), false},
      {"no layers", Kzl1(1, 1, 0, 0, {}, 0), false},
      {"1001 layers", Kzl1(1, 1, 1001, 0, {1, 0}, 1001), false},
      // 1000 layers of 250 megapixels: 1 TB of pixels from a 150 kB file.
      {"more pixel memory than the machine has", Kzl1(25000, 10000, 1000, 0, {250000000u, 0}, 1000),
       false},
      {"unknown version", badMagic, false},
      {"magic in lower case", lowerCase, false},
  };
  for (const auto& row : table) EXPECT_EQ(Open(row.file) != nullptr, row.opens) << row.what;
  TempDir dir;
  EXPECT_FALSE(ReadLayeredDocument(dir / "missing.tvl"));
  EXPECT_FALSE(ReadLayeredDocument(dir.path()));  // a folder
}

TEST(LayeredFormatRejects, TheLimitsThemselvesOpenAndTheActiveIndexIsClamped) {
  Bytes many = Kzl1(1, 1, 1000, 7, {1, 0}, 1000);
  many.back() = 0x99;  // the last layer's colour
  auto thousand = Open(many);
  ASSERT_TRUE(thousand);
  EXPECT_EQ(thousand->LayerCount(), 1000);
  EXPECT_EQ(thousand->active, 7);
  EXPECT_EQ(thousand->layers[999].pixels.At(0, 0), 0x99000000u);

  for (auto [stored, expected] : {std::pair{7, 2}, {-1, 0}, {1, 1}}) {
    auto doc = Open(Kzl1(1, 1, 3, stored, {1, 0}, 3));
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->active, expected) << stored;
  }
  auto big = Open(Kzl1(25000, 10000, 1, -1, {250000000u, 0}));
  ASSERT_TRUE(big);
  EXPECT_EQ(big->active, 0);
  EXPECT_EQ(big->layers[0].pixels.At(24999, 9999), 0u);
}

TEST(LayeredFormatRobustness, EveryTruncationAndRandomCorruptionFailsCleanly) {
  TempDir dir;
  auto doc = SmallDoc();
  doc->layers.emplace_back(2, 1, u"top");
  doc->layers[1].effects.bloom.on = true;
  doc->layers[1].pixels.At(0, 0) = 0x12345678;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "v.tvl"));
  const Bytes valid = ReadBytes(dir / "v.tvl");
  // Cut files end the file reader at every point.
  for (std::size_t n = 0; n < valid.size(); ++n) {
    WriteBytes(dir / "t.tvl", Bytes(valid.begin(), valid.begin() + n));
    ASSERT_FALSE(ReadLayeredDocument(dir / "t.tvl")) << "cut at " << n;
  }
  std::mt19937 rng(1234);
  int opened = 0;
  for (int i = 0; i < 3000; ++i) {
    Bytes b = valid;
    const int flips = 1 + rng() % 4;
    for (int k = 0; k < flips; ++k) {
      const std::size_t at = rng() % b.size();
      b[at] = rng() % 3 == 0 ? static_cast<uint8_t>(rng()) : static_cast<uint8_t>(b[at] ^ (1u << (rng() % 8)));
    }
    if (auto read = Open(b)) {
      ++opened;
      // Whatever opens is within the document's limits.
      ASSERT_GE(read->LayerCount(), 1);
      ASSERT_LE(read->LayerCount(), 1000);
      for (const Layer& l : read->layers) {
        ASSERT_TRUE(l.opacity >= 0 && l.opacity <= 255);
        ASSERT_TRUE(l.blendMode >= 0 && l.blendMode <= 13);
        ASSERT_EQ(l.Width(), read->width);
      }
    }
  }
  EXPECT_GT(opened, 0);  // corrupted values are clamped, not refused
}

TEST(LayeredFormatSaving, FailedSaveLeavesTheOldFileAndNoLeftovers) {
  TempDir dir;
  const auto target = dir / "keep.tvl";
  WriteBytes(target, "old");
  auto doc = CreateDocument(300, 300, 72, 0, 0);
  for (std::size_t i = 0; i < doc->layers[0].pixels.PixelCount(); ++i)
    doc->layers[0].pixels.Data()[i] = static_cast<uint32_t>(i * 2654435761u);
  for (int64_t failAt : {int64_t{0}, int64_t{100}, int64_t{600000}}) {
    SafeFileWriter::FailWritesAfterForTesting(failAt);
    EXPECT_FALSE(WriteLayeredDocument(*doc, target));
    SafeFileWriter::FailWritesAfterForTesting(-1);
    EXPECT_EQ(ReadBytes(target), (Bytes{'o', 'l', 'd'})) << failAt;
    EXPECT_EQ(FilesIn(dir.path()), 1u) << failAt;
  }
  EXPECT_FALSE(WriteLayeredDocument(*doc, dir / "no-such-folder" / "x.tvl"));
  // A successful save replaces it whole, and names near the length limit save.
  for (const auto& path : {target, dir / (std::string(240, 'a') + ".tvl")}) {
    ASSERT_TRUE(WriteLayeredDocument(*doc, path));
    auto back = ReadLayeredDocument(path);
    ASSERT_TRUE(back);
    EXPECT_TRUE(SamePixels(back->layers[0].pixels, doc->layers[0].pixels));
  }
  EXPECT_EQ(FilesIn(dir.path()), 2u);
}

TEST(LayeredFormatNames, ExtensionsInAnyCase) {
  for (auto [name, layered] : {std::pair{"a.tvl", true}, {"C:/x/B.TVL", true}, {"old.Kzl", true},
                               {"a.png", false}, {"tvl", false}, {"a.tvl.bak", false}})
    EXPECT_EQ(IsLayeredExtension(name), layered) << name;
}

}  // namespace
}  // namespace tavora
