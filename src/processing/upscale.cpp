#include "processing/upscale.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "base/memory.h"
#include "base/row_workers.h"
#include "processing/filters.h"

namespace tavora {
namespace {

// A fine radius: it crispens edges the enlargement softened without
// lifting texture the back-projection already restored.
constexpr float kEdgeSharpenRadius = 1.0f;
constexpr float kEdgeSharpenAmount = 0.4f;

// How far a corrected pixel may leave its neighbourhood's range: at most
// half that range and never more than 16 levels at edge 0, nothing at 100.
// A hard edge's range is wide, so the level cap is what keeps its rims
// faint; a soft peak between samples has a narrow range and room to be.
constexpr float kMaxWiden = 16.0f;
float EdgeShare(int32_t edge) { return float(100 - std::clamp(edge, 0, 100)) / 100.0f; }
inline float Widen(float range, float share) { return share * std::min(range * 0.5f, kMaxWiden); }

// Four premultiplied channels per pixel on the 0..255 scale, in memory order.
struct FloatImage {
  int32_t width = 0, height = 0;
  std::unique_ptr<float[], FreeDeleter> v;

  FloatImage(int32_t w, int32_t h)
      : width(w), height(h),
        v(static_cast<float*>(CheckedAlloc(std::size_t(w) * std::size_t(h) * 4 * sizeof(float)))) {}
  float* Row(int32_t y) { return v.get() + std::size_t(y) * std::size_t(width) * 4; }
  const float* Row(int32_t y) const { return v.get() + std::size_t(y) * std::size_t(width) * 4; }
};

FloatImage ToFloat(const Surface& s) {
  FloatImage f(s.Width(), s.Height());
  auto body = [&](int first, int end) {
    std::vector<uint32_t> row(static_cast<std::size_t>(s.Width()));
    for (int y = first; y < end; ++y) {
      std::memcpy(row.data(), s.Row(y), row.size() * 4);
      Premultiply(row.data(), row.size());
      float* o = f.Row(y);
      for (std::size_t x = 0; x < row.size(); ++x)
        for (int c = 0; c < 4; ++c) o[x * 4 + std::size_t(c)] = float((row[x] >> (8 * c)) & 255);
    }
  };
  RowWorkers::Run(s.Height(), body);
  return f;
}

Surface ToSurface(const FloatImage& f) {
  Surface s(f.width, f.height);
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      const float* in = f.Row(y);
      uint32_t* o = s.Row(y);
      for (int32_t x = 0; x < f.width; ++x) {
        uint32_t p = 0;
        for (int c = 0; c < 4; ++c) {
          const float v = in[x * 4 + c];
          p |= uint32_t(v <= 0.0f ? 0.0f : v >= 255.0f ? 255.0f : v + 0.5f) << (8 * c);
        }
        o[x] = p;
      }
      Unpremultiply(o, std::size_t(f.width));
    }
  };
  RowWorkers::Run(f.height, body);
  return s;
}

typedef float Float4 __attribute__((vector_size(16)));

// One row of the horizontal pass: wx.first.size() pixels from a source row.
void HorizontalRow(const float* in, const PackedWeights<float>& wx, float* out) {
  const int32_t taps = wx.taps;
  for (std::size_t x = 0; x < wx.first.size(); ++x) {
    const float* p = in + std::size_t(wx.first[x]) * 4;
    const float* w = wx.weights.data() + x * std::size_t(taps);
    // A pixel's four channels as one vector: one multiply-add per tap.
    Float4 acc = {0, 0, 0, 0};
    for (int32_t k = 0; k < taps; ++k) {
      Float4 v;
      std::memcpy(&v, p + k * 4, sizeof v);
      acc += w[k] * v;
    }
    std::memcpy(out + x * 4, &acc, sizeof acc);
  }
}

FloatImage HorizontalPass(const FloatImage& in, const PackedWeights<float>& wx) {
  FloatImage out(int32_t(wx.first.size()), in.height);
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) HorizontalRow(in.Row(y), wx, out.Row(y));
  };
  RowWorkers::Run(in.height, body);
  return out;
}

