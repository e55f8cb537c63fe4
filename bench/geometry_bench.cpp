// The image rotations on 24 megapixels: a quarter turn (a blocked
// transpose) and a free 17-degree turn with the canvas expanded to hold it
// (a bilinear, alpha-weighted blend per pixel).
#include <benchmark/benchmark.h>

#include <random>

#include "base/row_workers.h"
#include "processing/geometry.h"

namespace tavora {
namespace {

constexpr int kW = 6000, kH = 4000;

// Argument 1 runs on one processor, so that the CPU time is the whole cost
// even on a busy machine; 0 uses every processor.
void Processors(const benchmark::State& state) {
  RowWorkers::OverrideProcessorCountForTesting(int(state.range(0)));
}

// Photograph-like: gradients with a little noise, opaque.
Surface Photo() {
  Surface s(kW, kH);
  std::mt19937 rng(3);
  for (int y = 0; y < kH; ++y) {
    uint32_t* row = s.Row(y);
    for (int x = 0; x < kW; ++x)
      row[x] = 0xFF000000u | uint32_t(x * 255 / kW) << 16 | uint32_t(y * 255 / kH) << 8 | (rng() & 63);
  }
  return s;
}

void BM_Rotate90(benchmark::State& state) {
  Processors(state);
  const Surface photo = Photo();
  for (auto _ : state) {
    Surface turned = Rotate90(photo, Turn::Clockwise);
    benchmark::DoNotOptimize(turned.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
  RowWorkers::OverrideProcessorCountForTesting(0);
}
BENCHMARK(BM_Rotate90)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Rotate180(benchmark::State& state) {
  Processors(state);
  const Surface photo = Photo();
  for (auto _ : state) {
    Surface turned = Rotate180(photo);
    benchmark::DoNotOptimize(turned.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
  RowWorkers::OverrideProcessorCountForTesting(0);
}
BENCHMARK(BM_Rotate180)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FreeRotate17Expand(benchmark::State& state) {
  Processors(state);
  const Surface photo = Photo();
  const PictureSize size = FreeRotationSize(kW, kH, 17, true);
  for (auto _ : state) {
    Surface turned = RotateFree(photo, 17, size.width, size.height, 0);
    benchmark::DoNotOptimize(turned.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{size.width} * size.height);
  RowWorkers::OverrideProcessorCountForTesting(0);
}
BENCHMARK(BM_FreeRotate17Expand)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
