// The canvas render pass for a 3840 x 2160 client, in frames per second,
// at the zooms that pick each sampling mode: 0.5 (area average), 1.0 and
// 3.0 (bilinear) and 8.0 (nearest), with smooth preview on.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tools/canvas_view.h"

namespace tavora {
namespace {

constexpr int kClientW = 3840, kClientH = 2160;

void BM_CanvasRender(benchmark::State& state) {
  const double zoom = state.range(0) / 10.0;
  // A 6000 x 4000 photograph, so every zoom fills the client.
  Surface image(6000, 4000);
  std::mt19937 rng(3);
  for (std::size_t i = 0; i < image.PixelCount(); ++i) image.Data()[i] = rng() | 0xFF000000u;
  Document doc;
  doc.width = image.Width();
  doc.height = image.Height();
  doc.zoom = zoom;
  doc.scrollX = 100;
  doc.scrollY = 100;
  const ClientArea client{kClientW, kClientH, 1.0};
  ClampScroll(doc, client);
  std::vector<uint32_t> target(std::size_t(kClientW) * kClientH);
  CanvasRender render;
  render.image = &image;
  render.layout = ComputeLayout(doc, client);
  render.target = target.data();
  render.targetStride = kClientW;
  for (auto _ : state) {
    RenderCanvas(render, {0, 0, kClientW, kClientH});
    benchmark::DoNotOptimize(target.data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  state.SetItemsProcessed(state.iterations() * int64_t{kClientW} * kClientH);
}
BENCHMARK(BM_CanvasRender)->Arg(5)->Arg(10)->Arg(30)->Arg(80)->Unit(benchmark::kMillisecond)->UseRealTime();

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
