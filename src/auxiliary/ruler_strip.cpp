#include "auxiliary/ruler_strip.h"

#include <algorithm>
#include <cmath>

namespace tavora {
namespace {

uint32_t Mix(uint32_t from, uint32_t to, uint32_t amount) {
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    const int32_t a = (from >> shift) & 255, b = (to >> shift) & 255;
    const int32_t c = a + ((b - a) * int32_t(amount) + (b >= a ? 127 : -127)) / 255;
    out |= uint32_t(std::clamp(c, 0, 255)) << shift;
  }
  return out;
}

// Pixels addressed along and across the strip, whichever way it runs.
struct Strip {
  uint32_t* pixels;
  int32_t stride, length, thickness;
  bool vertical;
  void Span(int32_t along0, int32_t along1, int32_t across0, int32_t across1, uint32_t color) const {
    along0 = std::max(along0, 0);
    along1 = std::min(along1, length);
    across0 = std::max(across0, 0);
    across1 = std::min(across1, thickness);
    for (int32_t a = along0; a < along1; ++a)
      for (int32_t c = across0; c < across1; ++c) (vertical ? pixels[a * stride + c] : pixels[c * stride + a]) = color;
  }
};

}  // namespace

uint32_t RulerImageBand(const RulerColors& colors) { return Mix(colors.background, colors.text, 22); }

std::vector<RulerLabel> DrawRulerStrip(const RulerStripInput& in, const RulerColors& colors, uint32_t* pixels,
                                       int32_t stride) {
  std::vector<RulerLabel> labels;
  if (in.length < 1 || in.thickness < 1 || !pixels) return labels;
  const Strip strip{pixels, stride, in.length, in.thickness, in.vertical};
  const int32_t t = in.thickness;
  strip.Span(0, in.length, 0, t, colors.background);
  const int32_t start = std::clamp(in.canvasOffset, 0, in.length);
  // The edge toward the canvas: the bottom of the top strip, the right of
  // the left one.
  strip.Span(start, in.length, t - 1, t, colors.edge);
  if (!in.hasDocument || !(in.canvasScale > 0)) return labels;

  const int32_t origin = in.canvasOffset + in.imageOrigin;
  const double end = origin + in.imageLength * in.canvasScale;
  strip.Span(std::max(origin, start), static_cast<int32_t>(std::lround(std::min<double>(end, in.length))), 0, t - 1,
             RulerImageBand(colors));

  const double unitScale = RulerUnitScale(in.unit, in.canvasScale, in.dpi);
  const RulerStep step = ChooseRulerStep(in.unit, unitScale, in.dpiScale);
  for (const RulerTick& tick : RulerTicks(step, unitScale, origin, start, in.length)) {
    if (tick.position < start || tick.position >= in.length) continue;
    const int32_t reach = std::max(1, static_cast<int32_t>(std::lround(t * tick.length)));
    strip.Span(tick.position, tick.position + 1, t - reach, t, colors.text);
    if (tick.labelled) labels.push_back({tick.position, tick.label});
  }
  if (in.cursor >= 0) {
    const int32_t at = in.canvasOffset + in.cursor;
    if (at >= start) strip.Span(at, at + 1, 0, t, colors.marker);
  }
  return labels;
}

}  // namespace tavora
