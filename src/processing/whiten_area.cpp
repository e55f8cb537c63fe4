#include "processing/whiten_area.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/row_workers.h"
#include "processing/adjustments.h"
#include "processing/filters.h"

namespace tavora {
namespace {

static_assert(sizeof(WhitenAreaParams) <= 64 && alignof(WhitenAreaParams) <= 8);  // the dialogs' parameter blocks

// The background average leaves out pixels at least this much darker than
// the ground (per cent), whatever the detection: with a negative detection
// everything is replaced, and the fill must still come from the light pixels.
constexpr int32_t kGroundExclusion = 5;
// The ground's colour is averaged over blocks of about a third of the
// radius and a window of this many blocks each side, then interpolated.
constexpr int32_t kColorWindowBlocks = 3;

uint8_t Lum(uint32_t p) { return uint8_t(Luminance((p >> 16) & 255, (p >> 8) & 255, p & 255)); }

// The maximum (or minimum) over x - r .. x + r of a line, cut at its ends,
// in constant time per value: prefix and suffix extremes within blocks of
// 2r + 1 (van Herk / Gil-Werman). `line` holds the padded values.
template <bool kMax>
struct Extreme {
  static uint8_t Pick(uint8_t a, uint8_t b) { return kMax ? std::max(a, b) : std::min(a, b); }
  static constexpr uint8_t kNone = kMax ? 0 : 255;
};

template <bool kMax>
void ExtremeRowsOf(uint8_t* plane, int32_t w, int32_t r, int first, int end) {
  using E = Extreme<kMax>;
  const int32_t k = 2 * r + 1, padded = w + 2 * r;
  std::vector<uint8_t> v(padded, E::kNone), g(padded), h(padded);
  for (int y = first; y < end; ++y) {
    uint8_t* row = plane + std::size_t(y) * w;
    std::copy(row, row + w, v.begin() + r);
    for (int32_t b = 0; b < padded; b += k) {
      const int32_t e = std::min(b + k, padded);
      g[b] = v[b];
      for (int32_t p = b + 1; p < e; ++p) g[p] = E::Pick(g[p - 1], v[p]);
      h[e - 1] = v[e - 1];
      for (int32_t p = e - 2; p >= b; --p) h[p] = E::Pick(h[p + 1], v[p]);
    }
    for (int32_t x = 0; x < w; ++x) row[x] = E::Pick(h[x], g[x + 2 * r]);
  }
}

// The same down the columns first..end, a band of columns at a time so that
// rows are read in order.
template <bool kMax>
void ExtremeColumnsOf(uint8_t* plane, int32_t w, int32_t h, int32_t r, int first, int end) {
  using E = Extreme<kMax>;
  constexpr int32_t kBand = 64;
  const int32_t k = 2 * r + 1, padded = h + 2 * r;
  std::vector<uint8_t> g(std::size_t(padded) * kBand), s(std::size_t(padded) * kBand), none(kBand, E::kNone);
  for (int32_t x0 = first; x0 < end; x0 += kBand) {
    const int32_t n = std::min(kBand, end - x0);
    auto source = [&](int32_t p) {
      const int32_t y = p - r;
      return y >= 0 && y < h ? plane + std::size_t(y) * w + x0 : none.data();
    };
    auto at = [&](std::vector<uint8_t>& buffer, int32_t p) { return buffer.data() + std::size_t(p) * kBand; };
    for (int32_t b = 0; b < padded; b += k) {
      const int32_t e = std::min(b + k, padded);
      std::copy_n(source(b), n, at(g, b));
      for (int32_t p = b + 1; p < e; ++p) {
        const uint8_t *in = source(p), *above = at(g, p - 1);
        uint8_t* out = at(g, p);
        for (int32_t i = 0; i < n; ++i) out[i] = E::Pick(above[i], in[i]);
      }
      std::copy_n(source(e - 1), n, at(s, e - 1));
      for (int32_t p = e - 2; p >= b; --p) {
        const uint8_t *in = source(p), *below = at(s, p + 1);
        uint8_t* out = at(s, p);
        for (int32_t i = 0; i < n; ++i) out[i] = E::Pick(below[i], in[i]);
      }
    }
    for (int32_t y = 0; y < h; ++y) {
      const uint8_t *top = at(s, y), *bottom = at(g, y + 2 * r);
      uint8_t* out = plane + std::size_t(y) * w + x0;
      for (int32_t i = 0; i < n; ++i) out[i] = E::Pick(top[i], bottom[i]);
    }
  }
}

// A square maximum or minimum filter of radius r, in place.
template <bool kMax>
void SquareExtreme(uint8_t* plane, int32_t w, int32_t h, int32_t r) {
  if (r < 1) return;
  auto rows = [&](int first, int end) { ExtremeRowsOf<kMax>(plane, w, r, first, end); };
  auto columns = [&](int first, int end) { ExtremeColumnsOf<kMax>(plane, w, h, r, first, end); };
  RowWorkers::Run(h, rows);
  RowWorkers::Run(w, columns);
}

struct Rgb {
  float r = 0, g = 0, b = 0;
};

// The ground's colour at each pixel: the average of the ground pixels
// (weight 1) over a window, found on blocks and interpolated between them.
class GroundColor {
 public:
  GroundColor(const uint32_t* pixels, const std::vector<uint8_t>& ground, int32_t w, int32_t h,
              int32_t radius)
      : step_(std::max(1, radius / 3)),
        bw_((w + step_ - 1) / step_),
        bh_((h + step_ - 1) / step_),
        sums_(std::size_t(bw_) * bh_ * 4) {
    double total[4] = {};
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x) {
        const std::size_t i = std::size_t(y) * w + x;
        if (!ground[i]) continue;
        float* s = &sums_[(std::size_t(y / step_) * bw_ + x / step_) * 4];
        const uint32_t p = pixels[i];
        s[0] += float((p >> 16) & 255);
        s[1] += float((p >> 8) & 255);
        s[2] += float(p & 255);
        s[3] += 1;
      }
    for (std::size_t i = 0; i < sums_.size(); ++i) total[i % 4] += sums_[i];
    if (total[3] > 0)
      fallback_ = {float(total[0] / total[3]), float(total[1] / total[3]), float(total[2] / total[3])};
    found_ = total[3] > 0;
    BoxBlocks();
  }

