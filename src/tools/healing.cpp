#include "tools/healing.h"

#include <algorithm>
#include <cmath>

namespace tavora {
namespace {

constexpr int32_t kRing = 5;  // the ring reaches this far from a painted pixel

// The painted byte at a layer position (0 outside the rectangle).
uint8_t PaintAt(const HealJob& job, int32_t x, int32_t y) {
  if (!job.rect.Contains(x, y)) return 0;
  return job.paint[std::size_t(y - job.rect.y0) * std::size_t(job.rect.Width()) + std::size_t(x - job.rect.x0)];
}

Rect Grown(const Rect& r, int32_t by, int32_t width, int32_t height) {
  return Intersect({r.x0 - by, r.y0 - by, r.x1 + by, r.y1 + by}, {0, 0, width, height});
}

struct Point {
  int32_t x, y;
};

// The ring: unpainted pixels within kRing of a painted one on both axes
// (a square neighbourhood), found with a separable running maximum.
void RingAndPainted(const HealJob& job, const Rect& work, std::vector<Point>& ring, std::vector<Point>& painted) {
  const int32_t w = work.Width(), h = work.Height();
  std::vector<uint8_t> rows(std::size_t(w) * h, 0), near(std::size_t(w) * h, 0);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      if (!PaintAt(job, work.x0 + x, work.y0 + y)) continue;
      for (int32_t i = std::max(0, x - kRing); i <= std::min(w - 1, x + kRing); ++i) rows[std::size_t(y) * w + i] = 1;
    }
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      if (!rows[std::size_t(y) * w + x]) continue;
      for (int32_t j = std::max(0, y - kRing); j <= std::min(h - 1, y + kRing); ++j) near[std::size_t(j) * w + x] = 1;
    }
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const int32_t px = work.x0 + x, py = work.y0 + y;
      if (PaintAt(job, px, py)) painted.push_back({px, py});
      else if (near[std::size_t(y) * w + x]) ring.push_back({px, py});
    }
}

struct Candidates {
  std::vector<Point> ring, painted;  // the samples
};

bool Inside(const PixelSource& s, int32_t x, int32_t y) { return x >= 0 && y >= 0 && x < s.width && y < s.height; }

// The residual texture mismatch of one offset; negative when it is not valid.
double Cost(const HealJob& job, const Candidates& c, int32_t dx, int32_t dy) {
  for (const Point& p : c.painted) {
    const int32_t x = p.x + dx, y = p.y + dy;
    if (!Inside(job.image, x, y) || PaintAt(job, x, y)) return -1;
  }
  double sum[3] = {0, 0, 0}, squares = 0;
  for (const Point& p : c.ring) {
    const int32_t x = p.x + dx, y = p.y + dy;
    if (!Inside(job.image, x, y)) return -1;
    const uint32_t t = job.image.At(p.x, p.y), s = job.image.At(x, y);
    for (int k = 0; k < 3; ++k) {
      const double d = double((t >> (16 - 8 * k)) & 255) - double((s >> (16 - 8 * k)) & 255);
      sum[k] += d;
      squares += d * d;
    }
  }
  // Sum of squares about the mean: a uniform colour shift costs nothing.
  const double n = static_cast<double>(c.ring.size());
  for (double s : sum) squares -= s * s / n;
  return std::max(squares, 0.0);
}

}  // namespace

std::optional<std::pair<int32_t, int32_t>> FindHealingSource(const HealJob& job) {
  const Rect work = Grown(job.rect, kRing, job.image.width, job.image.height);
  std::vector<Point> ring, painted;
  RingAndPainted(job, work, ring, painted);
  if (ring.size() < 8 || painted.empty()) return std::nullopt;
  Candidates c;
  const std::size_t k = ring.size() / 360 + 1, m = painted.size() / 200 + 1;
  for (std::size_t i = 0; i < ring.size(); i += k) c.ring.push_back(ring[i]);
  for (std::size_t i = 0; i < painted.size(); i += m) c.painted.push_back(painted[i]);
  const int32_t r = std::max(job.rect.Width(), job.rect.Height()) * 4 + 40;
  const int32_t step = std::max(r / 18, 1);
  double best = 1e30;
  std::optional<std::pair<int32_t, int32_t>> found;
  auto consider = [&](int32_t dx, int32_t dy) {
    const double cost = Cost(job, c, dx, dy);
    if (cost >= 0 && cost < best) {
      best = cost;
      found = {dx, dy};
    }
  };
  for (int32_t dy = -r; dy <= r; dy += step)
    for (int32_t dx = -r; dx <= r; dx += step)
      if (std::abs(dx) >= 5 || std::abs(dy) >= 5) consider(dx, dy);
  // A finer pass around the best offset of the grid, halving the step.
  for (int32_t s = step / 2; found && s >= 1; s /= 2) {
    const auto [bx, by] = *found;
    for (int32_t dy = by - s; dy <= by + s; dy += s)
      for (int32_t dx = bx - s; dx <= bx + s; dx += s)
        if (dx != bx || dy != by) consider(dx, dy);
  }
  return found;
}

