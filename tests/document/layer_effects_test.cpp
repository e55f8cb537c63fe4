#include "document/layer_effects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "base/unicode.h"
#include "document/blend.h"
#include "document/composite.h"
#include "document/effect_params.h"
#include "document/effect_planes.h"
#include "document/effect_session.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "pixels.h"
#include "processing/filters.h"
#include "temp_dir.h"

namespace tavora {
namespace {

using testing_support::SamePixels;

// ---- the planes, against plain references

// The boxes one after another, each a horizontal then a vertical pass,
// summed directly with the edge values repeated.
template <typename T, int C>
void PlainBoxes(std::vector<T>& v, int w, int h, const BoxRadii& radii) {
  auto channel = [](T value, int c) -> uint32_t { return C == 1 ? uint32_t(value) : (uint32_t(value) >> (8 * c)) & 255; };
  for (int32_t r : radii.r) {
    if (r < 1) continue;
    const uint32_t n = 2 * r + 1;
    for (int pass = 0; pass < 2; ++pass) {
      std::vector<T> out(v.size());
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          uint32_t packed = 0;
          for (int c = 0; c < C; ++c) {
            uint32_t sum = 0;
            for (int k = -r; k <= r; ++k) {
              const int sx = pass == 0 ? std::clamp(x + k, 0, w - 1) : x, sy = pass == 0 ? y : std::clamp(y + k, 0, h - 1);
              sum += channel(v[std::size_t(sy) * w + sx], c);
            }
            packed |= (sum + r) / n << (C == 1 ? 0 : 8 * c);
          }
          out[std::size_t(y) * w + x] = static_cast<T>(packed);
        }
      v = out;
    }
  }
}

// Blurs the values as a plane and compares with `reference`, which blurs them in place.
template <typename T>
::testing::AssertionResult BlurMatches(std::vector<T> v, int w, int h, float radius, auto reference) {
  Plane<T> plane(Rect{0, 0, w, h});
  std::copy(v.begin(), v.end(), plane.Data());
  BlurPlane(plane, GaussianRadii(radius));
  reference(v);
  if (std::equal(v.begin(), v.end(), plane.Data())) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "radius " << radius;
}

TEST(EffectPlanes, BlursMatchPlainBoxesAndTheSharedGaussian) {
  std::mt19937 rng(5);
  const int w = 53, h = 37;
  for (float radius : {0.4f, 1.0f, 2.0f, 3.5f, 8.0f, 21.0f, 70.0f}) {
    const BoxRadii radii = GaussianRadii(radius);
    std::vector<uint8_t> bytes(w * h);
    for (auto& b : bytes) b = rng() % 3 == 0 ? 255 : rng() % 256;
    // Bytes against the Effects menu's own blur.
    ASSERT_TRUE(BlurMatches(bytes, w, h, radius, [&](auto& v) { GaussianBlurBytes(v.data(), w, h, radius); }));
    std::vector<uint16_t> words(w * h);
    for (auto& v : words) v = static_cast<uint16_t>(rng());
    ASSERT_TRUE(BlurMatches(words, w, h, radius, [&](auto& v) { PlainBoxes<uint16_t, 1>(v, w, h, radii); }));
    std::vector<uint32_t> pixels(w * h);
    for (auto& p : pixels) p = rng();
    ASSERT_TRUE(BlurMatches(pixels, w, h, radius, [&](auto& v) { PlainBoxes<uint32_t, 4>(v, w, h, radii); }));
  }
  for (int32_t reach : {0, 1, 2, 7, 500}) EXPECT_EQ(ReachRadii(reach).Reach(), reach);
}

TEST(EffectPlanes, DistancesAreExactUpToTheCap) {
  std::mt19937 rng(9);
  const Rect area{-3, 2, 70, 51};
  for (int32_t cap : {0, 1, 3, 24, 25, 40}) {  // both ways of taking the row minimum
    for (int density : {2, 40, 400}) {
      Plane<uint8_t> sites(area);
      for (int32_t y = area.y0; y < area.y1; ++y)
        for (int32_t x = area.x0; x < area.x1; ++x) sites.Row(y)[x - area.x0] = rng() % density == 0;
      const Rect target{5, 10, 60, 44};
      const Plane<uint32_t> d2 = DistanceSquared(sites, target, cap);
      for (int32_t y = target.y0; y < target.y1; ++y)
        for (int32_t x = target.x0; x < target.x1; ++x) {
          int64_t best = -1;  // sites farther than the cap in either direction cannot count
          for (int32_t sy = std::max(area.y0, y - cap); sy < std::min(area.y1, y + cap + 1); ++sy)
            for (int32_t sx = std::max(area.x0, x - cap); sx < std::min(area.x1, x + cap + 1); ++sx)
              if (sites.At(sx, sy)) {
                const int64_t d = int64_t(sx - x) * (sx - x) + int64_t(sy - y) * (sy - y);
                if (best < 0 || d < best) best = d;
              }
          const uint32_t want = best >= 0 && best <= int64_t(cap) * cap ? uint32_t(best) : kFarAway;
          ASSERT_EQ(d2.At(x, y), want) << "cap " << cap << " density " << density << " at " << x << "," << y;
        }
    }
  }
}

// ---- what each effect draws

constexpr uint32_t kBlue = 0xFF2060C0;

// An opaque square [x0, x1) x [y0, y1) of kBlue on a transparent layer.
Layer Square(int w, int h, int x0, int y0, int x1, int y1) {
  Layer l(w, h, u"shape");
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) l.pixels.At(x, y) = kBlue;
  return l;
}

