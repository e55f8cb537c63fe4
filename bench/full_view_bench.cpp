// The full-screen view on a 3840 x 2160 monitor: the work of one frame of a
// fade (the fitted picture at a brightness, over the row workers) in frames
// per second (a slide frame does no pixel work: it only places the two
// fitted pictures), and the once-per-slide fitting of a 24-megapixel
// photograph.
#include <benchmark/benchmark.h>

#include <random>

#include "auxiliary/full_view.h"

namespace tavora {
namespace {

constexpr int kMonitorW = 3840, kMonitorH = 2160;

Surface Photo(int32_t w, int32_t h) {
  Surface image(w, h);
  std::mt19937 rng(5);
  for (std::size_t i = 0; i < image.PixelCount(); ++i) image.Data()[i] = rng() | 0xFF000000u;
  return image;
}

void BM_FadeFrame4K(benchmark::State& state) {
  const Surface fitted = Photo(kMonitorW, kMonitorH);
  Surface frame(kMonitorW, kMonitorH);
  int32_t brightness = 0;
  for (auto _ : state) {
    FadeCopy(fitted, brightness, frame);
    brightness = (brightness + 7) & 255;
    benchmark::DoNotOptimize(frame.Data());
  }
  state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
  state.SetItemsProcessed(state.iterations() * int64_t{kMonitorW} * kMonitorH);
}
BENCHMARK(BM_FadeFrame4K)->Unit(benchmark::kMillisecond)->UseRealTime();

// Preparing a slide: a 6000 x 4000 photograph reduced to the monitor.
void BM_FitSlide(benchmark::State& state) {
  const Surface photo = Photo(6000, 4000);
  for (auto _ : state) benchmark::DoNotOptimize(FitPicture(photo, kMonitorW, kMonitorH).pixels.Data());
}
BENCHMARK(BM_FitSlide)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