// Row y of the vertical pass over `in`, into out (in.width pixels).
void VerticalRow(const FloatImage& in, const PackedWeights<float>& wy, int32_t y, float* out) {
  const std::size_t n = std::size_t(in.width) * 4;
  const float* w = wy.weights.data() + std::size_t(y) * std::size_t(wy.taps);
  const int32_t top = wy.first[std::size_t(y)];
  const float* r0 = in.Row(top);
  for (std::size_t i = 0; i < n; ++i) out[i] = w[0] * r0[i];
  for (int32_t k = 1; k < wy.taps; ++k) {
    const float* r = in.Row(top + k);
    const float wk = w[k];
    for (std::size_t i = 0; i < n; ++i) out[i] += wk * r[i];
  }
}

// The source columns (or rows) around each target index: the four nearest
// when enlarging (a bicubic footprint: a peak between samples is no halo),
// the covered ones when reducing.
std::vector<std::array<int32_t, 2>> SourceSpans(int32_t source, int32_t target) {
  std::vector<std::array<int32_t, 2>> spans(static_cast<std::size_t>(target));
  const double scale = double(source) / double(target);
  for (int32_t i = 0; i < target; ++i) {
    int32_t a, b;
    if (scale <= 1.0) {
      a = int32_t(std::floor((i + 0.5) * scale - 0.5)) - 1;
      b = a + 3;
    } else {
      a = int32_t(std::floor(i * scale));
      b = int32_t(std::ceil((i + 1) * scale)) - 1;
    }
    spans[std::size_t(i)] = {std::clamp(a, 0, source - 1), std::clamp(b, 0, source - 1)};
  }
  return spans;
}

// Per target pixel, the range of the premultiplied source around it: the
// horizontal spans are reduced once into byte rows of target width (lowest
// and highest per channel), the vertical span when a target row is done.
struct Bounds {
  int32_t width;
  std::vector<uint8_t> low, high;  // target width x source height x 4
  std::vector<std::array<int32_t, 2>> rows;
  float share;

  Bounds(const Surface& source, int32_t targetWidth, int32_t targetHeight, int32_t edge)
      : width(targetWidth),
        low(std::size_t(targetWidth) * std::size_t(source.Height()) * 4),
        high(low.size()),
        rows(SourceSpans(source.Height(), targetHeight)),
        share(EdgeShare(edge)) {
    const auto columns = SourceSpans(source.Width(), targetWidth);
    auto body = [&](int first, int end) {
      std::vector<uint32_t> row(static_cast<std::size_t>(source.Width()));
      for (int y = first; y < end; ++y) {
        std::memcpy(row.data(), source.Row(y), row.size() * 4);
        Premultiply(row.data(), row.size());
        uint8_t* lo = Low(y);
        uint8_t* hi = High(y);
        for (int32_t x = 0; x < width; ++x)
          for (int c = 0; c < 4; ++c) {
            uint32_t a = 255, b = 0;
            for (int32_t s = columns[std::size_t(x)][0]; s <= columns[std::size_t(x)][1]; ++s) {
              const uint32_t v = (row[std::size_t(s)] >> (8 * c)) & 255;
              a = std::min(a, v);
              b = std::max(b, v);
            }
            lo[x * 4 + c] = uint8_t(a);
            hi[x * 4 + c] = uint8_t(b);
          }
      }
    };
    RowWorkers::Run(source.Height(), body);
  }
  uint8_t* Low(int32_t y) { return low.data() + std::size_t(y) * std::size_t(width) * 4; }
  uint8_t* High(int32_t y) { return high.data() + std::size_t(y) * std::size_t(width) * 4; }
  const uint8_t* Low(int32_t y) const { return low.data() + std::size_t(y) * std::size_t(width) * 4; }
  const uint8_t* High(int32_t y) const { return high.data() + std::size_t(y) * std::size_t(width) * 4; }

  // Holds target row y (already corrected) to its neighbourhood; lo and hi
  // are scratch rows of the target width.
  void Limit(int32_t y, float* row, float* lo, float* hi) const {
    const std::size_t n = std::size_t(width) * 4;
    const auto [a, b] = rows[std::size_t(y)];
    for (std::size_t i = 0; i < n; ++i) {
      lo[i] = Low(a)[i];
      hi[i] = High(a)[i];
    }
    for (int32_t s = a + 1; s <= b; ++s) {
      const uint8_t* l = Low(s);
      const uint8_t* h = High(s);
      for (std::size_t i = 0; i < n; ++i) {
        lo[i] = std::min(lo[i], float(l[i]));
        hi[i] = std::max(hi[i], float(h[i]));
      }
    }
    // Plain comparisons, so the loop runs four lanes at a time.
    for (std::size_t i = 0; i < n; ++i) {
      const float widen = Widen(hi[i] - lo[i], share);
      const float low = lo[i] - widen, high = hi[i] + widen;
      float v = row[i] < low ? low : row[i];
      v = v > high ? high : v;
      row[i] = v < 0.0f ? 0.0f : v > 255.0f ? 255.0f : v;
    }
  }
};

}  // namespace