uint32_t Alpha(uint32_t p) { return p >> 24; }

TEST(LayerEffectGeometry, DropShadowIsTheShapeMovedThenBlurred) {
  Layer l = Square(64, 48, 20, 10, 30, 20);
  l.effects.dropShadow = {.on = true, .offsetX = 5, .offsetY = 7, .size = 0, .color = 0x102030, .opacity = 100};
  RenderLayerEffects(l);
  ASSERT_TRUE(l.under);
  EXPECT_FALSE(l.styled || l.over);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      const bool in = x >= 25 && x < 35 && y >= 17 && y < 27;
      ASSERT_EQ(l.under->At(x, y), in ? 0xFF102030u : 0u) << x << "," << y;
    }
  // Blurred: soft, centred on the moved square, within the blur's reach.
  l.effects.dropShadow.size = 6;
  l.effects.dropShadow.opacity = 50;
  RenderLayerEffects(l);
  const int32_t reach = GaussianRadii(6).Reach();
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) {
      const int dx = x < 25 ? 25 - x : std::max(0, x - 34), dy = y < 17 ? 17 - y : std::max(0, y - 26);
      if (std::max(dx, dy) > reach) { ASSERT_EQ(l.under->At(x, y), 0u) << x << "," << y; }
    }
  EXPECT_GT(Alpha(l.under->At(24, 21)), 0u);  // soft on both sides of the moved edge
  EXPECT_LT(Alpha(l.under->At(25, 21)), Alpha(l.under->At(29, 21)));
  EXPECT_LE(Alpha(l.under->At(29, 21)), 128u);  // never above the opacity
  EXPECT_EQ(Alpha(l.under->At(23, 21)), Alpha(l.under->At(36, 21)));  // symmetric about the middle
}

TEST(LayerEffectGeometry, StrokeWidthAndSideFollowThePosition) {
  // Across the left edge of a big square (x = 20), away from its corners
  // and its other sides: how much stroke lies outside and inside the edge.
  const struct {
    int32_t position, thickness, smoothness;
    double outside, inside;
  } table[] = {
      {kStrokeOutside, 1, 0, 1, 0},  {kStrokeOutside, 4, 0, 4, 0},  {kStrokeOutside, 4, 1, 4, 0},
      {kStrokeOutside, 9, 3, 9, 0},  {kStrokeInside, 1, 0, 0, 1},   {kStrokeInside, 5, 1, 0, 5},
      {kStrokeInside, 6, 4, 0, 6},   {kStrokeCenter, 4, 0, 2, 2},   {kStrokeCenter, 6, 2, 3, 3},
  };
  for (const auto& row : table) {
    Layer l = Square(80, 40, 20, 0, 60, 40);
    l.effects.stroke = {.on = true, .color = 0xFF0000, .opacity = 100, .thickness = row.thickness,
                        .smoothness = row.smoothness, .position = row.position};
    RenderLayerEffects(l);
    EXPECT_EQ(bool(l.over), row.position != kStrokeInside);
    EXPECT_EQ(bool(l.styled), row.position == kStrokeInside);
    double outside = 0, inside = 0;
    for (int x = 0; x < 40; ++x) {
      // How much of the pixel's colour is the stroke's, 0..1.
      double share = 0;
      if (l.over) share = Alpha(l.over->At(x, 20)) / 255.0;
      if (l.styled && x >= 20) share = ((l.styled->At(x, 20) >> 16 & 255) - 0x20) / double(0xFF - 0x20);
      (x < 20 ? outside : inside) += share;
      if (l.styled) { ASSERT_EQ(Alpha(l.styled->At(x, 20)), Alpha(l.pixels.At(x, 20))); }
    }
    EXPECT_NEAR(outside, row.outside, 0.02) << row.position << " " << row.thickness << " " << row.smoothness;
    EXPECT_NEAR(inside, row.inside, 0.02) << row.position << " " << row.thickness << " " << row.smoothness;
  }
}

