#include "document/layer_effects.h"

namespace tavora {

void RenderLayerEffects(Layer& layer) {
  if (!AnyEffectOn(layer)) {
    layer.DropEffectCaches();
    layer.effectsDirty = {};
    layer.rebuildEffects = false;
    return;
  }
  // The drawing of the eight effects has not landed yet: a layer with
  // effects on keeps no caches, so it composites as its plain pixels. The
  // rebuild flag stays set so the renderer draws it once it exists.
  layer.effectsDirty = {};
}

}  // namespace tavora
