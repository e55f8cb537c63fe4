#include "processing/inpaint.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "document/composite.h"
#include "document/history.h"
#include "processing/adjustments.h"
#include "processing/filters.h"

namespace tavora {
namespace {

constexpr int32_t kHalf = 3;  // patches are 7 x 7
constexpr int32_t kSide = 2 * kHalf + 1;
constexpr int32_t kPatchValues = kSide * kSide * 4;
// The pyramid stops once the hole is about this thick (pixels): there the
// onion peel's smooth guess is close enough for patches to find their way.
constexpr int32_t kCoarsestThickness = 12;
// Rounds of search and vote: many where they are cheap, few at full size.
constexpr int32_t kCoarsestRounds = 8, kMiddleRounds = 4, kFinestRounds = 2;
// In the vote a patch weighs exp(-d / 2σ²), d its mean squared difference
// per value and σ² this share of all the patches' d (at least kMinSpread):
// good matches dominate without a single one deciding.
constexpr double kSpreadPercentile = 0.75;
constexpr double kMinSpread = 9.0;
// And 1.3 to the power of how much nearer the hole's border its centre is
// than the pixel it votes for: the border is what is known for sure.
constexpr double kBorderTrust = 1.3;
constexpr uint16_t kFar = 65535;
constexpr int32_t kTargetsPerCheck = 256;  // between looks at the cancel flag

enum : uint8_t { kHole = 1, kSource = 2, kTarget = 4 };

// Chamfer distances (3 per step, 4 per diagonal step) to the nearest seed
// (a 0), in place; other entries start at kFar and saturate there.
void Chamfer(std::vector<uint16_t>& d, int32_t w, int32_t h) {
  auto relax = [&d](std::size_t i, std::size_t j, uint32_t step) {
    const uint32_t v = uint32_t(d[j]) + step;
    if (v < d[i]) d[i] = uint16_t(v);
  };
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const std::size_t i = std::size_t(y) * w + x;
      if (x > 0) relax(i, i - 1, 3);
      if (y > 0) {
        relax(i, i - w, 3);
        if (x > 0) relax(i, i - w - 1, 4);
        if (x + 1 < w) relax(i, i - w + 1, 4);
      }
    }
  for (int32_t y = h - 1; y >= 0; --y)
    for (int32_t x = w - 1; x >= 0; --x) {
      const std::size_t i = std::size_t(y) * w + x;
      if (x + 1 < w) relax(i, i + 1, 3);
      if (y + 1 < h) {
        relax(i, i + w, 3);
        if (x + 1 < w) relax(i, i + w + 1, 4);
        if (x > 0) relax(i, i + w - 1, 4);
      }
    }
}

// One level of the pyramid. Slots number the pixels that take part: first
// the target patches' centres (every centre whose patch meets the hole), in
// pixel order, then the hole pixels too near the edge to be centres.
struct Level {
  int32_t w = 0, h = 0;
  std::vector<uint8_t> rgba;  // premultiplied; in the hole, the current estimate
  std::vector<uint8_t> flags;
  std::vector<int32_t> slot;    // per pixel, -1 for none
  std::vector<int32_t> where;   // per slot: its pixel
  std::vector<uint16_t> depth;  // per slot: chamfer distance into the hole (0 outside it)
  std::vector<int32_t> match;   // per target: the source centre's pixel, -1 before the first
  std::vector<int32_t> cost;
  std::vector<int32_t> sources;
  int32_t targets = 0;
  uint16_t maxDepth = 0;
};

// Flags, slots and sources of a level whose rgba and kHole flags are set.
// band: how far (chamfer units) from the hole a source may lie.
void Prepare(Level& l, uint32_t band) {
  const int32_t w = l.w, h = l.h;
  const std::size_t n = std::size_t(w) * h;
  std::vector<uint16_t> inside(n), outside(n);
  for (std::size_t i = 0; i < n; ++i) {
    const bool hole = l.flags[i] & kHole;
    inside[i] = hole ? kFar : 0;
    outside[i] = hole ? 0 : kFar;
  }
  Chamfer(inside, w, h);
  Chamfer(outside, w, h);
  // Hole pixels within each patch: a running count along rows, then columns.
  std::vector<uint8_t> across(n), count(n);
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t* f = &l.flags[std::size_t(y) * w];
    for (int32_t x = kHalf; x + kHalf < w; ++x) {
      int32_t c = 0;
      for (int32_t k = -kHalf; k <= kHalf; ++k) c += f[x + k] & kHole;
      across[std::size_t(y) * w + x] = uint8_t(c);
    }
  }
  for (int32_t y = kHalf; y + kHalf < h; ++y)
    for (int32_t x = kHalf; x + kHalf < w; ++x) {
      int32_t c = 0;
      for (int32_t k = -kHalf; k <= kHalf; ++k) c += across[std::size_t(y + k) * w + x];
      count[std::size_t(y) * w + x] = uint8_t(c);
    }
  l.slot.assign(n, -1);
  l.where.clear();
  l.sources.clear();
  l.maxDepth = 0;
  for (int32_t y = kHalf; y + kHalf < h; ++y)
    for (int32_t x = kHalf; x + kHalf < w; ++x) {
      const std::size_t i = std::size_t(y) * w + x;
      if (count[i]) {
        l.flags[i] |= kTarget;
        l.slot[i] = int32_t(l.where.size());
        l.where.push_back(int32_t(i));
      } else if (outside[i] <= band) {
        l.flags[i] |= kSource;
        l.sources.push_back(int32_t(i));
      }
    }
  l.targets = int32_t(l.where.size());
  for (std::size_t i = 0; i < n; ++i)
    if ((l.flags[i] & kHole) && l.slot[i] < 0) {
      l.slot[i] = int32_t(l.where.size());
      l.where.push_back(int32_t(i));
    }
  l.depth.resize(l.where.size());
  for (std::size_t s = 0; s < l.where.size(); ++s) {
    l.depth[s] = inside[std::size_t(l.where[s])];
    l.maxDepth = std::max(l.maxDepth, l.depth[s]);
  }
  l.match.assign(std::size_t(l.targets), -1);
  l.cost.assign(std::size_t(l.targets), INT32_MAX);
}