TEST(LayerEffectGeometry, OnLayerEffectsKeepAlphaAndStayInside) {
  // A soft disc: every on-layer effect recolours it but never its alpha,
  // and the glows and bloom under it end within their reach.
  Layer disc(64, 64, u"disc");
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      const double a = std::clamp(18.0 - std::hypot(x + 0.5 - 32, y + 0.5 - 32), 0.0, 1.0);
      disc.pixels.At(x, y) = uint32_t(a * 255 + 0.5) << 24 | 0x40A020;
    }
  const struct {
    const char* what;
    void (*set)(LayerEffects&);
    uint32_t centre = 0;  // when known exactly
  } table[] = {
      {"inner glow", [](LayerEffects& e) { e.innerGlow.on = true; }},
      {"inner glow from the centre", [](LayerEffects& e) { e.innerGlow = {.on = true, .size = 30, .color = 0xFF0000, .opacity = 100, .option = 1}; }},
      {"bevel", [](LayerEffects& e) { e.bevel.on = true; }},
      // Normal at 100 %: the colour itself.
      {"colour overlay", [](LayerEffects& e) { e.colorOverlay = {.on = true, .color = 0x123456, .opacity = 100}; },
       0xFF123456},
      {"gradient overlay", [](LayerEffects& e) { e.gradientOverlay = {.on = true, .style = kGradientDiamond}; }},
      {"outer glow", [](LayerEffects& e) { e.outerGlow.on = true; }},
      {"bloom", [](LayerEffects& e) { e.bloom = {.on = true, .spread = 9, .glow = kBloomTinted}; }},
  };
  for (const auto& row : table) {
    Layer l(disc);
    row.set(l.effects);
    RenderLayerEffects(l);
    const int64_t reach = EffectReach(l.effects);
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) {
        const uint32_t p = l.pixels.At(x, y);
        if (l.styled) { ASSERT_EQ(Alpha(l.styled->At(x, y)), Alpha(p)) << row.what; }
        if (l.under && std::hypot(x + 0.5 - 32, y + 0.5 - 32) > 19 + reach * std::sqrt(2.0)) {
          ASSERT_EQ(l.under->At(x, y), 0u) << row.what << " at " << x << "," << y;
        }
      }
    int recoloured = 0;
    for (int i = 0; l.styled && i < 64 * 64; ++i)
      recoloured += (l.styled->Data()[i] & 0xFFFFFF) != (disc.pixels.Data()[i] & 0xFFFFFF) && disc.pixels.Data()[i] >> 24;
    EXPECT_EQ(recoloured > 0, bool(l.styled)) << row.what;
    if (l.under) { EXPECT_GT(Alpha(l.under->At(32, 12)), 0u) << row.what; }  // just outside the rim
    if (row.centre) { EXPECT_EQ(l.styled->At(32, 32), row.centre) << row.what; }
  }
}

