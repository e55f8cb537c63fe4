// The canvas render pass for a 3840 x 2160 client over a 6000 x 4000
// photograph, in frames per second, at the zooms that pick each sampling
// mode with smooth preview on: 0.5 and 0.6667 (area average), 1.0 and 3.0
// (bilinear; at 1.0 that is the picture itself) and 8.0 (nearest); the same
// zooms with smooth preview off (nearest throughout); and a cut-out of the
// photograph, partly transparent, so the checkerboard shows through.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tools/canvas_view.h"

namespace tavora {
namespace {

constexpr int kClientW = 3840, kClientH = 2160;
constexpr int32_t kImageW = 6000, kImageH = 4000;

// Random colours; the cut-out is clear on its left third, fades in over the
// middle third and is opaque on the right.
const Surface& Photograph(bool cutout) {
  static Surface images[2];
  Surface& image = images[cutout];
  if (!image.Empty()) return image;
  image = Surface(kImageW, kImageH);
  std::mt19937 rng(3);
  for (int32_t y = 0; y < kImageH; ++y) {
    uint32_t* row = image.Row(y);
    for (int32_t x = 0; x < kImageW; ++x) {
      const uint32_t alpha =
          cutout ? static_cast<uint32_t>(std::clamp((x - kImageW / 3) * 255 / (kImageW / 3), 0, 255)) : 255;
      row[x] = (rng() & 0x00FFFFFFu) | alpha << 24;
    }
  }
  return image;
}

// Arguments: zoom x 10000, smooth preview, cut-out.
void BM_CanvasRender(benchmark::State& state) {
  const Surface& image = Photograph(state.range(2) != 0);
  Document doc;
  doc.width = image.Width();
  doc.height = image.Height();
  doc.zoom = state.range(0) / 10000.0;
  doc.scrollX = 100;
  doc.scrollY = 100;
  const ClientArea client{kClientW, kClientH, 1.0};
  ClampScroll(doc, client);
  std::vector<uint32_t> target(std::size_t(kClientW) * kClientH);
  CanvasRender render;
  render.image = &image;
  render.layout = ComputeLayout(doc, client);
  render.smooth = state.range(1) != 0;
  render.target = target.data();
  render.targetStride = kClientW;
  for (auto _ : state) {
    RenderCanvas(render, {0, 0, kClientW, kClientH});
    benchmark::DoNotOptimize(target.data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  state.SetItemsProcessed(state.iterations() * int64_t{kClientW} * kClientH);
}
BENCHMARK(BM_CanvasRender)
    ->ArgNames({"zoom", "smooth", "cutout"})
    ->ArgsProduct({{5000, 6667, 10000, 30000, 80000}, {1, 0}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// A 250-megapixel picture (20000 x 12500) fitted to the client, and at a
// tenth, a twentieth and a fiftieth: the area average's widest boxes, which
// sample a few rows and columns of each box at a stride.
const Surface& LargePicture() {
  static Surface image;
  if (!image.Empty()) return image;
  image = Surface(20000, 12500);
  uint32_t state = 0x9E3779B9u;
  for (int32_t y = 0; y < image.Height(); ++y) {
    uint32_t* row = image.Row(y);
    for (int32_t x = 0; x < image.Width(); ++x) {
      state ^= state << 13;
      state ^= state >> 17;
      state ^= state << 5;
      row[x] = state | 0xFF000000u;
    }
  }
  return image;
}

// Argument: zoom x 10000.
void BM_CanvasRenderLarge(benchmark::State& state) {
  const Surface& image = LargePicture();
  Document doc;
  doc.width = image.Width();
  doc.height = image.Height();
  doc.zoom = state.range(0) / 10000.0;
  const ClientArea client{kClientW, kClientH, 1.0};
  ClampScroll(doc, client);
  std::vector<uint32_t> target(std::size_t(kClientW) * kClientH);
  CanvasRender render;
  render.image = &image;
  render.layout = ComputeLayout(doc, client);
  render.smooth = true;
  render.target = target.data();
  render.targetStride = kClientW;
  for (auto _ : state) {
    RenderCanvas(render, {0, 0, kClientW, kClientH});
    benchmark::DoNotOptimize(target.data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CanvasRenderLarge)->ArgName("zoom")->Arg(1728)->Arg(1000)->Arg(500)->Arg(200)
    ->Unit(benchmark::kMillisecond)->UseRealTime();

// The yardstick: copying a client's worth of pixels.
void BM_MemoryCopyClient(benchmark::State& state) {
  std::vector<uint32_t> a(std::size_t(kClientW) * kClientH, 1), b(a.size());
  for (auto _ : state) {
    std::copy(a.begin(), a.end(), b.begin());
    benchmark::DoNotOptimize(b.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kClientW} * kClientH);
}
BENCHMARK(BM_MemoryCopyClient)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