// The next level up: half the size, each pixel the mean of its known
// children, and hole where any child is.
Level Shrink(const Level& f) {
  Level c;
  c.w = (f.w + 1) / 2;
  c.h = (f.h + 1) / 2;
  const std::size_t n = std::size_t(c.w) * c.h;
  c.rgba.assign(4 * n, 0);
  c.flags.assign(n, 0);
  for (int32_t y = 0; y < c.h; ++y)
    for (int32_t x = 0; x < c.w; ++x) {
      uint32_t sum[4] = {}, known = 0;
      bool hole = false;
      for (int32_t dy = 0; dy < 2; ++dy)
        for (int32_t dx = 0; dx < 2; ++dx) {
          const int32_t fx = 2 * x + dx, fy = 2 * y + dy;
          if (fx >= f.w || fy >= f.h) continue;
          const std::size_t i = std::size_t(fy) * f.w + fx;
          if (f.flags[i] & kHole) {
            hole = true;
            continue;
          }
          for (int k = 0; k < 4; ++k) sum[k] += f.rgba[4 * i + k];
          ++known;
        }
      const std::size_t i = std::size_t(y) * c.w + x;
      if (known)
        for (int k = 0; k < 4; ++k) c.rgba[4 * i + k] = uint8_t((sum[k] + known / 2) / known);
      c.flags[i] = hole ? kHole : 0;
    }
  return c;
}

// Sum of squared differences of the 7 x 7 patches centred on pixels a and
// b; stops adding once it reaches `bound`.
int32_t Distance(const Level& l, int32_t a, int32_t b, int32_t bound) {
  const std::size_t stride = 4 * std::size_t(l.w);
  const uint8_t* pa = &l.rgba[4 * std::size_t(a - kHalf * l.w - kHalf)];
  const uint8_t* pb = &l.rgba[4 * std::size_t(b - kHalf * l.w - kHalf)];
  int32_t d = 0;
  for (int32_t row = 0; row < kSide; ++row, pa += stride, pb += stride) {
    for (int32_t k = 0; k < 4 * kSide; ++k) {
      const int32_t e = int32_t(pa[k]) - int32_t(pb[k]);
      d += e * e;
    }
    if (d >= bound) return d;
  }
  return d;
}

class Random {
 public:
  explicit Random(uint32_t seed) : state_(seed | 1) {}
  uint32_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 17;
    state_ ^= state_ << 5;
    return state_;
  }
  int32_t Between(int32_t lo, int32_t hi) { return lo + int32_t(Next() % uint32_t(hi - lo + 1)); }

 private:
  uint32_t state_;
};

