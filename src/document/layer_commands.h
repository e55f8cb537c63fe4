#pragma once
// The layer stack operations behind the Layers menu. These change the
// document only; the commands record their history step around them.
#include "document/document.h"

namespace tavora {

// All layers become one "Background" layer holding the composite (no matte);
// it is opaque-flagged only when every pixel has alpha 255. A document with
// fewer than 2 layers is left unchanged.
void FlattenLayers(Document& doc);

}  // namespace tavora
