#include "auxiliary/ruler.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/unicode.h"

namespace tavora {

RulerUnit RulerUnitFromSetting(int32_t stored) { return static_cast<RulerUnit>(std::clamp(stored, 0, 2)); }

double RulerUnitScale(RulerUnit unit, double canvasScale, int32_t dpi) {
  const double d = dpi > 0 ? dpi : 96;
  switch (unit) {
    case RulerUnit::Inches: return canvasScale * d;
    case RulerUnit::Centimetres: return canvasScale * d / 2.54;
    default: return canvasScale;
  }
}

RulerStep ChooseRulerStep(RulerUnit unit, double unitScale, double dpiScale) {
  RulerStep step;
  step.major = 1e9;
  const double minimum = 60 * dpiScale;
  bool found = false;
  for (int e = unit == RulerUnit::Pixels ? 0 : -6; e <= 9 && !found; ++e)
    for (int m : {1, 2, 5}) {
      const double value = m * std::pow(10.0, e);
      if (value * unitScale >= minimum) {
        step.major = value;
        step.mantissa = m;
        step.decimals = e < 0 ? -e : 0;
        found = true;
        break;
      }
    }
  // Ten minor ticks; in pixels a tenth below one pixel splits a 2 in two
  // and leaves the rest undivided; too dense on screen: majors only.
  step.subdivisions = 10;
  if (unit == RulerUnit::Pixels && step.major / 10 < 1) step.subdivisions = step.mantissa == 2 ? 2 : 1;
  if (step.subdivisions > 1 && step.major / step.subdivisions * unitScale < 4 * dpiScale) step.subdivisions = 1;
  return step;
}

std::vector<RulerTick> RulerTicks(const RulerStep& step, double unitScale, int32_t origin, int32_t visibleStart,
                                  int32_t visibleEnd) {
  std::vector<RulerTick> ticks;
  const double minor = step.major / step.subdivisions * unitScale;  // device pixels per tick
  if (!(minor > 0)) return ticks;
  const int64_t first = static_cast<int64_t>(std::floor((visibleStart - origin) / minor)) - 1;
  const int64_t last = static_cast<int64_t>(std::ceil((visibleEnd - origin) / minor)) + 1;
  for (int64_t i = first; i <= last && ticks.size() < 4000; ++i) {
    RulerTick t;
    t.position = static_cast<int32_t>(std::lround(origin + i * minor));
    const int64_t within = ((i % step.subdivisions) + step.subdivisions) % step.subdivisions;
    if (within == 0) {
      t.length = 1;
      t.labelled = true;
      char text[48];
      std::snprintf(text, sizeof text, "%.*f", step.decimals, double(i / step.subdivisions) * step.major);
      t.label = Utf8ToUtf16(text);
    } else {
      t.length = (step.subdivisions == 2 || within == 5) ? 0.55 : 0.3;
    }
    ticks.push_back(std::move(t));
  }
  return ticks;
}

}  // namespace tavora
