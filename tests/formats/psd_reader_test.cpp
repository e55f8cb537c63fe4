#include "formats/psd_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace tavora {
namespace {

using Bytes = std::vector<uint8_t>;

// Big-endian fields, as Photoshop stores them.
struct BigEndian {
  Bytes b;
  BigEndian& N(uint64_t v, int n) {
    for (int i = n - 1; i >= 0; --i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return *this;
  }
  BigEndian& S(std::string_view s) {
    b.insert(b.end(), s.begin(), s.end());
    return *this;
  }
  BigEndian& B(const Bytes& more) {
    b.insert(b.end(), more.begin(), more.end());
    return *this;
  }
  BigEndian& Sized(const Bytes& block) { return N(block.size(), 4).B(block); }  // a 4-byte length, then the block
};

// PackBits of one row: literal runs only, which every decoder must take.
Bytes Pack(const uint8_t* row, std::size_t n) {
  Bytes out;
  for (std::size_t i = 0; i < n; i += 128) {
    const std::size_t k = std::min<std::size_t>(128, n - i);
    out.push_back(static_cast<uint8_t>(k - 1));
    out.insert(out.end(), row + i, row + i + k);
  }
  return out;
}

struct LayerSpec {
  int32_t top = 0, left = 0, bottom = 0, right = 0;
  std::vector<std::pair<int16_t, Bytes>> channels;  // id, raw 8-bit samples
  std::string blend = "norm";
  uint8_t opacity = 255, clipping = 0, flags = 0;
  std::string name = "L";
  uint32_t maskLength = 0;
  std::vector<std::pair<std::string, Bytes>> extras;  // key, data
  bool packed = false;
};

struct FileSpec {
  uint32_t width = 4, height = 3, mode = 3, depth = 8, channels = 3;
  uint16_t version = 1;
  int16_t countSign = 1;
  Bytes colorData, resources;
  std::vector<LayerSpec> layers;
  Bytes image;  // compression word and data; empty: a uniform raw picture
};

Bytes Channel(const LayerSpec& l, const Bytes& samples) {
  if (!l.packed) return BigEndian{}.N(0, 2).B(samples).b;
  const int32_t w = l.right - l.left, h = l.bottom - l.top;
  std::vector<Bytes> rows;
  for (int32_t y = 0; y < h; ++y) rows.push_back(Pack(samples.data() + std::size_t(y) * w, std::size_t(w)));
  BigEndian c;
  c.N(1, 2);
  for (const Bytes& r : rows) c.N(r.size(), 2);
  for (const Bytes& r : rows) c.B(r);
  return c.b;
}

Bytes Build(const FileSpec& f) {
  BigEndian b, info, data;
  b.S("8BPS").N(f.version, 2).N(0, 6).N(f.channels, 2).N(f.height, 4).N(f.width, 4).N(f.depth, 2).N(f.mode, 2);
  b.Sized(f.colorData).Sized(f.resources);
  if (!f.layers.empty()) info.N(uint16_t(int16_t(f.layers.size()) * f.countSign), 2);
  for (const LayerSpec& l : f.layers) {
    info.N(uint32_t(l.top), 4).N(uint32_t(l.left), 4).N(uint32_t(l.bottom), 4).N(uint32_t(l.right), 4);
    info.N(l.channels.size(), 2);
    for (const auto& [id, samples] : l.channels) {
      const Bytes ch = Channel(l, samples);
      info.N(uint16_t(id), 2).N(ch.size(), 4);
      data.B(ch);  // every layer's channel data follows all the records
    }
    info.S("8BIM").S(l.blend).B({l.opacity, l.clipping, l.flags, 0});
    BigEndian extra;
    extra.Sized(Bytes(l.maskLength, 0)).N(0, 4).N(l.name.size(), 1).S(l.name);
    while ((extra.b.size() - 8) % 4) extra.b.push_back(0);
    for (const auto& [key, d] : l.extras) extra.S("8BIM").S(key).Sized(d);
    info.Sized(extra.b);
  }
  info.B(data.b);
  b.Sized(info.b.empty() ? Bytes{} : BigEndian{}.Sized(info.b).b);
  if (f.image.empty())
    b.N(0, 2).B(Bytes(std::size_t(f.width) * f.height * f.channels * std::max<uint32_t>(f.depth / 8, 1), 0x80));
  else
    b.B(f.image);
  b.b.resize(std::max<std::size_t>(b.b.size(), 40));
  return b.b;
}

// An opaque RGB layer of one colour over the rectangle.
LayerSpec Solid(int32_t top, int32_t left, int32_t bottom, int32_t right, uint8_t r, uint8_t g, uint8_t bl,
                uint8_t alpha = 255) {
  LayerSpec l;
  l.top = top, l.left = left, l.bottom = bottom, l.right = right;
  const std::size_t n = std::size_t(bottom - top) * (right - left);
  l.channels = {{-1, Bytes(n, alpha)}, {0, Bytes(n, r)}, {1, Bytes(n, g)}, {2, Bytes(n, bl)}};
  return l;
}

// A flattened RGB picture that is not uniform.
Bytes VariedPicture(uint32_t w, uint32_t h) {
  Bytes b = {0, 0};
  for (int c = 0; c < 3; ++c)
    for (uint32_t i = 0; i < w * h; ++i) b.push_back(static_cast<uint8_t>(i * 40 + c));
  return b;
}

TEST(PsdReader, PixelLayersKeepNamesModesPlacesAndRunLengthData) {
  FileSpec f;
  f.layers.push_back(Solid(0, 0, 3, 4, 10, 20, 30));
  LayerSpec top = Solid(1, 2, 3, 6, 200, 100, 50, 128);  // reaches past the right edge
  top.blend = "mul ";
  top.opacity = 180;
  top.flags = 2;
  top.name = "ascii";
  BigEndian luni;
  luni.N(3, 4);
  for (char16_t c : std::u16string(u"\u00C9t\u00E9")) luni.N(c, 2);
  top.extras = {{"luni", luni.b}};
  top.packed = true;
  f.layers.push_back(top);
  f.image = VariedPicture(4, 3);
  const auto doc = ReadPsdBytes(Build(f));
  ASSERT_TRUE(doc);
  ASSERT_EQ(doc->LayerCount(), 2);
  EXPECT_EQ(doc->layers[0].pixels.At(3, 2), 0xFF0A141Eu);
  const Layer& l = doc->layers[1];
  EXPECT_EQ(std::tuple(l.Name(), l.visible, l.opacity, l.blendMode), std::tuple(u"\u00C9t\u00E9", false, 180, 1));
  EXPECT_EQ(l.pixels.At(2, 1), 0x80C86432u);
  EXPECT_EQ(l.pixels.At(1, 1), 0u);
  EXPECT_EQ(l.pixels.At(3, 2), 0x80C86432u);
  // Negative layer counts (merged alpha) read as their absolute value.
  f.countSign = -1;
  EXPECT_EQ(ReadPsdBytes(Build(f))->LayerCount(), 2);
}

TEST(PsdReader, WhatTheEditorCannotShowFallsBackToTheFlattenedPicture) {
  FileSpec f;
  f.layers.push_back(Solid(0, 0, 3, 4, 10, 20, 30));
  f.layers.push_back(Solid(0, 0, 2, 2, 1, 2, 3));
  f.image = VariedPicture(4, 3);
  struct Case {
    const char* what;
    void (*spoil)(LayerSpec&);
  } cases[] = {
      {"a mask", [](LayerSpec& l) { l.maskLength = 20; }},
      {"clipping", [](LayerSpec& l) { l.clipping = 1; }},
      {"an unknown blend", [](LayerSpec& l) { l.blend = "pass"; }},
      {"an adjustment", [](LayerSpec& l) { l.extras = {{"levl", Bytes(4, 0)}}; }},
      {"effects", [](LayerSpec& l) { l.extras = {{"lfx2", Bytes(8, 0)}}; }},
  };
  for (const Case& c : cases) {
    FileSpec spoiled = f;
    c.spoil(spoiled.layers[1]);
    const auto doc = ReadPsdBytes(Build(spoiled));
    ASSERT_TRUE(doc) << c.what;
    EXPECT_EQ(doc->LayerCount(), 1) << c.what;
    EXPECT_EQ(doc->layers[0].pixels.At(1, 0), 0xFF28292Au) << c.what;  // the flattened picture
    // With only a uniform stored picture, the layers are read leniently.
    spoiled.image.clear();
    EXPECT_EQ(ReadPsdBytes(Build(spoiled))->LayerCount(), 2) << c.what;
  }
  // Group boundaries and empty layers add nothing.
  FileSpec groups = f;
  LayerSpec divider;
  divider.extras = {{"lsct", {0, 0, 0, 3}}};
  groups.layers.insert(groups.layers.begin() + 1, divider);
  groups.layers.push_back(LayerSpec{});  // empty rectangle
  EXPECT_EQ(ReadPsdBytes(Build(groups))->LayerCount(), 2);
}

TEST(PsdReader, ModesDepthsAndResolution) {
  // Resolution 118.11 px/cm is 300 dpi.
  FileSpec f;
  // Resource 1005 with an empty name, padded, then its 16 bytes.
  f.resources = BigEndian{}.S("8BIM").N(1005, 2).N(0, 2).N(16, 4).N(uint32_t(118.11 * 65536), 4).N(2, 2).b;
  f.resources.resize(f.resources.size() + 10);
  f.image = VariedPicture(4, 3);
  const auto doc = ReadPsdBytes(Build(f));
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->dpi, 300);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000102u);

