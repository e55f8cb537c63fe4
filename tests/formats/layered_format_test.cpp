#include "formats/layered_format.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "base/file_io.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::TempDir;
using Bytes = std::vector<uint8_t>;

struct FileBytes {
  Bytes b;
  FileBytes& Magic(const char* m) { b.insert(b.end(), m, m + 4); return *this; }
  FileBytes& U32(uint32_t w) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(w >> (8 * i)));
    return *this;
  }
  FileBytes& Name(std::u16string_view name) {
    for (int i = 0; i < 64; ++i) {
      const char16_t c = i < static_cast<int>(name.size()) ? name[i] : 0;
      b.push_back(static_cast<uint8_t>(c));
      b.push_back(static_cast<uint8_t>(c >> 8));
    }
    return *this;
  }
  // The default effect blocks of a new layer, as written.
  FileBytes& DefaultShadowGlows() {
    return U32(0).U32(6).U32(6).U32(8).U32(0x000000).U32(60)
        .U32(0).U32(0).U32(0).U32(12).U32(0xFFD84A).U32(80)
        .U32(0).U32(0).U32(0).U32(12).U32(0xFFFFFF).U32(80);
  }
  FileBytes& DefaultBlock18() {
    return U32(0).U32(60).U32(8).U32(2).U32(135 + 720).U32(0)
        .U32(0).U32(0xFF3366).U32(100).U32(0)
        .U32(0).U32(0xFF8800).U32(0x3355FF).U32(100).U32(0).U32(90 + 720).U32(0).U32(0);
  }
};

Bytes ReadAll(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(f), {});
}

void WriteAll(const std::filesystem::path& p, const Bytes& b) {
  std::ofstream f(p, std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

std::unique_ptr<Document> SmallDoc() {
  auto doc = CreateDocument(2, 1, 96, 0xFF112233, 256);
  Layer& l = doc->layers[0];
  l.SetName(u"Ab");
  l.opacity = 200;
  l.blendMode = 3;
  return doc;
}

TEST(LayeredFormatGolden, PlainDocumentIsKzl2WordForWord) {
  TempDir dir;
  ASSERT_TRUE(WriteLayeredDocument(*SmallDoc(), dir / "a.tvl"));
  FileBytes want;
  want.Magic("KZL2").U32(2).U32(1).U32(96).U32(256).U32(1).U32(0)
      .Name(u"Ab").U32(1).U32(200).U32(3).U32(1)
      .DefaultShadowGlows().DefaultBlock18()
      .U32(2).U32(0xFF112233);  // one run covers the whole layer
  EXPECT_EQ(ReadAll(dir / "a.tvl"), want.b);
}

TEST(LayeredFormatGolden, StrokeAnywhereMakesKzl3WithTheBlockInEveryRecord) {
  TempDir dir;
  auto doc = SmallDoc();
  doc->layers.emplace_back(2, 1, u"S");
  doc->layers[1].effects.stroke.on = true;
  doc->layers[1].effects.stroke.thickness = 9;
  doc->layers[1].pixels.At(1, 0) = 0x80FFFFFF;
  doc->active = 1;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "s.kzl"));
  FileBytes want;
  want.Magic("KZL3").U32(2).U32(1).U32(96).U32(256).U32(2).U32(1)
      .Name(u"Ab").U32(1).U32(200).U32(3).U32(1).DefaultShadowGlows().DefaultBlock18()
      .U32(0).U32(0).U32(100).U32(3).U32(1).U32(0)  // stroke block, off
      .U32(2).U32(0xFF112233)
      .Name(u"S").U32(1).U32(255).U32(0).U32(0).DefaultShadowGlows().DefaultBlock18()
      .U32(1).U32(0).U32(100).U32(9).U32(1).U32(0)
      .U32(1).U32(0).U32(1).U32(0x80FFFFFF);  // runs: one transparent, one white
  EXPECT_EQ(ReadAll(dir / "s.kzl"), want.b);
}

