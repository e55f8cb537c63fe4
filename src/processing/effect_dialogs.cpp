#include "processing/effect_dialogs.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/unicode.h"
#include "processing/filters.h"
#include "processing/hdr_tone_map.h"
#include "processing/spiral.h"
#include "processing/whiten_area.h"

namespace tavora {
namespace {

using K = RowKind;
int32_t I(const EffectValues& v, std::size_t i) { return static_cast<int32_t>(v.rows[i]); }
float F(const EffectValues& v, std::size_t i) { return static_cast<float>(v.rows[i]); }

template <typename T>
T& Block(void* block) { return *static_cast<T*>(block); }

constexpr ParamRow kBrightnessContrast[] = {{u"Brightness:", -100, 100, 0, 0, K::CentredSlider},
                                            {u"Contrast:", -100, 100, 0, 0, K::CentredSlider}};
constexpr ParamRow kGamma[] = {{u"Gamma:", 0.3, 3, 1, 2, K::Edit},
                               {u"Red shift:", -100, 100, 0, 0, K::CentredSlider},
                               {u"Green shift:", -100, 100, 0, 0, K::CentredSlider},
                               {u"Blue shift:", -100, 100, 0, 0, K::CentredSlider}};
constexpr ParamRow kHueSaturation[] = {{u"Hue:", -180, 180, 0, 0, K::CentredSlider},
                                       {u"Saturation:", -100, 100, 0, 0, K::CentredSlider},
                                       {u"Lightness:", -100, 100, 0, 0, K::CentredSlider}};
constexpr ParamRow kColorize[] = {{u"Hue:", 0, 360, 200, 0, K::Edit},
                                  {u"Saturation:", 0, 100, 60, 0, K::Edit},
                                  {u"Lightness:", -100, 100, 0, 0, K::CentredSlider}};
constexpr ParamRow kPosterize[] = {{u"Levels per channel:", 2, 32, 4, 0, K::Edit}};
constexpr ParamRow kThreshold[] = {{u"Threshold:", 0, 255, 128, 0, K::Edit}};
constexpr ParamRow kBlur[] = {{u"Strength (px):", 1, 50, 2, 0, K::SquareSlider}};
constexpr ParamRow kLensBlur[] = {{u"Radius (px):", 1, 60, 8, 0, K::SquareSlider},
                                  {u"Highlight glow:", 0, 20, 4, 1, K::Edit}};
constexpr ParamRow kMotionBlur[] = {{u"Distance (px):", 1, 300, 20, 0, K::SquareSlider},
                                    {u"Angle (°):", -180, 180, 0, 0, K::Edit}};
constexpr ParamRow kGaussianBlur[] = {{u"Radius (px):", 0.1, 100, 3, 1, K::SquareSlider}};
constexpr ParamRow kSharpen[] = {{u"Radius (px):", 0.3, 20, 1.5, 1, K::SquareSlider},
                                 {u"Amount (%):", 0, 500, 100, 0, K::SquareSlider},
                                 {u"Threshold:", 0, 60, 0, 0, K::SquareSlider}};
constexpr ParamRow kAddNoise[] = {{u"Amount (%):", 1, 100, 20, 0, K::SquareSlider}};
constexpr ParamRow kPixelate[] = {{u"Block size (px):", 2, 200, 8, 0, K::SquareSlider}};
constexpr ParamRow kWhitenArea[] = {{u"Dark detection (%):", -30, 80, 15, 0, K::Edit},
                                    {u"Fill brightness (%):", 0, 100, 0, 0, K::Edit},
                                    {u"Fill saturation (%):", 0, 300, 100, 0, K::Edit},
                                    {u"Tint hue (degrees):", 0, 360, 0, 0, K::Edit},
                                    {u"Tint intensity (%):", 0, 100, 0, 0, K::Edit},
                                    {u"Edge feather (px):", 0, 40, 4, 0, K::Edit}};
constexpr ParamRow kHdrToneMap[] = {{u"Exposure (EV):", -3, 3, 0, 1, K::Edit},
                                    {u"Range compression:", 0.2, 1, 0.55, 2, K::Edit},
                                    {u"Local detail:", 0.5, 3, 1.5, 2, K::Edit},
                                    {u"Color saturation:", 0.5, 1.5, 1, 2, K::Edit},
                                    {u"Gamma:", 0.5, 2, 1, 2, K::Edit},
                                    {u"Smoothing radius:", 4, 100, 30, 0, K::Edit}};
constexpr ParamRow kSpiral[] = {{u"Line thickness (px):", 1, 200, 12, 0, K::Edit},
                                {u"Radius (%):", 5, 150, 100, 0, K::Edit},
                                {u"Edge softness (px):", 0, 60, 2, 0, K::Edit}};
constexpr std::u16string_view kDistributions[] = {u"Gaussian", u"Uniform"};

void PackBrightnessContrast(const EffectValues& v, void* b) {
  Block<BrightnessContrastParams>(b) = {I(v, 0), I(v, 1)};
}
void PackGamma(const EffectValues& v, void* b) { Block<GammaParams>(b) = {F(v, 0), I(v, 1), I(v, 2), I(v, 3)}; }
void PackHueSaturation(const EffectValues& v, void* b) {
  Block<HueSaturationParams>(b) = {I(v, 0), I(v, 1), I(v, 2)};
}
void PackColorize(const EffectValues& v, void* b) { Block<ColorizeParams>(b) = {I(v, 0), I(v, 1), I(v, 2)}; }
void PackPosterize(const EffectValues& v, void* b) { Block<PosterizeParams>(b) = {I(v, 0)}; }
void PackThreshold(const EffectValues& v, void* b) { Block<ThresholdParams>(b) = {I(v, 0)}; }
void PackBlur(const EffectValues& v, void* b) { Block<BlurParams>(b) = {F(v, 0)}; }
void PackLensBlur(const EffectValues& v, void* b) { Block<LensBlurParams>(b) = {F(v, 0), F(v, 1)}; }
void PackMotionBlur(const EffectValues& v, void* b) { Block<MotionBlurParams>(b) = {F(v, 0), F(v, 1)}; }
void PackGaussianBlur(const EffectValues& v, void* b) { Block<GaussianBlurParams>(b) = {F(v, 0)}; }
void PackSharpen(const EffectValues& v, void* b) { Block<SharpenParams>(b) = {F(v, 0), I(v, 1), I(v, 2)}; }
void PackAddNoise(const EffectValues& v, void* b) {
  Block<AddNoiseParams>(b) = {I(v, 0), v.option, v.choice == 0};  // "Gaussian" is the first choice
}
void PackPixelate(const EffectValues& v, void* b) { Block<PixelateParams>(b) = {I(v, 0)}; }
void PackWhitenArea(const EffectValues& v, void* b) {
  Block<WhitenAreaParams>(b) = {I(v, 0), I(v, 1), I(v, 2), I(v, 3), I(v, 4), I(v, 5)};
}
void PackHdrToneMap(const EffectValues& v, void* b) {
  Block<HdrToneMapParams>(b) = {F(v, 0), F(v, 1), F(v, 2), F(v, 3), F(v, 4), I(v, 5)};
}
void PackSpiral(const EffectValues& v, void* b) {
  Block<SpiralParams>(b) = {I(v, 0), I(v, 1), I(v, 2), v.option, v.color1 | 0xFF000000u,
                            v.color2 | 0xFF000000u};
}

constexpr EffectDef kEffects[] = {
    {u"Brightness / Contrast", u"Brightness/Contrast", kBrightnessContrast, {}, &BrightnessContrast,
     &PackBrightnessContrast, MarginKind::None, true, {}, {}, {}, {}, u"brightness-contrast"},
    {u"Gamma", u"Gamma", kGamma, {}, &Gamma, &PackGamma, MarginKind::None, true, {}, {}, {}, {}, u"gamma"},
    {u"Hue / Saturation / Lightness", u"Hue/Saturation", kHueSaturation, {}, &HueSaturation,
     &PackHueSaturation, MarginKind::None, true, {}, {}, {}, {}, u"hue-saturation"},
    {u"Colorize", u"Colorize", kColorize, {}, &Colorize, &PackColorize, MarginKind::None, true, {}, {},
     {}, {}, u"colorize"},
    {u"Posterize", u"Posterize", kPosterize, {}, &Posterize, &PackPosterize, MarginKind::None, true, {},
     {}, {}, {}, u"posterize"},
    {u"Threshold", u"Threshold", kThreshold, {}, &Threshold, &PackThreshold, MarginKind::None, true, {},
     {}, {}, {}, u"threshold"},
    {u"Blur", u"Blur", kBlur, {}, &Blur, &PackBlur, MarginKind::FromFirstValue, true, {}, {}, {}, {},
     u"blur"},
    {u"Lens Blur", u"Lens Blur", kLensBlur, {}, &LensBlur, &PackLensBlur, MarginKind::FromFirstValue,
     true, {}, {}, {}, {}, u"lens-blur"},
    {u"Motion Blur", u"Motion Blur", kMotionBlur, {}, &MotionBlur, &PackMotionBlur,
     MarginKind::FromFirstValue, true, {}, {}, {}, {}, u"motion-blur"},
    {u"Gaussian Blur", u"Gaussian Blur", kGaussianBlur, {}, &GaussianBlurOp, &PackGaussianBlur,
     MarginKind::FromFirstValue, true, {}, {}, {}, {}, u"gaussian-blur"},
    {u"Sharpen", u"Sharpen", kSharpen, {}, &Sharpen, &PackSharpen, MarginKind::FromFirstValue, true, {},
     {}, {}, {}, u"sharpen"},
    {u"Add Noise", u"Add Noise", kAddNoise, u"Monochromatic (gray) noise", &AddNoise, &PackAddNoise,
     MarginKind::None, true, {}, {}, u"Distribution:", kDistributions, u"add-noise"},
    {u"Pixelate", u"Pixelate", kPixelate, {}, &Pixelate, &PackPixelate, MarginKind::None, true, {}, {},
     {}, {}, u"pixelate"},
    {u"Whiten Area", u"Whiten Area", kWhitenArea, {}, &WhitenArea, &PackWhitenArea, MarginKind::None, true,
     {}, {}, {}, {}, u"whiten-area"},
    {u"HDR Tone Map", u"HDR Tone Map", kHdrToneMap, {}, &HdrToneMap, &PackHdrToneMap, MarginKind::WholeLayer,
     false, {}, {}, {}, {}, u"hdr-tone-map"},
    {u"Spiral", u"Spiral", kSpiral, u"Spiral turns counter-clockwise", &Spiral, &PackSpiral,
     MarginKind::None, true, u"Color 1:", u"Color 2:", {}, {}, u"spiral"},
};

bool SameText(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    auto fold = [](char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; };
    if (fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

// Command ids as in the menus (1404..1411, 1458, 1459).
constexpr ImmediateOp kImmediate[] = {
    {1404, u"Grayscale", &Grayscale, 0, u"grayscale"},
    {1405, u"Sepia", &Sepia, 0, u"sepia"},
    {1406, u"Invert", &Invert, 0, u"invert"},
    {1410, u"Auto Tone", &AutoTone, 0, u"auto-tone"},
    {1409, u"Auto Contrast", &AutoContrast, 0, u"auto-contrast"},
    {1411, u"Auto Color", &AutoColor, 0, u"auto-color"},
    {1458, u"Emboss", &Emboss, 1, u"emboss"},
    {1459, u"Edge Detect", &EdgeDetect, 1, u"edge-detect"}};

}  // namespace

std::span<const ImmediateOp> ImmediateOps() { return kImmediate; }

const ImmediateOp* FindImmediateOp(std::u16string_view name) {
  for (const ImmediateOp& op : kImmediate)
    if (SameText(op.historyName, name) || SameText(op.shortName, name)) return &op;
  return nullptr;
}

std::span<const EffectDef> EffectDefs() { return kEffects; }

const EffectDef* FindEffect(std::u16string_view name) {
  for (const EffectDef& def : kEffects)
    if (SameText(def.title, name) || SameText(def.shortName, name)) return &def;
  return nullptr;
}

EffectValues DefaultValues(const EffectDef& def) {
  EffectValues v;
  for (const ParamRow& row : def.rows) v.rows.push_back(row.fallback);
  return v;
}

int32_t EffectDialogMargin(const EffectDef& def, double firstValue) {
  switch (def.margin) {
    case MarginKind::FromFirstValue: return static_cast<int32_t>(std::ceil(3 * firstValue)) + 2;
    case MarginKind::WholeLayer: return 1048576;
    default: return 0;
  }
}

int32_t SliderSteps(const ParamRow& row) {
  const double n = std::ceil(std::pow(10.0, row.decimals) * 2 * (row.maximum - row.minimum) * 1.6);
  return static_cast<int32_t>(std::clamp(n, 1000.0, 200000.0));
}

double SliderValue(const ParamRow& row, int32_t position) {
  const double n = SliderSteps(row);
  const double p = std::clamp<double>(position, 0, n);
  if (row.kind == RowKind::CentredSlider) {
    const double t = (p - n / 2) / (n / 2);
    const double centre = (row.minimum + row.maximum) / 2, half = (row.maximum - row.minimum) / 2;
    const double shape = 0.6 * t * t + 0.4 * std::fabs(t);
    return centre + (t < 0 ? -shape : t > 0 ? shape : 0.0) * half;
  }
  return row.minimum + (row.maximum - row.minimum) * (p / n) * (p / n);
}

int32_t SliderPosition(const ParamRow& row, double value) {
  const double n = SliderSteps(row);
  if (row.maximum <= row.minimum) return 0;
  if (row.kind == RowKind::CentredSlider) {
    const double centre = (row.minimum + row.maximum) / 2, half = (row.maximum - row.minimum) / 2;
    const double u = std::clamp((value - centre) / half, -1.0000000000000002, 1.0000000000000002);
    double x = (std::sqrt(2.4 * std::fabs(u) + 0.16) - 0.4) / 1.2;
    if (u < 0) x = -x;
    return static_cast<int32_t>(std::floor(x * n / 2 + n / 2 + 0.5));
  }
  const double frac = std::clamp((value - row.minimum) / (row.maximum - row.minimum), 0.0, 1.0);
  return static_cast<int32_t>(std::floor(n * std::sqrt(frac) + 0.5));
}

double RoundToDecimals(double value, uint32_t decimals) {
  const double scale = std::pow(10.0, decimals);
  return std::floor(value * scale + 0.5) / scale;
}

std::u16string RangeHint(double minimum, double maximum) {
  char text[96];
  std::snprintf(text, sizeof text, "Range: %g \xE2\x80\x93 %g", minimum, maximum);
  return Utf8ToUtf16(text);
}

std::u16string RangeMessage(double minimum, double maximum) {
  char text[96];
  std::snprintf(text, sizeof text, "Please enter a value between %g and %g.", minimum, maximum);
  return Utf8ToUtf16(text);
}

std::u16string RememberSection(const EffectDef& def) { return u"Dlg " + std::u16string(def.title); }

std::u16string FormatNumber(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return Utf8ToUtf16(text);
}

std::optional<double> ParseFiniteNumber(std::u16string_view text) {
  while (!text.empty() && (text.front() == u' ' || text.front() == u'\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == u' ' || text.back() == u'\t')) text.remove_suffix(1);
  const std::string utf8 = Utf16ToUtf8(text);
  if (utf8.empty()) return std::nullopt;
  char* end = nullptr;
  const double v = std::strtod(utf8.c_str(), &end);
  if (*end || !std::isfinite(v)) return std::nullopt;
  return v;
}

std::optional<double> ParseTypedValue(std::u16string_view text, const ParamRow& row) {
  const auto v = ParseFiniteNumber(text);
  if (!v) return std::nullopt;
  const double rounded = RoundToDecimals(*v, row.decimals);
  if (rounded < row.minimum || rounded > row.maximum) return std::nullopt;
  return rounded;
}

std::optional<double> ParseRemembered(std::u16string_view text, const ParamRow& row) {
  const auto v = ParseFiniteNumber(text);
  if (!v || *v < row.minimum || *v > row.maximum) return std::nullopt;
  return v;
}

std::optional<int32_t> ParseRememberedIndex(std::u16string_view text, int32_t limit) {
  const auto v = ParseFiniteNumber(text);
  if (!v || *v != std::floor(*v) || *v < 0 || *v > limit) return std::nullopt;
  return static_cast<int32_t>(*v);
}

std::u16string FormatColor(uint32_t color) {
  char text[8];
  std::snprintf(text, sizeof text, "%06X", color & 0xFFFFFFu);
  return std::u16string(text, text + 6);
}

std::optional<uint32_t> ParseRememberedColor(std::u16string_view text) {
  const std::string utf8 = Utf16ToUtf8(text);
  char* end = nullptr;
  const long long v = std::strtoll(utf8.c_str(), &end, 16);
  if (end == utf8.c_str()) return std::nullopt;
  while (*end == ' ' || *end == '\t') ++end;
  if (*end || v < 0 || v > 0xFFFFFF) return std::nullopt;
  return 0xFF000000u | static_cast<uint32_t>(v);
}

}  // namespace tavora
