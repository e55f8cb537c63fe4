// The layer-effect renderer on a 3840 x 2160 layer: a drop shadow of blur
// 20 with a 10-pixel stroke, drawn whole and after one 64 x 64 brush dab.
// The layer is the composite benchmark's: an opaque disc with a soft rim
// on transparent ground, covering about half the canvas. Rates are
// megapixels of canvas (whole) or of the dab's grown rectangle per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>

#include "document/composite.h"
#include "document/effect_params.h"
#include "document/layer_effects.h"

namespace tavora {
namespace {

constexpr int kW = 3840, kH = 2160;

Layer DiscLayer() {
  Layer layer(kW, kH, u"disc");
  const double cx = kW * 0.4, cy = kH * 0.45, radius = kH * 0.75;
  for (int y = 0; y < kH; ++y) {
    uint32_t* row = layer.pixels.Row(y);
    for (int x = 0; x < kW; ++x) {
      const double d = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
      const uint32_t a = static_cast<uint32_t>(std::clamp((radius - d) / 8.0, 0.0, 1.0) * 255.0 + 0.5);
      row[x] = a << 24 | ((x * 255 / kW) & 255) << 16 | ((y * 255 / kH) & 255) << 8 | 0x40;
    }
  }
  return layer;
}

void ShadowAndStroke(Layer& layer, int32_t position) {
  layer.effects.dropShadow = {.on = true, .offsetX = 6, .offsetY = 6, .size = 20, .color = 0, .opacity = 60};
  layer.effects.stroke = {.on = true, .color = 0xFFFFFF, .opacity = 100, .thickness = 10, .smoothness = 1,
                          .position = position};
}

// Every cache drawn from nothing, as after opening a file or changing a value.
void BM_EffectsWholeLayer(benchmark::State& state) {
  Layer layer = DiscLayer();
  ShadowAndStroke(layer, static_cast<int32_t>(state.range(0)));
  for (auto _ : state) {
    layer.rebuildEffects = true;
    RenderLayerEffects(layer);
    benchmark::DoNotOptimize(layer.under->Data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t(kW) * kH);
}
// CPU is that of every thread: on an idle 2-core machine the time is about half of it.
BENCHMARK(BM_EffectsWholeLayer)
    ->Arg(0)->Arg(1)->Arg(2)->ArgName("stroke_position")
    ->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

// One dab on the disc's rim, where both effects change: the dab's
// rectangle grown by the effect margin is drawn again.
void BM_EffectsAfterDab(benchmark::State& state) {
  auto doc = CreateDocument(kW, kH, 72, 0xFFFFFFFF, 0);
  doc->layers.push_back(DiscLayer());
  Layer& layer = doc->layers[1];
  ShadowAndStroke(layer, kStrokeOutside);
  RenderLayerEffects(layer);
  // Centred on the rim where it crosses the disc's middle row.
  const int x0 = static_cast<int>(kW * 0.4 + kH * 0.75) - 32, y0 = static_cast<int>(kH * 0.45) - 32;
  const Rect dab{x0, y0, x0 + 64, y0 + 64};
  int64_t pixels = 0;
  for (auto _ : state) {
    Invalidate(*doc, 1, dab);
    pixels += int64_t(layer.effectsDirty.Width()) * layer.effectsDirty.Height();
    RenderLayerEffects(layer);
  }
  state.SetItemsProcessed(pixels);
  state.counters["grown_side"] = double(EffectMargin(layer) * 2 + 64);
}
BENCHMARK(BM_EffectsAfterDab)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tavora