Surface DetailRecoveryEnlarge(const Surface& source, int32_t width, int32_t height, ResampleAlgorithm kernel,
                              float strength, int32_t edge) {
  if (source.Empty() || width < 1 || height < 1) return Surface(std::max(width, 0), std::max(height, 0));
  const ResampleKernel k = KernelFor(kernel);
  const int32_t sw = source.Width(), sh = source.Height();
  const PackedWeights<float> upX = PackFloatWeights(BuildWeightTable(sw, width, k));
  const PackedWeights<float> upY = PackFloatWeights(BuildWeightTable(sh, height, k));
  const PackedWeights<float> downX = PackFloatWeights(BuildWeightTable(width, sw, k));
  const PackedWeights<float> downY = PackFloatWeights(BuildWeightTable(height, sh, k));
  const FloatImage original = ToFloat(source);
  const Bounds bounds(source, width, height, edge);

  // The first estimate: the plain enlargement, held to the neighbourhoods.
  FloatImage estimate(width, height);
  {
    const FloatImage mid = HorizontalPass(original, upX);
    auto body = [&](int first, int end) {
      std::vector<float> lo(std::size_t(width) * 4), hi(lo.size());
      for (int y = first; y < end; ++y) {
        VerticalRow(mid, upY, y, estimate.Row(y));
        bounds.Limit(y, estimate.Row(y), lo.data(), hi.data());
      }
    };
    RowWorkers::Run(height, body);
  }
  if (strength <= 0.0f) return ToSurface(estimate);

  FloatImage residual(sw, sh);
  for (int round = 0; round < kDetailRecoveryRounds; ++round) {
    // What the estimate, shrunk back, misses of the original.
    {
      const FloatImage mid = HorizontalPass(estimate, downX);
      auto body = [&](int first, int end) {
        for (int y = first; y < end; ++y) {
          float* r = residual.Row(y);
          VerticalRow(mid, downY, y, r);
          const float* o = original.Row(y);
          for (std::size_t i = 0; i < std::size_t(sw) * 4; ++i) r[i] = o[i] - r[i];
        }
      };
      RowWorkers::Run(sh, body);
    }
    // Enlarged and added back, then held to the neighbourhoods again.
    const FloatImage mid = HorizontalPass(residual, upX);
    auto body = [&](int first, int end) {
      std::vector<float> up(std::size_t(width) * 4), lo(up.size()), hi(up.size());
      for (int y = first; y < end; ++y) {
        VerticalRow(mid, upY, y, up.data());
        float* e = estimate.Row(y);
        for (std::size_t i = 0; i < up.size(); ++i) e[i] += strength * up[i];
        bounds.Limit(y, e, lo.data(), hi.data());
      }
    };
    RowWorkers::Run(height, body);
  }
  return ToSurface(estimate);
}