TEST(LayerEffectGeometry, BevelLightGradientAndInnerGlowDirections) {
  Layer l = Square(60, 60, 10, 10, 50, 50);
  l.effects.bevel = {.on = true, .depth = 80, .size = 6, .soften = 1, .angle = 135};
  RenderLayerEffects(l);
  auto bright = [&](int x, int y) { return (l.styled->At(x, y) & 255) + (l.styled->At(x, y) >> 8 & 255); };
  const uint32_t flat = (kBlue & 255) + (kBlue >> 8 & 255);
  EXPECT_GT(bright(11, 30), flat);  // light from the top left: the left rim is lit
  EXPECT_LT(bright(48, 30), flat);  // the right rim is in shadow
  EXPECT_EQ(bright(30, 30), flat);  // the flat top is untouched
  l.effects.bevel.direction = kBevelSunken;
  RenderLayerEffects(l);
  EXPECT_LT(bright(11, 30), flat);
  EXPECT_GT(bright(48, 30), flat);

  Layer g = Square(60, 60, 0, 0, 60, 60);
  g.effects.gradientOverlay = {.on = true, .color1 = 0xFF0000, .color2 = 0x0000FF, .opacity = 100, .angle = 0};
  RenderLayerEffects(g);
  EXPECT_GT(g.styled->At(0, 30) >> 16 & 255, 240u);  // angle 0: start colour at the left
  EXPECT_GT(g.styled->At(59, 30) & 255, 240u);
  g.effects.gradientOverlay.reverse = true;
  RenderLayerEffects(g);
  EXPECT_GT(g.styled->At(0, 30) & 255, 240u);
  g.effects.gradientOverlay = {.on = true, .color1 = 0xFF0000, .color2 = 0x0000FF, .opacity = 100,
                               .style = kGradientRadial};
  RenderLayerEffects(g);
  EXPECT_GT(g.styled->At(29, 29) >> 16 & 255, 245u);  // radial: the start colour in the middle
  EXPECT_GT(g.styled->At(0, 0) & 255, 245u);           // and the end colour in the corners
}

// ---- partial renders, the margin and the fx switch

// A layer of a few soft discs and boxes with random effects on, kept small.
Layer RandomLayer(std::mt19937& rng, int w, int h) {
  Layer l(w, h, u"random");
  for (int k = 0; k < 3; ++k) {
    const double cx = rng() % w, cy = rng() % h, r = 3 + rng() % 12;
    const uint32_t color = rng() & 0xFFFFFF;
    const bool box = rng() % 2;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const double d = box ? std::max(std::fabs(x - cx), std::fabs(y - cy)) - r : std::hypot(x - cx, y - cy) - r;
        const double a = std::clamp(0.5 - d / (1 + rng() % 2), 0.0, 1.0);
        if (a > 0) l.pixels.At(x, y) = Over(l.pixels.At(x, y), uint32_t(a * 255) << 24 | color);
      }
  }
  for (const EffectParam& p : EffectParams()) {
    int32_t v;
    if (p.type == ParamType::Color) v = rng() & 0xFFFFFF;
    else if (p.type == ParamType::Number) {
      const int32_t span = rng() % 4 == 0 ? 40 : 14;  // now and then past the small-cap paths
      v = p.minimum + int32_t(rng() % uint32_t(std::min(p.maximum, p.minimum + span) - p.minimum + 1));
    }
    else v = p.minimum + int32_t(rng() % uint32_t(p.maximum - p.minimum + 1));
    if (IsEffectSwitch(p)) v = rng() % 3 == 0;
    p.set(l.effects, v);
  }
  if (!AnyEffectOn(l)) l.effects.stroke.on = true;
  return l;
}

::testing::AssertionResult SameCaches(const Layer& a, const Layer& b) {
  for (auto cache : {&Layer::styled, &Layer::under, &Layer::over}) {
    if (bool(a.*cache) != bool(b.*cache)) return ::testing::AssertionFailure() << "a cache is missing";
    if (a.*cache) {
      auto same = SamePixels(*(a.*cache), *(b.*cache));
      if (!same) return same;
    }
  }
  return ::testing::AssertionSuccess();
}