TEST(LayeredFormatGolden, BloomAnywhereMakesKzl4WithBothBlocks) {
  TempDir dir;
  auto doc = SmallDoc();
  doc->layers[0].effects.bloom.on = true;
  doc->layers[0].effects.bloom.intensity = 250;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "b.tvl"));
  FileBytes want;
  want.Magic("KZL4").U32(2).U32(1).U32(96).U32(256).U32(1).U32(0)
      .Name(u"Ab").U32(1).U32(200).U32(3).U32(1).DefaultShadowGlows().DefaultBlock18()
      .U32(0).U32(0).U32(100).U32(3).U32(1).U32(0)
      .U32(1).U32(0x2F7CFF).U32(30).U32(250).U32(70).U32(50).U32(0)
      .U32(2).U32(0xFF112233);
  EXPECT_EQ(ReadAll(dir / "b.tvl"), want.b);
}

TEST(LayeredFormatGolden, Kzl1FileOpensWithDefaultsForWhatItLacks) {
  TempDir dir;
  FileBytes f;
  f.Magic("KZL1").U32(3).U32(2).U32(0).U32(16777216).U32(1).U32(7)
      .Name(u"Old").U32(0).U32(999).U32(77).U32(0)
      .U32(1).U32(uint32_t(-4)).U32(0x0001FFFE).U32(900).U32(0x123456).U32(uint32_t(-5))
      .U32(0).U32(0).U32(0).U32(12).U32(0xFFD84A).U32(80)
      .U32(0).U32(0).U32(0x00020000).U32(12).U32(0xFFFFFF).U32(80)
      .U32(6).U32(0xFF0000FF);
  WriteAll(dir / "old.kzl", f.b);
  auto doc = ReadLayeredDocument(dir / "old.kzl");
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->width, 3);
  EXPECT_EQ(doc->height, 2);
  EXPECT_EQ(doc->dpi, 72);  // below 1
  EXPECT_EQ(doc->active, 0);  // 7 in a one-layer file
  EXPECT_FALSE(doc->modified);
  const Layer& l = doc->layers[0];
  EXPECT_EQ(l.Name(), u"Old");
  EXPECT_FALSE(l.visible);
  EXPECT_EQ(l.opacity, 255);    // clamped
  EXPECT_EQ(l.blendMode, 13);   // clamped
  const ShadowGlowEffect& ds = l.effects.dropShadow;
  EXPECT_TRUE(ds.on);
  EXPECT_EQ(ds.offsetX, -4);
  EXPECT_EQ(ds.offsetY, -2);
  EXPECT_EQ(ds.option, 1);
  EXPECT_EQ(ds.size, 500);
  EXPECT_EQ(ds.opacity, 0);
  EXPECT_EQ(l.effects.innerGlow.option, 0);  // the flag is exactly 1 or it is off
  const LayerEffects defaults;
  EXPECT_FALSE(l.effects.bevel.on);
  EXPECT_EQ(l.effects.bevel.angle, 135);
  EXPECT_EQ(l.effects.gradientOverlay.color2, defaults.gradientOverlay.color2);
  EXPECT_EQ(l.effects.stroke.thickness, 3);
  EXPECT_EQ(l.effects.bloom.spread, 30);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(l.pixels.At(x, y), 0xFF0000FFu);
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
  EXPECT_EQ(back->width, 37);
  EXPECT_EQ(back->dpi, 300);
  EXPECT_EQ(back->colorCount, 32768);
  EXPECT_EQ(back->active, 2);
  ASSERT_EQ(back->LayerCount(), 4);
  for (int i = 0; i < 4; ++i) {
    const Layer& a = doc->layers[i];
    const Layer& b = back->layers[i];
    EXPECT_EQ(a.Name(), b.Name());
    EXPECT_EQ(a.visible, b.visible);
    EXPECT_EQ(a.opacity, b.opacity);
    EXPECT_EQ(a.blendMode, b.blendMode);
    EXPECT_EQ(a.opaqueBackground, b.opaqueBackground);
    EXPECT_EQ(std::memcmp(a.pixels.Data(), b.pixels.Data(), a.pixels.PixelCount() * 4), 0);
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
  const Bytes bytes = ReadAll(dir / "p.tvl");
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

// A valid one-layer header for the size given, followed by `rest`.
Bytes Header(uint32_t w, uint32_t h, uint32_t layers = 1, int32_t active = 0) {
  FileBytes f;
  f.Magic("KZL1").U32(w).U32(h).U32(72).U32(16777216).U32(layers).U32(uint32_t(active));
  return f.b;
}

Bytes Kzl1Layer(std::vector<uint32_t> runs) {
  FileBytes f;
  f.Name(u"L").U32(1).U32(255).U32(0).U32(0);
  for (int i = 0; i < 18; ++i) f.U32(0);
  for (uint32_t r : runs) f.U32(r);
  return f.b;
}

bool Opens(const TempDir& dir, const Bytes& bytes) {
  WriteAll(dir / "t.tvl", bytes);
  return ReadLayeredDocument(dir / "t.tvl") != nullptr;
}

TEST(LayeredFormatRejects, HeadersRunsAndMagics) {
  TempDir dir;
  auto withLayer = [](Bytes h, const Bytes& layer) {
    h.insert(h.end(), layer.begin(), layer.end());
    return h;
  };
  EXPECT_TRUE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({4, 0}))));
  EXPECT_TRUE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({1, 0, 3, 5}))));
  // Trailing bytes are ignored.
  EXPECT_TRUE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({4, 0, 9, 9}))));
  EXPECT_FALSE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({0, 0, 4, 0}))));  // zero run
  EXPECT_FALSE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({5, 0}))));        // overrun
  EXPECT_FALSE(Opens(dir, withLayer(Header(4, 1), Kzl1Layer({3, 0}))));        // short
  EXPECT_FALSE(Opens(dir, withLayer(Header(0, 1), Kzl1Layer({}))));
  EXPECT_FALSE(Opens(dir, withLayer(Header(30001, 1), Kzl1Layer({30001, 0}))));
  // 270 megapixels, with a whole layer after it: only the limit refuses it.
  EXPECT_FALSE(Opens(dir, withLayer(Header(30000, 9000), Kzl1Layer({270000000u, 0}))));
  EXPECT_FALSE(Opens(dir, withLayer(Header(1, 1, 0), {})));
  // 1000 layers open, 1001 complete ones do not.
  Bytes many = Header(1, 1, 1000, 7);
  for (int i = 0; i < 1001; ++i) {
    const Bytes layer = Kzl1Layer({1, uint32_t(i)});
    many.insert(many.end(), layer.begin(), layer.end());
  }
  WriteAll(dir / "many.tvl", many);
  auto thousand = ReadLayeredDocument(dir / "many.tvl");
  ASSERT_TRUE(thousand);
  EXPECT_EQ(thousand->LayerCount(), 1000);
  EXPECT_EQ(thousand->active, 7);
  EXPECT_EQ(thousand->layers[999].pixels.At(0, 0), 999u);
  many[20] = 0xE9;  // layer count 1001 (0x3E9)
  many[21] = 0x03;
  EXPECT_FALSE(Opens(dir, many));
  Bytes bad = withLayer(Header(1, 1), Kzl1Layer({1, 0}));
  bad[3] = '5';
  EXPECT_FALSE(Opens(dir, bad));
  bad[0] = 'k';
  bad[3] = '1';
  EXPECT_FALSE(Opens(dir, bad));
  EXPECT_FALSE(ReadLayeredDocument(dir / "missing.tvl"));
  EXPECT_FALSE(ReadLayeredDocument(dir.path()));  // a folder
}

