// Brush speed on a 3840 x 2160 layer: single dabs within a stroke (default
// 12 % spacing, so dabs overlap as they do under the mouse), whole strokes
// across the canvas ("px_per_second" counts the pixels the brush swept), and
// the latency from a mouse move of one dab step to the changed area being
// recomposited and rendered into a 1920 x 1080 client at 100 %.
// Arguments: size, hardness, selection.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "tools/brush_engine.h"
#include "tools/canvas_view.h"

namespace tavora {
namespace {

constexpr int kW = 3840, kH = 2160;

// A photograph-like background, a transparent layer to paint on and,
// optionally, a selection: fully selected but for a half-selected band.
std::unique_ptr<Document> MakeDoc(bool selection) {
  auto doc = CreateDocument(kW, kH, 72, 0xFFFFFFFF, 0);
  std::mt19937 rng(1);
  Surface& bg = doc->layers[0].pixels;
  for (std::size_t i = 0; i < bg.PixelCount(); ++i) bg.Data()[i] = rng() | 0xFF000000u;
  doc->layers.emplace_back(kW, kH, u"Layer 2");
  doc->active = 1;
  if (selection) {
    doc->selection.emplace(kW, kH);
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) doc->selection->At(x, y) = x % 400 < 300 ? 255 : 128;
    doc->selectionBounds = doc->Bounds();
  }
  return doc;
}

BrushParams Params(const benchmark::State& state) {
  BrushParams p;
  p.size = static_cast<int32_t>(state.range(0));
  p.hardness = static_cast<int32_t>(state.range(1));
  p.primary = 0xFF3366CCu;
  return p;
}

void RestartStroke(Document& doc, const BrushParams& p, double x, double y) {
  EndStroke(doc);
  doc.history = HistoryStack{};  // keep memory flat over many iterations
  BeginStroke(doc, x, y, 1, p);
}

void BM_DabInStroke(benchmark::State& state) {
  auto doc = MakeDoc(state.range(2) != 0);
  const BrushParams p = Params(state);
  const double step = DabStep(p), margin = p.size / 2.0 + 2;
  double x = margin, y = margin;
  BeginStroke(*doc, x, y, 1, p);
  int64_t pixels = 0;
  for (auto _ : state) {
    x += step;
    if (x > kW - margin) {
      x = margin;
      y += p.size;
      if (y > kH - margin) {
        y = margin;
        state.PauseTiming();
        RestartStroke(*doc, p, x, y);
        state.ResumeTiming();
      }
    }
    Dab(*doc, x, y);
    pixels += int64_t(p.size) * p.size;
  }
  EndStroke(*doc);
  state.SetItemsProcessed(state.iterations());  // dabs per second
  state.counters["px_per_second"] = benchmark::Counter(double(pixels), benchmark::Counter::kIsRate);
}

void BM_StrokeAcross(benchmark::State& state) {
  auto doc = MakeDoc(state.range(2) != 0);
  const BrushParams p = Params(state);
  const double x0 = 200, x1 = kW - 200;
  int row = 0;
  for (auto _ : state) {
    const double y = 300 + (row++ % 8) * 200;
    BeginStroke(*doc, x0, y, 1, p);
    // Moves of 4 pixels, about what a quick drag delivers at 1:1.
    for (double x = x0 + 4; x <= x1; x += 4) ContinueStroke(*doc, x, y + (x - x0) * 0.05);
    EndStroke(*doc);
    state.PauseTiming();
    doc->history = HistoryStack{};
    state.ResumeTiming();
  }
  state.counters["px_per_second"] = benchmark::Counter(
      double(state.iterations()) * (x1 - x0) * p.size, benchmark::Counter::kIsRate);
}

// The retouching tools at size 100 (Blur, Smudge, Sharpen, Sponge, Burn),
// over an opaque photograph-like layer.
void BM_RetouchDab(benchmark::State& state) {
  auto doc = MakeDoc(false);
  doc->active = 0;
  BrushParams p;
  p.tool = static_cast<BrushTool>(state.range(0));
  p.size = 100;
  p.hardness = 50;
  const double step = DabStep(p);
  double x = 100, y = 100;
  BeginStroke(*doc, x, y, 1, p);
  for (auto _ : state) {
    if ((x += step) > kW - 100) {
      x = 100;
      if ((y += 100) > kH - 100) y = 100;
      state.PauseTiming();
      RestartStroke(*doc, p, x, y);
      state.ResumeTiming();
    }
    Dab(*doc, x, y);
  }
  EndStroke(*doc);
  state.SetLabel(std::string(BrushHistoryName(p.tool).begin(), BrushHistoryName(p.tool).end()));
  state.SetItemsProcessed(state.iterations());
}

// The canvas's half of a mouse move: the areas the model reports become one
// dirty device rectangle, recomposited and rendered like a paint message.
struct Screen {
  CanvasLayout layout;
  DirtyArea dirty;
  bool selection = false;
};
Screen g_screen;

void BM_MoveToScreen(benchmark::State& state) {
  auto doc = MakeDoc(state.range(2) != 0);
  doc->layers.emplace_back(kW, kH, u"Layer 3");  // an empty layer above: no fast path
  const BrushParams p = Params(state);
  constexpr int kClientW = 1920, kClientH = 1080;
  const ClientArea client{kClientW, kClientH, 1.0};
  doc->zoom = 1.0;
  doc->fitMode = 0;
  doc->scrollX = 960;
  doc->scrollY = 540;
  ClampScroll(*doc, client);
  g_screen.layout = ComputeLayout(*doc, client);
  g_screen.selection = doc->selection.has_value();
  DocumentObserver observer;
  observer.areaChanged = [](Document&, const Rect& area) {
    g_screen.dirty.Add(ImageRectToDevice(g_screen.layout, area, g_screen.selection),
                       g_screen.layout.clientW, g_screen.layout.clientH);
  };
  SetDocumentObserver(&observer);
  std::vector<uint32_t> target(std::size_t(kClientW) * kClientH);
  CanvasRender render;
  render.layout = g_screen.layout;
  render.selection = doc->selection ? &*doc->selection : nullptr;
  render.target = target.data();
  render.targetStride = kClientW;
  Composite(*doc);

  // Circles within the visible part, each move one dab step long.
  const double cx = 1920, cy = 1080, radius = 400, step = DabStep(p);
  double angle = 0;
  BeginStroke(*doc, cx + radius, cy, 1, p);
  int moves = 0;
  for (auto _ : state) {
    angle += step / radius;
    ContinueStroke(*doc, cx + radius * std::cos(angle), cy + radius * std::sin(angle));
    if (g_screen.dirty.Any()) {
      Composite(*doc);
      render.image = &CompositeSource(*doc);
      RenderCanvas(render, g_screen.dirty.Area());
      g_screen.dirty.Clear();
    }
    benchmark::DoNotOptimize(target.data());
    if (++moves % 200 == 0) {  // a fresh stroke now and then
      state.PauseTiming();
      RestartStroke(*doc, p, cx + radius * std::cos(angle), cy + radius * std::sin(angle));
      state.ResumeTiming();
    }
  }
  EndStroke(*doc);
  SetDocumentObserver(nullptr);
}

void Sizes(benchmark::internal::Benchmark* b) {
  for (int size : {10, 100, 500})
    for (int hardness : {0, 100})
      for (int selection : {0, 1}) b->Args({size, hardness, selection});
  b->ArgNames({"size", "hardness", "sel"});
}

BENCHMARK(BM_DabInStroke)->Apply(Sizes)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_StrokeAcross)->Apply(Sizes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RetouchDab)->DenseRange(2, 6)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_MoveToScreen)->Apply(Sizes)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
}  // namespace tavora