// Rounds of PatchMatch over the targets: each first re-measures its match
// against the current estimate, then tries its neighbours' matches moved
// by one pixel and random sources in a shrinking square. False once cancelled.
bool Search(Level& l, int32_t passes, Random& rng, Progress* progress) {
  const int32_t w = l.w, h = l.h;
  const int32_t widest = std::max(w, h);
  auto consider = [&](int32_t t, int32_t c, int32_t s) {
    if (s == l.match[t] || !(l.flags[std::size_t(s)] & kSource)) return;
    const int32_t d = Distance(l, c, s, l.cost[t]);
    if (d < l.cost[t]) {
      l.cost[t] = d;
      l.match[t] = s;
    }
  };
  for (int32_t pass = 0; pass < passes; ++pass) {
    const bool forward = pass % 2 == 0;
    const int32_t step = forward ? 1 : -1;
    for (int32_t k = 0; k < l.targets; ++k) {
      if (k % kTargetsPerCheck == 0 && StopRequested(progress)) return false;
      const int32_t t = forward ? k : l.targets - 1 - k;
      const int32_t c = l.where[t];
      if (l.match[t] < 0) l.match[t] = l.sources[rng.Next() % l.sources.size()];
      l.cost[t] = Distance(l, c, l.match[t], INT32_MAX);
      // Propagation: the neighbours met before this one in the scan, their
      // matches moved by the step between them.
      for (const auto& [dx, dy] : {std::pair{step, 0}, std::pair{0, step}}) {
        const int32_t nt = l.slot[std::size_t(c - dy * w - dx)];
        if (nt < 0 || nt >= l.targets || l.match[nt] < 0) continue;
        const int32_t sx = l.match[nt] % w + dx, sy = l.match[nt] / w + dy;
        if (sx < kHalf || sy < kHalf || sx + kHalf >= w || sy + kHalf >= h) continue;
        consider(t, c, sy * w + sx);
      }
      // Random search around the best so far, in halving squares.
      for (int32_t radius = widest; radius >= 1; radius /= 2) {
        const int32_t bx = l.match[t] % w, by = l.match[t] / w;
        const int32_t sx = std::clamp(bx + rng.Between(-radius, radius), kHalf, w - 1 - kHalf);
        const int32_t sy = std::clamp(by + rng.Between(-radius, radius), kHalf, h - 1 - kHalf);
        consider(t, c, sy * w + sx);
      }
    }
  }
  return true;
}

// Each hole pixel becomes the weighted mean of what the matched patches
// covering it hold there.
void Vote(Level& l) {
  const int32_t w = l.w;
  std::vector<int32_t> sorted;
  sorted.reserve(std::size_t(l.targets));
  for (int32_t t = 0; t < l.targets; ++t)
    if (l.match[t] >= 0) sorted.push_back(l.cost[t]);
  if (sorted.empty()) return;
  const std::size_t at = std::size_t(double(sorted.size() - 1) * kSpreadPercentile);
  std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(at), sorted.end());
  const double spread = std::max(double(sorted[at]) / kPatchValues, kMinSpread);
  // The border's trust by the difference of depths (chamfer units, 3 per pixel).
  constexpr int32_t kTrustRange = 32;
  double trust[2 * kTrustRange + 1];
  for (int32_t i = -kTrustRange; i <= kTrustRange; ++i)
    trust[i + kTrustRange] = std::pow(kBorderTrust, -i / 3.0);

  std::vector<float> sums(5 * l.where.size(), 0.0f);
  for (int32_t t = 0; t < l.targets; ++t) {
    const int32_t s = l.match[t];
    if (s < 0) continue;
    const int32_t c = l.where[t];
    const double weight = std::exp(-double(l.cost[t]) / kPatchValues / (2 * spread));
    for (int32_t dy = -kHalf; dy <= kHalf; ++dy)
      for (int32_t dx = -kHalf; dx <= kHalf; ++dx) {
        const int32_t q = c + dy * w + dx;
        if (!(l.flags[std::size_t(q)] & kHole)) continue;
        const int32_t slot = l.slot[std::size_t(q)];
        const int32_t gap =
            std::clamp(int32_t(l.depth[t]) - int32_t(l.depth[slot]), -kTrustRange, kTrustRange);
        const float v = float(weight * trust[gap + kTrustRange]);
        const uint8_t* from = &l.rgba[4 * std::size_t(s + dy * w + dx)];
        float* sum = &sums[5 * std::size_t(slot)];
        for (int k = 0; k < 4; ++k) sum[k] += v * from[k];
        sum[4] += v;
      }
  }
  for (std::size_t slot = 0; slot < l.where.size(); ++slot) {
    const float* sum = &sums[5 * slot];
    const int32_t q = l.where[slot];
    if (!(l.flags[std::size_t(q)] & kHole) || !(sum[4] > 0)) continue;
    for (int k = 0; k < 4; ++k)
      l.rgba[4 * std::size_t(q) + k] = uint8_t(std::clamp(std::lround(sum[k] / sum[4]), 0L, 255L));
  }
}

