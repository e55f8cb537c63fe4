#include "processing/adjustments.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "base/memory.h"
#include "base/row_workers.h"
#include "document/composite.h"
#include "document/history.h"

namespace tavora {
namespace {

uint8_t ClampRound(double v) {
  if (v < 0) return 0;
  if (v > 255) return 255;
  return static_cast<uint8_t>(static_cast<int32_t>(v + 0.5));
}

uint8_t ClampRound(float v) {
  if (v < 0) return 0;
  if (v > 255) return 255;
  return static_cast<uint8_t>(static_cast<int32_t>(v + 0.5f));
}

int32_t Clamp255(int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, 0, 255)); }

uint32_t Rgb(uint32_t a, int32_t r, int32_t g, int32_t b) {
  return a << 24 | uint32_t(Clamp255(r)) << 16 | uint32_t(Clamp255(g)) << 8 | uint32_t(Clamp255(b));
}

void ApplyOneLut(uint32_t* pixels, int32_t width, int32_t height, const uint8_t* table) {
  ApplyChannelLuts(pixels, width, height, table, table, table);
}

std::atomic<bool> g_fastAllowed{true};

int32_t Lighten(int32_t v, int32_t lightness) {
  if (lightness > 0) v += (255 - v) * lightness / 100;
  else if (lightness < 0) v = static_cast<int32_t>(v * (lightness / 100.0 + 1));
  return v;
}

// Runs fn(first pixel, pixel count) over bands of whole rows on every core.
template <typename Fn>
void ForEachBand(uint32_t* pixels, int32_t width, int32_t height, const Fn& fn) {
  if (width < 1 || height < 1) return;
  auto body = [&](int first, int end) {
    fn(pixels + std::size_t(first) * std::size_t(width), std::size_t(end - first) * std::size_t(width));
  };
  RowWorkers::Run(height, body);
}

// Counts over bands of rows on every core: each band fills its own `size`
// counters with count(first pixel, pixel count, counters), and they are
// added into totals (whole numbers, so the order does not matter).
template <typename Count>
void CountBands(const uint32_t* pixels, int32_t width, int32_t height, uint64_t* totals, std::size_t size,
                const Count& count) {
  if (width < 1 || height < 1) return;
  std::mutex mutex;
  auto body = [&](int first, int end) {
    std::vector<uint64_t> local(size, 0);
    count(pixels + std::size_t(first) * std::size_t(width), std::size_t(end - first) * std::size_t(width),
          local.data());
    std::lock_guard<std::mutex> lock(mutex);
    for (std::size_t i = 0; i < size; ++i) totals[i] += local[i];
  };
  RowWorkers::Run(height, body);
}

}  // namespace

void AllowFastAdjustmentsForTesting(bool allowed) { g_fastAllowed.store(allowed); }

uint32_t LerpPixel(uint32_t a, uint32_t b, uint32_t m) {
  uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    const uint32_t ca = (a >> shift) & 255, cb = (b >> shift) & 255;
    out |= ((((ca * (255 - m) + cb * m + 128) * 257) >> 16) & 255) << shift;
  }
  return out;
}

ClipRange PercentileClip(const uint64_t* h, uint64_t total, double percent) {
  const uint64_t cut = static_cast<uint64_t>(static_cast<double>(total) * percent / 100.0);
  ClipRange r;
  uint64_t sum = 0;
  for (int k = 0; k < 256; ++k) {
    sum += h[k];
    if (sum > cut) {
      r.low = k;
      break;
    }
  }
  sum = 0;
  for (int k = 255; k >= 0; --k) {
    sum += h[k];
    if (sum > cut) {
      r.high = k;
      break;
    }
  }
  return r;
}

void StretchLut(uint8_t* table, int32_t low, int32_t high) {
  if (low + 1 >= high) {
    for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i);
    return;
  }
  for (int i = 0; i < 256; ++i) {
    const float v = static_cast<float>(i - low) * 255.0f / static_cast<float>(high - low);
    table[i] = ClampRound(v);
  }
}

