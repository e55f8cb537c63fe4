#include "processing/lens_flare.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "base/row_workers.h"

namespace tavora {
namespace {

struct Rgb {
  float r = 0, g = 0, b = 0;
};

// Lengths are in flare units: a hundredth of the area's diagonal at size 100.
enum class GhostShape : uint8_t { Disc, Ring, Hexagon };
struct Ghost {
  float position;  // along the axis: 0 at the source, 1 at the area's centre, 2 mirrored
  float radius;
  GhostShape shape;
  Rgb color;
  float amount;
  float softness;  // of the rim, as a share of the radius
};

struct Lens {
  float coreRadius;
  Rgb glowColor;
  float glowRadius, glowAmount, hazeRadius, hazeAmount;
  float ringRadius, ringWidth, ringAmount;
  int32_t spikes;  // diffraction lines through the source
  float spikeLength, spikeWidth, spikeAmount, spikeAngle;
  int32_t rays;  // fainter lines of random length and angle
  float rayAmount;
  float anamorphic;  // a long horizontal streak (cylindrical optics), 0 for none
  Rgb anamorphicColor;
  std::span<const Ghost> ghosts;
};

using G = GhostShape;
// A long zoom has many air-glass surfaces: many ghosts, of mixed coatings.
constexpr Ghost kZoomGhosts[] = {{0.45f, 0.6f, G::Disc, {0.5f, 1.0f, 0.6f}, 0.10f, 0.4f},
                                 {0.62f, 1.4f, G::Ring, {0.7f, 0.5f, 1.0f}, 0.08f, 0.08f},
                                 {0.80f, 0.35f, G::Disc, {1.0f, 0.7f, 0.3f}, 0.14f, 0.5f},
                                 {1.10f, 2.6f, G::Disc, {0.3f, 0.6f, 1.0f}, 0.04f, 0.2f},
                                 {1.25f, 0.9f, G::Hexagon, {0.6f, 1.0f, 0.5f}, 0.08f, 0.1f},
                                 {1.45f, 0.25f, G::Disc, {1.0f, 0.5f, 0.8f}, 0.15f, 0.5f},
                                 {1.62f, 1.8f, G::Ring, {0.4f, 1.0f, 0.9f}, 0.06f, 0.06f},
                                 {1.85f, 1.1f, G::Hexagon, {1.0f, 0.6f, 0.3f}, 0.07f, 0.1f},
                                 {2.05f, 3.5f, G::Disc, {0.5f, 0.4f, 1.0f}, 0.03f, 0.3f},
                                 {2.30f, 0.7f, G::Disc, {0.4f, 1.0f, 0.4f}, 0.09f, 0.3f},
                                 {2.60f, 5.0f, G::Ring, {1.0f, 0.8f, 0.6f}, 0.035f, 0.04f}};
// A wide prime stopped down: few ghosts, in the shape of its six-blade aperture.
constexpr Ghost kPrime35Ghosts[] = {{0.55f, 0.5f, G::Hexagon, {1.0f, 0.55f, 0.3f}, 0.12f, 0.08f},
                                    {0.90f, 0.9f, G::Hexagon, {0.5f, 0.9f, 1.0f}, 0.07f, 0.08f},
                                    {1.30f, 0.3f, G::Disc, {0.6f, 1.0f, 0.5f}, 0.15f, 0.4f},
                                    {1.70f, 1.6f, G::Hexagon, {0.7f, 0.5f, 1.0f}, 0.05f, 0.06f},
                                    {2.20f, 0.6f, G::Hexagon, {1.0f, 0.8f, 0.4f}, 0.09f, 0.08f}};
// A long prime wide open: round, soft ghosts and a warm glow.
constexpr Ghost kPrime105Ghosts[] = {{0.70f, 1.2f, G::Disc, {1.0f, 0.75f, 0.5f}, 0.06f, 0.8f},
                                     {1.35f, 0.5f, G::Disc, {0.6f, 0.8f, 1.0f}, 0.10f, 0.6f},
                                     {1.80f, 2.2f, G::Disc, {0.9f, 0.6f, 1.0f}, 0.04f, 0.7f},
                                     {2.40f, 0.8f, G::Ring, {0.7f, 1.0f, 0.8f}, 0.06f, 0.2f}};
// Cinema glass: cool coatings, and the horizontal streak of anamorphic optics.
constexpr Ghost kMovieGhosts[] = {{0.50f, 0.4f, G::Disc, {0.4f, 0.7f, 1.0f}, 0.12f, 0.5f},
                                  {0.95f, 1.5f, G::Ring, {0.3f, 0.6f, 1.0f}, 0.07f, 0.08f},
                                  {1.40f, 0.7f, G::Disc, {0.5f, 0.9f, 1.0f}, 0.08f, 0.5f},
                                  {1.90f, 2.4f, G::Ring, {0.4f, 0.5f, 1.0f}, 0.05f, 0.06f},
                                  {2.30f, 0.35f, G::Disc, {0.7f, 0.8f, 1.0f}, 0.12f, 0.4f}};

constexpr Lens kLenses[] = {
    {.coreRadius = 0.5f, .glowColor = {1.0f, 0.85f, 0.65f}, .glowRadius = 2.4f, .glowAmount = 0.6f,
     .hazeRadius = 7.0f, .hazeAmount = 0.12f, .ringRadius = 7.5f, .ringWidth = 0.35f, .ringAmount = 0.12f,
     .spikes = 6, .spikeLength = 7.0f, .spikeWidth = 0.07f, .spikeAmount = 0.45f, .spikeAngle = 0.26f,
     .rays = 16, .rayAmount = 0.12f, .anamorphic = 0.0f, .anamorphicColor = {}, .ghosts = kZoomGhosts},
    {.coreRadius = 0.4f, .glowColor = {1.0f, 0.9f, 0.75f}, .glowRadius = 1.8f, .glowAmount = 0.5f,
     .hazeRadius = 5.0f, .hazeAmount = 0.1f, .ringRadius = 5.0f, .ringWidth = 0.25f, .ringAmount = 0.08f,
     .spikes = 6, .spikeLength = 10.0f, .spikeWidth = 0.06f, .spikeAmount = 0.7f, .spikeAngle = 0.0f,
     .rays = 24, .rayAmount = 0.16f, .anamorphic = 0.0f, .anamorphicColor = {}, .ghosts = kPrime35Ghosts},
    {.coreRadius = 0.6f, .glowColor = {1.0f, 0.8f, 0.55f}, .glowRadius = 3.2f, .glowAmount = 0.7f,
     .hazeRadius = 9.0f, .hazeAmount = 0.15f, .ringRadius = 10.0f, .ringWidth = 0.6f, .ringAmount = 0.1f,
     .spikes = 4, .spikeLength = 4.0f, .spikeWidth = 0.09f, .spikeAmount = 0.25f, .spikeAngle = 0.4f,
     .rays = 8, .rayAmount = 0.08f, .anamorphic = 0.0f, .anamorphicColor = {}, .ghosts = kPrime105Ghosts},
    {.coreRadius = 0.5f, .glowColor = {0.8f, 0.9f, 1.0f}, .glowRadius = 2.2f, .glowAmount = 0.55f,
     .hazeRadius = 7.0f, .hazeAmount = 0.1f, .ringRadius = 6.5f, .ringWidth = 0.3f, .ringAmount = 0.08f,
     .spikes = 4, .spikeLength = 5.0f, .spikeWidth = 0.06f, .spikeAmount = 0.3f, .spikeAngle = 0.0f,
     .rays = 8, .rayAmount = 0.08f, .anamorphic = 0.6f, .anamorphicColor = {0.35f, 0.6f, 1.0f},
     .ghosts = kMovieGhosts},
};
// The ghosts' amounts above are relative; this brings them to what a bright
// source makes.
constexpr float kGhostGain = 1.6f;

constexpr std::u16string_view kLensNames[] = {u"50-300mm zoom", u"35mm prime", u"105mm prime",
                                              u"Movie prime"};
static_assert(std::size(kLensNames) == std::size(kLenses));

// Below this (of full scale) an element adds nothing to an 8-bit channel.
constexpr float kCutoff = 0.4f / 255.0f;
constexpr int kTableSteps = 2048;

// An element with a radial profile: a table of the three channels over the
// distance from its centre (for a hexagon, the distance to the centre
// measured across its sides), cut where every channel is below kCutoff.
struct Radial {
  float cx = 0, cy = 0;
  bool hexagon = false;
  float reach = 0;           // the table's end
  float perStep = 0;         // table steps per pixel
  std::vector<float> table;  // r, g, b per step, one step past the end
};

template <typename Profile>
Radial MakeRadial(float cx, float cy, bool hexagon, float limit, Profile&& profile) {
  Radial e;
  e.cx = cx;
  e.cy = cy;
  e.hexagon = hexagon;
  // Find where the profile dies out, then tabulate up to there.
  float reach = 0;
  for (int i = kTableSteps; i >= 0; --i) {
    const float r = limit * i / kTableSteps;
    const Rgb v = profile(r);
    if (std::max({v.r, v.g, v.b}) >= kCutoff) {
      reach = std::min(limit, limit * (i + 1) / kTableSteps);
      break;
    }
  }
  e.reach = reach;
  if (reach <= 0) return e;
  e.perStep = kTableSteps / reach;
  e.table.resize(3 * (kTableSteps + 2));
  for (int i = 0; i <= kTableSteps + 1; ++i) {
    const Rgb v = i <= kTableSteps ? profile(reach * i / kTableSteps) : Rgb{};
    e.table[3 * i] = v.r;
    e.table[3 * i + 1] = v.g;
    e.table[3 * i + 2] = v.b;
  }
  return e;
}

// A straight streak through (cx, cy): exp(-|s| / length) along it, a
// Gaussian of the width across it.
struct Band {
  float cx = 0, cy = 0, ux = 1, uy = 0;
  float length = 1, width = 1, reachAlong = 0, reachAcross = 0;
  Rgb color;
};

Band MakeBand(float cx, float cy, float angle, float length, float width, Rgb color) {
  Band b;
  b.cx = cx;
  b.cy = cy;
  b.ux = std::cos(angle);
  b.uy = std::sin(angle);
  b.length = std::max(length, 0.5f);
  b.width = std::max(width, 0.35f);
  b.color = color;
  const float peak = std::max({color.r, color.g, color.b});
  if (peak > kCutoff) {
    b.reachAlong = b.length * std::log(peak / kCutoff);
    b.reachAcross = b.width * std::sqrt(std::log(peak / kCutoff));
  }
  return b;
}

float Smoothstep(float e0, float e1, float x) {
  const float t = std::clamp((x - e0) / (e1 - e0), 0.0f, 1.0f);
  return t * t * (3 - 2 * t);
}

struct Flare {
  std::vector<Radial> radials;
  std::vector<Band> bands;
};

Flare BuildFlare(const LensFlareParams& p, int32_t width, int32_t height) {
  const Lens& lens = kLenses[std::clamp(p.lens, 0, int32_t(std::size(kLenses)) - 1)];
  const float brightness = std::clamp(p.brightness, 0, 1000) / 100.0f;
  const float unit = std::clamp(p.size, 1, 1000) / 100.0f * std::hypot(float(width), float(height)) / 100.0f;
  // Far-off sources are held where the float arithmetic below stays exact enough.
  const float cx = std::clamp(p.centerX, -1e6f, 1e6f), cy = std::clamp(p.centerY, -1e6f, 1e6f);
  Flare f;

  // The source: core, glow, haze and the halo ring, whose rim is red
  // outside and blue inside (the glass disperses it).
  const float rc = std::max(lens.coreRadius * unit, 0.6f), rg = lens.glowRadius * unit,
              rh = lens.hazeRadius * unit;
  const float ring = lens.ringRadius * unit, ringWidth = std::max(lens.ringWidth * unit, 0.7f);
  const Rgb glow = lens.glowColor;
  f.radials.push_back(MakeRadial(cx, cy, false, 80 * unit + 4 * rc, [&](float r) {
    const float core = std::exp(-(r / rc) * (r / rc));
    const float g = lens.glowAmount * std::exp(-r / std::max(rg, 0.5f));
    const float q = 1 + (r / std::max(rh, 0.5f)) * (r / std::max(rh, 0.5f));
    const float haze = lens.hazeAmount / (q * q);
    auto halo = [&](float scale) {
      const float d = (r - ring * scale) / ringWidth;
      return lens.ringAmount * std::exp(-d * d);
    };
    return Rgb{brightness * (core + (g + haze) * glow.r + halo(1.025f)),
               brightness * (0.97f * core + (g + haze) * glow.g + halo(1.0f)),
               brightness * (0.92f * core + (g + haze) * glow.b + halo(0.975f))};
  }));

  // Diffraction: evenly spread spikes, then fainter rays of pseudo-random
  // angle and length (the same for every run).
  for (int32_t i = 0; i < lens.spikes; ++i) {
    const float angle = lens.spikeAngle + float(i) * std::numbers::pi_v<float> / float(lens.spikes);
    const float a = brightness * lens.spikeAmount;
    f.bands.push_back(MakeBand(cx, cy, angle, lens.spikeLength * unit, lens.spikeWidth * unit,
                               {a * glow.r, a * glow.g, a * glow.b}));
  }
  uint32_t state = 0x2545F491u + uint32_t(p.lens) * 0x9E3779B9u;
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return float(state & 0xFFFFFF) / float(0x1000000);
  };
  for (int32_t i = 0; i < lens.rays; ++i) {
    const float angle = next() * std::numbers::pi_v<float>;
    const float length = (0.3f + 0.7f * next()) * lens.spikeLength * unit;
    const float a = brightness * lens.rayAmount * (0.4f + 0.6f * next());
    f.bands.push_back(MakeBand(cx, cy, angle, length, 0.6f * lens.spikeWidth * unit, {a, a, a}));
  }
  if (lens.anamorphic > 0) {
    const float a = brightness * lens.anamorphic;
    const Rgb c = lens.anamorphicColor;
    f.bands.push_back(MakeBand(cx, cy, 0, 40 * unit, 0.12f * unit, {a * c.r, a * c.g, a * c.b}));
  }