TEST(LayeredFormatRejects, DocumentsLargerThanTheMachineAreRefusedBeforeAllocating) {
  TempDir dir;
  // 1000 layers of 250 megapixels: 1 TB of pixels from a 150 kB file.
  Bytes b = Header(25000, 10000, 1000);
  for (int i = 0; i < 1000; ++i) {
    const Bytes layer = Kzl1Layer({250000000u, 0});
    b.insert(b.end(), layer.begin(), layer.end());
  }
  EXPECT_FALSE(Opens(dir, b));
}

TEST(LayeredFormatRejects, ActiveIndexIsClampedIntoTheLayers) {
  TempDir dir;
  for (auto [stored, expected] : {std::pair{7, 2}, std::pair{-1, 0}, std::pair{1, 1}}) {
    Bytes b = Header(1, 1, 3, stored);
    for (int i = 0; i < 3; ++i) {
      const Bytes layer = Kzl1Layer({1, 0});
      b.insert(b.end(), layer.begin(), layer.end());
    }
    WriteAll(dir / "a.tvl", b);
    auto doc = ReadLayeredDocument(dir / "a.tvl");
    ASSERT_TRUE(doc);
    EXPECT_EQ(doc->active, expected) << stored;
  }
}

TEST(LayeredFormatSaving, NamesNearTheLengthLimitSave) {
  TempDir dir;
  const std::string name = std::string(240, 'a') + ".tvl";
  ASSERT_TRUE(WriteLayeredDocument(*SmallDoc(), dir / name));
  EXPECT_TRUE(ReadLayeredDocument(dir / name));
}

