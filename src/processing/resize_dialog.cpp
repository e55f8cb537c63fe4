#include "processing/resize_dialog.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "base/unicode.h"
#include "document/size_limits.h"

namespace tavora {
namespace {

constexpr ResizeListEntry kMethods[] = {
    {u"Resize", u"exact pixels, hard edges",
     u"Copies the nearest pixel for every new one: exact colors and hard edges, nothing blended."},
    {u"Resample", u"smooth interpolation",
     u"Blends neighboring pixels with the chosen algorithm, with optional sharpening afterwards."},
    {u"Upscale", u"enlarge and restore detail",
     u"Enlarges with an engine that restores edges and fine detail. Reductions use the automatic choice."},
};

// In list order; AlgorithmAtPosition gives each one's internal number.
constexpr ResizeListEntry kAlgorithms[] = {
    {u"Automatic (smooth to enlarge, sharp to reduce)", {},
     u"Picks bicubic smoother when enlarging and bicubic sharper when reducing."},
    {u"Bilinear", {}, u"Blends the four nearest pixels. Fast and smooth, a little soft."},
    {u"Bicubic", {},
     u"Weighs sixteen neighboring pixels for smooth gradients and clean edges. A good all-round choice."},
    {u"Bicubic smoother (best for enlarging)", {},
     u"A soft curve with no ringing around edges. Enlarged photos stay smooth and free of halos."},
    {u"Bicubic sharper (best for reducing)", {},
     u"Bicubic followed by a light sharpening, so reduced images keep their crispness."},
    {u"Lanczos (high quality)", {},
     u"Weighs a wide neighborhood for the most fine detail. Hard edges may show faint ringing."},
    {u"Area average (cleanest big reductions)", {},
     u"Averages the covered pixels. Best for large reductions: smooth, no aliasing."},
    {u"Nearest neighbor (hard pixels)", {},
     u"Scales to the exact size with no smoothing. Edges stay hard and no new colors appear, which suits "
     u"pixel art and screenshots. Enlarging looks blocky."},
};

constexpr ResizeListEntry kEngines[] = {
    {u"Detail recovery (edge-aware)", {},
     u"Enlarges, shrinks it back, compares with your original and corrects the difference. Recovers edges "
     u"and fine detail without halos. Best for photos."},
    {u"Lanczos + edge sharpening (crisper)", {}, u"Lanczos enlargement followed by halo-limited sharpening."},
    {u"Pixel art (Scale2x edge smoothing)", {},
     u"Doubles pixels along clean diagonals without blurring (repeated for larger factors). For sprites and "
     u"icons, not photos."},
};

constexpr ScalePreset kPresets[] = {{u"Custom", 0}, {u"25%", 25},   {u"50%", 50},   {u"75%", 75},  {u"125%", 125},
                                    {u"150%", 150}, {u"200%", 200}, {u"300%", 300}, {u"400%", 400}};

constexpr ResizeSetting kSettings[] = {
    {u"mode", 0, 2, 1, [](const ResizeOptions& o) { return int32_t(o.method); },
     [](ResizeOptions& o, int32_t v) { o.method = ResizeMethod(v); }},
    {u"algo1", 0, 7, 0, [](const ResizeOptions& o) { return o.algorithmPosition; },
     [](ResizeOptions& o, int32_t v) { o.algorithmPosition = v; }},
    {u"algo2", 0, 2, 0, [](const ResizeOptions& o) { return int32_t(o.engine); },
     [](ResizeOptions& o, int32_t v) { o.engine = UpscaleEngine(v); }},
    {u"sharpen", 0, 100, 0, [](const ResizeOptions& o) { return o.sharpen; },
     [](ResizeOptions& o, int32_t v) { o.sharpen = v; }},
    {u"detail", 0, 100, 50, [](const ResizeOptions& o) { return o.detail; },
     [](ResizeOptions& o, int32_t v) { o.detail = v; }},
    {u"grain", 0, 100, 0, [](const ResizeOptions& o) { return o.grain; },
     [](ResizeOptions& o, int32_t v) { o.grain = v; }},
    {u"denoise", 0, 1, 0, [](const ResizeOptions& o) { return int32_t(o.denoise); },
     [](ResizeOptions& o, int32_t v) { o.denoise = v != 0; }},
    {u"edge", 0, 100, 50, [](const ResizeOptions& o) { return o.edge; },
     [](ResizeOptions& o, int32_t v) { o.edge = v; }},
};

template <std::size_t N>
std::u16string_view At(const ResizeListEntry (&list)[N], int32_t index) {
  return index >= 0 && std::size_t(index) < N ? list[index].help : list[0].help;
}

// Whole pixels; anything a field could hold, NaN as 0, stays a valid int.
int32_t ToSide(double v) { return v == v ? int32_t(std::clamp(std::round(v), -1e9, 1e9)) : 0; }

int32_t Scaled(int32_t side, double percent) { return std::max(1, ToSide(side * percent / 100.0)); }

double TwoDecimals(double v) { return std::round(v * 100.0) / 100.0; }

}  // namespace

std::span<const ResizeListEntry> ResizeMethods() { return kMethods; }
std::span<const ResizeListEntry> ResizeAlgorithms() { return kAlgorithms; }
std::span<const ResizeListEntry> UpscaleEngines() { return kEngines; }
std::span<const ScalePreset> ScalePresets() { return kPresets; }
std::span<const ResizeSetting> ResizeSettings() { return kSettings; }

std::u16string_view ResizeHelpLine(const ResizeOptions& options) {
  switch (options.method) {
    case ResizeMethod::Resize: return kMethods[0].help;
    case ResizeMethod::Upscale: return At(kEngines, int32_t(options.engine));
    default: return At(kAlgorithms, options.algorithmPosition);
  }
}

ResizeControls ResizeControlsFor(const ResizeOptions& options) {
  ResizeControls c;
  if (options.method == ResizeMethod::Resample) {
    c.algorithm = c.sharpen = true;
  } else if (options.method == ResizeMethod::Upscale) {
    c.engine = c.denoise = c.grain = true;
    // Pixel art has no detail pass to steer.
    c.detail = c.edge = options.engine != UpscaleEngine::PixelArt;
  }
  return c;
}

ResizeOptions LoadResizeOptions(const SettingsStore& store) {
  const SettingsSnapshot snapshot = store.Snapshot();
  ResizeOptions options;
  for (const ResizeSetting& s : kSettings) {
    const int32_t v = snapshot.GetInt(kResizeSection, s.key, s.fallback);
    s.set(options, v >= s.minimum && v <= s.maximum ? v : s.fallback);
  }
  return options;
}

void SaveResizeOptions(SettingsStore& store, const ResizeOptions& options) {
  std::vector<std::pair<std::u16string, std::u16string>> values;
  for (const ResizeSetting& s : kSettings)
    values.emplace_back(std::u16string(s.key),
                        Utf8ToUtf16(std::to_string(std::clamp(s.get(options), s.minimum, s.maximum))));
  store.SetStrings(kResizeSection, values);
}

SizeFields FollowSizeField(int32_t currentWidth, int32_t currentHeight, const SizeFields& fields, SizeField changed,
                           double value, bool keepAspect) {
  const int32_t cw = std::max(currentWidth, 1), ch = std::max(currentHeight, 1);
  SizeFields f = fields;
  switch (changed) {
    case SizeField::Preset: {
      const int32_t index = int32_t(value);
      if (index <= 0 || index >= int32_t(std::size(kPresets))) return f;
      value = kPresets[index].percent;
      [[fallthrough]];
    }
    case SizeField::Percent:
      f.percent = TwoDecimals(value);
      f.width = Scaled(cw, value);
      f.height = Scaled(ch, value);
      return f;
    case SizeField::Width:
      f.width = ToSide(value);
      f.percent = TwoDecimals(value * 100.0 / cw);
      if (keepAspect) f.height = Scaled(ch, value * 100.0 / cw);
      return f;
    case SizeField::Height:
      f.height = ToSide(value);
      f.percent = TwoDecimals(value * 100.0 / ch);
      if (keepAspect) f.width = Scaled(cw, value * 100.0 / ch);
      return f;
  }
  return f;
}

std::u16string_view ResizeSizeMessage(double width, double height) {
  return CheckCanvasSize(width, height, SizeRule::Standard).message;
}

}  // namespace tavora
