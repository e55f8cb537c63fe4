#include "processing/filters.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "base/memory.h"
#include "base/progress.h"
#include "base/row_workers.h"
#include "processing/adjustments.h"

namespace tavora {
namespace {

using PixelBuffer = std::unique_ptr<uint32_t[], FreeDeleter>;

PixelBuffer NewPixels(std::size_t count) {
  return PixelBuffer(static_cast<uint32_t*>(CheckedAlloc(count * sizeof(uint32_t))));
}

// One moving average along `count` values read and written with a stride;
// T is the element type, `channels` how many byte channels each holds.
template <typename T, int channels>
void BoxLine(const T* in, T* out, int32_t count, std::ptrdiff_t stride, int32_t r) {
  const int32_t n = 2 * r + 1;
  for (int c = 0; c < channels; ++c) {
    const int shift = 8 * c;
    auto at = [&](int32_t i) -> uint32_t { return (uint32_t(in[std::ptrdiff_t(i) * stride]) >> shift) & 255; };
    uint32_t sum = uint32_t(r + 1) * at(0);
    for (int32_t i = 1; i <= r; ++i) sum += at(std::min(i, count - 1));
    for (int32_t x = 0; x < count; ++x) {
      const uint32_t v = (sum + uint32_t(r)) / uint32_t(n);
      T& o = out[std::ptrdiff_t(x) * stride];
      if (c == 0) o = T(v);
      else o = T(o | (v << shift));
      sum += at(std::min(x + r + 1, count - 1));
      sum -= at(std::max(x - r, 0));
    }
  }
}

template <typename T, int channels>
struct BoxJob {
  T* pixels;
  T* temp;
  int32_t width, height, radius;
};

template <typename T, int channels>
void BoxRows(int first, int end, void* context) {
  auto& job = *static_cast<BoxJob<T, channels>*>(context);
  for (int y = first; y < end; ++y)
    BoxLine<T, channels>(job.pixels + std::size_t(y) * job.width, job.temp + std::size_t(y) * job.width,
                         job.width, 1, job.radius);
}

// The vertical pass walks down the rows with one running sum per column
// and channel, so memory is read row by row rather than column by column.
template <typename T, int channels>
void BoxColumns(int first, int end, void* context) {
  auto& job = *static_cast<BoxJob<T, channels>*>(context);
  const int32_t w = job.width, h = job.height, r = job.radius, n = 2 * r + 1;
  const int32_t span = end - first;
  std::vector<uint32_t> sums(std::size_t(span) * channels, 0);
  auto row = [&](int32_t y) { return job.temp + std::size_t(std::clamp(y, 0, h - 1)) * w + first; };
  auto add = [&](const T* src, int32_t times, int sign) {
    for (int32_t x = 0; x < span; ++x)
      for (int c = 0; c < channels; ++c) {
        const uint32_t v = (uint32_t(src[x]) >> (8 * c)) & 255;
        uint32_t& s = sums[std::size_t(x) * channels + c];
        s = sign > 0 ? s + v * uint32_t(times) : s - v;
      }
  };
  add(row(0), r + 1, 1);
  for (int32_t i = 1; i <= r; ++i) add(row(i), 1, 1);
  for (int32_t y = 0; y < h; ++y) {
    T* out = job.pixels + std::size_t(y) * w + first;
    for (int32_t x = 0; x < span; ++x) {
      uint32_t v = 0;
      for (int c = 0; c < channels; ++c)
        v |= ((sums[std::size_t(x) * channels + c] + uint32_t(r)) / uint32_t(n)) << (8 * c);
      out[x] = T(v);
    }
    add(row(y + r + 1), 1, 1);
    add(row(y - r), 1, -1);
  }
}

template <typename T, int channels>
void BoxPass(T* pixels, int32_t width, int32_t height, int32_t radius) {
  if (radius < 1 || width < 1 || height < 1) return;
  std::unique_ptr<T[], FreeDeleter> temp(
      static_cast<T*>(CheckedAlloc(std::size_t(width) * std::size_t(height) * sizeof(T))));
  BoxJob<T, channels> job{pixels, temp.get(), width, height, radius};
  RowWorkers::Run(height, &BoxRows<T, channels>, &job);
  RowWorkers::Run(width, &BoxColumns<T, channels>, &job);
}

// The three box widths that approximate a Gaussian of this radius.
std::vector<int32_t> GaussianBoxes(float radius) {
  if (radius < 0.5f) return {};
  const float sigma = std::max(0.4f, radius * 0.5f);
  int32_t w = static_cast<int32_t>(std::floor(std::sqrt(12.0f * sigma * sigma / 3.0f + 1.0f)));
  if (w % 2 == 0) --w;
  w = std::max(w, 1);
  const int32_t u = w + 2;
  const int32_t m = static_cast<int32_t>(
      (12.0f * sigma * sigma - 3.0f * w * w - 12.0f * w - 9.0f) / (-4.0f * w - 4.0f) + 0.5f);
  if (m >= 3) return {w, w, w};
  if (m == 2) return {w, w, u};
  if (m == 1) return {w, u, u};
  return {u, u, u};
}

uint32_t Lum(uint32_t p) { return Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255); }

}  // namespace

