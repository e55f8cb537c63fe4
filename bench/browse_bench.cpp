// The Browse tab's work that does not wait on the disk: ordering a folder
// of 2000 photographs by name, date and size, and shrinking a 12-megapixel
// picture to a 160-pixel thumbnail (the step after every full decode).
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "browse/browse_model.h"

namespace tavora {
namespace {

bool OpensJpeg(const std::filesystem::path& p) { return p.extension() == ".jpg"; }

std::vector<BrowseEntry> Folder() {
  std::mt19937 random(7);
  std::vector<BrowseEntry> v;
  for (int i = 0; i < 2000; ++i) {
    BrowseEntry e;
    const std::string name = "IMG_" + std::to_string(random() % 100000) + (i % 10 ? ".jpg" : ".txt");
    e.name = std::u16string(name.begin(), name.end());
    e.path = name;
    e.size = 2'000'000 + random() % 3'000'000;
    e.modified = random();
    v.push_back(std::move(e));
  }
  return v;
}

void BM_GridEntries2000(benchmark::State& state) {
  const std::vector<BrowseEntry> folder = Folder();
  const BrowseSort sort = static_cast<BrowseSort>(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(GridEntries(folder, sort, ShowHidden::No, &OpensJpeg));
}
BENCHMARK(BM_GridEntries2000)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

void BM_Shrink12MpTo160(benchmark::State& state) {
  Surface s(4000, 3000);
  std::mt19937 random(3);
  for (std::size_t i = 0; i < s.PixelCount(); ++i) s.Data()[i] = random() | 0xFF000000u;
  for (auto _ : state) benchmark::DoNotOptimize(ShrinkToFit(s, 160, 160));
}
BENCHMARK(BM_Shrink12MpTo160)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavora
