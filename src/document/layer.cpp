#include "document/layer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

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
}

void Layer::RebuildFromExtended() {
  if (!extended) return;
  pixels.Fill(0);
  const Surface& ext = extended->pixels;
  const Rect area = Intersect({extended->x, extended->y, extended->x + ext.Width(),
                               extended->y + ext.Height()},
                              {0, 0, Width(), Height()});
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
  const LayerEffects& e = layer.effects;
  int32_t margin = 0;
  if (e.dropShadow.on) {
    const int32_t reach =
        std::max(std::abs(e.dropShadow.offsetX), std::abs(e.dropShadow.offsetY)) +
        e.dropShadow.blur + 2;
    margin = std::max(margin, std::max(reach, 0));
  }
  if (e.outerGlow.on) margin = std::max(margin, e.outerGlow.size + 2);
  if (e.innerGlow.on) margin = std::max(margin, e.innerGlow.size + 2);
  if (e.bevel.on) margin = std::max(margin, e.bevel.size + e.bevel.soften + 2);
  if (e.stroke.on) margin = std::max(margin, e.stroke.thickness + e.stroke.smoothness + 3);
  if (e.bloom.on) margin = std::max(margin, 2 * e.bloom.spread + 4);
  // Colour and gradient overlays never paint outside the layer's own pixels.
  return margin;
}

}  // namespace tavora