void ApplyChannelLuts(uint32_t* pixels, int32_t width, int32_t height, const uint8_t* red,
                      const uint8_t* green, const uint8_t* blue) {
  ForEachBand(pixels, width, height, [&](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      px[i] = (p & 0xFF000000u) | uint32_t(red[(p >> 16) & 255]) << 16 | uint32_t(green[(p >> 8) & 255]) << 8 |
              blue[p & 255];
    }
  });
}

Hsv RgbToHsv(uint32_t r8, uint32_t g8, uint32_t b8) {
  const double r = r8 / 255.0, g = g8 / 255.0, b = b8 / 255.0;
  const double mx = std::max({r, g, b}), mn = std::min({r, g, b}), d = mx - mn;
  Hsv out;
  out.v = mx;
  out.s = mx > 0 ? d / mx : 0;
  if (d <= 0.000001) {
    out.h = 0;
  } else if (r == mx) {
    out.h = 60 * std::fmod((g - b) / d, 6.0);
  } else if (g == mx) {
    out.h = 60 * (2 + (b - r) / d);
  } else {
    out.h = 60 * (4 + (r - g) / d);
  }
  if (out.h < 0) out.h += 360;
  return out;
}

void HsvToRgb(double h, double s, double v, int32_t& r, int32_t& g, int32_t& b) {
  h = std::fmod(h, 360.0);
  if (h < 0) h += 360;
  const double hp = h / 60;
  const double c = s * v;
  const double x = c * (1 - std::fabs(std::fmod(hp, 2.0) - 1));
  const double m = v - c;
  double rr = 0, gg = 0, bb = 0;
  switch (static_cast<int>(hp)) {
    case 0: rr = c; gg = x; break;
    case 1: rr = x; gg = c; break;
    case 2: gg = c; bb = x; break;
    case 3: gg = x; bb = c; break;
    case 4: rr = x; bb = c; break;
    default: rr = c; bb = x; break;
  }
  r = static_cast<int32_t>((rr + m) * 255 + 0.5);
  g = static_cast<int32_t>((gg + m) * 255 + 0.5);
  b = static_cast<int32_t>((bb + m) * 255 + 0.5);
}

void BrightnessContrastTable(int32_t brightness, int32_t contrast, uint8_t* table) {
  const float f = static_cast<float>((2 * contrast + 255) * 259) /
                  static_cast<float>((259 - 2 * contrast) * 255);
  for (int i = 0; i < 256; ++i) {
    const float v = static_cast<float>(i - 128) * f + 128.0f + static_cast<float>(2 * brightness);
    table[i] = ClampRound(v);
  }
}

void GammaTable(float gamma, int32_t shift, uint8_t* table) {
  const float g = gamma * static_cast<float>(std::pow(2.0, shift / 100.0));
  const double exponent = g < 0.05f ? 20.0 : 1.0 / g;
  for (int i = 0; i < 256; ++i) table[i] = ClampRound(std::pow(i / 255.0, exponent) * 255.0);
}

void PosterizeTable(int32_t levels, uint8_t* table) {
  const int32_t n = std::clamp(levels, 2, 64);
  for (int i = 0; i < 256; ++i) {
    const int32_t step = static_cast<int32_t>(std::floor(i * (n - 1) / 255.0 + 0.5));
    table[i] = static_cast<uint8_t>(step * 255 / (n - 1));
  }
}

void BrightnessContrast(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const BrightnessContrastParams*>(params);
  uint8_t table[256];
  BrightnessContrastTable(p.brightness, p.contrast, table);
  ApplyOneLut(pixels, width, height, table);
}

void Gamma(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const GammaParams*>(params);
  uint8_t red[256], green[256], blue[256];
  GammaTable(p.gamma, p.redShift, red);
  GammaTable(p.gamma, p.greenShift, green);
  GammaTable(p.gamma, p.blueShift, blue);
  ApplyChannelLuts(pixels, width, height, red, green, blue);
}

