#pragma once
// The Edit menu's Fill with Foreground, Fill with Background and Clear:
// the selection (the whole layer without one) of the active layer is
// filled or erased, weighted by the selection bytes, as one step each.
#include <cstdint>

#include "document/document.h"

namespace tavora {

// "Fill": the colour (made opaque) laid over each pixel at the selection
// byte, so a soft edge fades and a transparent pixel takes the colour at
// that alpha. Whether it recorded.
bool FillSelectionCommand(Document& doc, uint32_t color);
// "Clear": alpha lowered by the selection byte; a Background layer, which
// cannot hold transparency, takes the background colour instead.
bool ClearCommand(Document& doc, uint32_t backgroundColor);

}  // namespace tavora
