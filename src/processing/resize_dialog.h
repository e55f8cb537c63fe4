#pragma once
// The portable model of the Resize / Resample / Upscale dialog: its lists
// and help lines, the values it remembers, how the size fields follow one
// another, and the size check. The window itself only shows this.
#include <cstdint>
#include <span>
#include <string_view>

#include "base/settings_store.h"
#include "processing/resample.h"

namespace tavora {

struct ResizeListEntry {
  std::u16string_view text;
  std::u16string_view summary;  // methods only: the short note beside the name
  std::u16string_view help;     // the line under the controls
};

// Indexed by ResizeMethod, by list position (AlgorithmAtPosition) and by
// UpscaleEngine.
std::span<const ResizeListEntry> ResizeMethods();
std::span<const ResizeListEntry> ResizeAlgorithms();
std::span<const ResizeListEntry> UpscaleEngines();

// The help line the dialog shows for these options: the algorithm's under
// Resample, the engine's under Upscale, the method's under Resize.
std::u16string_view ResizeHelpLine(const ResizeOptions& options);

// Which controls take part for these options; the others are greyed.
struct ResizeControls {
  bool algorithm = false, sharpen = false;
  bool engine = false, detail = false, edge = false, denoise = false, grain = false;
};
ResizeControls ResizeControlsFor(const ResizeOptions& options);

// "Scale:" presets; percent 0 is "Custom" and changes nothing.
struct ScalePreset {
  std::u16string_view text;
  int32_t percent;
};
std::span<const ScalePreset> ScalePresets();

// ---- the remembered values
inline constexpr std::u16string_view kResizeSection = u"Dlg Resize Image";
// Each remembered value once: key, range and default. Values are whole
// numbers; the flag is 0 or 1.
struct ResizeSetting {
  std::u16string_view key;
  int32_t minimum, maximum, fallback;
  int32_t (*get)(const ResizeOptions& options);
  void (*set)(ResizeOptions& options, int32_t value);
};
std::span<const ResizeSetting> ResizeSettings();
// Every value read in one go; a missing or out-of-range value is its default.
ResizeOptions LoadResizeOptions(const SettingsStore& store);
// Every value written in one go.
void SaveResizeOptions(SettingsStore& store, const ResizeOptions& options);

// ---- width, height and percent
enum class SizeField { Width, Height, Percent, Preset };
struct SizeFields {
  int32_t width = 0, height = 0;
  double percent = 100;  // of the current width (of the height after a height edit)

  bool operator==(const SizeFields&) const = default;
};
// The three fields after one of them changed to `value` (for Preset: the
// preset's index), the image being currentWidth x currentHeight now. A
// percent or a preset scales both sides; with keepAspect a width or height
// brings the other side along (ticking the box: pass Width with the width
// shown). Sides computed from others are at least 1; percent has two
// decimals.
SizeFields FollowSizeField(int32_t currentWidth, int32_t currentHeight, const SizeFields& fields, SizeField changed,
                           double value, bool keepAspect);

// Empty when the size may be used, else the message to show: both sides
// 1..30000 and at most 250 megapixels.
std::u16string_view ResizeSizeMessage(double width, double height);

}  // namespace tavora
