#include "document/layer.h"

#include <gtest/gtest.h>

namespace tavora {
namespace {

TEST(SurfaceBuffers, StartTransparentAndCopyDeeply) {
  Surface s(3, 2);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) ASSERT_EQ(s.Data()[i], 0u);
  s.Fill(0x80112233);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) ASSERT_EQ(s.Data()[i], 0x80112233u);
  Surface copy = s;
  copy.At(0, 0) = 1;
  EXPECT_EQ(s.At(0, 0), 0x80112233u);
  EXPECT_NE(copy.Data(), s.Data());
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

TEST(LayerDefaults, EveryFieldAndEffectGroup) {
  Layer l(4, 3, u"L");
  EXPECT_EQ(l.Width(), 4);
  EXPECT_EQ(l.Height(), 3);
  EXPECT_TRUE(l.visible);
  EXPECT_FALSE(l.effectsHidden);
  EXPECT_EQ(l.opacity, 255);
  EXPECT_EQ(l.blendMode, 0);
  EXPECT_FALSE(l.opaqueBackground);
  EXPECT_EQ(l.effectsDirty, (Rect{0, 0, 4, 3}));
  EXPECT_FALSE(l.extended || l.styled || l.under || l.over || l.text);
  const LayerEffects& e = l.effects;
  EXPECT_EQ(e.dropShadow.offsetX, 6);
  EXPECT_EQ(e.dropShadow.offsetY, 6);
  EXPECT_EQ(e.dropShadow.size, 8);
  EXPECT_EQ(e.dropShadow.opacity, 60);
  EXPECT_EQ(e.outerGlow.color, 0xFFD84Au);
  EXPECT_EQ(e.innerGlow.color, 0xFFFFFFu);
  EXPECT_EQ(e.innerGlow.size, 12);
  EXPECT_EQ(e.innerGlow.option, 0);
  EXPECT_EQ(e.outerGlow.opacity, 80);
  EXPECT_EQ(e.bevel.angle, 135);
  EXPECT_EQ(e.colorOverlay.color, 0xFF3366u);
  EXPECT_EQ(e.gradientOverlay.color1, 0xFF8800u);
  EXPECT_EQ(e.gradientOverlay.color2, 0x3355FFu);
  EXPECT_EQ(e.gradientOverlay.angle, 90);
  EXPECT_EQ(e.stroke.thickness, 3);
  EXPECT_EQ(e.bloom.color, 0x2F7CFFu);
  EXPECT_EQ(e.bloom.spread, 30);
  EXPECT_EQ(e.bloom.core, 70);
  EXPECT_FALSE(AnyEffectOn(l));
  EXPECT_EQ(EffectMargin(l), 0);
}

TEST(LayerCopy, DeepExceptCachesWhichAreRenderedAfresh) {
  Layer l(4, 4, u"Src");
  l.pixels.Fill(0xFF00FF00);
  l.extended = std::make_unique<ExtendedContent>();
  l.extended->x = -2;
  l.extended->pixels = Surface(8, 8);
  l.text = std::make_unique<TextRecord>();
  l.text->text = u"hello";
  l.styled = std::make_unique<Surface>(4, 4);
  l.under = std::make_unique<Surface>(4, 4);
  l.over = std::make_unique<Surface>(4, 4);
  l.effectsDirty = {};
  l.opacity = 77;
  l.blendMode = 1;
  l.effects.stroke.on = true;

  Layer c(l);
  EXPECT_EQ(c.Name(), u"Src");
  EXPECT_EQ(c.opacity, 77);
  EXPECT_EQ(c.blendMode, l.blendMode);
  EXPECT_TRUE(c.effects.stroke.on);
  EXPECT_NE(c.pixels.Data(), l.pixels.Data());
  EXPECT_EQ(c.pixels.At(3, 3), 0xFF00FF00u);
  ASSERT_TRUE(c.extended);
  EXPECT_NE(c.extended.get(), l.extended.get());
  EXPECT_NE(c.extended->pixels.Data(), l.extended->pixels.Data());
  EXPECT_EQ(c.extended->x, -2);
  ASSERT_TRUE(c.text);
  EXPECT_EQ(c.text->text, u"hello");
  EXPECT_NE(c.text.get(), l.text.get());
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

  l.extended->x = 2147483647;  // far off: the arithmetic must not wrap
  l.RebuildFromExtended();
  for (std::size_t i = 0; i < l.pixels.PixelCount(); ++i) ASSERT_EQ(l.pixels.Data()[i], 0u);

  l.extended->x = 10;  // fully off: nothing shows
  l.RebuildFromExtended();
  for (std::size_t i = 0; i < l.pixels.PixelCount(); ++i) ASSERT_EQ(l.pixels.Data()[i], 0u);

  l.extended->x = 1;  // and back: every pixel is there again
  l.extended->y = 1;
  l.RebuildFromExtended();
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(l.pixels.At(x + 1, y + 1), 0xFF000000u | (y * 3 + x + 1));
  EXPECT_EQ(l.pixels.At(0, 0), 0u);
}

TEST(EffectMargins, LargestReachOfTheEnabledGroups) {
  Layer l(2, 2, u"fx");
  l.effects.dropShadow.on = true;
  l.effects.dropShadow.offsetX = -10;
  l.effects.dropShadow.offsetY = 4;
  l.effects.dropShadow.size = 3;
  EXPECT_EQ(EffectMargin(l), 15);
  l.effects.dropShadow.size = -40;  // never below 0
  EXPECT_EQ(EffectMargin(l), 0);
  l.effects.dropShadow.on = false;
  l.effects.outerGlow.on = true;
  EXPECT_EQ(EffectMargin(l), 14);
  l.effects.bloom.on = true;
  EXPECT_EQ(EffectMargin(l), 64);
  l.effects = {};
  l.effects.bevel.on = true;
  EXPECT_EQ(EffectMargin(l), 12);
  l.effects.stroke.on = true;
  l.effects.stroke.thickness = 10;
  EXPECT_EQ(EffectMargin(l), 14);
  l.effects = {};
  l.effects.innerGlow.on = true;
  l.effects.innerGlow.size = 1;
  EXPECT_EQ(EffectMargin(l), 3);
  l.effects = {};
  l.effects.bloom.on = true;  // extreme values from a file are capped, not wrapped
  l.effects.bloom.spread = 2147483647;
  EXPECT_EQ(EffectMargin(l), kMaxEffectMargin);
  l.effects = {};
  l.effects.dropShadow.on = true;
  l.effects.dropShadow.offsetX = -2147483647 - 1;
  EXPECT_EQ(EffectMargin(l), kMaxEffectMargin);
  l.effects = {};
  l.effects.colorOverlay.on = true;
  l.effects.gradientOverlay.on = true;
  EXPECT_EQ(EffectMargin(l), 0);
  EXPECT_TRUE(AnyEffectOn(l));
  l.effectsHidden = true;
  EXPECT_FALSE(AnyEffectOn(l));
}

}  // namespace
}  // namespace tavora
