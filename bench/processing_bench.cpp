// Filters and adjustments on a 6000 x 4000 layer (and Lens Blur on a
// 4000 x 3000 one too), in megapixels per second.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "processing/adjustments.h"
#include "processing/filters.h"
#include "pixel_op_run.h"

namespace tavora {
namespace {

constexpr int kW = 6000, kH = 4000;

std::vector<uint32_t> Photo(int w = kW, int h = kH) {
  std::vector<uint32_t> p(std::size_t(w) * h);
  std::mt19937 rng(8);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      p[std::size_t(y) * w + x] =
          0xFF000000u | uint32_t(x * 255 / w) << 16 | uint32_t(y * 255 / h) << 8 | (rng() & 63);
  return p;
}

void Run(benchmark::State& state, PixelOp op, const void* params, int w = kW, int h = kH) {
  RunPixelOp(state, op, params, Photo(w, h), w, h);
}

void BM_GaussianBlur(benchmark::State& state) {
  const GaussianBlurParams p{static_cast<float>(state.range(0))};
  Run(state, &GaussianBlurOp, &p);
}
BENCHMARK(BM_GaussianBlur)->Arg(10)->Arg(50)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Radius 10 is a standard deviation of 5, on a 3840 x 2160 frame.
void BM_GaussianBlur4K(benchmark::State& state) {
  const GaussianBlurParams p{10.0f};
  Run(state, &GaussianBlurOp, &p, 3840, 2160);
}
BENCHMARK(BM_GaussianBlur4K)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_Blur(benchmark::State& state) {
  const BlurParams p{5.0f};
  Run(state, &Blur, &p);
}
BENCHMARK(BM_Blur)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_Sharpen(benchmark::State& state) {
  const SharpenParams p{1.5f, 100, 0};
  Run(state, &Sharpen, &p);
}
BENCHMARK(BM_Sharpen)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_SharpenThreshold(benchmark::State& state) {
  const SharpenParams p{1.5f, 100, 10};
  Run(state, &Sharpen, &p);
}
BENCHMARK(BM_SharpenThreshold)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_HueSaturation(benchmark::State& state) {
  const HueSaturationParams p{30, 20, 10};
  Run(state, &HueSaturation, &p);
}
BENCHMARK(BM_HueSaturation)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The other per-pixel adjustments, by index: 0 Brightness / Contrast,
// 1 Gamma, 2 Colorize, 3 Grayscale, 4 Sepia, 5 Invert, 6 Posterize,
// 7 Threshold, 8 Auto Tone, 9 Auto Contrast, 10 Auto Color.
void BM_Adjustment(benchmark::State& state) {
  const BrightnessContrastParams brightness{10, 20};
  const GammaParams gamma{1.4f, 10, 0, -10};
  const ColorizeParams colorize{200, 60, 0};
  const PosterizeParams posterize{4};
  const ThresholdParams threshold{128};
  struct Entry {
    PixelOp op;
    const void* params;
  };
  const Entry entries[] = {{&BrightnessContrast, &brightness}, {&Gamma, &gamma}, {&Colorize, &colorize},
                           {&Grayscale, nullptr},           {&Sepia, nullptr}, {&Invert, nullptr},
                           {&Posterize, &posterize},        {&Threshold, &threshold}, {&AutoTone, nullptr},
                           {&AutoContrast, nullptr},        {&AutoColor, nullptr}};
  const Entry& e = entries[state.range(0)];
  Run(state, e.op, e.params);
}
BENCHMARK(BM_Adjustment)->DenseRange(0, 10)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_EmbossAndPixelate(benchmark::State& state) {
  const PixelateParams pixelate{8};
  if (state.range(0) == 0) Run(state, &Emboss, nullptr);
  else Run(state, &Pixelate, &pixelate);
}
BENCHMARK(BM_EmbossAndPixelate)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_MotionBlur(benchmark::State& state) {
  const MotionBlurParams p{20.0f, 30.0f};
  Run(state, &MotionBlur, &p);
}
BENCHMARK(BM_MotionBlur)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()->Iterations(2);

// Cost grows with the radius, not its square: a disc row is one span of
// prefix sums.
void BM_LensBlur(benchmark::State& state) {
  const LensBlurParams p{static_cast<float>(state.range(0)), 4.0f};
  Run(state, &LensBlur, &p);
}
BENCHMARK(BM_LensBlur)->Arg(8)->Arg(60)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()->Iterations(2);

// The same at the dialog's largest radius on a 12-megapixel photo.
void BM_LensBlur12Mpx(benchmark::State& state) {
  const LensBlurParams p{60.0f, 4.0f};
  Run(state, &LensBlur, &p, 4000, 3000);
}
BENCHMARK(BM_LensBlur12Mpx)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime()->Iterations(2);

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
BENCHMARK(BM_MemoryCopyLayer)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
}  // namespace tavora
