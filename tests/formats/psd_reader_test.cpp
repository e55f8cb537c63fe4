#include "formats/psd_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tavora {
namespace {

using Bytes = std::vector<uint8_t>;

void Put(Bytes& b, uint64_t v, int n) {
  for (int i = n - 1; i >= 0; --i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void Put(Bytes& b, const std::string& s) { b.insert(b.end(), s.begin(), s.end()); }
void Put(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

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
  Bytes b;
  const int32_t w = l.right - l.left, h = l.bottom - l.top;
  if (!l.packed) {
    Put(b, 0, 2);
    Put(b, samples);
    return b;
  }
  Put(b, 1, 2);
  std::vector<Bytes> rows;
  for (int32_t y = 0; y < h; ++y) rows.push_back(Pack(samples.data() + std::size_t(y) * w, std::size_t(w)));
  for (const Bytes& r : rows) Put(b, r.size(), 2);
  for (const Bytes& r : rows) Put(b, r);
  return b;
}

Bytes Build(const FileSpec& f) {
  Bytes b;
  Put(b, "8BPS");
  Put(b, f.version, 2);
  Put(b, 0, 6);
  Put(b, f.channels, 2);
  Put(b, f.height, 4);
  Put(b, f.width, 4);
  Put(b, f.depth, 2);
  Put(b, f.mode, 2);
  Put(b, f.colorData.size(), 4);
  Put(b, f.colorData);
  Put(b, f.resources.size(), 4);
  Put(b, f.resources);
  Bytes info;
  if (!f.layers.empty()) {
    Put(info, uint16_t(int16_t(f.layers.size()) * f.countSign), 2);
    std::vector<std::vector<Bytes>> data;
    for (const LayerSpec& l : f.layers) {
      Put(info, uint32_t(l.top), 4);
      Put(info, uint32_t(l.left), 4);
      Put(info, uint32_t(l.bottom), 4);
      Put(info, uint32_t(l.right), 4);
      Put(info, l.channels.size(), 2);
      data.emplace_back();
      for (const auto& [id, samples] : l.channels) {
        data.back().push_back(Channel(l, samples));
        Put(info, uint16_t(id), 2);
        Put(info, data.back().back().size(), 4);
      }
      Put(info, "8BIM");
      Put(info, l.blend);
      info.insert(info.end(), {l.opacity, l.clipping, l.flags, 0});
      Bytes extra;
      Put(extra, l.maskLength, 4);
      Put(extra, Bytes(l.maskLength, 0));
      Put(extra, 0, 4);
      extra.push_back(static_cast<uint8_t>(l.name.size()));
      Put(extra, l.name);
      while ((extra.size() - 8) % 4) extra.push_back(0);
      for (const auto& [key, d] : l.extras) {
        Put(extra, "8BIM");
        Put(extra, key);
        Put(extra, d.size(), 4);
        Put(extra, d);
      }
      Put(info, extra.size(), 4);
      Put(info, extra);
    }
    for (const auto& layer : data)
      for (const Bytes& ch : layer) Put(info, ch);
  }
  Bytes layerAndMask;
  if (!info.empty()) {
    Put(layerAndMask, info.size(), 4);
    Put(layerAndMask, info);
  }
  Put(b, layerAndMask.size(), 4);
  Put(b, layerAndMask);
  if (f.image.empty()) {
    Put(b, 0, 2);
    Put(b, Bytes(std::size_t(f.width) * f.height * f.channels * (f.depth / 8 ? f.depth / 8 : 1), 0x80));
  } else {
    Put(b, f.image);
  }
  while (b.size() < 40) b.push_back(0);
  return b;
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
  Bytes b;
  Put(b, 0, 2);
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
  Bytes luni;
  Put(luni, 3, 4);
  for (char16_t c : std::u16string(u"\u00C9t\u00E9")) Put(luni, c, 2);
  top.extras = {{"luni", luni}};
  top.packed = true;
  f.layers.push_back(top);
  f.image = VariedPicture(4, 3);
  const auto doc = ReadPsdBytes(Build(f));
  ASSERT_TRUE(doc);
  ASSERT_EQ(doc->LayerCount(), 2);
  EXPECT_EQ(doc->layers[0].pixels.At(3, 2), 0xFF0A141Eu);
  const Layer& l = doc->layers[1];
  EXPECT_EQ(l.Name(), u"\u00C9t\u00E9");
  EXPECT_FALSE(l.visible);
  EXPECT_EQ(l.opacity, 180);
  EXPECT_EQ(l.blendMode, 1);
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
  Bytes type;
  Put(type, 3, 4);
  divider.extras = {{"lsct", type}};
  groups.layers.insert(groups.layers.begin() + 1, divider);
  groups.layers.push_back(LayerSpec{});  // empty rectangle
  EXPECT_EQ(ReadPsdBytes(Build(groups))->LayerCount(), 2);
}

TEST(PsdReader, ModesDepthsAndResolution) {
  // Resolution 118.11 px/cm is 300 dpi.
  FileSpec f;
  Put(f.resources, "8BIM");
  Put(f.resources, 1005, 2);
  Put(f.resources, 0, 2);  // empty name, padded
  Put(f.resources, 16, 4);
  Put(f.resources, uint32_t(118.11 * 65536), 4);
  Put(f.resources, 2, 2);
  Put(f.resources, Bytes(10, 0));
  f.image = VariedPicture(4, 3);
  const auto doc = ReadPsdBytes(Build(f));
  ASSERT_TRUE(doc);
  EXPECT_EQ(doc->dpi, 300);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000102u);

  // CMYK (stored inverted), 16-bit grey, indexed and bitmap pictures.
  FileSpec cmyk;
  cmyk.mode = 4;
  cmyk.channels = 4;
  cmyk.width = 1, cmyk.height = 1;
  cmyk.image = {0, 0, 255, 0, 255, 128};  // raw: C, M, Y as stored, then K
  cmyk.layers.push_back(Solid(0, 0, 1, 1, 1, 2, 3));  // never kept in CMYK
  auto c = ReadPsdBytes(Build(cmyk));
  ASSERT_TRUE(c);
  EXPECT_EQ(c->LayerCount(), 1);
  EXPECT_EQ(c->layers[0].pixels.At(0, 0), 0xFF800080u);  // no cyan, full magenta, no yellow, half black
  FileSpec grey;
  grey.mode = 1, grey.depth = 16, grey.channels = 1, grey.width = 2, grey.height = 1;
  grey.image = {0, 0, 0xFF, 0xFF, 0x80, 0x00};
  EXPECT_EQ(ReadPsdBytes(Build(grey))->layers[0].pixels.At(1, 0), 0xFF808080u);
  FileSpec indexed;
  indexed.mode = 2, indexed.channels = 1, indexed.width = 2, indexed.height = 1;
  indexed.colorData.assign(768, 0);
  indexed.colorData[5] = 200, indexed.colorData[256 + 5] = 100, indexed.colorData[512 + 5] = 50;
  indexed.image = {0, 0, 5, 0};
  EXPECT_EQ(ReadPsdBytes(Build(indexed))->layers[0].pixels.At(0, 0), 0xFFC86432u);
  FileSpec bitmap;
  bitmap.mode = 0, bitmap.depth = 1, bitmap.channels = 1, bitmap.width = 3, bitmap.height = 1;
  bitmap.image = {0, 0, 0b10100000};
  const auto bits = ReadPsdBytes(Build(bitmap));
  ASSERT_TRUE(bits);
  EXPECT_EQ(bits->layers[0].pixels.At(0, 0), 0xFF000000u);
  EXPECT_EQ(bits->layers[0].pixels.At(1, 0), 0xFFFFFFFFu);
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
