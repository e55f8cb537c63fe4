#include "processing/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

#include "document/history.h"
#include "pixels.h"
#include "processing/processing_helpers.h"
#include "tool_helpers.h"

namespace tavora {
namespace {

using testing_support::MaskBytes;
using testing_support::Processors;
using testing_support::SamePixels;

// Random pixels: about a quarter fully transparent (with leftover colour),
// a quarter opaque, the rest in between.
Surface Noise(int32_t w, int32_t h, uint32_t seed) {
  Surface s(w, h);
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) {
    const uint32_t v = rng(), kind = v >> 30;
    s.Data()[i] = (v & 0x00FFFFFFu) | (kind == 0 ? 0u : kind == 1 ? 255u : (v >> 22) & 255) << 24;
  }
  return s;
}

Surface Opaque(Surface s) {
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] |= 0xFF000000u;
  return s;
}

// The free rotation exactly as it is defined, one pixel at a time.
Surface ReferenceRotate(const Surface& src, double angle, int32_t w2, int32_t h2, uint32_t fill) {
  const double t = angle * 3.14159265358979 / 180, c = std::cos(t), s = std::sin(t);
  const int32_t w = src.Width(), h = src.Height();
  Surface out(w2, h2);
  for (int32_t y = 0; y < h2; ++y)
    for (int32_t x = 0; x < w2; ++x) {
      const double dx = x + 0.5 - w2 / 2.0, dy = y + 0.5 - h2 / 2.0;
      const double sx = c * dx + s * dy + w / 2.0 - 0.5, sy = c * dy - s * dx + h / 2.0 - 0.5;
      if (sx < -1 || sy < -1 || sx > w || sy > h) {
        out.At(x, y) = fill;
        continue;
      }
      const double fx = sx - std::floor(sx), fy = sy - std::floor(sy);
      const int32_t x0 = int32_t(std::floor(sx)), y0 = int32_t(std::floor(sy));
      const int32_t nx[4] = {x0, x0 + 1, x0, x0 + 1}, ny[4] = {y0, y0, y0 + 1, y0 + 1};
      const double wt[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
      double sa = 0, sc[3] = {0, 0, 0};
      for (int k = 0; k < 4; ++k) {
        const bool in = nx[k] >= 0 && ny[k] >= 0 && nx[k] < w && ny[k] < h;
        const uint32_t p = in ? src.At(nx[k], ny[k]) : fill;
        const double wa = wt[k] * double(p >> 24);
        sa += wa;
        for (int ch = 0; ch < 3; ++ch) sc[ch] += double((p >> (16 - 8 * ch)) & 255) * wa;
      }
      if (sa <= 0.001) continue;
      auto round = [](double v) { return uint32_t(std::clamp(int(v + 0.5), 0, 255)); };
      out.At(x, y) = round(sa) << 24 | round(sc[0] / sa) << 16 | round(sc[1] / sa) << 8 | round(sc[2] / sa);
    }
  return out;
}

// A Background of noise made opaque and a noisy "Layer 2" above it, active.
std::unique_ptr<Document> NoisyDoc(int32_t w, int32_t h) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  doc->layers[0].pixels = Opaque(Noise(w, h, 1));
  doc->layers.emplace_back(w, h, u"Layer 2");
  doc->layers[1].pixels = Noise(w, h, 2);
  doc->active = 1;
  return doc;
}

void Select(Document& doc, const Rect& r, uint8_t value = 255) {
  doc.selection.emplace(doc.width, doc.height);
  for (int32_t y = r.y0; y < r.y1; ++y)
    for (int32_t x = r.x0; x < r.x1; ++x) doc.selection->At(x, y) = value;
  doc.selectionBounds = r;
}

TEST(GeometryTurns, QuarterAndHalfTurnsMoveEveryPixelWhereDefinedAndBack) {
  const Processors split(3);
  for (auto [w, h] : {std::pair{1, 1}, {1, 9}, {9, 1}, {5, 3}, {64, 65}, {130, 67}}) {
    const Surface src = Noise(w, h, uint32_t(w * 1000 + h));
    const Surface right = Rotate90(src, Turn::Clockwise), left = Rotate90(src, Turn::CounterClockwise);
    const Surface half = Rotate180(src);
    ASSERT_EQ(right.Width(), h);
    ASSERT_EQ(left.Height(), w);
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) {
        ASSERT_EQ(right.At(h - 1 - y, x), src.At(x, y)) << w << "x" << h;
        ASSERT_EQ(left.At(y, w - 1 - x), src.At(x, y)) << w << "x" << h;
        ASSERT_EQ(half.Data()[src.PixelCount() - 1 - (std::size_t(y) * w + x)], src.At(x, y));
      }
    EXPECT_TRUE(SamePixels(Rotate90(right, Turn::CounterClockwise), src));
    EXPECT_TRUE(SamePixels(Rotate180(half), src));
  }
}