std::vector<uint32_t> HealRegion(const HealJob& job) {
  const Rect& rect = job.rect;
  std::vector<uint32_t> out(std::size_t(rect.Width()) * std::size_t(rect.Height()));
  for (int32_t y = rect.y0; y < rect.y1; ++y)
    for (int32_t x = rect.x0; x < rect.x1; ++x)
      out[std::size_t(y - rect.y0) * rect.Width() + (x - rect.x0)] = job.image.At(x, y);
  if (rect.Empty()) return out;

  std::optional<std::pair<int32_t, int32_t>> offset;
  if (job.useOffset) offset = std::pair{job.offsetX, job.offsetY};
  else offset = FindHealingSource(job);

  // The membrane's area: the work area grown by one pixel.
  const Rect area = Grown(rect, kRing + 1, job.image.width, job.image.height);
  const int32_t w = area.Width(), h = area.Height();
  const std::size_t n = std::size_t(w) * h;
  auto source = [&](int32_t x, int32_t y) -> uint32_t {
    if (!offset) return 0;
    const int32_t sx = std::clamp(x + offset->first, 0, job.image.width - 1);
    const int32_t sy = std::clamp(y + offset->second, 0, job.image.height - 1);
    return job.image.At(sx, sy);
  };
  // The difference target - source per channel; painted pixels are unknown.
  std::vector<float> d(n * 3);
  std::vector<uint8_t> unknown(n, 0);
  std::vector<std::size_t> cells;
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const std::size_t i = std::size_t(y) * w + x;
      const uint32_t t = job.image.At(area.x0 + x, area.y0 + y), s = source(area.x0 + x, area.y0 + y);
      for (int k = 0; k < 3; ++k)
        d[i * 3 + k] = float((t >> (16 - 8 * k)) & 255) - float((s >> (16 - 8 * k)) & 255);
      if (PaintAt(job, area.x0 + x, area.y0 + y)) {
        unknown[i] = 1;
        cells.push_back(i);
      }
    }
  // Coarse start: each unknown takes the mean of the nearest known values
  // to its left, right, above and below, so the relaxation starts close.
  {
    std::vector<float> start(d);
    for (std::size_t i : cells) {
      const int32_t x = static_cast<int32_t>(i % w), y = static_cast<int32_t>(i / w);
      float sum[3] = {0, 0, 0};
      int found = 0;
      const int32_t dirs[4][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}};
      for (const auto& dir : dirs) {
        int32_t cx = x, cy = y;
        while (cx >= 0 && cy >= 0 && cx < w && cy < h && unknown[std::size_t(cy) * w + cx]) cx += dir[0], cy += dir[1];
        if (cx < 0 || cy < 0 || cx >= w || cy >= h) continue;
        for (int k = 0; k < 3; ++k) sum[k] += d[(std::size_t(cy) * w + cx) * 3 + k];
        ++found;
      }
      for (int k = 0; k < 3; ++k) start[i * 3 + k] = found ? sum[k] / found : 0.0f;
    }
    d.swap(start);
  }
  // Successive over-relaxation towards the mean of the 4 neighbours.
  const int32_t sweeps = std::min(std::max(w, h) / 2 + 60, 220);
  for (int32_t sweep = 0; sweep < sweeps; ++sweep)
    for (std::size_t i : cells) {
      const int32_t x = static_cast<int32_t>(i % w), y = static_cast<int32_t>(i / w);
      float sum[3] = {0, 0, 0};
      int count = 0;
      auto add = [&](std::size_t j) {
        for (int k = 0; k < 3; ++k) sum[k] += d[j * 3 + k];
        ++count;
      };
      if (x > 0) add(i - 1);
      if (x + 1 < w) add(i + 1);
      if (y > 0) add(i - w);
      if (y + 1 < h) add(i + w);
      if (!count) continue;
      for (int k = 0; k < 3; ++k) d[i * 3 + k] += 1.85f * (sum[k] / count - d[i * 3 + k]);
    }
  // Source plus difference, mixed into the start pixel by paint x amount.
  const double amount = std::clamp(job.amount, 1, 100) / 100.0;
  for (int32_t y = rect.y0; y < rect.y1; ++y)
    for (int32_t x = rect.x0; x < rect.x1; ++x) {
      const uint8_t paint = PaintAt(job, x, y);
      if (!paint) continue;
      const std::size_t i = std::size_t(y - area.y0) * w + (x - area.x0);
      const uint32_t start = job.image.At(x, y), s = source(x, y);
      const double weight = paint / 255.0 * amount;
      uint32_t healed = start & 0xFF000000u;
      for (int k = 0; k < 3; ++k) {
        const int shift = 16 - 8 * k;
        const double v = std::clamp(double((s >> shift) & 255) + d[i * 3 + k], 0.0, 255.0);
        const double mixed = ((start >> shift) & 255) * (1 - weight) + v * weight;
        healed |= static_cast<uint32_t>(mixed + 0.5) << shift;
      }
      out[std::size_t(y - rect.y0) * rect.Width() + (x - rect.x0)] = healed;
    }
  return out;
}

}  // namespace tavora