// The first guess at the top of the pyramid: hole pixels in order of depth,
// each the mean of its neighbours that are known or already guessed.
void OnionPeel(Level& l) {
  std::vector<int32_t> order;
  for (std::size_t s = 0; s < l.where.size(); ++s)
    if (l.flags[std::size_t(l.where[s])] & kHole) order.push_back(int32_t(s));
  std::stable_sort(order.begin(), order.end(), [&](int32_t a, int32_t b) { return l.depth[a] < l.depth[b]; });
  std::vector<uint8_t> done(std::size_t(l.w) * l.h);
  for (std::size_t i = 0; i < done.size(); ++i) done[i] = !(l.flags[i] & kHole);
  for (const int32_t s : order) {
    const int32_t q = l.where[s], x = q % l.w, y = q / l.w;
    uint32_t sum[4] = {}, count = 0;
    for (int32_t dy = -1; dy <= 1; ++dy)
      for (int32_t dx = -1; dx <= 1; ++dx) {
        const int32_t nx = x + dx, ny = y + dy;
        if ((!dx && !dy) || nx < 0 || ny < 0 || nx >= l.w || ny >= l.h) continue;
        const std::size_t n = std::size_t(ny) * l.w + nx;
        if (!done[n]) continue;
        for (int k = 0; k < 4; ++k) sum[k] += l.rgba[4 * n + k];
        ++count;
      }
    if (count)
      for (int k = 0; k < 4; ++k) l.rgba[4 * std::size_t(q) + k] = uint8_t((sum[k] + count / 2) / count);
    done[std::size_t(q)] = 1;
  }
}

// A finer level's start from the coarser one's result: the hole takes the
// coarse estimate, each target the coarse match scaled up (or a source
// near it, or a random one).
void Inherit(Level& fine, const Level& coarse, Random& rng) {
  for (std::size_t s = 0; s < fine.where.size(); ++s) {
    const int32_t q = fine.where[s];
    if (!(fine.flags[std::size_t(q)] & kHole)) continue;
    const int32_t cx = std::min((q % fine.w) / 2, coarse.w - 1),
                  cy = std::min((q / fine.w) / 2, coarse.h - 1);
    std::memcpy(&fine.rgba[4 * std::size_t(q)], &coarse.rgba[4 * (std::size_t(cy) * coarse.w + cx)], 4);
  }
  for (int32_t t = 0; t < fine.targets; ++t) {
    const int32_t q = fine.where[t], x = q % fine.w, y = q / fine.w;
    const int32_t cx = std::min(x / 2, coarse.w - 1), cy = std::min(y / 2, coarse.h - 1);
    const int32_t ct = coarse.slot[std::size_t(cy) * coarse.w + cx];
    int32_t found = -1;
    if (ct >= 0 && ct < coarse.targets && coarse.match[ct] >= 0) {
      const int32_t m = coarse.match[ct];
      const int32_t bx = 2 * (m % coarse.w) + (x & 1), by = 2 * (m / coarse.w) + (y & 1);
      for (int32_t r = 0; r <= 2 && found < 0; ++r)
        for (int32_t dy = -r; dy <= r && found < 0; ++dy)
          for (int32_t dx = -r; dx <= r; ++dx) {
            const int32_t sx = bx + dx, sy = by + dy;
            if (sx < kHalf || sy < kHalf || sx + kHalf >= fine.w || sy + kHalf >= fine.h) continue;
            if (fine.flags[std::size_t(sy) * fine.w + sx] & kSource) {
              found = sy * fine.w + sx;
              break;
            }
          }
    }
    fine.match[t] = found >= 0 ? found : fine.sources[rng.Next() % fine.sources.size()];
  }
}

}  // namespace