void Premultiply(uint32_t* p, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const uint32_t a = p[i] >> 24;
    if (a == 255) continue;
    uint32_t out = a << 24;
    for (int shift = 0; shift < 24; shift += 8)
      out |= ((((p[i] >> shift) & 255) * a + 128) * 257 >> 16) << shift;
    p[i] = out;
  }
}

void Unpremultiply(uint32_t* p, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const uint32_t a = p[i] >> 24;
    if (a == 255) continue;
    if (a == 0) {
      p[i] = 0;
      continue;
    }
    uint32_t out = a << 24;
    for (int shift = 0; shift < 24; shift += 8)
      out |= std::min(255u, ((p[i] >> shift) & 255) * 255 / a) << shift;
    p[i] = out;
  }
}

void BoxBlurPass(uint32_t* pixels, int32_t width, int32_t height, int32_t radius) {
  BoxPass<uint32_t, 4>(pixels, width, height, radius);
}

void GaussianBlur(uint32_t* pixels, int32_t width, int32_t height, float radius) {
  const std::vector<int32_t> boxes = GaussianBoxes(radius);
  if (boxes.empty()) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  for (int32_t box : boxes)
    if (box > 2) BoxBlurPass(pixels, width, height, (box - 1) / 2);
  Unpremultiply(pixels, n);
}

void GaussianBlurBytes(uint8_t* bytes, int32_t width, int32_t height, float radius) {
  for (int32_t box : GaussianBoxes(radius))
    if (box > 2) BoxPass<uint8_t, 1>(bytes, width, height, (box - 1) / 2);
}

int32_t BlurMargin(float firstValue) {
  return static_cast<int32_t>(std::ceil(3.0f * std::max(firstValue, 0.0f))) + 2;
}

void Blur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const int32_t r = static_cast<int32_t>(static_cast<const BlurParams*>(params)->strength + 0.5f);
  if (r <= 0) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  BoxBlurPass(pixels, width, height, r);
  Unpremultiply(pixels, n);
}

void GaussianBlurOp(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  GaussianBlur(pixels, width, height, static_cast<const GaussianBlurParams*>(params)->radius);
}

