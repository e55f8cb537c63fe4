#pragma once
// Fill Selection from Surroundings: the selected pixels of the active layer
// are synthesised from the picture around them by patch-based inpainting.
// The hole is filled coarse to fine over an image pyramid: at the coarsest
// level from its border inwards (onion peel), then at every level by
// rounds of nearest-patch search (PatchMatch: propagation and random
// search) and of voting, in which each pixel takes the weighted mean of the
// matched patches that cover it, so edges and textures run on into the hole.
#include <cstdint>

#include "base/progress.h"
#include "document/document.h"

namespace tavora {

// The prompt's range and starting value for "Grow selection by (px):"; a
// few pixels take in the soft rim a thin object leaves around it.
inline constexpr int32_t kFillGrowMaximum = 100;
inline constexpr int32_t kFillGrowDefault = 4;

// Replaces every pixel of the width x height block (0xAARRGGBB, straight
// alpha) whose hole byte is not 0 with synthesised content; the others stay
// exactly. Sources are whole 7 x 7 patches outside the hole, within about
// twice the hole's thickness of it. False, with the block partly written,
// when the progress was cancelled, and false, untouched, when the block
// has no pixel outside the hole to take content from.
[[nodiscard]] bool InpaintPixels(uint32_t* pixels, const uint8_t* hole, int32_t width, int32_t height,
                                 Progress* progress);

// The Edit command: the selection grown by growBy pixels (0..100, a disc,
// as Grow does) is filled in the active layer, each pixel blended in by its
// coverage, as one step "Fill from Surroundings". Only the neighbourhood of
// the selection is read. Nothing happens, and false is returned, without a
// selection, when everything is selected, or when CurrentProgress() was
// cancelled before the end (nothing is recorded then either).
bool FillFromSurroundings(Document& doc, int32_t growBy);

}  // namespace tavora
