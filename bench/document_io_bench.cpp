// Saving and loading the layered format, and a whole-document history step,
// for 4-layer 4096 x 4096 documents: "mixed" has one noisy layer (a
// photograph) and three mostly flat ones, "noisy" four photographs, "flat"
// a plain background and three drawing layers. Rates are megabytes of layer
// pixels per second (the "bytes_per_second" counter), beside a memory copy
// of the same bytes. Saves go to the temporary folder and include flushing
// the file to the disk, so a noisy save (8 file bytes a pixel) is bounded by
// the system's file writing and the disk. The CPU column is the time of
// every thread of the process.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "document/history.h"
#include "formats/layered_format.h"

namespace tavora {
namespace {

constexpr int kSide = 4096;
constexpr int kLayers = 4;
constexpr int64_t kPixelBytes = int64_t{kSide} * kSide * 4 * kLayers;

enum class Kind { Mixed, Noisy, Flat };

void FillNoisy(Surface& pixels, uint32_t seed) {
  std::mt19937 rng(seed);
  for (std::size_t i = 0; i < pixels.PixelCount(); ++i) pixels.Data()[i] = rng() | 0xFF000000u;
}

std::unique_ptr<Document> MakeDocument(Kind kind = Kind::Mixed) {
  auto doc = CreateDocument(kSide, kSide, 72, 0xFFFFFFFF, 0);
  if (kind != Kind::Flat) FillNoisy(doc->layers[0].pixels, 1);
  for (int l = 1; l < kLayers; ++l) {
    Layer layer(kSide, kSide, NewLayerName(*doc));
    if (kind == Kind::Noisy) {
      FillNoisy(layer.pixels, uint32_t(l + 1));
    } else {
      // Transparent around a few flat blocks, as a drawing or text layer is.
      for (int y = 512 * l; y < 512 * l + 1024; ++y)
        for (int x = 300; x < 3000; ++x) layer.pixels.At(x, y) = 0xFF203040u + l;
    }
    doc->layers.push_back(std::move(layer));
  }
  return doc;
}

std::filesystem::path BenchFile() {
  return std::filesystem::temp_directory_path() / "tavora-bench.tvl";
}

void BM_SaveLayered(benchmark::State& state, Kind kind) {
  auto doc = MakeDocument(kind);
  for (auto _ : state) {
    if (!WriteLayeredDocument(*doc, BenchFile())) state.SkipWithError("save failed");
  }
  state.SetBytesProcessed(state.iterations() * kPixelBytes);
  state.counters["file_MB"] = std::filesystem::file_size(BenchFile()) / 1e6;
  std::filesystem::remove(BenchFile());
}
BENCHMARK_CAPTURE(BM_SaveLayered, mixed, Kind::Mixed)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(BM_SaveLayered, noisy, Kind::Noisy)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(BM_SaveLayered, flat, Kind::Flat)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_LoadLayered(benchmark::State& state, Kind kind) {
  auto doc = MakeDocument(kind);
  if (!WriteLayeredDocument(*doc, BenchFile())) state.SkipWithError("save failed");
  doc.reset();
  for (auto _ : state) {
    auto back = ReadLayeredDocument(BenchFile());
    if (!back) state.SkipWithError("load failed");
    benchmark::DoNotOptimize(back.get());
  }
  state.SetBytesProcessed(state.iterations() * kPixelBytes);
  std::filesystem::remove(BenchFile());
}
BENCHMARK_CAPTURE(BM_LoadLayered, mixed, Kind::Mixed)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(BM_LoadLayered, noisy, Kind::Noisy)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(BM_LoadLayered, flat, Kind::Flat)
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_PushWholeDocumentAndUndo(benchmark::State& state) {
  auto doc = MakeDocument();
  for (auto _ : state) {
    PushWholeDocument(*doc, u"Canvas Size");
    Undo(*doc);
  }
  state.SetBytesProcessed(state.iterations() * kPixelBytes);
}
BENCHMARK(BM_PushWholeDocumentAndUndo)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MemoryCopyDocument(benchmark::State& state) {
  auto doc = MakeDocument();
  Surface copy(kSide, kSide);
  for (auto _ : state) {
    for (const Layer& l : doc->layers)
      std::memcpy(copy.Data(), l.pixels.Data(), l.pixels.PixelCount() * 4);
    benchmark::DoNotOptimize(copy.Data());
  }
  state.SetBytesProcessed(state.iterations() * kPixelBytes);
}
BENCHMARK(BM_MemoryCopyDocument)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace tavora
