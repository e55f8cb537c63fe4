#include "processing/filters.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "base/memory.h"
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

struct LensJob {
  const uint32_t* source;  // premultiplied
  uint32_t* out;
  int32_t width, height, radius;
  float glow;
};

// A disc-shaped average; bright pixels weigh more with the glow, so
// highlights spread into bokeh-like discs.
void LensRows(int first, int end, void* context) {
  const auto& j = *static_cast<const LensJob*>(context);
  const int32_t r = j.radius;
  for (int y = first; y < end; ++y) {
    for (int32_t x = 0; x < j.width; ++x) {
      double sum[4] = {0, 0, 0, 0}, weight = 0;
      for (int32_t dy = -r; dy <= r; ++dy) {
        const int32_t sy = std::clamp(y + dy, 0, j.height - 1);
        for (int32_t dx = -r; dx <= r; ++dx) {
          if (dx * dx + dy * dy > r * r) continue;
          const int32_t sx = std::clamp(x + dx, 0, j.width - 1);
          const uint32_t p = j.source[std::size_t(sy) * j.width + sx];
          const double l = Lum(p) / 255.0;
          const double w = 1.0 + j.glow * l * l * l;
          for (int c = 0; c < 4; ++c) sum[c] += ((p >> (8 * c)) & 255) * w;
          weight += w;
        }
      }
      uint32_t out = 0;
      for (int c = 0; c < 4; ++c)
        out |= uint32_t(std::min(255.0, sum[c] / weight + 0.5)) << (8 * c);
      j.out[std::size_t(y) * j.width + x] = out;
    }
  }
}

}  // namespace

void LensBlur(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const LensBlurParams*>(params);
  const int32_t r = static_cast<int32_t>(p.radius + 0.5f);
  if (r <= 0) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  Premultiply(pixels, n);
  PixelBuffer source = NewPixels(n);
  std::memcpy(source.get(), pixels, n * 4);
  LensJob job{source.get(), pixels, width, height, r, std::max(0.0f, p.glow)};
  RowWorkers::Run(height, &LensRows, &job);
  Unpremultiply(pixels, n);
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