namespace {

// Lens Blur, defined once:
// - the disc holds the offsets with dx² + dy² <= r², r the radius rounded to
//   whole pixels, and reads the image with clamp-to-edge;
// - a pixel weighs round(kLensUnit · (1 + glow · l³)), l the luminance of the
//   premultiplied pixel over 255, so highlights spread into bokeh discs;
// - each premultiplied channel is (S + T / 2) / T in whole numbers, S the
//   weighted sum over the disc and T the sum of the weights.
// Whole-number sums do not depend on the order they are taken in, so a disc
// is summed as one span of per-row prefix sums per disc row, and the rows
// can be split over threads without changing a pixel.
constexpr int64_t kLensUnit = 256;
// Far beyond the dialog's 60 and 20, these keep the band's memory modest and
// every span's sum below 2^32, so the prefix sums may wrap around in 32 bits:
// the difference of two entries is still exact.
constexpr float kLensMaxRadius = 250.0f;
constexpr float kLensMaxGlow = 100.0f;
static_assert((2 * 250 + 1) * 255 * kLensUnit * (1 + 100) < (int64_t{1} << 32));
static_assert(int64_t{2 * 250 + 1} * (2 * 250 + 1) * kLensUnit * (1 + 100) < (int64_t{1} << 33));
constexpr int kLensPlanes = 5;  // the four weighted channels, then the weight
// Output rows are made in blocks and chunks of pixels, so that a source
// row's chunk serves every row of the block while it is in the cache.
constexpr int32_t kLensBlock = 16;
constexpr int32_t kLensChunk = 128;

struct LensJob {
  const uint32_t* source;  // premultiplied
  uint32_t* out;
  int32_t width, height, radius;
  const uint32_t* weights;     // by luminance, 256 entries
  const int32_t* halfWidths;   // the disc's half-width at |dy|, r + 1 entries
  // After the span at dy (index dy + r) the 32-bit running sums are moved
  // into the 64-bit totals, before the next span could overflow them.
  const uint8_t* flushAfter;
  Progress* progress;
};

void LensRows(int first, int end, void* context) {
  const auto& j = *static_cast<const LensJob*>(context);
  const int32_t w = j.width, h = j.height, r = j.radius;
  // Each plane of a row: the prefix sums over the row padded with r copies
  // of its edge pixels on both sides.
  const std::size_t len = std::size_t(w) + 2 * std::size_t(r) + 1;
  // The source rows one block reads, kept for as long as it needs them; a
  // window this long never holds two rows with the same slot.
  const int32_t slots = std::min(2 * r + kLensBlock, h);
  std::vector<uint32_t> band(std::size_t(slots) * kLensPlanes * len);
  auto rowPlanes = [&](int32_t sy) { return band.data() + std::size_t(sy % slots) * kLensPlanes * len; };
  auto load = [&](int32_t sy) {
    const uint32_t* src = j.source + std::size_t(sy) * w;
    uint32_t* planes = rowPlanes(sy);
    uint32_t sums[kLensPlanes] = {};
    for (int c = 0; c < kLensPlanes; ++c) planes[c * len] = 0;
    for (int32_t i = 0; i < w + 2 * r; ++i) {
      const uint32_t q = src[std::clamp(i - r, 0, w - 1)];
      const uint32_t weight = j.weights[Lum(q)];
      for (int c = 0; c < 4; ++c) sums[c] += ((q >> (8 * c)) & 255) * weight;
      sums[4] += weight;
      for (int c = 0; c < kLensPlanes; ++c) planes[c * len + i + 1] = sums[c];
    }
  };
  std::vector<uint32_t> running(std::size_t(kLensBlock) * kLensPlanes * kLensChunk);
  std::vector<uint64_t> totals(running.size());
  int32_t loaded = -1;  // the last source row in the band
  for (int32_t y0 = first; y0 < end; y0 += kLensBlock) {
    if (StopRequested(j.progress)) return;
    const int32_t y1 = std::min(y0 + kLensBlock, end);
    const int32_t bottom = std::min(h - 1, y1 - 1 + r);
    for (int32_t sy = std::max(loaded + 1, std::max(0, y0 - r)); sy <= bottom; ++sy) load(sy);
    loaded = bottom;
    for (int32_t x0 = 0; x0 < w; x0 += kLensChunk) {
      const int32_t n = std::min(kLensChunk, w - x0);
      std::fill(running.begin(), running.end(), 0u);
      std::fill(totals.begin(), totals.end(), uint64_t{0});
      for (int32_t t = y0 - r; t < y1 + r; ++t) {
        const uint32_t* planes = rowPlanes(std::clamp(t, 0, h - 1)) + x0 + r;
        for (int32_t y = std::max(y0, t - r); y < std::min(y1, t + r + 1); ++y) {
          const int32_t dy = t - y, half = j.halfWidths[std::abs(dy)];
          uint32_t* sums = running.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
          for (int c = 0; c < kLensPlanes; ++c) {
            // Pixels x - half .. x + half are the padded entries
            // x - half + r .. x + half + r.
            const uint32_t* hi = planes + c * len + half + 1;
            const uint32_t* lo = planes + c * len - half;
            uint32_t* a = sums + c * kLensChunk;
            for (int32_t i = 0; i < n; ++i) a[i] += hi[i] - lo[i];
          }
          if (j.flushAfter[dy + r]) {
            uint64_t* total = totals.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
            for (int32_t i = 0; i < kLensPlanes * kLensChunk; ++i) total[i] += std::exchange(sums[i], 0u);
          }
        }
      }
      for (int32_t y = y0; y < y1; ++y) {
        const uint64_t* total = totals.data() + std::size_t(y - y0) * kLensPlanes * kLensChunk;
        uint32_t* out = j.out + std::size_t(y) * w + x0;
        for (int32_t i = 0; i < n; ++i) {
          // (S + T / 2) / T with one reciprocal for the four channels
          // instead of four divisions. Exact: the product is within 2^-44
          // of the true quotient (below 256, T below 2^33), and the added
          // half keeps that at least 0.5 / T from the next whole number.
          const uint64_t weight = total[4 * kLensChunk + i];
          const double inverse = 1.0 / double(weight);
          uint32_t v = 0;
          for (int c = 0; c < 4; ++c) {
            const uint64_t s = total[c * kLensChunk + i] + weight / 2;
            v |= uint32_t((double(s) + 0.5) * inverse) << (8 * c);
          }
          out[i] = v;
        }
      }
    }
    Unpremultiply(j.out + std::size_t(y0) * w, std::size_t(y1 - y0) * w);
    if (j.progress) j.progress->Advance(y1 - y0);
  }
}

}  // namespace

void LensBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const LensBlurParams*>(params);
  if (!(p.radius >= 0.5f) || width < 1 || height < 1) return;  // also refuses NaN
  const int32_t r = static_cast<int32_t>(std::min(p.radius, kLensMaxRadius) + 0.5f);
  const double glow = p.glow > 0.0f ? std::min(p.glow, kLensMaxGlow) : 0.0;
  Progress* progress = CurrentProgress();
  if (progress) progress->AddTotal(height);

  uint32_t weights[256];
  for (int32_t lum = 0; lum < 256; ++lum) {
    const double l = lum / 255.0;
    weights[lum] = static_cast<uint32_t>(std::llround(double(kLensUnit) * (1.0 + glow * l * l * l)));
  }
  std::vector<int32_t> halfWidths(std::size_t(r) + 1);
  for (int32_t dy = 0, dx = r; dy <= r; ++dy) {
    while (dx * dx + dy * dy > r * r) --dx;
    halfWidths[dy] = dx;
  }
  // The most a disc row's span can add to a running sum decides how many
  // spans fit in 32 bits before they must move on to the totals.
  auto spanBound = [&](int32_t dy) { return (2 * uint64_t(halfWidths[std::abs(dy)]) + 1) * 255 * weights[255]; };
  std::vector<uint8_t> flushAfter(2 * std::size_t(r) + 1);
  uint64_t bound = 0;
  for (int32_t dy = -r; dy <= r; ++dy) {
    bound += spanBound(dy);
    flushAfter[dy + r] = dy == r || bound + spanBound(dy + 1) > UINT32_MAX;
    if (flushAfter[dy + r]) bound = 0;
  }

  // Only the copy is read, so the output rows can be written as they are done.
  const std::size_t n = std::size_t(width) * std::size_t(height);
  PixelBuffer source = NewPixels(n);
  std::memcpy(source.get(), pixels, n * 4);
  Premultiply(source.get(), n);
  LensJob job{source.get(), pixels, width, height, r, weights, halfWidths.data(), flushAfter.data(), progress};
  RowWorkers::Run(height, &LensRows, &job);
}

void MotionBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const MotionBlurParams*>(params);
  const int32_t steps = static_cast<int32_t>(p.distance + 0.5f);
  if (steps <= 0) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  PixelBuffer source = NewPixels(n);
  std::memcpy(source.get(), pixels, n * 4);
  // Samples along a line of the given length, centred on the pixel.
  const double a = p.angle * 3.14159265358979323846 / 180.0;
  std::vector<std::pair<int32_t, int32_t>> offsets;
  for (int32_t i = 0; i <= steps; ++i) {
    const double t = i - steps / 2.0;
    offsets.emplace_back(static_cast<int32_t>(std::lround(t * std::cos(a))),
                         static_cast<int32_t>(std::lround(-t * std::sin(a))));
  }
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      uint32_t sum[4] = {0, 0, 0, 0};
      for (auto [dx, dy] : offsets) {
        const uint32_t q = source[std::size_t(std::clamp(y + dy, 0, height - 1)) * width +
                                  std::clamp(x + dx, 0, width - 1)];
        for (int c = 0; c < 4; ++c) sum[c] += (q >> (8 * c)) & 255;
      }
      const uint32_t count = static_cast<uint32_t>(offsets.size());
      uint32_t out = 0;
      for (int c = 0; c < 4; ++c) out |= ((sum[c] + count / 2) / count) << (8 * c);
      pixels[std::size_t(y) * width + x] = out;
    }
  }
  Unpremultiply(pixels, n);
}

void Sharpen(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const SharpenParams*>(params);
  const std::size_t n = std::size_t(width) * std::size_t(height);
  PixelBuffer blurred = NewPixels(n);
  std::memcpy(blurred.get(), pixels, n * 4);
  GaussianBlur(blurred.get(), width, height, p.radius);
  const double k = p.amount / 100.0 * 0.6;
  const double t = p.threshold;
  for (std::size_t i = 0; i < n; ++i) {
    const uint32_t c = pixels[i], b = blurred[i];
    double kk = k;
    if (t > 0) {
      double d = 0;
      for (int s = 0; s < 24; s += 8) d += std::abs(int32_t((c >> s) & 255) - int32_t((b >> s) & 255));
      d /= 3;
      if (d <= t / 2) continue;
      if (d < t) kk = k * (d - t / 2) / (t - t / 2);
    }
    uint32_t out = c & 0xFF000000u;
    for (int s = 0; s < 24; s += 8) {
      const double v = ((c >> s) & 255) + (double((c >> s) & 255) - double((b >> s) & 255)) * kk;
      const int32_t iv = v < 0 ? 0 : v > 255 ? 255 : static_cast<int32_t>(v + 0.5);
      out |= uint32_t(iv) << s;
    }
    pixels[i] = out;
  }
}

void AddNoise(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const AddNoiseParams*>(params);
  uint32_t state = 0x92D68CA2u;  // the same noise on every run
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
  };
  const int32_t amp = ((p.amount * 255 / 100) * 6) / 10;
  auto noise = [&]() -> int32_t {
    if (!p.gaussian) return static_cast<int32_t>(next() % uint32_t(2 * amp + 1)) - amp;
    const double u1 = next(), u2 = next();
    const double g = std::sqrt(-2.0 * std::log((u1 + 1) / 4294967297.0)) *
                     std::cos(2 * 3.14159265358979323846 * (u2 + 1) / 4294967297.0);
    return static_cast<int32_t>(std::floor(g * amp * 0.5 + 0.5));
  };
  if (amp <= 0) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  for (std::size_t i = 0; i < n; ++i) {
    const uint32_t px = pixels[i];
    if (!(px >> 24)) continue;
    const int32_t r = noise();
    const int32_t g = p.monochromatic ? r : noise();
    const int32_t b = p.monochromatic ? r : noise();
    const int32_t c[3] = {int32_t((px >> 16) & 255) + r, int32_t((px >> 8) & 255) + g, int32_t(px & 255) + b};
    pixels[i] = (px & 0xFF000000u) | uint32_t(std::clamp(c[0], 0, 255)) << 16 |
                uint32_t(std::clamp(c[1], 0, 255)) << 8 | uint32_t(std::clamp(c[2], 0, 255));
  }
}

