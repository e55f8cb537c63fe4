// Resampling on photo-sized pictures: the Resize dialog's heaviest cases.
// The CPU column counts every worker thread: on a busy machine it shows the
// work better than the wall time does.
#include <benchmark/benchmark.h>

#include <random>

#include "document/surface.h"
#include "processing/resample.h"
#include "processing/upscale.h"

namespace tavora {
namespace {

// Gradients with fine noise and some transparency, so nothing is uniform
// and the premultiplied path does real work.
Surface Photo(int32_t w, int32_t h) {
  Surface s(w, h);
  std::mt19937 rng(8);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const uint32_t a = (x / 64 + y / 64) % 7 == 0 ? 128 : 255;
      s.At(x, y) = a << 24 | uint32_t(x * 255 / w) << 16 | uint32_t(y * 255 / h) << 8 | (rng() & 63);
    }
  return s;
}

void BM_LanczosHalf6000x4000(benchmark::State& state) {
  const Surface source = Photo(6000, 4000);
  for (auto _ : state) {
    Surface out = Resample(source, 3000, 2000, ResampleAlgorithm::Lanczos);
    benchmark::DoNotOptimize(out.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{6000} * 4000);
}
BENCHMARK(BM_LanczosHalf6000x4000)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_AutomaticDouble2000x1500(benchmark::State& state) {
  const Surface source = Photo(2000, 1500);
  for (auto _ : state) {
    Surface out = Resample(source, 4000, 3000, ResampleAlgorithm::Automatic);
    benchmark::DoNotOptimize(out.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{4000} * 3000);
}
BENCHMARK(BM_AutomaticDouble2000x1500)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_DetailRecoveryDouble1000x750(benchmark::State& state) {
  const Surface source = Photo(1000, 750);
  ResizeOptions options;
  options.method = ResizeMethod::Upscale;
  options.engine = UpscaleEngine::DetailRecovery;
  for (auto _ : state) {
    Surface out = ResizeSurface(source, 2000, 1500, options);
    benchmark::DoNotOptimize(out.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{2000} * 1500);
}
BENCHMARK(BM_DetailRecoveryDouble1000x750)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace tavora
