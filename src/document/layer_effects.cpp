#include "document/layer_effects.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "document/blend.h"
#include "document/effect_params.h"
#include "document/effect_planes.h"

namespace tavora {
namespace {

constexpr double kPi = 3.14159265358979323846;
// The bevel's light comes from 30 degrees above the surface.
constexpr double kLightElevation = 30.0 * kPi / 180.0;
// Highlights and shadows of the bevel are laid at most this strongly.
constexpr double kBevelStrength = 0.75;

// The parameters as drawn: values outside the ranges the layered file
// keeps are held to them; a shadow with a negative blur is not drawn.
LayerEffects Drawable(const LayerEffects& in) {
  LayerEffects e = in;
  auto hold = [](int32_t& v, int32_t lo, int32_t hi) { v = std::clamp(v, lo, hi); };
  auto rgb = [](uint32_t& c) { c &= 0xFFFFFFu; };
  ShadowGlowEffect& ds = e.dropShadow;
  if (ds.size < 0) ds.on = false;
  hold(ds.size, 0, 500);
  rgb(ds.color);
  hold(ds.opacity, 0, 100);
  for (ShadowGlowEffect* g : {&e.outerGlow, &e.innerGlow}) {
    hold(g->size, 0, 500);
    rgb(g->color);
    hold(g->opacity, 0, 100);
    g->option = g->option != 0 ? kGlowFromCenter : kGlowFromEdges;
  }
  hold(e.bevel.depth, 0, 100);
  hold(e.bevel.size, 0, 200);
  hold(e.bevel.soften, 0, 100);
  e.bevel.direction = e.bevel.direction != 0 ? kBevelSunken : kBevelRaised;
  rgb(e.colorOverlay.color);
  hold(e.colorOverlay.opacity, 0, 100);
  hold(e.colorOverlay.blendMode, 0, kBlendModeCount - 1);
  GradientOverlayEffect& go = e.gradientOverlay;
  rgb(go.color1);
  rgb(go.color2);
  hold(go.opacity, 0, 100);
  hold(go.blendMode, 0, kBlendModeCount - 1);
  hold(go.style, 0, 4);
  rgb(e.stroke.color);
  hold(e.stroke.opacity, 0, 100);
  hold(e.stroke.thickness, 1, 500);
  hold(e.stroke.smoothness, 0, 100);
  hold(e.stroke.position, 0, 2);
  rgb(e.bloom.color);
  hold(e.bloom.spread, 1, 500);
  hold(e.bloom.intensity, 0, 300);
  hold(e.bloom.core, 0, 100);
  hold(e.bloom.softness, 0, 100);
  hold(e.bloom.glow, 0, 2);
  return e;
}

// The distances a stroke needs: up to its far edge plus half its ramp.
int32_t StrokeCap(const StrokeEffect& s) { return s.thickness + 1 + (s.smoothness + 1) / 2; }
BoxRadii BloomCoreRadii(int32_t spread) { return ReachRadii(std::max(1, spread / 4)); }

struct Needs {
  bool under = false, styled = false, over = false;
};

Needs NeedsOf(const LayerEffects& e) {
  Needs n;
  n.under = e.dropShadow.on || e.outerGlow.on || e.bloom.on;
  n.over = e.stroke.on && e.stroke.position != kStrokeInside;
  n.styled = e.innerGlow.on || e.bevel.on || e.colorOverlay.on || e.gradientOverlay.on ||
             (e.stroke.on && e.stroke.position == kStrokeInside);
  return n;
}

bool CacheFits(const std::unique_ptr<Surface>& cache, bool needed, int32_t w, int32_t h) {
  if (!needed) return !cache;
  return cache && cache->Width() == w && cache->Height() == h;
}

void KeepCache(std::unique_ptr<Surface>& cache, bool needed, int32_t w, int32_t h) {
  if (!needed) cache.reset();
  else if (!cache || cache->Width() != w || cache->Height() != h) cache = std::make_unique<Surface>(w, h);
}

inline uint32_t Opacity255(int32_t percent) { return uint32_t(percent * 255 + 50) / 100; }

// c moved toward k by t / 255, channel by channel; the alpha byte is dropped.
inline uint32_t MixRgb(uint32_t c, uint32_t k, uint32_t t) {
  if (t == 0) return c & 0xFFFFFFu;
  if (t == 255) return k & 0xFFFFFFu;
  uint32_t out = 0;
  for (int shift = 0; shift < 24; shift += 8) {
    const uint32_t a = (c >> shift) & 255, b = (k >> shift) & 255;
    out |= (((a * (255 - t) + b * t + 128) * 257) >> 16) << shift;
  }
  return out;
}

// The overlay colour s blended onto the layer's colour b by the mode's
// table, then mixed in by t / 255.
inline uint32_t BlendRgb(const uint8_t* table, uint32_t b, uint32_t s, uint32_t t) {
  uint32_t blended = 0;
  for (int shift = 0; shift < 24; shift += 8)
    blended |= uint32_t(table[((b >> shift) & 255) * 256 + ((s >> shift) & 255)]) << shift;
  return MixRgb(b, blended, t);
}

// The share (0..1) of the band [lo, hi] of signed distances that a pixel
// at signed distance s covers when its footprint is `ramp` wide; with no
// ramp the pixel's centre decides alone.
inline double BandCover(double s, double lo, double hi, double ramp) {
  if (ramp <= 0) return s > lo && s <= hi ? 1.0 : 0.0;
  const double a = std::max(s - ramp / 2, lo), b = std::min(s + ramp / 2, hi);
  return b > a ? std::min(1.0, (b - a) / ramp) : 0.0;
}

inline uint32_t Cover255(double cover) { return static_cast<uint32_t>(cover * 255.0 + 0.5); }

// What one render works from: the planes of the effects that are on, for
// the area being drawn.
struct Render {
  Layer* layer = nullptr;
  LayerEffects e;
  Needs needs;
  Rect canvas, area;