namespace {

// What Hue / Saturation / Lightness does to a pixel depends on its maximum
// and minimum channels for everything but one output channel: V, S, C = S V
// and m = V - C, and with them the channel that gets C and the one that gets
// 0. These come from a table over (max, min); only the hue and the channel
// that gets X are worked out per pixel, with the same operations in the same
// order as RgbToHsv and HsvToRgb, so every result is the same.
struct HueTables {
  double unit[256];  // i / 255.0
  double hueShift = 0;
  uint8_t light[256];  // a channel after the lightness step, clamped
  // By max (max + 1) / 2 + min, max >= min.
  std::vector<double> chroma;   // C
  std::vector<double> offset;   // m
  std::vector<uint8_t> whole;   // final channel that gets C + m
  std::vector<uint8_t> base;    // final channel that gets 0 + m

  uint32_t Final(int32_t v, int32_t lightness) const {
    return v >= 0 && v <= 255 ? light[v] : uint32_t(Clamp255(Lighten(v, lightness)));
  }
};

void FillHueTables(const HueSaturationParams& p, HueTables& t) {
  for (int i = 0; i < 256; ++i) {
    t.unit[i] = uint32_t(i) / 255.0;
    t.light[i] = uint8_t(Clamp255(Lighten(i, p.lightness)));
  }
  t.hueShift = p.hue;
  const std::size_t entries = 256 * 257 / 2;
  t.chroma.resize(entries);
  t.offset.resize(entries);
  t.whole.resize(entries);
  t.base.resize(entries);
  for (int mx = 0; mx < 256; ++mx)
    for (int mn = 0; mn <= mx; ++mn) {
      const double v = t.unit[mx], d = v - t.unit[mn];
      const double s = std::clamp((p.saturation / 100.0 + 1) * (mx > 0 ? d / v : 0), 0.0, 1.0);
      const double c = s * v, m = v - c;
      const std::size_t i = std::size_t(mx) * (mx + 1) / 2 + mn;
      t.chroma[i] = c;
      t.offset[i] = m;
      t.whole[i] = uint8_t(t.Final(static_cast<int32_t>((c + m) * 255 + 0.5), p.lightness));
      t.base[i] = uint8_t(t.Final(static_cast<int32_t>((0 + m) * 255 + 0.5), p.lightness));
    }
}

uint32_t HueSaturationPixel(uint32_t px, const HueTables& t, int32_t lightness) {
  const uint32_t r8 = (px >> 16) & 255, g8 = (px >> 8) & 255, b8 = px & 255;
  const uint32_t mx = std::max({r8, g8, b8}), mn = std::min({r8, g8, b8});
  const std::size_t i = std::size_t(mx) * (mx + 1) / 2 + mn;
  if (mx == mn) {  // grey: S = 0, so C = X = 0 and all three are V
    const uint32_t v = t.base[i];
    return (px & 0xFF000000u) | v << 16 | v << 8 | v;
  }
  const double r = t.unit[r8], g = t.unit[g8], b = t.unit[b8];
  const double d = t.unit[mx] - t.unit[mn];
  double h;
  // The remainder modulo 6 of (g - b) / d is itself: it lies in -1..1.
  if (r8 == mx) h = 60 * ((g - b) / d);
  else if (g8 == mx) h = 60 * (2 + (b - r) / d);
  else h = 60 * (4 + (r - g) / d);
  if (h < 0) h += 360;
  h += t.hueShift;
  // The remainder modulo 360: h itself below 360 in size, else within the
  // dialog's hues h - 360, which is exact.
  if (h >= 360 && h < 720) h -= 360;
  else if (h >= 720 || h <= -360) h = std::fmod(h, 360.0);
  if (h < 0) h += 360;
  const double hp = h / 60;
  const int sector = static_cast<int>(hp);
  // hp is in 0..6: its remainder modulo 2 is hp less an even whole number, exactly.
  const double f = hp - double(sector & ~1);
  const double x = t.chroma[i] * (1 - std::fabs(f - 1));
  const uint32_t xc = t.Final(static_cast<int32_t>((x + t.offset[i]) * 255 + 0.5), lightness);
  const uint32_t cc = t.whole[i], zc = t.base[i];
  uint32_t rr, gg, bb;
  switch (sector) {
    case 0: rr = cc; gg = xc; bb = zc; break;
    case 1: rr = xc; gg = cc; bb = zc; break;
    case 2: rr = zc; gg = cc; bb = xc; break;
    case 3: rr = zc; gg = xc; bb = cc; break;
    case 4: rr = xc; gg = zc; bb = cc; break;
    default: rr = cc; gg = zc; bb = xc; break;
  }
  return (px & 0xFF000000u) | rr << 16 | gg << 8 | bb;
}

}  // namespace

