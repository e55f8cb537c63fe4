// Filters and adjustments on a 6000 x 4000 layer, in megapixels per second.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "processing/adjustments.h"
#include "processing/filters.h"

namespace tavora {
namespace {

constexpr int kW = 6000, kH = 4000;

std::vector<uint32_t> Photo() {
  std::vector<uint32_t> p(std::size_t(kW) * kH);
  std::mt19937 rng(8);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      p[std::size_t(y) * kW + x] =
          0xFF000000u | uint32_t(x * 255 / kW) << 16 | uint32_t(y * 255 / kH) << 8 | (rng() & 63);
  return p;
}

void Run(benchmark::State& state, PixelOp op, const void* params) {
  const std::vector<uint32_t> source = Photo();
  std::vector<uint32_t> work;
  for (auto _ : state) {
    state.PauseTiming();
    work = source;
    state.ResumeTiming();
    op(work.data(), kW, kH, params);
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}

void BM_GaussianBlur(benchmark::State& state) {
  const GaussianBlurParams p{static_cast<float>(state.range(0))};
  Run(state, &GaussianBlurOp, &p);
}
BENCHMARK(BM_GaussianBlur)->Arg(10)->Arg(50)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Sharpen(benchmark::State& state) {
  const SharpenParams p{1.5f, 100, 0};
  Run(state, &Sharpen, &p);
}
BENCHMARK(BM_Sharpen)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HueSaturation(benchmark::State& state) {
  const HueSaturationParams p{30, 20, 10};
  Run(state, &HueSaturation, &p);
}
BENCHMARK(BM_HueSaturation)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MotionBlur(benchmark::State& state) {
  const MotionBlurParams p{20.0f, 30.0f};
  Run(state, &MotionBlur, &p);
}
BENCHMARK(BM_MotionBlur)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

// The yardstick: copying the same pixels.
void BM_MemoryCopyLayer(benchmark::State& state) {
  const std::vector<uint32_t> source = Photo();
  std::vector<uint32_t> work(source.size());
  for (auto _ : state) {
    std::copy(source.begin(), source.end(), work.begin());
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_MemoryCopyLayer)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
