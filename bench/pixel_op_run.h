#pragma once
// Times one pixel operation over a fresh copy of the source on every
// iteration (the copy is left out of the time), in pixels per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "processing/adjustments.h"

namespace tavora {

inline void RunPixelOp(benchmark::State& state, PixelOp op, const void* params, const std::vector<uint32_t>& source,
                       int w, int h) {
  std::vector<uint32_t> work;
  for (auto _ : state) {
    state.PauseTiming();
    work = source;
    state.ResumeTiming();
    op(work.data(), w, h, params);
    benchmark::DoNotOptimize(work.data());
  }
  state.SetItemsProcessed(state.iterations() * int64_t{w} * h);
}

}  // namespace tavora
