#pragma once
// Set-up shared by the tests of processing and of the full-screen view:
// random pixels, channels, and the row workers' split held for one scope.
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "base/row_workers.h"
#include "document/surface.h"

namespace tavora::testing_support {

// Row work is split as if the machine had `count` processors until the end
// of the scope, also when an assertion leaves it early.
class Processors {
 public:
  explicit Processors(int count) { RowWorkers::OverrideProcessorCountForTesting(count); }
  ~Processors() { RowWorkers::OverrideProcessorCountForTesting(0); }
  Processors(const Processors&) = delete;
  Processors& operator=(const Processors&) = delete;
};

inline std::vector<uint32_t> RandomPixels(std::size_t n, uint32_t seed, bool opaque = false) {
  std::mt19937 rng(seed);
  std::vector<uint32_t> v(n);
  for (uint32_t& p : v) p = opaque ? rng() | 0xFF000000u : rng();
  return v;
}

inline Surface RandomSurface(int32_t w, int32_t h, uint32_t seed) {
  Surface s(w, h);
  const std::vector<uint32_t> px = RandomPixels(s.PixelCount(), seed);
  std::copy(px.begin(), px.end(), s.Data());
  return s;
}

// A w x h picture whose pixel (x, y) is f(x, y), painted row by row.
template <class F>
Surface Painted(int32_t w, int32_t h, F f) {
  Surface s(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) s.At(x, y) = f(x, y);
  return s;
}

// The same as a row-major vector, as the pixel operations take it.
template <class F>
std::vector<uint32_t> PaintedPixels(int32_t w, int32_t h, F f) {
  const Surface s = Painted(w, h, f);
  return {s.Data(), s.Data() + s.PixelCount()};
}

// `op` run over a copy of the w x h pixels with its parameter block.
template <class Op, class Params>
std::vector<uint32_t> Applied(Op op, std::vector<uint32_t> px, int32_t w, int32_t h, const Params& params) {
  op(px.data(), w, h, &params);
  return px;
}

inline int Channel(uint32_t p, int c) { return int((p >> (8 * c)) & 255); }

}  // namespace tavora::testing_support