bool InpaintPixels(uint32_t* pixels, const uint8_t* hole, int32_t width, int32_t height, Progress* progress) {
  if (width < 1 || height < 1) return false;
  const std::size_t n = std::size_t(width) * height;
  std::vector<Level> levels(1);
  levels.reserve(32);  // more than any pyramid has: `base` stays valid
  Level& base = levels[0];
  base.w = width;
  base.h = height;
  base.rgba.resize(4 * n);
  base.flags.resize(n);
  bool anyKnown = false, anyHole = false;
  for (std::size_t i = 0; i < n; ++i) {
    uint32_t p = pixels[i];
    Premultiply(&p, 1);
    std::memcpy(&base.rgba[4 * i], &p, 4);
    base.flags[i] = hole[i] ? kHole : 0;
    anyKnown |= !hole[i];
    anyHole |= hole[i] != 0;
  }
  if (!anyKnown) return false;
  if (!anyHole) return true;

  // How thick the hole is, from the largest distance into it; sources lie
  // within twice that of it (and never less than a few patches).
  std::vector<uint16_t> inside(n);
  for (std::size_t i = 0; i < n; ++i) inside[i] = hole[i] ? kFar : 0;
  Chamfer(inside, width, height);
  const int32_t thickness = 2 * (*std::max_element(inside.begin(), inside.end()) + 2) / 3;
  inside = {};
  const uint32_t band = 3 * uint32_t(std::min(2 * thickness + 4 * kSide, 20000));
  Prepare(base, band);

  // The pyramid, as long as the hole is thick and every level still has
  // sources to copy from.
  for (int32_t k = 1; (thickness >> (k - 1)) > kCoarsestThickness; ++k) {
    const Level& f = levels.back();
    if (f.w < 4 * kSide || f.h < 4 * kSide) break;
    Level c = Shrink(f);
    Prepare(c, std::max<uint32_t>(band >> k, 3 * 2 * kSide));
    if (c.sources.empty() || c.targets == 0) break;
    levels.push_back(std::move(c));
  }

  Level& top = levels.back();
  OnionPeel(top);
  if (!base.sources.empty() && base.targets > 0) {
    const int32_t count = int32_t(levels.size());
    auto rounds = [&](int32_t k) {
      return k == count - 1 ? kCoarsestRounds : k == 0 ? kFinestRounds : kMiddleRounds;
    };
    if (progress) {
      int64_t total = 0;
      for (int32_t k = 0; k < count; ++k) total += int64_t(rounds(k)) * levels[std::size_t(k)].targets;
      progress->AddTotal(total);
    }
    Random rng(0x6D2B79F5u);
    for (int32_t k = count - 1; k >= 0; --k) {
      Level& l = levels[std::size_t(k)];
      if (k < count - 1) Inherit(l, levels[std::size_t(k) + 1], rng);
      for (int32_t round = 0; round < rounds(k); ++round) {
        if (!Search(l, 2, rng, progress)) return false;
        Vote(l);
        if (progress) progress->Advance(l.targets);
      }
    }
  } else if (StopRequested(progress)) {
    return false;
  }

  for (std::size_t i = 0; i < n; ++i) {
    if (!hole[i]) continue;
    uint32_t p;
    std::memcpy(&p, &base.rgba[4 * i], 4);
    Unpremultiply(&p, 1);
    pixels[i] = p;
  }
  return true;
}

namespace {

// The maximum over x - r .. x + r of a line of bytes, cut at its ends.
void LineMaximum(const uint8_t* in, uint8_t* out, int32_t n, int32_t r, std::vector<uint8_t>& scratch) {
  // Prefix and suffix maxima within blocks of 2r + 1 (van Herk / Gil-Werman).
  const int32_t k = 2 * r + 1, padded = n + 2 * r;
  scratch.assign(3 * std::size_t(padded), 0);
  uint8_t* v = scratch.data();
  uint8_t* g = v + padded;
  uint8_t* s = g + padded;
  std::memcpy(v + r, in, std::size_t(n));
  for (int32_t p = 0; p < padded; ++p) g[p] = p % k ? std::max(g[p - 1], v[p]) : v[p];
  for (int32_t p = padded - 1; p >= 0; --p)
    s[p] = (p + 1) % k && p + 1 < padded ? std::max(s[p + 1], v[p]) : v[p];
  for (int32_t x = 0; x < n; ++x) out[x] = std::max(s[x], g[x + 2 * r]);
}

// The selection over `area` grown by a disc of radius r (offsets with
// dx² + dy² <= r²), grey levels kept, outside the canvas unselected.
std::vector<uint8_t> GrownCoverage(const Document& doc, const Rect& area, int32_t r) {
  const int32_t w = area.Width(), h = area.Height();
  std::vector<uint8_t> out(std::size_t(w) * h, 0);
  const SelectionMask& mask = *doc.selection;
  std::vector<uint8_t> scratch;
  std::vector<uint8_t> line(static_cast<std::size_t>(w)), grown(static_cast<std::size_t>(w));
  for (int32_t dy = -r; dy <= r; ++dy) {
    const int32_t half = int32_t(std::floor(std::sqrt(double(r) * r - double(dy) * dy)));
    for (int32_t y = 0; y < h; ++y) {
      const int32_t sy = area.y0 + y + dy;
      if (sy < 0 || sy >= mask.Height()) continue;
      const uint8_t* row = mask.Row(sy);
      for (int32_t x = 0; x < w; ++x) {
        const int32_t sx = area.x0 + x;
        line[std::size_t(x)] = sx >= 0 && sx < mask.Width() ? row[sx] : 0;
      }
      if (half > 0) LineMaximum(line.data(), grown.data(), w, half, scratch);
      else grown = line;
      uint8_t* o = &out[std::size_t(y) * w];
      for (int32_t x = 0; x < w; ++x) o[x] = std::max(o[x], grown[std::size_t(x)]);
    }
  }
  return out;
}

}  // namespace