void HueSaturation(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const HueSaturationParams*>(params);
  if (g_fastAllowed.load(std::memory_order_relaxed)) {
    auto tables = std::make_unique<HueTables>();
    FillHueTables(p, *tables);
    ForEachBand(pixels, width, height, [&](uint32_t* px, std::size_t n) {
      for (std::size_t i = 0; i < n; ++i) px[i] = HueSaturationPixel(px[i], *tables, p.lightness);
    });
    return;
  }
  const std::size_t n = std::size_t(width) * std::size_t(height);
  for (std::size_t i = 0; i < n; ++i) {
    const uint32_t px = pixels[i];
    Hsv hsv = RgbToHsv((px >> 16) & 255, (px >> 8) & 255, px & 255);
    hsv.h += p.hue;
    hsv.s = std::clamp((p.saturation / 100.0 + 1) * hsv.s, 0.0, 1.0);
    int32_t c[3];
    HsvToRgb(hsv.h, hsv.s, hsv.v, c[0], c[1], c[2]);
    for (int32_t& v : c) v = Lighten(v, p.lightness);
    pixels[i] = Rgb(px >> 24, c[0], c[1], c[2]);
  }
}

void Colorize(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const ColorizeParams*>(params);
  int32_t tint[3];
  HsvToRgb(p.hue, std::clamp(p.saturation / 100.0, 0.0, 1.0), 1.0, tint[0], tint[1], tint[2]);
  // The colour depends on the luminance alone: one entry per luminance.
  uint32_t colours[256];
  for (uint32_t y = 0; y < 256; ++y) {
    const double l = y / 255.0 + p.lightness / 200.0;
    int32_t c[3];
    for (int k = 0; k < 3; ++k) {
      if (l < 0) c[k] = 0;
      else if (l > 1) c[k] = 255;
      else if (l < 0.5) c[k] = static_cast<int32_t>(std::floor(tint[k] * (2 * l)));
      else c[k] = static_cast<int32_t>(std::floor((255 - tint[k]) * (2 * (l - 0.5)) + tint[k]));
    }
    colours[y] = Rgb(0, c[0], c[1], c[2]);
  }
  ForEachBand(pixels, width, height, [&](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t q = px[i];
      px[i] = (q & 0xFF000000u) | colours[Luminance((q >> 16) & 255, (q >> 8) & 255, q & 255)];
    }
  });
}

void Grayscale(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  ForEachBand(pixels, width, height, [](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      const uint32_t y = Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255);
      px[i] = (p & 0xFF000000u) | y << 16 | y << 8 | y;
    }
  });
}

void Sepia(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  ForEachBand(pixels, width, height, [](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i], r = (p >> 16) & 255, g = (p >> 8) & 255, b = p & 255;
      const uint32_t r2 = std::min(255u, (393 * r + 769 * g + 189 * b) / 1000);
      const uint32_t g2 = std::min(255u, (349 * r + 686 * g + 168 * b) / 1000);
      const uint32_t b2 = (272 * r + 534 * g + 131 * b) / 1000;
      px[i] = (p & 0xFF000000u) | r2 << 16 | g2 << 8 | b2;
    }
  });
}

void Invert(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  ForEachBand(pixels, width, height, [](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) px[i] ^= 0x00FFFFFFu;
  });
}

void Posterize(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  uint8_t table[256];
  PosterizeTable(static_cast<const PosterizeParams*>(params)->levels, table);
  ApplyOneLut(pixels, width, height, table);
}

void Threshold(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const int32_t t = static_cast<const ThresholdParams*>(params)->threshold;
  ForEachBand(pixels, width, height, [t](uint32_t* px, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      const int32_t y = static_cast<int32_t>(Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255));
      px[i] = (p & 0xFF000000u) | (t > y ? 0u : 0x00FFFFFFu);
    }
  });
}