  bool Found() const { return found_; }

  // Bilinear between the blocks' centres; blocks whose window held no ground
  // take the whole area's ground.
  Rgb At(int32_t x, int32_t y) const {
    const float fx = (x + 0.5f) / step_ - 0.5f, fy = (y + 0.5f) / step_ - 0.5f;
    const int32_t x0 = std::clamp(int32_t(std::floor(fx)), 0, bw_ - 1),
                  y0 = std::clamp(int32_t(std::floor(fy)), 0, bh_ - 1);
    const int32_t x1 = std::min(x0 + 1, bw_ - 1), y1 = std::min(y0 + 1, bh_ - 1);
    const float tx = std::clamp(fx - x0, 0.0f, 1.0f), ty = std::clamp(fy - y0, 0.0f, 1.0f);
    const float wts[4] = {(1 - tx) * (1 - ty), tx * (1 - ty), (1 - tx) * ty, tx * ty};
    const int32_t xs[4] = {x0, x1, x0, x1}, ys[4] = {y0, y0, y1, y1};
    Rgb c;
    for (int i = 0; i < 4; ++i) {
      const float* s = &sums_[(std::size_t(ys[i]) * bw_ + xs[i]) * 4];
      const Rgb m = s[3] > 0 ? Rgb{s[0] / s[3], s[1] / s[3], s[2] / s[3]} : fallback_;
      c.r += wts[i] * m.r;
      c.g += wts[i] * m.g;
      c.b += wts[i] * m.b;
    }
    return c;
  }

 private:
  // Window sums of (2 kColorWindowBlocks + 1)² blocks, cut at the edges.
  void BoxBlocks() {
    const int32_t r = kColorWindowBlocks;
    std::vector<float> temp(sums_.size());
    auto pass = [&](const std::vector<float>& in, std::vector<float>& out, int32_t count, int32_t lines,
                    std::size_t along, std::size_t across) {
      for (int32_t line = 0; line < lines; ++line)
        for (int32_t i = 0; i < count; ++i)
          for (int c = 0; c < 4; ++c) {
            float s = 0;
            for (int32_t j = std::max(0, i - r); j <= std::min(count - 1, i + r); ++j)
              s += in[(line * across + j * along) * 4 + c];
            out[(line * across + i * along) * 4 + c] = s;
          }
    };
    pass(sums_, temp, bw_, bh_, 1, std::size_t(bw_));
    pass(temp, sums_, bh_, bw_, std::size_t(bw_), 1);
  }

  int32_t step_, bw_, bh_;
  std::vector<float> sums_;  // r, g, b, count per block
  Rgb fallback_;
  bool found_ = false;
};

uint8_t ToByte(float v) { return uint8_t(std::clamp(std::lround(v), 0L, 255L)); }

}  // namespace

