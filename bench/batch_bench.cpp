// Batch conversion of a folder of 12-megapixel photographs (4000 x 3000,
// written once as .tvl into a temp folder) to WebP at quality 80, with one
// worker (the rows of flattening on the row workers, the codec alone) and
// with two workers taking files in order. Rates: files per second
// ("files_per_second") and megapixels per second. TAVORA_BATCH_BENCH_FILES
// sets the number of files (20).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <vector>

#include "formats/batch.h"
#include "formats/layered_format.h"

namespace tavora {
namespace {

namespace fs = std::filesystem;

constexpr int32_t kWidth = 4000, kHeight = 3000;

int FileCount() {
  const char* env = std::getenv("TAVORA_BATCH_BENCH_FILES");
  const int n = env ? std::atoi(env) : 20;
  return n > 0 ? n : 20;
}

// Smooth light and colour with fine grain, which the encoder treats as it
// treats a photograph: neither flat nor pure noise.
Surface Photograph(uint32_t seed) {
  Surface s(kWidth, kHeight);
  std::mt19937 rng(seed);
  std::vector<int> columns(kWidth), rows(kHeight);
  const double phase = seed * 0.7;
  for (int x = 0; x < kWidth; ++x) columns[x] = int(60 * std::sin(x / 310.0 + phase) + 40 * std::sin(x / 47.0));
  for (int y = 0; y < kHeight; ++y) rows[y] = int(50 * std::cos(y / 270.0 + phase) + 30 * std::sin(y / 61.0));
  for (int y = 0; y < kHeight; ++y) {
    uint32_t* row = s.Row(y);
    for (int x = 0; x < kWidth; ++x) {
      const uint32_t noise = rng();
      auto channel = [&](int base, int shift) {
        return uint32_t(std::clamp(base + int((noise >> shift) & 15) - 8, 0, 255));
      };
      const int v = 128 + columns[x] + rows[y];
      row[x] = 0xFF000000u | channel(v, 0) << 16 | channel(v - rows[y] / 2, 4) << 8 | channel(255 - v, 8);
    }
  }
  return s;
}

const fs::path& SourceFolder() {
  static const fs::path folder = [] {
    const fs::path f = fs::temp_directory_path() / "tavora-batch-bench";
    fs::create_directories(f);
    for (int i = 0; i < FileCount(); ++i) {
      const fs::path p = f / ("photo" + std::to_string(100 + i) + ".tvl");
      if (!fs::exists(p) && !WriteLayeredDocument(*DocumentFromPicture(Photograph(uint32_t(i)), 300), p))
        std::abort();
    }
    return f;
  }();
  return folder;
}

void BM_BatchTvlToWebp(benchmark::State& state) {
  const fs::path& source = SourceFolder();
  const fs::path dest = fs::temp_directory_path() / "tavora-batch-bench-out";
  int64_t files = 0;
  for (auto _ : state) {
    BatchOptions o;
    o.source = source;
    o.dest = dest;
    o.type = 9;
    o.format = 5;  // WebP
    o.quality = 80;
    o.workers = static_cast<int>(state.range(0));
    BatchJob job(o);
    job.Start();
    job.Wait();
    const BatchOutcome outcome = job.Outcome();
    if (outcome.converted != outcome.found) state.SkipWithError("a file was not converted");
    files += outcome.converted;
  }
  state.counters["files_per_second"] = benchmark::Counter(double(files), benchmark::Counter::kIsRate);
  state.SetItemsProcessed(files * kWidth * kHeight);
  std::error_code ec;
  fs::remove_all(dest, ec);
}
BENCHMARK(BM_BatchTvlToWebp)->ArgName("workers")->Arg(1)->Arg(2)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace tavora
