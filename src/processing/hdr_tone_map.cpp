#include "processing/hdr_tone_map.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <vector>

#include "base/progress.h"
#include "base/row_workers.h"

namespace tavora {
namespace {

static_assert(sizeof(HdrToneMapParams) <= 64 && alignof(HdrToneMapParams) <= 8);  // the dialogs' parameter blocks

// Keeps log2 finite at black and keeps the noise of deep shadows (below
// about three sRGB levels) from being taken for detail.
constexpr float kLogOffset = 1.0f / 1024.0f;
// Share of the picture (by opaque weight) below the level compression
// pivots on: the highlights keep their level, the shadows are lifted.
constexpr double kPivotPercentile = 0.99;
// The output table is indexed by log2(linear + offset) in 1/1024 stops, from
// log2(offset) = -10 (black) up to just past white.
constexpr int kEncodePerStop = 1024;
constexpr float kEncodeLowest = -10.0f;
constexpr int kEncodeSteps = 10 * kEncodePerStop + 16;
constexpr int kChunkRows = 16;  // rows between progress reports

// log2 for x > 0 within 1e-7: the mantissa taken into [sqrt 1/2, sqrt 2)
// and the atanh series of (m - 1) / (m + 1).
inline float FastLog2(float x) {
  uint32_t bits = std::bit_cast<uint32_t>(x);
  int32_t e = int32_t(bits >> 23) - 127;
  float m = std::bit_cast<float>((bits & 0x007FFFFFu) | 0x3F800000u);
  if (m > 1.41421356f) {
    m *= 0.5f;
    ++e;
  }
  const float t = (m - 1.0f) / (m + 1.0f), t2 = t * t;
  const float series = t * (2.0f + t2 * (2.0f / 3 + t2 * (2.0f / 5 + t2 * (2.0f / 7))));
  return float(e) + series * 1.44269504f;
}

float SrgbToLinear(double v) { return float(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4)); }
double LinearToSrgb(double v) { return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055; }

struct Tables {
  float linear[256];
  float logChannel[256];         // log2(linear + offset)
  uint8_t encode[kEncodeSteps];  // log2(linear + offset) in steps -> sRGB byte, gamma applied
};

void BuildTables(Tables& t, double gamma) {
  for (int i = 0; i < 256; ++i) {
    t.linear[i] = SrgbToLinear(i / 255.0);
    t.logChannel[i] = float(std::log2(double(t.linear[i]) + kLogOffset));
  }
  const double exponent = 1.0 / std::clamp(gamma, 0.05, 20.0);
  for (int i = 0; i < kEncodeSteps; ++i) {
    const double linear = std::exp2(kEncodeLowest + double(i) / kEncodePerStop) - kLogOffset;
    const double v = std::pow(LinearToSrgb(std::clamp(linear, 0.0, 1.0)), exponent) * 255.0;
    t.encode[i] = uint8_t(std::clamp(std::lround(v), 0L, 255L));
  }
}

inline float PixelLog(const Tables& t, uint32_t p) {
  const float y =
      0.2126f * t.linear[(p >> 16) & 255] + 0.7152f * t.linear[(p >> 8) & 255] + 0.0722f * t.linear[p & 255];
  return FastLog2(y + kLogOffset);
}

// The pivot of the compression: the log luminance that kPivotPercentile of
// the opaque picture stays below, from every third pixel of every third row
// in 1/64-stop bins.
float PivotLevel(const uint32_t* pixels, int32_t width, int32_t height, const Tables& t) {
  constexpr float kLowest = -11.0f, kBinsPerStop = 64.0f;
  constexpr int kBins = 12 * 64;
  std::vector<double> histogram(kBins);
  double total = 0;
  for (int32_t y = height > 1; y < height; y += 3) {
    const uint32_t* row = pixels + std::size_t(y) * width;
    for (int32_t x = width > 1; x < width; x += 3) {
      if (!(row[x] >> 24)) continue;
      const int bin = std::clamp(int((PixelLog(t, row[x]) - kLowest) * kBinsPerStop), 0, kBins - 1);
      histogram[bin] += row[x] >> 24;
      total += row[x] >> 24;
    }
  }
  if (total <= 0) return 0;  // all transparent: pivot at white
  double seen = 0;
  int bin = 0;
  while (bin < kBins - 1 && seen + histogram[bin] < kPivotPercentile * total) seen += histogram[bin++];
  return kLowest + (bin + 0.5f) / kBinsPerStop;
}

// The bilateral grid: the log luminance splatted into cells of `cell`
// pixels by kRangeStep stops, weighted by alpha, then blurred in all three
// directions. Reading it back at a pixel's place and level averages only
// pixels of similar level nearby: a smoothing that stops at edges, whose
// cost per pixel does not depend on the radius.
struct Grid {
  float cell = 1;
  int32_t gx = 0, gy = 0, gz = 0;
  std::vector<float> data;  // per cell: sum of w L, sum of w; z fastest
  float* At(int32_t x, int32_t y, int32_t z) { return &data[2 * ((std::size_t(y) * gx + x) * gz + z)]; }
  const float* At(int32_t x, int32_t y, int32_t z) const {
    return &data[2 * ((std::size_t(y) * gx + x) * gz + z)];
  }
};

constexpr float kRangeStep = 0.5f;      // stops per cell: steps of a few of these are edges
constexpr float kLogHighest = 0.0015f;  // log2(1 + offset), white
constexpr int32_t kPad = 2;             // cells around the grid for the blur's reach
// The grid's cells are never smaller than this allows (a 24-megapixel
// picture at a small radius would otherwise need hundreds of megabytes).
constexpr double kMaxGridCells = 8e6;

struct ToneJob {
  uint32_t* pixels;
  int32_t width, height;
  const Tables* tables;
  Grid* grid;
  float compression, detail, saturation, exposure, pivot;
  Progress* progress;
};

float LevelIndex(float logY) { return (logY - kEncodeLowest) / kRangeStep + kPad; }

// Each worker owns whole grid rows and splats the pixel rows nearest to them.
void SplatRows(int first, int end, void* context) {
  const ToneJob& j = *static_cast<const ToneJob*>(context);
  Grid& g = *j.grid;
  const int32_t y0 = std::max(0, int32_t(std::floor((first - 0.5f) * g.cell)) - 1);
  const int32_t y1 = std::min(j.height, int32_t(std::ceil((end - 0.5f) * g.cell)) + 1);
  for (int32_t y = y0; y < y1; ++y) {
    const int32_t row = int32_t(y / g.cell + 0.5f);  // nearest; all positions here are positive
    if (row < first || row >= end) continue;
    if ((y & 15) == 0 && StopRequested(j.progress)) return;
    const uint32_t* src = j.pixels + std::size_t(y) * j.width;
    for (int32_t x = 0; x < j.width; ++x) {
      const uint32_t px = src[x];
      if (!(px >> 24)) continue;
      const float w = float(px >> 24) * (1.0f / 255), logY = PixelLog(*j.tables, px);
      float* c = g.At(int32_t(x / g.cell + 0.5f) + kPad, row + kPad, int32_t(LevelIndex(logY) + 0.5f));
      c[0] += w * logY;
      c[1] += w;
    }
    if (j.progress) j.progress->Advance(1);
  }
}

// A [1 4 6 4 1] / 16 blur along one axis of the grid, from `from` into `to`
// (zero beyond the grid), for the grid rows first..end.
void BlurAxis(const Grid& g, const std::vector<float>& from, std::vector<float>& to, int axis, int first,
              int end) {
  constexpr float kTaps[5] = {1 / 16.0f, 4 / 16.0f, 6 / 16.0f, 4 / 16.0f, 1 / 16.0f};
  const std::ptrdiff_t stride = axis == 0   ? 2
                                : axis == 1 ? 2 * std::ptrdiff_t(g.gz)
                                            : 2 * std::ptrdiff_t(g.gz) * g.gx;
  const int32_t extent = axis == 0 ? g.gz : axis == 1 ? g.gx : g.gy;
  for (int32_t y = first; y < end; ++y)
    for (int32_t x = 0; x < g.gx; ++x)
      for (int32_t z = 0; z < g.gz; ++z) {
        const int32_t along = axis == 0 ? z : axis == 1 ? x : y;
        const std::size_t i = 2 * ((std::size_t(y) * g.gx + x) * g.gz + z);
        float sum[2] = {0, 0};
        for (int32_t t = -2; t <= 2; ++t) {
          if (along + t < 0 || along + t >= extent) continue;
          const float* c = &from[std::size_t(std::ptrdiff_t(i) + t * stride)];
          sum[0] += kTaps[t + 2] * c[0];
          sum[1] += kTaps[t + 2] * c[1];
        }
        to[i] = sum[0];
        to[i + 1] = sum[1];
      }
}

void BlurGrid(Grid& g) {
  std::vector<float> temp(g.data.size());
  for (int axis = 0; axis < 3; ++axis) {
    std::vector<float>& from = axis % 2 == 0 ? g.data : temp;
    std::vector<float>& to = axis % 2 == 0 ? temp : g.data;
    auto pass = [&](int first, int end) { BlurAxis(g, from, to, axis, first, end); };
    RowWorkers::Run(g.gy, pass);
  }
  g.data.swap(temp);  // three passes: the result is in temp
}

// Reads the base at each pixel (trilinear in the grid) and renders the row.
// The grid's two rows around a pixel row are first blended into one plane,
// so a pixel needs four cells rather than eight.
void RenderRows(int first, int end, void* context) {
  const ToneJob& j = *static_cast<const ToneJob*>(context);
  const Tables& t = *j.tables;
  const Grid& g = *j.grid;
  const std::size_t planeSize = 2 * std::size_t(g.gx) * g.gz;
  std::vector<float> plane(planeSize);
  std::vector<int32_t> column(std::size_t(j.width));
  std::vector<float> across(std::size_t(j.width));
  for (int32_t x = 0; x < j.width; ++x) {
    const float f = x / g.cell + kPad;
    column[std::size_t(x)] = int32_t(f);
    across[std::size_t(x)] = f - float(column[std::size_t(x)]);
  }
  for (int y0 = first; y0 < end; y0 += kChunkRows) {
    if (StopRequested(j.progress)) return;
    const int y1 = std::min(end, y0 + kChunkRows);
    for (int32_t y = y0; y < y1; ++y) {
      const float fy = y / g.cell + kPad;
      const int32_t gy = int32_t(fy);
      const float down = fy - float(gy);
      const float* upper = g.At(0, gy, 0);
      const float* lower = g.At(0, gy + 1, 0);
      for (std::size_t i = 0; i < planeSize; ++i) plane[i] = upper[i] + (lower[i] - upper[i]) * down;
      uint32_t* row = j.pixels + std::size_t(y) * j.width;
      for (int32_t x = 0; x < j.width; ++x) {
        const uint32_t px = row[x];
        if (!(px >> 24)) continue;
        const float logY = PixelLog(t, px);
        const float fz = LevelIndex(logY);
        const int32_t gz = int32_t(fz);
        const float up = fz - float(gz), right = across[std::size_t(x)];
        const int32_t gx = column[std::size_t(x)];
        const float* c0 = &plane[2 * (std::size_t(gx) * g.gz + gz)];
        const float* c1 = c0 + 2 * g.gz;
        const float sum =
            (1 - right) * ((1 - up) * c0[0] + up * c0[2]) + right * ((1 - up) * c1[0] + up * c1[2]);
        const float weight =
            (1 - right) * ((1 - up) * c0[1] + up * c0[3]) + right * ((1 - up) * c1[1] + up * c1[3]);
        const float base = weight > 1e-6f ? sum / weight : logY;
        // The new log luminance: the base compressed around the pivot, the
        // detail scaled, then the exposure.
        const float out = j.pivot + j.compression * (base - j.pivot) + j.detail * (logY - base) + j.exposure;
        uint32_t result = px & 0xFF000000u;
        for (int shift = 0; shift < 24; shift += 8) {
          // Each channel keeps its log ratio to the luminance, times the saturation.
          const float logC = t.logChannel[(px >> shift) & 255];
          const float step = (out + j.saturation * (logC - logY) - kEncodeLowest) * kEncodePerStop + 0.5f;
          result |= uint32_t(t.encode[int32_t(std::clamp(step, 0.0f, float(kEncodeSteps - 1)))]) << shift;
        }
        row[x] = result;
      }
    }
    if (j.progress) j.progress->Advance(y1 - y0);
  }
}

}  // namespace