int32_t WhitenGroundRadius(int32_t width, int32_t height) {
  return std::clamp(std::min(width, height) / 8, 4, 64);
}

void WhitenArea(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const WhitenAreaParams*>(params);
  if (width < 1 || height < 1) return;
  const std::size_t n = std::size_t(width) * std::size_t(height);
  const int32_t radius = WhitenGroundRadius(width, height);

  // The ground: a closing of the luminance, which fills in anything darker
  // and narrower than the square. Transparent pixels are neither ground nor marks.
  std::vector<uint8_t> luma(n), ground(n);
  for (std::size_t i = 0; i < n; ++i) luma[i] = pixels[i] >> 24 ? Lum(pixels[i]) : 0;
  ground = luma;
  SquareExtreme<true>(ground.data(), width, height, radius);
  SquareExtreme<false>(ground.data(), width, height, radius);

  // Marks, and the pixels the ground's colour may be taken from.
  const int32_t detection = std::clamp(p.detection, -100, 100);
  const int32_t exclusion = std::max(detection, kGroundExclusion);
  std::vector<uint8_t> mask(n), source(n);
  bool any = false;
  for (std::size_t i = 0; i < n; ++i) {
    if (!(pixels[i] >> 24)) continue;
    const int32_t y = luma[i], g = ground[i];
    // y < g (1 - d / 100) in whole numbers.
    mask[i] = 100 * y < g * (100 - detection) ? 255 : 0;
    source[i] = 100 * y < g * (100 - exclusion) ? 0 : 1;
    any |= mask[i] != 0;
  }
  if (!any) return;
  // Lighter edge pixels of a mark (antialiasing, a stain's rim) go with it,
  // and neither may colour the fill.
  SquareExtreme<true>(mask.data(), width, height, 1);
  std::vector<uint8_t> darkened(n);
  for (std::size_t i = 0; i < n; ++i) darkened[i] = source[i] ? 0 : 255;
  SquareExtreme<true>(darkened.data(), width, height, 1);
  for (std::size_t i = 0; i < n; ++i) source[i] = source[i] && !darkened[i] && (pixels[i] >> 24);
  const GroundColor color(pixels, source, width, height, radius);
  if (!color.Found()) return;
  // The feather: the mask grown by half of it, then blurred by it, so a mark
  // itself is replaced fully and the fill fades out around it.
  const int32_t feather = std::clamp(p.feather, 0, 200);
  if (feather > 0) {
    SquareExtreme<true>(mask.data(), width, height, (feather + 1) / 2);
    GaussianBlurBytes(mask.data(), width, height, float(feather));
  }

  int32_t tint[3] = {255, 255, 255};
  HsvToRgb(p.tintHue, 1.0, 1.0, tint[0], tint[1], tint[2]);
  const float tintLuma = float(std::max<uint32_t>(1, Luminance(tint[0], tint[1], tint[2])));
  const float lift = std::clamp(p.fillBrightness, 0, 100) / 100.0f;
  const float saturation = std::clamp(p.fillSaturation, 0, 1000) / 100.0f;
  const float tintAmount = std::clamp(p.tintIntensity, 0, 100) / 100.0f;
  auto body = [&](int first, int end) {
    for (int32_t y = first; y < end; ++y)
      for (int32_t x = 0; x < width; ++x) {
        const std::size_t i = std::size_t(y) * width + x;
        if (!mask[i] || !(pixels[i] >> 24)) continue;
        const Rgb c = color.At(x, y);
        float rgb[3] = {c.r + (255 - c.r) * lift, c.g + (255 - c.g) * lift, c.b + (255 - c.b) * lift};
        const float l = (77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2]) / 256;
        for (float& v : rgb) v = std::clamp(l + (v - l) * saturation, 0.0f, 255.0f);
        if (tintAmount > 0) {
          // The tint's hue at the fill's own luminance.
          const float fl = (77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2]) / 256;
          for (int k = 0; k < 3; ++k)
            rgb[k] += (std::min(255.0f, fl * tint[k] / tintLuma) - rgb[k]) * tintAmount;
        }
        const uint32_t fill = (pixels[i] & 0xFF000000u) | uint32_t(ToByte(rgb[0])) << 16 |
                              uint32_t(ToByte(rgb[1])) << 8 | ToByte(rgb[2]);
        pixels[i] = LerpPixel(pixels[i], fill, mask[i]);
      }
  };
  RowWorkers::Run(height, body);
}

}  // namespace tavora
