#include "processing/color_depth.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "document/layer_commands.h"
#include "processing/adjustments.h"

namespace tavora {
namespace {

constexpr ColorDepthChoice kChoices[] = {
    {u"True color \u2013 16.7 million (24-bit)", 16777216, DepthMode::Palette},
    {u"High color \u2013 65,536 (RGB 5-6-5)", 65536, DepthMode::Grid565},
    {u"High color \u2013 32,768 (RGB 5-5-5)", 32768, DepthMode::Grid555},
    {u"256 colors (8-bit palette)", 256, DepthMode::Palette},
    {u"128 colors", 128, DepthMode::Palette},
    {u"64 colors", 64, DepthMode::Palette},
    {u"32 colors", 32, DepthMode::Palette},
    {u"16 colors (4-bit palette)", 16, DepthMode::Palette},
    {u"8 colors", 8, DepthMode::Palette},
    {u"4 colors", 4, DepthMode::Palette},
    {u"2 colors (1-bit)", 2, DepthMode::Palette},
};

constexpr int kCells = 32768;

uint32_t CellOf(uint32_t r, uint32_t g, uint32_t b) { return (r >> 3) << 10 | (g >> 3) << 5 | (b >> 3); }

struct Entry {
  uint32_t cell, count;
  int32_t mean[3];  // R, G, B
};

// Floyd-Steinberg's two rows of carried error, one pixel of slack at each
// end so the edges need no tests.
class ErrorRows {
 public:
  explicit ErrorRows(int32_t width) : current_(std::size_t(width + 2) * 3, 0.0f), next_(current_.size(), 0.0f) {}
  float* Current(int32_t x) { return &current_[std::size_t(x + 1) * 3]; }
  // Spreads one pixel's error: 7/16 right, 3/16 below-left, 5/16 below,
  // 1/16 below-right.
  void Spread(int32_t x, int channel, float e) {
    current_[std::size_t(x + 2) * 3 + channel] += e * 7 / 16;
    next_[std::size_t(x) * 3 + channel] += e * 3 / 16;
    next_[std::size_t(x + 1) * 3 + channel] += e * 5 / 16;
    next_[std::size_t(x + 2) * 3 + channel] += e * 1 / 16;
  }
  void NextRow() {
    std::swap(current_, next_);
    std::fill(next_.begin(), next_.end(), 0.0f);
  }