void HdrToneMap(uint32_t* pixels, int32_t width, int32_t height, const void* params) {
  const auto& p = *static_cast<const HdrToneMapParams*>(params);
  if (width < 1 || height < 1) return;
  Progress* progress = CurrentProgress();
  if (progress) progress->AddTotal(2 * int64_t(height));
  Tables tables;
  BuildTables(tables, p.gamma);

  Grid grid;
  const int32_t levels = int32_t((kLogHighest - kEncodeLowest) / kRangeStep) + 1;
  const double area = double(width) * height;
  grid.cell =
      float(std::max({double(std::clamp(p.radius, 1, 1000)), std::sqrt(area * levels / kMaxGridCells), 1.0}));
  grid.gx = int32_t((width - 1) / grid.cell) + 2 + 2 * kPad;
  grid.gy = int32_t((height - 1) / grid.cell) + 2 + 2 * kPad;
  grid.gz = levels + 2 + 2 * kPad;
  grid.data.assign(2 * std::size_t(grid.gx) * grid.gy * grid.gz, 0.0f);

  ToneJob job{pixels, width, height, &tables, &grid, std::clamp(p.compression, 0.01f, 4.0f),
              std::clamp(p.detail, 0.0f, 10.0f), std::clamp(p.saturation, 0.0f, 4.0f),
              std::clamp(p.exposure, -20.0f, 20.0f), PivotLevel(pixels, width, height, tables), progress};
  RowWorkers::Run(int32_t((height - 1) / grid.cell + 0.5f) + 1, &SplatRows, &job);
  if (StopRequested(progress)) return;
  BlurGrid(grid);
  RowWorkers::Run(height, &RenderRows, &job);
}

}  // namespace tavora
