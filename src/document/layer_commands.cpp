#include "document/layer_commands.h"

#include <algorithm>

#include "base/row_workers.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"
#include "document/layer_effects.h"

namespace tavora {

void FlattenLayers(Document& doc) {
  if (doc.LayerCount() < 2) return;
  Layer flat;
  flat.SetName(u"Background");
  flat.pixels = FlatCopy(doc, 0, Matte::None);
  flat.effectsDirty = doc.Bounds();
  bool opaque = true;
  const uint32_t* p = flat.pixels.Data();
  for (std::size_t i = 0, n = flat.pixels.PixelCount(); i < n && opaque; ++i) opaque = p[i] >> 24 == 255;
  flat.opaqueBackground = opaque;
  doc.layers.clear();
  doc.layers.push_back(std::move(flat));
  doc.active = 0;
  doc.modified = true;
  doc.composite.reset();
  doc.compositeLayer = -1;
  doc.compositeDirty = doc.Bounds();
}

}  // namespace tavora

namespace tavora {
namespace {

void InvalidateAll(Document& doc) {
  for (Layer& l : doc.layers) l.effectsDirty = {0, 0, l.Width(), l.Height()};
  doc.compositeDirty = doc.Bounds();
  NotifyAreaChanged(doc, doc.Bounds());
}

void Changed(Document& doc) {
  doc.modified = true;
  InvalidateAll(doc);
  NotifyLayersChanged(doc);
}

}  // namespace

void InsertLayer(Document& doc, Layer layer, int32_t position) {
  if (position < 0 || position > doc.LayerCount()) position = doc.active + 1;
  // An active index out of step with the layers must not reach past either end.
  position = std::clamp(position, 0, doc.LayerCount());
  doc.layers.insert(doc.layers.begin() + position, std::move(layer));
  doc.active = position;
  Changed(doc);
}

void RemoveLayer(Document& doc, int32_t index) {
  if (index < 0 || index >= doc.LayerCount()) return;
  const int32_t oldCount = doc.LayerCount();
  doc.layers.erase(doc.layers.begin() + index);
  if (doc.LayerCount() <= doc.active) doc.active = std::max(oldCount - 2, 0);
  doc.compositeLayer = -1;
  Changed(doc);
}

void MergeDown(Document& doc, int32_t index) {
  if (index < 1 || index >= doc.LayerCount()) return;
  Layer& upper = doc.layers[index];
  Layer& lower = doc.layers[index - 1];
  // Both layers' caches up to date (or dropped when their effects are off),
  // so that the merge bakes exactly what the canvas shows.
  RenderLayerEffects(upper);
  RenderLayerEffects(lower);
  // The pair alone, the lower one plain, into a fresh buffer.
  const bool visible = lower.visible;
  const int32_t opacity = lower.opacity, mode = lower.blendMode;
  lower.visible = true;
  lower.opacity = 255;
  lower.blendMode = 0;
  Surface merged(doc.width, doc.height);
  CompositeRowsContext ctx;
  ctx.layers = &doc.layers[index - 1];
  ctx.layerCount = 2;
  ctx.output = merged.Data();
  ctx.outputStride = doc.width;
  ctx.x1 = doc.width;
  RowWorkers::Run(doc.height, &CompositeRows, &ctx);
  lower.visible = visible;
  lower.opacity = opacity;
  lower.blendMode = mode;
  lower.pixels = std::move(merged);
  lower.text.reset();  // no longer a text's rendering: an ordinary layer
  lower.effects.dropShadow.on = lower.effects.outerGlow.on = lower.effects.innerGlow.on = false;
  lower.effects.bevel.on = lower.effects.colorOverlay.on = lower.effects.gradientOverlay.on = false;
  lower.effects.stroke.on = lower.effects.bloom.on = false;
  lower.DropEffectCaches();
  doc.layers.erase(doc.layers.begin() + index);
  doc.active = index - 1;
  doc.compositeLayer = -1;
  Changed(doc);
}

void NewLayerCommand(Document& doc, const LayerEffects* effects) {
  PushWholeDocument(doc, u"New Layer");
  Layer layer(doc.width, doc.height, NewLayerName(doc));
  if (effects) layer.effects = *effects;
  InsertLayer(doc, std::move(layer), -1);
}

void DuplicateLayerCommand(Document& doc) {
  PushWholeDocument(doc, u"Duplicate Layer");
  const Layer* active = ActiveLayer(&doc);
  if (!active) return;
  Layer copy(*active);
  copy.opaqueBackground = false;
  copy.SetName(DuplicateLayerName(doc, active->Name()));
  InsertLayer(doc, std::move(copy), -1);
}

void DeleteLayerCommand(Document& doc) {
  PushWholeDocument(doc, u"Delete Layer");
  if (ActiveLayer(&doc)) RemoveLayer(doc, doc.active);
}

void MergeDownCommand(Document& doc) {
  PushWholeDocument(doc, u"Merge Down");
  if (ActiveLayer(&doc)) MergeDown(doc, doc.active);
}

void FlattenCommand(Document& doc) {
  PushWholeDocument(doc, u"Flatten Image");
  FlattenLayers(doc);
  InvalidateAll(doc);
  NotifyLayersChanged(doc);
}

void MoveLayerCommand(Document& doc, int32_t offset) {
  if (!ActiveLayer(&doc)) return;
  const int32_t to = doc.active + offset;
  if (to < 0 || to >= doc.LayerCount()) return;  // nothing recorded either
  PushWholeDocument(doc, offset > 0 ? u"Move Layer Up" : u"Move Layer Down");
  std::swap(doc.layers[doc.active], doc.layers[to]);
  doc.active = to;
  doc.compositeLayer = -1;
  Changed(doc);
}

}  // namespace tavora
