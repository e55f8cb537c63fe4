#include "document/layer.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tavora {
namespace {

bool AllZero(const Surface& s) {
  return std::all_of(s.Data(), s.Data() + s.PixelCount(), [](uint32_t p) { return p == 0; });
}

TEST(SurfaceBuffers, StartTransparentAndCopyDeeply) {
  Surface s(3, 2);
  EXPECT_TRUE(AllZero(s));
  s.Fill(0x80112233);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) ASSERT_EQ(s.Data()[i], 0x80112233u);
  Surface copy = s;
  copy.At(0, 0) = 1;
  EXPECT_EQ(s.At(0, 0), 0x80112233u);
  Surface odd(5, 1);  // fill writes pairs: the last odd pixel must not be missed
  odd.Fill(7);
  EXPECT_EQ(odd.At(4, 0), 7u);
  Surface none(0, 5);
  EXPECT_TRUE(none.Empty());
  EXPECT_EQ(Surface(none).Data(), nullptr);

  Surface moved = std::move(copy);  // the source is left empty, not sizeless
  EXPECT_TRUE(copy.Empty());
  EXPECT_EQ(copy.Width(), 0);
  EXPECT_EQ(Surface(copy).Data(), nullptr);
  EXPECT_EQ(moved.At(0, 0), 1u);

  SelectionMask mask(4, 4);
  EXPECT_EQ(mask.At(3, 3), 0);
  mask.At(1, 2) = 255;
  SelectionMask maskCopy = mask;
  mask.At(1, 2) = 9;
  EXPECT_EQ(maskCopy.At(1, 2), 255);
}

TEST(LayerCopy, DeepExceptCachesWhichAreRenderedAfresh) {
  Layer l(4, 4, u"Src");
  EXPECT_EQ(l.effectsDirty, (Rect{0, 0, 4, 4}));  // a new layer's effects are all to draw
  EXPECT_FALSE(l.extended || l.styled || l.under || l.over || l.text);
  l.pixels.Fill(0xFF00FF00);
  l.extended = std::make_unique<ExtendedContent>();
  l.extended->x = -2;
  l.extended->pixels = Surface(8, 8);
  l.text = std::make_unique<TextRecord>();
  l.text->text = u"hello";
  for (auto* cache : {&l.styled, &l.under, &l.over}) *cache = std::make_unique<Surface>(4, 4);
  l.effectsDirty = {};
  l.opacity = 77;
  l.blendMode = 1;
  l.effects.stroke.on = true;

  Layer c(l);
  EXPECT_EQ(std::tuple(c.Name(), c.opacity, c.blendMode, c.effects.stroke.on), std::tuple(u"Src", 77, 1, true));
  EXPECT_NE(c.pixels.Data(), l.pixels.Data());
  EXPECT_EQ(c.pixels.At(3, 3), 0xFF00FF00u);
  ASSERT_TRUE(c.extended && c.text);
  EXPECT_NE(c.extended->pixels.Data(), l.extended->pixels.Data());
  EXPECT_EQ(c.extended->x, -2);
  EXPECT_NE(c.text.get(), l.text.get());
  EXPECT_EQ(c.text->text, u"hello");
  EXPECT_FALSE(c.styled || c.under || c.over);
  EXPECT_EQ(c.effectsDirty, (Rect{0, 0, 4, 4}));
  EXPECT_TRUE(c.rebuildEffects);
}

TEST(ExtendedContent, OffCanvasPixelsAreKeptAndReturn) {
  Layer l(4, 4, u"Moved");
  l.extended = std::make_unique<ExtendedContent>();
  l.extended->pixels = Surface(3, 2);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) l.extended->pixels.At(x, y) = 0xFF000000u | (y * 3 + x + 1);
  l.pixels.Fill(0xFFFFFFFF);  // stale content must be cleared

  l.extended->x = -1;
  l.extended->y = 3;  // only row 0 of the content is on the canvas, at y = 3
  l.RebuildFromExtended();
  EXPECT_EQ(l.pixels.At(0, 3), 0xFF000002u);
  EXPECT_EQ(l.pixels.At(1, 3), 0xFF000003u);
  EXPECT_EQ(l.pixels.At(2, 3), 0u);
  EXPECT_EQ(l.pixels.At(0, 0), 0u);
  EXPECT_TRUE(l.rebuildEffects);  // new content: effects are drawn afresh

  // Far off (the arithmetic must not wrap) or just off: nothing shows.
  for (int32_t x : {2147483647, 10}) {
    l.extended->x = x;
    l.RebuildFromExtended();
    EXPECT_TRUE(AllZero(l.pixels)) << x;
  }
  l.extended->x = 1;  // and back: every pixel is there again
  l.extended->y = 1;
  l.RebuildFromExtended();
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(l.pixels.At(x + 1, y + 1), 0xFF000000u | (y * 3 + x + 1));
  EXPECT_EQ(l.pixels.At(0, 0), 0u);
}

TEST(EffectMargins, LargestReachOfTheEnabledGroupsCapped) {
  const struct {
    const char* what;
    void (*set)(LayerEffects&);
    int32_t margin;
  } table[] = {  // a shadow here is {on, offsetX, offsetY, size}
      {"none on", [](LayerEffects&) {}, 0},
      {"drop shadow: offset + size + 2", [](LayerEffects& e) { e.dropShadow = {true, -10, 4, 3}; }, 15},
      {"drop shadow never below 0", [](LayerEffects& e) { e.dropShadow = {true, -10, 4, -40}; }, 0},
      {"outer glow", [](LayerEffects& e) { e.outerGlow.on = true; }, 14},
      {"bloom beats outer glow", [](LayerEffects& e) { e.outerGlow.on = e.bloom.on = true; }, 64},
      {"bevel", [](LayerEffects& e) { e.bevel.on = true; }, 12},
      {"stroke beats bevel", [](LayerEffects& e) { e.bevel.on = e.stroke.on = true, e.stroke.thickness = 10; }, 14},
      {"inner glow", [](LayerEffects& e) { e.innerGlow.on = true, e.innerGlow.size = 1; }, 3},
      // Extreme values from a file are capped, not wrapped.
      {"huge bloom", [](LayerEffects& e) { e.bloom.on = true, e.bloom.spread = 2147483647; }, kMaxEffectMargin},
      {"most negative offset", [](LayerEffects& e) { e.dropShadow.on = true, e.dropShadow.offsetX = INT32_MIN; },
       kMaxEffectMargin},
      {"overlays stay inside", [](LayerEffects& e) { e.colorOverlay.on = e.gradientOverlay.on = true; }, 0},
  };
  for (const auto& row : table) {
    Layer l(2, 2, u"fx");
    row.set(l.effects);
    EXPECT_EQ(EffectMargin(l), row.margin) << row.what;
  }
}

}  // namespace
}  // namespace tavora
