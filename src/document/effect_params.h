#pragma once
// The eight layer effects' parameters, declared once with their names,
// ranges and defaults: the Properties and Effects dialog, tavora-cli's
// "effects" verb and the remembered defaults of new layers all read this
// one table.
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/settings_store.h"
#include "document/layer.h"

namespace tavora {

// The groups in the order of the layer's record and of the dialog's list.
enum EffectGroup : int32_t {
  kEffectDropShadow = 0,
  kEffectOuterGlow,
  kEffectInnerGlow,
  kEffectBevel,
  kEffectColorOverlay,
  kEffectGradientOverlay,
  kEffectStroke,
  kEffectBloom,
};
inline constexpr int32_t kEffectGroupCount = 8;

// The choice codes the layer keeps (and the layered file stores).
enum InnerGlowSource : int32_t { kGlowFromEdges = 0, kGlowFromCenter = 1 };
enum BevelDirection : int32_t { kBevelRaised = 0, kBevelSunken = 1 };
enum GradientStyle : int32_t {
  kGradientLinear = 0,
  kGradientRadial = 1,
  kGradientAngle = 2,
  kGradientReflected = 3,
  kGradientDiamond = 4,
};
enum StrokePosition : int32_t { kStrokeOutside = 0, kStrokeCenter = 1, kStrokeInside = 2 };
enum BloomGlow : int32_t { kBloomColor = 0, kBloomLayerColors = 1, kBloomTinted = 2 };

struct EffectGroupInfo {
  std::u16string_view title;  // "Drop Shadow"
  std::string_view key;       // "shadow": the prefix of its parameters' keys
};
const EffectGroupInfo& EffectGroupAt(int32_t group);
// The group's on switch.
bool EffectOn(const LayerEffects& effects, int32_t group);
void SetEffectOn(LayerEffects& effects, int32_t group, bool on);

enum class ParamType { Switch, Number, Color, Choice };

struct EffectChoice {
  std::string_view key;       // for the command line: "outside"
  std::u16string_view label;  // in the dialog: "Outside"
};

struct EffectParam {
  int32_t group;
  std::string_view key;       // "shadow.blur"
  std::u16string_view label;  // "Blur:"
  ParamType type;
  int32_t minimum, maximum;   // switches 0..1, choices 0..count - 1, colours 0..0xFFFFFF
  int32_t fallback;           // the default of a new layer
  std::u16string_view unit;   // shown after the value: "px", "%", "°"
  int32_t sliderMinimum, sliderMaximum;  // a number's slider; the edit takes the whole range
  std::span<const EffectChoice> choices;
  int32_t (*get)(const LayerEffects&);
  void (*set)(LayerEffects&, int32_t);
};

// Every parameter, group by group, each group's switch first.
std::span<const EffectParam> EffectParams();
const EffectParam* FindEffectParam(std::string_view key);
// A group's own on switch ("shadow.on"), as against an option that is a switch.
bool IsEffectSwitch(const EffectParam& param);

// A value of the command line for a parameter: a whole number in range, a
// colour as RRGGBB (with or without '#'), or a choice by its name or number.
// Nothing when it is none of these; `outOfRange` tells a number outside the
// range apart from text that is no value at all.
std::optional<int32_t> ParseEffectValue(const EffectParam& param, std::u16string_view text,
                                        bool& outOfRange);
// The value as the command line and the settings write it.
std::string FormatEffectValue(const EffectParam& param, int32_t value);

// ---- the defaults of new layers
// Every value the user chose last in Properties and Effects, remembered in
// the settings section "Effects"; the switches are not: a new layer starts
// with every effect off. Missing or unreadable values take the table's
// defaults, out-of-range ones are held to the range.
inline constexpr std::u16string_view kEffectDefaultsSection = u"Effects";
LayerEffects LoadEffectDefaults(const SettingsSnapshot& settings);
void SaveEffectDefaults(SettingsStore& settings, const LayerEffects& effects);
// The settings key of a parameter: "shadow.blur" is "ShadowBlur".
std::u16string EffectSettingsKey(const EffectParam& param);

}  // namespace tavora