void HaloLimitedSharpen(Surface& pixels, float radius, float amount, int32_t edge) {
  if (pixels.Empty() || amount <= 0.0f) return;
  const int32_t w = pixels.Width(), h = pixels.Height();
  const std::size_t bytes = std::size_t(w) * 4;
  Surface result(pixels);
  GaussianBlur(result.Data(), w, h, 2.0f * radius);
  const int32_t k = int32_t(std::lround(double(amount) * 65536.0));
  // Allowed overshoot per range, looked up: 0..255 levels.
  int32_t widenBy[256];
  for (int r = 0; r < 256; ++r) widenBy[r] = int32_t(Widen(float(r), EdgeShare(edge)) + 0.5f);
  auto body = [&](int first, int end) {
    // Lowest and highest byte over each pixel's row neighbours, for three rows.
    std::vector<uint8_t> lows(3 * bytes), highs(3 * bytes);
    auto reduceRow = [&](int32_t y, uint8_t* lo, uint8_t* hi) {
      const uint8_t* r = reinterpret_cast<const uint8_t*>(pixels.Row(std::clamp(y, 0, h - 1)));
      for (std::size_t i = 0; i < bytes; ++i) {
        const std::size_t l = i >= 4 ? i - 4 : i, rr = i + 4 < bytes ? i + 4 : i;
        lo[i] = std::min({r[l], r[i], r[rr]});
        hi[i] = std::max({r[l], r[i], r[rr]});
      }
    };
    for (int y = first; y < end; ++y) {
      for (int d = -1; d <= 1; ++d)
        if (y == first || d == 1)
          reduceRow(y + d, &lows[std::size_t((y + d + 3) % 3) * bytes], &highs[std::size_t((y + d + 3) % 3) * bytes]);
      const uint8_t* lo[3];
      const uint8_t* hi[3];
      for (int d = 0; d < 3; ++d) {
        lo[d] = &lows[std::size_t((y + d + 2) % 3) * bytes];
        hi[d] = &highs[std::size_t((y + d + 2) % 3) * bytes];
      }
      const uint32_t* p = pixels.Row(y);
      uint32_t* out = result.Row(y);  // holds the blur until overwritten
      for (int32_t x = 0; x < w; ++x) {
        const uint32_t c = p[x];
        if (!(c >> 24)) {
          out[x] = c;
          continue;
        }
        uint32_t o = c & 0xFF000000u;
        for (int s = 0; s < 3; ++s) {
          const std::size_t i = std::size_t(x) * 4 + std::size_t(s);
          const int32_t mn = std::min({lo[0][i], lo[1][i], lo[2][i]});
          const int32_t mx = std::max({hi[0][i], hi[1][i], hi[2][i]});
          const int32_t widen = widenBy[mx - mn];
          const int32_t v = int32_t((c >> (8 * s)) & 255);
          const int32_t sharp = v + (((v - int32_t((out[x] >> (8 * s)) & 255)) * k + 32768) >> 16);
          o |= uint32_t(std::clamp(sharp, std::max(mn - widen, 0), std::min(mx + widen, 255))) << (8 * s);
        }
        out[x] = o;
      }
    }
  };
  RowWorkers::Run(h, body);
  pixels = std::move(result);
}

Surface Scale2x(const Surface& source) {
  const int32_t w = source.Width(), h = source.Height();
  Surface out(w * 2, h * 2);
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      const uint32_t* up = source.Row(std::max(y - 1, 0));
      const uint32_t* mid = source.Row(y);
      const uint32_t* down = source.Row(std::min(y + 1, h - 1));
      uint32_t* o0 = out.Row(2 * y);
      uint32_t* o1 = out.Row(2 * y + 1);
      for (int32_t x = 0; x < w; ++x) {
        const uint32_t b = up[x], d = mid[std::max(x - 1, 0)], e = mid[x];
        const uint32_t f = mid[std::min(x + 1, w - 1)], hh = down[x];
        uint32_t e0 = e, e1 = e, e2 = e, e3 = e;
        if (b != hh && d != f) {
          if (d == b) e0 = d;
          if (b == f) e1 = f;
          if (d == hh) e2 = d;
          if (hh == f) e3 = f;
        }
        o0[2 * x] = e0;
        o0[2 * x + 1] = e1;
        o1[2 * x] = e2;
        o1[2 * x + 1] = e3;
      }
    }
  };
  RowWorkers::Run(h, body);
  return out;
}

Surface PixelArtEnlarge(const Surface& source, int32_t width, int32_t height) {
  Surface current = source;
  for (int n = 0; n < 4 && int64_t(width) >= 2 * int64_t(current.Width()) &&
                  int64_t(height) >= 2 * int64_t(current.Height());
       ++n)
    current = Scale2x(current);
  if (current.Width() == width && current.Height() == height) return current;
  const bool reduce = width <= current.Width() && height <= current.Height();
  return Resample(current, width, height, reduce ? ResampleAlgorithm::AreaAverage : ResampleAlgorithm::Bilinear);
}