bool FillFromSurroundings(Document& doc, int32_t growBy) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer || !doc.selection) return false;
  Progress* progress = CurrentProgress();
  Surface& pixels = layer->pixels;
  const Rect canvas{0, 0, pixels.Width(), pixels.Height()};
  const int32_t grow = std::clamp(growBy, 0, kFillGrowMaximum);
  const Rect sel = doc.selectionBounds;
  const Rect area = Intersect({sel.x0 - grow, sel.y0 - grow, sel.x1 + grow, sel.y1 + grow}, canvas);
  if (area.Empty()) return false;
  const std::vector<uint8_t> coverage = GrownCoverage(doc, area, grow);
  if (std::all_of(coverage.begin(), coverage.end(), [](uint8_t c) { return c == 0; })) return false;

  // The neighbourhood the content may come from: the hole's thickness twice
  // over and a few patches, all round (measured on the area and its rim).
  const int32_t aw = area.Width() + 2, ah = area.Height() + 2;
  std::vector<uint16_t> inside(std::size_t(aw) * ah, 0);
  for (int32_t y = 0; y < area.Height(); ++y)
    for (int32_t x = 0; x < area.Width(); ++x)
      inside[std::size_t(y + 1) * aw + x + 1] = coverage[std::size_t(y) * area.Width() + x] ? kFar : 0;
  Chamfer(inside, aw, ah);
  const int32_t thickness = 2 * (*std::max_element(inside.begin(), inside.end()) + 2) / 3;
  const int32_t margin = std::min(2 * thickness + 4 * kSide + kHalf, 20000);
  const Rect region =
      Intersect({area.x0 - margin, area.y0 - margin, area.x1 + margin, area.y1 + margin}, canvas);

  const int32_t rw = region.Width(), rh = region.Height();
  std::vector<uint32_t> work(std::size_t(rw) * rh);
  std::vector<uint8_t> hole(work.size(), 0);
  for (int32_t y = 0; y < rh; ++y) {
    std::memcpy(&work[std::size_t(y) * rw], pixels.Row(region.y0 + y) + region.x0, std::size_t(rw) * 4);
    const int32_t ay = region.y0 + y - area.y0;
    if (ay < 0 || ay >= area.Height()) continue;
    for (int32_t x = std::max(0, area.x0 - region.x0); x < std::min(rw, area.x1 - region.x0); ++x)
      hole[std::size_t(y) * rw + x] = coverage[std::size_t(ay) * area.Width() + (region.x0 + x - area.x0)];
  }
  if (!InpaintPixels(work.data(), hole.data(), rw, rh, progress) || StopRequested(progress)) return false;

  BeginTiles(doc, doc.active, u"Fill from Surroundings");
  SaveTiles(doc, area);
  for (int32_t y = area.y0; y < area.y1; ++y) {
    uint32_t* row = pixels.Row(y);
    const uint8_t* cover = &coverage[std::size_t(y - area.y0) * area.Width()] - area.x0;
    const uint32_t* result = &work[std::size_t(y - region.y0) * rw] - region.x0;
    for (int32_t x = area.x0; x < area.x1; ++x) {
      if (cover[x] == 255) row[x] = result[x];
      else if (cover[x]) row[x] = LerpPixel(row[x], result[x], cover[x]);
    }
  }
  CommitTiles(doc);
  Invalidate(doc, doc.active, area);
  return true;
}

}  // namespace tavora