void AutoTone(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  // Three histograms, then the count, in one block of counters.
  uint64_t counts[3 * 256 + 1] = {};
  CountBands(pixels, width, height, counts, 3 * 256 + 1, [](const uint32_t* px, std::size_t n, uint64_t* c) {
    uint64_t seen = 0;  // kept out of the array, so it stays in a register
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      if (!(p >> 24)) continue;
      ++c[(p >> 16) & 255];
      ++c[256 + ((p >> 8) & 255)];
      ++c[512 + (p & 255)];
      ++seen;
    }
    c[768] += seen;
  });
  const uint64_t count = counts[768];
  if (count == 0) return;
  uint8_t tables[3][256];
  for (int c = 0; c < 3; ++c) {
    const ClipRange range = PercentileClip(counts + 256 * c, count, 0.1);
    StretchLut(tables[c], range.low, range.high);
  }
  ApplyChannelLuts(pixels, width, height, tables[0], tables[1], tables[2]);
}

void AutoContrast(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  uint64_t counts[257] = {};  // the histogram, then the total
  CountBands(pixels, width, height, counts, 257, [](const uint32_t* px, std::size_t n, uint64_t* c) {
    uint64_t seen = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      if (!(p >> 24)) continue;
      ++c[(p >> 16) & 255];
      ++c[(p >> 8) & 255];
      ++c[p & 255];
      ++seen;
    }
    c[256] += 3 * seen;
  });
  const uint64_t total = counts[256];
  if (total == 0) return;
  const ClipRange range = PercentileClip(counts, total, 0.5);
  uint8_t table[256];
  StretchLut(table, range.low, range.high);
  ApplyOneLut(pixels, width, height, table);
}

void AutoColor(uint32_t* pixels, int32_t width, int32_t height, const void*) {
  uint64_t lumCounts[257] = {};  // the luminance histogram, then the count
  CountBands(pixels, width, height, lumCounts, 257, [](const uint32_t* px, std::size_t n, uint64_t* c) {
    uint64_t seen = 0;
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      if (!(p >> 24)) continue;
      ++c[Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255)];
      ++seen;
    }
    c[256] += seen;
  });
  const uint64_t count = lumCounts[256];
  if (count == 0) return;
  const ClipRange range = PercentileClip(lumCounts, count, 0.5);
  // Black and white points from the shadows' and highlights' means:
  // the shadows' three sums and count, then the highlights'.
  uint64_t points[8] = {};
  CountBands(pixels, width, height, points, 8, [&range](const uint32_t* px, std::size_t n, uint64_t* out) {
    uint64_t s[8] = {};
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      if (!(p >> 24)) continue;
      const uint32_t c[3] = {(p >> 16) & 255, (p >> 8) & 255, p & 255};
      const int32_t y = static_cast<int32_t>(Luminance(c[0], c[1], c[2]));
      if (y <= range.low) {
        for (int k = 0; k < 3; ++k) s[k] += c[k];
        ++s[3];
      }
      if (y >= range.high) {
        for (int k = 0; k < 3; ++k) s[4 + k] += c[k];
        ++s[7];
      }
    }
    std::copy(s, s + 8, out);
  });
  const uint64_t shadows = points[3], lights = points[7];
  uint8_t first[3][256];
  for (int k = 0; k < 3; ++k) {
    const int32_t black = shadows ? static_cast<int32_t>(points[k] / shadows) : 0;
    const int32_t white = lights ? static_cast<int32_t>(points[4 + k] / lights) : 255;
    StretchLut(first[k], black, white);
  }
  // Grey balance from the near-neutral mid-tones: their chroma histogram,
  // with every other pixel counted in the spare last slot (no branch to
  // mispredict on noisy images).
  uint64_t chromaCounts[257] = {};
  CountBands(pixels, width, height, chromaCounts, 257, [&first](const uint32_t* px, std::size_t n, uint64_t* h) {
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = px[i];
      const uint32_t c[3] = {first[0][(p >> 16) & 255], first[1][(p >> 8) & 255], first[2][p & 255]};
      const uint32_t y = Luminance(c[0], c[1], c[2]);
      const bool kept = (p >> 24) != 0 && y >= 64 && y <= 192;
      ++h[kept ? std::max({c[0], c[1], c[2]}) - std::min({c[0], c[1], c[2]}) : 256];
    }
  });
  uint64_t kept = 0;
  for (int k = 0; k < 256; ++k) kept += chromaCounts[k];
  double exponent[3] = {1.0, 1.0, 1.0};
  if (kept > 16) {
    int32_t t = 0;
    uint64_t running = 0;
    for (int k = 0; k < 256; ++k) {
      running += chromaCounts[k];
      if (running >= kept / 5) {
        t = k;
        break;
      }
    }
    uint64_t sums[4] = {};  // of the three channels, then their count
    CountBands(pixels, width, height, sums, 4, [&first, t](const uint32_t* px, std::size_t n, uint64_t* out) {
      uint64_t s[4] = {};
      for (std::size_t i = 0; i < n; ++i) {
        const uint32_t p = px[i];
        const uint32_t c[3] = {first[0][(p >> 16) & 255], first[1][(p >> 8) & 255], first[2][p & 255]};
        const uint32_t y = Luminance(c[0], c[1], c[2]);
        const uint32_t chroma = std::max({c[0], c[1], c[2]}) - std::min({c[0], c[1], c[2]});
        const uint32_t kept = (p >> 24) != 0 && y >= 64 && y <= 192 && static_cast<int32_t>(chroma) <= t;
        for (int k = 0; k < 3; ++k) s[k] += c[k] & (0u - kept);
        s[3] += kept;
      }
      std::copy(s, s + 4, out);
    });
    const uint64_t q = sums[3];
    if (q > 0) {
      for (int k = 0; k < 3; ++k) {
        const double mean = (static_cast<double>(sums[k]) / static_cast<double>(q)) / 255.0;
        if (mean < 0.06) exponent[k] = 0.6;
        else if (mean > 0.94) exponent[k] = 1.7;
        else exponent[k] = std::clamp(std::log(128.0 / 255.0) / std::log(mean), 0.6, 1.7);
      }
    }
  }
  uint8_t final[3][256];
  for (int k = 0; k < 3; ++k)
    for (int i = 0; i < 256; ++i)
      final[k][i] = ClampRound(std::pow(first[k][i] / 255.0, exponent[k]) * 255.0);
  ApplyChannelLuts(pixels, width, height, final[0], final[1], final[2]);
}