  // CMYK (stored inverted), 16-bit grey, indexed and bitmap pictures.
  Bytes palette(768, 0);
  palette[5] = 200, palette[256 + 5] = 100, palette[512 + 5] = 50;
  const FileSpec bitmap{.width = 3, .height = 1, .mode = 0, .depth = 1, .channels = 1, .image = {0, 0, 0b10100000}};
  const struct {
    const char* what;
    FileSpec file;
    int32_t x;
    uint32_t want;
  } modes[] = {
      // No cyan, full magenta, no yellow, half black; the layer is never kept in CMYK.
      {"CMYK", {.width = 1, .height = 1, .mode = 4, .channels = 4, .layers = {Solid(0, 0, 1, 1, 1, 2, 3)},
                .image = {0, 0, 255, 0, 255, 128}}, 0, 0xFF800080u},
      {"16-bit grey", {.width = 2, .height = 1, .mode = 1, .depth = 16, .channels = 1,
                       .image = {0, 0, 0xFF, 0xFF, 0x80, 0x00}}, 1, 0xFF808080u},
      {"indexed", {.width = 2, .height = 1, .mode = 2, .channels = 1, .colorData = palette, .image = {0, 0, 5, 0}},
       0, 0xFFC86432u},
      {"bitmap, a set bit", bitmap, 0, 0xFF000000u},
      {"bitmap, a clear bit", bitmap, 1, 0xFFFFFFFFu},
  };
  for (const auto& m : modes) {
    const auto read = ReadPsdBytes(Build(m.file));
    ASSERT_TRUE(read) << m.what;
    EXPECT_EQ(read->LayerCount(), 1) << m.what;
    EXPECT_EQ(read->layers[0].pixels.At(m.x, 0), m.want) << m.what;
  }
}

