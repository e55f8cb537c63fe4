#pragma once
// A layer of a document: its canvas-sized pixels, optional content reaching
// beyond the canvas, visibility, opacity, blend mode, the eight effect
// parameter groups and the caches the effect renderer fills.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "document/rect.h"
#include "document/surface.h"

namespace tavora {

inline constexpr int kMaxLayerNameLength = 63;

// Colours are 0x00RRGGBB, sizes in pixels, opacities in per cent.

// Drop Shadow, Outer Glow and Inner Glow share one record: the glows keep
// offsets too (saved and restored like the shadow's), `size` is the
// shadow's blur, and `option` is a 0/1 choice of the effect's own (for Inner
// Glow, where it glows from: 0 = the edges).
struct ShadowGlowEffect {
  bool on = false;
  int32_t offsetX = 0, offsetY = 0;
  int32_t size = 0;
  uint32_t color = 0;
  int32_t opacity = 0;
  int32_t option = 0;

  bool operator==(const ShadowGlowEffect&) const = default;
};
inline constexpr ShadowGlowEffect kDropShadowDefaults{false, 6, 6, 8, 0x000000, 60, 0};
inline constexpr ShadowGlowEffect kOuterGlowDefaults{false, 0, 0, 12, 0xFFD84A, 80, 0};
inline constexpr ShadowGlowEffect kInnerGlowDefaults{false, 0, 0, 12, 0xFFFFFF, 80, 0};

struct BevelEffect {
  bool on = false;
  int32_t depth = 60, size = 8, soften = 2;
  int32_t angle = 135;     // light direction in degrees
  int32_t direction = 0;   // 0 = raised, 1 = sunken

  bool operator==(const BevelEffect&) const = default;
};
struct ColorOverlayEffect {
  bool on = false;
  uint32_t color = 0xFF3366;
  int32_t opacity = 100;
  int32_t blendMode = 0;

  bool operator==(const ColorOverlayEffect&) const = default;
};
struct GradientOverlayEffect {
  bool on = false;
  uint32_t color1 = 0xFF8800, color2 = 0x3355FF;
  int32_t opacity = 100;
  int32_t blendMode = 0;
  int32_t angle = 90;
  int32_t style = 0;  // one of 5
  bool reverse = false;

  bool operator==(const GradientOverlayEffect&) const = default;
};
struct StrokeEffect {
  bool on = false;
  uint32_t color = 0x000000;
  int32_t opacity = 100, thickness = 3, smoothness = 1;
  int32_t position = 0;  // 0 outside, 1 centred, 2 inside

  bool operator==(const StrokeEffect&) const = default;
};
struct BloomEffect {
  bool on = false;
  uint32_t color = 0x2F7CFF;
  int32_t spread = 30, intensity = 100, core = 70, softness = 50;
  int32_t glow = 0;  // one of 3

  bool operator==(const BloomEffect&) const = default;
};

struct LayerEffects {
  ShadowGlowEffect dropShadow = kDropShadowDefaults;
  ShadowGlowEffect outerGlow = kOuterGlowDefaults;
  ShadowGlowEffect innerGlow = kInnerGlowDefaults;
  BevelEffect bevel;
  ColorOverlayEffect colorOverlay;
  GradientOverlayEffect gradientOverlay;
  StrokeEffect stroke;
  BloomEffect bloom;

  bool operator==(const LayerEffects&) const = default;
};

// A layer's full content when it reaches beyond the canvas; x, y is its
// top-left corner in canvas coordinates and may be negative.
struct ExtendedContent {
  int32_t x = 0, y = 0;
  Surface pixels;
};

// Kept by a text layer so the text stays editable.
struct TextRecord {
  static constexpr int kMaxText = 2047;
  static constexpr int kMaxFontName = 63;
  std::u16string text;
  std::u16string fontName = u"Segoe UI";
  int32_t fontSize = 72;  // pixels, 4..2000
  int32_t bold = 0, italic = 0, underline = 0;
  uint32_t color = 0xFF000000;  // 0xAARRGGBB
  int32_t x = 0, y = 0;         // top-left of the text box on the layer
};

class Layer {
 public:
  Layer() = default;
  // Zeroed canvas-sized pixels, every default; the name is cut to 63 characters.
  Layer(int32_t width, int32_t height, std::u16string_view name);
  // A deep copy of pixels, extended content and text record; the effect
  // caches are not copied, so the copy's effects are rendered afresh.
  Layer(const Layer& other);
  Layer& operator=(const Layer& other);
  Layer(Layer&&) noexcept = default;
  Layer& operator=(Layer&&) noexcept = default;

  int32_t Width() const { return pixels.Width(); }
  int32_t Height() const { return pixels.Height(); }
  const std::u16string& Name() const { return name_; }
  void SetName(std::u16string_view name);

  // Replaces the canvas-sized pixels with the visible part of the extended
  // content; without extended content nothing changes.
  void RebuildFromExtended();

  // Drops the effect caches and the work buffer.
  void DropEffectCaches();

  Surface pixels;
  std::unique_ptr<ExtendedContent> extended;
  bool visible = true;
  bool effectsHidden = false;  // the "fx" switch: effects off as a group
  int32_t opacity = 255;
  int32_t blendMode = 0;
  bool opaqueBackground = false;
  LayerEffects effects;

  // Caches drawn by the effect renderer.
  std::unique_ptr<Surface> styled;  // pixels with on-layer effects, used instead of pixels
  std::unique_ptr<Surface> under;   // drawn beneath the pixels (shadow, glow)
  std::unique_ptr<Surface> over;    // drawn above the pixels (stroke)
  Rect effectsDirty;
  Surface effectsWork;
  bool rebuildEffects = false;
  // The parameters the caches were drawn with: when they differ from
  // `effects` the caches are drawn whole again. Not copied with the layer.
  std::optional<LayerEffects> renderedEffects;

  std::unique_ptr<TextRecord> text;

 private:
  std::u16string name_;
};

// True when the layer's effects are not hidden and at least one group is on.
bool AnyEffectOn(const Layer& layer);
// How far beyond the layer's opaque content its enabled effects can reach,
// never below 0 and never above kMaxEffectMargin: the larger of each
// group's rule (shadow: offset + blur + 2; glows: size + 2; bevel: size +
// soften + 2; stroke: thickness + smoothness + 3; bloom: 2 x spread + 4)
// and how far the renderer really reads (a shadow's blur of radius r
// reaches about 1.5 r).
inline constexpr int32_t kMaxEffectMargin = 1 << 20;
int32_t EffectMargin(const Layer& layer);

// Cuts a UTF-16 string to at most maxUnits code units without splitting a
// surrogate pair.
std::u16string_view TruncateUtf16(std::u16string_view text, std::size_t maxUnits);

}  // namespace tavora
