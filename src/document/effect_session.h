#pragma once
// What the Properties and Effects dialog does to the document, apart from
// its window: every change is shown on the canvas at once, Cancel puts the
// layer back exactly, OK is one history step.
#include <cstdint>
#include <string>

#include "document/document.h"

namespace tavora {

// The values the dialog edits.
struct LayerProperties {
  std::u16string name;
  int32_t opacity = 255;
  int32_t blendMode = 0;
  bool visible = true;
  bool effectsHidden = false;
  LayerEffects effects;

  bool operator==(const LayerProperties&) const = default;
};
LayerProperties PropertiesOf(const Layer& layer);

inline constexpr std::u16string_view kLayerPropertiesStep = u"Layer Properties";

class LayerPropertiesSession {
 public:
  // Remembers the layer as it is; an index outside the layers gives a
  // session that does nothing.
  LayerPropertiesSession(Document& doc, int32_t layerIndex);
  bool Valid() const { return valid_; }
  const LayerProperties& Original() const { return original_; }
  const LayerProperties& Current() const { return current_; }

  // The layer takes these values and the canvas is invalidated, for the
  // caller to redraw (a preview: nothing is recorded).
  void Preview(const LayerProperties& values);
  // Everything as it was when the session began.
  void Cancel();
  // The values previewed last become one "Layer Properties" step (the layer
  // recorded as it was); nothing is recorded when nothing changed. True
  // when a step was recorded.
  bool Commit();

 private:
  void Apply(const LayerProperties& values);

  Document& doc_;
  int32_t index_;
  bool valid_;
  LayerProperties original_, current_;
};

}  // namespace tavora
