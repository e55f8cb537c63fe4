// Compositing throughput on a 3840 x 2160 canvas, with a plain memory copy
// of the same bytes as the yardstick. Rates are in megapixels per second
// (the "items_per_second" counter divided by 1e6).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "base/memory.h"
#include "document/blend.h"
#include "document/composite.h"

namespace tavora {
namespace {

constexpr int kW = 3840, kH = 2160;

void FillNoise(Surface& s, uint32_t seed, bool opaque) {
  std::mt19937 rng(seed);
  uint32_t* p = s.Data();
  for (std::size_t i = 0; i < s.PixelCount(); ++i) {
    const uint32_t v = rng();
    p[i] = opaque ? (v | 0xFF000000u) : v;
  }
}

// Like a real upper layer: an opaque disc of gradient colour with a soft
// 8-pixel rim, transparent around it; the disc covers about half the canvas.
void FillLayerContent(Surface& s, int index) {
  const double cx = kW * (0.3 + 0.1 * (index % 5)), cy = kH * (0.4 + 0.05 * (index % 4));
  const double radius = kH * 0.75;
  for (int y = 0; y < kH; ++y) {
    uint32_t* row = s.Row(y);
    for (int x = 0; x < kW; ++x) {
      const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
      const double edge = std::clamp((radius - d) / 8.0, 0.0, 1.0);
      const uint32_t a = static_cast<uint32_t>(edge * 255.0 + 0.5);
      const uint32_t r = (x * 255 / kW + index * 40) & 255, g = (y * 255 / kH) & 255,
                     b = ((x + y) * 7 + index * 13) & 255;
      row[x] = a << 24 | r << 16 | g << 8 | b;
    }
  }
}

// A noisy opaque background (a photograph) and layers with mixed modes, opacities and
// partly transparent pixels. A one-layer stack is given opacity 254 so that
// it is really composited (at 255 it takes the no-copy fast path).
std::unique_ptr<Document> MakeStack(int layers) {
  auto doc = CreateDocument(kW, kH, 72, 0xFFFFFFFF, 0);
  FillNoise(doc->layers[0].pixels, 1, true);
  if (layers == 1) doc->layers[0].opacity = 254;
  const int modes[] = {kBlendNormal, kBlendMultiply, kBlendScreen, kBlendOverlay,
                       kBlendSoftLight, kBlendNormal, kBlendDifference, kBlendColorDodge,
                       kBlendNormal, kBlendLinearBurn};
  for (int i = 1; i < layers; ++i) {
    Layer layer(kW, kH, NewLayerName(*doc));
    FillLayerContent(layer.pixels, i);
    layer.blendMode = modes[i % 10];
    layer.opacity = i % 3 == 0 ? 180 : 255;
    doc->layers.push_back(std::move(layer));
  }
  return doc;
}

void BM_CompositeFull(benchmark::State& state) {
  auto doc = MakeStack(static_cast<int>(state.range(0)));
  Composite(*doc);
  for (auto _ : state) {
    Invalidate(*doc, -1, doc->Bounds());
    Composite(*doc);
    benchmark::DoNotOptimize(CompositeSource(*doc).Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_CompositeFull)->Arg(1)->Arg(4)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CompositeDirty64(benchmark::State& state) {
  auto doc = MakeStack(static_cast<int>(state.range(0)));
  Composite(*doc);
  int step = 0;
  for (auto _ : state) {
    const int x = (step * 97) % (kW - 64), y = (step * 53) % (kH - 64);
    ++step;
    Invalidate(*doc, 0, {x, y, x + 64, y + 64});
    Composite(*doc);
    benchmark::DoNotOptimize(CompositeSource(*doc).Data());
  }
  state.SetItemsProcessed(state.iterations() * 64 * 64);
}
BENCHMARK(BM_CompositeDirty64)->Arg(1)->Arg(4)->Arg(10)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_CompositeFastPath(benchmark::State& state) {
  auto doc = MakeStack(2);
  doc->layers[1].visible = false;
  for (auto _ : state) {
    Invalidate(*doc, 0, doc->Bounds());
    Composite(*doc);
    benchmark::DoNotOptimize(CompositeSource(*doc).Data());
  }
}
BENCHMARK(BM_CompositeFastPath)->Unit(benchmark::kNanosecond);

constexpr std::size_t k24Mpx = 24'000'000;

void BM_Over24Mpx(benchmark::State& state) {
  Surface dst(6000, 4000), src(6000, 4000);
  FillNoise(dst, 5, false);
  FillNoise(src, 6, false);
  for (auto _ : state) {
    uint32_t* d = dst.Data();
    const uint32_t* s = src.Data();
    for (std::size_t i = 0; i < k24Mpx; ++i) d[i] = Over(d[i], s[i]);
    benchmark::DoNotOptimize(d);
  }
  state.SetItemsProcessed(state.iterations() * int64_t{k24Mpx});
}
BENCHMARK(BM_Over24Mpx)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MemoryCopy24Mpx(benchmark::State& state) {
  Surface dst(6000, 4000), src(6000, 4000);
  FillNoise(src, 7, false);
  for (auto _ : state) {
    std::memcpy(dst.Data(), src.Data(), k24Mpx * sizeof(uint32_t));
    benchmark::DoNotOptimize(dst.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{k24Mpx});
}
BENCHMARK(BM_MemoryCopy24Mpx)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MemoryCopy4K(benchmark::State& state) {
  Surface dst(kW, kH), src(kW, kH);
  FillNoise(src, 8, false);
  for (auto _ : state) {
    std::memcpy(dst.Data(), src.Data(), src.PixelCount() * sizeof(uint32_t));
    benchmark::DoNotOptimize(dst.Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{kW} * kH);
}
BENCHMARK(BM_MemoryCopy4K)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
