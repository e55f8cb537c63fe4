#include "document/layer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "document/layer_effects.h"

namespace tavora {

std::u16string_view TruncateUtf16(std::u16string_view text, std::size_t maxUnits) {
  if (text.size() <= maxUnits) return text;
  std::size_t n = maxUnits;
  if (n > 0 && text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF) --n;
  return text.substr(0, n);
}

Layer::Layer(int32_t width, int32_t height, std::u16string_view name)
    : pixels(width, height), effectsDirty{0, 0, pixels.Width(), pixels.Height()} {
  SetName(name);
}

Layer::Layer(const Layer& other)
    : pixels(other.pixels),
      extended(other.extended ? std::make_unique<ExtendedContent>(*other.extended) : nullptr),
      visible(other.visible),
      effectsHidden(other.effectsHidden),
      opacity(other.opacity),
      blendMode(other.blendMode),
      opaqueBackground(other.opaqueBackground),
      effects(other.effects),
      effectsDirty{0, 0, other.Width(), other.Height()},
      rebuildEffects(true),
      text(other.text ? std::make_unique<TextRecord>(*other.text) : nullptr),
      name_(other.name_) {}

Layer& Layer::operator=(const Layer& other) {
  if (this != &other) *this = Layer(other);
  return *this;
}

void Layer::SetName(std::u16string_view name) {
  name_ = std::u16string(TruncateUtf16(name, kMaxLayerNameLength));
}

void Layer::DropEffectCaches() {
  styled.reset();
  under.reset();
  over.reset();
  effectsWork = Surface();
  renderedEffects.reset();
}

void Layer::RebuildFromExtended() {
  if (!extended) return;
  pixels.Fill(0);
  rebuildEffects = true;
  effectsDirty = {0, 0, Width(), Height()};
  const Surface& ext = extended->pixels;
  // In 64 bits: a far-off position must not wrap around onto the canvas.
  const int64_t x0 = std::max<int64_t>(extended->x, 0);
  const int64_t y0 = std::max<int64_t>(extended->y, 0);
  const int64_t x1 = std::min<int64_t>(int64_t{extended->x} + ext.Width(), Width());
  const int64_t y1 = std::min<int64_t>(int64_t{extended->y} + ext.Height(), Height());
  if (x1 <= x0 || y1 <= y0) return;
  const Rect area{int32_t(x0), int32_t(y0), int32_t(x1), int32_t(y1)};
  if (area.Empty()) return;
  const std::size_t bytes = std::size_t(area.Width()) * sizeof(uint32_t);
  for (int32_t y = area.y0; y < area.y1; ++y) {
    std::memcpy(pixels.Row(y) + area.x0, ext.Row(y - extended->y) + (area.x0 - extended->x),
                bytes);
  }
}

bool AnyEffectOn(const Layer& layer) {
  if (layer.effectsHidden) return false;
  const LayerEffects& e = layer.effects;
  return e.dropShadow.on || e.outerGlow.on || e.innerGlow.on || e.stroke.on || e.bloom.on ||
         e.bevel.on || e.colorOverlay.on || e.gradientOverlay.on;
}

int32_t EffectMargin(const Layer& layer) {
  // In 64 bits and capped: parameters come from files and may be extreme.
  const LayerEffects& e = layer.effects;
  int64_t margin = 0;
  auto reach = [&](bool on, int64_t value) {
    if (on) margin = std::max(margin, value);
  };
  const ShadowGlowEffect& ds = e.dropShadow;
  reach(ds.on, std::max<int64_t>(std::abs(int64_t{ds.offsetX}), std::abs(int64_t{ds.offsetY})) +
                   ds.size + 2);
  reach(e.outerGlow.on, int64_t{e.outerGlow.size} + 2);
  reach(e.innerGlow.on, int64_t{e.innerGlow.size} + 2);
  reach(e.bevel.on, int64_t{e.bevel.size} + e.bevel.soften + 2);
  reach(e.stroke.on, int64_t{e.stroke.thickness} + e.stroke.smoothness + 3);
  reach(e.bloom.on, 2 * int64_t{e.bloom.spread} + 4);
  // Colour and gradient overlays never paint outside the layer's own pixels.
  margin = std::max(margin, EffectReach(e));
  return static_cast<int32_t>(std::min<int64_t>(margin, kMaxEffectMargin));
}

}  // namespace tavora