TEST(LayeredFormatRejects, LargeButLegalHeaderIsAccepted) {
  TempDir dir;
  Bytes b = Header(25000, 10000, 1, -1);
  const Bytes layer = Kzl1Layer({250000000u, 0});
  b.insert(b.end(), layer.begin(), layer.end());
  WriteAll(dir / "big.tvl", b);
  auto doc = ReadLayeredDocument(dir / "big.tvl");
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->active, 0);  // -1 clamps up
  EXPECT_EQ(doc->layers[0].pixels.At(24999, 9999), 0u);
}

TEST(LayeredFormatRobustness, EveryTruncationAndRandomCorruptionFailsCleanly) {
  TempDir dir;
  auto doc = SmallDoc();
  doc->layers.emplace_back(2, 1, u"top");
  doc->layers[1].effects.bloom.on = true;
  doc->layers[1].pixels.At(0, 0) = 0x12345678;
  ASSERT_TRUE(WriteLayeredDocument(*doc, dir / "v.tvl"));
  const Bytes valid = ReadAll(dir / "v.tvl");
  for (std::size_t n = 0; n < valid.size(); ++n) {
    ASSERT_FALSE(Opens(dir, Bytes(valid.begin(), valid.begin() + n))) << "cut at " << n;
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
    WriteAll(dir / "t.tvl", b);
    auto read = ReadLayeredDocument(dir / "t.tvl");
    if (read) {
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
  WriteAll(target, Bytes{'o', 'l', 'd'});
  auto doc = CreateDocument(300, 300, 72, 0, 0);
  for (std::size_t i = 0; i < doc->layers[0].pixels.PixelCount(); ++i)
    doc->layers[0].pixels.Data()[i] = static_cast<uint32_t>(i * 2654435761u);
  for (int64_t failAt : {int64_t{0}, int64_t{100}, int64_t{600000}}) {
    SafeFileWriter::FailWritesAfterForTesting(failAt);
    EXPECT_FALSE(WriteLayeredDocument(*doc, target));
    SafeFileWriter::FailWritesAfterForTesting(-1);
    EXPECT_EQ(ReadAll(target), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
  }
  EXPECT_FALSE(WriteLayeredDocument(*doc, dir / "no-such-folder" / "x.tvl"));
  // And a successful save replaces it whole.
  ASSERT_TRUE(WriteLayeredDocument(*doc, target));
  auto back = ReadLayeredDocument(target);
  ASSERT_TRUE(back);
  EXPECT_EQ(back->layers[0].pixels.At(299, 299), doc->layers[0].pixels.At(299, 299));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST(LayeredFormatNames, ExtensionsInAnyCase) {
  EXPECT_TRUE(IsLayeredExtension("a.tvl"));
  EXPECT_TRUE(IsLayeredExtension("C:/x/B.TVL"));
  EXPECT_TRUE(IsLayeredExtension("old.Kzl"));
  EXPECT_FALSE(IsLayeredExtension("a.png"));
  EXPECT_FALSE(IsLayeredExtension("tvl"));
  EXPECT_FALSE(IsLayeredExtension("a.tvl.bak"));
}

}  // namespace
}  // namespace tavora
