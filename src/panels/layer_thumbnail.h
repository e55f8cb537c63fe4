#pragma once
// A layer's picture shrunk to fit a square, over a small checkerboard, for
// the Layers panel.
#include <cstdint>
#include <vector>

#include "document/layer.h"

namespace tavora {

// size x size opaque pixels, top-down; the layer keeps its aspect ratio,
// centred, with the margins left transparent (checkerboard).
std::vector<uint32_t> LayerThumbnail(const Layer& layer, int32_t size);

}  // namespace tavora