void Denoise(Surface& pixels) {
  if (pixels.Empty()) return;
  constexpr int kRadius = 2;
  constexpr float kSpatialSigma = 1.5f, kRangeSigma = 12.0f;
  const int32_t w = pixels.Width(), h = pixels.Height();
  Surface source(pixels);
  Premultiply(source.Data(), source.PixelCount());
  float spatial[2 * kRadius + 1][2 * kRadius + 1];
  for (int dy = -kRadius; dy <= kRadius; ++dy)
    for (int dx = -kRadius; dx <= kRadius; ++dx)
      spatial[dy + kRadius][dx + kRadius] = std::exp(-float(dx * dx + dy * dy) / (2 * kSpatialSigma * kSpatialSigma));
  // By the mean absolute channel difference: block steps and ringing are a
  // few levels, real edges many.
  float range[256];
  for (int d = 0; d < 256; ++d) range[d] = std::exp(-float(d * d) / (2 * kRangeSigma * kRangeSigma));
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      const uint32_t* rows[2 * kRadius + 1];
      for (int dy = -kRadius; dy <= kRadius; ++dy) rows[dy + kRadius] = source.Row(std::clamp(y + dy, 0, h - 1));
      uint32_t* out = pixels.Row(y);
      for (int32_t x = 0; x < w; ++x) {
        const uint32_t c = rows[kRadius][x];
        float acc[4] = {0, 0, 0, 0}, total = 0;
        for (int dy = 0; dy <= 2 * kRadius; ++dy)
          for (int dx = -kRadius; dx <= kRadius; ++dx) {
            const uint32_t n = rows[dy][std::clamp(x + dx, 0, w - 1)];
            int32_t diff = 0;
            for (int s = 0; s < 32; s += 8) diff += std::abs(int32_t((n >> s) & 255) - int32_t((c >> s) & 255));
            const float wgt = spatial[dy][dx + kRadius] * range[diff >> 2];
            for (int ch = 0; ch < 4; ++ch) acc[ch] += wgt * float((n >> (8 * ch)) & 255);
            total += wgt;
          }
        uint32_t o = 0;
        for (int ch = 0; ch < 4; ++ch) o |= uint32_t(std::min(255L, std::lround(acc[ch] / total))) << (8 * ch);
        out[x] = o;
      }
      Unpremultiply(out, std::size_t(w));
    }
  };
  RowWorkers::Run(h, body);
}

void AddGrain(Surface& pixels, int32_t grain) {
  grain = std::clamp(grain, 0, 100);
  if (grain == 0 || pixels.Empty()) return;
  const double amplitude = grain * 0.3 / 65535.0;
  auto body = [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      uint32_t* row = pixels.Row(y);
      for (int32_t x = 0; x < pixels.Width(); ++x) {
        const uint32_t c = row[x];
        if (!(c >> 24)) continue;
        uint32_t key = (uint32_t(x) * 73856093u) ^ (uint32_t(y) * 19349663u);
        // Mixed so that neighbouring keys give unrelated values.
        key ^= key >> 16;
        key *= 0x85EBCA6Bu;
        key ^= key >> 13;
        key *= 0xC2B2AE35u;
        key ^= key >> 16;
        // Two halves summed: a triangular distribution around 0.
        const int32_t t = int32_t(key & 0xFFFF) + int32_t(key >> 16) - 65535;
        const int32_t delta = int32_t(std::lround(t * amplitude));
        uint32_t o = c & 0xFF000000u;
        for (int s = 0; s < 24; s += 8) o |= uint32_t(std::clamp(int32_t((c >> s) & 255) + delta, 0, 255)) << s;
        row[x] = o;
      }
    }
  };
  RowWorkers::Run(pixels.Height(), body);
}

Surface Enlarge(const Surface& source, int32_t width, int32_t height, const ResizeOptions& options) {
  Surface cleaned;
  const Surface* from = &source;
  if (options.denoise) {
    cleaned = source;
    Denoise(cleaned);
    from = &cleaned;
  }
  Surface out;
  if (options.engine == UpscaleEngine::PixelArt) {
    out = PixelArtEnlarge(*from, width, height);
  } else {
    const bool lanczos = options.engine == UpscaleEngine::LanczosSharpen;
    const ResampleAlgorithm kernel = lanczos ? ResampleAlgorithm::Lanczos : ResampleAlgorithm::Bicubic;
    const float strength = float(std::clamp(options.detail, 0, 100)) / 50.0f * (lanczos ? 0.6f : 1.0f);
    if (int64_t(width) * height > kLightEnlargePixels) {
      // Too big for the float estimate: the kernel, and a sharpen standing
      // in for the recovered detail.
      out = Resample(*from, width, height, kernel);
      HaloLimitedSharpen(out, kEdgeSharpenRadius, 0.5f * strength + (lanczos ? kEdgeSharpenAmount : 0.0f),
                         options.edge);
    } else {
      out = DetailRecoveryEnlarge(*from, width, height, kernel, strength, options.edge);
      if (lanczos) HaloLimitedSharpen(out, kEdgeSharpenRadius, kEdgeSharpenAmount, options.edge);
    }
  }
  AddGrain(out, options.grain);
  return out;
}

}  // namespace tavora
