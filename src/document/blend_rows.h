#pragma once
// Laying one row of a layer on one row of the composite: the inner loop of
// compositing, with wide paths for the common cases (transparent runs, an
// opaque backdrop) that give exactly the per-pixel results.
#include <cstdint>

namespace tavora {

// Lays n source pixels, their alpha scaled by opacity (0..255), on out in
// blend mode `mode` (out of range counts as Normal). Over a transparent
// backdrop a blended pixel shows its own colour; over a partly covered one
// the blended colour is mixed in by the backdrop's alpha.
void LayRow(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity, int32_t mode);

// Effect buffers (shadows, glows, strokes) are always laid as Normal.
inline void LayEffectRow(uint32_t* out, const uint32_t* src, int32_t n, uint32_t opacity) {
  LayRow(out, src, n, opacity, 0);
}

// allowed false: every pixel takes the plain per-pixel path, so tests can
// hold the wide paths to it; avx2 false keeps to the four-pixel loop. Both
// on by default.
void AllowWideCompositingForTesting(bool allowed, bool avx2 = true);

}  // namespace tavora
