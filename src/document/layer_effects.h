#pragma once
#include "document/layer.h"

namespace tavora {

// Brings a layer's effect caches up to date with its effect parameters, or
// drops them when no effect is on. The compositor calls this for every layer
// whose effects are dirty or switched off before it composites.
void RenderLayerEffects(Layer& layer);

}  // namespace tavora
