#pragma once
// The rulers' arithmetic: device pixels per unit at the current zoom, the
// labelled major step, the minor subdivisions and the ticks of a strip.
// The "KZRuler" windows draw what this gives.
#include <cstdint>
#include <string>
#include <vector>

namespace tavora {

enum class RulerUnit : int32_t { Pixels = 0, Inches = 1, Centimetres = 2 };
// Stored values out of range are clamped: 7 reads as centimetres, -3 as pixels.
RulerUnit RulerUnitFromSetting(int32_t stored);

// Device pixels per unit: s, s x dpi or s x dpi / 2.54 (dpi 96 when not
// positive), s the canvas scale in device pixels per image pixel.
double RulerUnitScale(RulerUnit unit, double canvasScale, int32_t dpi);

struct RulerStep {
  double major = 1;         // in units
  int32_t mantissa = 1;     // 1, 2 or 5
  int32_t decimals = 0;     // for the labels
  int32_t subdivisions = 10;  // 10, 2, or 1 (major ticks only)
};
// The first m x 10^e (e from -6, or 0 for pixels, up to 9; m = 1, 2, 5)
// at least 60 device-independent pixels long on screen.
RulerStep ChooseRulerStep(RulerUnit unit, double unitScale, double dpiScale);

struct RulerTick {
  int32_t position = 0;  // device pixels along the strip
  double length = 0;     // share of the thickness: 1, 0.55 or 0.3
  bool labelled = false;
  std::u16string label;  // "%.*f" of the value
};
// The ticks from just before `visibleStart` to just after `visibleEnd`
// (strip coordinates), the image origin at `origin`; at most 4000.
std::vector<RulerTick> RulerTicks(const RulerStep& step, double unitScale, int32_t origin, int32_t visibleStart,
                                  int32_t visibleEnd);

}  // namespace tavora