TEST(LayerEffectRendering, DabsRedrawTheirGrownRectangleOnlyAndMatchAWholeRender) {
  std::mt19937 rng(21);
  for (int round = 0; round < 24; ++round) {
    auto doc = CreateDocument(72, 56, 72, 0xFFFFFFFF, 0);
    doc->layers.push_back(RandomLayer(rng, 72, 56));
    Layer& layer = doc->layers[1];
    Composite(*doc);
    for (int dab = 0; dab < 4; ++dab) {
      const int x0 = int(rng() % 80) - 4, y0 = int(rng() % 64) - 4;
      const Rect r{x0, y0, x0 + 1 + int(rng() % 10), y0 + 1 + int(rng() % 10)};
      const uint32_t paint = rng() % 4 == 0 ? 0 : (rng() | 0x80000000u);
      for (int y = std::max(r.y0, 0); y < std::min(r.y1, 56); ++y)
        for (int x = std::max(r.x0, 0); x < std::min(r.x1, 72); ++x) layer.pixels.At(x, y) = paint;
      Invalidate(*doc, 1, r);
      const Rect dirty = layer.effectsDirty;
      std::vector<Surface> old;
      for (auto cache : {&Layer::styled, &Layer::under, &Layer::over})
        old.push_back(layer.*cache ? *(layer.*cache) : Surface());
      Composite(*doc);
      ASSERT_TRUE(layer.effectsDirty.Empty());
      int i = 0;
      for (auto cache : {&Layer::styled, &Layer::under, &Layer::over}) {
        const Surface& was = old[i++];
        if (!(layer.*cache) || was.Empty()) continue;
        for (int y = 0; y < 56; ++y)
          for (int x = 0; x < 72; ++x)
            if (!dirty.Contains(x, y)) { ASSERT_EQ((layer.*cache)->At(x, y), was.At(x, y)) << "outside the rectangle"; }
      }
      Layer whole(layer);
      RenderLayerEffects(whole);
      ASSERT_TRUE(SameCaches(layer, whole)) << "round " << round << " dab " << dab;
    }
  }
}

TEST(LayerEffectRendering, TheMarginCoversEveryChangeOfOnePixel) {
  std::mt19937 rng(33);
  for (int round = 0; round < 40; ++round) {
    Layer a = RandomLayer(rng, 64, 64);
    Layer b(a);
    const int px = rng() % 64, py = rng() % 64;
    b.pixels.At(px, py) = b.pixels.At(px, py) >> 24 >= 128 ? 0 : 0xFF000000u | rng();
    RenderLayerEffects(a);
    RenderLayerEffects(b);
    const int32_t margin = EffectMargin(a);
    for (auto cache : {&Layer::styled, &Layer::under, &Layer::over}) {
      if (!(a.*cache)) continue;
      for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
          if ((a.*cache)->At(x, y) != (b.*cache)->At(x, y)) {
            ASSERT_LE(std::max(std::abs(x - px), std::abs(y - py)), margin) << "round " << round;
          }
    }
  }
  // Every size the table allows, not only the small ones drawn above.
  for (int32_t v = 0; v <= 500; ++v) {
    Layer l(2, 2, u"m");
    l.effects.dropShadow = {.on = true, .offsetX = 3, .offsetY = -4, .size = v};
    l.effects.bloom = {.on = v > 0, .spread = std::max(v, 1)};
    l.effects.stroke = {.on = true, .thickness = std::max(v, 1), .smoothness = v % 101};
    ASSERT_GE(EffectMargin(l), EffectReach(l.effects)) << v;
  }
}

TEST(LayerEffectRendering, TheFxSwitchHidesEffectsAndKeepsTheirSettings) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  doc->layers.push_back(Square(40, 30, 10, 8, 25, 20));
  doc->layers[1].effects.dropShadow.on = doc->layers[1].effects.stroke.on = true;
  const Surface shown = FlatCopy(*doc, 0, Matte::None);
  auto plain = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  plain->layers.push_back(Square(40, 30, 10, 8, 25, 20));
  const Surface without = FlatCopy(*plain, 0, Matte::None);
  ASSERT_FALSE(SamePixels(shown, without));

  // Switched without an invalidation (as a careless caller might): the
  // composite follows anyway, and the caches go.
  doc->layers[1].effectsHidden = true;
  EXPECT_TRUE(SamePixels(FlatCopy(*doc, 0, Matte::None), without));
  EXPECT_FALSE(doc->layers[1].under || doc->layers[1].over);
  EXPECT_TRUE(doc->layers[1].effects.dropShadow.on);
  doc->layers[1].effectsHidden = false;
  EXPECT_TRUE(SamePixels(FlatCopy(*doc, 0, Matte::None), shown));
  // A changed parameter is drawn too, invalidated or not.
  doc->layers[1].effects.dropShadow.offsetX = -6;
  EXPECT_FALSE(SamePixels(FlatCopy(*doc, 0, Matte::None), shown));
}