  // Ghosts on the axis from the source through the centre.
  const float ax = (width - 1) / 2.0f - cx, ay = (height - 1) / 2.0f - cy;
  for (const Ghost& g : lens.ghosts) {
    const float radius = std::max(g.radius * unit, 0.75f);
    const float a = brightness * kGhostGain * g.amount;
    const Rgb c{a * g.color.r, a * g.color.g, a * g.color.b};
    const float gx = cx + g.position * ax, gy = cy + g.position * ay;
    if (g.shape == GhostShape::Ring) {
      const float w = std::max(g.softness * radius, 0.7f);
      f.radials.push_back(MakeRadial(gx, gy, false, radius + 4 * w, [&](float r) {
        const float d = (r - radius) / w, v = std::exp(-d * d);
        return Rgb{v * c.r, v * c.g, v * c.b};
      }));
    } else {
      // A disc (or the aperture's hexagon) a little brighter at its rim,
      // fading over its softness.
      const float soft = std::max(g.softness * radius, 0.7f);
      f.radials.push_back(MakeRadial(gx, gy, g.shape == GhostShape::Hexagon, radius + soft, [&](float r) {
        const float v = (0.75f + 0.25f * (r / radius) * (r / radius)) *
                        (1 - Smoothstep(radius - soft, radius + 0.5f * soft, r));
        return Rgb{v * c.r, v * c.g, v * c.b};
      }));
    }
  }
  return f;
}

// Narrows the x range [x0, x1) to where |a (x - origin) + b| <= c holds.
bool Constrain(float a, float b, float c, float origin, int32_t& x0, int32_t& x1) {
  if (std::fabs(a) < 1e-7f) return std::fabs(b) <= c;
  float lo = (-c - b) / a, hi = (c - b) / a;
  if (lo > hi) std::swap(lo, hi);
  x0 = std::max(x0, int32_t(std::clamp(std::ceil(lo + origin), -1.0f, 1e9f)));
  x1 = std::min(x1, int32_t(std::clamp(std::floor(hi + origin), -1.0f, 1e9f)) + 1);
  return x0 < x1;
}

struct FlareJob {
  uint32_t* pixels;
  int32_t width, height;
  const Flare* flare;
};

void FlareRows(int first, int end, void* context) {
  const FlareJob& j = *static_cast<const FlareJob*>(context);
  const int32_t w = j.width;
  std::vector<float> light(3 * std::size_t(w), 0.0f);
  constexpr float kHexagonCos = 0.866025404f;  // the hexagon's circumradius is its apothem over this
  for (int32_t y = first; y < end; ++y) {
    int32_t lit0 = w, lit1 = 0;
    const float py = float(y);
    for (const Radial& e : j.flare->radials) {
      if (e.reach <= 0) continue;
      const float dy = py - e.cy;
      const float outer = e.hexagon ? e.reach / kHexagonCos : e.reach;
      if (std::fabs(dy) >= outer) continue;
      const float half = std::sqrt(outer * outer - dy * dy);
      const int32_t x0 = int32_t(std::clamp(std::floor(e.cx - half), 0.0f, float(w)));
      const int32_t x1 = int32_t(std::clamp(std::ceil(e.cx + half) + 1, 0.0f, float(w)));
      if (x0 >= x1) continue;
      lit0 = std::min(lit0, x0);
      lit1 = std::max(lit1, x1);
      for (int32_t x = x0; x < x1; ++x) {
        const float dx = float(x) - e.cx;
        float r;
        if (e.hexagon) {
          // Flat sides facing up and down: the largest projection onto the three side normals.
          r = std::max({std::fabs(dy), std::fabs(0.5f * dy + kHexagonCos * dx),
                        std::fabs(0.5f * dy - kHexagonCos * dx)});
        } else {
          r = std::sqrt(dx * dx + dy * dy);
        }
        if (r >= e.reach) continue;
        const float s = r * e.perStep;
        const int32_t i = int32_t(s);
        const float t = s - float(i);
        const float* a = &e.table[3 * std::size_t(i)];
        float* out = &light[3 * std::size_t(x)];
        out[0] += a[0] + (a[3] - a[0]) * t;
        out[1] += a[1] + (a[4] - a[1]) * t;
        out[2] += a[2] + (a[5] - a[2]) * t;
      }
    }
    for (const Band& b : j.flare->bands) {
      if (b.reachAlong <= 0) continue;
      const float dy = py - b.cy;
      int32_t x0 = 0, x1 = w;
      // along = dx ux + dy uy, across = -dx uy + dy ux
      if (!Constrain(b.ux, dy * b.uy, b.reachAlong, b.cx, x0, x1)) continue;
      if (!Constrain(-b.uy, dy * b.ux, b.reachAcross, b.cx, x0, x1)) continue;
      lit0 = std::min(lit0, x0);
      lit1 = std::max(lit1, x1);
      const float inverseLength = 1 / b.length, inverseWidth = 1 / b.width;
      for (int32_t x = x0; x < x1; ++x) {
        const float dx = float(x) - b.cx;
        const float along = std::fabs(dx * b.ux + dy * b.uy) * inverseLength;
        const float across = (dy * b.ux - dx * b.uy) * inverseWidth;
        const float v = std::exp(-along - across * across);
        float* out = &light[3 * std::size_t(x)];
        out[0] += v * b.color.r;
        out[1] += v * b.color.g;
        out[2] += v * b.color.b;
      }
    }
    // Screen: each channel moves towards white by the light, at most all the way.
    uint32_t* row = j.pixels + std::size_t(y) * w;
    for (int32_t x = lit0; x < lit1; ++x) {
      float* l = &light[3 * std::size_t(x)];
      uint32_t px = row[x], out = px & 0xFF000000u;
      for (int c = 0; c < 3; ++c) {
        const int shift = 16 - 8 * c;
        const float v = float((px >> shift) & 255);
        const float lit = v + (255.0f - v) * std::min(l[c], 1.0f);
        out |= uint32_t(std::min(255.0f, lit + 0.5f)) << shift;
        l[c] = 0;
      }
      row[x] = out;
    }
  }
}

constexpr ParamRow kLensFlareRows[] = {{u"Center X:", -30000, 60000, 0, 0, RowKind::Edit},
                                       {u"Center Y:", -30000, 60000, 0, 0, RowKind::Edit},
                                       {u"Brightness (%):", 0, 300, 100, 0, RowKind::SquareSlider},
                                       {u"Size (%):", 10, 300, 100, 0, RowKind::SquareSlider}};

void PackLensFlare(const EffectValues& v, void* block) {
  *static_cast<LensFlareParams*>(block) = {float(v.rows[0]), float(v.rows[1]), int32_t(v.rows[2]),
                                           int32_t(v.rows[3]), v.choice};
}
static_assert(sizeof(LensFlareParams) <= 64 && alignof(LensFlareParams) <= 8);  // the dialogs' blocks

constexpr EffectDef kLensFlareEffect{u"Lens Flare",  u"Lens Flare",    kLensFlareRows, {}, &LensFlare,
                                     &PackLensFlare, MarginKind::None, true,           {}, {},
                                     u"Lens type:",  kLensNames,       u"lens-flare"};

}  // namespace

void LensFlare(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const LensFlareParams*>(params);
  if (p.brightness <= 0 || width < 1 || height < 1 || !std::isfinite(p.centerX) || !std::isfinite(p.centerY))
    return;
  const Flare flare = BuildFlare(p, width, height);
  FlareJob job{pixels, width, height, &flare};
  RowWorkers::Run(height, &FlareRows, &job);
}

std::span<const std::u16string_view> LensTypeNames() { return kLensNames; }

const EffectDef& LensFlareEffect() { return kLensFlareEffect; }

EffectValues LensFlareDefaultValues(int32_t width, int32_t height) {
  EffectValues v = DefaultValues(kLensFlareEffect);
  v.rows[0] = std::floor(width / 2.0);
  v.rows[1] = std::floor(height / 2.0);
  return v;
}

}  // namespace tavora
