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

namespace tavora {

// A layer put at `position` (below 0 or past the count: just above the
// active layer), made active; the whole document is invalidated.
void InsertLayer(Document& doc, Layer layer, int32_t position);
// Removes a layer; an index outside the layers does nothing.
void RemoveLayer(Document& doc, int32_t index);
// Merges layer `index` into the one below it with its opacity, mode and
// effects applied once; nothing unless 1 <= index < count.
void MergeDown(Document& doc, int32_t index);

// The Layers menu's commands, each one whole-document history step (Move
// Up and Move Down only when there is somewhere to move).
// A new layer takes `effects` (all switched off) when given: the values the
// user chose last.
void NewLayerCommand(Document& doc, const LayerEffects* effects = nullptr);
void DuplicateLayerCommand(Document& doc);
void DeleteLayerCommand(Document& doc);
void MergeDownCommand(Document& doc);
void FlattenCommand(Document& doc);
void MoveLayerCommand(Document& doc, int32_t offset);  // +1 up, -1 down

}  // namespace tavora