TEST(LayerEffectRendering, MergeDownAndFlattenBakeTheEffects) {
  for (int variant = 0; variant < 3; ++variant) {
    auto doc = CreateDocument(50, 40, 72, 0x00000000, 0);
    doc->layers[0] = Square(50, 40, 5, 5, 20, 30);
    doc->layers[0].SetName(u"Background");
    doc->layers[0].effects.stroke = {.on = true, .color = 0x00FF00, .opacity = 100, .thickness = 2};
    Layer& upper = doc->layers.emplace_back(Square(50, 40, 15, 10, 35, 25));
    upper.effects.dropShadow.on = upper.effects.bevel.on = upper.effects.outerGlow.on = true;
    upper.opacity = 200;
    upper.blendMode = kBlendMultiply;
    Composite(*doc);
    if (variant == 1) upper.effects.dropShadow.offsetY = -5;  // changed, never invalidated
    Document reference;
    reference.width = 50;
    reference.height = 40;
    reference.layers = doc->layers;
    const Surface want = FlatCopy(reference, 0, Matte::None);
    variant == 2 ? FlattenLayers(*doc) : MergeDown(*doc, 1);
    ASSERT_EQ(doc->LayerCount(), 1);
    if (variant < 2) {
      EXPECT_FALSE(AnyEffectOn(doc->layers[0]));
      EXPECT_FALSE(doc->layers[0].under || doc->layers[0].over || doc->layers[0].styled);
    }
    EXPECT_TRUE(SamePixels(doc->layers[0].pixels, want)) << "variant " << variant;
    EXPECT_TRUE(SamePixels(FlatCopy(*doc, 0, Matte::None), want)) << "variant " << variant;
  }
}

// ---- the Properties and Effects dialog's changes

TEST(LayerPropertiesSessions, PreviewShowsCancelRestoresAndOkIsOneStep) {
  auto doc = CreateDocument(40, 30, 72, 0xFFFFFFFF, 0);
  doc->layers.push_back(Square(40, 30, 10, 8, 25, 20));
  doc->layers[1].effects.stroke.on = true;
  auto flat = [&] { return FlatCopy(*doc, 0, Matte::None); };
  // The layer has these properties and the canvas shows this picture.
  auto shows = [&](const LayerProperties& p, const Surface& picture) {
    return PropertiesOf(doc->layers[1]) == p && SamePixels(flat(), picture);
  };
  const Surface before = flat();
  const LayerProperties original = PropertiesOf(doc->layers[1]);
  LayerProperties changed = original;
  changed.name = u"Shadowed";
  changed.opacity = 128;
  changed.blendMode = kBlendScreen;
  changed.effects.dropShadow.on = true;
  changed.effects.stroke.thickness = 7;

  LayerPropertiesSession cancelled(*doc, 1);
  ASSERT_TRUE(cancelled.Valid());
  cancelled.Preview(changed);
  EXPECT_EQ(PropertiesOf(doc->layers[1]), changed);
  EXPECT_FALSE(SamePixels(flat(), before));
  cancelled.Cancel();
  EXPECT_TRUE(shows(original, before));
  LayerPropertiesSession unchanged(*doc, 1);
  unchanged.Preview(original);
  EXPECT_FALSE(unchanged.Commit());
  EXPECT_EQ(doc->history.states.size(), 0u);

  LayerPropertiesSession ok(*doc, 1);
  LayerProperties halfway = changed;
  halfway.effects.bevel.on = true;
  ok.Preview(halfway);
  ok.Preview(changed);
  const Surface shown = flat();
  EXPECT_TRUE(ok.Commit());
  EXPECT_EQ(UndoLabel(*doc), u"Layer Properties");
  EXPECT_EQ(doc->history.states.size(), 1u);
  EXPECT_TRUE(shows(changed, shown));
  ASSERT_TRUE(Undo(*doc));
  EXPECT_TRUE(shows(original, before));
  ASSERT_TRUE(Redo(*doc));
  EXPECT_TRUE(shows(changed, shown));

  EXPECT_FALSE(LayerPropertiesSession(*doc, 2).Valid());
}

// ---- the parameter table and the remembered defaults

