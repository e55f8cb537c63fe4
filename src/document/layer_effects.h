#pragma once
// The layer-effect renderer: draws a layer's eight effects into its three
// caches, which the compositor lays around the layer's pixels.
//   under:  Drop Shadow, then Bloom, then Outer Glow, beneath the pixels;
//   styled: the pixels with Gradient Overlay, Color Overlay, Inner Glow, an
//           inside Stroke and Bevel applied in that order (alpha kept);
//   over:   an outside or centred Stroke, above the pixels.
// A cache no enabled effect draws into is not kept.
#include <cstdint>

#include "document/layer.h"

namespace tavora {

// Brings a layer's effect caches up to date with its effect parameters, or
// drops them when no effect is on. Draws only the effects-dirty rectangle
// (which Invalidate grows by the effect margin), or the whole layer when
// the caches do not match the parameters, the fx switch or the size; the
// result is the same either way, to the bit. The compositor calls this for
// every layer whose effects are dirty or switched off before it composites.
void RenderLayerEffects(Layer& layer);

// True when the caches do not show the layer's current effects: a
// parameter or the fx switch changed since they were drawn, a cache is
// missing or of another size, or caches remain of effects now off.
bool EffectCachesStale(const Layer& layer);

// How far, in pixels, a change of one pixel can change the caches the
// enabled groups draw (the fx switch is not looked at).
int64_t EffectReach(const LayerEffects& effects);

}  // namespace tavora