void ApplyToSelection(Document& doc, std::u16string_view historyName, PixelOp op,
                      const void* params, int32_t margin) {
  Layer* layer = ActiveLayer(&doc);
  if (!layer) return;
  Surface& pixels = layer->pixels;
  const Rect layerRect{0, 0, pixels.Width(), pixels.Height()};
  const Rect target =
      Intersect(doc.selection ? doc.selectionBounds : doc.Bounds(), layerRect);
  if (target.Empty()) return;
  const int32_t m = std::max(margin, 0);
  const Rect work = Intersect({target.x0 - m, target.y0 - m, target.x1 + m, target.y1 + m}, layerRect);
  const int32_t ww = work.Width(), wh = work.Height();
  std::unique_ptr<uint32_t[], FreeDeleter> buffer(
      static_cast<uint32_t*>(CheckedAlloc(std::size_t(ww) * std::size_t(wh) * 4)));
  for (int32_t y = 0; y < wh; ++y)
    std::memcpy(buffer.get() + std::size_t(y) * ww, pixels.Row(work.y0 + y) + work.x0, std::size_t(ww) * 4);
  op(buffer.get(), ww, wh, params);

  // One undo step holding exactly the tiles the result touches.
  BeginTiles(doc, doc.active, historyName);
  SaveTiles(doc, target);
  for (int32_t y = target.y0; y < target.y1; ++y) {
    uint32_t* row = pixels.Row(y);
    const uint32_t* result = buffer.get() + std::size_t(y - work.y0) * ww - work.x0;
    const uint8_t* mask = doc.selection ? doc.selection->Row(y) : nullptr;
    for (int32_t x = target.x0; x < target.x1; ++x) {
      const uint32_t cover = mask ? mask[x] : 255;
      if (cover == 255) row[x] = result[x];
      else if (cover > 0) row[x] = LerpPixel(row[x], result[x], cover);
    }
  }
  CommitTiles(doc);
  Invalidate(doc, doc.active, target);
}

}  // namespace tavora
