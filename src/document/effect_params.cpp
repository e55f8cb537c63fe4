#include "document/effect_params.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "base/unicode.h"
#include "document/blend.h"

namespace tavora {
namespace {

constexpr EffectGroupInfo kGroups[kEffectGroupCount] = {
    {u"Drop Shadow", "shadow"},   {u"Outer Glow", "outerglow"},
    {u"Inner Glow", "innerglow"}, {u"Bevel", "bevel"},
    {u"Color Overlay", "overlay"}, {u"Gradient Overlay", "gradient"},
    {u"Stroke", "stroke"},         {u"Bloom", "bloom"},
};

constexpr EffectChoice kGlowSources[] = {{"edges", u"Edges"}, {"center", u"Center"}};
constexpr EffectChoice kBevelDirections[] = {{"raised", u"Raised"}, {"sunken", u"Sunken"}};
constexpr EffectChoice kGradientStyles[] = {{"linear", u"Linear"},
                                            {"radial", u"Radial"},
                                            {"angle", u"Angle"},
                                            {"reflected", u"Reflected"},
                                            {"diamond", u"Diamond"}};
constexpr EffectChoice kStrokePositions[] = {
    {"outside", u"Outside"}, {"center", u"Center"}, {"inside", u"Inside"}};
constexpr EffectChoice kBloomGlows[] = {
    {"color", u"Color"}, {"layer", u"Layer colors"}, {"tinted", u"Layer colors, tinted"}};
// The blend modes in the order of blend.h, named as in the menus.
constexpr EffectChoice kBlendModes[kBlendModeCount] = {
    {"normal", u"Normal"},         {"multiply", u"Multiply"},
    {"screen", u"Screen"},         {"overlay", u"Overlay"},
    {"darken", u"Darken"},         {"lighten", u"Lighten"},
    {"difference", u"Difference"}, {"soft-light", u"Soft Light"},
    {"hard-light", u"Hard Light"}, {"color-dodge", u"Color Dodge"},
    {"color-burn", u"Color Burn"}, {"exclusion", u"Exclusion"},
    {"linear-dodge", u"Linear Dodge (Add)"}, {"linear-burn", u"Linear Burn"},
};

// Accessors for one field of one group; the switches and colours are held
// as whole numbers like every other value.
#define TAVORA_FIELD(group, field)                                                      \
  [](const LayerEffects& e) { return static_cast<int32_t>(e.group.field); },          \
      [](LayerEffects& e, int32_t v) { e.group.field = static_cast<decltype(e.group.field)>(v); }

constexpr int32_t kMaxOffset = 32767;  // the layered file keeps 16 bits of Offset Y

// sliderMinimum/Maximum: the part of the range a slider covers.
const EffectParam kParams[] = {
    {kEffectDropShadow, "shadow.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(dropShadow, on)},
    {kEffectDropShadow, "shadow.x", u"Offset X:", ParamType::Number, -kMaxOffset, kMaxOffset,
     kDropShadowDefaults.offsetX, u"px", -100, 100, {}, TAVORA_FIELD(dropShadow, offsetX)},
    {kEffectDropShadow, "shadow.y", u"Offset Y:", ParamType::Number, -kMaxOffset, kMaxOffset,
     kDropShadowDefaults.offsetY, u"px", -100, 100, {}, TAVORA_FIELD(dropShadow, offsetY)},
    {kEffectDropShadow, "shadow.blur", u"Blur:", ParamType::Number, 0, 500, kDropShadowDefaults.size,
     u"px", 0, 100, {}, TAVORA_FIELD(dropShadow, size)},
    {kEffectDropShadow, "shadow.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     kDropShadowDefaults.color, u"", 0, 0, {}, TAVORA_FIELD(dropShadow, color)},
    {kEffectDropShadow, "shadow.opacity", u"Opacity:", ParamType::Number, 0, 100,
     kDropShadowDefaults.opacity, u"%", 0, 100, {}, TAVORA_FIELD(dropShadow, opacity)},

    {kEffectOuterGlow, "outerglow.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(outerGlow, on)},
    {kEffectOuterGlow, "outerglow.size", u"Size:", ParamType::Number, 0, 500, kOuterGlowDefaults.size,
     u"px", 0, 100, {}, TAVORA_FIELD(outerGlow, size)},
    {kEffectOuterGlow, "outerglow.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     kOuterGlowDefaults.color, u"", 0, 0, {}, TAVORA_FIELD(outerGlow, color)},
    {kEffectOuterGlow, "outerglow.opacity", u"Opacity:", ParamType::Number, 0, 100,
     kOuterGlowDefaults.opacity, u"%", 0, 100, {}, TAVORA_FIELD(outerGlow, opacity)},

    {kEffectInnerGlow, "innerglow.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(innerGlow, on)},
    {kEffectInnerGlow, "innerglow.source", u"Glow from:", ParamType::Choice, 0, 1,
     kInnerGlowDefaults.option, u"", 0, 0, kGlowSources, TAVORA_FIELD(innerGlow, option)},
    {kEffectInnerGlow, "innerglow.size", u"Size:", ParamType::Number, 0, 500, kInnerGlowDefaults.size,
     u"px", 0, 100, {}, TAVORA_FIELD(innerGlow, size)},
    {kEffectInnerGlow, "innerglow.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     kInnerGlowDefaults.color, u"", 0, 0, {}, TAVORA_FIELD(innerGlow, color)},
    {kEffectInnerGlow, "innerglow.opacity", u"Opacity:", ParamType::Number, 0, 100,
     kInnerGlowDefaults.opacity, u"%", 0, 100, {}, TAVORA_FIELD(innerGlow, opacity)},

    {kEffectBevel, "bevel.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {}, TAVORA_FIELD(bevel, on)},
    {kEffectBevel, "bevel.depth", u"Depth:", ParamType::Number, 0, 100, BevelEffect{}.depth, u"%", 0, 100,
     {}, TAVORA_FIELD(bevel, depth)},
    {kEffectBevel, "bevel.size", u"Size:", ParamType::Number, 0, 200, BevelEffect{}.size, u"px", 0, 200, {},
     TAVORA_FIELD(bevel, size)},
    {kEffectBevel, "bevel.soften", u"Soften:", ParamType::Number, 0, 100, BevelEffect{}.soften, u"px", 0,
     100, {}, TAVORA_FIELD(bevel, soften)},
    {kEffectBevel, "bevel.angle", u"Light angle:", ParamType::Number, -360, 360, BevelEffect{}.angle,
     u"\u00B0", -180, 180, {}, TAVORA_FIELD(bevel, angle)},
    {kEffectBevel, "bevel.direction", u"Direction:", ParamType::Choice, 0, 1, BevelEffect{}.direction,
     u"", 0, 0, kBevelDirections, TAVORA_FIELD(bevel, direction)},

    {kEffectColorOverlay, "overlay.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(colorOverlay, on)},
    {kEffectColorOverlay, "overlay.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     static_cast<int32_t>(ColorOverlayEffect{}.color), u"", 0, 0, {}, TAVORA_FIELD(colorOverlay, color)},
    {kEffectColorOverlay, "overlay.opacity", u"Opacity:", ParamType::Number, 0, 100,
     ColorOverlayEffect{}.opacity, u"%", 0, 100, {}, TAVORA_FIELD(colorOverlay, opacity)},
    {kEffectColorOverlay, "overlay.blend", u"Blend mode:", ParamType::Choice, 0, kBlendModeCount - 1,
     ColorOverlayEffect{}.blendMode, u"", 0, 0, kBlendModes, TAVORA_FIELD(colorOverlay, blendMode)},

    {kEffectGradientOverlay, "gradient.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(gradientOverlay, on)},
    {kEffectGradientOverlay, "gradient.color1", u"Start color:", ParamType::Color, 0, 0xFFFFFF,
     static_cast<int32_t>(GradientOverlayEffect{}.color1), u"", 0, 0, {},
     TAVORA_FIELD(gradientOverlay, color1)},
    {kEffectGradientOverlay, "gradient.color2", u"End color:", ParamType::Color, 0, 0xFFFFFF,
     static_cast<int32_t>(GradientOverlayEffect{}.color2), u"", 0, 0, {},
     TAVORA_FIELD(gradientOverlay, color2)},
    {kEffectGradientOverlay, "gradient.opacity", u"Opacity:", ParamType::Number, 0, 100,
     GradientOverlayEffect{}.opacity, u"%", 0, 100, {}, TAVORA_FIELD(gradientOverlay, opacity)},
    {kEffectGradientOverlay, "gradient.blend", u"Blend mode:", ParamType::Choice, 0, kBlendModeCount - 1,
     GradientOverlayEffect{}.blendMode, u"", 0, 0, kBlendModes, TAVORA_FIELD(gradientOverlay, blendMode)},
    {kEffectGradientOverlay, "gradient.angle", u"Angle:", ParamType::Number, -360, 360,
     GradientOverlayEffect{}.angle, u"\u00B0", -180, 180, {}, TAVORA_FIELD(gradientOverlay, angle)},
    {kEffectGradientOverlay, "gradient.style", u"Style:", ParamType::Choice, 0, 4,
     GradientOverlayEffect{}.style, u"", 0, 0, kGradientStyles, TAVORA_FIELD(gradientOverlay, style)},
    {kEffectGradientOverlay, "gradient.reverse", u"Reverse", ParamType::Switch, 0, 1, 0, u"", 0, 1, {},
     TAVORA_FIELD(gradientOverlay, reverse)},

    {kEffectStroke, "stroke.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {}, TAVORA_FIELD(stroke, on)},
    {kEffectStroke, "stroke.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     static_cast<int32_t>(StrokeEffect{}.color), u"", 0, 0, {}, TAVORA_FIELD(stroke, color)},
    {kEffectStroke, "stroke.opacity", u"Opacity:", ParamType::Number, 0, 100, StrokeEffect{}.opacity, u"%",
     0, 100, {}, TAVORA_FIELD(stroke, opacity)},
    {kEffectStroke, "stroke.thickness", u"Thickness:", ParamType::Number, 1, 500, StrokeEffect{}.thickness,
     u"px", 1, 100, {}, TAVORA_FIELD(stroke, thickness)},
    {kEffectStroke, "stroke.smoothness", u"Smoothness:", ParamType::Number, 0, 100,
     StrokeEffect{}.smoothness, u"px", 0, 20, {}, TAVORA_FIELD(stroke, smoothness)},
    {kEffectStroke, "stroke.position", u"Position:", ParamType::Choice, 0, 2, StrokeEffect{}.position, u"",
     0, 0, kStrokePositions, TAVORA_FIELD(stroke, position)},

    {kEffectBloom, "bloom.on", u"", ParamType::Switch, 0, 1, 0, u"", 0, 1, {}, TAVORA_FIELD(bloom, on)},
    {kEffectBloom, "bloom.color", u"Color:", ParamType::Color, 0, 0xFFFFFF,
     static_cast<int32_t>(BloomEffect{}.color), u"", 0, 0, {}, TAVORA_FIELD(bloom, color)},
    {kEffectBloom, "bloom.spread", u"Spread:", ParamType::Number, 1, 500, BloomEffect{}.spread, u"px", 1,
     200, {}, TAVORA_FIELD(bloom, spread)},
    {kEffectBloom, "bloom.intensity", u"Intensity:", ParamType::Number, 0, 300, BloomEffect{}.intensity,
     u"%", 0, 300, {}, TAVORA_FIELD(bloom, intensity)},
    {kEffectBloom, "bloom.core", u"White-hot core:", ParamType::Number, 0, 100, BloomEffect{}.core, u"%",
     0, 100, {}, TAVORA_FIELD(bloom, core)},
    {kEffectBloom, "bloom.softness", u"Softness:", ParamType::Number, 0, 100, BloomEffect{}.softness, u"%",
     0, 100, {}, TAVORA_FIELD(bloom, softness)},
    {kEffectBloom, "bloom.glow", u"Glow:", ParamType::Choice, 0, 2, BloomEffect{}.glow, u"", 0, 0,
     kBloomGlows, TAVORA_FIELD(bloom, glow)},
};

#undef TAVORA_FIELD

std::string Ascii(std::u16string_view text) {
  std::string s;
  for (char16_t c : text) s.push_back(c < 128 ? static_cast<char>(c) : '?');
  return s;
}

std::optional<int64_t> ParseWhole(std::string_view s) {
  std::size_t i = 0;
  bool negative = false;
  if (i < s.size() && (s[i] == '-' || s[i] == '+')) negative = s[i++] == '-';
  if (i == s.size()) return std::nullopt;
  int64_t v = 0;
  for (; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9') return std::nullopt;
    v = std::min<int64_t>(v * 10 + (s[i] - '0'), int64_t{1} << 40);
  }
  return negative ? -v : v;
}

std::optional<int32_t> ParseHexColor(std::string_view s) {
  if (!s.empty() && s[0] == '#') s.remove_prefix(1);
  if (s.size() != 6) return std::nullopt;
  int32_t v = 0;
  for (char c : s) {
    int d;
    if (c >= '0' && c <= '9') d = c - '0';
    else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
    else return std::nullopt;
    v = v * 16 + d;
  }
  return v;
}

}  // namespace

const EffectGroupInfo& EffectGroupAt(int32_t group) {
  return kGroups[std::clamp(group, 0, kEffectGroupCount - 1)];
}

bool EffectOn(const LayerEffects& effects, int32_t group) {
  for (const EffectParam& p : kParams)
    if (p.group == group && IsEffectSwitch(p)) return p.get(effects) != 0;
  return false;
}

void SetEffectOn(LayerEffects& effects, int32_t group, bool on) {
  for (const EffectParam& p : kParams)
    if (p.group == group && IsEffectSwitch(p)) return p.set(effects, on ? 1 : 0);
}

bool IsEffectSwitch(const EffectParam& param) { return param.key.ends_with(".on"); }

std::span<const EffectParam> EffectParams() { return kParams; }

const EffectParam* FindEffectParam(std::string_view key) {
  for (const EffectParam& p : kParams)
    if (p.key == key) return &p;
  return nullptr;
}

std::optional<int32_t> ParseEffectValue(const EffectParam& param, std::u16string_view text,
                                        bool& outOfRange) {
  outOfRange = false;
  const std::string s = Ascii(text);
  if (param.type == ParamType::Color) return ParseHexColor(s);
  if (param.type == ParamType::Choice) {
    for (std::size_t i = 0; i < param.choices.size(); ++i)
      if (param.choices[i].key == s) return static_cast<int32_t>(i);
  }
  const auto v = ParseWhole(s);
  if (!v) return std::nullopt;
  if (*v < param.minimum || *v > param.maximum) {
    outOfRange = true;
    return std::nullopt;
  }
  return static_cast<int32_t>(*v);
}

std::string FormatEffectValue(const EffectParam& param, int32_t value) {
  char text[16];
  if (param.type == ParamType::Color) {
    std::snprintf(text, sizeof text, "%06X", static_cast<unsigned>(value) & 0xFFFFFFu);
    return text;
  }
  if (param.type == ParamType::Choice && value >= 0 && std::size_t(value) < param.choices.size())
    return std::string(param.choices[std::size_t(value)].key);
  return std::to_string(value);
}

std::u16string EffectSettingsKey(const EffectParam& param) {
  std::u16string key;
  bool upper = true;
  for (char c : param.key) {
    if (c == '.') {
      upper = true;
      continue;
    }
    key.push_back(static_cast<char16_t>(upper && c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c));
    upper = false;
  }
  return key;
}

LayerEffects LoadEffectDefaults(const SettingsSnapshot& settings) {
  LayerEffects effects;
  for (const EffectParam& p : kParams) {
    int32_t value = p.fallback;
    const std::u16string key = EffectSettingsKey(p);
    if (IsEffectSwitch(p)) {
      value = 0;  // every effect starts off
    } else if (settings.Has(kEffectDefaultsSection, key)) {
      if (p.type == ParamType::Color) {
        value = ParseHexColor(Ascii(settings.GetString(kEffectDefaultsSection, key))).value_or(p.fallback);
      } else {
        value = std::clamp(settings.GetInt(kEffectDefaultsSection, key, p.fallback), p.minimum, p.maximum);
      }
    }
    p.set(effects, value);
  }
  return effects;
}

void SaveEffectDefaults(SettingsStore& settings, const LayerEffects& effects) {
  std::vector<std::pair<std::u16string, std::u16string>> values;
  for (const EffectParam& p : kParams) {
    if (IsEffectSwitch(p)) continue;
    // Colours as RRGGBB; choices by their numbers, like every other setting.
    const int32_t v = p.get(effects);
    const std::string stored = p.type == ParamType::Color ? FormatEffectValue(p, v)
                                                          : std::to_string(std::clamp(v, p.minimum, p.maximum));
    values.emplace_back(EffectSettingsKey(p), Utf8ToUtf16(stored));
  }
  settings.SetStrings(kEffectDefaultsSection, values);
}

}  // namespace tavora