 private:
  std::vector<float> current_, next_;
};

void QuantiseGrid(uint32_t* pixels, int32_t width, int32_t height, bool dither, DepthMode mode) {
  const int bits[3] = {5, mode == DepthMode::Grid565 ? 6 : 5, 5};
  ErrorRows errors(width);
  for (int32_t y = 0; y < height; ++y) {
    uint32_t* row = pixels + std::size_t(y) * width;
    for (int32_t x = 0; x < width; ++x) {
      uint32_t out = row[x] & 0xFF000000u;
      for (int c = 0; c < 3; ++c) {
        const int shift = 16 - 8 * c;
        const int32_t levels = (1 << bits[c]) - 1;
        float v = static_cast<float>((row[x] >> shift) & 255);
        if (dither) v += errors.Current(x)[c];
        v = std::clamp(v, 0.0f, 255.0f);
        const int32_t q = static_cast<int32_t>(std::floor(levels * v / 255 + 0.5f)) * 255 / levels;
        if (dither) errors.Spread(x, c, v - static_cast<float>(q));
        out |= static_cast<uint32_t>(q) << shift;
      }
      row[x] = out;
    }
    if (dither) errors.NextRow();
  }
}

void MapThroughPalette(uint32_t* pixels, int32_t width, int32_t height, bool dither,
                       const std::vector<uint32_t>& palette, const std::vector<uint8_t>& inverse) {
  if (!dither) {
    const std::size_t n = std::size_t(width) * std::size_t(height);
    for (std::size_t i = 0; i < n; ++i) {
      const uint32_t p = pixels[i];
      const uint32_t c = palette[inverse[CellOf((p >> 16) & 255, (p >> 8) & 255, p & 255)]];
      pixels[i] = (p & 0xFF000000u) | (c & 0x00FFFFFFu);
    }
    return;
  }
  ErrorRows errors(width);
  for (int32_t y = 0; y < height; ++y) {
    uint32_t* row = pixels + std::size_t(y) * width;
    for (int32_t x = 0; x < width; ++x) {
      float v[3];
      int32_t rounded[3];
      for (int c = 0; c < 3; ++c) {
        v[c] = static_cast<float>((row[x] >> (16 - 8 * c)) & 255) + errors.Current(x)[c];
        rounded[c] = std::clamp(static_cast<int32_t>(std::floor(v[c] + 0.5f)), 0, 255);
      }
      const uint32_t color = palette[inverse[CellOf(rounded[0], rounded[1], rounded[2])]];
      for (int c = 0; c < 3; ++c)
        errors.Spread(x, c, v[c] - static_cast<float>((color >> (16 - 8 * c)) & 255));
      row[x] = (row[x] & 0xFF000000u) | (color & 0x00FFFFFFu);
    }
    errors.NextRow();
  }
}

}  // namespace

std::span<const ColorDepthChoice> ColorDepthChoices() { return kChoices; }

int32_t ColorDepthRow(uint32_t colors, DepthMode mode) {
  for (std::size_t i = 0; i < std::size(kChoices); ++i)
    if (kChoices[i].colors == colors && kChoices[i].mode == mode) return static_cast<int32_t>(i);
  return 3;
}

std::vector<uint32_t> MedianCutPalette(const uint32_t* pixels, std::size_t count, uint32_t colors) {
  const uint32_t n = std::clamp<uint32_t>(colors, 2, 256);
  std::vector<uint32_t> cellCount(kCells, 0), sum(std::size_t(kCells) * 3, 0);
  for (std::size_t i = 0; i < count; ++i) {
    const uint32_t p = pixels[i], r = (p >> 16) & 255, g = (p >> 8) & 255, b = p & 255;
    const uint32_t cell = CellOf(r, g, b);
    ++cellCount[cell];
    sum[cell * 3] += r;
    sum[cell * 3 + 1] += g;
    sum[cell * 3 + 2] += b;
  }
  std::vector<Entry> entries;
  for (uint32_t cell = 0; cell < kCells; ++cell) {
    const uint32_t k = cellCount[cell];
    if (k)
      entries.push_back({cell, k,
                         {static_cast<int32_t>(sum[cell * 3] / k), static_cast<int32_t>(sum[cell * 3 + 1] / k),
                          static_cast<int32_t>(sum[cell * 3 + 2] / k)}});
  }
  struct Box {
    std::size_t start, end;
  };
  std::vector<Box> boxes{{0, entries.size()}};
  while (boxes.size() < n) {
    int64_t bestScore = -1;
    std::size_t best = 0;
    int bestAxis = 0;
    for (std::size_t b = 0; b < boxes.size(); ++b) {
      const Box& box = boxes[b];
      if (box.end - box.start < 2) continue;
      int32_t lo[3] = {255, 255, 255}, hi[3] = {0, 0, 0};
      uint64_t total = 0;
      for (std::size_t i = box.start; i < box.end; ++i) {
        for (int c = 0; c < 3; ++c) {
          lo[c] = std::min(lo[c], entries[i].mean[c]);
          hi[c] = std::max(hi[c], entries[i].mean[c]);
        }
        total += entries[i].count;
      }
      const int64_t weighted[3] = {3 * (hi[0] - lo[0]), 4 * (hi[1] - lo[1]), 2 * (hi[2] - lo[2])};
      const int axis = weighted[0] >= weighted[1] && weighted[0] >= weighted[2] ? 0
                       : weighted[1] >= weighted[2]                              ? 1
                                                                                 : 2;
      const int64_t score = static_cast<int64_t>(std::sqrt(static_cast<double>(total))) * weighted[axis];
      if (score > bestScore) {
        bestScore = score;
        best = b;
        bestAxis = axis;
      }
    }
    if (bestScore < 0) break;  // every box holds a single entry
    Box& box = boxes[best];
    std::sort(entries.begin() + static_cast<std::ptrdiff_t>(box.start),
              entries.begin() + static_cast<std::ptrdiff_t>(box.end),
              [bestAxis](const Entry& a, const Entry& b) { return a.mean[bestAxis] < b.mean[bestAxis]; });
    uint64_t total = 0;
    for (std::size_t i = box.start; i < box.end; ++i) total += entries[i].count;
    std::size_t split = box.end - 1;
    uint64_t running = 0;
    for (std::size_t i = box.start; i < box.end; ++i) {
      running += entries[i].count;
      if (2 * running >= total) {
        split = std::min(i + 1, box.end - 1);
        break;
      }
    }
    const Box upper{split, box.end};
    box.end = split;
    boxes.push_back(upper);
  }
  std::vector<uint32_t> palette;
  for (const Box& box : boxes) {
    uint64_t k = 0, s[3] = {0, 0, 0};
    for (std::size_t i = box.start; i < box.end; ++i) {
      k += entries[i].count;
      for (int c = 0; c < 3; ++c) s[c] += uint64_t(entries[i].mean[c]) * entries[i].count;
    }
    uint32_t color = 0xFF000000u;
    if (k)
      for (int c = 0; c < 3; ++c) color |= static_cast<uint32_t>(s[c] / k) << (16 - 8 * c);
    palette.push_back(color);
  }
  return palette;
}

std::vector<uint8_t> InversePaletteTable(std::span<const uint32_t> palette) {
  std::vector<uint8_t> table(kCells, 0);
  for (uint32_t cell = 0; cell < kCells; ++cell) {
    const int32_t centre[3] = {int32_t(cell >> 10) * 8 + 4, int32_t((cell >> 5) & 31) * 8 + 4,
                               int32_t(cell & 31) * 8 + 4};
    int64_t best = INT64_MAX;
    for (std::size_t i = 0; i < palette.size(); ++i) {
      const int32_t d[3] = {centre[0] - int32_t((palette[i] >> 16) & 255),
                            centre[1] - int32_t((palette[i] >> 8) & 255), centre[2] - int32_t(palette[i] & 255)};
      const int64_t dist = 3LL * d[0] * d[0] + 4LL * d[1] * d[1] + 2LL * d[2] * d[2];
      if (dist < best) {
        best = dist;
        table[cell] = static_cast<uint8_t>(i);
      }
    }
  }
  return table;
}

void ReduceColors(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const ColorDepthParams*>(params);
  if (p.mode == DepthMode::Grid555 || p.mode == DepthMode::Grid565) {
    QuantiseGrid(pixels, width, height, p.dither, p.mode);
    return;
  }
  if (p.colors > 256) return;
  const std::vector<uint32_t> palette = MedianCutPalette(pixels, std::size_t(width) * std::size_t(height), p.colors);
  MapThroughPalette(pixels, width, height, p.dither, palette, InversePaletteTable(palette));
}

void ApplyColorDepth(Document& doc, uint32_t colors, bool dither, DepthMode mode) {
  if (!ActiveLayer(&doc)) return;
  if (doc.LayerCount() > 1) {
    PushWholeDocument(doc, u"Flatten");
    FlattenLayers(doc);
    Invalidate(doc, -1, doc.Bounds());
    NotifyLayersChanged(doc);
  }
  if (colors > 16777215 && mode == DepthMode::Palette) {
    doc.colorCount = static_cast<int32_t>(std::min<uint32_t>(colors, 16777216));
    doc.modified = true;
    NotifySizeChanged(doc);
    return;
  }
  const ColorDepthParams params{colors, dither, mode};
  ApplyToSelection(doc, u"Color Depth", &ReduceColors, &params, 0);
  doc.colorCount = mode == DepthMode::Grid555   ? 32768
                   : mode == DepthMode::Grid565 ? 65536
                                                : static_cast<int32_t>(std::min<uint32_t>(colors, 16777216));
  doc.modified = true;
  NotifySizeChanged(doc);
}

}  // namespace tavora