TEST(GeometryFreeRotation, MatchesThePlainDefinitionBitForBit) {
  const Processors split(3);
  std::mt19937 rng(77);
  const double angles[] = {17, -17, 45, 90, 180, -270, 0.5, 1000.25, 33.3};
  for (int i = 0; i < 36; ++i) {
    // One picture wider than a strip of the fast path.
    const int32_t w = i == 9 ? 300 : 1 + int32_t(rng() % 70), h = 1 + int32_t(rng() % 50);
    const double angle = i < 9 ? angles[i] : (double(rng() % 72000) / 100 - 360);
    const bool expand = i % 2 == 0;
    const uint32_t fill = i % 3 == 0 ? 0xFF000000u | rng() : 0;
    const Surface src = Noise(w, h, uint32_t(i));
    const PictureSize size = FreeRotationSize(w, h, angle, expand);
    EXPECT_TRUE(SamePixels(RotateFree(src, angle, size.width, size.height, fill),
                           ReferenceRotate(src, angle, size.width, size.height, fill)))
        << w << "x" << h << " by " << angle;
  }
}

TEST(GeometryFreeRotation, ExpandedSizeIsTheBoundingBoxAndQuarterTurnsNeverGrow) {
  const struct { int32_t w, h; double angle; PictureSize want; } cases[] = {
      {3, 2, 90, {2, 3}},     {3, 2, 180, {3, 2}}, {5, 7, -90, {7, 5}}, {5, 7, 270, {7, 5}},
      {10, 10, 45, {15, 15}}, {4, 2, 30, {5, 4}},  {1, 1, 1, {2, 2}},   {6000, 4000, 17, {6908, 5580}}};
  for (const auto& c : cases) EXPECT_EQ(FreeRotationSize(c.w, c.h, c.angle, true), c.want) << c.angle;

  // Positive angles turn clockwise: a quarter turn is Rotate Right.
  auto doc = CreateDocument(3, 2, 72, 0, 0);
  doc->layers[0].pixels = Opaque(Noise(3, 2, 5));
  const Surface right = Rotate90(doc->layers[0].pixels, Turn::Clockwise);
  ASSERT_TRUE(FreeRotateImage(*doc, 90, true, 0));
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(2, 3));
  EXPECT_TRUE(SamePixels(doc->layers[0].pixels, right));
}

TEST(GeometryFreeRotation, CornersAreTransparentExceptOnTheBackground) {
  for (uint32_t color : {0x00000000u, 0x00336699u}) {
    auto doc = NoisyDoc(20, 10);
    ASSERT_TRUE(FreeRotateImage(*doc, 30, true, color));
    const Surface &bg = doc->layers[0].pixels, &top = doc->layers[1].pixels;
    EXPECT_EQ(std::tuple(bg.At(0, 0), bg.At(doc->width - 1, doc->height - 1), top.At(0, 0)),
              std::tuple(color | 0xFF000000u, color | 0xFF000000u, 0u));
  }
}

TEST(GeometryCanvasSize, EveryAnchorPlacesTheOldPixelsAndLeansOnOddDifferences) {
  for (int32_t size : {13, 7}) {
    for (int32_t anchor = 0; anchor < 9; ++anchor) {
      auto doc = NoisyDoc(10, 10);
      const Surface bg = doc->layers[0].pixels, top = doc->layers[1].pixels;
      ASSERT_TRUE(CanvasSize(*doc, size, size, anchor, 0x123456));
      // Growing by 3 the offset is 0, 1, 3; shrinking by 3 it is 0, -1, -3.
      const int32_t lean[3] = {0, size > 10 ? 1 : -1, size - 10};
      const int32_t dx = lean[anchor % 3], dy = lean[anchor / 3];
      for (int32_t y = 0; y < size; ++y)
        for (int32_t x = 0; x < size; ++x) {
          const bool old = x - dx >= 0 && x - dx < 10 && y - dy >= 0 && y - dy < 10;
          ASSERT_EQ(doc->layers[0].pixels.At(x, y), old ? bg.At(x - dx, y - dy) : 0xFF123456u);
          ASSERT_EQ(doc->layers[1].pixels.At(x, y), old ? top.At(x - dx, y - dy) : 0u);
        }
    }
  }
  auto doc = NoisyDoc(10, 10);
  EXPECT_FALSE(CanvasSize(*doc, 10, 10, 4, 0));
  EXPECT_TRUE(doc->history.states.empty());
  ASSERT_TRUE(CanvasSize(*doc, 0, 99999, 4, 0));
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(1, kMaxGeometrySide));
}

