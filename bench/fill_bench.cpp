// Flood fill and colour reduction on 24 megapixels: the global match, the
// contiguous flood through a worst-case maze (one-pixel corridors that
// turn at every row), and a 256-colour median cut with dithering.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "processing/color_depth.h"
#include "tools/fill.h"

namespace tavora {
namespace {

constexpr int kW = 6000, kH = 4000;

// Walls on every other row, each with one gap at alternating ends: the
// flood must snake through every corridor.
Surface Maze() {
  Surface s(kW, kH);
  s.Fill(0xFFFFFFFF);
  for (int y = 1; y < kH; y += 2) {
    uint32_t* row = s.Row(y);
    std::fill(row, row + kW, 0xFF000000u);
    row[(y / 2) % 2 ? 0 : kW - 1] = 0xFFFFFFFF;
  }
  return s;
}

void BM_FloodContiguousMaze(benchmark::State& state) {
  const Surface maze = Maze();
  for (auto _ : state) {
    auto area = FloodArea(maze, 0, 0, 0, true);
    benchmark::DoNotOptimize(area->rect);
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_FloodContiguousMaze)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FloodGlobal(benchmark::State& state) {
  Surface noise(kW, kH);
  std::mt19937 rng(5);
  for (std::size_t i = 0; i < noise.PixelCount(); ++i) noise.Data()[i] = 0xFF000000u | (rng() & 0x3F3F3F);
  for (auto _ : state) {
    auto area = FloodArea(noise, 0, 0, ToleranceThreshold(32), false);
    benchmark::DoNotOptimize(area->rect);
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_FloodGlobal)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MedianCut256Dithered(benchmark::State& state) {
  std::vector<uint32_t> photo(std::size_t(kW) * kH);
  std::mt19937 rng(8);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      photo[std::size_t(y) * kW + x] =
          0xFF000000u | uint32_t(x * 255 / kW) << 16 | uint32_t(y * 255 / kH) << 8 | (rng() & 63);
  const ColorDepthParams params{256, true, DepthMode::Palette};
  std::vector<uint32_t> work;
  for (auto _ : state) {
    state.PauseTiming();
    work = photo;
    state.ResumeTiming();
    ReduceColors(work.data(), kW, kH, &params);
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_MedianCut256Dithered)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);

}  // namespace
}  // namespace tavora