void Pixelate(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const int32_t b = std::clamp(static_cast<const PixelateParams*>(params)->blockSize, 1, 512);
  for (int32_t by = 0; by < height; by += b) {
    for (int32_t bx = 0; bx < width; bx += b) {
      const int32_t x1 = std::min(bx + b, width), y1 = std::min(by + b, height);
      uint64_t sa = 0, sc[3] = {0, 0, 0};
      for (int32_t y = by; y < y1; ++y)
        for (int32_t x = bx; x < x1; ++x) {
          const uint32_t p = pixels[std::size_t(y) * width + x], a = p >> 24;
          sa += a;
          sc[0] += uint64_t(a) * ((p >> 16) & 255);
          sc[1] += uint64_t(a) * ((p >> 8) & 255);
          sc[2] += uint64_t(a) * (p & 255);
        }
      const uint64_t count = uint64_t(x1 - bx) * uint64_t(y1 - by);
      const uint32_t colour = sa ? uint32_t(sa / count) << 24 | uint32_t(sc[0] / sa) << 16 |
                                       uint32_t(sc[1] / sa) << 8 | uint32_t(sc[2] / sa)
                                 : 0u;
      for (int32_t y = by; y < y1; ++y)
        for (int32_t x = bx; x < x1; ++x) pixels[std::size_t(y) * width + x] = colour;
    }
  }
}

namespace {

// 3 x 3 neighbourhoods of luminance with clamp-to-edge, written as grey.
template <typename Kernel>
void LuminanceFilter(uint32_t* pixels, int32_t width, int32_t height, Kernel kernel) {
  const std::size_t n = std::size_t(width) * std::size_t(height);
  std::unique_ptr<uint8_t[], FreeDeleter> lum(static_cast<uint8_t*>(CheckedAlloc(n)));
  for (std::size_t i = 0; i < n; ++i) lum[i] = static_cast<uint8_t>(Lum(pixels[i]));
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      int32_t v[3][3];
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
          v[dy + 1][dx + 1] = lum[std::size_t(std::clamp(y + dy, 0, height - 1)) * width +
                                  std::clamp(x + dx, 0, width - 1)];
      const uint32_t g = static_cast<uint32_t>(kernel(v));
      uint32_t& p = pixels[std::size_t(y) * width + x];
      p = (p & 0xFF000000u) | g << 16 | g << 8 | g;
    }
  }
}

}  // namespace

void Emboss(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  LuminanceFilter(pixels, width, height, [](const int32_t (&v)[3][3]) {
    const int32_t s = -2 * v[0][0] - v[0][1] - v[1][0] + v[1][1] + v[1][2] + v[2][1] + 2 * v[2][2];
    return std::clamp(s + 128, 0, 255);
  });
}

void EdgeDetect(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  LuminanceFilter(pixels, width, height, [](const int32_t (&v)[3][3]) {
    const int32_t gx = (v[0][2] + 2 * v[1][2] + v[2][2]) - (v[0][0] + 2 * v[1][0] + v[2][0]);
    const int32_t gy = (v[2][0] + 2 * v[2][1] + v[2][2]) - (v[0][0] + 2 * v[0][1] + v[0][2]);
    return std::min(255, static_cast<int32_t>(std::sqrt(double(gx * gx + gy * gy))));
  });
}

}  // namespace tavora