  Plane<uint8_t> shadow;  // blurred alpha, read at the pixel minus the offset
  int64_t shadowX = 0, shadowY = 0;
  Plane<uint8_t> outerGlow, innerGlow;  // blurred alpha, blurred inverse alpha
  Plane<uint8_t> bloomHalo, bloomCore;
  Plane<uint32_t> bloomColors;  // blurred premultiplied colours
  uint8_t bloomHaloAlpha[256] = {}, bloomCoreWeight[256] = {};
  uint32_t bloomCoreAlpha = 0;
  // The stroke's coverage of pixels outside the shape (by their distance to
  // the inside) and inside it (by their distance to the outside); and of
  // pixels next to the edge, for the side that has no plane.
  Plane<uint8_t> strokeIn, strokeOut;
  uint8_t coverOutsideNear = 0, coverInsideNear = 0;
  uint8_t shadowAlpha[256] = {}, outerAlpha[256] = {}, innerWeight[256] = {};
  Plane<uint16_t> bevelHeight;          // 0..65535 for 0..size pixels
  double lightX = 0, lightY = 0, lightZ = 0, bevelSlope = 0;
  uint32_t gradient[256] = {};
  double gradientCx = 0, gradientCy = 0, gradientUx = 0, gradientUy = 0, gradientScale = 1,
         gradientAngle = 0;
};

// The layer's alpha over `window` (inverted for the inner glow); past the
// canvas the layer is transparent.
Plane<uint8_t> AlphaPlane(const Layer& layer, const Rect& window, bool invert) {
  Plane<uint8_t> plane(window);
  const Rect canvas{0, 0, layer.Width(), layer.Height()};
  const uint8_t outside = invert ? 255 : 0;
  auto rows = [&](int first, int end) {
    for (int32_t y = window.y0 + first; y < window.y0 + end; ++y) {
      uint8_t* out = plane.Row(y);
      if (y < 0 || y >= canvas.y1) {
        std::fill(out, out + window.Width(), outside);
        continue;
      }
      // The part of the row on the canvas, empty when the window lies beside it.
      const int32_t x0 = std::clamp(0, window.x0, window.x1), x1 = std::clamp(canvas.x1, x0, window.x1);
      std::fill(out, out + (x0 - window.x0), outside);
      std::fill(out + (x1 - window.x0), out + window.Width(), outside);
      const uint32_t* src = layer.pixels.Row(y) + x0;
      uint8_t* dst = out + (x0 - window.x0);
      const uint32_t flip = invert ? 255 : 0;
      for (int32_t i = 0; i < x1 - x0; ++i) dst[i] = static_cast<uint8_t>((src[i] >> 24) ^ flip);
    }
  };
  ForEachSlice(window.Height(), int64_t(window.Width()) * window.Height(), rows);
  return plane;
}

// Premultiplied colours over `window`, transparent past the canvas.
Plane<uint32_t> ColorPlane(const Layer& layer, const Rect& window) {
  Plane<uint32_t> plane(window);
  auto rows = [&](int first, int end) {
    for (int32_t y = window.y0 + first; y < window.y0 + end; ++y) {
      uint32_t* out = plane.Row(y);
      for (int32_t x = window.x0; x < window.x1; ++x) {
        uint32_t p = 0;
        if (y >= 0 && y < layer.Height() && x >= 0 && x < layer.Width()) {
          const uint32_t s = layer.pixels.At(x, y), a = s >> 24;
          p = a << 24;
          for (int shift = 0; shift < 24; shift += 8) p |= Mul((s >> shift) & 255, a) << shift;
        }
        out[x - window.x0] = p;
      }
    }
  };
  ForEachSlice(window.Height(), int64_t(window.Width()) * window.Height(), rows);
  return plane;
}

void PrepareShadow(Render& r) {
  const ShadowGlowEffect& ds = r.e.dropShadow;
  const BoxRadii radii = GaussianRadii(static_cast<float>(ds.size));
  const Rect reach = Grow(r.canvas, radii.Reach());
  r.shadowX = ds.offsetX;
  r.shadowY = ds.offsetY;
  // The area moved against the offset, in 64 bits: a far offset moves it away entirely.
  const int64_t x0 = std::max<int64_t>(r.area.x0 - r.shadowX, reach.x0);
  const int64_t y0 = std::max<int64_t>(r.area.y0 - r.shadowY, reach.y0);
  const int64_t x1 = std::min<int64_t>(r.area.x1 - r.shadowX, reach.x1);
  const int64_t y1 = std::min<int64_t>(r.area.y1 - r.shadowY, reach.y1);
  if (x1 <= x0 || y1 <= y0) return;
  const Rect read{int32_t(x0), int32_t(y0), int32_t(x1), int32_t(y1)};
  r.shadow = AlphaPlane(*r.layer, Intersect(Grow(read, radii.Reach()), reach), false);
  BlurPlane(r.shadow, radii);
}

// A blurred (or inverted and blurred) alpha around the area.
Plane<uint8_t> BlurredAlpha(const Render& r, const BoxRadii& radii, bool invert) {
  const int32_t reach = radii.Reach();
  Plane<uint8_t> plane = AlphaPlane(*r.layer, Intersect(Grow(r.area, reach), Grow(r.canvas, reach)), invert);
  BlurPlane(plane, radii);
  return plane;
}

void PrepareBloom(Render& r) {
  const BloomEffect& b = r.e.bloom;
  const BoxRadii halo = GaussianRadii(static_cast<float>(b.spread));
  r.bloomHalo = BlurredAlpha(r, halo, false);
  r.bloomCore = BlurredAlpha(r, BloomCoreRadii(b.spread), false);
  if (b.glow != kBloomColor) {
    const int32_t reach = halo.Reach();
    r.bloomColors = ColorPlane(*r.layer, Intersect(Grow(r.area, reach), Grow(r.canvas, reach)));
    BlurPlane(r.bloomColors, halo);
  }
  // Softness bends the halo's fall-off: a tight glow at 0, a long one at 100.
  const double gamma = 1.5 - b.softness / 100.0;
  for (int i = 0; i < 256; ++i) {
    const double v = std::min(1.0, 2.0 * i / 255.0);
    const double a = std::min(1.0, std::pow(v, gamma) * b.intensity / 100.0);
    r.bloomHaloAlpha[i] = static_cast<uint8_t>(a * 255.0 + 0.5);
    r.bloomCoreWeight[i] = static_cast<uint8_t>(v * b.core / 100.0 * 255.0 + 0.5);
  }
  r.bloomCoreAlpha = static_cast<uint32_t>(std::min(255, b.intensity * 255 / 100));
}

void PrepareStroke(Render& r) {
  const StrokeEffect& s = r.e.stroke;
  const int32_t cap = StrokeCap(s);
  // The band of signed distances (outwards positive) the stroke covers. An
  // outside stroke reaches one pixel under the edge, to meet the layer's
  // soft rim; an inside one takes in all the rim outside the edge.
  const double t = s.thickness, ramp = s.smoothness;
  double lo = -1.0, hi = t;
  if (s.position == kStrokeCenter) lo = -t / 2, hi = t / 2;
  if (s.position == kStrokeInside) lo = -t, hi = 1e9;
  auto cover = [&](double signedDistance) { return static_cast<uint8_t>(Cover255(BandCover(signedDistance, lo, hi, ramp))); };
  // Coverage by squared distance, the last entry for beyond the cap; a
  // pixel's centre lies half a pixel past the edge it is next to.
  const std::size_t beyond = std::size_t(cap) * cap + 1;
  std::vector<uint8_t> table(beyond + 1);
  if (s.position != kStrokeInside) {
    for (std::size_t d2 = 0; d2 < beyond; ++d2) table[d2] = cover(std::sqrt(double(d2)) - 0.5);
    table[beyond] = cover(cap + 1.0);
    r.strokeIn = DistanceTable(r.layer->pixels, true, false, r.area, cap, table);
  }
  if (s.position != kStrokeOutside) {
    // Past the canvas the layer is transparent: outside the shape.
    for (std::size_t d2 = 0; d2 < beyond; ++d2) table[d2] = cover(0.5 - std::sqrt(double(d2)));
    table[beyond] = cover(-cap - 1.0);
    r.strokeOut = DistanceTable(r.layer->pixels, false, true, r.area, cap, table);
  }
  r.coverOutsideNear = cover(0.5);
  r.coverInsideNear = cover(-0.5);
}

void PrepareTables(Render& r) {
  const LayerEffects& e = r.e;
  const uint32_t shadow = Opacity255(e.dropShadow.opacity), outer = Opacity255(e.outerGlow.opacity),
                 inner = Opacity255(e.innerGlow.opacity);
  for (uint32_t v = 0; v < 256; ++v) {
    // The glows are twice the blurred alpha, so full on the edge itself.
    const uint32_t glow = std::min(255u, 2 * v);
    r.shadowAlpha[v] = static_cast<uint8_t>(Mul(v, shadow));
    r.outerAlpha[v] = static_cast<uint8_t>(Mul(glow, outer));
    r.innerWeight[v] = static_cast<uint8_t>(Mul(e.innerGlow.option == kGlowFromCenter ? 255 - glow : glow, inner));
  }
}

void PrepareBevel(Render& r) {
  const BevelEffect& b = r.e.bevel;
  if (b.size == 0 || b.depth == 0) return;
  // The height map is the alpha blurred over `size` pixels (a rounded rim:
  // half height on the edge, full height `size` pixels in), then softened;
  // sixteen bits keep wide bevels free of steps.
  const BoxRadii rim = ReachRadii(b.size), soften = ReachRadii(b.soften);
  const int32_t reach = rim.Reach() + soften.Reach();
  // One pixel more around the area for the slopes.
  const Rect window = Intersect(Grow(r.area, reach + 1), Grow(r.canvas, reach));
  r.bevelHeight = Plane<uint16_t>(window);
  auto rows = [&](int first, int end) {
    for (int32_t y = window.y0 + first; y < window.y0 + end; ++y) {
      uint16_t* h = r.bevelHeight.Row(y);
      for (int32_t x = window.x0; x < window.x1; ++x) {
        const bool on = y >= 0 && y < r.canvas.y1 && x >= 0 && x < r.canvas.x1;
        h[x - window.x0] = on ? static_cast<uint16_t>((r.layer->pixels.At(x, y) >> 24) * 257) : 0;
      }
    }
  };
  ForEachSlice(window.Height(), int64_t(window.Width()) * window.Height(), rows);
  BlurPlane(r.bevelHeight, rim);
  BlurPlane(r.bevelHeight, soften);
  const double angle = b.angle * kPi / 180.0;
  r.lightX = std::cos(angle) * std::cos(kLightElevation);
  r.lightY = -std::sin(angle) * std::cos(kLightElevation);
  r.lightZ = std::sin(kLightElevation);
  // Heights in pixels are the plane's value / 65535 x size; depth tilts them.
  r.bevelSlope = (b.direction == kBevelSunken ? -1.0 : 1.0) * b.depth / 25.0 * b.size / 65535.0;
}

void PrepareGradient(Render& r) {
  const GradientOverlayEffect& g = r.e.gradientOverlay;
  for (int i = 0; i < 256; ++i) {
    uint32_t c = 0;
    for (int shift = 0; shift < 24; shift += 8) {
      const int a = int((g.color1 >> shift) & 255), b = int((g.color2 >> shift) & 255);
      c |= uint32_t(a + ((b - a) * i + (b > a ? 127 : -127)) / 255) << shift;
    }
    r.gradient[i] = c;
  }
  // The gradient spans the canvas, whatever the layer holds, so a pixel's
  // colour never depends on other pixels.
  const double w = r.canvas.x1, h = r.canvas.y1;
  r.gradientCx = w / 2;
  r.gradientCy = h / 2;
  r.gradientAngle = std::fmod(double(g.angle), 360.0) * kPi / 180.0;
  r.gradientUx = std::cos(r.gradientAngle);
  r.gradientUy = -std::sin(r.gradientAngle);  // rows run downwards; 90 degrees points up
  // The distance at which the end colour is reached: the farthest corner.
  r.gradientScale = 0;
  for (const double px : {-w / 2, w / 2})
    for (const double py : {-h / 2, h / 2}) {
      const double along = px * r.gradientUx + py * r.gradientUy;
      const double across = -px * r.gradientUy + py * r.gradientUx;
      const double reach = g.style == kGradientRadial    ? std::hypot(px, py)
                           : g.style == kGradientDiamond ? std::fabs(along) + std::fabs(across)
                                                         : std::fabs(along);
      r.gradientScale = std::max(r.gradientScale, reach);
    }
  if (!(r.gradientScale > 0)) r.gradientScale = 1;
}

// Where pixel (x, y) lies along the gradient, 0 at the start colour.
double GradientPosition(const Render& r, int32_t x, int32_t y) {
  const double px = x + 0.5 - r.gradientCx, py = y + 0.5 - r.gradientCy;
  const double along = px * r.gradientUx + py * r.gradientUy;
  double t;
  switch (r.e.gradientOverlay.style) {
    case kGradientRadial: t = std::hypot(px, py) / r.gradientScale; break;
    case kGradientAngle: {
      double turn = (std::atan2(-py, px) - r.gradientAngle) / (2 * kPi);
      turn -= std::floor(turn);
      t = turn;
      break;
    }
    case kGradientReflected: t = std::fabs(along) / r.gradientScale; break;
    case kGradientDiamond: {
      const double across = -px * r.gradientUy + py * r.gradientUx;
      t = (std::fabs(along) + std::fabs(across)) / r.gradientScale;
      break;
    }
    default: t = (along / r.gradientScale + 1) / 2; break;
  }
  t = std::clamp(t, 0.0, 1.0);
  return r.e.gradientOverlay.reverse ? 1 - t : t;
}

uint32_t BloomPixel(const Render& r, int32_t x, int32_t y) {
  const BloomEffect& b = r.e.bloom;
  const uint32_t halo = r.bloomHaloAlpha[r.bloomHalo.At(x, y)];
  const uint32_t core = r.bloomCoreWeight[r.bloomCore.At(x, y)];
  if (halo == 0 && core == 0) return 0;
  uint32_t color = b.color;
  if (b.glow != kBloomColor) {
    const uint32_t q = r.bloomColors.At(x, y), a = q >> 24;
    if (a > 0) {
      uint32_t own = 0;
      for (int shift = 0; shift < 24; shift += 8)
        own |= std::min(255u, (((q >> shift) & 255) * 255 + a / 2) / a) << shift;
      if (b.glow == kBloomLayerColors) {
        color = own;
      } else {  // the layer's colours lit by the bloom colour (Screen)
        color = 0;
        for (int shift = 0; shift < 24; shift += 8) {
          const uint32_t l = (own >> shift) & 255, c = (b.color >> shift) & 255;
          color |= (l + c - Mul(l, c)) << shift;
        }
      }
    }
  }
  const uint32_t alpha = std::max(halo, Mul(core, r.bloomCoreAlpha));
  if (alpha == 0) return 0;
  return alpha << 24 | MixRgb(color, 0xFFFFFF, core);
}

void UnderRow(const Render& r, int32_t y, uint32_t* u) {
  const LayerEffects& e = r.e;
  const int32_t x0 = r.area.x0, n = r.area.Width();
  // The shadow, where its plane reaches this row; nothing elsewhere.
  int64_t from = x0, to = x0;
  if (e.dropShadow.on && !r.shadow.Empty()) {
    const Rect& s = r.shadow.Area();
    const int64_t sy = y - r.shadowY;
    if (sy >= s.y0 && sy < s.y1) {
      const uint8_t* row = r.shadow.Row(int32_t(sy));
      from = std::max<int64_t>(x0, s.x0 + r.shadowX);
      to = std::max(from, std::min<int64_t>(x0 + n, s.x1 + r.shadowX));
      const uint32_t color = e.dropShadow.color;
      for (int64_t x = from; x < to; ++x) {
        const uint32_t a = r.shadowAlpha[row[x - r.shadowX - s.x0]];
        u[x - x0] = a ? a << 24 | color : 0;
      }
    }
  }
  std::fill(u, u + (from - x0), 0u);
  std::fill(u + (to - x0), u + n, 0u);
  if (e.bloom.on) {
    for (int32_t i = 0; i < n; ++i)
      if (const uint32_t b = BloomPixel(r, x0 + i, y)) u[i] = Over(u[i], b);
  }
  if (e.outerGlow.on) {
    const uint8_t* g = r.outerGlow.Row(y) + (x0 - r.outerGlow.Area().x0);
    const uint32_t color = e.outerGlow.color;
    for (int32_t i = 0; i < n; ++i)
      if (const uint32_t a = r.outerAlpha[g[i]]) u[i] = Over(u[i], a << 24 | color);
  }
}

void StyledRow(const Render& r, int32_t y, const uint32_t* src, uint32_t* st) {
  const LayerEffects& e = r.e;
  const int32_t x0 = r.area.x0, n = r.area.Width();
  std::copy(src, src + n, st);
  if (e.gradientOverlay.on) {
    const uint8_t* table = BlendTable(e.gradientOverlay.blendMode);
    const uint32_t opacity = Opacity255(e.gradientOverlay.opacity);
    for (int32_t i = 0; i < n; ++i) {
      if (!(st[i] >> 24)) continue;
      const double t = GradientPosition(r, x0 + i, y);
      st[i] = (st[i] & 0xFF000000u) | BlendRgb(table, st[i], r.gradient[int(t * 255.0 + 0.5)], opacity);
    }
  }
  if (e.colorOverlay.on) {
    const uint8_t* table = BlendTable(e.colorOverlay.blendMode);
    const uint32_t opacity = Opacity255(e.colorOverlay.opacity), color = e.colorOverlay.color;
    for (int32_t i = 0; i < n; ++i)
      if (st[i] >> 24) st[i] = (st[i] & 0xFF000000u) | BlendRgb(table, st[i], color, opacity);
  }
  if (e.innerGlow.on) {
    const uint8_t* g = r.innerGlow.Row(y) + (x0 - r.innerGlow.Area().x0);
    const uint32_t color = e.innerGlow.color;
    for (int32_t i = 0; i < n; ++i)
      if (st[i] >> 24) st[i] = (st[i] & 0xFF000000u) | MixRgb(st[i], color, r.innerWeight[g[i]]);
  }
  if (e.stroke.on && e.stroke.position == kStrokeInside) {
    const uint8_t* inside = r.strokeOut.Row(y);
    const uint32_t opacity = Opacity255(e.stroke.opacity), color = e.stroke.color;
    for (int32_t i = 0; i < n; ++i) {
      const uint32_t a = st[i] >> 24;
      if (!a) continue;
      const uint32_t cover = a < 128 ? r.coverOutsideNear : inside[i];
      st[i] = (st[i] & 0xFF000000u) | MixRgb(st[i], color, Mul(cover, opacity));
    }
  }
  if (e.bevel.on && !r.bevelHeight.Empty()) {
    const Plane<uint16_t>& h = r.bevelHeight;
    auto height = [&](int32_t x, int32_t yy) -> double { return h.Area().Contains(x, yy) ? h.At(x, yy) : 0.0; };
    for (int32_t i = 0; i < n; ++i) {
      if (!(st[i] >> 24)) continue;
      const int32_t x = x0 + i;
      const double gx = (height(x + 1, y) - height(x - 1, y)) * 0.5 * r.bevelSlope;
      const double gy = (height(x, y + 1) - height(x, y - 1)) * 0.5 * r.bevelSlope;
      if (gx == 0 && gy == 0) continue;
      const double dot = (-gx * r.lightX - gy * r.lightY + r.lightZ) / std::sqrt(1 + gx * gx + gy * gy);
      // Lit against a flat surface: full highlight facing the light, full
      // shadow facing away from it.
      uint32_t color = st[i];
      if (dot > r.lightZ)
        color = MixRgb(color, 0xFFFFFF, Cover255(kBevelStrength * std::min(1.0, (dot - r.lightZ) / (1 - r.lightZ))));
      else
        color = MixRgb(color, 0, Cover255(kBevelStrength * std::min(1.0, (r.lightZ - dot) / (1 + r.lightZ))));
      st[i] = (st[i] & 0xFF000000u) | color;
    }
  }
}

// An outside or centred stroke. The outside one is drawn as if beneath the
// layer's rim: nothing over opaque pixels, and the layer's colour mixed in
// where the rim is partly transparent, so it meets a soft edge without a seam.
void OverRow(const Render& r, int32_t y, const uint32_t* own, uint32_t* o) {
  const StrokeEffect& s = r.e.stroke;
  const int32_t n = r.area.Width();
  const uint32_t opacity = Opacity255(s.opacity), color = s.color;
  const uint8_t* outside = r.strokeIn.Row(y);
  const uint8_t* inside = s.position == kStrokeCenter ? r.strokeOut.Row(y) : nullptr;
  for (int32_t i = 0; i < n; ++i) {
    const uint32_t a = own[i] >> 24;
    uint32_t cover;
    if (a < 128) cover = outside[i];
    else if (inside) cover = inside[i];
    else cover = a == 255 ? 0 : r.coverInsideNear;
    const uint32_t alpha = Mul(cover, opacity);
    if (!alpha) o[i] = 0;
    else if (inside) o[i] = alpha << 24 | color;
    else o[i] = alpha << 24 | MixRgb(color, own[i], a);
  }
}

void ComposeRows(int first, int end, void* context) {
  const Render& r = *static_cast<const Render*>(context);
  Layer& layer = *r.layer;
  const int32_t x0 = r.area.x0;
  for (int32_t y = r.area.y0 + first; y < r.area.y0 + end; ++y) {
    const uint32_t* src = layer.pixels.Row(y) + x0;
    if (r.needs.under) UnderRow(r, y, layer.under->Row(y) + x0);
    if (r.needs.styled) StyledRow(r, y, src, layer.styled->Row(y) + x0);
    if (r.needs.over) OverRow(r, y, r.needs.styled ? layer.styled->Row(y) + x0 : src, layer.over->Row(y) + x0);
  }
}

void Draw(Layer& layer, const LayerEffects& e, const Needs& needs, const Rect& area) {
  Render r;
  r.layer = &layer;
  r.e = e;
  r.needs = needs;
  r.canvas = {0, 0, layer.Width(), layer.Height()};
  r.area = area;
  if (e.dropShadow.on) PrepareShadow(r);
  if (e.outerGlow.on) r.outerGlow = BlurredAlpha(r, ReachRadii(e.outerGlow.size), false);
  if (e.innerGlow.on) r.innerGlow = BlurredAlpha(r, ReachRadii(e.innerGlow.size), true);
  if (e.bloom.on) PrepareBloom(r);
  if (e.stroke.on) PrepareStroke(r);
  if (e.bevel.on) PrepareBevel(r);
  if (e.gradientOverlay.on) PrepareGradient(r);
  PrepareTables(r);
  ForEachSlice(area.Height(), int64_t(area.Width()) * area.Height() * 4, &ComposeRows, &r);
}

}  // namespace

int64_t EffectReach(const LayerEffects& effects) {
  const LayerEffects e = Drawable(effects);
  int64_t reach = 0;
  auto take = [&](bool on, int64_t value) {
    if (on) reach = std::max(reach, value);
  };
  take(e.dropShadow.on, std::max(std::abs(int64_t{e.dropShadow.offsetX}), std::abs(int64_t{e.dropShadow.offsetY})) +
                            GaussianRadii(static_cast<float>(e.dropShadow.size)).Reach());
  take(e.outerGlow.on, e.outerGlow.size);
  take(e.innerGlow.on, e.innerGlow.size);
  take(e.bevel.on, int64_t{e.bevel.size} + e.bevel.soften + 1);
  take(e.stroke.on, StrokeCap(e.stroke));
  take(e.bloom.on, std::max(GaussianRadii(static_cast<float>(e.bloom.spread)).Reach(),
                            BloomCoreRadii(e.bloom.spread).Reach()));
  return reach;
}

bool EffectCachesStale(const Layer& layer) {
  if (!AnyEffectOn(layer) || layer.pixels.Empty())
    return layer.styled || layer.under || layer.over || layer.renderedEffects;
  if (layer.rebuildEffects || !layer.renderedEffects || *layer.renderedEffects != layer.effects) return true;
  const Needs n = NeedsOf(Drawable(layer.effects));
  const int32_t w = layer.Width(), h = layer.Height();
  return !CacheFits(layer.styled, n.styled, w, h) || !CacheFits(layer.under, n.under, w, h) ||
         !CacheFits(layer.over, n.over, w, h);
}

void RenderLayerEffects(Layer& layer) {
  if (!AnyEffectOn(layer) || layer.pixels.Empty()) {
    layer.DropEffectCaches();
    layer.effectsDirty = {};
    layer.rebuildEffects = false;
    return;
  }
  const Rect canvas{0, 0, layer.Width(), layer.Height()};
  Rect area = Intersect(layer.effectsDirty, canvas);
  const LayerEffects e = Drawable(layer.effects);
  const Needs needs = NeedsOf(e);
  if (EffectCachesStale(layer)) {
    area = canvas;
    KeepCache(layer.styled, needs.styled, canvas.x1, canvas.y1);
    KeepCache(layer.under, needs.under, canvas.x1, canvas.y1);
    KeepCache(layer.over, needs.over, canvas.x1, canvas.y1);
  }
  layer.effectsDirty = {};
  layer.rebuildEffects = false;
  layer.renderedEffects = layer.effects;
  if (!area.Empty()) Draw(layer, e, needs, area);
}

}  // namespace tavora
