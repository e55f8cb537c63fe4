// The special effects at full size: HDR Tone Map and Lens Flare on a
// 6000 x 4000 layer, Fill from Surroundings of a 200 x 200 hole in a
// 4000 x 3000 picture.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "document/document.h"
#include "document/history.h"
#include "processing/hdr_tone_map.h"
#include "processing/inpaint.h"
#include "processing/lens_flare.h"
#include "pixel_op_run.h"

namespace tavora {
namespace {

// Something like a landscape photograph: a graded sky, a wavy horizon and
// ground with grain and a woven texture, a few bright windows of shade.
std::vector<uint32_t> Landscape(int w, int h) {
  std::vector<uint32_t> p(std::size_t(w) * h);
  std::mt19937 rng(8);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double horizon = h * 0.5 + 0.1 * (x - w / 2) + h * 0.02 * std::sin(x / (w / 40.0));
      int r, g, b;
      if (y < horizon) {
        r = 90 + y * 60 / h;
        g = 140 + y * 60 / h;
        b = 225;
      } else {
        const int grain = int(rng() % 40);
        const double weave = 20 * std::sin(x / 7.0) * std::sin(y / 5.0);
        const double shade = (x / 500 + y / 400) % 3 == 0 ? -45 : 0;
        r = int(70 + grain + weave + shade);
        g = int(110 + grain + weave + shade);
        b = int(40 + grain / 2 + shade / 2);
      }
      auto c = [](int v) { return uint32_t(std::clamp(v, 0, 255)); };
      p[std::size_t(y) * w + x] = 0xFF000000u | c(r) << 16 | c(g) << 8 | c(b);
    }
  return p;
}

void RunOp(benchmark::State& state, PixelOp op, const void* params) {
  constexpr int w = 6000, h = 4000;
  RunPixelOp(state, op, params, Landscape(w, h), w, h);
}

void BM_HdrToneMap(benchmark::State& state) {
  const HdrToneMapParams p;  // the dialog's defaults: radius 30
  RunOp(state, &HdrToneMap, &p);
}
BENCHMARK(BM_HdrToneMap)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LensFlare(benchmark::State& state) {
  const LensFlareParams p{1500, 1000, 100, 100, int32_t(state.range(0))};
  RunOp(state, &LensFlare, &p);
}
BENCHMARK(BM_LensFlare)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FillFromSurroundings(benchmark::State& state) {
  constexpr int w = 4000, h = 3000, side = 200;
  auto doc = CreateDocument(w, h, 72, 0xFF000000u, 0);
  const std::vector<uint32_t> picture = Landscape(w, h);
  std::copy(picture.begin(), picture.end(), doc->layers[0].pixels.Data());
  // A square across the horizon.
  const Rect hole{w / 2 - side / 2, h / 2 - side / 2, w / 2 + side / 2, h / 2 + side / 2};
  doc->selection.emplace(w, h);
  for (int y = hole.y0; y < hole.y1; ++y) std::fill_n(doc->selection->Row(y) + hole.x0, side, uint8_t{255});
  doc->selectionBounds = hole;
  for (auto _ : state) {
    if (!FillFromSurroundings(*doc, 0)) state.SkipWithError("nothing filled");
    state.PauseTiming();
    Undo(*doc);
    state.ResumeTiming();
  }
}
BENCHMARK(BM_FillFromSurroundings)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
