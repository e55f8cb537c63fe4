#include "document/effect_planes.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "base/row_workers.h"

namespace tavora {

void ForEachSlice(int32_t count, int64_t work, void (*body)(int first, int end, void* context), void* context) {
  if (count <= 0) return;
  if (work < kEffectParallelWork) body(0, count, context);
  else RowWorkers::Run(count, body, context);
}

BoxRadii GaussianRadii(float radius) {
  // The same box widths as the Effects menu's Gaussian Blur, computed the
  // same way in single precision, so a radius means the same blur there
  // and here.
  BoxRadii out;
  if (!(radius >= 0.5f)) return out;
  const float sigma = std::max(0.4f, radius * 0.5f);
  int32_t w = static_cast<int32_t>(std::floor(std::sqrt(12.0f * sigma * sigma / 3.0f + 1.0f)));
  if (w % 2 == 0) --w;
  w = std::max(w, 1);
  const int32_t u = w + 2;
  const int32_t m = static_cast<int32_t>(
      (12.0f * sigma * sigma - 3.0f * w * w - 12.0f * w - 9.0f) / (-4.0f * w - 4.0f) + 0.5f);
  // m of the three boxes are w wide, the rest u, the narrow ones first.
  const int32_t narrow = std::clamp(m, 0, 3);
  for (int i = 0; i < 3; ++i) {
    const int32_t box = i < narrow ? w : u;
    out.r[i] = box > 2 ? (box - 1) / 2 : 0;
  }
  return out;
}

BoxRadii ReachRadii(int32_t reach) {
  BoxRadii out;
  reach = std::max(reach, 0);
  for (int i = 0; i < 3; ++i) out.r[i] = reach / 3 + (i < reach % 3 ? 1 : 0);
  return out;
}

namespace {

// x / n rounded down, exactly, for n <= 2048 and x < 2^27, by one multiply.
struct Divider {
  uint64_t m;
  explicit Divider(uint32_t n) : m(((uint64_t{1} << 38) + n - 1) / n) {}
  uint32_t operator()(uint32_t x) const { return static_cast<uint32_t>((x * m) >> 38); }
};

// The same for byte sums (x < 2^19, n <= 1001) in single precision, which
// vectorises: (x + 1/2) / n lies at least 1/(2n) from a whole number and
// the float product is within 2^-14 of it, so truncating is exact.
struct FloatDivider {
  static constexpr uint32_t kMaxCount = 1001;
  float inverse;
  explicit FloatDivider(uint32_t n) : inverse(1.0f / static_cast<float>(n)) {}
  uint32_t operator()(uint32_t x) const {
    return static_cast<uint32_t>(static_cast<int32_t>((static_cast<float>(static_cast<int32_t>(x)) + 0.5f) * inverse));
  }
};

// Whether two short runs of bytes are equal, eight at a time, without the
// cost of a call.
inline bool SameValues(const void* a, const void* b, std::size_t bytes) {
  const auto* p = static_cast<const unsigned char*>(a);
  const auto* q = static_cast<const unsigned char*>(b);
  uint64_t differ = 0;
  std::size_t i = 0;
  for (; i + 8 <= bytes; i += 8) {
    uint64_t u, v;
    std::memcpy(&u, p + i, 8);
    std::memcpy(&v, q + i, 8);
    differ |= u ^ v;
  }
  for (; i < bytes; ++i) differ |= uint64_t(p[i] ^ q[i]);
  return differ == 0;
}

template <typename T, int C>
inline uint32_t Channel(T v, int c) {
  if constexpr (C == 1) return v;
  else return (uint32_t(v) >> (8 * c)) & 255u;
}

template <typename T, int C>
struct BoxJob {
  T* pixels;  // read by the horizontal pass, written by the vertical one
  T* temp;
  int32_t width, height, radius;
};

// Each output is the average of the 2r + 1 values around it, rounded as
// (sum + r) / n, from running sums over the row with its ends repeated.
template <typename T, int C, typename Divide>
void BoxRows(int first, int end, void* context) {
  const auto& job = *static_cast<const BoxJob<T, C>*>(context);
  const int32_t w = job.width, r = job.radius;
  const uint32_t n = uint32_t(2 * r + 1);
  const Divide divide(n);
  const std::size_t len = std::size_t(w) + 2 * std::size_t(r) + 1;
  std::vector<uint32_t> prefix(len * C);
  std::vector<std::pair<int32_t, int32_t>> stretches;
  for (int y = first; y < end; ++y) {
    const T* in = job.pixels + std::size_t(y) * w;
    T* out = job.temp + std::size_t(y) * w;
    if constexpr (C == 1) {
      // Where the 2r + 1 values around a position are all equal their
      // average is that value, (v n + r) / n = v: only the stretches within
      // r of a change of value are computed, unless they are most of the row.
      std::copy(in, in + w, out);
      stretches.clear();
      int64_t covered = 0;
      constexpr int32_t kBlock = 32;
      for (int32_t x = 1; x < w && 2 * covered <= w;) {
        if (x + kBlock <= w && SameValues(in + x, in + x - 1, kBlock * sizeof(T))) {
          x += kBlock;
          continue;
        }
        if (in[x] != in[x - 1]) {
          const int32_t a = std::max(x - r, 0), b = std::min(x + r, w);  // outputs [a, b) see the change
          if (!stretches.empty() && stretches.back().second >= a) {
            covered += b - stretches.back().second;
            stretches.back().second = b;
          } else {
            stretches.emplace_back(a, b);
            covered += b - a;
          }
        }
        ++x;
      }
      if (2 * covered <= w) {
        for (const auto& [a, b] : stretches) {
          uint32_t sum = 0;
          for (int32_t k = a - r; k <= a + r; ++k) sum += in[std::clamp(k, 0, w - 1)];
          for (int32_t x = a; x < b; ++x) {
            out[x] = static_cast<T>(divide(sum + uint32_t(r)));
            sum += uint32_t(in[std::min(x + r + 1, w - 1)]) - uint32_t(in[std::max(x - r, 0)]);
          }
        }
        continue;
      }
    } else if (std::all_of(in + 1, in + w, [&](T v) { return v == in[0]; })) {
      std::fill(out, out + w, in[0]);
      continue;
    }
    for (int c = 0; c < C; ++c) {
      uint32_t* p = prefix.data() + std::size_t(c) * len;
      uint32_t sum = 0;
      std::size_t j = 0;
      p[j++] = 0;
      const uint32_t head = Channel<T, C>(in[0], c), tail = Channel<T, C>(in[w - 1], c);
      for (int32_t i = 0; i < r; ++i) p[j++] = sum += head;
      for (int32_t i = 0; i < w; ++i) p[j++] = sum += Channel<T, C>(in[i], c);
      for (int32_t i = 0; i < r; ++i) p[j++] = sum += tail;
    }
    const std::size_t span = 2 * std::size_t(r) + 1;
    if constexpr (C == 1) {
      const uint32_t* p = prefix.data();
      for (int32_t x = 0; x < w; ++x) out[x] = static_cast<T>(divide(p[x + span] - p[x] + uint32_t(r)));
    } else {
      for (int32_t x = 0; x < w; ++x) {
        uint32_t v = 0;
        for (int c = 0; c < C; ++c) {
          const uint32_t* p = prefix.data() + std::size_t(c) * len;
          v |= divide(p[x + span] - p[x] + uint32_t(r)) << (8 * c);
        }
        out[x] = static_cast<T>(v);
      }
    }
  }
}

// One running sum per column and channel, walking down the rows, so
// memory is read row by row. Taken in chunks of columns: where the row
// coming into the window equals the one leaving it, the sums stay and the
// next output is the same as this one, so it is copied.
template <typename T, int C, typename Divide>
void BoxColumns(int first, int end, void* context) {
  const auto& job = *static_cast<const BoxJob<T, C>*>(context);
  const int32_t w = job.width, h = job.height, r = job.radius;
  const Divide divide(uint32_t(2 * r + 1));
  constexpr int32_t kChunk = 64;
  const int32_t span = end - first;
  const int32_t chunks = (span + kChunk - 1) / kChunk;
  std::vector<uint32_t> sums(std::size_t(span) * C, 0);
  std::vector<uint8_t> same(std::size_t(chunks), 0);
  auto row = [&](int32_t y) { return job.temp + std::size_t(std::clamp(y, 0, h - 1)) * w + first; };
  auto add = [&](const T* src, uint32_t times, int32_t x0, int32_t x1) {
    for (int c = 0; c < C; ++c) {
      uint32_t* s = sums.data() + std::size_t(c) * span;
      for (int32_t x = x0; x < x1; ++x) s[x] += Channel<T, C>(src[x], c) * times;
    }
  };
  add(row(0), uint32_t(r) + 1, 0, span);
  for (int32_t i = 1; i <= r; ++i) add(row(i), 1, 0, span);
  for (int32_t y = 0; y < h; ++y) {
    T* out = job.pixels + std::size_t(y) * w + first;
    const T* in = row(y + r + 1);
    const T* outgoing = row(y - r);
    for (int32_t k = 0; k < chunks; ++k) {
      const int32_t x0 = k * kChunk, x1 = std::min(x0 + kChunk, span);
      if (same[std::size_t(k)]) {
        std::copy(out - w + x0, out - w + x1, out + x0);
      } else if constexpr (C == 1) {
        for (int32_t x = x0; x < x1; ++x) out[x] = static_cast<T>(divide(sums[x] + uint32_t(r)));
      } else {
        for (int32_t x = x0; x < x1; ++x) {
          uint32_t v = 0;
          for (int c = 0; c < C; ++c) v |= divide(sums[std::size_t(c) * span + x] + uint32_t(r)) << (8 * c);
          out[x] = static_cast<T>(v);
        }
      }
      same[std::size_t(k)] = SameValues(in + x0, outgoing + x0, std::size_t(x1 - x0) * sizeof(T));
      if (same[std::size_t(k)]) continue;
      for (int c = 0; c < C; ++c) {
        uint32_t* s = sums.data() + std::size_t(c) * span;
        for (int32_t x = x0; x < x1; ++x) s[x] += Channel<T, C>(in[x], c) - Channel<T, C>(outgoing[x], c);
      }
    }
  }
}

template <typename T, int C>
void Blur(Plane<T>& plane, const BoxRadii& radii) {
  const int32_t w = plane.Width(), h = plane.Height();
  if (w < 1 || h < 1 || radii.Reach() == 0) return;
  Plane<T> temp(plane.Area());
  const int64_t work = int64_t(w) * h * C;
  for (int32_t r : radii.r) {
    if (r < 1) continue;
    BoxJob<T, C> job{plane.Data(), temp.Data(), w, h, r};
    const bool bytes = sizeof(T) == 1 || C == 4;
    if (bytes && uint32_t(2 * r + 1) <= FloatDivider::kMaxCount) {
      ForEachSlice(h, work, &BoxRows<T, C, FloatDivider>, &job);
      ForEachSlice(w, work, &BoxColumns<T, C, FloatDivider>, &job);
    } else {
      ForEachSlice(h, work, &BoxRows<T, C, Divider>, &job);
      ForEachSlice(w, work, &BoxColumns<T, C, Divider>, &job);
    }
  }
}

}  // namespace

void BlurPlane(Plane<uint8_t>& plane, const BoxRadii& radii) { Blur<uint8_t, 1>(plane, radii); }
void BlurPlane(Plane<uint16_t>& plane, const BoxRadii& radii) { Blur<uint16_t, 1>(plane, radii); }
void BlurPlane(Plane<uint32_t>& plane, const BoxRadii& radii) { Blur<uint32_t, 4>(plane, radii); }

namespace {

// Up to this cap each distance is the plain minimum over the 2 cap + 1
// columns around it, which vectorises; beyond it the lower envelope of
// parabolas (Felzenszwalb and Huttenlocher) costs less.
constexpr int32_t kPlainRowCap = 24;
constexpr int32_t kNoSite = 1 << 30;  // above every real squared distance

// Where the sites come from and where the distances go.
struct DistanceJob {
  const Plane<uint8_t>* sites;  // or, when null, the sites are read from the pixels:
  const Surface* pixels;
  uint32_t flip;                // 0: alpha >= 128 is a site, 1: alpha < 128 is
  bool surroundings;            // the pixels' surroundings are sites too
  Rect window, target;
  int32_t cap;
  Plane<uint32_t>* squared;     // either the squared distances
  Plane<uint8_t>* mapped;       // or their entries in `table`
  const uint8_t* table;
};

// The vertical distance to the nearest site of the column, at most cap + 1
// (G is 8 bits when that fits, else 16): a sweep down, then one up.
template <typename G>
void ColumnDistances(const DistanceJob& job, Plane<G>& columns, int first, int end) {
  const Rect& w = job.window;
  const G far = static_cast<G>(job.cap + 1);
  const int32_t span = end - first;
  std::vector<uint8_t> fromPixels(job.sites ? 0 : std::size_t(span));
  for (int32_t y = w.y0; y < w.y1; ++y) {
    const uint8_t* s;
    if (job.sites) {
      s = job.sites->Row(y) + (w.x0 - job.sites->Area().x0) + first;
    } else {
      const uint32_t* p = job.pixels->Row(y) + w.x0 + first;
      for (int32_t x = 0; x < span; ++x) fromPixels[std::size_t(x)] = static_cast<uint8_t>((p[x] >> 31) ^ job.flip);
      s = fromPixels.data();
    }
    G* g = columns.Row(y) + first;
    // A site is 0; elsewhere one more than above, at most far.
    if (y == w.y0) {
      for (int32_t x = 0; x < span; ++x) g[x] = static_cast<G>(far & static_cast<G>(s[x] - 1u));
    } else {
      const G* above = columns.Row(y - 1) + first;
      for (int32_t x = 0; x < span; ++x) {
        const G down = std::min(static_cast<G>(above[x] + 1), far);
        g[x] = static_cast<G>(down & static_cast<G>(s[x] - 1u));
      }
    }
  }
  for (int32_t y = w.y1 - 2; y >= w.y0; --y) {
    G* g = columns.Row(y) + first;
    const G* below = columns.Row(y + 1) + first;
    for (int32_t x = 0; x < span; ++x) g[x] = std::min(g[x], static_cast<G>(below[x] + 1));
  }
}

// The lower envelope of the parabolas (x - q)^2 + f(q) over the columns
// with a site, evaluated at [from, from + count).
void EnvelopeRow(const int32_t* f, int32_t length, int32_t from, int32_t count, int32_t* d2,
                 std::vector<int32_t>& v, std::vector<double>& z) {
  v.resize(std::size_t(length));
  z.resize(std::size_t(length) + 1);
  int32_t k = -1;
  for (int32_t q = 0; q < length; ++q) {
    if (f[q] >= kNoSite) continue;
    const double fq = double(f[q]) + double(q) * q;
    double s = 0;
    while (k >= 0) {
      const int32_t p = v[std::size_t(k)];
      s = (fq - (double(f[p]) + double(p) * p)) / (2.0 * (q - p));
      if (s > z[std::size_t(k)]) break;
      --k;
    }
    ++k;
    v[std::size_t(k)] = q;
    z[std::size_t(k)] = k == 0 ? -1e300 : s;
    z[std::size_t(k) + 1] = 1e300;
  }
  if (k < 0) {
    for (int32_t i = 0; i < count; ++i) d2[i] = kNoSite;
    return;
  }
  int32_t j = 0;
  for (int32_t i = 0; i < count; ++i) {
    const int32_t x = from + i;
    while (z[std::size_t(j) + 1] < x) ++j;
    const int32_t p = v[std::size_t(j)];
    d2[i] = (x - p) * (x - p) + f[p];
  }
}

// Rows are taken in chunks: a chunk whose neighbourhood holds only sites
// is all 0 and one with none is all beyond the cap, so only the chunks an
// edge crosses are computed.
constexpr int32_t kRowChunk = 64;

template <typename G>
void RowDistances(const DistanceJob& job, const Plane<G>& columns, int first, int end) {
  const Rect& t = job.target;
  const Rect& w = job.window;
  const int32_t cap = job.cap, far = cap + 1;
  const int32_t tw = t.Width();
  const int32_t limit = cap * cap, beyond = limit + 1;
  // f over the target's columns grown by cap (index i is column t.x0 - cap + i);
  // columns outside the window hold no site.
  const int32_t length = tw + 2 * cap;
  std::vector<int32_t> f(static_cast<std::size_t>(length), kNoSite), d(static_cast<std::size_t>(tw));
  std::vector<int32_t> v;
  std::vector<double> z;
  const int32_t width = job.pixels ? job.pixels->Width() : 0, height = job.pixels ? job.pixels->Height() : 0;
  auto emit = [&](int32_t y, int32_t c0, int32_t c1) {
    if (job.squared) {
      uint32_t* out = job.squared->Row(y);
      for (int32_t i = c0; i < c1; ++i) out[i] = d[std::size_t(i)] <= limit ? uint32_t(d[std::size_t(i)]) : kFarAway;
    } else {
      uint8_t* out = job.mapped->Row(y);
      for (int32_t i = c0; i < c1; ++i) out[i] = job.table[d[std::size_t(i)]];
    }
  };
  auto fill = [&](int32_t y, int32_t c0, int32_t c1, int32_t value) {
    if (job.squared) std::fill(job.squared->Row(y) + c0, job.squared->Row(y) + c1, value <= limit ? uint32_t(value) : kFarAway);
    else std::fill(job.mapped->Row(y) + c0, job.mapped->Row(y) + c1, job.table[value]);
  };
  for (int32_t y = t.y0 + first; y < t.y0 + end; ++y) {
    const G* g = columns.Row(y);
    // Near the canvas's sides its surroundings may be nearer than any site.
    const bool rowNearSide = job.surroundings && (y < cap || y >= height - cap);
    bool built = false, enveloped = false;
    for (int32_t c0 = 0; c0 < tw; c0 += kRowChunk) {
      const int32_t c1 = std::min(c0 + kRowChunk, tw);
      // Target column i sees columns i - cap .. i + cap.
      const int32_t gx0 = t.x0 + c0 - cap, gx1 = t.x0 + c1 + cap;
      const int32_t a = std::max(gx0, w.x0), b = std::min(gx1, w.x1);
      const bool clipped = a > gx0 || b < gx1;
      G lowest = static_cast<G>(far), highest = 0;
      for (int32_t x = a; x < b; ++x) {
        lowest = std::min(lowest, g[x - w.x0]);
        highest = std::max(highest, g[x - w.x0]);
      }
      const bool nearSide = rowNearSide || (job.surroundings && (t.x0 + c0 < cap || t.x0 + c1 > width - cap));
      const bool allSites = !clipped && highest == 0 && a < b, noSite = lowest >= far;
      if (!nearSide && (allSites || noSite)) {
        fill(y, c0, c1, allSites ? 0 : beyond);
        continue;
      }
      int32_t* dc = d.data() + c0;
      if (allSites || noSite) {
        std::fill(dc, dc + (c1 - c0), allSites ? 0 : beyond);
      } else {
        if (!built) {  // f for the whole row, once a chunk needs it
          const int32_t from = std::max(w.x0, t.x0 - cap), to = std::min(w.x1, t.x1 + cap);
          int32_t* fw = f.data() + (from - (t.x0 - cap));
          const G* gw = g + (from - w.x0);
          for (int32_t i = 0; i < to - from; ++i) fw[i] = gw[i] < far ? int32_t(gw[i]) * gw[i] : kNoSite;
          built = true;
        }
        if (cap > kPlainRowCap) {
          if (!enveloped) EnvelopeRow(f.data(), length, cap, tw, d.data(), v, z);
          enveloped = true;
        } else {
          std::copy(f.begin() + cap + c0, f.begin() + cap + c1, dc);
          for (int32_t dx = 1; dx <= cap; ++dx) {
            const int32_t dd = dx * dx;
            const int32_t* left = f.data() + cap + c0 - dx;
            const int32_t* right = f.data() + cap + c0 + dx;
            for (int32_t i = 0; i < c1 - c0; ++i) dc[i] = std::min(dc[i], std::min(left[i], right[i]) + dd);
          }
        }
        for (int32_t i = 0; i < c1 - c0; ++i) dc[i] = std::min(dc[i], beyond);
      }
      if (nearSide) {
        // The nearest pixel past the canvas lies straight across its nearest side.
        const int32_t dy = std::min(y + 1, height - y);
        for (int32_t i = c0; i < c1; ++i) {
          const int32_t x = t.x0 + i;
          const int32_t side = std::min({x + 1, width - x, dy});
          if (side <= cap) d[std::size_t(i)] = std::min(d[std::size_t(i)], side * side);
        }
      }
      emit(y, c0, c1);
    }
  }
}

template <typename G>
void RunDistances(DistanceJob& job) {
  Plane<G> columns(job.window);
  struct Pass {
    DistanceJob* job;
    Plane<G>* columns;
  } pass{&job, &columns};
  if (!job.window.Empty()) {
    ForEachSlice(job.window.Width(), int64_t(job.window.Width()) * job.window.Height(),
                 [](int first, int end, void* c) {
                   auto& p = *static_cast<Pass*>(c);
                   ColumnDistances<G>(*p.job, *p.columns, first, end);
                 },
                 &pass);
  }
  const Rect& t = job.target;
  ForEachSlice(t.Height(), int64_t(t.Width()) * t.Height() * std::min(2 * job.cap + 1, 16),
               [](int first, int end, void* c) {
                 auto& p = *static_cast<Pass*>(c);
                 RowDistances<G>(*p.job, *p.columns, first, end);
               },
               &pass);
}

void Distances(DistanceJob& job) {
  if (job.target.Empty()) return;
  job.window = Intersect(job.window, Grow(job.target, job.cap));
  if (job.cap < 254) RunDistances<uint8_t>(job);  // cap + 2 still fits a byte
  else RunDistances<uint16_t>(job);
}

// Held within 4096: every squared distance then fits 31 bits.
int32_t DistanceCap(int32_t cap) { return std::clamp(cap, 0, 4096); }

}  // namespace

Plane<uint32_t> DistanceSquared(const Plane<uint8_t>& sites, const Rect& target, int32_t cap) {
  Plane<uint32_t> out(target);
  DistanceJob job{&sites, nullptr, 0, false, sites.Area(), target, DistanceCap(cap), &out, nullptr, nullptr};
  Distances(job);
  return out;
}

Plane<uint8_t> DistanceTable(const Surface& pixels, bool insideSites, bool surroundingsAreSites, const Rect& target,
                             int32_t cap, std::span<const uint8_t> table) {
  Plane<uint8_t> out(target);
  cap = DistanceCap(cap);
  if (table.size() < std::size_t(cap) * cap + 2) return out;
  DistanceJob job{nullptr, &pixels, insideSites ? 0u : 1u, surroundingsAreSites,
                  Rect{0, 0, pixels.Width(), pixels.Height()}, target, cap, nullptr, &out, table.data()};
  Distances(job);
  return out;
}

}  // namespace tavora