TEST(GeometryCrop, KeepsTheSelectionsRectangleOrNothing) {
  auto doc = NoisyDoc(12, 8);
  EXPECT_FALSE(CropToSelection(*doc));  // no selection: the whole canvas
  Select(*doc, {0, 0, 12, 8});
  EXPECT_FALSE(CropToSelection(*doc));
  EXPECT_TRUE(doc->history.states.empty());
  const Surface top = doc->layers[1].pixels;
  Select(*doc, {3, 2, 10, 5});
  ASSERT_TRUE(CropToSelection(*doc));
  EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(7, 3));
  EXPECT_FALSE(doc->selection);
  for (int32_t y = 0; y < 3; ++y)
    for (int32_t x = 0; x < 7; ++x) ASSERT_EQ(doc->layers[1].pixels.At(x, y), top.At(x + 3, y + 2));
}

TEST(GeometryFlip, PixelsAndSelectionTurnTogetherAndTwiceRestores) {
  struct Case { bool (*command)(Document&); bool vertical; } cases[] = {{FlipImage, true}, {MirrorImage, false}};
  for (const Case& c : cases) {
    auto doc = NoisyDoc(9, 6);
    Select(*doc, {1, 1, 4, 3}, 200);
    const Surface top = doc->layers[1].pixels;
    const std::vector<uint8_t> mask = MaskBytes(*doc->selection);
    ASSERT_TRUE(c.command(*doc));
    for (int32_t y = 0; y < 6; ++y)
      for (int32_t x = 0; x < 9; ++x) {
        const int32_t fx = c.vertical ? x : 8 - x, fy = c.vertical ? 5 - y : y;
        ASSERT_EQ(doc->layers[1].pixels.At(x, y), top.At(fx, fy));
        ASSERT_EQ(doc->selection->At(x, y), mask[fy * 9 + fx]);
      }
    EXPECT_EQ(doc->selectionBounds, (c.vertical ? Rect{1, 3, 4, 5} : Rect{5, 1, 8, 3}));
    ASSERT_TRUE(c.command(*doc));
    EXPECT_TRUE(SamePixels(doc->layers[1].pixels, top));
    EXPECT_EQ(MaskBytes(*doc->selection), mask);
    EXPECT_EQ(doc->selectionBounds, (Rect{1, 1, 4, 3}));
  }
}

std::pair<int32_t, int32_t> Offset(const Layer& layer) { return {layer.extended->x, layer.extended->y}; }

// A canvas-sized layer's content with `extended` past the canvas at (x, y).
void GiveExtended(Layer& layer, int32_t x, int32_t y, int32_t w, int32_t h, uint32_t seed) {
  layer.extended = std::make_unique<ExtendedContent>(ExtendedContent{x, y, Noise(w, h, seed)});
  layer.RebuildFromExtended();
}

TEST(GeometryLayerFlip, ExtendedContentTurnsAboutTheCanvasAndTwiceRestores) {
  for (bool vertical : {true, false}) {
    auto doc = NoisyDoc(8, 6);
    Layer& layer = doc->layers[1];
    GiveExtended(layer, -3, 2, 12, 5, 9);
    const Surface canvas = layer.pixels, ext = layer.extended->pixels;
    ASSERT_TRUE(vertical ? FlipLayer(*doc) : MirrorLayer(*doc));
    EXPECT_EQ(Offset(layer), std::pair(vertical ? -3 : 8 - (12 - 3), vertical ? 6 - (5 + 2) : 2));
    for (int32_t y = 0; y < 5; ++y)
      for (int32_t x = 0; x < 12; ++x)
        ASSERT_EQ(layer.extended->pixels.At(x, y), vertical ? ext.At(x, 4 - y) : ext.At(11 - x, y));
    Layer rebuilt(layer);
    rebuilt.RebuildFromExtended();
    EXPECT_TRUE(SamePixels(layer.pixels, rebuilt.pixels));
    ASSERT_TRUE(vertical ? FlipLayer(*doc) : MirrorLayer(*doc));
    EXPECT_TRUE(SamePixels(layer.pixels, canvas));
    EXPECT_TRUE(SamePixels(layer.extended->pixels, ext));
    EXPECT_EQ(Offset(layer), std::pair(-3, 2));
  }
}