TEST(EffectParameters, TableMatchesTheModelAndRoundTrips) {
  const LayerEffects defaults;
  std::vector<std::string_view> keys;
  for (const EffectParam& p : EffectParams()) {
    EXPECT_EQ(p.get(defaults), p.fallback) << p.key;  // one set of defaults
    EXPECT_TRUE(p.key.starts_with(EffectGroupAt(p.group).key)) << p.key;
    EXPECT_LE(p.minimum, p.fallback);
    EXPECT_GE(p.maximum, p.fallback);
    keys.push_back(p.key);
    LayerEffects e;
    for (int32_t v : {p.minimum, p.maximum}) {
      p.set(e, v);
      EXPECT_EQ(p.get(e), v) << p.key;
      bool outOfRange = false;
      EXPECT_EQ(ParseEffectValue(p, Utf8ToUtf16(FormatEffectValue(p, v)), outOfRange), v) << p.key;
    }
    EXPECT_EQ(FindEffectParam(p.key), &p);
  }
  std::sort(keys.begin(), keys.end());
  EXPECT_EQ(std::adjacent_find(keys.begin(), keys.end()), keys.end());
  for (int32_t g = 0; g < kEffectGroupCount; ++g) {
    LayerEffects e;
    SetEffectOn(e, g, true);
    EXPECT_TRUE(EffectOn(e, g));
    Layer l(1, 1, u"x");
    l.effects = e;
    EXPECT_TRUE(AnyEffectOn(l));
  }

  const struct {
    const char* key;
    const char16_t* text;
    std::optional<int32_t> value;
    bool outOfRange;
  } values[] = {
      {"stroke.position", u"inside", kStrokeInside, false}, {"stroke.position", u"2", 2, false},
      {"stroke.position", u"3", std::nullopt, true},        {"stroke.position", u"middle", std::nullopt, false},
      {"shadow.color", u"#ff8000", 0xFF8000, false},         {"shadow.color", u"FF80", std::nullopt, false},
      {"shadow.x", u"-40", -40, false},                      {"shadow.blur", u"501", std::nullopt, true},
      {"shadow.blur", u"2.5", std::nullopt, false},          {"overlay.blend", u"linear-dodge", kBlendLinearDodge, false},
  };
  for (const auto& row : values) {
    bool outOfRange = false;
    EXPECT_EQ(ParseEffectValue(*FindEffectParam(row.key), row.text, outOfRange), row.value) << row.key;
    EXPECT_EQ(outOfRange, row.outOfRange) << row.key;
  }
}

TEST(EffectParameters, NewLayerDefaultsAreTheLastValuesWithEveryEffectOff) {
  testing_support::TempDir dir;
  SettingsStore store;
  store.Open(dir.path(), {[](const std::filesystem::path&) { return true; },
                          []() -> std::optional<std::filesystem::path> { return std::nullopt; }});
  EXPECT_EQ(LoadEffectDefaults(store.Snapshot()), LayerEffects{});  // nothing remembered yet

  LayerEffects chosen;
  chosen.stroke = {.on = true, .color = 0x00AA11, .opacity = 40, .thickness = 12, .smoothness = 0,
                   .position = kStrokeCenter};
  chosen.dropShadow.offsetX = -30;
  chosen.bevel.angle = -45;
  chosen.bloom.glow = kBloomLayerColors;
  SaveEffectDefaults(store, chosen);
  LayerEffects want = chosen;
  want.stroke.on = false;
  EXPECT_EQ(LoadEffectDefaults(store.Snapshot()), want);
  EXPECT_EQ(store.GetString(kEffectDefaultsSection, u"StrokeColor"), u"00AA11");
  EXPECT_EQ(store.GetString(kEffectDefaultsSection, u"StrokePosition"), u"1");

  // Hand-edited values: held to their ranges, unreadable colours ignored.
  store.SetString(kEffectDefaultsSection, u"StrokeThickness", u"9000");
  store.SetString(kEffectDefaultsSection, u"StrokeColor", u"green");
  store.SetString(kEffectDefaultsSection, u"StrokeOn", u"1");
  const LayerEffects read = LoadEffectDefaults(store.Snapshot());
  EXPECT_EQ(read.stroke.thickness, 500);
  EXPECT_EQ(read.stroke.color, StrokeEffect{}.color);
  EXPECT_FALSE(read.stroke.on);
}

}  // namespace
}  // namespace tavora