TEST(PsdReader, BrokenOrUnsupportedFilesAreRefusedWithoutACrash) {
  FileSpec f;
  f.image = VariedPicture(4, 3);
  struct Case {
    const char* what;
    void (*spoil)(FileSpec&);
  } cases[] = {
      {"version 2", [](FileSpec& s) { s.version = 2; }},
      {"no channels", [](FileSpec& s) { s.channels = 0; }},
      {"too wide", [](FileSpec& s) { s.width = 30001; }},
      {"depth 4", [](FileSpec& s) { s.depth = 4; }},
      {"mode 9", [](FileSpec& s) { s.mode = 9; }},
  };
  for (const Case& c : cases) {
    FileSpec spoiled = f;
    c.spoil(spoiled);
    EXPECT_FALSE(ReadPsdBytes(Build(spoiled))) << c.what;
  }
  // Every truncation and random damage of a layered file is handled.
  FileSpec layered = f;
  layered.layers.push_back(Solid(0, 0, 3, 4, 10, 20, 30));
  layered.layers.back().packed = true;
  const Bytes good = Build(layered);
  for (std::size_t n = 0; n < good.size(); ++n) (void)ReadPsdBytes({good.data(), n});
  std::mt19937 rng(1);
  for (int i = 0; i < 2000; ++i) {
    Bytes bad = good;
    for (int k = 0; k < 3; ++k) bad[rng() % bad.size()] = static_cast<uint8_t>(rng());
    (void)ReadPsdBytes(bad);
    (void)ReadPsdFlattenedBytes(bad);
  }
  EXPECT_FALSE(ReadPsd("/nonexistent/x.psd"));
}

}  // namespace
}  // namespace tavora