TEST(GeometryLayerRotation, KeepsWhatFallsPastTheCanvasAndTurnsBack) {
  auto doc = NoisyDoc(10, 6);
  Layer& layer = doc->layers[1];
  layer.pixels = Surface(10, 6);
  const Surface object = Opaque(Noise(7, 2, 3));
  for (int32_t y = 0; y < 2; ++y)
    for (int32_t x = 0; x < 7; ++x) layer.pixels.At(x + 1, y + 2) = object.At(x, y);
  const Surface before = layer.pixels;
  EXPECT_EQ(LayerContentBox(layer), (Rect{1, 2, 8, 4}));

  // The 7 x 2 box centred at (4.5, 3) becomes 2 x 7 at (3.5, -0.5), rounded
  // half up to (4, 0): its last row is below the canvas and stays.
  ASSERT_TRUE(RotateLayer90(*doc, true));
  ASSERT_TRUE(layer.extended);
  EXPECT_EQ(Offset(layer), std::pair(4, 0));
  EXPECT_TRUE(SamePixels(layer.extended->pixels, Rotate90(object, Turn::Clockwise)));
  EXPECT_EQ(LayerContentBox(layer), (Rect{4, 0, 6, 7}));
  // Rounding half down on the way back lands on the very same pixels.
  ASSERT_TRUE(RotateLayer90(*doc, false));
  EXPECT_TRUE(SamePixels(layer.pixels, before));
  EXPECT_EQ(LayerContentBox(layer), (Rect{1, 2, 8, 4}));
  ASSERT_TRUE(RotateLayer180(*doc));
  EXPECT_TRUE(SamePixels(layer.extended->pixels, Rotate180(object)));
  EXPECT_EQ(layer.extended->x, 1);

  // A free turn keeps the whole turned box, centred where the box was.
  ASSERT_TRUE(FreeRotateLayer(*doc, 30));
  const PictureSize size = FreeRotationSize(7, 2, 30, true);
  EXPECT_TRUE(SamePixels(layer.extended->pixels,
                         RotateFree(Rotate180(object), 30, size.width, size.height, 0)));
  EXPECT_EQ(Offset(layer), std::pair(int32_t(std::floor(4.5 - size.width / 2.0 + 0.5)),
                                     int32_t(std::floor(3 - size.height / 2.0 + 0.5))));

  // The Background turns within the canvas; what it uncovers is opaque black.
  doc->active = 0;
  const Surface bg = doc->layers[0].pixels;
  ASSERT_TRUE(RotateLayer90(*doc, true));
  EXPECT_FALSE(doc->layers[0].extended);
  EXPECT_EQ(doc->layers[0].pixels.At(0, 0), 0xFF000000u);
  EXPECT_EQ(doc->layers[0].pixels.At(2, 0), bg.At(2, 5));  // 6 x 10 placed at (2, -2)
}

TEST(GeometryResizeLayer, RefusesWhatItCannotDoAndResamplesAboutTheCentre) {
  auto doc = NoisyDoc(20, 10);
  struct Case { int32_t active, w, h; } refused[] = {{0, 10, 10}, {1, 0, 5}, {1, 5, 0}, {1, 15000, 10001}};
  for (const Case& c : refused) {
    doc->active = c.active;
    EXPECT_FALSE(ResizeLayer(*doc, c.w, c.h, 0)) << c.w << "x" << c.h;
  }
  EXPECT_TRUE(doc->history.states.empty());
  Document empty;
  EXPECT_FALSE(ResizeLayer(empty, 5, 5, 0));

  Layer& layer = doc->layers[1];
  layer.pixels = Surface(20, 10);
  layer.pixels.At(4, 3) = layer.pixels.At(5, 3) = 0xFF0000FFu;  // a 2 x 1 box centred at (5, 3.5)
  ASSERT_TRUE(ResizeLayer(*doc, 6, 3, 0));
  EXPECT_EQ(Offset(layer), std::pair(2, 2));
  EXPECT_EQ(std::tuple(layer.pixels.At(2, 2), layer.pixels.At(7, 4), layer.pixels.At(8, 4)),
            std::tuple(0xFF0000FFu, 0xFF0000FFu, 0u));

  const struct { int32_t w, h; bool ok; } checks[] = {
      {1, 1, true}, {30000, 5000, true}, {30000, 5001, false}, {0, 4, false}, {30001, 1, false}};
  for (const auto& c : checks)
    EXPECT_EQ(std::u16string(CheckResizeLayerSize(c.w, c.h)),
              c.ok ? u"" : u"Size must be between 1 and 30000 pixels per side.");
}

