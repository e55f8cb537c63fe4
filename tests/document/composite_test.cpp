#include "document/composite.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "document/blend.h"
#include "document/document_events.h"
#include "pixels.h"

namespace tavora {
namespace {

using testing_support::Px;
using testing_support::SamePixels;

// The composite of one pixel written straight from the rules, one layer at
// a time and one channel at a time.
uint32_t ReferencePixel(const Document& doc, int x, int y) {
  uint32_t result = 0;
  for (const Layer& layer : doc.layers) {
    if (!layer.visible) continue;
    const uint32_t o = layer.opacity;
    auto layEffect = [&](const Surface* buf) {
      if (!buf) return;
      uint32_t p = buf->At(x, y);
      uint32_t a = p >> 24;
      if (a == 0) return;
      if (o != 255) a = Mul(a, o);
      if (a == 0) return;
      result = Over(result, (p & 0xFFFFFF) | a << 24);
    };
    layEffect(layer.under.get());
    const uint32_t p = (layer.styled ? *layer.styled : layer.pixels).At(x, y);
    uint32_t a = p >> 24;
    if (o != 255) a = Mul(a, o);
    if (a != 0) {
      uint32_t c[3] = {p & 255, p >> 8 & 255, p >> 16 & 255};
      const uint32_t ar = result >> 24;
      if (layer.blendMode != kBlendNormal && ar > 0) {
        for (int i = 0; i < 3; ++i) {
          const uint32_t rc = result >> (8 * i) & 255;
          const uint32_t bl = BlendChannel(layer.blendMode, rc, c[i]);
          c[i] = ((c[i] * (255 - ar) + bl * ar + 128) * 257) >> 16;
        }
      }
      result = Over(result, a << 24 | c[2] << 16 | c[1] << 8 | c[0]);
    }
    layEffect(layer.over.get());
  }
  return result;
}

void FillRandom(Surface& s, std::mt19937& rng) {
  for (std::size_t i = 0; i < s.PixelCount(); ++i) {
    uint32_t p = rng();
    // Plenty of the alpha end cases that take separate paths.
    switch (rng() % 4) {
      case 0: p |= 0xFF000000u; break;
      case 1: p &= 0x00FFFFFFu; break;
      default: break;
    }
    s.Data()[i] = p;
  }
}

std::unique_ptr<Document> RandomStack(int w, int h, std::mt19937& rng) {
  auto doc = CreateDocument(w, h, 72, 0xFFFFFFFF, 0);
  FillRandom(doc->layers[0].pixels, rng);
  for (int mode = 0; mode < kBlendModeCount; ++mode) {
    Layer layer(w, h, NewLayerName(*doc));
    FillRandom(layer.pixels, rng);
    layer.blendMode = mode;
    layer.opacity = std::vector<int>{255, 254, 128, 1, 0, 200}[rng() % 6];
    layer.visible = rng() % 5 != 0;
    if (rng() % 3 == 0) {
      // A switched-on effect keeps its caches; these stand in for what the
      // effect drawing would leave: shadow under, stroke over, styled pixels.
      layer.effects.colorOverlay.on = true;
      for (auto* cache : {&layer.under, &layer.over, &layer.styled}) {
        if (cache == &layer.styled && rng() % 2) continue;
        *cache = std::make_unique<Surface>(w, h);
        FillRandom(**cache, rng);
      }
    }
    doc->layers.push_back(std::move(layer));
  }
  return doc;
}

void ExpectMatchesReference(Document& doc) {
  Composite(doc);
  const Surface& out = CompositeSource(doc);
  ASSERT_EQ(out.Width(), doc.width);
  for (int y = 0; y < doc.height; ++y)
    for (int x = 0; x < doc.width; ++x)
      ASSERT_EQ(out.At(x, y), ReferencePixel(doc, x, y)) << x << "," << y;
}

TEST(CompositeStack, FullCompositeFollowsTheRulesForEveryModeAndEffectCache) {
  std::mt19937 rng(7);
  for (int round = 0; round < 4; ++round) {
    auto doc = RandomStack(61, 45, rng);
    ExpectMatchesReference(*doc);
  }
}

TEST(CompositeStack, IncrementalAfterInvalidateEqualsFullRecomposite) {
  std::mt19937 rng(11);
  auto doc = RandomStack(97, 80, rng);
  Composite(*doc);
  for (int step = 0; step < 30; ++step) {
    const int li = rng() % doc->LayerCount();
    Layer& layer = doc->layers[li];
    const int x0 = rng() % 90, y0 = rng() % 70;
    const Rect r{x0, y0, x0 + 1 + int(rng() % 40), y0 + 1 + int(rng() % 45)};  // may poke past the edge
    for (int y = r.y0; y < std::min(r.y1, doc->height); ++y)
      for (int x = r.x0; x < std::min(r.x1, doc->width); ++x) layer.pixels.At(x, y) = rng();
    if (step % 7 == 3) layer.visible = !layer.visible;
    Invalidate(*doc, li, r);
    if (step % 7 == 3) Invalidate(*doc, li, doc->Bounds());
    Composite(*doc);
    ASSERT_EQ(doc->compositeLayer, -1);
    Surface incremental = *doc->composite;
    doc->composite.reset();  // forces a full recomposite
    Composite(*doc);
    ASSERT_TRUE(SamePixels(incremental, *doc->composite)) << "step " << step;
  }
}

TEST(CompositeStack, UninvalidatedChangesStayUnseen) {
  // Proves the dirty rectangle really limits the work.
  auto doc = CreateDocument(40, 40, 72, 0xFF000000, 0);
  doc->layers.emplace_back(40, 40, u"top");
  doc->layers[1].opacity = 128;
  Composite(*doc);
  doc->layers[1].pixels.Fill(0xFFFFFFFF);
  Invalidate(*doc, 1, {0, 0, 10, 10});
  Composite(*doc);
  EXPECT_EQ(doc->composite->At(5, 5), Px(255, 128, 128, 128));
  EXPECT_EQ(doc->composite->At(20, 20), Px(255, 0, 0, 0));
  EXPECT_TRUE(doc->compositeDirty.Empty());
}

TEST(CompositeStack, BlendOverTransparencyOpacityEndsAndHiddenLayers) {
  const struct {
    const char* what;
    int32_t mode, opacity;
    bool visible;
    uint32_t fill;
    int32_t x;
    uint32_t want;
  } table[] = {
      {"Multiply over transparency shows its own colours", kBlendMultiply, 255, true, Px(128, 255, 0, 0), 0,
       Px(128, 255, 0, 0)},
      {"Multiply over blue gives black at half strength", kBlendMultiply, 255, true, Px(128, 255, 0, 0), 1,
       Px(255, 0, 0, 127)},
      {"Normal over blue", kBlendNormal, 255, true, Px(128, 255, 0, 0), 1, Px(255, 128, 0, 127)},
      {"opacity 1 leaves alpha mul(255, 1)", kBlendNormal, 1, true, Px(255, 9, 9, 9), 3, Px(1, 9, 9, 9)},
      {"opacity 0 adds nothing", kBlendNormal, 0, true, Px(255, 9, 9, 9), 2, Px(255, 10, 20, 30)},
      {"hidden adds nothing", kBlendNormal, 255, false, Px(255, 9, 9, 9), 2, Px(255, 10, 20, 30)},
  };
  for (const auto& row : table) {
    auto doc = CreateDocument(4, 1, 72, 0x00000000, 0);
    doc->layers[0].pixels.At(1, 0) = Px(255, 0, 0, 255);
    doc->layers[0].pixels.At(2, 0) = Px(255, 10, 20, 30);
    Layer& top = doc->layers.emplace_back(4, 1, u"top");
    top.blendMode = row.mode;
    top.opacity = row.opacity;
    top.visible = row.visible;
    top.pixels.Fill(row.fill);
    EXPECT_EQ(CompositePixel(*doc, row.x, 0), row.want) << row.what;
    Composite(*doc);  // the whole-canvas path agrees
    EXPECT_EQ(CompositeSource(*doc).At(row.x, 0), row.want) << row.what;
    for (auto [x, y] : {std::pair{-1, 0}, {4, 0}, {0, 1}})
      EXPECT_EQ(CompositePixel(*doc, x, y), 0u) << row.what << ": outside at " << x << "," << y;
  }
  auto empty = CreateDocument(4, 1, 72, 0xFFFFFFFF, 0);
  empty->layers.clear();
  EXPECT_EQ(CompositePixel(*empty, 2, 0), 0u);
}

TEST(CompositeStack, ACanvasOfANewSizeGetsANewBuffer) {
  auto doc = CreateDocument(8, 8, 72, 0xFF0000FF, 0);
  doc->layers[0].opacity = 128;
  Composite(*doc);
  // As a canvas-size command would leave it: new size, old composite buffer.
  doc->width = 16;
  doc->height = 4;
  doc->layers[0] = Layer(16, 4, u"Background");
  doc->layers[0].pixels.Fill(0xFF00FF00);
  doc->layers[0].opacity = 128;
  Composite(*doc);
  ASSERT_EQ(doc->composite->Width(), 16);
  EXPECT_EQ(doc->composite->At(15, 3), Px(128, 0, 255, 0));
}

TEST(CompositeStack, LayersWithNoEffectOnLoseStaleCaches) {
  auto doc = CreateDocument(3, 1, 72, 0xFF0000FF, 0);
  doc->layers.emplace_back(3, 1, u"was fx");
  doc->layers[1].under = std::make_unique<Surface>(3, 1);
  doc->layers[1].under->Fill(0xFFFFFFFF);
  Composite(*doc);
  EXPECT_FALSE(doc->layers[1].under);
  EXPECT_EQ(doc->composite->At(0, 0), 0xFF0000FFu);
}

TEST(CompositeFastPath, OneVisiblePlainLayerServesItsOwnBuffer) {
  auto doc = CreateDocument(50, 40, 72, 0xFF336699, 0);
  doc->layers.emplace_back(50, 40, u"hidden");
  doc->layers[1].visible = false;
  doc->layers[1].pixels.Fill(0xFFFFFFFF);
  const struct {
    const char* what;
    void (*change)(Document&);
    int32_t compositeLayer;
    uint32_t pixel;  // at 10, 10
  } steps[] = {
      {"one plain layer", [](Document&) {}, 0, 0xFF336699},
      {"opacity 254", [](Document& d) { d.layers[0].opacity = 254, Invalidate(d, 0, d.Bounds()); }, -1,
       Px(254, 0x33, 0x66, 0x99)},
      {"back to 255, even without an invalidate", [](Document& d) { d.layers[0].opacity = 255; }, 0, 0xFF336699},
      // Any blend mode, effect or second visible layer leaves the fast path.
      {"a blend mode", [](Document& d) { d.layers[0].blendMode = kBlendScreen; }, -1, 0xFF336699},
      {"an effect", [](Document& d) { d.layers[0].blendMode = kBlendNormal, d.layers[0].effects.stroke.on = true; },
       -1, 0xFF336699},
      {"the effects hidden", [](Document& d) { d.layers[0].effectsHidden = true; }, 0, 0xFF336699},
      {"a second layer", [](Document& d) { d.layers[1].visible = true, d.composite.reset(); }, -1, 0xFFFFFFFF},
  };
  for (const auto& step : steps) {
    step.change(*doc);
    Composite(*doc);
    EXPECT_EQ(doc->compositeLayer, step.compositeLayer) << step.what;
    // The buffer is released on the fast path, and the layer's own serves.
    EXPECT_EQ(doc->composite.has_value(), step.compositeLayer < 0) << step.what;
    EXPECT_EQ(CompositeSource(*doc).Data() == doc->layers[0].pixels.Data(), step.compositeLayer == 0) << step.what;
    EXPECT_EQ(CompositeSource(*doc).At(10, 10), step.pixel) << step.what;
    EXPECT_EQ(CompositePixel(*doc, 10, 10), step.pixel) << step.what;
  }
}

TEST(Invalidation, ClampsGrowsByEffectMarginAndTellsTheView) {
  static std::vector<Rect> seen;
  seen.clear();
  DocumentObserver observer;
  observer.areaChanged = [](Document&, const Rect& r) { seen.push_back(r); };
  SetDocumentObserver(&observer);
  auto doc = CreateDocument(100, 80, 72, 0xFFFFFFFF, 0);
  doc->compositeDirty = {};
  doc->layers.emplace_back(100, 80, u"glow");
  Layer& glow = doc->layers[1];
  glow.effectsDirty = {};
  glow.effects.outerGlow.on = true;  // margin 14

  Invalidate(*doc, 1, {50, 50, 60, 60});
  EXPECT_EQ(glow.effectsDirty, (Rect{36, 36, 74, 74}));
  EXPECT_EQ(doc->compositeDirty, (Rect{36, 36, 74, 74}));
  Invalidate(*doc, 1, {0, 0, 5, 5});  // grows past the corner: clamped
  EXPECT_EQ(glow.effectsDirty, (Rect{0, 0, 74, 74}));
  Invalidate(*doc, 0, {90, 70, 200, 200});  // no effects: not grown, clamped
  EXPECT_EQ(doc->compositeDirty, (Rect{0, 0, 100, 80}));
  EXPECT_EQ(glow.effectsDirty, (Rect{0, 0, 74, 74}));
  Invalidate(*doc, 9, {1, 1, 2, 2});  // an unknown layer marks the composite only
  Invalidate(*doc, 1, {200, 200, 300, 300});  // off the canvas: nothing at all
  Invalidate(*doc, 1, {5, 5, 5, 9});          // empty
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0], (Rect{36, 36, 74, 74}));
  EXPECT_EQ(seen[2], (Rect{90, 70, 100, 80}));
  EXPECT_EQ(seen[3], (Rect{1, 1, 2, 2}));

  glow.effectsHidden = true;  // hidden effects do not grow the area
  doc->compositeDirty = {};
  Invalidate(*doc, 1, {50, 50, 60, 60});
  EXPECT_EQ(doc->compositeDirty, (Rect{50, 50, 60, 60}));
  SetDocumentObserver(nullptr);
}

TEST(FlatCopies, PlainAndOnAMatte) {
  auto doc = CreateDocument(2, 1, 72, 0x00000000, 0);
  doc->layers[0].pixels.At(0, 0) = Px(128, 255, 0, 0);
  Surface plain = FlatCopy(*doc, 0, Matte::None);
  EXPECT_EQ(plain.At(0, 0), Px(128, 255, 0, 0));
  EXPECT_NE(plain.Data(), doc->layers[0].pixels.Data());
  // The matte's own alpha is ignored: the result is always opaque.
  Surface matted = FlatCopy(*doc, 0x000000FF, Matte::Use);
  EXPECT_EQ(matted.At(0, 0), Px(255, 128, 0, 127));
  EXPECT_EQ(matted.At(1, 0), Px(255, 0, 0, 255));
}

}  // namespace
}  // namespace tavora
