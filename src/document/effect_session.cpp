#include "document/effect_session.h"

#include <algorithm>

#include "document/blend.h"
#include "document/composite.h"
#include "document/document_events.h"
#include "document/history.h"

namespace tavora {

LayerProperties PropertiesOf(const Layer& layer) {
  return {layer.Name(), layer.opacity, layer.blendMode, layer.visible, layer.effectsHidden, layer.effects};
}

LayerPropertiesSession::LayerPropertiesSession(Document& doc, int32_t layerIndex)
    : doc_(doc), index_(layerIndex), valid_(layerIndex >= 0 && layerIndex < doc.LayerCount()) {
  if (valid_) original_ = current_ = PropertiesOf(doc.layers[std::size_t(layerIndex)]);
}

void LayerPropertiesSession::Apply(const LayerProperties& values) {
  Layer& layer = doc_.layers[std::size_t(index_)];
  const LayerProperties before = PropertiesOf(layer);
  layer.SetName(values.name);
  layer.opacity = std::clamp(values.opacity, 0, 255);
  layer.blendMode = std::clamp(values.blendMode, 0, kBlendModeCount - 1);
  layer.visible = values.visible;
  layer.effectsHidden = values.effectsHidden;
  layer.effects = values.effects;
  // Changed effects are drawn again over the whole layer; opacity, mode and
  // visibility only need the composite; a new name needs neither.
  if (before.effects != layer.effects || before.effectsHidden != layer.effectsHidden)
    Invalidate(doc_, index_, doc_.Bounds());
  else if (before.opacity != layer.opacity || before.blendMode != layer.blendMode || before.visible != layer.visible)
    Invalidate(doc_, -1, doc_.Bounds());
}

void LayerPropertiesSession::Preview(const LayerProperties& values) {
  if (!valid_ || index_ >= doc_.LayerCount()) return;
  current_ = values;
  Apply(values);
}

void LayerPropertiesSession::Cancel() {
  if (!valid_ || index_ >= doc_.LayerCount()) return;
  current_ = original_;
  Apply(original_);
}

bool LayerPropertiesSession::Commit() {
  if (!valid_ || index_ >= doc_.LayerCount()) return false;
  const LayerProperties wanted = current_;
  Apply(original_);
  // Compared as the layer would hold them (a long name cut, values held to range).
  LayerProperties held = wanted;
  held.name = std::u16string(TruncateUtf16(held.name, kMaxLayerNameLength));
  held.opacity = std::clamp(held.opacity, 0, 255);
  held.blendMode = std::clamp(held.blendMode, 0, kBlendModeCount - 1);
  if (held == original_) return false;
  PushLayer(doc_, index_, kLayerPropertiesStep);
  Apply(wanted);
  current_ = original_ = PropertiesOf(doc_.layers[std::size_t(index_)]);
  NotifyLayersChanged(doc_);
  return true;
}

}  // namespace tavora