TEST(GeometryLayerFromSelection, WeighsAlphaByTheSelectionAndKeepsIt) {
  auto doc = NoisyDoc(16, 16);
  EXPECT_FALSE(LayerFromSelection(*doc));
  Select(*doc, {2, 3, 14, 11});
  std::mt19937 rng(4);
  for (int32_t y = 3; y < 11; ++y)
    for (int32_t x = 2; x < 14; ++x) doc->selection->At(x, y) = uint8_t(1 + rng() % 255);
  const SelectionMask mask = *doc->selection;
  const Surface src = doc->layers[1].pixels;
  ASSERT_TRUE(LayerFromSelection(*doc));
  ASSERT_EQ(doc->LayerCount(), 3);
  EXPECT_EQ(doc->active, 2);
  EXPECT_EQ(doc->layers[2].Name(), u"Layer 3");
  ASSERT_TRUE(doc->selection);
  for (int32_t y = 0; y < 16; ++y)
    for (int32_t x = 0; x < 16; ++x) {
      const uint32_t p = src.At(x, y), a = ((p >> 24) * mask.At(x, y) * 2 + 255) / 510;
      ASSERT_EQ(doc->layers[2].pixels.At(x, y), a ? (p & 0xFFFFFF) | a << 24 : 0u) << x << "," << y;
    }
}

TEST(GeometryHistory, EachCommandIsOneStepThatUndoesExactly) {
  struct Case { const char16_t* label; std::function<bool(Document&)> run; } cases[] = {
      {u"Canvas Size", [](Document& d) { return CanvasSize(d, 15, 7, 8, 0xFF00FF); }},
      {u"Crop", [](Document& d) { return CropToSelection(d); }},
      {u"Rotate Right", [](Document& d) { return RotateImage90(d, true); }},
      {u"Rotate Left", [](Document& d) { return RotateImage90(d, false); }},
      {u"Rotate 180", [](Document& d) { return RotateImage180(d); }},
      {u"Rotate", [](Document& d) { return FreeRotateImage(d, 12.5, true, 0xFF0000); }},
      {u"Flip", [](Document& d) { return FlipImage(d); }},
      {u"Mirror", [](Document& d) { return MirrorImage(d); }},
      {u"Resize Layer", [](Document& d) { return ResizeLayer(d, 20, 3, 1); }},
      {u"Flip Layer", [](Document& d) { return FlipLayer(d); }},
      {u"Mirror Layer", [](Document& d) { return MirrorLayer(d); }},
      {u"Rotate Layer Right", [](Document& d) { return RotateLayer90(d, true); }},
      {u"Rotate Layer Left", [](Document& d) { return RotateLayer90(d, false); }},
      {u"Rotate Layer 180", [](Document& d) { return RotateLayer180(d); }},
      {u"Rotate Layer", [](Document& d) { return FreeRotateLayer(d, -40); }},
      {u"Layer from Selection", [](Document& d) { return LayerFromSelection(d); }},
  };
  for (const Case& c : cases) {
    auto doc = NoisyDoc(11, 9);
    GiveExtended(doc->layers[1], -2, -1, 14, 6, 6);
    Select(*doc, {2, 1, 7, 8});
    const std::vector<Layer> layers = doc->layers;
    SCOPED_TRACE(::testing::Message() << "case " << (&c - cases));
    ASSERT_TRUE(c.run(*doc));
    ASSERT_EQ(doc->history.states.size(), 1u);
    EXPECT_EQ(UndoLabel(*doc), c.label);
    const std::vector<Layer> after = doc->layers;
    const int32_t w = doc->width, h = doc->height;
    ASSERT_TRUE(Undo(*doc));
    EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(11, 9));
    ASSERT_EQ(doc->layers.size(), layers.size());
    for (std::size_t i = 0; i < layers.size(); ++i) {
      EXPECT_TRUE(SamePixels(doc->layers[i].pixels, layers[i].pixels));
      EXPECT_EQ(bool(doc->layers[i].extended), bool(layers[i].extended));
    }
    EXPECT_TRUE(SamePixels(doc->layers[1].extended->pixels, layers[1].extended->pixels));
    EXPECT_EQ(doc->selectionBounds, (Rect{2, 1, 7, 8}));
    ASSERT_TRUE(Redo(*doc));
    EXPECT_EQ(std::pair(doc->width, doc->height), std::pair(w, h));
    for (std::size_t i = 0; i < after.size(); ++i)
      EXPECT_TRUE(SamePixels(doc->layers[i].pixels, after[i].pixels));
  }
}

}  // namespace
}  // namespace tavora
